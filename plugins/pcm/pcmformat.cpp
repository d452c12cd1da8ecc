#include "pcmformat.h"
#include "media/riff.h"
#include "media/riff64.h"
#include "media/iff.h"
#include <string.h>

namespace {

// A walk never reads more chunk headers than this: a file of nothing but
// empty chunks ends as malformed instead of costing a read per 8 bytes.
const unsigned kMaxChunks = 100000;

inline DWORD LE32(const BYTE *p) { return p[0] | (p[1] << 8) | (p[2] << 16) | ((DWORD)p[3] << 24); }
inline WORD LE16(const BYTE *p) { return (WORD)(p[0] | (p[1] << 8)); }
inline DWORD BE32(const BYTE *p) { return ((DWORD)p[0] << 24) | (p[1] << 16) | (p[2] << 8) | p[3]; }
inline WORD BE16(const BYTE *p) { return (WORD)((p[0] << 8) | p[1]); }

bool SeekTo(HANDLE file, ULONGLONG pos)
{
    LARGE_INTEGER d;
    d.QuadPart = (LONGLONG)pos;
    return SetFilePointerEx(file, d, nullptr, FILE_BEGIN) != FALSE;
}

bool ReadExact(HANDLE file, void *buffer, DWORD size)
{
    DWORD got = 0;
    return ReadFile(file, buffer, size, &got, nullptr) && got == size;
}

// Common checks of the numbers every container gives.
HRESULT CheckShape(PcmLayout *l)
{
    if (l->channels == 0 || l->channels > PCM_MAX_CHANNELS)
        return ZVERR_MALFORMED;
    if (l->rate == 0 || l->rate > PCM_MAX_RATE)
        return ZVERR_MALFORMED;
    if (l->bytesPerSample == 0 || l->bytesPerSample > 8)
        return ZVERR_UNSUPPORTED_FORMAT;
    if (l->isFloat ? (l->bytesPerSample != 4 && l->bytesPerSample != 8) : l->bytesPerSample > 4)
        return ZVERR_UNSUPPORTED_FORMAT;
    DWORD align = (DWORD)l->channels * l->bytesPerSample;
    if (align > 0xFFFF)
        return ZVERR_MALFORMED;
    l->blockAlign = (WORD)align;
    if (l->validBits == 0 || l->validBits > 8 * l->bytesPerSample)
        l->validBits = (WORD)(8 * l->bytesPerSample);
    return S_OK;
}

// The data span, cut to what the file holds: a recording that was never
// closed keeps its samples readable.
void SetData(PcmLayout *l, ULONGLONG offset, ULONGLONG size)
{
    l->dataOffset = offset;
    ULONGLONG there = l->fileLength > offset ? l->fileLength - offset : 0;
    if (size > there)
        size = there;
    l->frames = size / l->blockAlign;
}

// The 'fmt ' record of a wave or Wave64 file (size bytes at the position).
HRESULT ParseWaveFormat(HANDLE file, ULONGLONG size, PcmLayout *l)
{
    if (size < 16)
        return ZVERR_MALFORMED;
    BYTE f[40] = {};
    DWORD want = size < sizeof f ? (DWORD)size : (DWORD)sizeof f;
    if (!ReadExact(file, f, want))
        return ZVERR_MALFORMED;
    WORD tag = LE16(f);
    l->channels = LE16(f + 2);
    l->rate = LE32(f + 4);
    WORD storedAlign = LE16(f + 12);
    WORD bits = LE16(f + 14);
    l->channelMask = 0;
    l->extensible = false;
    if (tag == WAVE_FORMAT_EXTENSIBLE) {
        if (want < 40 || LE16(f + 16) < 22)
            return ZVERR_MALFORMED;
        static const BYTE base[12] = {0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
        if (memcmp(f + 28, base, sizeof base) != 0)
            return ZVERR_UNSUPPORTED_FORMAT;
        DWORD sub = LE32(f + 24);
        if (sub != WAVE_FORMAT_PCM && sub != WAVE_FORMAT_IEEE_FLOAT)
            return ZVERR_UNSUPPORTED_FORMAT;
        tag = (WORD)sub;
        l->validBits = LE16(f + 18);
        l->channelMask = LE32(f + 20);
        l->extensible = true;
    } else {
        l->validBits = bits;
    }
    if (tag != WAVE_FORMAT_PCM && tag != WAVE_FORMAT_IEEE_FLOAT)
        return ZVERR_UNSUPPORTED_FORMAT;
    if (bits == 0 || bits % 8)
        return tag == WAVE_FORMAT_PCM && bits && bits <= 32 ? ZVERR_UNSUPPORTED_FORMAT : ZVERR_MALFORMED;
    l->isFloat = tag == WAVE_FORMAT_IEEE_FLOAT;
    l->bytesPerSample = (WORD)(bits / 8);
    l->bigEndian = false;
    l->signed8 = false;
    HRESULT hr = CheckShape(l);
    if (FAILED(hr))
        return hr;
    if (storedAlign != l->blockAlign)
        return ZVERR_MALFORMED;
    return S_OK;
}

// Where the first format and data chunks of a wave or Wave64 walk lie.
struct WaveSpans {
    bool haveFmt = false, haveData = false;
    ULONGLONG fmtAt = 0, fmtSize = 0, dataAt = 0, dataSize = 0;
    bool complete() const { return haveFmt && haveData; }
    void note(bool isFmt, bool isData, ULONGLONG at, ULONGLONG size)
    {
        if (isFmt && !haveFmt) {
            haveFmt = true;
            fmtAt = at;
            fmtSize = size;
        } else if (isData && !haveData) {
            haveData = true;
            dataAt = at;
            dataSize = size;
        }
    }
};

HRESULT FinishWave(HANDLE file, const WaveSpans &w, PcmLayout *l)
{
    if (!w.complete() || w.fmtAt + w.fmtSize > l->fileLength)
        return ZVERR_MALFORMED;
    if (!SeekTo(file, w.fmtAt))
        return ZVERR_FILE_READ;
    HRESULT hr = ParseWaveFormat(file, w.fmtSize, l);
    if (FAILED(hr))
        return hr;
    SetData(l, w.dataAt, w.dataSize);
    return S_OK;
}

HRESULT ParseWave(HANDLE file, PcmLayout *l)
{
    DWORD body = 0, form = 0;
    HRESULT hr = riff_ReadFileID(file, &body, &form);
    if (hr == ZVERR_FILE_READ)
        return ZVERR_MALFORMED;
    if (FAILED(hr))
        return hr;
    if (form != ZVRIFF_WAVE)
        return ZVERR_UNSUPPORTED_FORMAT;
    // The stored RIFF size is not trusted (writers that stream leave 0 or
    // ~0 there): the walk is bounded by the file.
    ULONGLONG pos = 12;
    WaveSpans w;
    for (unsigned n = 0; n < kMaxChunks && pos + 8 <= l->fileLength && !w.complete(); n++) {
        DWORD id = 0, size = 0;
        if (!SeekTo(file, pos) || FAILED(riff_ReadChunkHeader(file, &id, &size)))
            return ZVERR_MALFORMED;
        w.note(id == ZVRIFF_FMT, id == ZVRIFF_DATA, pos + 8, size);
        pos += 8 + (ULONGLONG)size + (size & 1);
    }
    return FinishWave(file, w, l);
}

HRESULT ParseWave64(HANDLE file, PcmLayout *l)
{
    ULONGLONG body = 0;
    GUID form = {};
    HRESULT hr = riff64_ReadFileID(file, &body, &form);
    if (hr == ZVERR_FILE_READ)
        return ZVERR_MALFORMED;
    if (FAILED(hr))
        return hr;
    if (!IsEqualGUID(form, ZVW64_WAVE))
        return ZVERR_UNSUPPORTED_FORMAT;
    ULONGLONG pos = 40;
    WaveSpans w;
    for (unsigned n = 0; n < kMaxChunks && pos + 24 <= l->fileLength && !w.complete(); n++) {
        GUID label = {};
        ULONGLONG size = 0;
        if (!SeekTo(file, pos) || FAILED(riff64_ReadChunkHeader(file, &label, &size)))
            return ZVERR_MALFORMED;
        if (size > l->fileLength)
            size = l->fileLength;   // keeps the sum below from wrapping
        w.note(IsEqualGUID(label, ZVW64_FMT), IsEqualGUID(label, ZVW64_DATA), pos + 24, size);
        pos += 24 + ((size + 7) & ~(ULONGLONG)7);
    }
    return FinishWave(file, w, l);
}

HRESULT ParseAiff(HANDLE file, PcmLayout *l)
{
    tZVIFFCHUNKHDR form = {};
    DWORD type = 0;
    HRESULT hr = iff_ReadFormType(file, &form, &type);
    if (hr == ZVERR_FILE_READ)
        return ZVERR_MALFORMED;
    if (FAILED(hr))
        return hr == ZVERR_MALFORMED ? ZVERR_UNSUPPORTED_FORMAT : hr;
    if (type != ZVIFF_AIFF && type != ZVIFF_AIFC)
        return ZVERR_UNSUPPORTED_FORMAT;
    bool aifc = type == ZVIFF_AIFC;
    ULONGLONG pos = 12, commAt = 0, commSize = 0, ssndAt = 0, ssndSize = 0;
    bool haveComm = false, haveSsnd = false;
    for (unsigned n = 0; n < kMaxChunks && pos + 8 <= l->fileLength && !(haveComm && haveSsnd); n++) {
        tZVIFFCHUNKHDR h = {};
        if (!SeekTo(file, pos) || FAILED(iff_ReadChunkHdr(file, &h)))
            return ZVERR_MALFORMED;
        if (h.id == ZVIFF_COMM && !haveComm) {
            haveComm = true;
            commAt = pos + 8;
            commSize = h.size;
        } else if (h.id == ZVIFF_SSND && !haveSsnd) {
            haveSsnd = true;
            ssndAt = pos + 8;
            ssndSize = h.size;
        }
        pos += 8 + (ULONGLONG)h.size + (h.size & 1);
    }
    if (!haveComm || !haveSsnd)
        return ZVERR_MALFORMED;
    if (commSize < (aifc ? 22u : 18u) || commAt + commSize > l->fileLength)
        return ZVERR_MALFORMED;
    BYTE c[22] = {};
    if (!SeekTo(file, commAt) || !ReadExact(file, c, aifc ? 22 : 18))
        return ZVERR_MALFORMED;
    l->channels = BE16(c);
    DWORD commFrames = BE32(c + 2);
    WORD bits = BE16(c + 6);
    WORD exponent = BE16(c + 8);
    WORD mantissa[4] = {BE16(c + 10), BE16(c + 12), BE16(c + 14), BE16(c + 16)};
    // The 80-bit rate: a sign, an exponent far from 2^0..2^21, or no
    // leading mantissa bit can't be a real rate.
    int e = (int)(exponent & 0x7FFF) - 16383;
    if ((exponent & 0x8000) || e < 0 || e > 21 || !(mantissa[0] & 0x8000))
        return ZVERR_MALFORMED;
    l->rate = aiff_ConvertRate(exponent, mantissa);
    DWORD compression = aifc ? BE32(c + 18) : ZVIFF_NONE;
    l->isFloat = false;
    l->bigEndian = true;
    l->extensible = false;
    l->channelMask = 0;
    if (compression == ZVIFF_NONE || compression == ZVIFF_ID('t', 'w', 'o', 's')) {
    } else if (compression == ZVIFF_SOWT) {
        l->bigEndian = false;
    } else if (compression == ZVIFF_ID('f', 'l', '3', '2') || compression == ZVIFF_ID('F', 'L', '3', '2')) {
        l->isFloat = true;
        bits = 32;
    } else if (compression == ZVIFF_ID('f', 'l', '6', '4') || compression == ZVIFF_ID('F', 'L', '6', '4')) {
        l->isFloat = true;
        bits = 64;
    } else {
        return ZVERR_UNSUPPORTED_FORMAT;
    }
    if (bits == 0 || bits > 64)
        return ZVERR_MALFORMED;
    l->bytesPerSample = (WORD)((bits + 7) / 8);
    l->validBits = bits;
    l->signed8 = l->bytesPerSample == 1;
    if (l->bytesPerSample == 1)
        l->bigEndian = false;   // nothing to swap
    hr = CheckShape(l);
    if (FAILED(hr))
        return hr;
    if (ssndSize < 8)
        return ZVERR_MALFORMED;
    BYTE s[8];
    if (!SeekTo(file, ssndAt) || !ReadExact(file, s, 8))
        return ZVERR_MALFORMED;
    DWORD offset = BE32(s);
    if (offset > ssndSize - 8)
        return ZVERR_MALFORMED;
    SetData(l, ssndAt + 8 + offset, ssndSize - 8 - offset);
    if (l->frames > commFrames)
        l->frames = commFrames;
    return S_OK;
}

} // namespace

bool PcmSniff(const BYTE *h, DWORD size, PcmContainer container)
{
    if (!h)
        return false;
    switch (container) {
    case PCM_WAVE:
        return size >= 12 && LE32(h) == ZVRIFF_RIFF && LE32(h + 8) == ZVRIFF_WAVE;
    case PCM_WAVE64:
        return size >= 40 && memcmp(h, &ZVW64_RIFF, 16) == 0 && memcmp(h + 24, &ZVW64_WAVE, 16) == 0;
    case PCM_AIFF:
        return size >= 12 && BE32(h) == ZVIFF_FORM && (BE32(h + 8) == ZVIFF_AIFF || BE32(h + 8) == ZVIFF_AIFC);
    }
    return false;
}

HRESULT PcmParse(HANDLE file, PcmContainer container, PcmLayout *out)
{
    if (!out)
        return E_POINTER;
    memset(out, 0, sizeof *out);
    if (file == NULL || file == INVALID_HANDLE_VALUE)
        return E_HANDLE;
    LARGE_INTEGER size;
    if (!GetFileSizeEx(file, &size))
        return HRESULT_FROM_WIN32(GetLastError());
    out->container = container;
    out->fileLength = (ULONGLONG)size.QuadPart;
    // Another container is not ours; a start of ours cut before its
    // signature ends is a broken file of ours.
    BYTE head[40] = {};
    DWORD got = 0;
    if (!SeekTo(file, 0) || !ReadFile(file, head, sizeof head, &got, nullptr))
        return ZVERR_FILE_READ;
    if (!PcmSniff(head, got, container)) {
        static const BYTE riff[4] = {'R', 'I', 'F', 'F'}, form[4] = {'F', 'O', 'R', 'M'};
        const BYTE *magic = container == PCM_WAVE ? riff : container == PCM_AIFF ? form : (const BYTE *)&ZVW64_RIFF;
        DWORD need = container == PCM_WAVE64 ? 40 : 12;
        DWORD magicSize = container == PCM_WAVE64 ? 16 : 4;
        bool cut = got < need && got >= magicSize && memcmp(head, magic, magicSize) == 0;
        return cut ? ZVERR_MALFORMED : ZVERR_UNSUPPORTED_FORMAT;
    }
    if (!SeekTo(file, 0))
        return ZVERR_FILE_READ;
    PcmLayout l = *out;
    HRESULT hr;
    switch (container) {
    case PCM_WAVE: hr = ParseWave(file, &l); break;
    case PCM_WAVE64: hr = ParseWave64(file, &l); break;
    case PCM_AIFF: hr = ParseAiff(file, &l); break;
    default: hr = E_INVALIDARG; break;
    }
    if (SUCCEEDED(hr))
        *out = l;
    return FAILED(hr) ? hr : S_OK;
}

ZVSAMPLETYPE PcmDecodedType(const PcmLayout &l)
{
    if (l.isFloat)
        return l.bytesPerSample == 8 ? ZVSAMPLE_F64 : ZVSAMPLE_F32;
    switch (l.bytesPerSample) {
    case 1: return ZVSAMPLE_U8;
    case 2: return ZVSAMPLE_S16;
    case 3: return ZVSAMPLE_S24;
    case 4: return ZVSAMPLE_S32;
    }
    return ZVSAMPLE_NONE;
}

ZVSAMPLETYPE PcmStoredType(const PcmLayout &l)
{
    if (l.signed8)
        return ZVSAMPLE_S8;
    if (l.bigEndian && !l.isFloat) {
        switch (l.bytesPerSample) {
        case 2: return ZVSAMPLE_S16BE;
        case 3: return ZVSAMPLE_S24BE;
        case 4: return ZVSAMPLE_S32BE;
        }
    }
    // big-endian float has no type of its own: reported as decoded
    return PcmDecodedType(l);
}

void PcmDecode(const PcmLayout &l, BYTE *p, size_t frames)
{
    size_t n = frames * l.channels;
    if (l.signed8) {
        for (size_t i = 0; i < n; i++)
            p[i] ^= 0x80;
        return;
    }
    if (!l.bigEndian)
        return;
    switch (l.bytesPerSample) {
    case 2:
        for (size_t i = 0; i < n; i++, p += 2) {
            BYTE t = p[0]; p[0] = p[1]; p[1] = t;
        }
        break;
    case 3:
        for (size_t i = 0; i < n; i++, p += 3) {
            BYTE t = p[0]; p[0] = p[2]; p[2] = t;
        }
        break;
    case 4:
        for (size_t i = 0; i < n; i++, p += 4) {
            DWORD v;
            memcpy(&v, p, 4);
            v = __builtin_bswap32(v);
            memcpy(p, &v, 4);
        }
        break;
    case 8:
        for (size_t i = 0; i < n; i++, p += 8) {
            unsigned long long v;
            memcpy(&v, p, 8);
            v = __builtin_bswap64(v);
            memcpy(p, &v, 8);
        }
        break;
    }
}
