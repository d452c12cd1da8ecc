// Wave64 chunk layer on Win32 file handles.
#include "media/riff64.h"
#include "media/riffalgo.h"
#include <limits.h>

using namespace zvmedia;

namespace {

const ULONGLONG kHeader = 24;

#pragma pack(push, 1)
struct W64Header {
    GUID label;
    ULONGLONG size;
};
#pragma pack(pop)
static_assert(sizeof(W64Header) == 24, "Wave64 chunk header is 24 bytes");

inline ULONGLONG Round8(ULONGLONG v) { return (v + 7) & ~7ull; }
inline bool SameLabel(const GUID &a, const GUID &b) { return memcmp(&a, &b, sizeof(GUID)) == 0; }

// Subtracts an unsigned amount from a signed counter; an amount beyond the
// counter's range simply drives it negative.
inline LONGLONG TakeOff(LONGLONG counter, ULONGLONG amount)
{
    return amount > (ULONGLONG)LLONG_MAX ? -1 : counter - (LONGLONG)amount;
}

// Seeks forward; a distance that would read as negative (a size word near
// 2^64) goes to the end of the file instead of backwards, so walks always end.
bool SkipForward(const FileIO &io, ULONGLONG distance)
{
    if (distance > (ULONGLONG)LLONG_MAX) {
        io.seek(0, FILE_END);
        return false;
    }
    return io.seek((LONGLONG)distance, FILE_CURRENT);
}

HRESULT ReadData64(const FileIO &io, void *buffer, DWORD count)
{
    if (!io.read(buffer, count))
        return ZVERR_FILE_READ;
    DWORD pad = (DWORD)(Round8(count) - count);
    if (pad)
        io.seek(pad, FILE_CURRENT);
    return S_OK;
}

// Reads a header, a stored size below 24 counting as an empty chunk.
bool ReadHeader(const FileIO &io, GUID *label, ULONGLONG *size)
{
    W64Header h;
    if (!io.read(&h, sizeof h))
        return false;
    *label = h.label;
    *size = h.size < kHeader ? 0 : h.size - kHeader;
    return true;
}

bool WriteZeros(const FileIO &io, ULONGLONG count)
{
    static const BYTE zeros[1024] = {};
    while (count) {
        DWORD n = count < sizeof zeros ? (DWORD)count : (DWORD)sizeof zeros;
        if (!io.write(zeros, n))
            return false;
        count -= n;
    }
    return true;
}

} // namespace

HRESULT riff64_getGUIDLabel(GUID)
{
    return 0;
}

HRESULT riff64_getGUIDLabelProperly(GUID, DWORD, DWORD)
{
    return 0;
}

HRESULT riff64_SaveLocation(HANDLE file, ULONGLONG *position)
{
    if (position)
        *position = FileIO{file}.tell();
    return S_OK;
}

HRESULT riff64_RestoreLocation(HANDLE file, ULONGLONG position)
{
    FileIO{file}.seek((LONGLONG)position, FILE_BEGIN);
    return S_OK;
}

HRESULT riff64_SeekDataStart(HANDLE file)
{
    return riff64_RestoreLocation(file, 40);
}

ULONGLONG riff64_SkipChunk(HANDLE file, ULONGLONG size)
{
    ULONGLONG d = Round8(size);
    SkipForward(FileIO{file}, d);
    return d;
}

HRESULT riff64_ValidateChunkHeader(GUID, ULONGLONG size)
{
    DWORD low = (DWORD)size, high = (DWORD)(size >> 32);
    if ((low & 7) | (high & 8))
        return ZVERR_NEWER_FORMAT;
    if (size == 0)
        return ZVERR_ZERO_CHUNK;
    return S_OK;
}

HRESULT riff64_ReadData(HANDLE file, void *buffer, DWORD count)
{
    return ReadData64(FileIO{file}, buffer, count);
}

HRESULT riff64_ReadDataBounded(HANDLE file, void *buffer, ULONGLONG size, DWORD limit)
{
    FileIO io{file};
    DWORD n = size < limit ? (DWORD)size : limit;
    if (!io.read(buffer, n))
        return ZVERR_FILE_READ;
    // The remainder of the limit, not the pad that would complete it.
    SkipForward(io, size - n + (limit & 7));
    return S_OK;
}

HRESULT riff64_ReadDataAlloc(HANDLE file, tZVRIFFBLOCK *block)
{
    return ReadDataAllocWith<FileIO>(FileIO{file}, block, ReadData64);
}

HRESULT riff64_SetRIFFSize(HANDLE file, ULONGLONG size)
{
    FileIO io{file};
    ULONGLONG saved = io.tell();
    ULONGLONG stored = size + kHeader;
    io.seek(16, FILE_BEGIN);
    HRESULT hr = io.write(&stored, 8) ? S_OK : ZVERR_FILE_WRITE;
    io.seek((LONGLONG)saved, FILE_BEGIN);
    return hr;
}

HRESULT riff64_UpdateRIFFSize(HANDLE file, LONGLONG delta)
{
    FileIO io{file};
    ULONGLONG saved = io.tell();
    ULONGLONG stored = 0;
    HRESULT hr = S_OK;
    io.seek(16, FILE_BEGIN);
    if (!io.read(&stored, 8)) {
        hr = ZVERR_FILE_READ;
    } else {
        stored += (ULONGLONG)delta;
        io.seek(16, FILE_BEGIN);
        if (!io.write(&stored, 8))
            hr = ZVERR_FILE_WRITE;
    }
    io.seek((LONGLONG)saved, FILE_BEGIN);
    return hr;
}

HRESULT riff64_WriteChunkHeader(HANDLE file, GUID label, ULONGLONG size)
{
    W64Header h = {label, size + kHeader};
    return FileIO{file}.write(&h, sizeof h) ? S_OK : ZVERR_FILE_WRITE;
}

HRESULT riff64_WriteChunk(HANDLE file, GUID label, const void *data, DWORD count, ULONGLONG *written)
{
    if (written)
        *written = 0;
    if (!data && count)
        return E_INVALIDARG;
    HRESULT hr = riff64_WriteChunkHeader(file, label, count);
    if (FAILED(hr))
        return hr;
    ULONGLONG n = 0;
    if (FAILED(riff64_WriteData(file, data, count, &n)))
        return ZVERR_FILE_WRITE;
    if (written)
        *written = n + kHeader;
    return S_OK;
}

HRESULT riff64_WriteListHeader(HANDLE file, GUID listType, ULONGLONG size)
{
    HRESULT hr = riff64_WriteChunkHeader(file, ZVW64_LIST, size);
    if (FAILED(hr))
        return hr;
    return FileIO{file}.write(&listType, sizeof listType) ? S_OK : ZVERR_FILE_WRITE;
}

HRESULT riff64_WriteFileID(HANDLE file, GUID formType, ULONGLONG size)
{
    // Only the form label's write decides the result.
    riff64_WriteChunkHeader(file, ZVW64_RIFF, size);
    return FileIO{file}.write(&formType, sizeof formType) ? S_OK : ZVERR_FILE_WRITE;
}

HRESULT riff64_ReadChunkHeader(HANDLE file, GUID *label, ULONGLONG *size)
{
    GUID l;
    ULONGLONG s;
    if (!ReadHeader(FileIO{file}, &l, &s))
        return ZVERR_FILE_READ;
    if (label)
        *label = l;
    if (size)
        *size = s;
    return S_OK;
}

HRESULT riff64_ReadListHeader(HANDLE file, GUID *listType, ULONGLONG *size)
{
    FileIO io{file};
    W64Header h;
    if (!io.read(&h, sizeof h))
        return ZVERR_FILE_READ;
    if (!SameLabel(h.label, ZVW64_LIST))
        return ZVERR_NO_LIST_HEADER;
    if (size)
        *size = h.size - 40;
    GUID t;
    if (!io.read(&t, sizeof t))
        return ZVERR_FILE_READ;
    if (listType)
        *listType = t;
    return S_OK;
}

HRESULT riff64_ReadFileID(HANDLE file, ULONGLONG *size, GUID *formType)
{
    GUID label = {};
    ULONGLONG s = 0;
    // The header's own read result is not looked at: a file too short for a
    // header is told by the label test.
    riff64_ReadChunkHeader(file, &label, &s);
    if (size)
        *size = s - 16;
    if (!SameLabel(label, ZVW64_RIFF))
        return ZVERR_NO_RIFF_HEADER;
    GUID form;
    if (!FileIO{file}.read(&form, sizeof form))
        return ZVERR_FILE_READ;
    if (formType)
        *formType = form;
    return S_OK;
}

HRESULT riff64_FindChunkHeader(HANDLE file, GUID label, ULONGLONG *size, LONGLONG *remaining)
{
    FileIO io{file};
    for (;;) {
        if (remaining && *remaining < (LONGLONG)kHeader)
            return ZVERR_NOT_FOUND;
        GUID l;
        ULONGLONG s;
        if (!ReadHeader(io, &l, &s))
            return ZVERR_FILE_READ;
        if (remaining)
            *remaining -= kHeader;
        if (SameLabel(l, label)) {
            if (size)
                *size = s;
            return S_OK;
        }
        ULONGLONG skip = Round8(s);
        if (!SkipForward(io, skip))
            return ZVERR_FILE_READ;
        if (remaining)
            *remaining = TakeOff(*remaining, skip);
    }
}

HRESULT riff64_FindChunkHeaderInRIFF(HANDLE file, GUID label, ULONGLONG *size, LONGLONG *remaining)
{
    FileIO{file}.seek(0, FILE_BEGIN);
    ULONGLONG body = 0;
    HRESULT hr = riff64_ReadFileID(file, &body, nullptr);
    LONGLONG counter = (LONGLONG)body;
    if (SUCCEEDED(hr))
        hr = riff64_FindChunkHeader(file, label, size, &counter);
    if (remaining)
        *remaining = counter;
    return hr;
}

HRESULT riff64_FindListChunk(HANDLE file, GUID listType, ULONGLONG *size, LONGLONG *remaining)
{
    FileIO io{file};
    for (;;) {
        ULONGLONG chunkSize = 0;
        HRESULT hr = riff64_FindChunkHeader(file, ZVW64_LIST, &chunkSize, remaining);
        if (FAILED(hr))
            return hr;
        // The bound is 8 though the type is 16 bytes: a counter of 8 reads
        // the type, goes negative, and the next round stops.
        if (remaining && *remaining < 8)
            return ZVERR_NOT_FOUND;
        GUID type;
        if (!io.read(&type, sizeof type))
            return ZVERR_FILE_READ;
        if (remaining)
            *remaining -= 16;
        if (SameLabel(type, listType)) {
            if (size)
                *size = chunkSize - 16;
            return S_OK;
        }
        ULONGLONG rounded = Round8(chunkSize);
        if (rounded > (ULONGLONG)LLONG_MAX || !io.seek((LONGLONG)(rounded - 16), FILE_CURRENT))
            return ZVERR_FILE_READ;
        if (remaining)
            *remaining = TakeOff(*remaining + 16, rounded);
    }
}

HRESULT riff64_FindListChunkFromStart(HANDLE file, GUID listType, ULONGLONG *size)
{
    FileIO{file}.seek(0, FILE_BEGIN);
    ULONGLONG body = 0;
    HRESULT hr = riff64_ReadFileID(file, &body, nullptr);
    if (FAILED(hr))
        return hr;
    LONGLONG counter = (LONGLONG)body;
    return riff64_FindListChunk(file, listType, size, &counter);
}

HRESULT riff64_GetNumListEntries(HANDLE file, DWORD *count, LONGLONG *remaining)
{
    FileIO io{file};
    ULONGLONG saved = io.tell();
    DWORD n = 0;
    HRESULT hr = S_OK;
    while (!remaining || *remaining >= (LONGLONG)kHeader) {
        GUID l;
        ULONGLONG s;
        bool ok = ReadHeader(io, &l, &s);
        if (remaining)
            *remaining -= kHeader;
        if (!ok) {
            hr = ZVERR_FILE_READ;
            break;
        }
        ULONGLONG skip = riff64_SkipChunk(file, s);
        if (remaining)
            *remaining = TakeOff(*remaining, skip);
        n++;
    }
    if (count)
        *count = n;
    io.seek((LONGLONG)saved, FILE_BEGIN);
    return hr;
}

HRESULT riff64_SeekListEntry(HANDLE file, DWORD index, LONGLONG *remaining)
{
    FileIO io{file};
    for (DWORD i = 0; i < index; i++) {
        if (remaining && *remaining < (LONGLONG)kHeader)
            return ZVERR_NOT_FOUND;
        GUID l;
        ULONGLONG s;
        if (!ReadHeader(io, &l, &s))
            return ZVERR_FILE_READ;
        if (remaining)
            *remaining -= kHeader;
        ULONGLONG skip = riff64_SkipChunk(file, s);
        if (remaining)
            *remaining = TakeOff(*remaining, skip);
    }
    return S_OK;
}

HRESULT riff64_DeleteChunk(HANDLE file, GUID label, ULONGLONG *removedSize)
{
    FileIO io{file};
    if (removedSize)
        *removedSize = 0;
    ULONGLONG length = io.length();
    io.seek(0, FILE_BEGIN);
    ULONGLONG size = 0;
    HRESULT hr = riff64_FindChunkHeaderInRIFF(file, label, &size, nullptr);
    if (FAILED(hr))
        return hr;
    ULONGLONG dst = io.tell() - kHeader;
    ULONGLONG removed = Round8(size) + kHeader;
    // A size that claims more than the file holds takes the rest of it.
    ULONGLONG src = (removed < size || removed > length - dst) ? length : dst + removed;
    ULONGLONG tail = length - src;
    io.seek((LONGLONG)dst, FILE_BEGIN);
    if (tail) {
        DWORD bufSize = tail < 4096 ? (DWORD)tail : 4096;
        BYTE *buf = (BYTE *)HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, bufSize);
        if (!buf)
            return E_OUTOFMEMORY;
        hr = MoveTailDown(file, dst, src, buf, bufSize);
        HeapFree(GetProcessHeap(), 0, buf);
        if (FAILED(hr))
            return hr;
    }
    // The handle stands behind the moved tail: the new end of the file.
    io.truncateHere();
    if (removedSize)
        *removedSize = removed;
    riff64_UpdateRIFFSize(file, -(LONGLONG)(src - dst));
    return S_OK;
}

HRESULT riff64_WriteData(HANDLE file, const void *data, DWORD count, ULONGLONG *written)
{
    FileIO io{file};
    if (written)
        *written = 0;
    if (!data && count)
        return E_INVALIDARG;
    DWORD put = 0;
    if (count && !WriteFile(file, data, count, &put, nullptr))
        return ZVERR_FILE_WRITE;
    DWORD padded = (DWORD)Round8(put);
    for (DWORD i = put; i < padded; i++) {
        BYTE zero = 0;
        if (!io.write(&zero, 1))
            return ZVERR_FILE_WRITE;
    }
    if (written)
        *written = padded;
    return S_OK;
}

HRESULT riff64_WriteToFile(HANDLE file, const void *data, DWORD count)
{
    if (!data && count)
        return E_INVALIDARG;
    return FileIO{file}.write(data, count) ? S_OK : ZVERR_FILE_WRITE;
}

ULONGLONG riff64_AmountWritten(HANDLE file, ULONGLONG start)
{
    return FileIO{file}.tell() - start;
}

HRESULT riff64_Pad(HANDLE file, ULONGLONG start)
{
    ULONGLONG n = riff64_AmountWritten(file, start);
    return WriteZeros(FileIO{file}, Round8(n) - n) ? S_OK : ZVERR_FILE_WRITE;
}

HRESULT riff64_PrepareChunk(HANDLE file, GUID label, ULONGLONG *start)
{
    if (start)
        *start = FileIO{file}.tell();
    return riff64_WriteChunkHeader(file, label, 0);
}

HRESULT riff64_CompleteChunk(HANDLE file, ULONGLONG start)
{
    FileIO io{file};
    HRESULT hr = riff64_Pad(file, start);
    if (FAILED(hr))
        return hr;
    ULONGLONG end = io.tell();
    ULONGLONG length = end - start;
    io.seek((LONGLONG)(start + 16), FILE_BEGIN);
    bool ok = io.write(&length, 8);
    io.seek((LONGLONG)end, FILE_BEGIN);
    return ok ? S_OK : ZVERR_FILE_WRITE;
}

HRESULT riff64_PrepareList(HANDLE file, GUID listType, ULONGLONG *start)
{
    if (start)
        *start = FileIO{file}.tell();
    return SUCCEEDED(riff64_WriteListHeader(file, listType, 0)) ? S_OK : ZVERR_FILE_WRITE;
}

HRESULT riff64_WriteChunkToFile(HANDLE file, GUID label, const void *data, DWORD count)
{
    ULONGLONG start = 0;
    HRESULT hr = riff64_PrepareChunk(file, label, &start);
    if (SUCCEEDED(hr))
        hr = riff64_WriteToFile(file, data, count);
    if (SUCCEEDED(hr))
        hr = riff64_CompleteChunk(file, start);
    return hr;
}
