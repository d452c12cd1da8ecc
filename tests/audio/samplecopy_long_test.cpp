// Long runs: shared out to worker threads, and large outputs streamed past
// the caches. Whatever the path, the bytes are the plain scalar loop's.
#include <gtest/gtest.h>
#include <float.h>
#include <math.h>
#include <stdint.h>
#include <string.h>
#include <random>
#include <thread>
#include <vector>
#include "audio/samplecopy.h"

namespace {

int Width(int t)
{
    switch (t) {
    case 16: case 49: return 1;
    case 17: case 64: return 2;
    case 18: case 65: return 3;
    case 33: return 8;
    default: return 4;
    }
}

// Random bytes; float sources get mostly in-range values with a sprinkling
// of NaNs, infinities and out-of-range values.
std::vector<uint8_t> Source(int type, int n, unsigned seed)
{
    std::mt19937 rng(seed);
    std::vector<uint8_t> v((size_t)n * Width(type) + 64);
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

// Past the sharing threshold, and for the 2- and 3-byte outputs past the
// streaming one; odd counts, and buffers off their natural alignment.
TEST(SampleCopyLongRuns, SharedAndStreamedRunsMatchTheScalarLoop)
{
    const Pair pairs[] = {{17, 32}, {16, 17}, {32, 17}, {18, 32}, {19, 32}, {33, 19}, {17, 19}, {64, 33}};
    for (const Pair &p : pairs) {
        const int n = (p.d == 17 || p.d == 18 || p.d == 64 ? (9 << 20) / Width(p.d) : (1 << 20)) + 12345;
        const std::vector<uint8_t> src = Source(p.s, n, (unsigned)(p.d * 100 + p.s));
        std::vector<uint8_t> want((size_t)n * Width(p.d) + 64, 0x3C), got(want);
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
        memcpy(buf.data(), src.data() + 1, (size_t)n * Width(p.s));
        ZvAudio_GetCopyFunction2((ZVSAMPLETYPE)p.d, (ZVSAMPLETYPE)p.s)(buf.data(), buf.data(), n, 1.0f);
        ASSERT_EQ(memcmp(want.data(), buf.data(), (size_t)n * Width(p.d)), 0) << "dest " << p.d;
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

} // namespace
