// bext and iXML chunks of RIFF wave files at chunk level.
#include "bwf.h"
#include "riff.h"
#include "chunkio.h"

using zvmedia::FileIO;

namespace {

const DWORD kIds[2] = {ZVRIFF_ID('b', 'e', 'x', 't'), ZVRIFF_ID('i', 'X', 'M', 'L')};

HRESULT WriteZeros(const FileIO &io, DWORD n)
{
    BYTE zeros[4096] = {};
    while (n) {
        DWORD step = n < sizeof zeros ? n : (DWORD)sizeof zeros;
        if (!io.write(zeros, step))
            return ZVERR_FILE_WRITE;
        n -= step;
    }
    return S_OK;
}

} // namespace

DWORD bwf_ChunkId(int which)
{
    return which == 0 || which == 1 ? kIds[which] : 0;
}

HRESULT ReadFilePropsFromFormatChunk(HANDLE file, DWORD *rate, DWORD *bits, DWORD *channels)
{
    if (!rate || !bits || !channels)
        return E_INVALIDARG;
    *rate = *bits = *channels = 0;
    DWORD size = 0, remaining = 0;
    HRESULT hr = riff_FindChunkHeaderInRIFF(file, ZVRIFF_FMT, &size, &remaining);
    if (FAILED(hr))
        return hr;
    if (size < 16)
        return ZVERR_MALFORMED;
    BYTE f[16];
    if (!FileIO{file}.read(f, 16))
        return ZVERR_FILE_READ;
    *channels = f[2] | f[3] << 8;
    *rate = zvmedia::LoadLE32(f + 4);
    *bits = f[14] | f[15] << 8;
    return S_OK;
}

HRESULT bwfriff_UpdateStreamChunk(int which, HANDLE file, const void *data, DWORD size, DWORD *written)
{
    if (written)
        *written = 0;
    if (which < 0 || which > 1 || (!data && size))
        return E_INVALIDARG;
    FileIO io{file};
    DWORD rate, bits, channels;
    HRESULT hr = ReadFilePropsFromFormatChunk(file, &rate, &bits, &channels);
    if (FAILED(hr))
        return hr;
    DWORD bodySize = 0, form = 0;
    if (!io.seek(0, FILE_BEGIN))
        return ZVERR_FILE_READ;
    if (FAILED(hr = riff_ReadFileID(file, &bodySize, &form)))
        return hr;
    DWORD oldSize = 0, remaining = 0;
    hr = riff_FindChunkHeaderInRIFF(file, kIds[which], &oldSize, &remaining);
    if (FAILED(hr) && hr != ZVERR_NOT_FOUND)
        return hr;
    bool found = SUCCEEDED(hr);
    ULONGLONG oldAt = found ? io.tell() - 8 : 0;
    if (found && oldSize >= size) {
        if (!io.write(data, size))
            return ZVERR_FILE_WRITE;
        return WriteZeros(io, oldSize - size);
    }

    DWORD padded = size + (size & 1);
    if (padded < size || (ULONGLONG)bodySize + 4 + 8 + padded > ZVRIFF_MAX_SIZE)
        return ZVERR_SIZE_LIMIT;
    ULONGLONG end = 12ull + bodySize;
    end += end & 1;
    if (!io.seek((LONGLONG)end, FILE_BEGIN))
        return ZVERR_FILE_WRITE;
    BYTE header[8];
    zvmedia::StoreLE32(header, kIds[which]);
    zvmedia::StoreLE32(header + 4, padded);
    if (!io.write(header, 8) || !io.write(data, size) || FAILED(WriteZeros(io, padded - size)))
        return ZVERR_FILE_WRITE;
    if (FAILED(hr = riff_SetRIFFSize(file, (DWORD)(end - 8 + 8 + padded))))
        return hr;
    if (written)
        *written = 8 + padded;
    if (found) {
        BYTE junk[4];
        zvmedia::StoreLE32(junk, ZVRIFF_JUNK);
        if (!io.seek((LONGLONG)oldAt, FILE_BEGIN) || !io.write(junk, 4))
            return ZVERR_FILE_WRITE;
    }
    return S_OK;
}

HRESULT bwfriff_DeleteChunk(int which, HANDLE file, DWORD *removed)
{
    if (which < 0 || which > 1)
        return S_OK;
    DWORD gone = 0;
    HRESULT hr = riff_DeleteChunk(file, kIds[which], &gone, FALSE);
    if (hr == ZVERR_NOT_FOUND)
        return S_OK;
    if (SUCCEEDED(hr) && removed)
        *removed += gone;
    return hr;
}

HRESULT bwfriff_DeleteAllChunks(HANDLE file, DWORD *removed)
{
    HRESULT hr = bwfriff_DeleteChunk(BWF_CHUNK_BEXT, file, removed);
    return FAILED(hr) ? hr : bwfriff_DeleteChunk(BWF_CHUNK_IXML, file, removed);
}
