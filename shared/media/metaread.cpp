// Metadata stream: reading each kind's chunks into item records.
#include "media/metainternal.h"
#include "media/zvsummary.h"
#include <string.h>

namespace zvmeta {

namespace {

const DWORD kAdtl = ZVRIFF_ID('a', 'd', 't', 'l');
const DWORD kZv01 = ZVRIFF_ID('z', 'v', '0', '1');
const DWORD kLabl = ZVRIFF_ID('l', 'a', 'b', 'l');
const DWORD kLtxt = ZVRIFF_ID('l', 't', 'x', 't');
// Raw chunks are copied whole; a larger one is left where it is.
const ULONGLONG kRawLimit = 16u << 20;

// A wide text from ANSI bytes (up to the first zero), with its terminator.
std::vector<WCHAR> FromAnsi(const BYTE *p, size_t n)
{
    size_t len = 0;
    while (len < n && p[len])
        len++;
    std::vector<WCHAR> w(1, 0);
    if (len) {
        int k = MultiByteToWideChar(CP_ACP, 0, (const char *)p, (int)len, nullptr, 0);
        if (k > 0) {
            w.resize((size_t)k + 1, 0);
            MultiByteToWideChar(CP_ACP, 0, (const char *)p, (int)len, w.data(), k);
        }
    }
    return w;
}

void AddMarker(Store *store, DWORD name, LONGLONG pos, LONGLONG len, const WCHAR *text, size_t chars)
{
    ZVMETA_MARKER m = {28, name, pos, len, (DWORD)((chars + 1) * sizeof(WCHAR))};
    Bytes rec(sizeof m + m.textSize, 0);
    memcpy(rec.data(), &m, sizeof m);
    if (chars)
        memcpy(rec.data() + sizeof m, text, chars * sizeof(WCHAR));
    store->add(ZVMETA_MARKERS, rec.data(), (DWORD)rec.size());
}

// zv01 (and the Wave64 marker chunk): u32 count, then 32-byte entries each
// followed by its wide text. S_FALSE when the count is 0.
HRESULT ReadZv01(const Bytes &b, Store *store)
{
    if (b.size() < 4)
        return ZVERR_FILE_READ;
    DWORD count = Le32(b.data());
    if (!count)
        return S_FALSE;
    size_t at = 4;
    for (DWORD i = 0; i < count; i++) {
        if (b.size() - at < 32)
            return ZVERR_FILE_READ;
        const BYTE *e = b.data() + at;
        LONGLONG pos, len;
        memcpy(&pos, e + 8, 8);
        memcpy(&len, e + 16, 8);
        DWORD textSize = Le32(e + 24);
        at += 32;
        if (b.size() - at < textSize)
            return ZVERR_FILE_READ;
        size_t chars = 0;
        while (chars < textSize / 2 && (e[32 + chars * 2] | e[33 + chars * 2]))
            chars++;
        std::vector<WCHAR> text(chars + 1, 0);
        memcpy(text.data(), e + 32, chars * 2);
        AddMarker(store, Le32(e), pos, len, text.data(), chars);
        at += textSize;
    }
    return S_OK;
}

HRESULT ReadCues(HANDLE file, const ChunkIndex &index, Store *store)
{
    Bytes b;
    const Chunk *z = index.find(kZv01);
    if (z) {
        HRESULT hr = ReadBody(file, *z, &b);
        if (FAILED(hr))
            return hr;
        hr = ReadZv01(b, store);
        if (hr != S_FALSE)
            return hr;
    }
    const Chunk *cue = index.find(ZVRIFF_ID('c', 'u', 'e', ' '));
    if (!cue)
        return ZVERR_NOT_FOUND;
    HRESULT hr = ReadBody(file, *cue, &b);
    if (FAILED(hr))
        return hr;
    Bytes adtl;
    const Chunk *list = index.find(ZVRIFF_LIST, kAdtl);
    if (list && FAILED(ReadBody(file, *list, &adtl)))
        adtl.clear();
    if (b.size() < 4)
        return ZVERR_FILE_READ;
    DWORD count = Le32(b.data());
    for (DWORD i = 0; i < count; i++) {
        if ((b.size() - 4) / 24 <= i)
            return ZVERR_FILE_READ;
        const BYTE *p = b.data() + 4 + (size_t)i * 24;
        DWORD name = Le32(p);
        LONGLONG length = -1;
        std::vector<WCHAR> text(1, 0);
        // First labl and ltxt of this name in the adtl list.
        bool haveLabel = false, haveRange = false;
        for (size_t at = 4; at + 8 <= adtl.size();) {
            DWORD id = Le32(&adtl[at]), size = Le32(&adtl[at + 4]);
            size_t body = at + 8, n = size < adtl.size() - body ? size : adtl.size() - body;
            if (n >= 4 && Le32(&adtl[body]) == name) {
                if (id == kLabl && !haveLabel) {
                    text = FromAnsi(&adtl[body + 4], n - 4 < 1023 ? n - 4 : 1023);
                    haveLabel = true;
                } else if (id == kLtxt && !haveRange && n >= 8) {
                    length = Le32(&adtl[body + 4]);
                    haveRange = true;
                }
            }
            if (size > adtl.size() - body)
                break;
            at = body + size + (size & 1);
        }
        AddMarker(store, name, Le32(p + 20), length, text.data(), text.size() - 1);
    }
    return S_OK;
}

// INFO entries: id, size, ANSI text (wide with wide set); from the given
// offset of the body: count of them, or with a count of 0 all there are.
HRESULT ReadInfoEntries(const Bytes &b, size_t at, Store *store, bool wide = false, DWORD count = 0)
{
    DWORD n = 0;
    for (; (!count || n < count) && at + 8 <= b.size(); n++) {
        DWORD id = Le32(&b[at]), size = Le32(&b[at + 4]);
        size_t body = at + 8;
        if (size > b.size() - body)
            return ZVERR_FILE_READ;
        std::vector<WCHAR> w;
        if (wide) {
            for (size_t i = 0; i + 1 < size && (b[body + i] | b[body + i + 1]); i += 2)
                w.push_back((WCHAR)(b[body + i] | (b[body + i + 1] << 8)));
            w.push_back(0);
        } else {
            w = FromAnsi(&b[body], size);
        }
        Bytes rec(4 + w.size() * 2);
        memcpy(rec.data(), &id, 4);
        memcpy(rec.data() + 4, w.data(), w.size() * 2);
        store->add(ZVMETA_SUMMARY, rec.data(), (DWORD)rec.size());
        at = body + size + (size & 1);
    }
    return count && n < count ? ZVERR_FILE_READ : S_OK;
}

// The Wave64 summary: a count and wide entries; one written as a RIFF list
// body (INFO, or UNFO with wide text) is read as well.
HRESULT ReadW64Summary(const Bytes &b, Store *store)
{
    if (b.size() < 4)
        return ZVERR_FILE_READ;
    DWORD head = Le32(b.data());
    if (head == ZVRIFF_INFO || head == ZVRIFF_ID('U', 'N', 'F', 'O'))
        return ReadInfoEntries(b, 4, store, head != ZVRIFF_INFO);
    if (head > (b.size() - 4) / 8)
        return ZVERR_FILE_READ;
    return head ? ReadInfoEntries(b, 4, store, true, head) : S_OK;
}

void AddChunkItem(Store *store, DWORD bit, DWORD id, const Bytes &body)
{
    Bytes rec(8 + body.size());
    DWORD size = (DWORD)body.size();
    memcpy(rec.data(), &id, 4);
    memcpy(rec.data() + 4, &size, 4);
    if (size)
        memcpy(rec.data() + 8, body.data(), size);
    store->add(bit, rec.data(), (DWORD)rec.size());
}

HRESULT ReadSampler(const Bytes &b, Store *store)
{
    if (b.size() < 36)
        return ZVERR_FILE_READ;
    DWORD loops = Le32(&b[28]), extra = Le32(&b[32]);
    if (loops > (b.size() - 36) / 24)
        return ZVERR_FILE_READ;
    size_t after = 36 + (size_t)loops * 24;
    if (extra > b.size() - after)
        extra = (DWORD)(b.size() - after);
    Bytes rec(36 + (size_t)loops * 32 + extra, 0);
    memcpy(rec.data(), b.data(), 36);
    for (DWORD i = 0; i < loops; i++) {
        const BYTE *l = &b[36 + (size_t)i * 24];
        BYTE *o = &rec[36 + (size_t)i * 32];
        ULONGLONG start = Le32(l + 8), end = Le32(l + 12);
        ULONGLONG length = end >= start ? end - start + 1 : 0;
        memcpy(o, l, 8);
        memcpy(o + 8, &start, 8);
        memcpy(o + 16, &length, 8);
        memcpy(o + 24, l + 16, 8);
    }
    if (extra)
        memcpy(&rec[36 + (size_t)loops * 32], &b[after], extra);
    store->add(ZVMETA_SAMPLER, rec.data(), (DWORD)rec.size());
    return S_OK;
}

bool SameEntry(const BYTE *a, const BYTE *b, int dedupe)
{
    static const int playlist[] = {0, 2, 3, 4};
    if (dedupe == 1) {
        for (int f : playlist)
            if (memcmp(a + f * 4, b + f * 4, 4) != 0)
                return false;
        return true;
    }
    return memcmp(a, b, 8) == 0;
}

HRESULT ReadCounted(const Bytes &b, const Kind &k, Store *store)
{
    if (b.size() < 4)
        return ZVERR_FILE_READ;
    DWORD count = Le32(b.data());
    if (count > (b.size() - 4) / k.entrySize)
        return ZVERR_FILE_READ;
    for (DWORD i = 0; i < count; i++) {
        const BYTE *e = &b[4 + (size_t)i * k.entrySize];
        bool repeat = false;
        for (DWORD j = 0; k.dedupe && j < i && !repeat; j++)
            repeat = SameEntry(&b[4 + (size_t)j * k.entrySize], e, k.dedupe);
        if (!repeat)
            store->add(k.bit, e, k.entrySize);
    }
    return S_OK;
}

HRESULT ReadKeyframes(const Bytes &b, Store *store)
{
    for (size_t at = 0; at + 8 <= b.size();) {
        DWORD fixed = Le32(&b[at]), extra = Le32(&b[at + 4]);
        at += 8;
        if (fixed > b.size() - at || extra > b.size() - at - fixed)
            return ZVERR_FILE_READ;
        BYTE rec[32] = {24, 0, 0, 0};
        memcpy(rec + 8, &b[at], fixed < 24 ? fixed : 24);
        store->add(ZVMETA_KEYFRAMES, rec, sizeof rec);
        at += (size_t)fixed + extra;
    }
    return S_OK;
}

// zv04 entries: track u32, flags u32, start u64, length u64, pause u32, a
// text of 13 wide characters and its terminator, the byte sizes of two
// strings, then the strings. An item keeps the three low flag bits and the
// text without its terminator: a 62-byte record, then the strings.
HRESULT ReadCdTracks(const Bytes &b, Store *store)
{
    if (b.size() < 4)
        return ZVERR_FILE_READ;
    LONG count = (LONG)Le32(b.data());
    if (count < 0)
        return ZVERR_MALFORMED;
    size_t at = 4;
    for (LONG i = 0; i < count; i++) {
        if (b.size() - at < 64)
            return ZVERR_FILE_READ;
        const BYTE *e = &b[at];
        DWORD first = Le32(e + 56), second = Le32(e + 60);
        if (first > b.size() - at - 64 || second > b.size() - at - 64 - first)
            return ZVERR_FILE_READ;
        Bytes rec(62 + (size_t)first + second);
        memcpy(rec.data(), e, 28);
        rec[4] &= 7, rec[5] = rec[6] = rec[7] = 0;
        memcpy(&rec[28], e + 28, 26);
        memcpy(&rec[54], e + 56, 8 + (size_t)first + second);
        store->add(ZVMETA_CDTRACKS, rec.data(), (DWORD)rec.size());
        at += 64 + (size_t)first + second;
    }
    return S_OK;
}

bool IsKnownRiffId(DWORD id)
{
    static const DWORD fixed[] = {ZVRIFF_FMT, ZVRIFF_DATA, ZVRIFF_LIST, ZVRIFF_JUNK, ZVRIFF_ID('f', 'a', 'c', 't'),
                                  ZVRIFF_ID('j', 'u', 'n', 'k'), ZVRIFF_ID('P', 'A', 'D', ' '), kZv01,
                                  ZVRIFF_ID('B', 'E', 'X', 'T'), ZVRIFF_ID('i', 'X', 'M', 'L'),
                                  ZVRIFF_ID('Z', 'V', 'P', 'I')};
    for (DWORD f : fixed)
        if (f == id)
            return true;
    for (int i = 0; const Kind *k = KindAt(i); i++)
        if (k->riffId == id || k->altId == id)
            return true;
    return IsLinkChunkId(id);
}

// LIST pic: every entry a whole picture block.
HRESULT ReadPictures(HANDLE file, const ChunkIndex &index, Store *store)
{
    const Chunk *c = index.find(ZVRIFF_LIST, ZVRIFF_ID('p', 'i', 'c', ' '));
    if (!c)
        return ZVERR_NOT_FOUND;
    Bytes b;
    HRESULT hr = ReadBody(file, *c, &b);
    if (FAILED(hr))
        return hr;
    for (size_t at = 4; at + 8 <= b.size();) {
        DWORD size = Le32(&b[at + 4]);
        if (size > b.size() - at - 8 || !ZvPicture_IsValid(&b[at + 8], size))
            return ZVERR_MALFORMED;
        store->add(ZVMETA_PICTURES, &b[at + 8], size);
        at += 8 + (size_t)size + (size & 1);
    }
    return S_OK;
}

} // namespace

HRESULT ReadKind(HANDLE file, const ChunkIndex &index, const Kind &kind, DWORD rate, Store *store)
{
    (void)rate; // items keep sample positions; the direct stream converts
    Bytes b;
    const bool w64 = index.wave64;
    const Chunk *c = nullptr;
    if (kind.form == FORM_NONE || (w64 && (kind.form == FORM_RAW || kind.form == FORM_PICTURES)))
        return ZVERR_NOT_FOUND;
    if (kind.form == FORM_PICTURES)
        return ReadPictures(file, index, store);
    if (kind.form == FORM_MARKERS && !w64)
        return ReadCues(file, index, store);
    if (kind.form == FORM_BWF) {
        const Chunk *bext = w64 ? index.find(BextLabel()) : index.find(kind.riffId);
        if (!bext && !w64)
            bext = index.find(ZVRIFF_ID('B', 'E', 'X', 'T'));
        const Chunk *ixml = w64 ? index.find(IxmlLabel()) : index.find(ZVRIFF_ID('i', 'X', 'M', 'L'));
        if (!bext && !ixml)
            return ZVERR_NOT_FOUND;
        const Chunk *both[2] = {bext, ixml};
        for (int i = 0; i < 2; i++) {
            if (!both[i])
                continue;
            HRESULT hr = ReadBody(file, *both[i], &b);
            if (FAILED(hr))
                return hr;
            AddChunkItem(store, kind.bit, i ? ZVRIFF_ID('i', 'X', 'M', 'L') : kind.riffId, b);
        }
        return S_OK;
    }
    if (kind.form == FORM_DISPLIST || kind.form == FORM_RAW) {
        HRESULT hr = ZVERR_NOT_FOUND;
        for (const Chunk &k : index.chunks) {
            bool take = kind.form == FORM_RAW ? !IsKnownRiffId(k.id) : w64 ? IsEqualGUID(k.label, kind.guid)
                                                                           : k.id == kind.riffId;
            if (!take)
                continue;
            HRESULT r = ReadBody(file, k, &b, kind.form == FORM_RAW ? kRawLimit : 64u << 20);
            if (r == ZVERR_SIZE_LIMIT && kind.form == FORM_RAW)
                continue;
            if (FAILED(r))
                return r;
            if (kind.form == FORM_RAW)
                AddChunkItem(store, kind.bit, k.id, b);
            else if (b.size() >= 4)
                store->add(kind.bit, b.data(), (DWORD)b.size());
            hr = S_OK;
        }
        return hr;
    }
    if (w64)
        c = index.find(kind.guid);
    else {
        c = kind.altId ? index.find(kind.altId) : nullptr;
        if (!c)
            c = kind.form == FORM_SUMMARY ? index.find(ZVRIFF_LIST, ZVRIFF_INFO) : index.find(kind.riffId);
    }
    if (!c)
        return ZVERR_NOT_FOUND;
    HRESULT hr = ReadBody(file, *c, &b);
    if (FAILED(hr))
        return hr;
    switch (kind.form) {
    case FORM_MARKERS:
        hr = ReadZv01(b, store);
        return hr == S_FALSE ? S_OK : hr;
    case FORM_SUMMARY:
        return w64 ? ReadW64Summary(b, store) : ReadInfoEntries(b, 4, store);
    case FORM_SAMPLER:
        return ReadSampler(b, store);
    case FORM_COUNTED:
        return ReadCounted(b, kind, store);
    case FORM_KEYFRAMES:
        return ReadKeyframes(b, store);
    case FORM_CDTRACKS:
        return ReadCdTracks(b, store);
    default:
        if (kind.entrySize && b.size() > kind.entrySize)
            b.resize(kind.entrySize);
        store->add(kind.bit, b.data(), (DWORD)b.size());
        return S_OK;
    }
}

HRESULT ReadAll(HANDLE file, bool wave64, Store *store)
{
    ChunkIndex index;
    HRESULT hr = IndexFile(file, wave64, &index);
    if (FAILED(hr))
        return hr;
    store->sampleRate = RateOf(file, index);
    HRESULT first = S_OK;
    for (int i = 0; const Kind *k = KindAt(i); i++) {
        Store one;
        HRESULT r = ReadKind(file, index, *k, store->sampleRate, &one);
        if (r == ZVERR_NOT_FOUND)
            continue;
        // A damaged kind is left out whole rather than offered half-read.
        if (FAILED(r)) {
            if (SUCCEEDED(first))
                first = r;
            continue;
        }
        for (const Store::Entry &e : one.kinds)
            for (const Bytes &rec : e.records)
                store->add(e.bit, rec.data(), (DWORD)rec.size());
    }
    return first;
}

} // namespace zvmeta
