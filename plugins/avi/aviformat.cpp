// AVI headers and indexes. Positions are 64-bit (OpenDML files pass 4 GiB);
// chunk and list headers are read by the RIFF chunk layer at each position.
#include "aviformat.h"
#include "media/riff.h"
#include <string.h>

namespace {

const DWORD kAVI = ZVRIFF_ID('A', 'V', 'I', ' ');
const DWORD kHdrl = ZVRIFF_ID('h', 'd', 'r', 'l'), kStrl = ZVRIFF_ID('s', 't', 'r', 'l');
const DWORD kMovi = ZVRIFF_ID('m', 'o', 'v', 'i'), kIdx1 = ZVRIFF_ID('i', 'd', 'x', '1');
const DWORD kStrh = ZVRIFF_ID('s', 't', 'r', 'h'), kStrf = ZVRIFF_ID('s', 't', 'r', 'f');
const DWORD kIndx = ZVRIFF_ID('i', 'n', 'd', 'x'), kRec = ZVRIFF_ID('r', 'e', 'c', ' ');
const DWORD kVids = ZVRIFF_ID('v', 'i', 'd', 's'), kAuds = ZVRIFF_ID('a', 'u', 'd', 's');

#pragma pack(push, 1)
struct StreamHeader {
    DWORD type, handler, flags;
    WORD priority, language;
    DWORD initialFrames, scale, rate, start, length, bufferSize, quality, sampleSize;
    short left, top, right, bottom;
};
struct IndexHeader {   // indx and ix##
    WORD longsPerEntry;
    BYTE subType, indexType;
    DWORD entriesInUse, chunkId;
    ULONGLONG baseOffset;   // ix##; in indx the first of three reserved words
    DWORD reserved;
};
struct Idx1Entry {
    DWORD id, flags, offset, size;
};
#pragma pack(pop)
static_assert(sizeof(StreamHeader) == 56, "AVI stream header is 56 bytes");
static_assert(sizeof(IndexHeader) == 24, "OpenDML index header is 24 bytes");
static_assert(sizeof(Idx1Entry) == 16, "idx1 entry is 16 bytes");

bool Seek(HANDLE f, ULONGLONG pos)
{
    LARGE_INTEGER li;
    li.QuadPart = (LONGLONG)pos;
    return SetFilePointerEx(f, li, nullptr, FILE_BEGIN) != 0;
}

HRESULT ReadAt(HANDLE f, ULONGLONG pos, void *buf, DWORD n)
{
    DWORD got = 0;
    if (!Seek(f, pos) || !ReadFile(f, buf, n, &got, nullptr) || got != n)
        return ZVERR_FILE_READ;
    return S_OK;
}

// A chunk header at pos through the chunk layer; its data must end inside
// [pos, end).
HRESULT ChunkAt(HANDLE f, ULONGLONG pos, ULONGLONG end, DWORD *id, DWORD *size)
{
    if (pos + 8 > end || !Seek(f, pos))
        return ZVERR_MALFORMED;
    HRESULT hr = riff_ReadChunkHeader(f, id, size);
    if (FAILED(hr))
        return hr;
    return pos + 8 + *size <= end ? S_OK : ZVERR_MALFORMED;
}

// Stream number of a chunk id "##xx".
int StreamOf(DWORD id)
{
    int a = (BYTE)id - '0', b = (BYTE)(id >> 8) - '0';
    return (a >= 0 && a <= 9 && b >= 0 && b <= 9) ? a * 10 + b : -1;
}

struct Parser {
    HANDLE f;
    AviFile *out;
    std::vector<ULONGLONG> superAt;   // indx chunk data position per stream (0: none)
    std::vector<DWORD> superSize;
    ULONGLONG moviStart = 0, moviEnd = 0;   // first RIFF's movi: its 'movi' type word, end
    ULONGLONG idx1At = 0;
    DWORD idx1Size = 0;

    // Calls fn(id, size, pos, listType) for each chunk in [pos, end); the
    // list type is 0 for a chunk that is no LIST.
    template <class Fn>
    HRESULT Walk(ULONGLONG pos, ULONGLONG end, Fn fn)
    {
        while (pos + 8 <= end) {
            DWORD id, size, type = 0;
            HRESULT hr = ChunkAt(f, pos, end, &id, &size);
            if (FAILED(hr))
                return hr;
            if (id == ZVRIFF_LIST && size >= 4 && FAILED(ReadAt(f, pos + 8, &type, 4)))
                return ZVERR_FILE_READ;
            if (FAILED(hr = fn(id, size, pos, type)))
                return hr;
            pos += 8 + size + (size & 1);
        }
        return S_OK;
    }

    HRESULT StreamList(ULONGLONG pos, ULONGLONG end)
    {
        if (out->streams.size() >= AVI_MAX_STREAMS)
            return ZVERR_MALFORMED;
        AviStream s = {};
        bool haveHeader = false, haveFormat = false;
        ULONGLONG indx = 0;
        DWORD indxSize = 0;
        HRESULT hr = Walk(pos, end, [&](DWORD id, DWORD size, ULONGLONG at, DWORD) {
            if (id == kStrh) {
                StreamHeader h = {};
                if (size < sizeof(h) - 8 || FAILED(ReadAt(f, at + 8, &h, size < sizeof(h) ? size : sizeof(h))))
                    return ZVERR_MALFORMED;
                s.type = h.type;
                s.handler = h.handler;
                s.scale = h.scale;
                s.rate = h.rate;
                haveHeader = true;
            } else if (id == kStrf && haveHeader) {
                if (s.type == kVids) {
                    if (size < sizeof(BITMAPINFOHEADER) || FAILED(ReadAt(f, at + 8, &s.video, sizeof(s.video))))
                        return ZVERR_MALFORMED;
                    if (s.video.biWidth <= 0 || s.video.biWidth > AVI_MAX_DIMENSION || s.video.biHeight == 0 ||
                        s.video.biHeight > AVI_MAX_DIMENSION || s.video.biHeight < -AVI_MAX_DIMENSION)
                        return ZVERR_MALFORMED;
                } else if (s.type == kAuds) {
                    if (size < 16 || FAILED(ReadAt(f, at + 8, &s.audio, 16)))
                        return ZVERR_MALFORMED;
                    s.audio.cbSize = 0;
                }
                haveFormat = true;
            } else if (id == kIndx) {
                indx = at + 8;
                indxSize = size;
            }
            return S_OK;
        });
        if (FAILED(hr))
            return hr;
        if (!haveHeader || (!haveFormat && (s.type == kVids || s.type == kAuds)))
            return ZVERR_MALFORMED;
        out->streams.push_back(s);
        superAt.push_back(indx);
        superSize.push_back(indxSize);
        return S_OK;
    }

    HRESULT HeaderList(ULONGLONG pos, ULONGLONG end)
    {
        return Walk(pos, end, [&](DWORD, DWORD size, ULONGLONG at, DWORD type) {
            return type == kStrl ? StreamList(at + 12, at + 8 + size) : S_OK;
        });
    }

    // Top-level chunks of the first RIFF part; later AVIX parts are reached
    // through the OpenDML index's absolute offsets.
    HRESULT Part(ULONGLONG pos, ULONGLONG end)
    {
        return Walk(pos, end, [&](DWORD id, DWORD size, ULONGLONG at, DWORD type) {
            if (type == kHdrl)
                return HeaderList(at + 12, at + 8 + size);
            if (type == kMovi && !moviStart) {
                moviStart = at + 8;
                moviEnd = at + 8 + size;
            }
            if (id == kIdx1) {
                idx1At = at + 8;
                idx1Size = size;
            }
            return S_OK;
        });
    }

    HRESULT Add(int stream, ULONGLONG offset, DWORD size)
    {
        if (stream < 0 || stream >= (int)out->streams.size())
            return S_OK;   // chunks of no declared stream are ignored
        if (offset + size > out->fileLength)
            return ZVERR_MALFORMED;
        AviStream &s = out->streams[stream];
        if (s.chunks.size() >= 0x7FFFFFF)
            return ZVERR_MALFORMED;
        s.chunks.push_back({offset, size});
        s.bytes += size;
        return S_OK;
    }

    HRESULT StandardIndex(ULONGLONG pos, DWORD size, int stream)
    {
        IndexHeader h;
        DWORD id, csize;
        HRESULT hr = ChunkAt(f, pos, out->fileLength, &id, &csize);
        if (FAILED(hr))
            return hr;
        if (csize < sizeof(h) || (size && csize + 8 > size) || FAILED(ReadAt(f, pos + 8, &h, sizeof(h))))
            return ZVERR_MALFORMED;
        if (h.longsPerEntry != 2 || h.indexType != 1 || h.entriesInUse > (csize - sizeof(h)) / 8)
            return ZVERR_MALFORMED;
        std::vector<DWORD> e((size_t)h.entriesInUse * 2);
        if (!e.empty() && FAILED(ReadAt(f, pos + 8 + sizeof(h), e.data(), (DWORD)(e.size() * 4))))
            return ZVERR_FILE_READ;
        for (DWORD i = 0; i < h.entriesInUse; ++i)
            if (FAILED(hr = Add(stream, h.baseOffset + e[2 * i], e[2 * i + 1] & 0x7FFFFFFF)))
                return hr;
        return S_OK;
    }

    HRESULT SuperIndexes()
    {
        for (size_t s = 0; s < superAt.size(); ++s) {
            if (!superAt[s])
                continue;
            IndexHeader h;
            if (superSize[s] < sizeof(h) || FAILED(ReadAt(f, superAt[s], &h, sizeof(h))))
                return ZVERR_MALFORMED;
            if (h.longsPerEntry != 4 || h.indexType != 0 || h.entriesInUse > (superSize[s] - sizeof(h)) / 16)
                return ZVERR_MALFORMED;
            std::vector<DWORD> e((size_t)h.entriesInUse * 4);
            if (!e.empty() && FAILED(ReadAt(f, superAt[s] + sizeof(h), e.data(), (DWORD)(e.size() * 4))))
                return ZVERR_FILE_READ;
            for (DWORD i = 0; i < h.entriesInUse; ++i) {
                ULONGLONG at = e[4 * i] | ((ULONGLONG)e[4 * i + 1] << 32);
                HRESULT hr = StandardIndex(at, e[4 * i + 2], (int)s);
                if (FAILED(hr))
                    return hr;
            }
        }
        return S_OK;
    }

    HRESULT Idx1()
    {
        DWORD n = idx1Size / sizeof(Idx1Entry);
        std::vector<Idx1Entry> e(n);
        if (n && FAILED(ReadAt(f, idx1At, e.data(), n * sizeof(Idx1Entry))))
            return ZVERR_FILE_READ;
        // offsets count from the 'movi' type word, or from the file's start
        ULONGLONG base = moviStart;
        for (const Idx1Entry &x : e)
            if (x.id != kRec && StreamOf(x.id) >= 0) {
                if (x.offset >= moviStart)
                    base = 0;
                break;
            }
        for (const Idx1Entry &x : e) {
            if (x.id == kRec || StreamOf(x.id) < 0)
                continue;
            DWORD id, size;
            ULONGLONG at = base + x.offset;
            HRESULT hr = ChunkAt(f, at, out->fileLength, &id, &size);
            if (FAILED(hr) || id != x.id)
                return ZVERR_MALFORMED;
            if (FAILED(hr = Add(StreamOf(x.id), at + 8, size)))
                return hr;
        }
        return S_OK;
    }

    // No index: the chunks of movi in order, into rec lists.
    HRESULT Scan(ULONGLONG pos, ULONGLONG end)
    {
        return Walk(pos, end, [&](DWORD id, DWORD size, ULONGLONG at, DWORD type) {
            if (type == kRec)
                return Scan(at + 12, at + 8 + size);
            return type == 0 && StreamOf(id) >= 0 ? Add(StreamOf(id), at + 8, size) : S_OK;
        });
    }
};

} // namespace

bool AviSniff(const BYTE *head, DWORD size)
{
    DWORD riff, form;
    if (!head || size < 12)
        return false;
    memcpy(&riff, head, 4);
    memcpy(&form, head + 8, 4);
    return riff == ZVRIFF_RIFF && form == kAVI;
}

HRESULT AviParse(HANDLE file, AviFile *out)
{
    out->streams.clear();
    out->openDML = false;
    LARGE_INTEGER len;
    if (!GetFileSizeEx(file, &len))
        return ZVERR_FILE_READ;
    out->fileLength = (ULONGLONG)len.QuadPart;
    BYTE head[12];
    if (out->fileLength < 12 || FAILED(ReadAt(file, 0, head, 12)))
        return ZVERR_NO_RIFF_HEADER;
    DWORD riff, size, form;
    memcpy(&riff, head, 4);
    memcpy(&size, head + 4, 4);
    memcpy(&form, head + 8, 4);
    if (riff != ZVRIFF_RIFF)
        return ZVERR_NO_RIFF_HEADER;
    if (form != kAVI)
        return ZVERR_UNSUPPORTED_FORMAT;
    Parser p;
    p.f = file;
    p.out = out;
    // a stored size past the end: the file was cut, read what is there
    ULONGLONG end = 8 + (ULONGLONG)size;
    if (end > out->fileLength)
        end = out->fileLength;
    HRESULT hr = p.Part(12, end);
    if (FAILED(hr))
        return hr;
    if (out->streams.empty() || !p.moviStart)
        return ZVERR_MALFORMED;
    bool super = false;
    for (ULONGLONG at : p.superAt)
        super = super || at;
    if (super) {
        out->openDML = true;
        hr = p.SuperIndexes();
    } else if (p.idx1At) {
        hr = p.Idx1();
    } else {
        // OpenDML parts without an index are not read: their chunks follow
        // in AVIX lists the first part's movi does not hold
        hr = p.Scan(p.moviStart + 4, p.moviEnd < end ? p.moviEnd : end);
    }
    return hr;
}
