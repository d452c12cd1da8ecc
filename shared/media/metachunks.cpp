// Metadata stream: the table of kinds and the chunk-level work under the
// readers and writers (index of a file's chunks, append, removal).
#include "media/metainternal.h"
#include "media/chunkio.h"
#include <string.h>

namespace zvmeta {

using zvmedia::FileIO;

namespace {

#define ID ZVRIFF_ID
// In the order in which the generic pass tests the GUIDs.
const Kind kKinds[] = {
    {0x4, {0xABF76256, 0x392D, 0x11D2, {0x86, 0xC7, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}}, ID('c', 'u', 'e', ' '), 0,
     FORM_MARKERS, 0, 0},
    {0x20000, {0x6EE8897A, 0x3617, 0x4B2D, {0x92, 0x13, 0x91, 0x79, 0xE8, 0x84, 0xB7, 0x34}}, ID('z', 'v', '0', '3'), 0,
     FORM_KEYFRAMES, 24, 0},
    {0x100000, {0x870914E2, 0x5832, 0x4639, {0x98, 0x8A, 0x37, 0x5E, 0x77, 0x8A, 0xC4, 0x4A}}, ID('z', 'v', '0', '4'),
     0, FORM_CDTRACKS, 0, 0},
    {0x1, {0x925F94BC, 0x525A, 0x11D2, {0x86, 0xDC, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}}, ZVRIFF_INFO, 0, FORM_SUMMARY,
     0, 0},
    {0x800000, {0x9B15B15B, 0x9BE5, 0x46AB, {0x88, 0x47, 0xDB, 0xD0, 0xF9, 0x33, 0x68, 0x80}}, ID('b', 'e', 'x', 't'),
     0, FORM_BWF, 0, 0},
    {0x10, {0xBD481736, 0x2F2C, 0x40E8, {0xA0, 0xAB, 0x3D, 0x52, 0x3E, 0xEB, 0x22, 0x6E}}, ID('s', 'c', 'o', 't'), 0,
     FORM_SINGLE, 424, 0},
    {0x20, {0xF686AA44, 0x6773, 0x4AAD, {0x93, 0xB5, 0x10, 0x07, 0xC1, 0x2A, 0x8C, 0xDB}}, ID('p', 'l', 's', 't'),
     ID('z', 'v', '0', '2'), FORM_COUNTED, 24, 1},
    {0x40, {0xBE46E415, 0x5EA4, 0x4264, {0x92, 0x83, 0x3B, 0x20, 0x92, 0xD5, 0x7F, 0x66}}, ID('t', 'l', 's', 't'), 0,
     FORM_COUNTED, 24, 2},
    {0x80, {0x612CCA25, 0x92BB, 0x4C55, {0x84, 0x08, 0x7B, 0xDA, 0x2F, 0x15, 0xBD, 0x27}}, ID('D', 'I', 'S', 'P'), 0,
     FORM_DISPLIST, 0, 0},
    {0x100, {0x07A22A98, 0xF29A, 0x4FA4, {0xB7, 0xB5, 0x57, 0xC9, 0xD3, 0x71, 0xDB, 0x38}}, ID('s', 'm', 'p', 'l'), 0,
     FORM_SAMPLER, 0, 0},
    {0x2000000, {0xD392C689, 0xCC06, 0x4CC7, {0xBF, 0x1B, 0x0E, 0xC5, 0xBE, 0x62, 0xF0, 0x93}}, ID('C', 'D', 'i', 'f'),
     0, FORM_SINGLE, 0, 0},
    {0x400, {0xD907621B, 0xCA0D, 0x40C3, {0xA8, 0x9D, 0x2A, 0x18, 0x2B, 0x5D, 0x20, 0xB7}}, 0, 0, FORM_RAW, 0, 0},
    {0x4000, {0x62574347, 0x69A7, 0x473A, {0xA8, 0x9E, 0xD5, 0xB0, 0xFA, 0x7C, 0x9F, 0x7E}}, ID('s', 't', 'r', '2'), 0,
     FORM_SINGLE, 20, 0},
    {0x8000, {0xB2A0A152, 0x055E, 0x4475, {0x86, 0xF1, 0x5D, 0x78, 0xAF, 0x15, 0xA0, 0x56}}, ID('b', 'm', 'r', 'k'), 0,
     FORM_COUNTED, 52, 0},
    {0x10000, {0x3AE34B75, 0xF55E, 0x44EC, {0xA2, 0xF0, 0xF4, 0xEB, 0x3C, 0x53, 0xAF, 0x7D}}, ID('d', 't', 'b', 't'),
     0, FORM_COUNTED, 12, 0},
    {0x200000, {0xCC7E18D8, 0xBF95, 0x4D30, {0xBC, 0x30, 0xDF, 0xB6, 0xC2, 0x8C, 0x1D, 0x08}}, ID('b', 'm', 'p', 'i'),
     0, FORM_SINGLE, 48, 0},
    {0x400000, {0x8A2EBAD0, 0xA180, 0x4C9E, {0x87, 0x78, 0x58, 0x7A, 0x7C, 0xBD, 0x9E, 0xF6}}, ID('b', 'm', 'p', 'm'),
     0, FORM_COUNTED, 56, 0},
    // Streams with no writer: a GUID and delete rows only.
    {0x2, {0xC42554A2, 0x0DE9, 0x41F5, {0xBF, 0xF2, 0xC3, 0x25, 0x73, 0xF9, 0x05, 0xE3}}, 0, 0, FORM_NONE, 0, 0},
    {0x40000, {0x20636970, 0xACF2, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}}, 0, 0, FORM_PICTURES, 0, 0},
};
#undef ID
const int kKindCount = (int)(sizeof kKinds / sizeof kKinds[0]);

const GUID kBextLabel = {0x74786562, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
const GUID kIxmlLabel = {0x74786562, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8B}};
const GUID kW64Riff = {0x66666972, 0x912E, 0x11CF, {0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00}};
const GUID kW64Data = {0x61746164, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
const GUID kW64Junk = {0x6B6E756A, 0xACF3, 0x113D, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};

bool ReadAt(const FileIO &io, ULONGLONG pos, void *buf, DWORD n)
{
    return io.seek((LONGLONG)pos, FILE_BEGIN) && io.read(buf, n);
}
bool WriteAt(const FileIO &io, ULONGLONG pos, const void *buf, DWORD n)
{
    DWORD put = 0;
    return io.seek((LONGLONG)pos, FILE_BEGIN) && WriteFile(io.h, buf, n, &put, nullptr) && put == n;
}

} // namespace

const Kind *KindAt(int index) { return index >= 0 && index < kKindCount ? &kKinds[index] : nullptr; }

const Kind *KindOfBit(DWORD bit)
{
    for (const Kind &k : kKinds)
        if (k.bit == bit)
            return &k;
    return nullptr;
}

const Kind *KindOfGuid(const GUID &guid)
{
    for (const Kind &k : kKinds)
        if (IsEqualGUID(k.guid, guid))
            return &k;
    return nullptr;
}

const GUID &BextLabel() { return kBextLabel; }
const GUID &IxmlLabel() { return kIxmlLabel; }

const Chunk *ChunkIndex::find(DWORD id, DWORD listType) const
{
    for (const Chunk &c : chunks)
        if (c.id == id && (!listType || c.listType == listType))
            return &c;
    return nullptr;
}

const Chunk *ChunkIndex::find(const GUID &label) const
{
    for (const Chunk &c : chunks)
        if (!c.id && IsEqualGUID(c.label, label))
            return &c;
    return nullptr;
}

HRESULT IndexFile(HANDLE file, bool wave64, ChunkIndex *index)
{
    FileIO io{file};
    index->wave64 = wave64;
    index->chunks.clear();
    index->audioEnd = 0;
    ULONGLONG length = io.length(), pos;
    if (!wave64) {
        DWORD head[3];
        if (!ReadAt(io, 0, head, 12))
            return ZVERR_FILE_READ;
        if (head[0] != ZVRIFF_RIFF)
            return ZVERR_NO_RIFF_HEADER;
        index->end = (ULONGLONG)head[1] + 8 < length ? (ULONGLONG)head[1] + 8 : length;
        pos = 12;
    } else {
        BYTE head[40];
        if (!ReadAt(io, 0, head, 40))
            return ZVERR_FILE_READ;
        if (memcmp(head, &kW64Riff, 16) != 0)
            return ZVERR_NO_RIFF_HEADER;
        ULONGLONG stored;
        memcpy(&stored, head + 16, 8);
        index->end = stored < length ? stored : length;
        pos = 40;
    }
    // A damaged size word ends the walk; what was found before it stays.
    while (pos + (wave64 ? 24 : 8) <= index->end) {
        Chunk c = {};
        c.header = pos;
        if (!wave64) {
            DWORD h[2];
            if (!ReadAt(io, pos, h, 8))
                break;
            c.id = h[0];
            c.data = pos + 8;
            c.size = h[1];
            c.span = 8 + c.size + (c.size & 1);
            if (c.id == ZVRIFF_LIST && c.size >= 4 && !io.read(&c.listType, 4))
                break;
        } else {
            BYTE h[24];
            if (!ReadAt(io, pos, h, 24))
                break;
            memcpy(&c.label, h, 16);
            ULONGLONG stored;
            memcpy(&stored, h + 16, 8);
            if (stored < 24)
                break;
            c.data = pos + 24;
            c.size = stored - 24;
            c.span = (stored + 7) & ~7ull;
            if (c.span < stored)
                break;
        }
        bool cut = c.data + c.size > index->end;
        if (cut)
            c.size = index->end - c.data;
        if ((!wave64 && c.id == ZVRIFF_DATA) || (wave64 && IsEqualGUID(c.label, kW64Data)))
            index->audioEnd = c.data + c.size;
        index->chunks.push_back(c);
        if (cut)
            break;
        pos += c.span;
    }
    return S_OK;
}

HRESULT ReadBody(HANDLE file, const Chunk &c, Bytes *out, ULONGLONG limit)
{
    if (c.size > limit)
        return ZVERR_SIZE_LIMIT;
    out->resize((size_t)c.size);
    if (c.size && !ReadAt(FileIO{file}, c.data, out->data(), (DWORD)c.size))
        return ZVERR_FILE_READ;
    return S_OK;
}

HRESULT AppendRiffChunk(HANDLE file, DWORD id, const void *data, DWORD size)
{
    FileIO io{file};
    DWORD stored = 0;
    if (!ReadAt(io, 4, &stored, 4))
        return ZVERR_FILE_READ;
    ULONGLONG added = 8 + (ULONGLONG)size + (size & 1);
    if ((ULONGLONG)stored + added > ZVRIFF_MAX_SIZE)
        return ZVERR_SIZE_LIMIT;
    // A stored size past the file's end is damage for the repair to mend;
    // writing there would leave a hole in front of the chunk.
    if ((ULONGLONG)stored + 8 > io.length())
        return ZVERR_MALFORMED;
    DWORD head[2] = {id, size};
    static const BYTE pad = 0;
    ULONGLONG at = (ULONGLONG)stored + 8;
    if (!WriteAt(io, at, head, 8) || (size && !WriteAt(io, at + 8, data, size)) ||
        ((size & 1) && !WriteAt(io, at + 8 + size, &pad, 1)))
        return ZVERR_FILE_WRITE;
    // The chunk is whole on disk before the header counts it.
    DWORD grown = (DWORD)(stored + added);
    if (!WriteAt(io, 4, &grown, 4))
        return ZVERR_FILE_WRITE;
    io.seek((LONGLONG)(stored + added + 8), FILE_BEGIN);
    return S_OK;
}

HRESULT AppendW64Chunk(HANDLE file, const GUID &label, const void *data, DWORD size)
{
    FileIO io{file};
    ULONGLONG stored = 0;
    if (!ReadAt(io, 16, &stored, 8))
        return ZVERR_FILE_READ;
    if (stored < 40 || stored > io.length())
        return ZVERR_MALFORMED;
    ULONGLONG at = (stored + 7) & ~7ull;
    BYTE head[24];
    memcpy(head, &label, 16);
    ULONGLONG chunkSize = 24 + (ULONGLONG)size;
    memcpy(head + 16, &chunkSize, 8);
    static const BYTE zeros[8] = {};
    DWORD pad = (DWORD)((8 - (size & 7)) & 7);
    if (!WriteAt(io, at, head, 24) || (size && !WriteAt(io, at + 24, data, size)) ||
        (pad && !WriteAt(io, at + 24 + size, zeros, pad)))
        return ZVERR_FILE_WRITE;
    ULONGLONG grown = at + 24 + size + pad;
    if (!WriteAt(io, 16, &grown, 8))
        return ZVERR_FILE_WRITE;
    io.seek((LONGLONG)grown, FILE_BEGIN);
    return S_OK;
}

HRESULT RemoveChunk(HANDLE file, const ChunkIndex &index, const Chunk &c)
{
    FileIO io{file};
    if (c.header < index.audioEnd) {
        // In front of the audio: retired in place, nothing moves.
        bool ok = index.wave64 ? WriteAt(io, c.header, &kW64Junk, 16) : WriteAt(io, c.header, "JUNK", 4);
        return ok ? S_OK : ZVERR_FILE_WRITE;
    }
    ULONGLONG span = c.data + c.size + (index.wave64 ? 0 : (c.size & 1)) - c.header;
    if (index.wave64)
        span = (span + 7) & ~7ull;
    if (c.header + span > index.end)
        span = index.end - c.header;
    BYTE buf[16384];
    HRESULT hr = zvmedia::MoveTailDown(file, c.header, c.header + span, buf, sizeof buf);
    if (FAILED(hr))
        return hr;
    io.truncateHere();
    if (index.wave64) {
        ULONGLONG stored = 0;
        if (!ReadAt(io, 16, &stored, 8))
            return ZVERR_FILE_READ;
        stored = stored > span ? stored - span : 40;
        return WriteAt(io, 16, &stored, 8) ? S_OK : ZVERR_FILE_WRITE;
    }
    return riff_UpdateRIFFSize(file, -(LONGLONG)span);
}

DWORD RateOf(HANDLE file, const ChunkIndex &index)
{
    static const GUID fmtLabel = {0x20746D66, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
    const Chunk *c = index.wave64 ? index.find(fmtLabel) : index.find(ZVRIFF_FMT);
    DWORD rate = 0;
    if (!c || c->size < 8 || !ReadAt(FileIO{file}, c->data + 4, &rate, 4))
        return 0;
    return rate;
}

void Store::add(DWORD bit, const void *record, DWORD size)
{
    Entry *e = nullptr;
    for (Entry &k : kinds)
        if (k.bit == bit)
            e = &k;
    if (!e) {
        kinds.push_back(Entry{bit, {}});
        e = &kinds.back();
    }
    const BYTE *p = (const BYTE *)record;
    e->records.emplace_back(p, p + size);
}

const std::vector<Bytes> *Store::of(DWORD bit) const
{
    for (const Entry &k : kinds)
        if (k.bit == bit)
            return &k.records;
    return nullptr;
}

DWORD Store::mask() const
{
    DWORD m = 0;
    for (const Entry &k : kinds)
        if (!k.records.empty())
            m |= k.bit;
    return m;
}

} // namespace zvmeta

const GUID *ZvFMMeta_GuidOfKind(DWORD bit)
{
    const zvmeta::Kind *k = zvmeta::KindOfBit(bit);
    return k ? &k->guid : nullptr;
}

DWORD ZvFMMeta_KindOfGuid(const GUID *guid)
{
    const zvmeta::Kind *k = guid ? zvmeta::KindOfGuid(*guid) : nullptr;
    return k ? k->bit : 0;
}
