// Format and codec names: tables in the program, searched by halving.
#include "audio/formatnames.h"
#include "zvlang.h"
#include "zvprintf.h"
#include <stdio.h>
#include <wchar.h>
#include <algorithm>

namespace {

// Texts a user reads, in the kernel's string resources.
ZVLANGSTRING g_compression = ZVLANG_RESOURCE_TEXT(0x7420);     // "'%s' Compression"
ZVLANGSTRING g_channelCount = ZVLANG_RESOURCE_TEXT(0x7421);    // "%d Channel"
ZVLANGSTRING g_unknown = ZVLANG_RESOURCE_TEXT(0x7422);         // "Unknown"
ZVLANGSTRING g_pcm = ZVLANG_RESOURCE_TEXT(0x7423);             // "PCM"
ZVLANGSTRING g_pcmFloat = ZVLANG_RESOURCE_TEXT(0x7424);        // "PCM (float)"
ZVLANGSTRING g_pcmUnpacked = ZVLANG_RESOURCE_TEXT(0x7425);     // "PCM (unpacked)"
ZVLANGSTRING g_pcmSigned = ZVLANG_RESOURCE_TEXT(0x7426);       // "PCM (signed)"
ZVLANGSTRING g_pcmBigEndian = ZVLANG_RESOURCE_TEXT(0x7427);    // "PCM (big endian)"
ZVLANGSTRING g_mono = ZVLANG_RESOURCE_TEXT(0x7428);            // "Mono"
ZVLANGSTRING g_stereo = ZVLANG_RESOURCE_TEXT(0x7429);          // "Stereo"
ZVLANGSTRING g_five1 = ZVLANG_RESOURCE_TEXT(0x742A);           // "5.1"
ZVLANGSTRING g_seven1 = ZVLANG_RESOURCE_TEXT(0x742B);          // "7.1"
ZVLANGSTRING g_layout10 = ZVLANG_RESOURCE_TEXT(0x742C);        // "1/0 (C)"
ZVLANGSTRING g_layout20 = ZVLANG_RESOURCE_TEXT(0x742D);        // "2/0 (L, R)"
ZVLANGSTRING g_layout30 = ZVLANG_RESOURCE_TEXT(0x742E);        // "3/0 (L, C, R)"
ZVLANGSTRING g_layout21 = ZVLANG_RESOURCE_TEXT(0x742F);        // "2/1 (L, R, Ls)"
ZVLANGSTRING g_layout31 = ZVLANG_RESOURCE_TEXT(0x7430);        // "3/1 (L, C, R, Ls)"
ZVLANGSTRING g_layout22 = ZVLANG_RESOURCE_TEXT(0x7431);        // "2/2 (L, R, Ls, Rs)"
ZVLANGSTRING g_layout32 = ZVLANG_RESOURCE_TEXT(0x7432);        // "3/2 (L, C, R, Ls, Rs)"
ZVLANGSTRING g_withLfe = ZVLANG_RESOURCE_TEXT(0x7433);         // "%s + LFE"
ZVLANGSTRING g_bits = ZVLANG_RESOURCE_TEXT(0x7434);            // "%d Bit"
ZVLANGSTRING g_bits24Unpacked = ZVLANG_RESOURCE_TEXT(0x7435);  // "24 Bit (Unpacked)"
ZVLANGSTRING g_bits8Signed = ZVLANG_RESOURCE_TEXT(0x7436);     // "8 Bit (Signed)"
ZVLANGSTRING g_bitsFloat = ZVLANG_RESOURCE_TEXT(0x7437);       // "%d Bit (IEEE Float)"
ZVLANGSTRING g_bitsMac = ZVLANG_RESOURCE_TEXT(0x7438);         // "%d Bit (MAC)"
ZVLANGSTRING g_bitsRa = ZVLANG_RESOURCE_TEXT(0x7439);          // "%d Bit (RA)"
ZVLANGSTRING g_rate = ZVLANG_RESOURCE_TEXT(0x743A);            // "$d Hz"

const wchar_t *Text(ZVLANGSTRING &record) { return ZvGetString(ZvLang_GetKernelLang(), &record); }

// A record filled with the arguments through the kernel's formatted text.
template <size_t N, class... Args> void Format(wchar_t (&out)[N], ZVLANGSTRING &record, Args... args)
{
    ZvCchPrintF(out, (int)N, nullptr, Text(record), args...);
}

struct TagName {
    UINT tag;
    const wchar_t *text;
};

// Sorted by tag.
const TagName kAudioShort[] = {
    {0x1, L"PCM"}, {0x2, L"ADPCM"}, {0x3, L"Float"}, {0x6, L"ALaw"}, {0x7, L"uLaw"},
    {0xA, L"WMA Voice"}, {0xB, L"RT Voice"}, {0x22, L"TrueSpeech"}, {0x50, L"MPEG"}, {0x55, L"MP3"},
    {0x62, L"Voxware"}, {0x92, L"AC3"}, {0x160, L"MS Audio"}, {0x161, L"WMA"}, {0x162, L"WMA Pro"},
    {0x163, L"WMA Lossless"}, {0x164, L"WMA SPDIF"}, {0x200, L"ADPCM"}, {0x216, L"DV"}, {0x401, L"IMC"},
    {0x500, L"On2 VP7"}, {0x501, L"On2 VP6"}, {0x2000, L"AC3"}, {0x2001, L"Dolby DTS"},
    {0x2002, L"RealAudio"}, {0x2004, L"RealAudio G2"}, {0x2005, L"RealAudio Music"},
    {0x2006, L"RealAudio 10"}, {0x2007, L"RealAudio 10"}, {0x3313, L"AVIS"}, {0x6771, L"Ogg"},
    {0xA106, L"AAC"}, {0xAAC0, L"LC-AAC"}, {0xAAC1, L"HE-AAC"}, {0xAAC2, L"HE-AAC V2"},
    {0xF1AC, L"FLAC"}, {0xFE00, L"PCM"}, {0xFE01, L"PCM"}, {0xFE02, L"PCM"}, {0xFE03, L"PCM"},
    {0xFFCA, L"DV"},
};

const TagName kAudioLong[] = {
    {0x3, L"IEEE Float"}, {0x50, L"MPEG Audio"}, {0x55, L"MPEG Layer 3"}, {0x92, L"Dolby AC3"},
    {0x161, L"Windows Media Audio 9"}, {0x162, L"Windows Media Audio 9 Professional"},
    {0x163, L"Windows Media Audio Lossless"}, {0x674F, L"Ogg Vorbis 1"}, {0x6750, L"Ogg Vorbis 2"},
    {0x6751, L"Ogg Vorbis 3"}, {0x676F, L"Ogg Vorbis 1+"}, {0x6770, L"Ogg Vorbis 2+"},
    {0x6771, L"Ogg Vorbis 3+"}, {0xA106, L"MPEG-4 Advanced Audio Coding"}, {0xFE00, L"PCM Unpacked"},
    {0xFE01, L"PCM Signed"}, {0xFE02, L"PCM Big Endian"}, {0xFE03, L"PCM Right Aligned"},
};

struct TagMap {
    UINT from, to;
};

// Tags that stand for the same coding, to their main value; sorted.
const TagMap kAudioCanonical[] = {
    {0x14, 0x2}, {0x17, 0x2}, {0x40, 0x2}, {0xD8, 0xFFCA}, {0xFF, 0xA106}, {0x180, 0xA106},
    {0x215, 0x216}, {0x2003, 0x2002}, {0x4143, 0xA106}, {0x674F, 0x6771}, {0x6750, 0x6771},
    {0x6751, 0x6771}, {0x676F, 0x6771}, {0x6770, 0x6771}, {0x6771, 0x6771}, {0x706D, 0xA106},
};

constexpr DWORD FCC(const char (&s)[5])
{
    return (DWORD)(unsigned char)s[0] | (DWORD)(unsigned char)s[1] << 8 |
           (DWORD)(unsigned char)s[2] << 16 | (DWORD)(unsigned char)s[3] << 24;
}

const TagName kVideoShortSource[] = {
    {0, L"RGB"}, {1, L"RLE (8 bit)"}, {2, L"RLE (4 bit)"}, {3, L"RGB"}, {4, L"JPEG"}, {5, L"PNG"},
    {FCC("v210"), L"YUV (10 bit)"}, {FCC("I420"), L"YUV"}, {FCC("rv20"), L"RealVideo G2"},
    {FCC("rv30"), L"RealVideo 8"}, {FCC("IV40"), L"Indeo 5.0"}, {FCC("RV40"), L"RealVideo 10"},
    {FCC("DX50"), L"DivX 5"}, {FCC("M101"), L"Matrox SD"}, {FCC("IR21"), L"Indeo 2.1"},
    {FCC("M261"), L"MS H.261"}, {FCC("MPG1"), L"MPEG 1"}, {FCC("SVQ1"), L"Sorenson V1"},
    {FCC("VCR1"), L"ATI Video 1"}, {FCC("3IV1"), L"3ivx"}, {FCC("WMV1"), L"WMV 7"},
    {FCC("dmb1"), L"Motion JPEG"}, {FCC("M102"), L"Matrox HD"}, {FCC("IV32"), L"Indeo 3.2"},
    {FCC("MPG2"), L"MPEG 2"}, {FCC("VCR2"), L"ATI Video 2"}, {FCC("3IV2"), L"3ivx"},
    {FCC("WMV2"), L"WMV 8.1"}, {FCC("M103"), L"Matrox Alpha SD"}, {FCC("M263"), L"MS H.263"},
    {FCC("SVQ3"), L"Sorenson V3"}, {FCC("WMV3"), L"WMV"}, {FCC("M104"), L"Matrox Alpha HD"},
    {FCC("MPG4"), L"MPEG 4"}, {FCC("YVU9"), L"ATI YUV"}, {FCC("WMVA"), L"WMV Advanced"},
    {FCC("Y41B"), L"YUV"}, {FCC("MJ2C"), L"MJPEG 2000"}, {FCC("MSVC"), L"MS Video 1"},
    {FCC("CFHD"), L"CineForm HDV"}, {FCC("XVID"), L"Xvid"}, {FCC("MRLE"), L"MS RLE"},
    {FCC("MPEG"), L"MPEG"}, {FCC("MJPG"), L"Motion JPEG"}, {FCC("HFYU"), L"Huffman YUV"},
    {FCC("YUYV"), L"YUV"}, {FCC("DIVX"), L"DivX"}, {FCC("GREY"), L"Greyscale"},
    {FCC("VYUY"), L"ATI YUV"}, {FCC("UYVY"), L"YUV"}, {FCC("dvsd"), L"DV"}, {FCC("_dvn"), L"NTSC DV"},
    {FCC("wdvn"), L"NTSC DV Wide"}, {FCC("_dvp"), L"PAL DV"}, {FCC("wdvp"), L"PAL DV Wide"},
    {FCC("avci"), L"AVC-Intra"}, {FCC("m2ts"), L"MPEG 2"},
};

const TagName kVideoLongSource[] = {
    {0, L"RGB (Uncompressed)"}, {FCC("SVQ1"), L"Sorenson Video 1"}, {FCC("WMV1"), L"Windows Media Video 7"},
    {FCC("WMV2"), L"Windows Media Video 8.1"}, {FCC("SVQ3"), L"Sorenson Video 3"},
    {FCC("WMV3"), L"Windows Media Video 9"}, {FCC("WMVA"), L"Windows Media Video 9 Advanced"},
    {FCC("MJ2C"), L"Motion JPEG 2000"}, {FCC("MSVC"), L"Microsoft Video 1"},
    {FCC("wdvn"), L"NTSC DV Widescreen"}, {FCC("wdvp"), L"PAL DV Widescreen"},
};

// Other spellings of the same coding.
const TagMap kVideoCanonicalSource[] = {
    {FCC("IYUV"), FCC("I420")}, {FCC("iyuv"), FCC("I420")}, {FCC("i420"), FCC("I420")},
    {FCC("YUY2"), FCC("YUYV")}, {FCC("yuy2"), FCC("YUYV")}, {FCC("yuyv"), FCC("YUYV")},
    {FCC("uyvy"), FCC("UYVY")}, {FCC("Y422"), FCC("UYVY")}, {FCC("UYNV"), FCC("UYVY")},
    {FCC("HDYC"), FCC("UYVY")}, {FCC("divx"), FCC("DIVX")}, {FCC("dx50"), FCC("DX50")},
    {FCC("xvid"), FCC("XVID")}, {FCC("mjpg"), FCC("MJPG")}, {FCC("DVSD"), FCC("dvsd")},
    {FCC("dv25"), FCC("dvsd")}, {FCC("mpg1"), FCC("MPG1")}, {FCC("mpg2"), FCC("MPG2")},
    {FCC("mpg4"), FCC("MPG4")}, {FCC("wmv3"), FCC("WMV3")}, {FCC("hfyu"), FCC("HFYU")},
};

template <class T, size_t N>
struct Sorted {
    T rows[N];
    explicit Sorted(const T (&src)[N])
    {
        std::copy(src, src + N, rows);
        std::sort(rows, rows + N, [](const T &a, const T &b) { return Key(a) < Key(b); });
    }
    static UINT Key(const TagName &r) { return r.tag; }
    static UINT Key(const TagMap &r) { return r.from; }
    const T *Find(UINT key) const
    {
        const T *it = std::lower_bound(rows, rows + N, key, [](const T &r, UINT k) { return Key(r) < k; });
        return it != rows + N && Key(*it) == key ? it : nullptr;
    }
};

template <class T, size_t N>
Sorted<T, N> MakeSorted(const T (&src)[N]) { return Sorted<T, N>(src); }

const auto &AudioShort() { static auto t = MakeSorted(kAudioShort); return t; }
const auto &AudioLong() { static auto t = MakeSorted(kAudioLong); return t; }
const auto &AudioCanonical() { static auto t = MakeSorted(kAudioCanonical); return t; }
const auto &VideoShort() { static auto t = MakeSorted(kVideoShortSource); return t; }
const auto &VideoLong() { static auto t = MakeSorted(kVideoLongSource); return t; }
const auto &VideoCanonical() { static auto t = MakeSorted(kVideoCanonicalSource); return t; }

// Copies text, cutting it to the buffer.
HRESULT Put(LPWSTR buffer, UINT length, const wchar_t *text, HRESULT ok = S_OK)
{
    if (!buffer)
        return E_POINTER;
    if (!length)
        return ZVERR_BUFFER_TOO_SMALL;
    size_t n = wcslen(text);
    if (n >= length) {
        wmemcpy(buffer, text, length - 1);
        buffer[length - 1] = 0;
        return ZVERR_BUFFER_TOO_SMALL;
    }
    wmemcpy(buffer, text, n + 1);
    return ok;
}

LPWSTR PutText(LPWSTR buffer, UINT length, const wchar_t *text)
{
    Put(buffer, length, text);
    return buffer;
}

void FourCCText(DWORD fourcc, wchar_t out[16])
{
    if (fourcc < 0x10000) {
        swprintf(out, 16, L"%u", (unsigned)fourcc);
        return;
    }
    for (int i = 0; i < 4; i++) {
        unsigned c = (fourcc >> (8 * i)) & 0xFF;
        out[i] = c >= 0x20 && c < 0x7F ? (wchar_t)c : L'.';
    }
    out[4] = 0;
}

// The platform's codec list, loaded when first asked.
struct AcmTagDetails {
    DWORD cbStruct, dwFormatTagIndex, dwFormatTag, cbFormatSize, fdwSupport, cStandardFormats;
    WCHAR szFormatTag[48];
};
typedef UINT(WINAPI *AcmTagDetailsFn)(HANDLE, AcmTagDetails *, DWORD);

bool AcmTagName(UINT tag, wchar_t (&name)[48])
{
    static AcmTagDetailsFn fn = [] {
        HMODULE m = LoadLibraryW(L"msacm32.dll");
        return m ? (AcmTagDetailsFn)(void *)GetProcAddress(m, "acmFormatTagDetailsW") : nullptr;
    }();
    if (!fn)
        return false;
    AcmTagDetails d = {};
    d.cbStruct = sizeof(d);
    d.dwFormatTag = tag;
    const DWORD byFormatTag = 0x1;
    if (fn(nullptr, &d, byFormatTag) != 0 || !d.szFormatTag[0])
        return false;
    memcpy(name, d.szFormatTag, sizeof(name));
    name[47] = 0;
    return true;
}

} // namespace

ZVAPI UINT ZvAudio_ConvertToCanonicalWaveFormatTag(UINT tag)
{
    const TagMap *m = AudioCanonical().Find(tag);
    return m ? m->to : tag;
}

ZVAPI DWORD ZvVideo_ConvertToCanonicalCompressionFormat(DWORD fourcc)
{
    const TagMap *m = VideoCanonical().Find(fourcc);
    return m ? m->to : fourcc;
}

ZVAPI HRESULT ZvAudio_GetCompressionTypeName(UINT tag, LPWSTR buffer, UINT length, BOOL shortName)
{
    const TagName *row = shortName ? nullptr : AudioLong().Find(tag);
    if (!row)
        row = AudioShort().Find(tag);
    if (!row)
        row = AudioShort().Find(ZvAudio_ConvertToCanonicalWaveFormatTag(tag));
    if (row)
        return Put(buffer, length, row->text);
    wchar_t text[24];
    swprintf(text, 24, L"0x%d", (int)tag);
    return Put(buffer, length, text, S_FALSE);
}

ZVAPI HRESULT ZvVideo_GetCompressionTypeName(DWORD fourcc, LPWSTR buffer, UINT length, BOOL shortName)
{
    const TagName *row = shortName ? nullptr : VideoLong().Find(fourcc);
    if (!row)
        row = VideoShort().Find(fourcc);
    if (!row)
        row = VideoShort().Find(ZvVideo_ConvertToCanonicalCompressionFormat(fourcc));
    if (row)
        return Put(buffer, length, row->text);
    wchar_t chars[16], text[96];
    FourCCText(fourcc, chars);
    if (shortName)
        return Put(buffer, length, chars, S_FALSE);
    Format(text, g_compression, chars);
    return Put(buffer, length, text, S_FALSE);
}

ZVAPI LPWSTR ZvVideo_FOURCCtoPrintStringW(DWORD fourcc, LPWSTR buffer, UINT length)
{
    wchar_t chars[16];
    FourCCText(fourcc, chars);
    return PutText(buffer, length, chars);
}

ZVAPI LPSTR ZvVideo_FOURCCtoPrintString(DWORD fourcc, LPSTR buffer, UINT length)
{
    if (!buffer || !length)
        return buffer;
    wchar_t chars[16];
    FourCCText(fourcc, chars);
    UINT i = 0;
    for (; chars[i] && i + 1 < length; i++)
        buffer[i] = (char)chars[i];
    buffer[i] = 0;
    return buffer;
}

ZVAPI HRESULT ZvAudio_GetTagText(UINT tag, LPWSTR buffer, UINT length)
{
    switch (tag) {
    case WAVE_FORMAT_PCM: return Put(buffer, length, Text(g_pcm));
    case WAVE_FORMAT_IEEE_FLOAT: return Put(buffer, length, Text(g_pcmFloat));
    case ZV_WAVE_FORMAT_UNPACKED: return Put(buffer, length, Text(g_pcmUnpacked));
    case ZV_WAVE_FORMAT_SIGNED: return Put(buffer, length, Text(g_pcmSigned));
    case ZV_WAVE_FORMAT_BIGENDIAN: return Put(buffer, length, Text(g_pcmBigEndian));
    }
    wchar_t name[48];
    if (AcmTagName(tag, name))
        return Put(buffer, length, name);
    return Put(buffer, length, Text(g_unknown), S_FALSE);
}

ZVAPI LPWSTR ZvAudio_GetSampleTypeText(ZVSAMPLETYPE type, LPWSTR buffer, UINT length)
{
    wchar_t text[64] = L"";
    const int bits = (int)ZvAudio_BitsFromSampleType(type);
    switch (type) {
    case ZVSAMPLE_U8: case ZVSAMPLE_S16: case ZVSAMPLE_S24: case ZVSAMPLE_S32:
        Format(text, g_bits, bits); break;
    case ZVSAMPLE_S24IN32: Format(text, g_bits24Unpacked); break;
    case ZVSAMPLE_S8: Format(text, g_bits8Signed); break;
    case ZVSAMPLE_F32: case ZVSAMPLE_F64: Format(text, g_bitsFloat, bits); break;
    case ZVSAMPLE_S16BE: case ZVSAMPLE_S24BE: case ZVSAMPLE_S32BE: Format(text, g_bitsMac, bits); break;
    case ZVSAMPLE_RA16: case ZVSAMPLE_RA24: Format(text, g_bitsRa, type == ZVSAMPLE_RA16 ? 16 : 24); break;
    default: break;
    }
    return PutText(buffer, length, text);
}

ZVAPI LPWSTR ZvAudio_GetBitDepthText(const WAVEFORMATEX *format, LPWSTR buffer, UINT length)
{
    ZVSAMPLETYPE type = ZvAudio_GetSampleType(format);
    if (type != ZVSAMPLE_NONE || !format || !format->wBitsPerSample)
        return ZvAudio_GetSampleTypeText(type, buffer, length);
    wchar_t text[64];
    Format(text, g_bits, (int)format->wBitsPerSample);
    return PutText(buffer, length, text);
}

ZVAPI LPWSTR ZvAudio_GetChannelsText(UINT channels, DWORD mask, LPWSTR buffer, UINT length)
{
    static const struct {
        DWORD mask;
        UINT channels;
        ZVLANGSTRING *text;
        bool lfe;
    } rows[] = {
        {0, 1, &g_mono, false}, {0, 2, &g_stereo, false}, {0x3, 2, &g_stereo, false},
        {0x3F, 6, &g_five1, false}, {0x60F, 6, &g_five1, false}, {0xFF, 8, &g_seven1, false},
        {0x4, 1, &g_layout10, false}, {0xC, 2, &g_layout10, true}, {0xB, 3, &g_layout20, true},
        {0x7, 3, &g_layout30, false}, {0xF, 4, &g_layout30, true},
        {0x13, 3, &g_layout21, false}, {0x1B, 4, &g_layout21, true},
        {0x17, 4, &g_layout31, false}, {0x1F, 5, &g_layout31, true},
        {0x33, 4, &g_layout22, false}, {0x3B, 5, &g_layout22, true},
        {0x37, 5, &g_layout32, false},
    };
    wchar_t text[96];
    for (const auto &r : rows)
        if (r.mask == mask && r.channels == channels) {
            if (r.lfe)
                Format(text, g_withLfe, Text(*r.text));
            else
                Format(text, *r.text);
            return PutText(buffer, length, text);
        }
    Format(text, g_channelCount, (int)channels);
    return PutText(buffer, length, text);
}

ZVAPI HRESULT ZvAudio_GetFormatText(const WAVEFORMATEX *format, LPWSTR buffer, UINT length)
{
    if (!format)
        return E_POINTER;
    return ZvAudio_GetTagText(ZvAudio_GetWaveFormatTag(format), buffer, length);
}

ZVAPI HRESULT ZvAudio_GetAttribsText(const WAVEFORMATEX *format, LPWSTR buffer, UINT length)
{
    if (!format)
        return E_POINTER;
    wchar_t rate[64], depth[64], chans[96], text[256];
    ZvAudio_GetBitDepthText(format, depth, 64);
    DWORD mask = format->wFormatTag == WAVE_FORMAT_EXTENSIBLE && format->cbSize >= 22 ? ((const WAVEFORMATEXTENSIBLE *)format)->dwChannelMask : 0;
    ZvAudio_GetChannelsText(format->nChannels, mask, chans, 96);
    Format(rate, g_rate, (unsigned)format->nSamplesPerSec);
    // joined with the locale's list separator
    if (depth[0])
        ZvCchPrintF(text, 256, nullptr, L"%s$, %s$, %s", rate, depth, chans);
    else
        ZvCchPrintF(text, 256, nullptr, L"%s$, %s", rate, chans);
    return Put(buffer, length, text);
}

ZVAPI HRESULT ZvVideo_GetFormatText(DWORD compression, LPWSTR buffer, UINT length)
{
    switch (compression) {
    case BI_RGB: return Put(buffer, length, L"RGB");
    case BI_BITFIELDS: return Put(buffer, length, L"RGB (bitfields)");
    case FCC("ZVDB"): return Put(buffer, length, L"RGBA");
    case FCC("ZVGS"): return Put(buffer, length, L"Grayscale");
    }
    wchar_t chars[16];
    FourCCText(compression, chars);
    return Put(buffer, length, chars);
}

static HRESULT VideoAttribs(const BITMAPINFOHEADER *h, LPWSTR buffer, UINT length, bool full)
{
    if (!h)
        return E_POINTER;
    wchar_t name[64], text[160];
    if (full)
        ZvVideo_GetCompressionTypeName(h->biCompression, name, 64, FALSE);
    else
        ZvVideo_GetFormatText(h->biCompression, name, 64);
    LONG height = h->biHeight < 0 ? -h->biHeight : h->biHeight;
    swprintf(text, 160, L"%ld x %ld, %d Bit, %ls", (long)h->biWidth, (long)height, (int)h->biBitCount, name);
    return Put(buffer, length, text);
}

ZVAPI HRESULT ZvVideo_GetAttribsText(const BITMAPINFOHEADER *header, LPWSTR buffer, UINT length)
{
    return VideoAttribs(header, buffer, length, false);
}

ZVAPI HRESULT ZvVideo_GetAttribsTextEx(const BITMAPINFOHEADER *header, LPWSTR buffer, UINT length)
{
    return VideoAttribs(header, buffer, length, true);
}

ZVAPI LPCWSTR ZvVideo_GetInterlaceTypeName(int kind)
{
    static const wchar_t *const names[] = {
        L"Progressive", L"Upper field first", L"Lower field first", L"One field (half height)",
        L"One field (doubled)",
    };
    return kind >= 0 && kind < 5 ? names[kind] : L"Undefined";
}
