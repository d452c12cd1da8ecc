#include <gtest/gtest.h>
#include <algorithm>
#include <math.h>
#include <stdint.h>
#include <string.h>
#include <float.h>
#include <random>
#include <thread>
#include <vector>
#include "audio/samplecopy.h"
#include "zverror.h"

namespace {

const int kAll[] = {16, 17, 18, 19, 32, 33, 48, 49, 64, 65, 66};

int Size(int t)
{
    switch (t) {
    case 16: case 49: return 1;
    case 17: case 64: return 2;
    case 18: case 65: return 3;
    case 33: return 8;
    default: return 4;
    }
}
bool Flt(int t) { return t == 32 || t == 33; }
int IntBits(int t) { return t == 48 ? 24 : Size(t) * 8; }
bool Exists(int d, int s) { return !((d == 64 || d == 65) && (s == 48 || s == 66)); }

// The source sample as a number, read byte by byte from its stored form.
double RefRead(int t, const uint8_t *p)
{
    switch (t) {
    case 16: return (double)((int)p[0] - 128);
    case 49: return (double)(int8_t)p[0];
    case 17: return (double)(int16_t)(p[0] | p[1] << 8);
    case 64: return (double)(int16_t)(p[1] | p[0] << 8);
    case 18: { int32_t v = p[0] | p[1] << 8 | p[2] << 16; return (double)(v >= 0x800000 ? v - 0x1000000 : v); }
    case 65: { int32_t v = p[2] | p[1] << 8 | p[0] << 16; return (double)(v >= 0x800000 ? v - 0x1000000 : v); }
    case 19: case 48: return (double)(int32_t)((uint32_t)p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24);
    case 66: return (double)(int32_t)((uint32_t)p[3] | (uint32_t)p[2] << 8 | (uint32_t)p[1] << 16 | (uint32_t)p[0] << 24);
    case 32: { float f; memcpy(&f, p, 4); return f; }
    default: { double d; memcpy(&d, p, 8); return d; }
    }
}

void RefWrite(int t, uint8_t *p, double v)
{
    if (t == 32) { float f = (float)v; memcpy(p, &f, 4); return; }
    if (t == 33) { memcpy(p, &v, 8); return; }
    int64_t i = (int64_t)v;
    uint32_t u = (uint32_t)i;
    switch (t) {
    case 16: p[0] = (uint8_t)(i + 128); break;
    case 49: p[0] = (uint8_t)u; break;
    case 17: p[0] = (uint8_t)u; p[1] = (uint8_t)(u >> 8); break;
    case 64: p[1] = (uint8_t)u; p[0] = (uint8_t)(u >> 8); break;
    case 18: p[0] = (uint8_t)u; p[1] = (uint8_t)(u >> 8); p[2] = (uint8_t)(u >> 16); break;
    case 65: p[2] = (uint8_t)u; p[1] = (uint8_t)(u >> 8); p[0] = (uint8_t)(u >> 16); break;
    case 66: for (int k = 0; k < 4; k++) p[3 - k] = (uint8_t)(u >> (8 * k)); break;
    default: for (int k = 0; k < 4; k++) p[k] = (uint8_t)(u >> (8 * k)); break;
    }
}

// The rule, step by step: normalise, gain, scale, clamp, round half to even.
void RefConvert(int d, int s, uint8_t *out, const uint8_t *in, float gain)
{
    double v = RefRead(s, in);
    if (!Flt(s))
        v = v * ldexp(1.0, -(IntBits(s) - 1));
    if (gain != 1.0f)
        v = v * (double)gain;
    if (!Flt(d)) {
        double full = ldexp(1.0, IntBits(d) - 1);
        v = v * full;
        if (v < -full) v = -full;
        if (v > full - 1) v = full - 1;
        v = nearbyint(v);
    }
    RefWrite(d, out, v);
}

bool HasNaN(int t, const uint8_t *p, int n)
{
    for (int i = 0; i < n; i++)
        if (Flt(t) && isnan(RefRead(t, p + (size_t)i * Size(t))))
            return true;
    return false;
}

::testing::AssertionResult MatchesRule(int d, int s, const std::vector<uint8_t> &src, int n,
                                       float gain, ZVAUDIOCOPYFUNC fn)
{
    std::vector<uint8_t> got((size_t)n * Size(d) + 8, 0xA5), want((size_t)n * Size(d), 0);
    fn(got.data(), src.data(), n, gain);
    for (int i = 0; i < n; i++) {
        const uint8_t *in = &src[(size_t)i * Size(s)];
        if (HasNaN(s, in, 1))
            continue;   // NaN has no value to compare; the variant checks cover it
        RefConvert(d, s, &want[(size_t)i * Size(d)], in, gain);
        if (memcmp(&got[(size_t)i * Size(d)], &want[(size_t)i * Size(d)], Size(d)) != 0)
            return ::testing::AssertionFailure() << "dest " << d << " src " << s << " gain " << gain
                                                 << " sample " << i << " value " << RefRead(s, in);
    }
    for (int k = 0; k < 8; k++)
        if (got[(size_t)n * Size(d) + k] != 0xA5)
            return ::testing::AssertionFailure() << "wrote past the end, dest " << d << " src " << s;
    return ::testing::AssertionSuccess();
}

// The variants to compare: plain scalar, unrolled scalar, what this machine
// picks, the same kept to 256-bit vectors, and SSE2 without AVX.
std::vector<DWORD> Words()
{
    DWORD cur = ZvAudio_GetCopyCPUWord();
    std::vector<DWORD> w = {0u, 2u, cur, cur | ZVAUDIOCOPY_NO512, (cur & ~0x80Fu) | 6u};
    return w;
}

const float kGains[] = {1.0f, 0.5f, -1.75f, 3.1f, 1e-3f};

// Random bytes; float sources get mostly in-range values with a sprinkling
// of NaNs, infinities and out-of-range values.
std::vector<uint8_t> Source(int type, int n, unsigned seed)
{
    std::mt19937 rng(seed);
    std::vector<uint8_t> v((size_t)n * Size(type) + 64);
    for (auto &b : v)
        b = (uint8_t)rng();
    if (type == 32 || type == 33) {
        for (int i = 0; i < n; i++) {
            double x = (double)rng() / 4294967296.0 * 2.4 - 1.2;
            if (i % 997 == 0) x = NAN;
            if (i % 1009 == 0) x = -INFINITY;
            if (i % 1013 == 0) x = 3e9;
            if (type == 32) {
                float f = (float)x;
                memcpy(&v[(size_t)i * 4 + 1], &f, 4);
            } else {
                memcpy(&v[(size_t)i * 8 + 1], &x, 8);
            }
        }
    }
    return v;
}

struct Pair {
    int d, s;
};

} // namespace

TEST(SampleCopyRule, ExhaustiveForEightAndSixteenBitSources)
{
    for (int s : {16, 49, 17, 64}) {
        int n = 1 << IntBits(s);
        std::vector<uint8_t> src((size_t)n * Size(s));
        for (int i = 0; i < n; i++)
            RefWrite(s, &src[(size_t)i * Size(s)], (double)(i - n / 2));
        for (int d : kAll) {
            if (!Exists(d, s))
                continue;
            for (float g : kGains) {
                for (DWORD w : {(DWORD)0, ZvAudio_GetCopyCPUWord()})
                    ASSERT_TRUE(MatchesRule(d, s, src, n, g,
                        ZvAudio_GetCopyFunctionForCPU((ZVSAMPLETYPE)d, (ZVSAMPLETYPE)s, w)));
            }
        }
    }
}

TEST(SampleCopyRule, DenseSweepForWideAndFloatSources)
{
    std::mt19937 rng(12345);
    for (int s : {18, 65, 19, 66, 48, 32, 33}) {
        const int n = 60000;
        std::vector<uint8_t> src((size_t)n * Size(s));
        for (int i = 0; i < n; i++) {
            double v;
            if (Flt(s)) {
                // Values around every rounding edge of every integer width.
                static const double edges[] = {1.0, -1.0, 0.5, -0.5, 2.0, -2.0, 0.0, 1e-40, 1e30, -1e30,
                                               INFINITY, -INFINITY, 0.999999, -1.0000001};
                int k = i % 4;
                int bits = 8 << (rng() % 3);
                double step = ldexp(1.0, -(bits - 1));
                if (k == 0) v = edges[rng() % (sizeof(edges) / sizeof(edges[0]))];
                else if (k == 1) v = ((int)(rng() % 2001) - 1000) * step * 0.5;   // ties
                else if (k == 2) v = ((double)rng() / 4294967296.0 * 2.2 - 1.1);
                else v = ldexp((double)(int32_t)rng(), -31 - (int)(rng() % 8));
            } else {
                int bits = IntBits(s);
                int64_t lo = -(1ll << (bits - 1)), hi = (1ll << (bits - 1)) - 1;
                int k = i % 3;
                if (k == 0) v = (double)(i % 2 ? lo + (i % 300) : hi - (i % 300));
                else if (k == 1) v = (double)((((int64_t)rng() << 8) ^ rng()) % (hi + 1));
                else v = (double)((int64_t)(int32_t)rng() >> (32 - bits));
            }
            RefWrite(s, &src[(size_t)i * Size(s)], v);
        }
        for (int d : kAll) {
            if (!Exists(d, s))
                continue;
            for (float g : kGains)
                ASSERT_TRUE(MatchesRule(d, s, src, n, g,
                    ZvAudio_GetCopyFunction2((ZVSAMPLETYPE)d, (ZVSAMPLETYPE)s)));
        }
    }
}

TEST(SampleCopyRule, ExamplesOfTheRoundingAndClamping)
{
    auto one = [](int d, int s, double v, float gain = 1.0f) {
        uint8_t in[8] = {}, out[8] = {};
        RefWrite(s, in, v);
        ZvAudio_GetCopyFunction2((ZVSAMPLETYPE)d, (ZVSAMPLETYPE)s)(out, in, 1, gain);
        return RefRead(d, out);
    };
    EXPECT_EQ(one(17, 32, 1.0), 32767);
    EXPECT_EQ(one(17, 32, -1.0), -32768);
    EXPECT_EQ(one(17, 32, 2.0), 32767);
    EXPECT_EQ(one(17, 33, 1.0), 32767);
    EXPECT_EQ(one(16, 32, 0.5) + 128, 192);
    EXPECT_EQ(one(32, 17, -32768), -1.0);
    EXPECT_EQ(one(16, 17, 3) + 128, 128);
    EXPECT_EQ(one(17, 18, 0x180), 2);
    EXPECT_EQ(one(17, 18, 0x80), 0);
    EXPECT_EQ(one(17, 18, 0x280), 2);
    EXPECT_EQ(one(17, 18, 0x7FFFFF), 32767);
    EXPECT_EQ(one(32, 32, 5.0), 5.0);        // floats are never clamped
    EXPECT_EQ(one(33, 32, -7.5, 2.0f), -15.0);
    EXPECT_EQ(one(18, 17, -2), -512);        // widening is exact
    EXPECT_EQ(one(19, 16, 127), 127 << 24);
    EXPECT_EQ(one(48, 19, 0x7FFFFFFF), 0x7FFFFF);
    EXPECT_EQ(one(17, 17, 3, 0.5f), 2);      // 1.5 to even
    EXPECT_EQ(one(17, 17, 5, 0.5f), 2);      // 2.5 to even
    EXPECT_EQ(one(17, 17, -5, 0.5f), -2);

    // A NaN gain takes the gain path; floats carry the NaN on.
    float nanGain = NAN;
    EXPECT_TRUE(isnan(one(32, 17, 100, nanGain)));
}

// Ties, near-ties and the top and bottom of 32-bit sources, in runs long
// enough for every vector path.
TEST(SampleCopyRule, TiesAndEndsOfThirtyTwoBitSourcesInLongRuns)
{
    std::vector<int32_t> src;
    for (int32_t h : {0, 1, 2, 3, -1, -2, 32766, 32767, -32768, -32767, 127, 128, -129})
        for (int32_t l : {0x8000, 0x7FFF, 0x8001, 0, 0xFFFF, 0x80, 0x7F, 0x81})
            src.push_back((int32_t)((uint32_t)h << 16 | (uint32_t)l));
    src.push_back(INT32_MAX);
    src.push_back(INT32_MIN);
    while (src.size() % 64)
        src.push_back((int32_t)(0x7FFF8000u + (uint32_t)src.size()));
    const int n = (int)src.size();
    std::vector<int16_t> s16(n);
    ZvAudio_GetCopyFunction2(ZVSAMPLE_S16, ZVSAMPLE_S32)(s16.data(), src.data(), n, 1.0f);
    for (int i = 0; i < n; i++) {
        double want = nearbyint((double)src[i] / 65536.0);
        want = want > 32767 ? 32767 : want;
        ASSERT_EQ(s16[i], (int16_t)want) << "source " << src[i];
    }
    for (int d : {16, 49, 17, 64, 18, 48})
        for (int s : {19, 66}) {
            if (!Exists(d, s))
                continue;
            std::vector<uint8_t> in((size_t)n * 4), want((size_t)n * 4), got((size_t)n * 4);
            for (int i = 0; i < n; i++)
                RefWrite(s, &in[(size_t)i * 4], (double)src[i]);
            ZvAudio_GetCopyFunctionForCPU((ZVSAMPLETYPE)d, (ZVSAMPLETYPE)s, 0)(want.data(), in.data(), n, 1.0f);
            for (DWORD w : Words()) {
                ZvAudio_GetCopyFunctionForCPU((ZVSAMPLETYPE)d, (ZVSAMPLETYPE)s, w)(got.data(), in.data(), n, 1.0f);
                ASSERT_EQ(memcmp(want.data(), got.data(), got.size()), 0) << "dest " << d << " src " << s << " word " << w;
            }
        }
}

// No frames (or a negative count) write nothing and are never an error,
// also for a pair that has no function or no linear form.
TEST(SampleCopyRule, EmptyCountsWriteNothing)
{
    uint8_t out[16], in[16] = {};
    memset(out, 0x5A, sizeof(out));
    for (int d : kAll)
        for (int s : kAll)
            if (ZVAUDIOCOPYFUNC f = ZvAudio_GetCopyFunction2((ZVSAMPLETYPE)d, (ZVSAMPLETYPE)s)) {
                f(out, in, 0, 1.0f);
                f(out, in, -5, 0.5f);
            }
    for (uint8_t b : out)
        EXPECT_EQ(b, 0x5A);

    _zvwaveformat be, unp, mp3;
    be.Init(44100, ZVSAMPLE_S16BE, 2);
    unp.Init(44100, ZVSAMPLE_S24IN32, 2);
    mp3.InitAsWfx(0x55, 44100, 0, 2);
    EXPECT_EQ(ZvAudio_Copy(&be, out, &unp, in, 0, 1.0f), S_OK) << "a pair without a function";
    EXPECT_EQ(ZvAudio_Copy(&be, out, &mp3, in, 0, 1.0f), S_OK);
    _zvwaveformat_wfxcopyhelper wbe(be), wunp(unp);
    EXPECT_EQ(ZvAudio_Copy(wbe, out, wunp, in, 0, 1.0f), S_OK);
    EXPECT_EQ(ZvAudio_Copy(&be, out, &unp, in, 1, 1.0f), E_NOTIMPL);
    EXPECT_EQ(out[0], 0x5A);
}

// The built-in self-check passes on this machine (its rows include the
// integer to float and back identities; the sweeps above check each way).
TEST(SampleCopyRule, SelfCheckPasses)
{
    EXPECT_EQ(ZvAudioCopy_UnitTest(nullptr), S_OK);
}

TEST(SampleCopyTable, PairsAndFormatLevelCopy)
{
    int missing = 0;
    for (int d : kAll)
        for (int s : kAll)
            missing += ZvAudio_GetCopyFunction2((ZVSAMPLETYPE)d, (ZVSAMPLETYPE)s) == nullptr;
    EXPECT_EQ(missing, 4);
    EXPECT_EQ(ZvAudio_GetCopyFunction2(ZVSAMPLE_S16BE, ZVSAMPLE_S24IN32), nullptr);
    EXPECT_EQ(ZvAudio_GetCopyFunction2(ZVSAMPLE_S24BE, ZVSAMPLE_S32BE), nullptr);
    EXPECT_EQ(ZvAudio_GetCopyFunction2(ZVSAMPLE_S16, ZVSAMPLE_RA16), nullptr);
    EXPECT_EQ(ZvAudio_GetCopyFunction2(ZVSAMPLE_NONE, ZVSAMPLE_S16), nullptr);

    _zvwaveformat be, unp, f32, s16;
    be.Init(44100, ZVSAMPLE_S16BE, 2);
    unp.Init(44100, ZVSAMPLE_S24IN32, 2);
    f32.Init(44100, ZVSAMPLE_F32, 2);
    s16.Init(44100, ZVSAMPLE_S16, 2);
    int32_t src[6] = {0x100, -0x100, 0, 0x7FFFFF, 0, 0};
    int16_t dst[6] = {};
    EXPECT_EQ(ZvAudio_Copy(&be, dst, &unp, src, 2, 1.0f), E_NOTIMPL);

    float fl[6] = {0.5f, -0.5f, 1.0f, -1.0f, 0.25f, 9.0f};
    EXPECT_EQ(ZvAudio_Copy(&s16, dst, &f32, fl, 3, 1.0f), S_OK);
    const int16_t want[6] = {16384, -16384, 32767, -32768, 8192, 32767};
    EXPECT_EQ(memcmp(dst, want, sizeof(want)), 0);

    _zvwaveformat_wfxcopyhelper wf32(f32), ws16(s16);
    memset(dst, 0, sizeof(dst));
    EXPECT_EQ(ZvAudio_Copy(ws16, dst, wf32, fl, 3, 1.0f), S_OK);
    EXPECT_EQ(memcmp(dst, want, sizeof(want)), 0);
    EXPECT_EQ(ZvAudio_Copy(&s16, dst, (const WAVEFORMATEX *)wf32, fl, 0, 1.0f), S_OK);
    EXPECT_EQ(ZvAudio_Copy((const WAVEFORMATEX *)ws16, dst, &f32, fl, 3, 1.0f), S_OK);
    EXPECT_EQ(ZvAudio_Copy(&s16, nullptr, &f32, fl, 3, 1.0f), E_POINTER);
    EXPECT_EQ(ZvAudio_Copy((const ZVWAVEFORMAT *)nullptr, dst, &f32, fl, 3, 1.0f), E_POINTER);

    _zvwaveformat mp3;
    mp3.InitAsWfx(0x55, 44100, 0, 2);
    EXPECT_EQ(ZvAudio_Copy(&s16, dst, &mp3, fl, 3, 1.0f), E_NOTIMPL);
    EXPECT_EQ(ZvAudio_GetCopyFunction(&s16, &mp3), nullptr);
    EXPECT_NE(ZvAudio_GetCopyFunction(ws16, wf32), nullptr);
}

// Every variant gives the plain scalar path's bytes for every pair, for odd
// lengths, unaligned buffers, in place, and for every bit pattern of source
// (NaNs, infinities and denormals included).
TEST(SampleCopyVariants, BitIdenticalToScalar)
{
    std::mt19937 rng(99);
    const int lengths[] = {1, 2, 3, 7, 15, 16, 17, 31, 33, 63, 65, 129, 1000, 4097};
    const int offsets[][2] = {{0, 0}, {1, 3}, {3, 1}, {2, 2}};
    const float gains[] = {1.0f, 0.5f, -1.7f, NAN, 40000.0f};
    std::vector<uint8_t> src(4097 * 8 + 16), ref(4097 * 8 + 16), got(4097 * 8 + 16), inplace(4097 * 8 + 16);
    for (int d : kAll)
        for (int s : kAll) {
            if (!Exists(d, s))
                continue;
            ZVAUDIOCOPYFUNC base = ZvAudio_GetCopyFunctionForCPU((ZVSAMPLETYPE)d, (ZVSAMPLETYPE)s, 0);
            ASSERT_NE(base, nullptr);
            for (DWORD w : Words()) {
                ZVAUDIOCOPYFUNC fn = ZvAudio_GetCopyFunctionForCPU((ZVSAMPLETYPE)d, (ZVSAMPLETYPE)s, w);
                for (int n : lengths)
                    for (auto &off : offsets)
                        for (float g : gains) {
                            const size_t used = (size_t)n * 8 + 8;
                            for (size_t k = 0; k < used; k += 4) {
                                uint32_t r = rng();
                                memcpy(&src[k], &r, 4);
                            }
                            // Mostly in-range floats, so the rounding paths are exercised.
                            if (Flt(s) && (rng() % 4))
                                for (int i = 0; i < n; i++)
                                    RefWrite(s, &src[off[1] + (size_t)i * Size(s)],
                                             ((double)rng() / 4294967296.0 * 2.4 - 1.2));
                            memset(ref.data(), 0xC3, used);
                            memset(got.data(), 0xC3, used);
                            base(ref.data() + off[0], src.data() + off[1], n, g);
                            fn(got.data() + off[0], src.data() + off[1], n, g);
                            ASSERT_EQ(memcmp(ref.data(), got.data(), used), 0)
                                << "dest " << d << " src " << s << " word " << w << " n " << n << " gain " << g;
                            memcpy(inplace.data() + off[0], src.data() + off[1], (size_t)n * Size(s));
                            fn(inplace.data() + off[0], inplace.data() + off[0], n, g);
                            ASSERT_EQ(memcmp(inplace.data() + off[0], ref.data() + off[0], (size_t)n * Size(d)), 0)
                                << "in place: dest " << d << " src " << s << " word " << w << " n " << n;
                        }
            }
        }
}

// Long runs: shared out to worker threads, and large outputs streamed past
// the caches. Whatever the path, the bytes are the plain scalar loop's.

// Past the sharing threshold, and for the 2- and 3-byte outputs past the
// streaming one; odd counts, and buffers off their natural alignment.
TEST(SampleCopyLongRuns, SharedAndStreamedRunsMatchTheScalarLoop)
{
    const Pair pairs[] = {{17, 32}, {16, 17}, {32, 17}, {18, 32}, {19, 32}, {33, 19}, {17, 19}, {64, 33}};
    for (const Pair &p : pairs) {
        const int n = (p.d == 17 || p.d == 18 || p.d == 64 ? (9 << 20) / Size(p.d) : (1 << 20)) + 12345;
        const std::vector<uint8_t> src = Source(p.s, n, (unsigned)(p.d * 100 + p.s));
        std::vector<uint8_t> want((size_t)n * Size(p.d) + 64, 0x3C), got(want);
        ZVAUDIOCOPYFUNC base = ZvAudio_GetCopyFunctionForCPU((ZVSAMPLETYPE)p.d, (ZVSAMPLETYPE)p.s, 0);
        ZVAUDIOCOPYFUNC fn = ZvAudio_GetCopyFunction2((ZVSAMPLETYPE)p.d, (ZVSAMPLETYPE)p.s);
        for (float gain : {1.0f, 0.75f}) {
            base(want.data() + 3, src.data() + 1, n, gain);
            fn(got.data() + 3, src.data() + 1, n, gain);
            ASSERT_EQ(memcmp(want.data(), got.data(), want.size()), 0)
                << "dest " << p.d << " src " << p.s << " gain " << gain;
        }
    }
}

// A long run in place stays on the safe walk of one thread.
TEST(SampleCopyLongRuns, InPlaceLongRunsWidenAndNarrow)
{
    const int n = (1 << 20) + 77;
    for (const Pair &p : {Pair{32, 17}, Pair{17, 32}}) {
        const std::vector<uint8_t> src = Source(p.s, n, 5);
        std::vector<uint8_t> want((size_t)n * 4 + 64), buf((size_t)n * 4 + 64);
        ZvAudio_GetCopyFunctionForCPU((ZVSAMPLETYPE)p.d, (ZVSAMPLETYPE)p.s, 0)(want.data(), src.data() + 1, n, 1.0f);
        memcpy(buf.data(), src.data() + 1, (size_t)n * Size(p.s));
        ZvAudio_GetCopyFunction2((ZVSAMPLETYPE)p.d, (ZVSAMPLETYPE)p.s)(buf.data(), buf.data(), n, 1.0f);
        ASSERT_EQ(memcmp(want.data(), buf.data(), (size_t)n * Size(p.d)), 0) << "dest " << p.d;
    }
}

// Two long runs at once: one has the workers, the other goes alone; both
// come out right.
TEST(SampleCopyLongRuns, ConcurrentLongRuns)
{
    const int n = (3 << 20) + 5;
    const std::vector<uint8_t> src = Source(32, n, 11);
    std::vector<uint8_t> want((size_t)n * 2);
    ZvAudio_GetCopyFunctionForCPU(ZVSAMPLE_S16, ZVSAMPLE_F32, 0)(want.data(), src.data() + 1, n, 1.0f);
    ZVAUDIOCOPYFUNC fn = ZvAudio_GetCopyFunction2(ZVSAMPLE_S16, ZVSAMPLE_F32);
    bool ok[2] = {false, false};
    auto run = [&](int k) {
        std::vector<uint8_t> out((size_t)n * 2);
        bool all = true;
        for (int round = 0; round < 4; round++) {
            fn(out.data(), src.data() + 1, n, 1.0f);
            all = all && memcmp(out.data(), want.data(), out.size()) == 0;
        }
        ok[k] = all;
    };
    std::thread other(run, 1);
    run(0);
    other.join();
    EXPECT_TRUE(ok[0]);
    EXPECT_TRUE(ok[1]);
}

// The workers round as the caller does: under a non-default rounding mode
// a long run gives what the same function gives on short pieces, which
// never leave the calling thread.
TEST(SampleCopyLongRuns, WorkersUseTheCallersRoundingMode)
{
    const int n = (2 << 20) + 3, piece = 50000;
    const std::vector<uint8_t> src = Source(32, n, 21);
    std::vector<uint8_t> whole((size_t)n * 2), pieces((size_t)n * 2);
    ZVAUDIOCOPYFUNC fn = ZvAudio_GetCopyFunction2(ZVSAMPLE_S16, ZVSAMPLE_F32);
    const unsigned int saved = _controlfp(0, 0);
    _controlfp(_RC_DOWN, _MCW_RC);
    fn(whole.data(), src.data() + 1, n, 1.0f);
    for (int i = 0; i < n; i += piece)
        fn(pieces.data() + (size_t)i * 2, src.data() + 1 + (size_t)i * 4, n - i < piece ? n - i : piece, 1.0f);
    _controlfp(saved, _MCW_RC);
    EXPECT_EQ(memcmp(whole.data(), pieces.data(), whole.size()), 0);
}

// The walk of the self-check: which rows run for which words, and how a
// failed row is told.
namespace {
std::vector<int> g_ran;
int g_failRow = -1;
bool RecordRow(int row, DWORD)
{
    g_ran.push_back(row);
    return row != g_failRow;
}
bool Has(int row) { return std::find(g_ran.begin(), g_ran.end(), row) != g_ran.end(); }
} // namespace

TEST(SampleCopySelfCheck, RowsFollowTheWordsAndFailuresBecomeDetails)
{
    const int kSse41Row = 8;   // the fifth 16-bit row
    const DWORD sse41 = 0x200;
    g_failRow = -1;
    g_ran.clear();
    EXPECT_EQ(zvsc::RunCopySelfCheck(nullptr, 6 | 0xFF0, 0, RecordRow), S_OK);
    EXPECT_FALSE(Has(kSse41Row)) << "SSE4.1 in the combined word alone does not run the row";
    const size_t atClass6 = g_ran.size();
    g_ran.clear();
    EXPECT_EQ(zvsc::RunCopySelfCheck(nullptr, 6 | 0xFF0, sse41, RecordRow), S_OK);
    EXPECT_TRUE(Has(kSse41Row));
    EXPECT_EQ(g_ran.size(), atClass6 + 1) << "the forced bit adds that row alone";
    g_ran.clear();
    EXPECT_EQ(zvsc::RunCopySelfCheck(nullptr, 0, 0, RecordRow), S_OK);
    EXPECT_EQ(g_ran.size(), 14u) << "class 0 runs the baseline rows only";

    ZvErrorHandler_DetailsInit();
    g_failRow = 3;
    EXPECT_EQ(zvsc::RunCopySelfCheck(nullptr, 0, 0, RecordRow), E_UNEXPECTED);
    HRESULT hr = S_OK;
    int lines = 0;
    const wchar_t *details = ZvErrorHandler_DetailsInfo(&hr, &lines, nullptr);
    ASSERT_NE(details, nullptr);
    EXPECT_STREQ(details, L"ZvAudioCopy_UnitTest node[3] failed.\r\n");
    EXPECT_EQ(hr, E_UNEXPECTED);
    EXPECT_EQ(lines, 1);
    ZvErrorHandler_DetailsInit();
    g_failRow = -1;
}
