// RIFF chunk layer on a memory image.
#include "media/mriff.h"
#include "media/riffalgo.h"

using namespace zvmedia;

namespace {

HRESULT WriteDwords(_tMRIFF *mr, const DWORD *v, int n)
{
    if (!mr)
        return E_POINTER;
    MemIO io{mr};
    for (int i = 0; i < n; i++)
        if (!io.write(&v[i], 4))
            return ZVERR_FILE_WRITE;
    return S_OK;
}

} // namespace

#define MR_CHECK(mr) \
    if (!(mr))       \
    return E_POINTER

HRESULT mriff_Init(_tMRIFF *mr, void *buffer, DWORD dataSize, DWORD capacity)
{
    MR_CHECK(mr);
    if (dataSize > capacity || (!buffer && capacity))
        return E_INVALIDARG;
    mr->start = mr->cursor = (BYTE *)buffer;
    mr->dataEnd = mr->start + dataSize;
    mr->capacityEnd = mr->start + capacity;
    mr->dataSize = dataSize;
    mr->capacity = capacity;
    return S_OK;
}

DWORD mriff_GetFilePointer(_tMRIFF *mr)
{
    return mr ? (DWORD)(mr->cursor - mr->start) : 0;
}

DWORD mriff_SetFilePointer(_tMRIFF *mr, LONG distanceLow, LONG *distanceHigh, DWORD method)
{
    LONGLONG d = distanceHigh ? (LONGLONG)(((ULONGLONG)(DWORD)*distanceHigh << 32) | (DWORD)distanceLow)
                              : (LONGLONG)distanceLow;
    return mriff_ZvSetFilePointer(mr, d, method);
}

DWORD mriff_ZvSetFilePointer(_tMRIFF *mr, LONGLONG distance, DWORD method)
{
    if (!mr)
        return 0;
    MemIO{mr}.seek(distance, method);
    return mriff_GetFilePointer(mr);
}

BOOL mriff_ReadFile(_tMRIFF *mr, void *buffer, DWORD count, DWORD *read)
{
    if (read)
        *read = 0;
    if (!mr || (!buffer && count))
        return FALSE;
    BYTE *before = mr->cursor;
    bool ok = MemIO{mr}.read(buffer, count);
    if (read)
        *read = (DWORD)(mr->cursor - before);
    return ok;
}

BOOL mriff_WriteFile(_tMRIFF *mr, const void *buffer, DWORD count, DWORD *written)
{
    if (written)
        *written = 0;
    if (!mr || (!buffer && count))
        return TRUE;
    BYTE *before = mr->cursor;
    MemIO{mr}.write(buffer, count);
    if (written)
        *written = (DWORD)(mr->cursor - before);
    return TRUE;
}

LONG mriff_UpdateDataSize(_tMRIFF *mr, LONG delta)
{
    if (!mr)
        return delta;
    LONGLONG end = (LONGLONG)(mr->dataEnd - mr->start) + delta;
    LONGLONG cap = (LONGLONG)(mr->capacityEnd - mr->start);
    end = end < 0 ? 0 : end > cap ? cap : end;
    mr->dataEnd = mr->start + end;
    if (mr->cursor > mr->dataEnd)
        mr->cursor = mr->dataEnd;
    mr->dataSize += (DWORD)delta;
    return delta;
}

HRESULT mriff_WriteChunkHeader(_tMRIFF *mr, DWORD id, DWORD size)
{
    const DWORD v[2] = {id, size};
    return WriteDwords(mr, v, 2);
}

HRESULT mriff_WriteListHeader(_tMRIFF *mr, DWORD listType, DWORD size)
{
    const DWORD v[3] = {ZVRIFF_LIST, size, listType};
    return WriteDwords(mr, v, 3);
}

HRESULT mriff_WriteFileID(_tMRIFF *mr, DWORD formType, DWORD size)
{
    const DWORD v[3] = {ZVRIFF_RIFF, size, formType};
    return WriteDwords(mr, v, 3);
}

HRESULT mriff_SaveLocation(_tMRIFF *mr, DWORD *position)
{
    MR_CHECK(mr);
    if (position)
        *position = mriff_GetFilePointer(mr);
    return S_OK;
}

HRESULT mriff_RestoreLocation(_tMRIFF *mr, DWORD position)
{
    MR_CHECK(mr);
    MemIO{mr}.seek(position, FILE_BEGIN);
    return S_OK;
}

DWORD mriff_SkipChunk(_tMRIFF *mr, DWORD size)
{
    return mr ? RiffSkip(MemIO{mr}, size) : 0;
}

HRESULT mriff_SeekDataStart(_tMRIFF *mr)
{
    return mriff_RestoreLocation(mr, 12);
}

HRESULT mriff_ReadData(_tMRIFF *mr, void *buffer, DWORD count)
{
    MR_CHECK(mr);
    return RiffReadData(MemIO{mr}, buffer, count);
}

HRESULT mriff_ReadDataBounded(_tMRIFF *mr, void *buffer, DWORD size, DWORD limit)
{
    MR_CHECK(mr);
    return RiffReadDataBounded(MemIO{mr}, buffer, size, limit);
}

HRESULT mriff_ReadDataAlloc(_tMRIFF *mr, tZVRIFFBLOCK *block)
{
    MR_CHECK(mr);
    return RiffReadDataAlloc(MemIO{mr}, block);
}

HRESULT mriff_ReadChunkHeader(_tMRIFF *mr, DWORD *id, DWORD *size)
{
    MR_CHECK(mr);
    return RiffReadChunkHeader(MemIO{mr}, id, size);
}

HRESULT mriff_ReadListHeader(_tMRIFF *mr, DWORD *listType, DWORD *size)
{
    MR_CHECK(mr);
    return RiffReadListHeader(MemIO{mr}, listType, size);
}

HRESULT mriff_ReadFileID(_tMRIFF *mr, DWORD *size, DWORD *formType)
{
    MR_CHECK(mr);
    return RiffReadFileID(MemIO{mr}, size, formType);
}

HRESULT mriff_FindChunkHeader(_tMRIFF *mr, DWORD id, DWORD *size, DWORD *remaining)
{
    MR_CHECK(mr);
    return RiffFindChunk(MemIO{mr}, id, size, remaining);
}

HRESULT mriff_FindChunkHeaderInRIFF(_tMRIFF *mr, DWORD id, DWORD *size, DWORD *remaining)
{
    MR_CHECK(mr);
    return RiffFindChunkInRIFF(MemIO{mr}, id, size, remaining);
}

HRESULT mriff_FindListChunk(_tMRIFF *mr, DWORD listType, DWORD *size, DWORD *remaining)
{
    MR_CHECK(mr);
    return RiffFindList(MemIO{mr}, listType, size, remaining);
}

HRESULT mriff_FindListChunkFromStart(_tMRIFF *mr, DWORD listType, DWORD *size)
{
    MR_CHECK(mr);
    return RiffFindListFromStart(MemIO{mr}, listType, size);
}

HRESULT mriff_GetNumListEntries(_tMRIFF *mr, DWORD *count, DWORD *remaining)
{
    MR_CHECK(mr);
    return RiffCountEntries(MemIO{mr}, count, remaining);
}

HRESULT mriff_GetInfoString(_tMRIFF *mr, DWORD id, char *buffer, DWORD capacity, DWORD *size)
{
    MR_CHECK(mr);
    if (size)
        *size = 0;
    if (!buffer && capacity)
        return E_INVALIDARG;
    MemIO io{mr};
    BYTE *saved = mr->cursor;
    DWORD listSize = 0, entrySize = 0;
    HRESULT hr = RiffFindListFromStart(io, ZVRIFF_INFO, &listSize);
    if (SUCCEEDED(hr))
        hr = RiffFindChunk(io, id, &entrySize, &listSize);
    if (SUCCEEDED(hr)) {
        DWORD n = entrySize < capacity ? entrySize : capacity;
        DWORD got = 0;
        mriff_ReadFile(mr, buffer, n, &got);
        if (size)
            *size = got;
        if (got < n)
            hr = ZVERR_FILE_READ;
    }
    mr->cursor = saved;
    return hr;
}
