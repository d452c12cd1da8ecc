// Metadata stream: writing the kinds of a source into one RIFF or Wave64
// file. Every chunk is appended whole before the stored size counts it.
#include "media/metainternal.h"
#include "zvplugin.h"
#include <string.h>

namespace zvmeta {

namespace {

const DWORD kRecordLimit = 64u << 20;

struct Marker {
    DWORD name;
    LONGLONG pos, len;
    std::vector<WCHAR> text; // without terminator
};

void Put(Bytes *b, const void *p, size_t n)
{
    const BYTE *s = (const BYTE *)p;
    b->insert(b->end(), s, s + n);
}
void Put32(Bytes *b, DWORD v) { Put(b, &v, 4); }
void Pad(Bytes *b)
{
    if (b->size() & 1)
        b->push_back(0);
}

bool Read(IStream *s, void *buf, DWORD n)
{
    ULONG got = 0;
    return SUCCEEDED(s->Read(buf, n, &got)) && got == n;
}

// Reads a generic stream: header, then framed records. ZVERR_MALFORMED for a
// frame that fails its tests.
HRESULT ReadGeneric(IStream *s, ZVMETA_STREAMHEADER *head, std::vector<Bytes> *records)
{
    LARGE_INTEGER zero = {};
    s->Seek(zero, STREAM_SEEK_SET, nullptr);
    if (!Read(s, head, sizeof *head))
        return ZVERR_FILE_READ;
    if (head->headerSize != 28 || head->version != ZVMETA_VERSION)
        return ZVERR_MALFORMED;
    if (!records)
        return S_OK;
    for (LONG i = 0; i < head->count; i++) {
        ZVMETA_ITEMFRAME f;
        ULONG got = 0;
        if (FAILED(s->Read(&f, sizeof f, &got)) || got != f.frameSize || f.frameSize != 28 ||
            f.version != ZVMETA_VERSION || !IsEqualGUID(f.kind, head->kind) || f.recordSize > kRecordLimit)
            return ZVERR_MALFORMED;
        Bytes r(f.recordSize);
        if (f.recordSize && !Read(s, r.data(), f.recordSize))
            return ZVERR_FILE_READ;
        records->push_back(std::move(r));
    }
    return S_OK;
}

HRESULT ParseMarkers(const std::vector<Bytes> &records, std::vector<Marker> *out)
{
    for (const Bytes &r : records) {
        ZVMETA_MARKER m;
        if (r.size() < sizeof m)
            return ZVERR_MALFORMED;
        memcpy(&m, r.data(), sizeof m);
        Marker k = {m.name, m.position, m.length, {}};
        size_t chars = (r.size() - sizeof m) / 2;
        if (m.textSize / 2 < chars)
            chars = m.textSize / 2;
        const BYTE *t = r.data() + sizeof m;
        for (size_t i = 0; i < chars && (t[2 * i] | t[2 * i + 1]); i++)
            k.text.push_back((WCHAR)(t[2 * i] | (t[2 * i + 1] << 8)));
        out->push_back(std::move(k));
    }
    return S_OK;
}

Bytes Ansi(const std::vector<WCHAR> &w)
{
    Bytes a;
    if (!w.empty()) {
        int n = WideCharToMultiByte(CP_ACP, 0, w.data(), (int)w.size(), nullptr, 0, nullptr, nullptr);
        if (n > 0) {
            a.resize((size_t)n);
            WideCharToMultiByte(CP_ACP, 0, w.data(), (int)w.size(), (char *)a.data(), n, nullptr, nullptr);
        }
    }
    a.push_back(0);
    return a;
}

Bytes Zv01Body(const std::vector<Marker> &ms)
{
    Bytes b;
    Put32(&b, (DWORD)ms.size());
    for (const Marker &m : ms) {
        DWORD textSize = m.text.empty() ? 2 : (DWORD)(m.text.size() + 1) * 2;
        Put32(&b, m.name);
        Put32(&b, 0);
        Put(&b, &m.pos, 8);
        Put(&b, &m.len, 8);
        Put32(&b, textSize);
        Put32(&b, 0);
        Put(&b, m.text.data(), m.text.size() * 2);
        Put(&b, L"", 2);
    }
    return b;
}

HRESULT WriteMarkers(HANDLE file, bool w64, const std::vector<Marker> &ms)
{
    if (ms.empty())
        return S_OK;
    if (w64) {
        Bytes b = Zv01Body(ms);
        return AppendW64Chunk(file, KindOfBit(ZVMETA_MARKERS)->guid, b.data(), (DWORD)b.size());
    }
    Bytes cue, adtl;
    bool big = false, labels = false;
    Put32(&cue, 0);
    DWORD n = 0;
    Put32(&adtl, ZVRIFF_ID('a', 'd', 't', 'l'));
    for (const Marker &m : ms) {
        if (m.pos < 0 || m.pos > 0xFFFFFFFFll || m.len > 0xFFFFFFFFll) {
            big = true;
            continue;
        }
        DWORD point[6] = {m.name, (DWORD)m.pos, ZVRIFF_DATA, 0, 0, (DWORD)m.pos};
        Put(&cue, point, sizeof point);
        n++;
        if (m.len >= 0) {
            DWORD ltxt[7] = {ZVRIFF_ID('l', 't', 'x', 't'), 20, m.name, (DWORD)m.len, ZVRIFF_ID('r', 'g', 'n', ' '), 0, 0};
            Put(&adtl, ltxt, sizeof ltxt);
            labels = true;
        }
    }
    for (const Marker &m : ms) {
        if (m.text.empty() || m.pos < 0 || m.pos > 0xFFFFFFFFll || m.len > 0xFFFFFFFFll)
            continue;
        Bytes a = Ansi(m.text);
        Put32(&adtl, ZVRIFF_ID('l', 'a', 'b', 'l'));
        Put32(&adtl, (DWORD)a.size() + 4);
        Put32(&adtl, m.name);
        Put(&adtl, a.data(), a.size());
        Pad(&adtl);
        labels = true;
    }
    memcpy(cue.data(), &n, 4);
    HRESULT hr = n ? AppendRiffChunk(file, ZVRIFF_ID('c', 'u', 'e', ' '), cue.data(), (DWORD)cue.size()) : S_OK;
    if (SUCCEEDED(hr) && labels)
        hr = AppendRiffChunk(file, ZVRIFF_LIST, adtl.data(), (DWORD)adtl.size());
    if (SUCCEEDED(hr) && big) {
        Bytes b = Zv01Body(ms);
        hr = AppendRiffChunk(file, ZVRIFF_ID('z', 'v', '0', '1'), b.data(), (DWORD)b.size());
    }
    return hr;
}

// RIFF: a LIST INFO of ANSI texts. Wave64: a count, then id, byte size and
// wide text with its terminator for each field, the form other Wave64
// readers take for this label.
HRESULT WriteSummary(HANDLE file, bool w64, const std::vector<Bytes> &records)
{
    if (records.empty())
        return S_OK;
    Bytes b;
    Put32(&b, w64 ? (DWORD)records.size() : ZVRIFF_INFO);
    for (const Bytes &r : records) {
        if (r.size() < 4)
            return ZVERR_MALFORMED;
        std::vector<WCHAR> w;
        for (size_t i = 4; i + 1 < r.size() && (r[i] | r[i + 1]); i += 2)
            w.push_back((WCHAR)(r[i] | (r[i + 1] << 8)));
        Put(&b, r.data(), 4);
        if (w64) {
            w.push_back(0);
            Put32(&b, (DWORD)(w.size() * sizeof(WCHAR)));
            Put(&b, w.data(), w.size() * sizeof(WCHAR));
            continue;
        }
        Bytes a = Ansi(w);
        Put32(&b, (DWORD)a.size());
        Put(&b, a.data(), a.size());
        Pad(&b);
    }
    if (w64)
        return AppendW64Chunk(file, KindOfBit(ZVMETA_SUMMARY)->guid, b.data(), (DWORD)b.size());
    return AppendRiffChunk(file, ZVRIFF_LIST, b.data(), (DWORD)b.size());
}

// The old chunk goes first (bext also under its upper-case id), so that
// readers never see two.
HRESULT WriteBwf(HANDLE file, bool w64, const std::vector<Bytes> &records)
{
    for (const Bytes &r : records) {
        if (r.size() < 8 || Le32(&r[4]) != r.size() - 8)
            return ZVERR_MALFORMED;
        DWORD id = Le32(r.data());
        bool ixml = id == ZVRIFF_ID('i', 'X', 'M', 'L');
        const GUID &label = ixml ? IxmlLabel() : BextLabel();
        for (int pass = 0; pass < 2; pass++) {
            ChunkIndex index;
            HRESULT hr = IndexFile(file, w64, &index);
            if (FAILED(hr))
                return hr;
            const Chunk *old = w64 ? index.find(label)
                               : index.find(ixml ? id : pass ? ZVRIFF_ID('B', 'E', 'X', 'T') : ZVRIFF_ID('b', 'e', 'x', 't'));
            if (old && FAILED(hr = RemoveChunk(file, index, *old)))
                return hr;
        }
        DWORD size = (DWORD)r.size() - 8;
        HRESULT hr = w64 ? AppendW64Chunk(file, label, r.data() + 8, size)
                         : AppendRiffChunk(file, ixml ? id : ZVRIFF_ID('b', 'e', 'x', 't'), r.data() + 8, size);
        if (FAILED(hr))
            return hr;
    }
    return S_OK;
}

Bytes SamplerBody(const Bytes &r, bool *ok)
{
    Bytes b;
    *ok = r.size() >= 36;
    if (!*ok)
        return b;
    DWORD loops = Le32(&r[28]), extra = Le32(&r[32]);
    *ok = loops <= (r.size() - 36) / 32 && extra <= r.size() - 36 - (size_t)loops * 32;
    if (!*ok)
        return b;
    Put(&b, r.data(), 36);
    for (DWORD i = 0; i < loops; i++) {
        const BYTE *l = &r[36 + (size_t)i * 32];
        ULONGLONG start, length;
        memcpy(&start, l + 8, 8);
        memcpy(&length, l + 16, 8);
        ULONGLONG end = start + length - 1;
        // Left out without lowering the header's count.
        if (!length || end > 0xFFFFFFFFull)
            continue;
        Put(&b, l, 8);
        Put32(&b, (DWORD)start);
        Put32(&b, (DWORD)end);
        Put(&b, l + 24, 8);
    }
    Put(&b, &r[36 + (size_t)loops * 32], extra);
    return b;
}

// Ids a raw item may not carry: they hold the file's structure and audio.
bool IsStructural(DWORD id)
{
    return id == ZVRIFF_FMT || id == ZVRIFF_DATA || id == ZVRIFF_LIST || id == ZVRIFF_RIFF ||
           id == ZVRIFF_ID('f', 'a', 'c', 't') || id == ZVRIFF_ID('Z', 'V', 'P', 'I') || !id;
}

HRESULT Append(HANDLE file, bool w64, const Kind &k, const Bytes &b)
{
    return w64 ? AppendW64Chunk(file, k.guid, b.data(), (DWORD)b.size())
               : AppendRiffChunk(file, k.riffId, b.data(), (DWORD)b.size());
}

HRESULT WriteKind(HANDLE file, bool w64, const Kind &k, const std::vector<Bytes> &records)
{
    Bytes b;
    switch (k.form) {
    case FORM_MARKERS: {
        std::vector<Marker> ms;
        HRESULT hr = ParseMarkers(records, &ms);
        return FAILED(hr) ? hr : WriteMarkers(file, w64, ms);
    }
    case FORM_SUMMARY:
        return WriteSummary(file, w64, records);
    case FORM_BWF:
        return WriteBwf(file, w64, records);
    case FORM_SAMPLER:
        for (const Bytes &r : records) {
            bool ok;
            b = SamplerBody(r, &ok);
            HRESULT hr = ok ? Append(file, w64, k, b) : ZVERR_MALFORMED;
            if (FAILED(hr))
                return hr;
        }
        return S_OK;
    case FORM_COUNTED:
        Put32(&b, (DWORD)records.size());
        for (const Bytes &r : records) {
            Bytes e(r);
            e.resize(k.entrySize, 0);
            Put(&b, e.data(), e.size());
        }
        return Append(file, w64, k, b);
    case FORM_KEYFRAMES:
        for (const Bytes &r : records) {
            if (r.size() < 8 || Le32(r.data()) + (ULONGLONG)Le32(&r[4]) != r.size() - 8)
                return ZVERR_MALFORMED;
            Put(&b, r.data(), r.size());
        }
        return Append(file, w64, k, b);
    case FORM_CDTRACKS:
        // The reverse of the reader: the text gets its terminator back.
        Put32(&b, (DWORD)records.size());
        for (const Bytes &r : records) {
            if (r.size() < 62 || 62 + (ULONGLONG)Le32(&r[54]) + Le32(&r[58]) != r.size())
                return ZVERR_MALFORMED;
            Put(&b, r.data(), 4);
            Put32(&b, Le32(&r[4]) & 7);
            Put(&b, &r[8], 46);
            Put(&b, L"", 2);
            Put(&b, &r[54], r.size() - 54);
        }
        return Append(file, w64, k, b);
    case FORM_RAW:
        for (const Bytes &r : records) {
            if (r.size() < 8 || Le32(&r[4]) != r.size() - 8)
                return ZVERR_MALFORMED;
            if (w64 || IsStructural(Le32(r.data())))
                continue;
            HRESULT hr = AppendRiffChunk(file, Le32(r.data()), r.data() + 8, (DWORD)r.size() - 8);
            if (FAILED(hr))
                return hr;
        }
        return S_OK;
    case FORM_SINGLE:
    case FORM_DISPLIST:
        for (const Bytes &r : records) {
            if (k.form == FORM_DISPLIST && r.size() < 4)
                return ZVERR_MALFORMED;
            HRESULT hr = Append(file, w64, k, r);
            if (FAILED(hr))
                return hr;
        }
        return S_OK;
    default:
        return S_OK;
    }
}

// The direct streams: a 12-byte header whose third word is the count.
HRESULT DirectCount(IStream *s, LONG *count)
{
    DWORD head[3];
    LARGE_INTEGER zero = {};
    s->Seek(zero, STREAM_SEEK_SET, nullptr);
    if (!Read(s, head, sizeof head))
        return ZVERR_FILE_READ;
    *count = (LONG)head[2];
    return S_OK;
}

// Direct markers, 100 ns units, become sample positions; names count from 1.
HRESULT ReadDirectMarkers(IStream *s, DWORD rate, std::vector<Marker> *out)
{
    LONG count = 0;
    HRESULT hr = DirectCount(s, &count);
    for (LONG i = 0; SUCCEEDED(hr) && i < count; i++) {
        ZVMETA_DIRECTMARKER d;
        if (!Read(s, &d, sizeof d))
            return ZVERR_FILE_READ;
        if (!rate)
            return E_INVALIDARG;
        if (d.textSize > kRecordLimit)
            return ZVERR_MALFORMED;
        std::vector<WCHAR> t(d.textSize / 2 + 1, 0);
        if (d.textSize && !Read(s, t.data(), d.textSize))
            return ZVERR_FILE_READ;
        t.resize(wcslen(t.data()));
        LONGLONG start = (LONGLONG)(d.start * 1e-7 * rate + 0.5);
        LONGLONG end = (LONGLONG)((d.start + d.length) * 1e-7 * rate + 0.5);
        out->push_back(Marker{(DWORD)i + 1, start, d.isRegion ? end - start : -1, std::move(t)});
    }
    return hr;
}

HRESULT ReadDirectSummary(IStream *s, std::vector<Bytes> *out)
{
    LONG count = 0;
    HRESULT hr = DirectCount(s, &count);
    for (LONG i = 0; SUCCEEDED(hr) && i < count; i++) {
        DWORD pair[2];
        if (!Read(s, pair, sizeof pair))
            return ZVERR_FILE_READ;
        if (pair[1] > kRecordLimit)
            return ZVERR_MALFORMED;
        Bytes r(4 + pair[1] + 2, 0);
        memcpy(r.data(), pair, 4);
        if (pair[1] && !Read(s, r.data() + 4, pair[1]))
            return ZVERR_FILE_READ;
        out->push_back(std::move(r));
    }
    return hr;
}

} // namespace

DWORD EffectiveMask(IZvReadMeta *meta, DWORD mask)
{
    DWORD found = 0;
    if (!meta || !mask)
        return 0;
    IZvReadGenericMeta *generic = nullptr;
    if (SUCCEEDED(meta->QueryInterface(IID_IZvReadGenericMeta, (void **)&generic)) && generic) {
        IStream *s = nullptr;
        generic->Reset();
        while (generic->Next(&s) == S_OK && s) {
            ZVMETA_STREAMHEADER head;
            const Kind *k = SUCCEEDED(ReadGeneric(s, &head, nullptr)) && head.count >= 1 ? KindOfGuid(head.kind)
                                                                                         : nullptr;
            // the sampler stream counts as the AIFF sampler bit where the mask has it
            if (k && k->bit == ZVMETA_SAMPLER && (mask & ZVMETA_SAMPLER_AIFF))
                found |= ZVMETA_SAMPLER_AIFF;
            else if (k && (mask & k->bit))
                found |= k->bit;
            s->Release();
            s = nullptr;
        }
        generic->Release();
    }
    static const DWORD direct[] = {ZVMETA_MARKERS, ZVMETA_SUMMARY2, ZVMETA_SUMMARY};
    for (DWORD bit : direct) {
        if (!(mask & bit))
            continue;
        IStream *s = nullptr;
        HRESULT hr = bit == ZVMETA_MARKERS ? meta->GetMarkerStream(&s)
                     : bit == ZVMETA_SUMMARY ? meta->GetSummaryStream(&s)
                                             : meta->GetSecondSummaryStream(&s);
        LONG count = 0;
        if (SUCCEEDED(hr) && s && SUCCEEDED(DirectCount(s, &count)) && count > 0)
            found |= bit;
        if (s)
            s->Release();
    }
    return found;
}

HRESULT MetaTypesOf(IZvReadFile *file, DWORD *types)
{
    if (!types)
        return E_POINTER;
    *types = 0;
    IZvReadMeta *meta = nullptr;
    HRESULT hr = file->GetMeta(&meta);
    if (FAILED(hr))
        return hr == E_NOTIMPL ? S_OK : hr;
    // the sampler stream under its own bit, whatever the file's form
    *types = EffectiveMask(meta, 0xFFFFFFFF & ~ZVMETA_SAMPLER_AIFF);
    meta->Release();
    return S_OK;
}

} // namespace zvmeta

HRESULT zvmeta::AddGenericStream(IStream *stream, DWORD bit, Store *store)
{
    const Kind *k = KindOfBit(bit);
    if (!stream || !store)
        return E_POINTER;
    if (!k)
        return E_INVALIDARG;
    ZVMETA_STREAMHEADER head;
    std::vector<Bytes> records;
    HRESULT hr = ReadGeneric(stream, &head, &records);
    if (SUCCEEDED(hr) && !IsEqualGUID(head.kind, k->guid))
        hr = ZVERR_MALFORMED;
    for (size_t i = 0; SUCCEEDED(hr) && i < records.size(); i++)
        store->add(k->bit, records[i].data(), (DWORD)records[i].size());
    return hr;
}

HRESULT ZvFMMeta_WriteMetaToFile(HANDLE file, BOOL isWave64, DWORD rate, IZvReadMeta *meta, DWORD mask)
{
    using namespace zvmeta;
    if (!meta)
        return E_POINTER;
    bool w64 = isWave64 != FALSE;
    HRESULT hr = S_OK;
    // A chunk file holds the sampler stream as smpl under either bit.
    if (mask & ZVMETA_SAMPLER_AIFF)
        mask |= ZVMETA_SAMPLER;
    IZvReadGenericMeta *generic = nullptr;
    if (SUCCEEDED(meta->QueryInterface(IID_IZvReadGenericMeta, (void **)&generic)) && generic) {
        IStream *s = nullptr;
        generic->Reset();
        while (SUCCEEDED(hr) && generic->Next(&s) == S_OK && s) {
            ZVMETA_STREAMHEADER head;
            std::vector<Bytes> records;
            hr = ReadGeneric(s, &head, nullptr);
            const Kind *k = SUCCEEDED(hr) && head.count > 0 ? KindOfGuid(head.kind) : nullptr;
            if (k && (mask & k->bit)) {
                hr = ReadGeneric(s, &head, &records);
                if (SUCCEEDED(hr))
                    hr = WriteKind(file, w64, *k, records);
                if (SUCCEEDED(hr) && (k->bit & (ZVMETA_MARKERS | ZVMETA_SUMMARY | ZVMETA_BWF | ZVMETA_KEYFRAMES)))
                    mask &= ~k->bit;
            }
            s->Release();
            s = nullptr;
        }
        generic->Release();
    }
    if (SUCCEEDED(hr) && (mask & ZVMETA_MARKERS)) {
        IStream *s = nullptr;
        std::vector<Marker> ms;
        if (SUCCEEDED(meta->GetMarkerStream(&s)) && s) {
            hr = ReadDirectMarkers(s, rate, &ms);
            s->Release();
        }
        if (SUCCEEDED(hr))
            hr = WriteMarkers(file, w64, ms);
    }
    if (SUCCEEDED(hr) && (mask & ZVMETA_SUMMARY)) {
        IStream *s = nullptr;
        std::vector<Bytes> pairs;
        if (SUCCEEDED(meta->GetSummaryStream(&s)) && s) {
            hr = ReadDirectSummary(s, &pairs);
            s->Release();
        }
        if (SUCCEEDED(hr))
            hr = WriteSummary(file, w64, pairs);
    }
    return hr;
}
