// IFF chunk layer (AIFF and AIFC) on Win32 file handles.
#include "media/iff.h"
#include "media/chunkio.h"

using namespace zvmedia;

namespace {

inline DWORD Swap32(DWORD v)
{
    return (v >> 24) | ((v >> 8) & 0xFF00) | ((v << 8) & 0xFF0000) | (v << 24);
}

inline ULONGLONG Padded(DWORD size) { return (ULONGLONG)size + (size & 1); }

void Rewind(HANDLE file) { FileIO{file}.seek(0, FILE_BEGIN); }

} // namespace

void iff_ByteSwap16(void *buffer, DWORD count)
{
    BYTE *p = (BYTE *)buffer;
    for (DWORD i = 0; p && i < count; i++, p += 2) {
        BYTE t = p[0];
        p[0] = p[1];
        p[1] = t;
    }
}

void iff_ByteSwap32(void *buffer, DWORD count)
{
    BYTE *p = (BYTE *)buffer;
    for (DWORD i = 0; p && i < count; i++, p += 4)
        StoreBE32(p, LoadLE32(p));
}

void aiff_WriteByteSwap16(void *buffer, DWORD count)
{
    iff_ByteSwap16(buffer, count);
}

void aiff_WriteByteSwap32(void *buffer, DWORD count)
{
    iff_ByteSwap32(buffer, count);
}

HRESULT iff_ReadChunkHdr(HANDLE file, tZVIFFCHUNKHDR *header)
{
    BYTE b[8];
    if (!FileIO{file}.read(b, 8))
        return ZVERR_FILE_READ;
    if (header) {
        header->id = LoadBE32(b);
        header->size = LoadBE32(b + 4);
    }
    return S_OK;
}

HRESULT iff_ReadDWORD(HANDLE file, DWORD *value)
{
    BYTE b[4];
    if (!FileIO{file}.read(b, 4))
        return ZVERR_FILE_READ;
    if (value)
        *value = LoadBE32(b);
    return S_OK;
}

HRESULT iff_ReadWORD(HANDLE file, WORD *value)
{
    BYTE b[2];
    if (!FileIO{file}.read(b, 2))
        return ZVERR_FILE_READ;
    if (value)
        *value = LoadBE16(b);
    return S_OK;
}

HRESULT iff_WriteDWORD(HANDLE file, DWORD value)
{
    BYTE b[4];
    StoreBE32(b, value);
    return FileIO{file}.write(b, 4) ? S_OK : ZVERR_FILE_WRITE;
}

HRESULT iff_WriteWORD(HANDLE file, WORD value)
{
    BYTE b[2];
    StoreBE16(b, value);
    return FileIO{file}.write(b, 2) ? S_OK : ZVERR_FILE_WRITE;
}

HRESULT iff_WriteChunk(HANDLE file, const tZVIFFCHUNKHDR *header)
{
    if (!header)
        return E_INVALIDARG;
    BYTE b[8];
    StoreBE32(b, header->id);
    StoreBE32(b + 4, header->size);
    return FileIO{file}.write(b, 8) ? S_OK : ZVERR_FILE_WRITE;
}

HRESULT iff_WriteFileID(HANDLE file, DWORD formType, DWORD size)
{
    BYTE b[12];
    StoreBE32(b, ZVIFF_FORM);
    StoreBE32(b + 4, size);
    StoreBE32(b + 8, formType);
    return FileIO{file}.write(b, 12) ? S_OK : ZVERR_FILE_WRITE;
}

HRESULT iff_ReadFormType(HANDLE file, tZVIFFCHUNKHDR *header, DWORD *formType)
{
    tZVIFFCHUNKHDR h = {};
    HRESULT hr = iff_ReadChunkHdr(file, &h);
    if (header)
        *header = h;
    if (FAILED(hr))
        return hr;
    if (h.id != ZVIFF_FORM)
        return ZVERR_MALFORMED;
    return iff_ReadDWORD(file, formType);
}

DWORD iff_SkipChunk(HANDLE file, DWORD size)
{
    ULONGLONG d = Padded(size);
    FileIO{file}.seek((LONGLONG)d, FILE_CURRENT);
    return (DWORD)d;
}

HRESULT iff_FindChunkHeader(HANDLE file, DWORD id, DWORD *size, DWORD *remaining)
{
    for (;;) {
        if (remaining && *remaining < 8)
            return ZVERR_NOT_FOUND;
        tZVIFFCHUNKHDR h;
        HRESULT hr = iff_ReadChunkHdr(file, &h);
        if (FAILED(hr))
            return hr;
        if (remaining)
            *remaining -= 8;
        if (h.id == id) {
            if (size)
                *size = h.size;
            return S_OK;
        }
        ULONGLONG skip = Padded(h.size);
        FileIO{file}.seek((LONGLONG)skip, FILE_CURRENT);
        if (remaining)
            *remaining = skip > *remaining ? 0 : (DWORD)(*remaining - skip);
    }
}

HRESULT iff_SeekChunkHeader(HANDLE file, DWORD id, DWORD *size)
{
    return iff_FindChunkHeader(file, id, size, nullptr);
}

HRESULT iff_FindChunkFromStart(HANDLE file, DWORD id, DWORD *size)
{
    Rewind(file);
    tZVIFFCHUNKHDR h;
    if (FAILED(iff_ReadChunkHdr(file, &h)) || h.id != ZVIFF_FORM)
        return ZVERR_NO_RIFF_HEADER;
    if (FAILED(iff_ReadDWORD(file, nullptr)))
        return ZVERR_NOT_FOUND;
    DWORD counter = h.size < 4 ? 0 : h.size - 4;
    return FAILED(iff_FindChunkHeader(file, id, size, &counter)) ? ZVERR_NOT_FOUND : S_OK;
}

HRESULT iff_FindMarker(HANDLE file, tZVIFFMARKER *marker, WORD id)
{
    HRESULT hr = iff_FindChunkFromStart(file, ZVIFF_MARK, nullptr);
    if (FAILED(hr))
        return hr;
    WORD count = 0;
    hr = iff_ReadWORD(file, &count);
    if (FAILED(hr))
        return hr;
    FileIO io{file};
    for (WORD i = 0; i < count; i++) {
        BYTE rec[7];
        if (!io.read(rec, 7))
            return ZVERR_NO_RIFF_HEADER;
        tZVIFFMARKER m;
        m.id = LoadBE16(rec);
        m.position = LoadBE32(rec + 2);
        m.nameLength = rec[6];
        if (m.id == id) {
            if (marker)
                *marker = m;
            return S_OK;
        }
        // Length byte and name together fill an even count.
        io.seek(m.nameLength + ((m.nameLength & 1) ? 0 : 1), FILE_CURRENT);
    }
    return ZVERR_NOT_FOUND;
}

HRESULT iff_DeleteChunk(HANDLE file, DWORD id, DWORD *removedSize)
{
    if (removedSize)
        *removedSize = 0;
    if (!iff_IsAIFFFile(file, nullptr))
        return ZVERR_MALFORMED;
    DWORD size = 0;
    HRESULT hr = iff_FindChunkFromStart(file, id, &size);
    if (FAILED(hr))
        return hr;
    FileIO io{file};
    ULONGLONG removed = Padded(size) + 8;
    ULONGLONG dst = io.tell() - 8;
    BYTE *buf = (BYTE *)HeapAlloc(GetProcessHeap(), 0, 4096);
    if (!buf)
        return E_OUTOFMEMORY;
    hr = MoveTailDown(file, dst, dst + removed, buf, 4096);
    HeapFree(GetProcessHeap(), 0, buf);
    if (FAILED(hr))
        return hr;
    io.truncateHere();
    if (removedSize)
        *removedSize = (DWORD)removed;
    // The FORM size is big-endian and has no limit to keep.
    DWORD stored = 0;
    io.seek(4, FILE_BEGIN);
    hr = iff_ReadDWORD(file, &stored);
    if (SUCCEEDED(hr)) {
        io.seek(4, FILE_BEGIN);
        hr = iff_WriteDWORD(file, stored - (DWORD)removed);
    }
    io.seek(0, FILE_END);
    return hr;
}

BOOL iff_IsAIFFFile(HANDLE file, DWORD *size)
{
    return iff_IsAIFFFileEx(file, size, nullptr, nullptr);
}

BOOL iff_IsAIFFFileEx(HANDLE file, DWORD *size, BOOL *isAIFC, BOOL *littleEndian)
{
    if (isAIFC)
        *isAIFC = FALSE;
    if (littleEndian)
        *littleEndian = FALSE;
    FileIO io{file};
    ULONGLONG saved = io.tell();
    Rewind(file);
    tZVIFFCHUNKHDR h;
    DWORD form = 0;
    if (FAILED(iff_ReadFormType(file, &h, &form)))
        return FALSE;
    if (size)
        *size = h.size;
    if (form == ZVIFF_AIFF)
        return TRUE;
    if (form != ZVIFF_AIFC)
        return FALSE;
    if (isAIFC)
        *isAIFC = TRUE;
    BOOL result = FALSE;
    DWORD counter = h.size < 4 ? 0 : h.size - 4;
    BYTE comm[22];
    if (SUCCEEDED(iff_FindChunkHeader(file, ZVIFF_COMM, nullptr, &counter)) && io.read(comm, 22)) {
        DWORD compression = LoadBE32(comm + 18);
        if (compression == ZVIFF_NONE) {
            result = TRUE;
        } else if (compression == ZVIFF_SOWT) {
            result = TRUE;
            if (littleEndian)
                *littleEndian = TRUE;
        }
    }
    io.seek((LONGLONG)saved, FILE_BEGIN);
    return result;
}

HRESULT iff_GetAIFFWfx(HANDLE file, WAVEFORMATEX *format, DWORD *frames, DWORD *dataOffset)
{
    DWORD formSize = 0;
    BOOL aifc = FALSE, little = FALSE;
    if (!iff_IsAIFFFileEx(file, &formSize, &aifc, &little))
        return ZVERR_MALFORMED;
    FileIO io{file};
    io.seek(12, FILE_BEGIN);
    DWORD counter = formSize < 4 ? 0 : formSize - 4;
    HRESULT hr = iff_FindChunkHeader(file, ZVIFF_COMM, nullptr, &counter);
    if (FAILED(hr))
        return hr;
    BYTE comm[22];
    if (!io.read(comm, aifc ? 22 : 18))
        return ZVERR_FILE_READ;
    WORD channels = LoadBE16(comm);
    DWORD commFrames = LoadBE32(comm + 2);
    WORD bits = LoadBE16(comm + 6);
    WORD mantissa[4] = {LoadBE16(comm + 10), LoadBE16(comm + 12), LoadBE16(comm + 14), LoadBE16(comm + 16)};
    DWORD rate = aiff_ConvertRate(LoadBE16(comm + 8), mantissa);

    WAVEFORMATEX wfx = {};
    wfx.wFormatTag = bits == 8 ? ZV_WAVE_FORMAT_SIGNED : little ? WAVE_FORMAT_PCM : ZV_WAVE_FORMAT_BIGENDIAN;
    wfx.nChannels = channels;
    wfx.nSamplesPerSec = rate;
    wfx.wBitsPerSample = bits;
    WORD align = (WORD)((bits / 8) * channels);
    wfx.nBlockAlign = align ? align : 1;
    wfx.nAvgBytesPerSec = (bits / 8) * channels * rate;
    wfx.cbSize = 0;

    io.seek(12, FILE_BEGIN);
    counter = formSize < 4 ? 0 : formSize - 4;
    DWORD ssndSize = 0, offset = 0, blockSize = 0;
    hr = iff_FindChunkHeader(file, ZVIFF_SSND, &ssndSize, &counter);
    if (SUCCEEDED(hr))
        hr = iff_ReadDWORD(file, &offset);
    if (SUCCEEDED(hr))
        hr = iff_ReadDWORD(file, &blockSize);
    if (FAILED(hr))
        return hr;
    DWORD dataSize = ssndSize - 8;
    if (offset)
        dataSize -= offset;
    DWORD byData = dataSize / wfx.nBlockAlign;
    if (format)
        *format = wfx;
    if (frames)
        *frames = byData < commFrames ? byData : commFrames;
    if (dataOffset)
        *dataOffset = (DWORD)io.tell() + offset;
    return S_OK;
}

DWORD aiff_ConvertRate(WORD exponent, const WORD *mantissa)
{
    if (!mantissa || (exponent & 0x8000))
        return 44100;
    int e = (int)(exponent & 0x7FFF) - 16383;
    double m = (mantissa[0] & 0x7FFF) + (mantissa[1] + (mantissa[2] + mantissa[3] / 65536.0) / 65536.0) / 65536.0;
    m /= 32768.0;
    if (mantissa[0] & 0x8000)
        m += 1.0;
    // Stops above 96 kHz, so a huge exponent cannot overflow.
    for (int i = 0; i < e && m <= 96000.0; i++)
        m *= 2.0;
    return (DWORD)m;
}

void aiff_CreateRate(DWORD rate, WORD *exponent, WORD *mantissa)
{
    double v = (double)rate;
    int e = 0;
    while (v >= 2.0) {
        v /= 2.0;
        e++;
    }
    if (exponent)
        *exponent = (WORD)(e + 16383);
    if (!mantissa)
        return;
    WORD top = 0;
    if (v >= 1.0) {
        v -= 1.0;
        top = 0x8000;
    }
    v *= 32768.0;
    mantissa[0] = (WORD)(top | (WORD)v);
    v -= (WORD)v;
    for (int i = 1; i < 4; i++) {
        v *= 65536.0;
        mantissa[i] = (WORD)v;
        v -= mantissa[i];
    }
}
