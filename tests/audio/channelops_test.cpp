#include <gtest/gtest.h>
#include <string.h>
#include <vector>
#include "audio/channelops.h"

namespace {

WAVEFORMATEX Fmt(ZVSAMPLETYPE type, WORD channels)
{
    WAVEFORMATEX w = {};
    ZvAudio_InitWfx(&w, 48000, type, channels);
    return w;
}

} // namespace

TEST(ChannelOps, MuteWritesTheTypesSilence)
{
    uint8_t buf[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    WAVEFORMATEX u8 = Fmt(ZVSAMPLE_U8, 2);
    EXPECT_EQ(ZvAudio_MuteChannel(buf, &u8, 1, 4), S_OK);
    const uint8_t want[8] = {1, 128, 3, 128, 5, 128, 7, 128};
    EXPECT_EQ(memcmp(buf, want, 8), 0);

    int16_t s[6] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(ZvAudio_MuteChannel(s, ZVSAMPLE_S16BE, 3, 2, 2), S_OK);
    EXPECT_EQ(s[2], 0);
    EXPECT_EQ(s[5], 0);
    EXPECT_EQ(s[4], 5);
    EXPECT_EQ(ZvAudio_FillSilenceChannel(buf, &u8, 0, 1), S_OK);
    EXPECT_EQ(buf[0], 128);

    // Nothing to do, bad channel, bad type, null buffer.
    EXPECT_EQ(ZvAudio_MuteChannel(buf, &u8, 0, 0), S_OK);
    EXPECT_EQ(ZvAudio_MuteChannel(buf, &u8, 2, 4), E_INVALIDARG);
    EXPECT_EQ(ZvAudio_MuteChannel(buf, ZVSAMPLE_RA16, 2, 0, 4), E_FAIL);
    EXPECT_EQ(ZvAudio_MuteChannel(nullptr, &u8, 0, 4), E_POINTER);
    EXPECT_EQ(ZvAudio_MuteChannel(buf, (const WAVEFORMATEX *)nullptr, 0, 4), E_POINTER);
}

TEST(ChannelOps, StereoSwapMovesWholeSamples)
{
    // 24-bit stereo: frames of L0 L1 L2 R0 R1 R2.
    uint8_t buf[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    WAVEFORMATEX s24 = Fmt(ZVSAMPLE_S24, 2);
    EXPECT_EQ(ZvAudio_SwapStereoChannels(buf, &s24, 2), S_OK);
    const uint8_t want[12] = {4, 5, 6, 1, 2, 3, 10, 11, 12, 7, 8, 9};
    EXPECT_EQ(memcmp(buf, want, 12), 0);

    double three[6] = {1, 2, 3, 4, 5, 6}, out[6] = {};
    WAVEFORMATEX f64 = Fmt(ZVSAMPLE_F64, 3);
    EXPECT_EQ(ZvAudio_CopySwapStereoChannels(out, three, &f64, 2), S_OK);
    const double wantd[6] = {2, 1, 3, 5, 4, 6};
    EXPECT_EQ(memcmp(out, wantd, sizeof(out)), 0);

    WAVEFORMATEX mono = Fmt(ZVSAMPLE_S16, 1);
    EXPECT_EQ(ZvAudio_SwapStereoChannels(buf, &mono, 2), E_INVALIDARG);
    uint8_t before[12];
    memcpy(before, buf, 12);
    EXPECT_EQ(ZvAudio_SwapStereoChannels(buf, &s24, 0), S_OK);
    EXPECT_EQ(memcmp(before, buf, 12), 0);
}

TEST(ChannelOps, ExtractInsertAndSplitRoundTripInEveryWidth)
{
    const ZVSAMPLETYPE types[] = {ZVSAMPLE_U8, ZVSAMPLE_S16, ZVSAMPLE_S24BE, ZVSAMPLE_F32, ZVSAMPLE_F64};
    for (ZVSAMPLETYPE t : types) {
        const UINT w = ZvAudio_BytesFromSampleType(t), ch = 5, frames = 7;
        std::vector<uint8_t> inter(w * ch * frames), rebuilt(inter.size(), 0xEE), mono(w * frames),
            pair(2 * w * frames);
        for (size_t i = 0; i < inter.size(); i++)
            inter[i] = (uint8_t)(i * 13 + 5);
        WAVEFORMATEX f = Fmt(t, (WORD)ch);
        for (UINT c = 0; c < ch; c++) {
            ASSERT_EQ(ZvAudio_ExtractChannel(mono.data(), c, inter.data(), &f, frames), S_OK);
            for (UINT i = 0; i < frames; i++)
                ASSERT_EQ(memcmp(&mono[i * w], &inter[(i * ch + c) * w], w), 0);
            ASSERT_EQ(ZvAudio_InsertChannel(rebuilt.data(), t, c, ch, mono.data(), frames), S_OK);
        }
        EXPECT_EQ(rebuilt, inter) << t;

        ASSERT_EQ(ZvAudio_ExtractChannelPair(pair.data(), 3, inter.data(), &f, frames), S_OK);
        for (UINT i = 0; i < frames; i++)
            EXPECT_EQ(memcmp(&pair[i * 2 * w], &inter[(i * ch + 3) * w], 2 * w), 0);
        EXPECT_EQ(ZvAudio_ExtractChannelPair(pair.data(), 4, inter.data(), &f, frames), E_INVALIDARG);

        std::vector<std::vector<uint8_t>> bufs(ch, std::vector<uint8_t>(w * frames));
        void *ptrs[5];
        for (UINT c = 0; c < ch; c++) ptrs[c] = bufs[c].data();
        ASSERT_EQ(ZvAudio_CopyChannelToMultiMono(ptrs, &f, inter.data(), frames), S_OK);
        ASSERT_EQ(ZvAudio_ExtractChannel(mono.data(), 2, inter.data(), t, ch, frames), S_OK);
        EXPECT_EQ(bufs[2], mono);
    }
    int16_t x[4] = {};
    EXPECT_EQ(ZvAudio_ExtractChannel(x, 2, x, ZVSAMPLE_S16, 2, 2), E_INVALIDARG);
    EXPECT_EQ(ZvAudio_InsertChannel(x, ZVSAMPLE_NONE, 0, 2, x, 2), E_FAIL);
    void *none[2] = {x, nullptr};
    EXPECT_EQ(ZvAudio_CopyChannelToMultiMono2(none, ZVSAMPLE_S16, 2, x, 2), E_POINTER);
}

TEST(ChannelOps, CopiesWithinOneBuffer)
{
    int32_t b[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    WAVEFORMATEX f = Fmt(ZVSAMPLE_S32, 3);
    EXPECT_EQ(ZvAudio_CopyChannelToChannel(b, &f, 2, 0, 3), S_OK);
    const int32_t w1[9] = {3, 2, 3, 6, 5, 6, 9, 8, 9};
    EXPECT_EQ(memcmp(b, w1, sizeof(b)), 0);
    EXPECT_EQ(ZvAudio_CopyChannelToAll(b, &f, 1, 3), S_OK);
    const int32_t w2[9] = {2, 2, 2, 5, 5, 5, 8, 8, 8};
    EXPECT_EQ(memcmp(b, w2, sizeof(b)), 0);
    EXPECT_EQ(ZvAudio_CopyChannelToChannel(b, &f, 3, 0, 3), E_INVALIDARG);

    const int32_t v = -7;
    EXPECT_EQ(ZvAudio_FillWithSample(b, &f, &v, 2), S_OK);
    for (int i = 0; i < 6; i++) EXPECT_EQ(b[i], -7);
    EXPECT_EQ(b[6], 8);
    EXPECT_EQ(ZvAudio_FillWithSample(b, &f, nullptr, 2), E_POINTER);
}

TEST(ChannelOps, ChannelChangeMapsAndAverages)
{
    WAVEFORMATEX mono = Fmt(ZVSAMPLE_S16, 1), stereo = Fmt(ZVSAMPLE_S16, 2), quad = Fmt(ZVSAMPLE_S16, 4);
    int16_t m[3] = {10, -20, 30}, s[6] = {}, q[12] = {};
    EXPECT_EQ(ZvAudio_ChannelChange(s, &stereo, m, &mono, 3), S_OK);
    const int16_t ws[6] = {10, 10, -20, -20, 30, 30};
    EXPECT_EQ(memcmp(s, ws, sizeof(s)), 0);

    memset(q, 0x55, sizeof(q));
    EXPECT_EQ(ZvAudio_ChannelChange(q, &quad, s, &stereo, 3), S_OK);
    EXPECT_EQ(q[0], 10);
    EXPECT_EQ(q[1], 10);
    EXPECT_EQ(q[2], 0);
    EXPECT_EQ(q[11], 0);
    EXPECT_EQ(ZvAudio_ChannelChangeAvg(q, &quad, s, &stereo, 3), S_OK);
    EXPECT_EQ(q[2], 10);

    // Folding rounds the mean to even: (1 + 2) / 2 -> 2, (3 + 2) / 2 -> 2.
    int16_t in[6] = {1, 2, 3, 2, -32768, -32767}, out[3] = {};
    EXPECT_EQ(ZvAudio_ChannelChangeAvg(out, &mono, in, &stereo, 3), S_OK);
    EXPECT_EQ(out[0], 2);
    EXPECT_EQ(out[1], 2);
    EXPECT_EQ(out[2], -32768);
    EXPECT_EQ(ZvAudio_ChannelChange(out, &mono, in, &stereo, 3), S_OK);
    EXPECT_EQ(out[1], 3);

    // 4 to 2 with averaging: channel j takes the mean of j and j + 2.
    int16_t four[4] = {100, 7, 300, 9}, two[2] = {};
    EXPECT_EQ(ZvAudio_ChannelChangeAvg(two, &stereo, four, &quad, 1), S_OK);
    EXPECT_EQ(two[0], 200);
    EXPECT_EQ(two[1], 8);

    WAVEFORMATEX f32 = Fmt(ZVSAMPLE_F32, 2), mp3 = {};
    mp3.wFormatTag = 0x55;
    mp3.nChannels = 2;
    EXPECT_EQ(ZvAudio_ChannelChange(out, &f32, in, &stereo, 3), E_NOTIMPL);
    EXPECT_EQ(ZvAudio_ChannelChange(out, &mp3, in, &stereo, 3), E_FAIL);
    EXPECT_EQ(ZvAudio_ChannelChange(out, &mono, in, &stereo, 0), S_OK);
}

TEST(ChannelOps, MonoFoldUsesTheCopyRule)
{
    WAVEFORMATEX u8 = Fmt(ZVSAMPLE_U8, 3), f32 = Fmt(ZVSAMPLE_F32, 2), f1 = Fmt(ZVSAMPLE_F32, 1);
    uint8_t in[6] = {128, 129, 130, 255, 255, 255}, out[2] = {};
    EXPECT_EQ(ZvAudio_MonoChannel(out, &u8, in, 2), S_OK);
    EXPECT_EQ(out[0], 129);
    EXPECT_EQ(out[1], 255);

    float fin[4] = {1.0f, 3.0f, -0.5f, 0.25f}, fout[2] = {};
    EXPECT_EQ(ZvAudio_MonoChannel(fout, &f32, fin, 2), S_OK);
    EXPECT_EQ(fout[0], 2.0f);   // floats are not clamped
    EXPECT_EQ(fout[1], -0.125f);
    EXPECT_EQ(ZvAudio_MonoChannel(fout, &f1, fin, 2), S_OK);
    EXPECT_EQ(fout[1], 3.0f);

    WAVEFORMATEX none = Fmt(ZVSAMPLE_F32, 0);
    EXPECT_EQ(ZvAudio_MonoChannel(fout, &none, fin, 2), E_NOTIMPL);
    EXPECT_EQ(ZvAudio_MonoChannel(nullptr, &f32, fin, 2), E_POINTER);
}
