// Internal to the chunk layers: the RIFF walking algorithms, written once for
// any byte source with read(buf, n) (exact, copies what there is first),
// seek(distance, method) and tell(). The file layer and the memory layer
// instantiate them. Not exported.
#pragma once
#include "media/riff.h"
#include "media/chunkio.h"
#include "media/mriff.h"
#include <string.h>

namespace zvmedia {

// The byte source of the shared walkers over a _tMRIFF record.
struct MemIO {
    _tMRIFF *r;

    DWORD avail() const { return r->dataEnd > r->cursor ? (DWORD)(r->dataEnd - r->cursor) : 0; }
    bool read(void *buf, DWORD n) const
    {
        DWORD k = n < avail() ? n : avail();
        if (k)
            memcpy(buf, r->cursor, k);
        r->cursor += k;
        return k == n;
    }
    bool write(const void *buf, DWORD n) const
    {
        DWORD room = r->capacityEnd > r->cursor ? (DWORD)(r->capacityEnd - r->cursor) : 0;
        DWORD k = n < room ? n : room;
        if (k)
            memcpy(r->cursor, buf, k);
        r->cursor += k;
        if (r->cursor > r->dataEnd)
            r->dataEnd = r->cursor;
        return k == n;
    }
    bool seek(LONGLONG dist, DWORD method) const
    {
        LONGLONG end = r->dataEnd - r->start;
        LONGLONG base = method == FILE_BEGIN ? 0 : method == FILE_END ? end : (LONGLONG)(r->cursor - r->start);
        LONGLONG to = base + dist;
        to = to < 0 ? 0 : to > end ? end : to;
        r->cursor = r->start + to;
        return true;
    }
    ULONGLONG tell() const { return (ULONGLONG)(r->cursor - r->start); }
    ULONGLONG left() const { return avail(); }
};


// Distance over a chunk body: size plus the pad of an odd size.
inline ULONGLONG RiffPadded(DWORD size) { return (ULONGLONG)size + (size & 1); }

// Subtracts without wrapping below 0 (the searches' guard).
inline DWORD RiffTakeOff(DWORD counter, ULONGLONG amount)
{
    return amount > counter ? 0 : (DWORD)(counter - amount);
}

template <class IO> DWORD RiffSkip(const IO &io, DWORD size)
{
    ULONGLONG d = RiffPadded(size);
    io.seek((LONGLONG)d, FILE_CURRENT);
    return (DWORD)d;
}

template <class IO> HRESULT RiffReadData(const IO &io, void *buffer, DWORD count)
{
    if (!io.read(buffer, count))
        return ZVERR_FILE_READ;
    if (count & 1)
        io.seek(1, FILE_CURRENT);
    return S_OK;
}

template <class IO> HRESULT RiffReadDataBounded(const IO &io, void *buffer, DWORD size, DWORD limit)
{
    DWORD n = size < limit ? size : limit;
    if (!io.read(buffer, n))
        return ZVERR_FILE_READ;
    io.seek((LONGLONG)(size - n) + (limit & 1), FILE_CURRENT);
    return S_OK;
}

// Allocates the block and fills it through the given reader (which also
// skips the pad of its own alignment); the block is freed when that fails.
template <class IO>
HRESULT ReadDataAllocWith(const IO &io, tZVRIFFBLOCK *block, HRESULT (*reader)(const IO &, void *, DWORD))
{
    if (!block)
        return E_INVALIDARG;
    block->data = nullptr;
    if (block->size == 0)
        return S_OK;
    // A read that must come up short fails before a block of a damaged
    // size word is allocated (and its pages touched).
    if (block->size > io.left())
        return ZVERR_FILE_READ;
    HGLOBAL h = GlobalAlloc(GHND, block->size);
    void *p = h ? GlobalLock(h) : nullptr;
    if (!p) {
        if (h)
            GlobalFree(h);
        return E_OUTOFMEMORY;
    }
    HRESULT hr = reader(io, p, block->size);
    if (FAILED(hr)) {
        GlobalUnlock(h);
        GlobalFree(h);
        return hr;
    }
    block->data = p;
    return S_OK;
}

template <class IO> HRESULT RiffReadDataAlloc(const IO &io, tZVRIFFBLOCK *block)
{
    return ReadDataAllocWith<IO>(io, block, RiffReadData<IO>);
}

template <class IO> HRESULT RiffReadChunkHeader(const IO &io, DWORD *id, DWORD *size)
{
    DWORD v;
    if (!io.read(&v, 4))
        return ZVERR_FILE_READ;
    if (id)
        *id = v;
    if (!io.read(&v, 4))
        return ZVERR_FILE_READ;
    if (size)
        *size = v;
    return S_OK;
}

// A header with a type behind it (RIFF, LIST): another id gives wrongId
// with the type unread; size receives the stored size minus 4.
template <class IO>
HRESULT RiffReadTypedHeader(const IO &io, DWORD expected, HRESULT wrongId, DWORD *size, DWORD *type)
{
    DWORD id = 0, sz = 0;
    HRESULT hr = RiffReadChunkHeader(io, &id, &sz);
    if (FAILED(hr))
        return hr;
    if (id != expected)
        return wrongId;
    if (size)
        *size = sz - 4;
    DWORD t;
    if (!io.read(&t, 4))
        return ZVERR_FILE_READ;
    if (type)
        *type = t;
    return S_OK;
}

template <class IO> HRESULT RiffReadListHeader(const IO &io, DWORD *listType, DWORD *size)
{
    return RiffReadTypedHeader(io, ZVRIFF_LIST, ZVERR_NO_LIST_HEADER, size, listType);
}

template <class IO> HRESULT RiffReadFileID(const IO &io, DWORD *size, DWORD *formType)
{
    if (size)
        *size = 0;
    return RiffReadTypedHeader(io, ZVRIFF_RIFF, ZVERR_NO_RIFF_HEADER, size, formType);
}

template <class IO> HRESULT RiffFindChunk(const IO &io, DWORD id, DWORD *size, DWORD *remaining)
{
    for (;;) {
        if (remaining && *remaining < 8)
            return ZVERR_NOT_FOUND;
        DWORD hdr[2];
        if (!io.read(hdr, 8))
            return ZVERR_FILE_READ;
        if (remaining)
            *remaining -= 8;
        if (hdr[0] == id) {
            if (size)
                *size = hdr[1];
            return S_OK;
        }
        ULONGLONG skip = RiffPadded(hdr[1]);
        io.seek((LONGLONG)skip, FILE_CURRENT);
        if (remaining)
            *remaining = RiffTakeOff(*remaining, skip);
    }
}

template <class IO> HRESULT RiffFindChunkInRIFF(const IO &io, DWORD id, DWORD *size, DWORD *remaining)
{
    DWORD counter = 0;
    io.seek(0, FILE_BEGIN);
    HRESULT hr = RiffReadFileID(io, &counter, nullptr);
    if (SUCCEEDED(hr))
        hr = RiffFindChunk(io, id, size, &counter);
    if (remaining)
        *remaining = counter;
    return hr;
}

template <class IO> HRESULT RiffFindList(const IO &io, DWORD listType, DWORD *size, DWORD *remaining)
{
    for (;;) {
        DWORD chunkSize = 0;
        HRESULT hr = RiffFindChunk(io, ZVRIFF_LIST, &chunkSize, remaining);
        if (FAILED(hr))
            return hr;
        if (remaining && *remaining < 4)
            return ZVERR_NOT_FOUND;
        DWORD type;
        if (!io.read(&type, 4))
            return ZVERR_FILE_READ;
        if (remaining)
            *remaining -= 4;
        if (type == listType) {
            if (size)
                *size = chunkSize - 4;
            return S_OK;
        }
        // A size below 4 seeks back into the type: the walk still gains 8
        // bytes a round, so it always ends.
        LONGLONG rest = (LONGLONG)RiffPadded(chunkSize) - 4;
        io.seek(rest, FILE_CURRENT);
        if (remaining) {
            LONGLONG r = (LONGLONG)*remaining - rest;
            *remaining = r < 0 ? 0 : r > 0xFFFFFFFFll ? 0xFFFFFFFFu : (DWORD)r;
        }
    }
}

template <class IO> HRESULT RiffFindListFromStart(const IO &io, DWORD listType, DWORD *size)
{
    DWORD counter = 0;
    io.seek(0, FILE_BEGIN);
    HRESULT hr = RiffReadFileID(io, &counter, nullptr);
    if (FAILED(hr))
        return hr;
    return RiffFindList(io, listType, size, &counter);
}

template <class IO> HRESULT RiffCountEntries(const IO &io, DWORD *count, DWORD *remaining)
{
    DWORD saved = (DWORD)io.tell();
    DWORD n = 0;
    HRESULT hr = S_OK;
    // No wrap guard: an entry that overruns the list sends the counter
    // round, and the walk then ends where a read fails.
    while (!remaining || *remaining >= 8) {
        DWORD hdr[2];
        bool ok = io.read(hdr, 8);
        if (remaining)
            *remaining -= 8;
        if (!ok) {
            hr = ZVERR_FILE_READ;
            break;
        }
        DWORD skipped = RiffSkip(io, hdr[1]);
        if (remaining)
            *remaining -= skipped;
        n++;
    }
    if (count)
        *count = n;
    io.seek(saved, FILE_BEGIN);
    return hr;
}

template <class IO> HRESULT RiffSeekEntry(const IO &io, DWORD index, DWORD *remaining)
{
    for (DWORD i = 0; i < index; i++) {
        if (remaining && *remaining < 8)
            return ZVERR_NOT_FOUND;
        DWORD hdr[2];
        if (!io.read(hdr, 8))
            return ZVERR_FILE_READ;
        if (remaining)
            *remaining -= 8;
        DWORD skipped = RiffSkip(io, hdr[1]);
        if (remaining)
            *remaining -= skipped;
    }
    return S_OK;
}

// Reads size bytes (at most capacity) as a string of the ANSI code page.
template <class IO> HRESULT RiffReadANSIString(const IO &io, wchar_t *buffer, DWORD capacity, DWORD *size)
{
    if (!buffer || !size)
        return E_INVALIDARG;
    ULONGLONG end = io.tell() + *size;
    DWORD n = *size < capacity ? *size : capacity;
    BYTE *text = nullptr;
    if (n) {
        text = (BYTE *)HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, n);
        if (!text)
            return E_OUTOFMEMORY;
        if (!io.read(text, n)) {
            HeapFree(GetProcessHeap(), 0, text);
            return ZVERR_FILE_READ;
        }
        text[n - 1] = 0;
    }
    if (text && text[0]) {
        MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, (const char *)text, -1, buffer, (int)capacity);
        buffer[capacity - 1] = 0;
    } else if (capacity > 0) {
        buffer[0] = 0;
    }
    if (text)
        HeapFree(GetProcessHeap(), 0, text);
    io.seek((LONGLONG)(end + (*size & 1)), FILE_BEGIN);
    *size += 1;
    return S_OK;
}

} // namespace zvmedia
