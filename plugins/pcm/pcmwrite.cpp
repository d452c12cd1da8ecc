// Header writers of the PCM renderers; see pcmwrite.h.
#include "pcmwrite.h"
#include "media/riff.h"
#include "media/riff64.h"
#include "media/iff.h"
#include <string.h>

namespace {

HRESULT WriteAll(HANDLE file, const void *data, DWORD size)
{
    DWORD put = 0;
    if (!WriteFile(file, data, size, &put, NULL) || put != size)
        return ZVERR_FILE_WRITE;
    return S_OK;
}

bool SeekTo(HANDLE file, ULONGLONG at)
{
    LARGE_INTEGER to;
    to.QuadPart = (LONGLONG)at;
    return SetFilePointerEx(file, to, NULL, FILE_BEGIN) != 0;
}

HRESULT WriteAt(HANDLE file, ULONGLONG at, const void *data, DWORD size)
{
    return SeekTo(file, at) ? WriteAll(file, data, size) : ZVERR_FILE_WRITE;
}

void StoreBE32(BYTE *p, DWORD v)
{
    p[0] = (BYTE)(v >> 24);
    p[1] = (BYTE)(v >> 16);
    p[2] = (BYTE)(v >> 8);
    p[3] = (BYTE)v;
}

// The format record of a wave file: extensible above two channels or 16
// bits, the 16-byte plain form otherwise. Wave64 readers expect the plain
// form throughout (tag 3 for float), and some misread an extensible one.
HRESULT WaveRecord(const _zvwaveformat &format, bool allowExtensible, WAVEFORMATEXTENSIBLE *wfe, DWORD *size)
{
    bool extensible =
        allowExtensible && (format.channels > 2 || ZvAudio_BitsFromSampleType(format.sampleType) > 16);
    if (!format.ToWfx(&wfe->Format, sizeof *wfe, extensible ? ZVWFX_COPY_EXTENSIBLE : ZVWFX_COPY_PLAIN))
        return ZVERR_UNSUPPORTED_MEDIA;
    *size = extensible ? (DWORD)sizeof *wfe : 16;
    return S_OK;
}

HRESULT WaveHeader(HANDLE file, const _zvwaveformat &format, PcmWriteLayout *l)
{
    WAVEFORMATEXTENSIBLE wfe;
    DWORD fmtSize = 0, written = 0;
    HRESULT hr = WaveRecord(format, true, &wfe, &fmtSize);
    if (SUCCEEDED(hr))
        hr = riff_WriteFileID(file, ZVRIFF_WAVE, 4 + 8 + fmtSize + 8);
    if (SUCCEEDED(hr))
        hr = riff_WriteChunk(file, ZVRIFF_FMT, &wfe, fmtSize, &written);
    if (SUCCEEDED(hr))
        hr = riff_WriteChunkHeader(file, ZVRIFF_DATA, 0);
    l->dataOffset = 12 + written + 8;
    // The RIFF size must still fit 32 bits with the pad byte and header.
    l->maxData = ZVRIFF_MAX_SIZE + 8ull - 1 - l->dataOffset;
    return hr;
}

HRESULT Wave64Header(HANDLE file, const _zvwaveformat &format, PcmWriteLayout *l)
{
    WAVEFORMATEXTENSIBLE wfe;
    DWORD fmtSize = 0;
    ULONGLONG written = 0;
    HRESULT hr = WaveRecord(format, false, &wfe, &fmtSize);
    if (SUCCEEDED(hr))
        hr = riff64_WriteFileID(file, ZVW64_WAVE, 0);
    if (SUCCEEDED(hr))
        hr = riff64_WriteChunk(file, ZVW64_FMT, &wfe, fmtSize, &written);
    if (SUCCEEDED(hr))
        hr = riff64_WriteChunkHeader(file, ZVW64_DATA, 0);
    l->dataOffset = 40 + written + 24;
    l->maxData = 1ull << 62;
    return hr;
}

// FORM, for AIFC a FVER, COMM with a zero frame count, SSND with offset and
// block size 0. AIFC names its coding in COMM: NONE or fl32.
HRESULT AiffHeader(HANDLE file, const _zvwaveformat &format, PcmWriteLayout *l)
{
    bool isFloat = format.sampleType == ZVSAMPLE_F32;
    if (isFloat)
        l->aifc = true;
    static const char kNone[] = "\x0Enot compressed\0", kFloat[] = "\x15" "32-bit floating point";
    const char *name = isFloat ? kFloat : kNone;
    DWORD nameSize = ((DWORD)(BYTE)name[0] + 2) & ~1u;   // count byte, text, pad to even
    DWORD commSize = l->aifc ? 22 + nameSize : 18;
    DWORD head = 12 + (l->aifc ? 12 : 0) + 8 + commSize + 16;
    HRESULT hr = iff_WriteFileID(file, l->aifc ? ZVIFF_AIFC : ZVIFF_AIFF, head - 8);
    if (SUCCEEDED(hr) && l->aifc) {
        tZVIFFCHUNKHDR fver = {ZVIFF_ID('F', 'V', 'E', 'R'), 4};
        hr = iff_WriteChunk(file, &fver);
        if (SUCCEEDED(hr))
            hr = iff_WriteDWORD(file, 0xA2805140);   // the AIFC version 1 stamp
    }
    BYTE comm[64] = {};
    comm[0] = (BYTE)(format.channels >> 8);
    comm[1] = (BYTE)format.channels;
    WORD bits = (WORD)ZvAudio_BitsFromSampleType(format.sampleType);
    comm[6] = (BYTE)(bits >> 8);
    comm[7] = (BYTE)bits;
    WORD exponent, mantissa[4];
    aiff_CreateRate(format.samplesPerSec, &exponent, mantissa);
    comm[8] = (BYTE)(exponent >> 8);
    comm[9] = (BYTE)exponent;
    for (int i = 0; i < 4; i++) {
        comm[10 + 2 * i] = (BYTE)(mantissa[i] >> 8);
        comm[11 + 2 * i] = (BYTE)mantissa[i];
    }
    if (l->aifc) {
        StoreBE32(comm + 18, isFloat ? ZVIFF_ID('f', 'l', '3', '2') : ZVIFF_NONE);
        memcpy(comm + 22, name, nameSize);
    }
    tZVIFFCHUNKHDR commHeader = {ZVIFF_COMM, commSize}, ssnd = {ZVIFF_SSND, 8};
    if (SUCCEEDED(hr))
        hr = iff_WriteChunk(file, &commHeader);
    l->commAt = head - 16 - commSize;
    if (SUCCEEDED(hr))
        hr = WriteAll(file, comm, commSize);
    if (SUCCEEDED(hr))
        hr = iff_WriteChunk(file, &ssnd);
    BYTE zero[8] = {};
    if (SUCCEEDED(hr))
        hr = WriteAll(file, zero, 8);
    l->dataOffset = head;
    // FORM size and frame count are 32 bits.
    l->maxData = 0xFFFFFFFEull - head;
    l->stored.bytesPerSample = (WORD)ZvAudio_BytesFromSampleType(format.sampleType);
    l->stored.channels = format.channels;
    l->stored.signed8 = l->stored.bytesPerSample == 1;
    l->stored.bigEndian = l->stored.bytesPerSample > 1;
    l->stored.isFloat = isFloat;
    return hr;
}

} // namespace

HRESULT PcmWriteHeader(HANDLE file, PcmContainer container, const _zvwaveformat &format, bool aifc,
                       PcmWriteLayout *out)
{
    memset(out, 0, sizeof *out);
    out->container = container;
    out->aifc = aifc;
    switch (container) {
    case PCM_WAVE: return WaveHeader(file, format, out);
    case PCM_WAVE64: return Wave64Header(file, format, out);
    case PCM_AIFF: return AiffHeader(file, format, out);
    }
    return E_INVALIDARG;
}

HRESULT PcmFinishFile(HANDLE file, const PcmWriteLayout &l, ULONGLONG dataSize)
{
    if (dataSize > l.maxData)
        return ZVERR_SIZE_LIMIT;
    const BYTE zero[1] = {};
    ULONGLONG end = l.dataOffset + dataSize;
    HRESULT hr = S_OK;
    switch (l.container) {
    case PCM_WAVE: {
        if (dataSize & 1)
            hr = WriteAt(file, end, zero, 1);
        DWORD size = (DWORD)dataSize;
        if (SUCCEEDED(hr))
            hr = WriteAt(file, l.dataOffset - 4, &size, 4);
        if (SUCCEEDED(hr))
            hr = riff_SetRIFFSize(file, (DWORD)(l.dataOffset - 8 + ((dataSize + 1) & ~1ull)));
        break;
    }
    case PCM_WAVE64:
        // The data chunk is the last: no pad to 8, which readers would take
        // for samples.
        hr = SeekTo(file, l.dataOffset - 24) ? riff64_WriteChunkHeader(file, ZVW64_DATA, dataSize) : ZVERR_FILE_WRITE;
        if (SUCCEEDED(hr))
            hr = riff64_SetRIFFSize(file, end - 24);
        break;
    case PCM_AIFF: {
        if (dataSize & 1)
            hr = WriteAt(file, end, zero, 1);
        BYTE v[4];
        DWORD frameBytes = (DWORD)l.stored.bytesPerSample * l.stored.channels;
        StoreBE32(v, frameBytes ? (DWORD)(dataSize / frameBytes) : 0);
        if (SUCCEEDED(hr))
            hr = WriteAt(file, l.commAt + 2, v, 4);
        StoreBE32(v, (DWORD)(dataSize + 8));
        if (SUCCEEDED(hr))
            hr = WriteAt(file, l.dataOffset - 12, v, 4);
        StoreBE32(v, (DWORD)(end + (dataSize & 1) - 8));
        if (SUCCEEDED(hr))
            hr = WriteAt(file, 4, v, 4);
        break;
    }
    }
    return hr;
}
