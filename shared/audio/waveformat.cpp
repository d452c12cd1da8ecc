// The format record, its translation to and from the platform's forms, and
// the small helpers on sample types.
#include "audio/waveformat.h"
#include <string.h>

namespace {

// Data-format base GUID: {xxxxxxxx-0000-0010-8000-00AA00389B71}, the first
// word being the format tag.
const BYTE kBaseTail[8] = {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

bool IsBaseGuid(const GUID &g)
{
    return g.Data2 == 0 && g.Data3 == 0x10 && memcmp(g.Data4, kBaseTail, 8) == 0 &&
           g.Data1 <= 0xFFFF;
}

GUID BaseGuid(UINT tag)
{
    GUID g;
    g.Data1 = tag;
    g.Data2 = 0;
    g.Data3 = 0x10;
    memcpy(g.Data4, kBaseTail, 8);
    return g;
}

bool IsZeroGuid(const GUID &g)
{
    static const GUID zero = {};
    return memcmp(&g, &zero, sizeof(GUID)) == 0;
}

inline bool HasExtensibleRoom(const WAVEFORMATEX *wfx)
{
    return wfx->wFormatTag == WAVE_FORMAT_EXTENSIBLE && wfx->cbSize >= 22;
}

inline bool IsDefaultMask(DWORD mask, UINT channels)
{
    return mask == 0 || mask == ZvAudio_DefaultChannelMask(channels);
}

inline WORD *ExtraSizeField(_zvwaveformat *f) { return (WORD *)((BYTE *)f + 32); }
inline BYTE *ExtraBytes(_zvwaveformat *f) { return (BYTE *)f + 34; }

// Writes a linear platform header, plain or extensible.
void WriteLinearWfx(WAVEFORMATEX *wfx, UINT tag, DWORD rate, UINT bits, UINT channels,
                    DWORD mask, bool extensible)
{
    UINT align = ((bits + 7) / 8) * channels;
    wfx->nChannels = (WORD)channels;
    wfx->nSamplesPerSec = rate;
    wfx->nBlockAlign = (WORD)align;
    wfx->nAvgBytesPerSec = align * rate;
    wfx->wBitsPerSample = (WORD)bits;
    if (!extensible) {
        wfx->wFormatTag = (WORD)tag;
        wfx->cbSize = 0;
        return;
    }
    WAVEFORMATEXTENSIBLE *wfe = (WAVEFORMATEXTENSIBLE *)wfx;
    wfx->wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    wfx->cbSize = 22;
    wfe->Samples.wValidBitsPerSample = (WORD)bits;
    wfe->dwChannelMask = mask ? mask : ZvAudio_DefaultChannelMask(channels);
    wfe->SubFormat = BaseGuid(tag);
}

} // namespace

ZVAPI DWORD ZvAudio_DefaultChannelMask(UINT channels)
{
    return channels >= 32 ? 0xFFFFFFFFu : (DWORD)((1u << channels) - 1);
}

ZVAPI ZVSAMPLETYPE ZvAudio_GetSampleType2(UINT tag, UINT bits)
{
    switch (tag) {
    case WAVE_FORMAT_PCM:
    case ZV_WAVE_FORMAT_SIGNED:
        switch (bits) {
        case 8: return tag == WAVE_FORMAT_PCM ? ZVSAMPLE_U8 : ZVSAMPLE_S8;
        case 16: return ZVSAMPLE_S16;
        case 20:
        case 24: return ZVSAMPLE_S24;
        case 32: return ZVSAMPLE_S32;
        }
        break;
    case WAVE_FORMAT_IEEE_FLOAT:
        if (bits == 32) return ZVSAMPLE_F32;
        if (bits == 64) return ZVSAMPLE_F64;
        break;
    case ZV_WAVE_FORMAT_UNPACKED:
        if (bits == 24 || bits == 32) return ZVSAMPLE_S24IN32;
        break;
    case ZV_WAVE_FORMAT_BIGENDIAN:
        switch (bits) {
        case 8: return ZVSAMPLE_U8;
        case 16: return ZVSAMPLE_S16BE;
        case 24: return ZVSAMPLE_S24BE;
        case 32: return ZVSAMPLE_S32BE;
        }
        break;
    case ZV_WAVE_FORMAT_RIGHTALIGN:
        if (bits == 16) return ZVSAMPLE_RA16;
        if (bits == 24) return ZVSAMPLE_RA24;
        break;
    }
    return ZVSAMPLE_NONE;
}

ZVAPI ZVSAMPLETYPE ZvAudio_GetSampleType(const WAVEFORMATEX *wfx)
{
    if (!wfx)
        return ZVSAMPLE_NONE;
    if (wfx->wFormatTag != WAVE_FORMAT_EXTENSIBLE)
        return ZvAudio_GetSampleType2(wfx->wFormatTag, wfx->wBitsPerSample);
    if (wfx->cbSize < 22)
        return ZVSAMPLE_NONE;
    const WAVEFORMATEXTENSIBLE *wfe = (const WAVEFORMATEXTENSIBLE *)wfx;
    if (!IsBaseGuid(wfe->SubFormat))
        return ZVSAMPLE_NONE;
    ZVSAMPLETYPE type = ZvAudio_GetSampleType2(wfe->SubFormat.Data1, wfx->wBitsPerSample);
    if (type == ZVSAMPLE_S32 && wfe->Samples.wValidBitsPerSample == 24)
        type = ZVSAMPLE_S24IN32;
    return type;
}

ZVAPI UINT ZvAudio_FormatTagFromSampleType(ZVSAMPLETYPE type)
{
    switch (type) {
    case ZVSAMPLE_U8: case ZVSAMPLE_S16: case ZVSAMPLE_S24: case ZVSAMPLE_S32:
        return WAVE_FORMAT_PCM;
    case ZVSAMPLE_F32: case ZVSAMPLE_F64:
        return WAVE_FORMAT_IEEE_FLOAT;
    case ZVSAMPLE_S24IN32: return ZV_WAVE_FORMAT_UNPACKED;
    case ZVSAMPLE_S8: return ZV_WAVE_FORMAT_SIGNED;
    case ZVSAMPLE_S16BE: case ZVSAMPLE_S24BE: case ZVSAMPLE_S32BE:
        return ZV_WAVE_FORMAT_BIGENDIAN;
    default: return 0;
    }
}

ZVAPI UINT ZvAudio_BitsFromSampleType(ZVSAMPLETYPE type)
{
    switch (type) {
    case ZVSAMPLE_U8: case ZVSAMPLE_S8: return 8;
    case ZVSAMPLE_S16: case ZVSAMPLE_S16BE: return 16;
    case ZVSAMPLE_S24: case ZVSAMPLE_S24BE: return 24;
    case ZVSAMPLE_S32: case ZVSAMPLE_S32BE: case ZVSAMPLE_F32: case ZVSAMPLE_S24IN32: return 32;
    case ZVSAMPLE_F64: return 64;
    default: return 0;
    }
}

ZVAPI UINT ZvAudio_BytesFromSampleType(ZVSAMPLETYPE type)
{
    return ZvAudio_BitsFromSampleType(type) / 8;
}

ZVAPI double ZvAudio_GetNormalizeFactor(UINT bits)
{
    switch (bits) {
    case 8: return 128.0;
    case 16: return 32768.0;
    case 24: return 8388608.0;
    case 32: return 2147483648.0;
    default: return 1.0;
    }
}

ZVAPI BOOL ZvAudio_IsEqualFormat(const WAVEFORMATEX *a, const WAVEFORMATEX *b)
{
    if (!a || !b)
        return FALSE;
    return a->nChannels == b->nChannels && a->nSamplesPerSec == b->nSamplesPerSec &&
           a->wBitsPerSample == b->wBitsPerSample && a->wFormatTag == b->wFormatTag;
}

ZVAPI BOOL ZvAudio_GetFormatTagExtensible(const WAVEFORMATEXTENSIBLE *wfe, WORD *tag)
{
    if (!wfe || wfe->Format.cbSize < 22 || !IsBaseGuid(wfe->SubFormat))
        return FALSE;
    DWORD t = wfe->SubFormat.Data1;
    if (t != WAVE_FORMAT_PCM && t != WAVE_FORMAT_IEEE_FLOAT)
        return FALSE;
    if (tag)
        *tag = (WORD)t;
    return TRUE;
}

ZVAPI BOOL ZvAudio_IsCompressedExtensible(const WAVEFORMATEXTENSIBLE *wfe)
{
    return !ZvAudio_GetFormatTagExtensible(wfe, nullptr);
}

ZVAPI BOOL ZvAudio_IsCompressed(const WAVEFORMATEX *wfx)
{
    if (!wfx)
        return TRUE;
    switch (wfx->wFormatTag) {
    case WAVE_FORMAT_EXTENSIBLE:
        return ZvAudio_IsCompressedExtensible((const WAVEFORMATEXTENSIBLE *)wfx);
    case WAVE_FORMAT_PCM:
    case WAVE_FORMAT_IEEE_FLOAT:
    case ZV_WAVE_FORMAT_SIGNED:
    case ZV_WAVE_FORMAT_BIGENDIAN:
        return wfx->nBlockAlign != (wfx->wBitsPerSample >> 3) * wfx->nChannels;
    default:
        return TRUE;
    }
}

ZVAPI UINT ZvAudio_GetWaveFormatTag(const WAVEFORMATEX *wfx)
{
    if (!wfx)
        return 0;
    if (!HasExtensibleRoom(wfx))
        return wfx->wFormatTag;
    const GUID &g = ((const WAVEFORMATEXTENSIBLE *)wfx)->SubFormat;
    return IsBaseGuid(g) ? (UINT)(g.Data1 & 0xFFFF) : 0;
}

ZVAPI void ZvAudio_InitWfx(WAVEFORMATEX *wfx, DWORD rate, ZVSAMPLETYPE type, UINT channels)
{
    if (!wfx)
        return;
    WriteLinearWfx(wfx, ZvAudio_FormatTagFromSampleType(type), rate,
                   ZvAudio_BitsFromSampleType(type), channels, 0, false);
}

ZVAPI void ZvAudio_InitWfxFlex(WAVEFORMATEX *wfx, UINT tag, DWORD rate, UINT bits,
                               UINT channels, DWORD mask, UINT size)
{
    if (!wfx || size < sizeof(WAVEFORMATEX))
        return;
    bool ext = !IsDefaultMask(mask, channels) && size >= sizeof(WAVEFORMATEXTENSIBLE);
    WriteLinearWfx(wfx, tag, rate, bits, channels, mask, ext);
}

// ---------------------------------------------------------------------------
// The record's methods.

void _zvwaveformat::Init(DWORD rate, ZVSAMPLETYPE type, UINT chans, DWORD mask, UINT bufSize)
{
    if (bufSize > ZVWFX_HEADER_SIZE) {
        ZeroMemory(this, bufSize);
    } else {
        flags = 0;
        formatTag = 0;
        bitsPerSample = 0;
    }
    cbSize = ZVWFX_HEADER_SIZE;
    sampleType = type;
    samplesPerSec = rate;
    channels = (WORD)chans;
    channelMask = mask;
    blockAlign = 0;
    avgBytesPerSec = 0;
    UpdateBlockAlign();
}

HRESULT _zvwaveformat::Init(UINT bufSize, const WAVEFORMATEX *wfx)
{
    if (!wfx)
        return E_POINTER;
    if (bufSize < ZVWFX_HEADER_SIZE)
        return E_INVALIDARG;
    ZeroMemory(this, bufSize);
    samplesPerSec = wfx->nSamplesPerSec;
    channels = wfx->nChannels;
    blockAlign = wfx->nBlockAlign;
    avgBytesPerSec = wfx->nAvgBytesPerSec;
    sampleType = ZvAudio_GetSampleType(wfx);
    const UINT tag = wfx->wFormatTag;
    const UINT bits = wfx->wBitsPerSample;

    if (tag == WAVE_FORMAT_PCM) {
        // Old writers put 20 in the bits of 24-bit packed audio and get the
        // block align wrong; the sample type already decides the container.
        UINT fixedBits = bits == 20 ? 24 : bits;
        blockAlign = (WORD)((fixedBits / 8) * channels);
    }

    const WAVEFORMATEXTENSIBLE *wfe = (const WAVEFORMATEXTENSIBLE *)wfx;
    if (tag == WAVE_FORMAT_EXTENSIBLE) {
        flags |= ZVWFX_FLAG_EXTENSIBLE;
        bool room = wfx->cbSize >= 22;
        if (room)
            channelMask = wfe->dwChannelMask;
        // A known writer leaves the sub-format empty and counts block align
        // in bits; the bits alone then say what the samples are.
        bool zeroSub = !room || IsZeroGuid(wfe->SubFormat);
        if (sampleType == ZVSAMPLE_NONE && zeroSub && (wfx->cbSize == 0 || wfx->cbSize == 22) &&
            bits && (UINT)wfx->nBlockAlign == channels * bits &&
            (wfx->nAvgBytesPerSec == wfx->nSamplesPerSec * wfx->nBlockAlign ||
             wfx->nAvgBytesPerSec == wfx->nSamplesPerSec * (channels * bits / 8))) {
            switch (bits) {
            case 8: sampleType = ZVSAMPLE_U8; break;
            case 16: sampleType = ZVSAMPLE_S16; break;
            case 24: sampleType = ZVSAMPLE_S24; break;
            case 32: sampleType = ZVSAMPLE_F32; break;
            case 64: sampleType = ZVSAMPLE_F64; break;
            }
            if (sampleType != ZVSAMPLE_NONE)
                UpdateBlockAlign();
        }
    }

    WORD extra = 0;
    if (sampleType == ZVSAMPLE_NONE) {
        flags |= ZVWFX_FLAG_COMPRESSED;
        formatTag = (WORD)(tag == WAVE_FORMAT_EXTENSIBLE ? ZvAudio_GetWaveFormatTag(wfx) : tag);
        bitsPerSample = (WORD)bits;
        if (tag != WAVE_FORMAT_PCM && tag != WAVE_FORMAT_IEEE_FLOAT && bufSize >= 34) {
            UINT have = wfx->cbSize;
            const BYTE *from = (const BYTE *)wfx + sizeof(WAVEFORMATEX);
            if (HasExtensibleRoom(wfx)) {
                have -= 22;
                from += 22;
            }
            UINT room = bufSize - 34;
            UINT n = have;
            if (n > ZVWFX_MAX_EXTRA) n = ZVWFX_MAX_EXTRA;
            if (n > room) n = room;
            memcpy(ExtraBytes(this), from, n);
            extra = (WORD)n;
        }
    }
    if (bufSize >= 34) {
        *ExtraSizeField(this) = extra;
        cbSize = ZVWFX_HEADER_SIZE + extra;
    } else {
        cbSize = ZVWFX_HEADER_SIZE;
    }
    return S_OK;
}

void _zvwaveformat::InitAsWfx(UINT tag, DWORD rate, UINT bits, UINT chans, DWORD mask, UINT bufSize)
{
    if (tag == WAVE_FORMAT_PCM && bits == 20)
        bits = 24;
    ZVSAMPLETYPE type = ZvAudio_GetSampleType2(tag, bits);
    Init(rate, type, chans, mask, bufSize);
    if (type == ZVSAMPLE_NONE) {
        flags |= ZVWFX_FLAG_COMPRESSED;
        formatTag = (WORD)tag;
        bitsPerSample = (WORD)bits;
        blockAlign = (WORD)((bits * chans + 7) / 8);
        avgBytesPerSec = blockAlign * rate;
    }
}

WORD _zvwaveformat::ExtraSize() const
{
    // cbSize counts the header and the extra bytes but not the size word; a
    // record without extra bytes reads as none whatever lies behind it.
    return cbSize > ZVWFX_HEADER_SIZE ? *(const WORD *)((const BYTE *)this + 32) : 0;
}

const BYTE *_zvwaveformat::Extra() const
{
    return (const BYTE *)this + 34;
}

UINT _zvwaveformat::UpdateBlockAlign()
{
    if (!IsCompressed()) {
        blockAlign = (WORD)(ZvAudio_BytesFromSampleType(sampleType) * channels);
        avgBytesPerSec = blockAlign * samplesPerSec;
    }
    return blockAlign;
}

UINT _zvwaveformat::FormatTag() const
{
    return IsCompressed() ? formatTag : ZvAudio_FormatTagFromSampleType(sampleType);
}

UINT _zvwaveformat::BitsPerSample() const
{
    return IsCompressed() ? bitsPerSample : ZvAudio_BitsFromSampleType(sampleType);
}

UINT _zvwaveformat::BytesPerSample() const
{
    return IsCompressed() ? bitsPerSample / 8 : ZvAudio_BytesFromSampleType(sampleType);
}

bool _zvwaveformat::operator==(const _zvwaveformat &o) const
{
    if (sampleType != o.sampleType || samplesPerSec != o.samplesPerSec ||
        channels != o.channels || IsCompressed() != o.IsCompressed())
        return false;
    DWORD m1 = channelMask ? channelMask : ZvAudio_DefaultChannelMask(channels);
    DWORD m2 = o.channelMask ? o.channelMask : ZvAudio_DefaultChannelMask(o.channels);
    if (m1 != m2)
        return false;
    if (!IsCompressed())
        return true;
    WORD n = ExtraSize();
    return formatTag == o.formatTag && avgBytesPerSec == o.avgBytesPerSec &&
           bitsPerSample == o.bitsPerSample && blockAlign == o.blockAlign &&
           n == o.ExtraSize() && memcmp(Extra(), o.Extra(), n) == 0;
}

bool _zvwaveformat::operator==(const WAVEFORMATEX &wfx) const
{
    _zvwaveformat_wfxplus other(&wfx);
    return *this == other;
}

// ---------------------------------------------------------------------------
// Copies.

ZVAPI ZVWAVEFORMAT *ZvAudio_GeneralCopyZvWaveFormat(ZVWAVEFORMAT *dest, UINT size,
                                                    const ZVWAVEFORMAT *src, int copyDest)
{
    if (!dest || !src || size < ZVWFX_HEADER_SIZE)
        return nullptr;
    WORD n = src->ExtraSize();
    if (size >= 34) {
        if (n > size - 34)
            n = (WORD)(size - 34);
        memmove(ExtraBytes(dest), src->Extra(), n);
    }
    memmove(dest, src, ZVWFX_HEADER_SIZE);
    if (size >= 34) {
        *ExtraSizeField(dest) = n;
        dest->cbSize = ZVWFX_HEADER_SIZE + n;
    } else {
        dest->cbSize = ZVWFX_HEADER_SIZE;
    }
    if (copyDest == ZVWFX_COPY_PLAIN) {
        dest->channelMask = 0;
        dest->flags &= ~ZVWFX_FLAG_EXTENSIBLE;
    }
    return dest;
}

ZVAPI WAVEFORMATEX *ZvAudio_GeneralCopyWfx(WAVEFORMATEX *dest, UINT size,
                                          const ZVWAVEFORMAT *src, int copyDest)
{
    if (!dest || !src || size < sizeof(WAVEFORMATEX))
        return nullptr;
    const UINT extSize = sizeof(WAVEFORMATEXTENSIBLE);
    const bool nonDefault = !IsDefaultMask(src->channelMask, src->channels);
    bool ext;
    switch (copyDest) {
    case ZVWFX_COPY_AUTO:
        ext = size >= extSize && ((src->flags & ZVWFX_FLAG_EXTENSIBLE) || nonDefault);
        break;
    case ZVWFX_COPY_BYMASK: ext = nonDefault; break;
    case ZVWFX_COPY_PLAIN: ext = false; break;
    case ZVWFX_COPY_MULTICHANNEL: ext = src->channels > 2; break;
    case ZVWFX_COPY_EXTENSIBLE: ext = true; break;
    default: return nullptr;
    }
    if (ext && size < extSize) {
        if (copyDest == ZVWFX_COPY_EXTENSIBLE)
            return nullptr;
        ext = false;
    }
    const DWORD mask = copyDest == ZVWFX_COPY_PLAIN ? 0 : src->channelMask;

    if (!src->IsCompressed()) {
        UINT tag = ZvAudio_FormatTagFromSampleType(src->sampleType);
        UINT bits = ZvAudio_BitsFromSampleType(src->sampleType);
        if (src->sampleType == ZVSAMPLE_RA16 || src->sampleType == ZVSAMPLE_RA24) {
            tag = ZV_WAVE_FORMAT_RIGHTALIGN;
            bits = src->sampleType == ZVSAMPLE_RA16 ? 16 : 24;
        }
        if (!tag)
            return nullptr;
        WriteLinearWfx(dest, tag, src->samplesPerSec, bits, src->channels, mask, ext);
        return dest;
    }

    const WORD extra = src->ExtraSize();
    if (!ext && copyDest != ZVWFX_COPY_PLAIN && nonDefault && size >= extSize + extra)
        ext = true;
    ZeroMemory(dest, ext ? extSize : sizeof(WAVEFORMATEX));
    dest->nChannels = src->channels;
    dest->nSamplesPerSec = src->samplesPerSec;
    dest->nAvgBytesPerSec = src->avgBytesPerSec;
    dest->nBlockAlign = src->blockAlign;
    dest->wBitsPerSample = src->bitsPerSample;
    if (ext) {
        WAVEFORMATEXTENSIBLE *wfe = (WAVEFORMATEXTENSIBLE *)dest;
        UINT n = extra < size - extSize ? extra : size - extSize;
        dest->wFormatTag = WAVE_FORMAT_EXTENSIBLE;
        dest->cbSize = (WORD)(22 + n);
        wfe->Samples.wValidBitsPerSample = src->bitsPerSample;
        wfe->dwChannelMask = mask ? mask : ZvAudio_DefaultChannelMask(src->channels);
        wfe->SubFormat = BaseGuid(src->formatTag);
        memcpy((BYTE *)dest + extSize, src->Extra(), n);
        return dest;
    }
    dest->wFormatTag = src->formatTag;
    // PCM and float records of the old short form carry their extra bytes
    // where the size field stands.
    UINT at = (src->formatTag == WAVE_FORMAT_PCM || src->formatTag == WAVE_FORMAT_IEEE_FLOAT)
                  ? 16 : sizeof(WAVEFORMATEX);
    UINT n = extra < size - at ? extra : size - at;
    if (at == sizeof(WAVEFORMATEX))
        dest->cbSize = (WORD)n;
    memcpy((BYTE *)dest + at, src->Extra(), n);
    return dest;
}

ZVAPI_CXX WAVEFORMATEX *ZvAudio_AllocAndCopyWfx(const ZVWAVEFORMAT *src, int copyDest)
{
    if (!src)
        return nullptr;
    UINT room = sizeof(WAVEFORMATEXTENSIBLE) + src->ExtraSize();
    WAVEFORMATEX *block = (WAVEFORMATEX *)GlobalAlloc(GPTR, room);
    if (!block)
        return nullptr;
    if (!ZvAudio_GeneralCopyWfx(block, room, src, copyDest)) {
        GlobalFree(block);
        return nullptr;
    }
    return block;
}

ZVAPI WAVEFORMATEX *ZvAudio_AllocAndCopyWfx(const WAVEFORMATEX *src, int copyDest)
{
    if (!src)
        return nullptr;
    _zvwaveformat_wfxplus fmt(src);
    return ZvAudio_AllocAndCopyWfx(&fmt, copyDest);
}

ZVAPI void ZvAudio_CopyWfx(WAVEFORMATEX *dest, UINT size, const WAVEFORMATEX *src, int copyDest)
{
    if (!dest || !src)
        return;
    _zvwaveformat_wfxplus fmt(src);
    ZvAudio_GeneralCopyWfx(dest, size, &fmt, copyDest);
}

ZVAPI void ZvAudio_CopyWfExt(WAVEFORMATEXTENSIBLE *dest, const WAVEFORMATEX *src, int copyDest)
{
    if (!dest || !src)
        return;
    _zvwaveformat_wfxplus fmt(src);
    ZvAudio_GeneralCopyWfx(&dest->Format, sizeof(*dest), &fmt, copyDest);
}

ZVAPI void ZvAudio_CopyWfxToWfExt(const WAVEFORMATEX *src, WAVEFORMATEXTENSIBLE *dest)
{
    if (!src || !dest)
        return;
    BYTE tmp[sizeof(WAVEFORMATEXTENSIBLE)] = {};
    // A PCM header may be the 16-byte old form without a size field.
    UINT n = src->wFormatTag == WAVE_FORMAT_PCM ? 16 : sizeof(WAVEFORMATEX) + src->cbSize;
    if (n > sizeof(tmp))
        n = sizeof(tmp);
    memcpy(tmp, src, n);
    if (n > 16 && n - sizeof(WAVEFORMATEX) < ((WAVEFORMATEX *)tmp)->cbSize)
        ((WAVEFORMATEX *)tmp)->cbSize = (WORD)(n - sizeof(WAVEFORMATEX));
    memcpy(dest, tmp, sizeof(tmp));
}

ZVAPI void ZvAudio_CopyWfExtToWfx(const WAVEFORMATEXTENSIBLE *src, WAVEFORMATEX *dest)
{
    if (!src || !dest)
        return;
    WORD tag;
    if (src->Format.wFormatTag == WAVE_FORMAT_EXTENSIBLE && ZvAudio_GetFormatTagExtensible(src, &tag)) {
        WAVEFORMATEX w = src->Format;
        w.wFormatTag = tag;
        w.cbSize = 0;
        *dest = w;
        return;
    }
    UINT n = sizeof(WAVEFORMATEX) + (src->Format.cbSize < 22 ? src->Format.cbSize : 22);
    memmove(dest, src, n);
}

// ---------------------------------------------------------------------------
// Silence.

static HRESULT FillBytes(void *buffer, size_t bytes, int value)
{
    if (!bytes)
        return S_OK;
    if (!buffer)
        return E_POINTER;
    memset(buffer, value, bytes);
    return S_OK;
}

ZVAPI HRESULT ZvAudio_FillSilence(const WAVEFORMATEX *wfx, void *buffer, DWORD frames)
{
    if (!wfx)
        return E_POINTER;
    size_t bytes = (size_t)wfx->nBlockAlign * frames;
    if (!bytes)
        return S_OK;
    const bool eight = wfx->wBitsPerSample == 8;
    switch (wfx->wFormatTag) {
    case WAVE_FORMAT_PCM:
    case ZV_WAVE_FORMAT_BIGENDIAN:
        return FillBytes(buffer, bytes, eight ? 128 : 0);
    case WAVE_FORMAT_IEEE_FLOAT:
    case ZV_WAVE_FORMAT_UNPACKED:
    case ZV_WAVE_FORMAT_SIGNED:
        return FillBytes(buffer, bytes, 0);
    case WAVE_FORMAT_EXTENSIBLE: {
        WORD tag;
        if (!ZvAudio_GetFormatTagExtensible((const WAVEFORMATEXTENSIBLE *)wfx, &tag))
            return S_OK;   // nothing is known of its silence
        return FillBytes(buffer, bytes, tag == WAVE_FORMAT_PCM && eight ? 128 : 0);
    }
    default:
        return E_FAIL;
    }
}

ZVAPI_CXX HRESULT ZvAudio_FillSilence(const ZVWAVEFORMAT *fmt, void *buffer, DWORD frames)
{
    if (!fmt)
        return E_POINTER;
    size_t bytes = (size_t)fmt->blockAlign * frames;
    if (!bytes)
        return S_OK;
    if (fmt->IsCompressed() || fmt->sampleType == ZVSAMPLE_NONE)
        return E_FAIL;
    return FillBytes(buffer, bytes, fmt->sampleType == ZVSAMPLE_U8 ? 128 : 0);
}
