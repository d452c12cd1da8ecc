// Metadata of AIFF and AIFC files: markers in MARK, sampler information in
// INST (aiffsampler.cpp), the text chunks as summary items under the INFO ids
// that mean the same, and any other chunk as a raw one. Written back behind
// the audio, so no sample byte moves.
#include "media/metainternal.h"
#include "media/iff.h"
#include "media/chunkio.h"
#include "zvplugin.h"
#include <string.h>

namespace zvmeta {

namespace {

using zvmedia::FileIO;

const DWORD kInst = ZVIFF_ID('I', 'N', 'S', 'T'), kJunk = ZVIFF_ID('J', 'U', 'N', 'K');
const ULONGLONG kBodyLimit = 16u << 20;

// AIFF text chunks and the summary ids they stand for.
struct TextId {
    DWORD iff, info;
};
const TextId kTexts[] = {
    {ZVIFF_ID('N', 'A', 'M', 'E'), ZVRIFF_ID('I', 'N', 'A', 'M')},
    {ZVIFF_ID('A', 'U', 'T', 'H'), ZVRIFF_ID('I', 'A', 'R', 'T')},
    {ZVIFF_ID('(', 'c', ')', ' '), ZVRIFF_ID('I', 'C', 'O', 'P')},
    {ZVIFF_ID('A', 'N', 'N', 'O'), ZVRIFF_ID('I', 'C', 'M', 'T')},
};

// Chunks that hold the file's structure or a kind of their own: never raw.
bool IsOwnedId(DWORD id)
{
    static const DWORD fixed[] = {ZVIFF_FORM, ZVIFF_COMM, ZVIFF_SSND, ZVIFF_MARK, kInst, ZVIFF_ID('F', 'V', 'E', 'R'), kJunk};
    for (DWORD f : fixed)
        if (f == id)
            return true;
    for (const TextId &t : kTexts)
        if (t.iff == id)
            return true;
    return !id;
}

DWORD Swap(DWORD v) { return (v >> 24) | ((v >> 8) & 0xFF00) | ((v << 8) & 0xFF0000) | (v << 24); }

struct FormChunk {
    DWORD id;
    ULONGLONG data;
    DWORD size;
};

// The top-level chunks, bounded by the stored size and the file's length; a
// size running past them ends the walk with what was found before.
HRESULT IndexForm(HANDLE file, std::vector<FormChunk> *out, ULONGLONG *end)
{
    FileIO io{file};
    BYTE head[12];
    if (!io.seek(0, FILE_BEGIN) || !io.read(head, 12))
        return ZVERR_FILE_READ;
    DWORD form = zvmedia::LoadBE32(head + 8);
    if (zvmedia::LoadBE32(head) != ZVIFF_FORM || (form != ZVIFF_AIFF && form != ZVIFF_AIFC))
        return ZVERR_NO_RIFF_HEADER;
    ULONGLONG length = io.length(), stored = (ULONGLONG)zvmedia::LoadBE32(head + 4) + 8;
    *end = stored < length ? stored : length;
    for (ULONGLONG pos = 12; pos + 8 <= *end;) {
        BYTE h[8];
        if (!io.seek((LONGLONG)pos, FILE_BEGIN) || !io.read(h, 8))
            return ZVERR_FILE_READ;
        FormChunk c = {zvmedia::LoadBE32(h), pos + 8, zvmedia::LoadBE32(h + 4)};
        if (c.data + c.size > *end)
            break;
        out->push_back(c);
        pos = c.data + c.size + (c.size & 1);
    }
    return S_OK;
}

HRESULT Body(HANDLE file, const FormChunk &c, Bytes *b)
{
    if (c.size > kBodyLimit)
        return ZVERR_SIZE_LIMIT;
    b->resize(c.size);
    FileIO io{file};
    return !c.size || (io.seek((LONGLONG)c.data, FILE_BEGIN) && io.read(b->data(), c.size)) ? S_OK : ZVERR_FILE_READ;
}

std::vector<WCHAR> Wide(const char *p, size_t n)
{
    size_t len = 0;
    while (len < n && p[len])
        len++;
    std::vector<WCHAR> w;
    int k = len ? MultiByteToWideChar(CP_ACP, 0, p, (int)len, nullptr, 0) : 0;
    w.resize((size_t)(k > 0 ? k : 0) + 1, 0);
    if (k > 0)
        MultiByteToWideChar(CP_ACP, 0, p, (int)len, w.data(), k);
    return w;
}

std::string Ansi(const BYTE *wide, size_t bytes)
{
    std::vector<WCHAR> w;
    for (size_t i = 0; i + 1 < bytes && (wide[i] | wide[i + 1]); i += 2)
        w.push_back((WCHAR)(wide[i] | (wide[i + 1] << 8)));
    std::string a;
    int n = w.empty() ? 0 : WideCharToMultiByte(CP_ACP, 0, w.data(), (int)w.size(), nullptr, 0, nullptr, nullptr);
    if (n > 0) {
        a.resize((size_t)n);
        WideCharToMultiByte(CP_ACP, 0, w.data(), (int)w.size(), &a[0], n, nullptr, nullptr);
    }
    return a;
}

// The marker ids the loops of INST name.
std::vector<WORD> LoopIds(HANDLE file, const std::vector<FormChunk> &chunks)
{
    std::vector<WORD> ids;
    Bytes inst;
    for (const FormChunk &c : chunks) {
        if (c.id != kInst || FAILED(Body(file, c, &inst)) || inst.size() < 20)
            continue;
        for (int which = 0; which < 2; which++) {
            const BYTE *l = &inst[8 + which * 6];
            if (zvmedia::LoadBE16(l)) {
                ids.push_back(zvmedia::LoadBE16(l + 2));
                ids.push_back(zvmedia::LoadBE16(l + 4));
            }
        }
        break;
    }
    return ids;
}

HRESULT ReadMarkers(HANDLE file, const FormChunk &c, const std::vector<WORD> &loopIds, Store *store)
{
    Bytes b;
    std::vector<AiffMarker> marks;
    HRESULT hr = Body(file, c, &b);
    if (SUCCEEDED(hr))
        hr = ParseAiffMarks(b, &marks);
    if (FAILED(hr))
        return hr;
    for (const AiffMarker &m : marks) {
        bool loop = false;
        for (WORD id : loopIds)
            loop = loop || id == m.id;
        if (loop)
            continue; // offered with the sampler information
        std::vector<WCHAR> text = Wide(m.name.data(), m.name.size());
        ZVMETA_MARKER r = {28, m.id, (LONGLONG)m.position, -1, (DWORD)(text.size() * sizeof(WCHAR))};
        Bytes rec((const BYTE *)&r, (const BYTE *)&r + sizeof r);
        rec.insert(rec.end(), (const BYTE *)text.data(), (const BYTE *)(text.data() + text.size()));
        store->add(ZVMETA_MARKERS, rec.data(), (DWORD)rec.size());
    }
    return S_OK;
}

HRESULT AppendIffChunk(HANDLE file, DWORD id, const void *data, DWORD size)
{
    FileIO io{file};
    BYTE word[4];
    if (!io.seek(4, FILE_BEGIN) || !io.read(word, 4))
        return ZVERR_FILE_READ;
    ULONGLONG stored = zvmedia::LoadBE32(word), added = 8 + (ULONGLONG)size + (size & 1);
    if (stored + added > 0xFFFFFFFEull)
        return ZVERR_SIZE_LIMIT;
    if (stored + 8 > io.length())
        return ZVERR_MALFORMED;
    BYTE head[9] = {};
    zvmedia::StoreBE32(head, id);
    zvmedia::StoreBE32(head + 4, size);
    DWORD put = 0;
    if (!io.seek((LONGLONG)stored + 8, FILE_BEGIN) || !WriteFile(file, head, 8, &put, nullptr) || put != 8 ||
        (size && (!WriteFile(file, data, size, &put, nullptr) || put != size)) ||
        ((size & 1) && (!WriteFile(file, head + 8, 1, &put, nullptr) || put != 1)))
        return ZVERR_FILE_WRITE;
    // The chunk is whole on disk before the FORM size counts it.
    zvmedia::StoreBE32(word, (DWORD)(stored + added));
    if (!io.seek(4, FILE_BEGIN) || !WriteFile(file, word, 4, &put, nullptr) || put != 4)
        return ZVERR_FILE_WRITE;
    return S_OK;
}

// Removes every top-level chunk of these ids without moving the audio, as
// the RIFF layer does: one in front of SSND becomes JUNK in place, one
// behind it is cut out, the rest of the file moving down over it, and the
// FORM size shrinks.
HRESULT RemoveIffChunks(HANDLE file, const std::vector<DWORD> &ids)
{
    FileIO io{file};
    for (;;) {
        std::vector<FormChunk> chunks;
        ULONGLONG end = 0, audio = 0;
        HRESULT hr = IndexForm(file, &chunks, &end);
        if (FAILED(hr))
            return hr;
        const FormChunk *hit = nullptr;
        for (const FormChunk &c : chunks) {
            if (c.id == ZVIFF_SSND && !audio)
                audio = c.data;
            for (DWORD id : ids)
                if (!hit && c.id == id)
                    hit = &c;
        }
        if (!hit)
            return S_OK;
        ULONGLONG start = hit->data - 8, span = 8 + (ULONGLONG)hit->size + (hit->size & 1);
        BYTE buf[16384], word[4];
        DWORD put = 0;
        if (start < audio) {
            zvmedia::StoreBE32(word, kJunk);
            if (!io.seek((LONGLONG)start, FILE_BEGIN) || !WriteFile(file, word, 4, &put, nullptr) || put != 4)
                return ZVERR_FILE_WRITE;
            continue;
        }
        if (FAILED(hr = zvmedia::MoveTailDown(file, start, start + span, buf, sizeof buf)))
            return hr;
        io.truncateHere();
        if (!io.seek(4, FILE_BEGIN) || !io.read(word, 4))
            return ZVERR_FILE_READ;
        DWORD stored = zvmedia::LoadBE32(word);
        zvmedia::StoreBE32(word, stored > span + 4 ? (DWORD)(stored - span) : 4);
        if (!io.seek(4, FILE_BEGIN) || !WriteFile(file, word, 4, &put, nullptr) || put != 4)
            return ZVERR_FILE_WRITE;
    }
}

// Markers of the store as MARK entries: their own names as ids where those
// fit and are free, else the next free id. AIFF has no regions: a region
// keeps its start.
std::vector<AiffMarker> MarksOf(const std::vector<Bytes> &records)
{
    std::vector<bool> used(0x8000, false);
    std::vector<WORD> ids(records.size(), 0);
    used[0] = true;
    for (size_t i = 0; i < records.size(); i++) {
        DWORD name = records[i].size() >= 8 ? Le32(&records[i][4]) : 0;
        if (name < 0x8000 && !used[name])
            used[name] = true, ids[i] = (WORD)name;
    }
    std::vector<AiffMarker> marks;
    WORD next = 1;
    for (size_t i = 0; i < records.size(); i++) {
        ZVMETA_MARKER m;
        if (records[i].size() < sizeof m)
            continue;
        memcpy(&m, records[i].data(), sizeof m);
        if (m.position < 0 || m.position > 0xFFFFFFFFll)
            continue;
        while (!ids[i] && next < 0x8000 && used[next])
            next++;
        if (!ids[i] && next >= 0x8000)
            break;
        if (!ids[i])
            used[next] = true, ids[i] = next;
        size_t text = records[i].size() - sizeof m < m.textSize ? records[i].size() - sizeof m : m.textSize;
        marks.push_back(AiffMarker{ids[i], (DWORD)m.position, Ansi(records[i].data() + sizeof m, text)});
    }
    return marks;
}

} // namespace

HRESULT ReadAiffAll(HANDLE file, Store *store)
{
    std::vector<FormChunk> chunks;
    ULONGLONG end = 0;
    HRESULT hr = IndexForm(file, &chunks, &end);
    if (FAILED(hr))
        return hr;
    WAVEFORMATEX wfx;
    DWORD frames = 0, offset = 0;
    store->sampleRate = SUCCEEDED(iff_GetAIFFWfx(file, &wfx, &frames, &offset)) ? wfx.nSamplesPerSec : 0;
    HRESULT first = S_OK;
    auto note = [&first](HRESULT r) {
        if (FAILED(r) && SUCCEEDED(first))
            first = r;
    };
    std::vector<WORD> loops = LoopIds(file, chunks);
    Bytes b;
    for (const FormChunk &c : chunks) {
        if (c.id == ZVIFF_MARK) {
            Store one;
            HRESULT r = ReadMarkers(file, c, loops, &one);
            note(r);
            for (size_t i = 0; SUCCEEDED(r) && one.of(ZVMETA_MARKERS) && i < one.of(ZVMETA_MARKERS)->size(); i++)
                store->add(ZVMETA_MARKERS, (*one.of(ZVMETA_MARKERS))[i].data(), (DWORD)(*one.of(ZVMETA_MARKERS))[i].size());
            continue;
        }
        if (c.id == kInst) {
            HRESULT r = store->of(ZVMETA_SAMPLER) ? S_OK : ReadAiffSampler(file, store->sampleRate, &b);
            if (SUCCEEDED(r) && !store->of(ZVMETA_SAMPLER))
                store->add(ZVMETA_SAMPLER, b.data(), (DWORD)b.size());
            note(r);
            continue;
        }
        const TextId *text = nullptr;
        for (const TextId &t : kTexts)
            if (t.iff == c.id)
                text = &t;
        if (!text && IsOwnedId(c.id))
            continue;
        HRESULT r = Body(file, c, &b);
        if (r == ZVERR_SIZE_LIMIT && !text)
            continue; // a large raw chunk stays where it is
        note(r);
        if (FAILED(r))
            continue;
        if (text) {
            std::vector<WCHAR> w = Wide((const char *)b.data(), b.size());
            Bytes rec((const BYTE *)&text->info, (const BYTE *)&text->info + 4);
            rec.insert(rec.end(), (const BYTE *)w.data(), (const BYTE *)(w.data() + w.size()));
            store->add(ZVMETA_SUMMARY, rec.data(), (DWORD)rec.size());
        } else {
            // Raw items carry the id in the RIFF byte order.
            DWORD head[2] = {Swap(c.id), c.size};
            Bytes rec((const BYTE *)head, (const BYTE *)head + 8);
            rec.insert(rec.end(), b.begin(), b.end());
            store->add(ZVMETA_RAW, rec.data(), (DWORD)rec.size());
        }
    }
    return first;
}

HRESULT WriteAiffMeta(HANDLE file, const Store &store, DWORD mask)
{
    std::vector<FormChunk> chunks;
    ULONGLONG end = 0;
    HRESULT hr = IndexForm(file, &chunks, &end);
    if (FAILED(hr))
        return hr;
    const std::vector<Bytes> *markers = (mask & ZVMETA_MARKERS) ? store.of(ZVMETA_MARKERS) : nullptr;
    const std::vector<Bytes> *sampler =
        (mask & (ZVMETA_SAMPLER | ZVMETA_SAMPLER_AIFF)) ? store.of(ZVMETA_SAMPLER) : nullptr;
    // Markers and sampler loops share one MARK: what the file has of the
    // kind not written goes back with the other.
    Store old;
    bool shared = false;
    for (const FormChunk &c : chunks)
        shared = shared || c.id == ZVIFF_MARK || c.id == kInst;
    if ((markers || sampler) && shared) {
        ReadAiffAll(file, &old);
        if (FAILED(hr = RemoveIffChunks(file, {ZVIFF_MARK, kInst})))
            return hr;
        if (!markers)
            markers = old.of(ZVMETA_MARKERS);
        if (!sampler)
            sampler = old.of(ZVMETA_SAMPLER);
    }
    std::vector<AiffMarker> marks = markers ? MarksOf(*markers) : std::vector<AiffMarker>();
    Bytes inst;
    if (sampler && !sampler->empty() && FAILED(hr = AiffSamplerChunks(sampler->front(), &marks, &inst)))
        return hr;
    if (!marks.empty()) {
        Bytes b = AiffMarkBody(marks);
        if (FAILED(hr = AppendIffChunk(file, ZVIFF_MARK, b.data(), (DWORD)b.size())))
            return hr;
    }
    if (!inst.empty() && FAILED(hr = AppendIffChunk(file, kInst, inst.data(), (DWORD)inst.size())))
        return hr;
    // Summary fields without an AIFF chunk of their own are left out.
    const std::vector<Bytes> *summary = (mask & ZVMETA_SUMMARY) ? store.of(ZVMETA_SUMMARY) : nullptr;
    for (size_t i = 0; summary && i < summary->size(); i++) {
        const Bytes &r = (*summary)[i];
        if (r.size() < 4)
            return ZVERR_MALFORMED;
        for (const TextId &t : kTexts) {
            if (t.info != Le32(r.data()))
                continue;
            std::string a = Ansi(r.data() + 4, r.size() - 4);
            if (FAILED(hr = AppendIffChunk(file, t.iff, a.data(), (DWORD)a.size())))
                return hr;
        }
    }
    const std::vector<Bytes> *raw = (mask & ZVMETA_RAW) ? store.of(ZVMETA_RAW) : nullptr;
    for (size_t i = 0; raw && i < raw->size(); i++) {
        const Bytes &r = (*raw)[i];
        if (r.size() < 8 || Le32(&r[4]) != r.size() - 8)
            return ZVERR_MALFORMED;
        DWORD id = Swap(Le32(r.data()));
        if (IsOwnedId(id))
            continue;
        if (FAILED(hr = AppendIffChunk(file, id, r.data() + 8, (DWORD)r.size() - 8)))
            return hr;
    }
    return S_OK;
}

HRESULT DeleteAiffKinds(HANDLE file, DWORD mask)
{
    std::vector<DWORD> ids;
    if (mask & ZVMETA_SUMMARY)
        for (const TextId &t : kTexts)
            ids.push_back(t.iff);
    const DWORD shared = ZVMETA_MARKERS | ZVMETA_SAMPLER | ZVMETA_SAMPLER_AIFF;
    Store keep;
    if (mask & shared) {
        ReadAiffAll(file, &keep);
        ids.push_back(ZVIFF_MARK);
        ids.push_back(kInst);
    }
    HRESULT hr = RemoveIffChunks(file, ids);
    // The one of markers and sampler that was not asked for goes back.
    DWORD back = (mask & shared) ? keep.mask() & shared & ~mask : 0;
    if (mask & (ZVMETA_SAMPLER | ZVMETA_SAMPLER_AIFF))
        back &= ~ZVMETA_SAMPLER;
    return SUCCEEDED(hr) && back ? WriteAiffMeta(file, keep, back) : hr;
}

HRESULT DeleteAiffRawIds(HANDLE file, const std::vector<DWORD> &riffOrderIds)
{
    std::vector<DWORD> ids;
    for (DWORD id : riffOrderIds)
        if (!IsOwnedId(Swap(id)))
            ids.push_back(Swap(id));
    return ids.empty() ? S_OK : RemoveIffChunks(file, ids);
}

bool IsFormFile(HANDLE file)
{
    FileIO io{file};
    BYTE head[4];
    return io.seek(0, FILE_BEGIN) && io.read(head, 4) && zvmedia::LoadBE32(head) == ZVIFF_FORM;
}

} // namespace zvmeta

HRESULT ZvFMMeta_CreateSourceFromAiff(HANDLE file, IZvReadMeta **meta)
{
    if (!meta)
        return E_POINTER;
    *meta = nullptr;
    zvmeta::Store store;
    return zvmeta::SourceAfterRead(zvmeta::ReadAiffAll(file, &store), &store, meta);
}

HRESULT ZvFMMeta_WriteMetaToAiff(HANDLE file, IZvReadMeta *meta, DWORD mask)
{
    if (!meta)
        return E_POINTER;
    zvmeta::Store store;
    IZvReadGenericMeta *generic = nullptr;
    HRESULT hr = meta->QueryInterface(IID_IZvReadGenericMeta, (void **)&generic);
    if (FAILED(hr))
        return hr;
    IStream *s = nullptr;
    generic->Reset();
    while (SUCCEEDED(hr) && generic->Next(&s) == S_OK && s) {
        ZVMETA_STREAMHEADER head;
        ULONG got = 0;
        LARGE_INTEGER zero = {};
        s->Seek(zero, STREAM_SEEK_SET, nullptr);
        DWORD bit = SUCCEEDED(s->Read(&head, sizeof head, &got)) && got == sizeof head && head.count > 0
                        ? ZvFMMeta_KindOfGuid(&head.kind)
                        : 0;
        // the sampler stream is the one of either sampler bit
        if ((bit & mask) || (bit == ZVMETA_SAMPLER && (mask & ZVMETA_SAMPLER_AIFF)))
            hr = zvmeta::AddGenericStream(s, bit, &store);
        s->Release();
        s = nullptr;
    }
    generic->Release();
    return SUCCEEDED(hr) ? zvmeta::WriteAiffMeta(file, store, mask) : hr;
}
