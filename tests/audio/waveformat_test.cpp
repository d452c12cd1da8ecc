#include <gtest/gtest.h>
#include <string.h>
#include "audio/waveformat.h"

namespace {

const ZVSAMPLETYPE kLinear[] = {ZVSAMPLE_U8, ZVSAMPLE_S16, ZVSAMPLE_S24, ZVSAMPLE_S32, ZVSAMPLE_F32, ZVSAMPLE_F64,
                                ZVSAMPLE_S24IN32, ZVSAMPLE_S8, ZVSAMPLE_S16BE, ZVSAMPLE_S24BE, ZVSAMPLE_S32BE};

WAVEFORMATEX Plain(WORD tag, DWORD rate, WORD bits, WORD channels, WORD align = 0)
{
    WAVEFORMATEX w = {};
    w.wFormatTag = tag;
    w.nSamplesPerSec = rate;
    w.wBitsPerSample = bits;
    w.nChannels = channels;
    w.nBlockAlign = align ? align : (WORD)(bits / 8 * channels);
    w.nAvgBytesPerSec = w.nBlockAlign * rate;
    return w;
}

WAVEFORMATEXTENSIBLE Ext(DWORD subTag, WORD bits, WORD valid, WORD channels, DWORD mask)
{
    WAVEFORMATEXTENSIBLE e = {};
    e.Format = Plain(WAVE_FORMAT_EXTENSIBLE, 48000, bits, channels);
    e.Format.cbSize = 22;
    e.Samples.wValidBitsPerSample = valid;
    e.dwChannelMask = mask;
    e.SubFormat = {subTag, 0, 0x10, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
    return e;
}

} // namespace

TEST(WaveFormatTypes, TagAndBitsGiveTheTableType)
{
    const struct { UINT tag, bits; ZVSAMPLETYPE type; } rows[] = {
        {1, 8, ZVSAMPLE_U8}, {1, 20, ZVSAMPLE_S24}, {1, 12, ZVSAMPLE_NONE}, {3, 64, ZVSAMPLE_F64},
        {3, 16, ZVSAMPLE_NONE}, {0xFE00, 24, ZVSAMPLE_S24IN32}, {0xFE01, 8, ZVSAMPLE_S8},
        {0xFE01, 16, ZVSAMPLE_S16}, {0xFE02, 8, ZVSAMPLE_U8}, {0xFE02, 24, ZVSAMPLE_S24BE},
        {0xFE02, 40, ZVSAMPLE_NONE}, {0xFE03, 24, ZVSAMPLE_RA24}, {0x55, 16, ZVSAMPLE_NONE}};
    for (const auto &r : rows)
        EXPECT_EQ(ZvAudio_GetSampleType2(r.tag, r.bits), r.type) << std::hex << r.tag << " " << std::dec << r.bits;

    for (ZVSAMPLETYPE t : kLinear) {
        UINT tag = ZvAudio_FormatTagFromSampleType(t);
        UINT bits = ZvAudio_BitsFromSampleType(t);
        EXPECT_EQ(ZvAudio_GetSampleType2(tag, bits), t) << t;
        EXPECT_EQ(ZvAudio_BytesFromSampleType(t) * 8, bits);
    }
    EXPECT_EQ(ZvAudio_BytesFromSampleType(ZVSAMPLE_RA16), 0u);
    EXPECT_EQ(ZvAudio_FormatTagFromSampleType(ZVSAMPLE_RA24), 0u);
    EXPECT_EQ(ZvAudio_GetNormalizeFactor(24), 8388608.0);
    EXPECT_EQ(ZvAudio_GetNormalizeFactor(12), 1.0);
}

TEST(WaveFormatTypes, ExtensibleSubFormatDecides)
{
    WAVEFORMATEXTENSIBLE e = Ext(1, 32, 24, 2, 3);
    EXPECT_EQ(ZvAudio_GetSampleType(&e.Format), ZVSAMPLE_S24IN32);
    e.Samples.wValidBitsPerSample = 32;
    EXPECT_EQ(ZvAudio_GetSampleType(&e.Format), ZVSAMPLE_S32);
    e.SubFormat.Data3 = 0x11;   // not the base GUID
    EXPECT_EQ(ZvAudio_GetSampleType(&e.Format), ZVSAMPLE_NONE);
    EXPECT_EQ(ZvAudio_GetWaveFormatTag(&e.Format), 0u);
    EXPECT_TRUE(ZvAudio_IsCompressedExtensible(&e));

    e = Ext(3, 32, 32, 6, 0x3F);
    WORD tag = 0;
    EXPECT_TRUE(ZvAudio_GetFormatTagExtensible(&e, &tag));
    EXPECT_EQ(tag, 3);
    EXPECT_FALSE(ZvAudio_IsCompressed(&e.Format));
    e.Format.cbSize = 10;   // no room for the sub-format
    EXPECT_TRUE(ZvAudio_IsCompressed(&e.Format));
    EXPECT_EQ(ZvAudio_GetSampleType(&e.Format), ZVSAMPLE_NONE);
    EXPECT_EQ(ZvAudio_GetWaveFormatTag(&e.Format), (UINT)WAVE_FORMAT_EXTENSIBLE);

    e = Ext(0x55, 0, 0, 2, 3);
    EXPECT_EQ(ZvAudio_GetWaveFormatTag(&e.Format), 0x55u);
    EXPECT_EQ(ZvAudio_GetWaveFormatTag(nullptr), 0u);
    EXPECT_EQ(ZvAudio_GetSampleType(nullptr), ZVSAMPLE_NONE);
}

TEST(WaveFormatTypes, CompressedByBlockAlignAndTag)
{
    WAVEFORMATEX w = Plain(1, 44100, 16, 2);
    EXPECT_FALSE(ZvAudio_IsCompressed(&w));
    w.nBlockAlign = 5;
    EXPECT_TRUE(ZvAudio_IsCompressed(&w));
    w = Plain(0xFE00, 44100, 32, 2);   // the unpacked tag counts as compressed here
    EXPECT_TRUE(ZvAudio_IsCompressed(&w));
    w = Plain(0x55, 44100, 0, 2, 1);
    EXPECT_TRUE(ZvAudio_IsCompressed(&w));
    EXPECT_TRUE(ZvAudio_IsCompressed(nullptr));

    WAVEFORMATEX a = Plain(1, 44100, 16, 2), b = a;
    b.nAvgBytesPerSec = 1;
    EXPECT_TRUE(ZvAudio_IsEqualFormat(&a, &b));
    b.nSamplesPerSec = 48000;
    EXPECT_FALSE(ZvAudio_IsEqualFormat(&a, &b));
    EXPECT_FALSE(ZvAudio_IsEqualFormat(&a, nullptr));
}

TEST(WaveFormatRecord, FromPlatformFormats)
{
    _zvwaveformat_wfxplus f;
    WAVEFORMATEX w = Plain(1, 44100, 20, 2, 5);   // 20 bits, bad block align
    ASSERT_EQ(f.Init(sizeof(f), &w), S_OK);
    EXPECT_EQ(f.sampleType, ZVSAMPLE_S24);
    EXPECT_EQ(f.blockAlign, 6);
    EXPECT_FALSE(f.IsCompressed());
    EXPECT_EQ(f.ExtraSize(), 0);

    WAVEFORMATEXTENSIBLE e = Ext(1, 32, 24, 6, 0x60F);
    ASSERT_EQ(f.Init(sizeof(f), &e.Format), S_OK);
    EXPECT_EQ(f.sampleType, ZVSAMPLE_S24IN32);
    EXPECT_EQ(f.channelMask, 0x60Fu);
    EXPECT_EQ(f.flags, ZVWFX_FLAG_EXTENSIBLE);
    EXPECT_EQ(f.FormatTag(), 0xFE00u);
    EXPECT_EQ(f.BitsPerSample(), 32u);

    // Empty sub-format and block align counted in bits: the bits decide.
    e = Ext(0, 16, 16, 2, 3);
    memset(&e.SubFormat, 0, sizeof(GUID));
    e.Format.nBlockAlign = 32;
    e.Format.nAvgBytesPerSec = 32 * 48000;
    ASSERT_EQ(f.Init(sizeof(f), &e.Format), S_OK);
    EXPECT_EQ(f.sampleType, ZVSAMPLE_S16);
    EXPECT_FALSE(f.IsCompressed());
    EXPECT_EQ(f.blockAlign, 4);

    EXPECT_EQ(f.Init(sizeof(f), nullptr), E_POINTER);
    _zvwaveformat small;
    EXPECT_EQ(small.Init(16, &w), E_INVALIDARG);
}

TEST(WaveFormatRecord, ExtraBytesFollowTheRoom)
{
    BYTE block[sizeof(WAVEFORMATEX) + 1500] = {};
    WAVEFORMATEX *w = (WAVEFORMATEX *)block;
    *w = Plain(0x55, 44100, 0, 2, 1);
    w->nAvgBytesPerSec = 16000;
    w->cbSize = 100;
    for (int i = 0; i < 1500; i++)
        block[sizeof(WAVEFORMATEX) + i] = (BYTE)(i * 7 + 1);

    _zvwaveformat bare;
    ASSERT_EQ(bare.Init(sizeof(bare), w), S_OK);
    EXPECT_EQ(bare.cbSize, 32u);
    EXPECT_EQ(bare.ExtraSize(), 0);
    EXPECT_TRUE(bare.IsCompressed());
    EXPECT_EQ(bare.FormatTag(), 0x55u);

    _zvwaveformat_wfxplus f(w);
    EXPECT_EQ(f.ExtraSize(), 100);
    EXPECT_EQ(f.cbSize, 132u) << "32 plus the extra bytes, the size word not counted";
    EXPECT_EQ(memcmp(f.extra, block + sizeof(WAVEFORMATEX), 100), 0);

    w->cbSize = 1500;
    _zvwaveformat_wfxplus big(w);
    EXPECT_EQ(big.ExtraSize(), 1024);
    EXPECT_EQ(memcmp(big.extra, block + sizeof(WAVEFORMATEX), 1024), 0);

    // A partial buffer keeps what fits.
    BYTE part[34 + 10];
    _zvwaveformat *p = (_zvwaveformat *)part;
    ASSERT_EQ(p->Init(sizeof(part), w), S_OK);
    EXPECT_EQ(p->ExtraSize(), 10);
    EXPECT_EQ(p->cbSize, 42u);

    // A copy keeps the count; a linear record in a large buffer has no extra.
    BYTE copy[ZVWFX_FULL_SIZE];
    _zvwaveformat *c = ZvAudio_GeneralCopyZvWaveFormat((_zvwaveformat *)copy, sizeof copy, &f, ZVWFX_COPY_AUTO);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->cbSize, 132u);
    EXPECT_EQ(c->ExtraSize(), 100);
    EXPECT_TRUE(*c == f);
    c->Init(48000, ZVSAMPLE_S16, 2, 0, sizeof copy);
    EXPECT_EQ(c->cbSize, 32u);
    EXPECT_EQ(c->ExtraSize(), 0);

    // Back to the platform: the extra bytes follow the header.
    WAVEFORMATEX *out = ZvAudio_AllocAndCopyWfx(&f, ZVWFX_COPY_AUTO);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(out->wFormatTag, 0x55);
    EXPECT_EQ(out->cbSize, 100);
    EXPECT_EQ(out->nAvgBytesPerSec, 16000u);
    EXPECT_EQ(memcmp(out + 1, block + sizeof(WAVEFORMATEX), 100), 0);
    EXPECT_TRUE(f == *out);
    GlobalFree(out);
}

TEST(WaveFormatRecord, EqualityRules)
{
    _zvwaveformat a, b;
    a.Init(48000, ZVSAMPLE_S16, 2, 0);
    b.Init(48000, ZVSAMPLE_S16, 2, 3);
    EXPECT_TRUE(a == b);
    b.channelMask = 0x30;
    EXPECT_FALSE(a == b);
    b.Init(48000, ZVSAMPLE_S16, 2, 3);
    b.blockAlign = 99;   // linear: the type decides
    EXPECT_TRUE(a == b);
    b.Init(44100, ZVSAMPLE_S16, 2);
    EXPECT_FALSE(a == b);

    _zvwaveformat c, d;
    c.InitAsWfx(0x55, 44100, 0, 2);
    d.InitAsWfx(0x55, 44100, 0, 2);
    EXPECT_TRUE(c == d);
    d.avgBytesPerSec++;
    EXPECT_FALSE(c == d);

    WAVEFORMATEX w = Plain(1, 48000, 16, 2);
    EXPECT_TRUE(a == w);
    w.nChannels = 1;
    EXPECT_TRUE(a != w);
}

TEST(WaveFormatRecord, CopyDestinationsChooseTheForm)
{
    _zvwaveformat f;
    f.Init(48000, ZVSAMPLE_S24, 6, 0x60F);
    _zvwaveformat_wfxecopyhelper ext(f);
    const WAVEFORMATEXTENSIBLE *e = &ext.wfe;
    EXPECT_EQ(e->Format.wFormatTag, WAVE_FORMAT_EXTENSIBLE);
    EXPECT_EQ(e->Format.cbSize, 22);
    EXPECT_EQ(e->Format.nBlockAlign, 18);
    EXPECT_EQ(e->Format.nAvgBytesPerSec, 18u * 48000);
    EXPECT_EQ(e->Samples.wValidBitsPerSample, 24);
    EXPECT_EQ(e->dwChannelMask, 0x60Fu);
    EXPECT_EQ(ZvAudio_GetWaveFormatTag(&e->Format), 1u);
    EXPECT_TRUE(f == e->Format);

    _zvwaveformat_wfxcopyhelper plain(f);
    EXPECT_EQ(plain.wfx.wFormatTag, WAVE_FORMAT_PCM);
    EXPECT_EQ(plain.wfx.cbSize, 0);

    WAVEFORMATEXTENSIBLE room = {};
    // Default mask, plain source: plain unless asked.
    f.Init(48000, ZVSAMPLE_F32, 2, 0);
    EXPECT_EQ(f.ToWfx(&room.Format, sizeof(room), ZVWFX_COPY_AUTO)->wFormatTag, WAVE_FORMAT_IEEE_FLOAT);
    EXPECT_EQ(f.ToWfx(&room.Format, sizeof(room), ZVWFX_COPY_MULTICHANNEL)->wFormatTag, WAVE_FORMAT_IEEE_FLOAT);
    EXPECT_EQ(f.ToWfx(&room.Format, sizeof(room), ZVWFX_COPY_EXTENSIBLE)->wFormatTag, WAVE_FORMAT_EXTENSIBLE);
    EXPECT_EQ(room.dwChannelMask, 3u);
    f.flags |= ZVWFX_FLAG_EXTENSIBLE;
    EXPECT_EQ(f.ToWfx(&room.Format, sizeof(room), ZVWFX_COPY_AUTO)->wFormatTag, WAVE_FORMAT_EXTENSIBLE);
    // Too little room: automatic choice falls back, forced choice fails.
    EXPECT_EQ(f.ToWfx(&room.Format, sizeof(WAVEFORMATEX), ZVWFX_COPY_AUTO)->wFormatTag, WAVE_FORMAT_IEEE_FLOAT);
    EXPECT_EQ(f.ToWfx(&room.Format, sizeof(WAVEFORMATEX), ZVWFX_COPY_EXTENSIBLE), nullptr);
    EXPECT_EQ(f.ToWfx(&room.Format, 10, ZVWFX_COPY_PLAIN), nullptr);
    EXPECT_EQ(f.ToWfx(&room.Format, sizeof(room), 9), nullptr);

    // Every linear type survives the trip through both platform forms.
    for (ZVSAMPLETYPE t : kLinear) {
        for (int dest : {ZVWFX_COPY_PLAIN, ZVWFX_COPY_EXTENSIBLE}) {
            _zvwaveformat g;
            g.Init(96000, t, 2);
            ASSERT_NE(g.ToWfx(&room.Format, sizeof(room), dest), nullptr);
            _zvwaveformat_wfxplus back(&room.Format);
            EXPECT_TRUE(back == g) << t << " " << dest;
            EXPECT_EQ(back.blockAlign, g.blockAlign);
        }
    }
}

TEST(WaveFormatRecord, PlatformCopies)
{
    WAVEFORMATEXTENSIBLE e = Ext(3, 32, 32, 2, 3), out = {};
    WAVEFORMATEX plain = {};
    ZvAudio_CopyWfExtToWfx(&e, &plain);
    EXPECT_EQ(plain.wFormatTag, WAVE_FORMAT_IEEE_FLOAT);
    EXPECT_EQ(plain.cbSize, 0);
    EXPECT_EQ(plain.nBlockAlign, 8);

    ZvAudio_CopyWfxToWfExt(&e.Format, &out);
    EXPECT_EQ(memcmp(&out, &e, sizeof(e)), 0);
    WAVEFORMATEX pcm = Plain(1, 8000, 8, 1);
    pcm.cbSize = 0xFFFF;   // garbage behind an old 16-byte header
    ZvAudio_CopyWfxToWfExt(&pcm, &out);
    EXPECT_EQ(out.Format.cbSize, 0);
    EXPECT_EQ(out.Format.nSamplesPerSec, 8000u);

    ZvAudio_CopyWfExt(&out, &e.Format, ZVWFX_COPY_PLAIN);
    EXPECT_EQ(out.Format.wFormatTag, WAVE_FORMAT_IEEE_FLOAT);
    ZvAudio_CopyWfx(&plain, sizeof(plain), &e.Format, ZVWFX_COPY_AUTO);
    EXPECT_EQ(plain.wFormatTag, WAVE_FORMAT_IEEE_FLOAT);

    WAVEFORMATEX flex = {};
    ZvAudio_InitWfxFlex(&flex, 1, 44100, 16, 2, 0x3, sizeof(flex));
    EXPECT_EQ(flex.wFormatTag, 1);
    ZvAudio_InitWfxFlex(&out.Format, 1, 44100, 16, 2, 0x600, sizeof(out));
    EXPECT_EQ(out.Format.wFormatTag, WAVE_FORMAT_EXTENSIBLE);
    EXPECT_EQ(out.dwChannelMask, 0x600u);

    ZvAudio_InitWfx(&plain, 22050, ZVSAMPLE_S24BE, 2);
    EXPECT_EQ(plain.wFormatTag, 0xFE02);
    EXPECT_EQ(plain.nBlockAlign, 6);
    EXPECT_EQ(plain.nAvgBytesPerSec, 6u * 22050);

    // Null arguments are ignored.
    ZvAudio_CopyWfx(nullptr, 18, &plain, 0);
    ZvAudio_CopyWfExtToWfx(nullptr, &plain);
    EXPECT_EQ(ZvAudio_AllocAndCopyWfx((const WAVEFORMATEX *)nullptr, 0), nullptr);
}

TEST(WaveFormatSilence, FillsByForm)
{
    BYTE buf[64];
    WAVEFORMATEX w = Plain(1, 8000, 8, 2);
    memset(buf, 0x55, sizeof(buf));
    EXPECT_EQ(ZvAudio_FillSilence(&w, buf, 10), S_OK);
    EXPECT_EQ(buf[0], 128);
    EXPECT_EQ(buf[19], 128);
    EXPECT_EQ(buf[20], 0x55);

    w = Plain(0xFE01, 8000, 8, 2);
    EXPECT_EQ(ZvAudio_FillSilence(&w, buf, 4), S_OK);
    EXPECT_EQ(buf[7], 0);

    WAVEFORMATEXTENSIBLE e = Ext(1, 8, 8, 2, 3);
    EXPECT_EQ(ZvAudio_FillSilence(&e.Format, buf, 2), S_OK);
    EXPECT_EQ(buf[3], 128);
    e = Ext(0x55, 8, 8, 2, 3);
    memset(buf, 0x55, sizeof(buf));
    EXPECT_EQ(ZvAudio_FillSilence(&e.Format, buf, 2), S_OK);
    EXPECT_EQ(buf[0], 0x55);

    w = Plain(0x55, 8000, 0, 2, 4);
    EXPECT_EQ(ZvAudio_FillSilence(&w, buf, 2), E_FAIL);
    EXPECT_EQ(ZvAudio_FillSilence(&w, buf, 0), S_OK);
    w = Plain(1, 8000, 16, 2);
    EXPECT_EQ(ZvAudio_FillSilence(&w, nullptr, 2), E_POINTER);
    EXPECT_EQ(ZvAudio_FillSilence((const WAVEFORMATEX *)nullptr, buf, 2), E_POINTER);

    _zvwaveformat f;
    f.Init(8000, ZVSAMPLE_U8, 1);
    EXPECT_EQ(ZvAudio_FillSilence(&f, buf, 3), S_OK);
    EXPECT_EQ(buf[2], 128);
    f.InitAsWfx(0x55, 8000, 4, 1);
    EXPECT_EQ(ZvAudio_FillSilence(&f, buf, 3), E_FAIL);
}
