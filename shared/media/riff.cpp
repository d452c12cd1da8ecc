// RIFF chunk layer on Win32 file handles.
#include "media/riff.h"
#include "media/riffalgo.h"

using namespace zvmedia;

namespace {

// Seeks of this layer carry a zero high word: positions are 32-bit.
void SeekAbs(HANDLE h, DWORD pos)
{
    FileIO{h}.seek((LONGLONG)pos, FILE_BEGIN);
}

bool WriteDword(HANDLE h, DWORD v)
{
    return FileIO{h}.write(&v, 4);
}

} // namespace

namespace zvmedia {

HRESULT MoveTailDown(HANDLE h, ULONGLONG dst, ULONGLONG src, BYTE *buf, DWORD bufSize)
{
    FileIO io{h};
    io.seek((LONGLONG)src, FILE_BEGIN);
    for (;;) {
        DWORD got = 0;
        if (!io.readSome(buf, bufSize, &got))
            return ZVERR_FILE_READ;
        src += got;
        io.seek((LONGLONG)dst, FILE_BEGIN);
        if (got && !io.write(buf, got))
            return ZVERR_FILE_WRITE;
        dst += got;
        if (got < bufSize)
            return S_OK;
        io.seek((LONGLONG)src, FILE_BEGIN);
    }
}

HRESULT MoveTailUp(HANDLE h, ULONGLONG pos, ULONGLONG distance, BYTE *buf, DWORD bufSize)
{
    FileIO io{h};
    ULONGLONG end = io.length();
    while (end > pos) {
        DWORD n = end - pos < bufSize ? (DWORD)(end - pos) : bufSize;
        end -= n;
        if (!io.seek((LONGLONG)end, FILE_BEGIN) || !io.read(buf, n))
            return ZVERR_FILE_READ;
        if (!io.seek((LONGLONG)(end + distance), FILE_BEGIN) || !io.write(buf, n))
            return ZVERR_FILE_WRITE;
    }
    return S_OK;
}

} // namespace zvmedia

HRESULT riff_SaveLocation(HANDLE file, DWORD *position)
{
    if (position)
        *position = (DWORD)FileIO{file}.tell();
    return S_OK;
}

HRESULT riff_RestoreLocation(HANDLE file, DWORD position)
{
    SeekAbs(file, position);
    return S_OK;
}

HRESULT riff_SeekDataStart(HANDLE file)
{
    SeekAbs(file, 12);
    return S_OK;
}

DWORD riff_SkipChunk(HANDLE file, DWORD size)
{
    return RiffSkip(FileIO{file}, size);
}

HRESULT riff_ValidateChunkHeader(DWORD, LONG size)
{
    if (size < 0)
        return ZVERR_NEWER_FORMAT;
    if (size == 0)
        return ZVERR_ZERO_CHUNK;
    return S_OK;
}

HRESULT riff_ReadData(HANDLE file, void *buffer, DWORD count)
{
    return RiffReadData(FileIO{file}, buffer, count);
}

HRESULT riff_ReadDataBounded(HANDLE file, void *buffer, DWORD size, DWORD limit)
{
    return RiffReadDataBounded(FileIO{file}, buffer, size, limit);
}

HRESULT riff_ReadDataAlloc(HANDLE file, tZVRIFFBLOCK *block)
{
    return RiffReadDataAlloc(FileIO{file}, block);
}

HRESULT riff_WriteFileID(HANDLE file, DWORD formType, DWORD size)
{
    // Only the last write decides: a failure before it shows there as well.
    WriteDword(file, ZVRIFF_RIFF);
    WriteDword(file, size);
    return WriteDword(file, formType) ? S_OK : ZVERR_FILE_WRITE;
}

HRESULT riff_ReadFileID(HANDLE file, DWORD *size, DWORD *formType)
{
    return RiffReadFileID(FileIO{file}, size, formType);
}

HRESULT riff_SetRIFFSize(HANDLE file, DWORD size)
{
    DWORD saved = 0;
    riff_SaveLocation(file, &saved);
    SeekAbs(file, 4);
    HRESULT hr = WriteDword(file, size) ? S_OK : ZVERR_FILE_WRITE;
    SeekAbs(file, saved);
    return hr;
}

HRESULT riff_UpdateRIFFSize(HANDLE file, LONGLONG delta)
{
    FileIO io{file};
    DWORD saved = 0;
    riff_SaveLocation(file, &saved);
    SeekAbs(file, 4);
    DWORD stored = 0;
    HRESULT hr = S_OK;
    if (!io.read(&stored, 4)) {
        hr = ZVERR_FILE_READ;
    } else {
        LONGLONG sum = (LONGLONG)stored + delta;
        if (sum > (LONGLONG)ZVRIFF_MAX_SIZE) {
            // Roll back what the caller appended: the file stays valid at
            // its last good length.
            io.seek((LONGLONG)stored + 8, FILE_BEGIN);
            io.truncateHere();
            hr = ZVERR_SIZE_LIMIT;
        } else {
            SeekAbs(file, 4);
            if (!WriteDword(file, (DWORD)sum))
                hr = ZVERR_FILE_WRITE;
        }
    }
    SeekAbs(file, saved);
    return hr;
}

HRESULT riff_GetFileSize(HANDLE file, DWORD *size)
{
    if (size)
        *size = 0;
    SeekAbs(file, 0);
    DWORD body = 0;
    HRESULT hr = riff_ReadFileID(file, &body, nullptr);
    if (SUCCEEDED(hr) && size)
        *size = body + 8;
    return hr;
}

HRESULT riff_WriteChunkHeader(HANDLE file, DWORD id, DWORD size)
{
    DWORD hdr[2] = {id, size};
    return FileIO{file}.write(hdr, 8) ? S_OK : ZVERR_FILE_WRITE;
}

HRESULT riff_WriteChunk(HANDLE file, DWORD id, const void *data, DWORD size, DWORD *written)
{
    FileIO io{file};
    if (written)
        *written = 0;
    if (!data && size)
        return E_INVALIDARG;
    HRESULT hr = riff_WriteChunkHeader(file, id, size);
    if (FAILED(hr))
        return hr;
    if (size && !io.write(data, size))
        return ZVERR_FILE_WRITE;
    if (size & 1) {
        BYTE pad = 0;
        if (!io.write(&pad, 1))
            return ZVERR_FILE_WRITE;
    }
    if (written)
        *written = 8 + size + (size & 1);
    return S_OK;
}

HRESULT riff_WriteListHeader(HANDLE file, DWORD listType, DWORD size)
{
    DWORD hdr[3] = {ZVRIFF_LIST, size, listType};
    return FileIO{file}.write(hdr, 12) ? S_OK : ZVERR_FILE_WRITE;
}

HRESULT riff_ReadChunkHeader(HANDLE file, DWORD *id, DWORD *size)
{
    return RiffReadChunkHeader(FileIO{file}, id, size);
}

HRESULT riff_ReadListHeader(HANDLE file, DWORD *listType, DWORD *size)
{
    return RiffReadListHeader(FileIO{file}, listType, size);
}

HRESULT riff_FindChunkHeader(HANDLE file, DWORD id, DWORD *size, DWORD *remaining)
{
    return RiffFindChunk(FileIO{file}, id, size, remaining);
}

HRESULT riff_FindChunkHeaderInRIFF(HANDLE file, DWORD id, DWORD *size, DWORD *remaining)
{
    return RiffFindChunkInRIFF(FileIO{file}, id, size, remaining);
}

HRESULT riff_FindListChunk(HANDLE file, DWORD listType, DWORD *size, DWORD *remaining)
{
    return RiffFindList(FileIO{file}, listType, size, remaining);
}

HRESULT riff_FindListChunkFromStart(HANDLE file, DWORD listType, DWORD *size)
{
    return RiffFindListFromStart(FileIO{file}, listType, size);
}

HRESULT riff_GetNumListEntries(HANDLE file, DWORD *count, DWORD *remaining)
{
    return RiffCountEntries(FileIO{file}, count, remaining);
}

HRESULT riff_SeekListEntry(HANDLE file, DWORD index, DWORD *remaining)
{
    return RiffSeekEntry(FileIO{file}, index, remaining);
}

HRESULT riff_DeleteChunk(HANDLE file, DWORD id, DWORD *removedSize, BOOL isList)
{
    if (removedSize)
        *removedSize = 0;
    SeekAbs(file, 0);
    DWORD counter = 0;
    HRESULT hr = riff_ReadFileID(file, &counter, nullptr);
    if (FAILED(hr))
        return hr;
    DWORD size = 0;
    hr = isList ? riff_FindListChunk(file, id, &size, &counter) : riff_FindChunkHeader(file, id, &size, &counter);
    if (FAILED(hr))
        return hr;
    ULONGLONG removed = RiffPadded(size) + (isList ? 12 : 8);
    ULONGLONG dst = FileIO{file}.tell() - (isList ? 12 : 8);
    BYTE buf[4096];
    hr = MoveTailDown(file, dst, dst + removed, buf, sizeof buf);
    if (FAILED(hr))
        return hr;
    FileIO{file}.truncateHere();
    if (removedSize)
        *removedSize = (DWORD)removed;
    return riff_UpdateRIFFSize(file, -(LONGLONG)removed);
}

HRESULT riff_InsertChunk(HANDLE file, DWORD id, const void *data, DWORD size, DWORD *written)
{
    FileIO io{file};
    if (written)
        *written = 0;
    if (!data && size)
        return E_INVALIDARG;
    ULONGLONG pos = io.tell();
    ULONGLONG added = 8 + RiffPadded(size);
    DWORD stored = 0;
    io.seek(4, FILE_BEGIN);
    bool ok = io.read(&stored, 4);
    io.seek((LONGLONG)pos, FILE_BEGIN);
    if (!ok)
        return ZVERR_FILE_READ;
    if (pos < 12 || pos > (ULONGLONG)stored + 8)
        return E_INVALIDARG;
    // Checked before anything moves, so a refused insertion changes nothing.
    if ((ULONGLONG)stored + added > ZVRIFF_MAX_SIZE)
        return ZVERR_SIZE_LIMIT;
    BYTE buf[4096];
    HRESULT hr = MoveTailUp(file, pos, added, buf, sizeof buf);
    if (FAILED(hr))
        return hr;
    io.seek((LONGLONG)pos, FILE_BEGIN);
    hr = riff_WriteChunk(file, id, data, size, written);
    if (FAILED(hr))
        return hr;
    return riff_UpdateRIFFSize(file, (LONGLONG)added);
}

HRESULT riff_WriteANSIString(HANDLE file, const wchar_t *text, DWORD *written)
{
    if (written)
        *written = 0;
    if (!text)
        return E_INVALIDARG;
    int n = WideCharToMultiByte(CP_ACP, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (n <= 0)
        return E_INVALIDARG;
    char *bytes = (char *)HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, (SIZE_T)n + 1);
    if (!bytes)
        return E_OUTOFMEMORY;
    WideCharToMultiByte(CP_ACP, 0, text, -1, bytes, n, nullptr, nullptr);
    DWORD count = (DWORD)n + ((DWORD)n & 1);
    bool ok = FileIO{file}.write(bytes, count);
    HeapFree(GetProcessHeap(), 0, bytes);
    if (!ok)
        return ZVERR_FILE_WRITE;
    if (written)
        *written = count;
    return S_OK;
}

HRESULT riff_ReadANSIString(HANDLE file, wchar_t *buffer, DWORD capacity, DWORD *size)
{
    return RiffReadANSIString(FileIO{file}, buffer, capacity, size);
}

HRESULT riff_ReadRIFFCDDA(HANDLE file, void *fmt24)
{
    if (!fmt24)
        return E_INVALIDARG;
    DWORD counter = 0, form = 0;
    HRESULT hr = riff_ReadFileID(file, &counter, &form);
    if (FAILED(hr))
        return hr;
    if (form != ZVRIFF_CDDA)
        return ZVERR_MALFORMED;
    DWORD size = 0;
    hr = riff_FindChunkHeader(file, ZVRIFF_FMT, &size, &counter);
    if (FAILED(hr))
        return hr;
    if (size != 24)
        return ZVERR_WRONG_CHUNK_SIZE;
    return riff_ReadData(file, fmt24, 24);
}

HRESULT riff_ReadCDAFile(const wchar_t *path, DWORD *track, DWORD *startSector, DWORD *startFrame,
                         DWORD *sectorCount, DWORD *serial)
{
    BYTE fmt[24] = {};
    HRESULT hr = ZVERR_FILE_OPEN;
    HANDLE h = path ? CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_SEQUENTIAL_SCAN, nullptr)
                    : INVALID_HANDLE_VALUE;
    if (h != INVALID_HANDLE_VALUE) {
        hr = riff_ReadRIFFCDDA(h, fmt);
        CloseHandle(h);
    }
    // Layout: version, track (u16 each), serial, start sector, sector count
    // (u32 each), start as frame/second/minute/0, length in the same form.
    if (track)
        *track = fmt[2] | (fmt[3] << 8);
    if (serial)
        *serial = LoadLE32(fmt + 4);
    if (startSector)
        *startSector = LoadLE32(fmt + 8);
    if (sectorCount)
        *sectorCount = LoadLE32(fmt + 12);
    if (startFrame)
        *startFrame = ((DWORD)fmt[17] + (DWORD)fmt[18] * 60) * 75 + fmt[16];
    return hr;
}
