// The system's own audio format record. Files and plug-ins hold the
// platform's WAVEFORMATEX / WAVEFORMATEXTENSIBLE; inside the system a format
// is an _zvwaveformat whose sample type is one number, so that all sample
// code switches on one value instead of a pair of tag and bits.
#pragma once
#include "zvbase.h"
#include <mmreg.h>

// Exports that are overloaded for the two record kinds have C++ linkage.
#if defined(ZV_BUILDING_KERNEL)
#define ZVAPI_CXX __declspec(dllexport)
#else
#define ZVAPI_CXX
#endif

// Linear sample forms. 0: not linear (compressed or unknown).
typedef enum ZVSAMPLETYPE {
    ZVSAMPLE_NONE = 0,
    ZVSAMPLE_U8 = 16,        // unsigned, midpoint 128
    ZVSAMPLE_S16 = 17,       // little-endian from here to ZVSAMPLE_S32
    ZVSAMPLE_S24 = 18,       // packed in 3 bytes
    ZVSAMPLE_S32 = 19,
    ZVSAMPLE_F32 = 32,       // IEEE float, full scale 1.0
    ZVSAMPLE_F64 = 33,
    ZVSAMPLE_S24IN32 = 48,   // 24-bit value right-justified, sign-extended in 32
    ZVSAMPLE_S8 = 49,
    ZVSAMPLE_S16BE = 64,
    ZVSAMPLE_S24BE = 65,
    ZVSAMPLE_S32BE = 66,
    ZVSAMPLE_RA16 = 128,     // formats of tag 0xFE03; recognised, never copied
    ZVSAMPLE_RA24 = 129,
} ZVSAMPLETYPE;

// The system's private format tags.
#define ZV_WAVE_FORMAT_UNPACKED    0xFE00   // 24 bits in a 32-bit container
#define ZV_WAVE_FORMAT_SIGNED      0xFE01   // 8-bit signed
#define ZV_WAVE_FORMAT_BIGENDIAN   0xFE02
#define ZV_WAVE_FORMAT_RIGHTALIGN  0xFE03

// Which platform form a copy takes.
typedef enum ZVWAVEFORMAT_COPY_DEST {
    ZVWFX_COPY_AUTO = 0,        // extensible if it fits in the room and the source
                                // was extensible or has a non-default mask
    ZVWFX_COPY_BYMASK = 1,      // extensible if the mask is not the default one
    ZVWFX_COPY_PLAIN = 2,       // plain, mask dropped
    ZVWFX_COPY_MULTICHANNEL = 3,// extensible above 2 channels
    ZVWFX_COPY_EXTENSIBLE = 4,  // always extensible
} ZVWAVEFORMAT_COPY_DEST;

#define ZVWFX_FLAG_COMPRESSED  0x8u    // formatTag and bitsPerSample are in use
#define ZVWFX_FLAG_EXTENSIBLE  0x10u   // the source was WAVEFORMATEXTENSIBLE
#define ZVWFX_MAX_EXTRA        1024u
#define ZVWFX_HEADER_SIZE      32u     // record without cbExtra and extra bytes
#define ZVWFX_FULL_SIZE        (34u + ZVWFX_MAX_EXTRA)

struct _zvwaveformat;
typedef struct _zvwaveformat ZVWAVEFORMAT;

// Plain functions.
ZVAPI ZVSAMPLETYPE ZvAudio_GetSampleType(const WAVEFORMATEX *wfx);
ZVAPI ZVSAMPLETYPE ZvAudio_GetSampleType2(UINT formatTag, UINT bits);
ZVAPI UINT ZvAudio_FormatTagFromSampleType(ZVSAMPLETYPE type);
ZVAPI UINT ZvAudio_BitsFromSampleType(ZVSAMPLETYPE type);
ZVAPI UINT ZvAudio_BytesFromSampleType(ZVSAMPLETYPE type);
ZVAPI double ZvAudio_GetNormalizeFactor(UINT bits);
ZVAPI BOOL ZvAudio_IsEqualFormat(const WAVEFORMATEX *a, const WAVEFORMATEX *b);
ZVAPI BOOL ZvAudio_IsCompressed(const WAVEFORMATEX *wfx);
ZVAPI BOOL ZvAudio_IsCompressedExtensible(const WAVEFORMATEXTENSIBLE *wfe);
ZVAPI UINT ZvAudio_GetWaveFormatTag(const WAVEFORMATEX *wfx);
ZVAPI BOOL ZvAudio_GetFormatTagExtensible(const WAVEFORMATEXTENSIBLE *wfe, WORD *tag);
// Default speaker mask of n channels: the n low bits.
ZVAPI DWORD ZvAudio_DefaultChannelMask(UINT channels);

// Platform format builders. InitWfxFlex writes the extensible form when the
// mask is not the default one and size is at least 40.
ZVAPI void ZvAudio_InitWfx(WAVEFORMATEX *wfx, DWORD rate, ZVSAMPLETYPE type, UINT channels);
ZVAPI void ZvAudio_InitWfxFlex(WAVEFORMATEX *wfx, UINT tag, DWORD rate, UINT bits,
                               UINT channels, DWORD mask, UINT size);

// Copies. Destination sizes are in bytes; a destination too small for the
// chosen form gives null.
ZVAPI ZVWAVEFORMAT *ZvAudio_GeneralCopyZvWaveFormat(ZVWAVEFORMAT *dest, UINT size,
                                                    const ZVWAVEFORMAT *src, int copyDest);
ZVAPI WAVEFORMATEX *ZvAudio_GeneralCopyWfx(WAVEFORMATEX *dest, UINT size,
                                          const ZVWAVEFORMAT *src, int copyDest);
// A zeroed GlobalAlloc block (free with GlobalFree); null on failure.
ZVAPI WAVEFORMATEX *ZvAudio_AllocAndCopyWfx(const WAVEFORMATEX *src, int copyDest);
ZVAPI void ZvAudio_CopyWfx(WAVEFORMATEX *dest, UINT size, const WAVEFORMATEX *src, int copyDest);
ZVAPI void ZvAudio_CopyWfExt(WAVEFORMATEXTENSIBLE *dest, const WAVEFORMATEX *src, int copyDest);
// At most 40 bytes of header and extra bytes; the rest of dest is zeroed.
ZVAPI void ZvAudio_CopyWfxToWfExt(const WAVEFORMATEX *src, WAVEFORMATEXTENSIBLE *dest);
// A linear extensible source becomes plain tag 1 or 3 with no extra bytes;
// any other is copied whole (dest must hold 40 bytes).
ZVAPI void ZvAudio_CopyWfExtToWfx(const WAVEFORMATEXTENSIBLE *src, WAVEFORMATEX *dest);

// Silence over frames * block align bytes: 0, E_FAIL for compressed formats,
// E_POINTER for a null format or buffer.
ZVAPI HRESULT ZvAudio_FillSilence(const WAVEFORMATEX *wfx, void *buffer, DWORD frames);

#ifdef __cplusplus
ZVAPI_CXX WAVEFORMATEX *ZvAudio_AllocAndCopyWfx(const ZVWAVEFORMAT *src, int copyDest);
ZVAPI_CXX HRESULT ZvAudio_FillSilence(const ZVWAVEFORMAT *fmt, void *buffer, DWORD frames);
#endif

// Fields in this order, 32 bytes; cbExtra and the extra bytes follow when
// the buffer has room (see _zvwaveformat_wfxplus). cbSize is 32 plus the
// extra bytes in use.
struct _zvwaveformat {
    DWORD cbSize;
    ZVSAMPLETYPE sampleType;
    DWORD samplesPerSec;
    WORD channels;
    WORD blockAlign;
    DWORD channelMask;
    DWORD flags;
    WORD formatTag;        // only when compressed
    WORD bitsPerSample;    // only when compressed
    DWORD avgBytesPerSec;

#ifdef __cplusplus
    // A linear format. With bufSize above 32 the whole buffer is zeroed.
    void Init(DWORD rate, ZVSAMPLETYPE type, UINT channels, DWORD mask = 0,
              UINT bufSize = ZVWFX_HEADER_SIZE);
    // Translates a platform format; bufSize is the room behind this.
    // E_POINTER for a null source, E_INVALIDARG for a buffer below 32.
    HRESULT Init(UINT bufSize, const WAVEFORMATEX *wfx);
    // From plain numbers; tag 1 with 20 bits counts as 24.
    void InitAsWfx(UINT tag, DWORD rate, UINT bits, UINT channels, DWORD mask = 0,
                   UINT bufSize = ZVWFX_HEADER_SIZE);
    WAVEFORMATEX *ToWfx(WAVEFORMATEX *dest, UINT size, int copyDest = ZVWFX_COPY_AUTO) const
    {
        return ZvAudio_GeneralCopyWfx(dest, size, this, copyDest);
    }
    // Recomputes block align and average bytes of a linear format.
    UINT UpdateBlockAlign();
    UINT FormatTag() const;
    UINT BitsPerSample() const;
    UINT BytesPerSample() const;
    bool IsCompressed() const { return (flags & ZVWFX_FLAG_COMPRESSED) != 0; }
    // cbExtra and the extra bytes, when the record has them.
    WORD ExtraSize() const;
    const BYTE *Extra() const;
    bool operator==(const _zvwaveformat &other) const;
    bool operator==(const WAVEFORMATEX &wfx) const;
    bool operator!=(const _zvwaveformat &other) const { return !(*this == other); }
    bool operator!=(const WAVEFORMATEX &wfx) const { return !(*this == wfx); }
#endif
};

#ifdef __cplusplus
static_assert(sizeof(_zvwaveformat) == 32, "format record is 32 bytes");

// An _zvwaveformat with room for all extra bytes, built from a platform format.
struct _zvwaveformat_wfxplus : _zvwaveformat {
    WORD cbExtra;
    BYTE extra[ZVWFX_MAX_EXTRA];

    _zvwaveformat_wfxplus() { Init(0, ZVSAMPLE_NONE, 0, 0, sizeof(*this)); }
    explicit _zvwaveformat_wfxplus(const WAVEFORMATEX *wfx)
    {
        if (FAILED(Init(sizeof(*this), wfx)))
            _zvwaveformat::Init(0, ZVSAMPLE_NONE, 0, 0, sizeof(*this));
    }
};
static_assert(sizeof(_zvwaveformat_wfxplus) >= ZVWFX_FULL_SIZE, "room for all extra bytes");

// A plain WAVEFORMATEX built from an _zvwaveformat.
struct _zvwaveformat_wfxcopyhelper {
    WAVEFORMATEX wfx;
    explicit _zvwaveformat_wfxcopyhelper(const _zvwaveformat &fmt)
    {
        if (!fmt.ToWfx(&wfx, sizeof(wfx), ZVWFX_COPY_PLAIN))
            ZeroMemory(&wfx, sizeof(wfx));
    }
    operator const WAVEFORMATEX *() const { return &wfx; }
};

// A platform format of either form with room for the extra bytes.
struct _zvwaveformat_wfxecopyhelper {
    union {
        WAVEFORMATEX wfx;
        WAVEFORMATEXTENSIBLE wfe;
        BYTE bytes[sizeof(WAVEFORMATEXTENSIBLE) + ZVWFX_MAX_EXTRA];
    };
    explicit _zvwaveformat_wfxecopyhelper(const _zvwaveformat &fmt, int copyDest = ZVWFX_COPY_AUTO)
    {
        if (!fmt.ToWfx(&wfx, sizeof(bytes), copyDest))
            ZeroMemory(bytes, sizeof(bytes));
    }
    operator const WAVEFORMATEX *() const { return &wfx; }
};
#endif
