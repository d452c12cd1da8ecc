#include <gtest/gtest.h>
#include <string>
#include "audio/formatnames.h"
#include "zvprintf.h"

namespace {

DWORD Fcc(const char *s)
{
    return (DWORD)(unsigned char)s[0] | (DWORD)(unsigned char)s[1] << 8 | (DWORD)(unsigned char)s[2] << 16 |
           (DWORD)(unsigned char)s[3] << 24;
}

std::wstring AudioName(UINT tag, BOOL shortName)
{
    wchar_t buf[64] = L"?";
    EXPECT_TRUE(SUCCEEDED(ZvAudio_GetCompressionTypeName(tag, buf, 64, shortName)));
    return buf;
}

std::wstring VideoName(DWORD fcc, BOOL shortName)
{
    wchar_t buf[64] = L"?";
    EXPECT_TRUE(SUCCEEDED(ZvVideo_GetCompressionTypeName(fcc, buf, 64, shortName)));
    return buf;
}

} // namespace

TEST(FormatNames, AudioTablesLongShortAndCanonical)
{
    // a row with a short name of its own, one without, one of the own tags
    EXPECT_EQ(AudioName(0x55, FALSE), L"MPEG Layer 3");
    EXPECT_EQ(AudioName(0x55, TRUE), L"MP3");
    EXPECT_EQ(AudioName(0x2003, TRUE), L"RealAudio");
    EXPECT_EQ(AudioName(0xFE02, FALSE), L"PCM Big Endian");
    EXPECT_EQ(AudioName(0xFE02, TRUE), L"PCM");
    EXPECT_EQ(ZvAudio_ConvertToCanonicalWaveFormatTag(0x17), 0x2u);
    EXPECT_EQ(ZvAudio_ConvertToCanonicalWaveFormatTag(0x1234), 0x1234u);

    wchar_t buf[64];
    EXPECT_EQ(ZvAudio_GetCompressionTypeName(0x1234, buf, 64, TRUE), S_FALSE);
    EXPECT_STREQ(buf, L"0x4660");
    EXPECT_EQ(ZvAudio_GetCompressionTypeName(0x162, buf, 8, FALSE), ZVERR_BUFFER_TOO_SMALL);
    EXPECT_STREQ(buf, L"Windows");
    EXPECT_EQ(ZvAudio_GetCompressionTypeName(0x1, nullptr, 8, FALSE), E_POINTER);
}

TEST(FormatNames, VideoTablesAndFourCCText)
{
    EXPECT_EQ(VideoName(Fcc("WMV3"), FALSE), L"Windows Media Video 9");
    EXPECT_EQ(VideoName(Fcc("WMV3"), TRUE), L"WMV");
    EXPECT_EQ(VideoName(Fcc("IYUV"), TRUE), L"YUV");
    EXPECT_EQ(VideoName(0, FALSE), L"RGB (Uncompressed)");
    EXPECT_EQ(VideoName(2, TRUE), L"RLE (4 bit)");
    EXPECT_EQ(VideoName(Fcc("ABCD"), FALSE), L"'ABCD' Compression");
    EXPECT_EQ(VideoName(Fcc("ABCD"), TRUE), L"ABCD");
    EXPECT_EQ(ZvVideo_ConvertToCanonicalCompressionFormat(Fcc("YUY2")), Fcc("YUYV"));

    char a[8];
    wchar_t w[8];
    EXPECT_STREQ(ZvVideo_FOURCCtoPrintString(Fcc("dv\x01s"), a, 8), "dv.s");
    EXPECT_STREQ(ZvVideo_FOURCCtoPrintStringW(3, w, 8), L"3");
    EXPECT_STREQ(ZvVideo_FOURCCtoPrintString(Fcc("MJPG"), a, 3), "MJ");

    EXPECT_EQ(ZvVideo_GetFormatText(3, w, 8), ZVERR_BUFFER_TOO_SMALL);
    wchar_t line[96];
    BITMAPINFOHEADER h = {};
    h.biWidth = 720;
    h.biHeight = -576;
    h.biBitCount = 24;
    EXPECT_EQ(ZvVideo_GetAttribsText(&h, line, 96), S_OK);
    EXPECT_STREQ(line, L"720 x 576, 24 Bit, RGB");
    h.biCompression = Fcc("ZVGS");
    h.biBitCount = 8;
    EXPECT_EQ(ZvVideo_GetAttribsText(&h, line, 96), S_OK);
    EXPECT_STREQ(line, L"720 x 576, 8 Bit, Grayscale");
    h.biCompression = Fcc("wdvp");
    EXPECT_EQ(ZvVideo_GetAttribsTextEx(&h, line, 96), S_OK);
    EXPECT_STREQ(line, L"720 x 576, 8 Bit, PAL DV Widescreen");
    EXPECT_EQ(ZvVideo_GetAttribsText(nullptr, line, 96), E_POINTER);
    EXPECT_STREQ(ZvVideo_GetInterlaceTypeName(2), L"Lower field first");
    EXPECT_STREQ(ZvVideo_GetInterlaceTypeName(5), L"Undefined");
    EXPECT_STREQ(ZvVideo_GetInterlaceTypeName(-1), L"Undefined");
}

// Texts partly from the kernel's string resources, with the forms they
// give (singular, surround layouts).
TEST(FormatNames, SampleTypesChannelsAndAttributeLines)
{
    wchar_t buf[64];
    const struct { ZVSAMPLETYPE type; const wchar_t *text; } types[] = {
        {ZVSAMPLE_S24, L"24 Bit"}, {ZVSAMPLE_S24IN32, L"24 Bit (Unpacked)"}, {ZVSAMPLE_S8, L"8 Bit (Signed)"},
        {ZVSAMPLE_F64, L"64 Bit (IEEE Float)"}, {ZVSAMPLE_S32BE, L"32 Bit (MAC)"}, {ZVSAMPLE_RA24, L"24 Bit (RA)"},
        {ZVSAMPLE_NONE, L""}, {ZVSAMPLE_S16, L"16 Bit"}};
    for (const auto &t : types)
        EXPECT_STREQ(ZvAudio_GetSampleTypeText(t.type, buf, 64), t.text) << t.type;
    const struct { int channels; DWORD mask; const wchar_t *text; } layouts[] = {
        {3, 0, L"3 Channel"}, {2, 0, L"Stereo"}, {6, 0x60F, L"5.1"}, {4, 0xF, L"3/0 (L, C, R) + LFE"},
        {5, 0x37, L"3/2 (L, C, R, Ls, Rs)"}, {2, 0x30, L"2 Channel"}, {1, 0, L"Mono"}, {1, 0x8, L"1 Channel"},
        {2, 0xC, L"1/0 (C) + LFE"}, {8, 0xFF, L"7.1"}};
    for (const auto &l : layouts)
        EXPECT_STREQ(ZvAudio_GetChannelsText(l.channels, l.mask, buf, 64), l.text) << l.channels << " " << l.mask;

    // the rate in locale form, the parts joined by the list separator
    wchar_t rate[32], sep[8], want[96];
    ZvCchPrintF(rate, 32, nullptr, L"$d", 44100);
    ZvCchPrintF(sep, 8, nullptr, L"$,");
    WAVEFORMATEX w = {};
    ZvAudio_InitWfx(&w, 44100, ZVSAMPLE_S16, 2);
    EXPECT_EQ(ZvAudio_GetAttribsText(&w, buf, 64), S_OK);
    swprintf(want, 96, L"%ls Hz%ls 16 Bit%ls Stereo", rate, sep, sep);
    EXPECT_STREQ(buf, want);
    EXPECT_EQ(ZvAudio_GetFormatText(&w, buf, 64), S_OK);
    EXPECT_STREQ(buf, L"PCM");

    WAVEFORMATEXTENSIBLE e = {};
    ZvAudio_InitWfxFlex(&e.Format, 3, 48000, 32, 6, 0x60F, sizeof(e));
    EXPECT_EQ(ZvAudio_GetAttribsText(&e.Format, buf, 64), S_OK);
    ZvCchPrintF(rate, 32, nullptr, L"$d", 48000);
    swprintf(want, 96, L"%ls Hz%ls 32 Bit (IEEE Float)%ls 5.1", rate, sep, sep);
    EXPECT_STREQ(buf, want);
    EXPECT_EQ(ZvAudio_GetFormatText(&e.Format, buf, 64), S_OK);
    EXPECT_STREQ(buf, L"PCM (float)");
    EXPECT_EQ(ZvAudio_GetAttribsText(nullptr, buf, 64), E_POINTER);
}

TEST(FormatNames, TagTextFromOwnTagsAndThePlatformList)
{
    wchar_t buf[64];
    const struct { UINT tag; HRESULT hr; const wchar_t *text; } tags[] = {
        {0xFE00, S_OK, L"PCM (unpacked)"}, {0xFE01, S_OK, L"PCM (signed)"}, {0xFE02, S_OK, L"PCM (big endian)"},
        {3, S_OK, L"PCM (float)"}, {0xBEEF, S_FALSE, L"Unknown"}};
    for (const auto &t : tags) {
        EXPECT_EQ(ZvAudio_GetTagText(t.tag, buf, 64), t.hr) << t.tag;
        EXPECT_STREQ(buf, t.text);
    }
    // A codec the platform may or may not list: a name either way.
    EXPECT_TRUE(SUCCEEDED(ZvAudio_GetTagText(0x2, buf, 64)));
    EXPECT_NE(buf[0], 0);
    // a text cut by the buffer stays terminated
    EXPECT_EQ(ZvAudio_GetTagText(0xBEEF, buf, 4), ZVERR_BUFFER_TOO_SMALL);
    EXPECT_STREQ(buf, L"Unk");
}
