// Native peers of the sample copy bench, timed the same way: a general
// resampling library converting with equal rates and layouts, a sample-rate
// converter's array converters, and memcpy of the output bytes.
// Prints: swr|lsr <dest> <src> <samples> <rate>, memcpy <bytes> <samples> <rate>
extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}
#include <samplerate.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <vector>
#include "samplecopy_rate.h"

namespace {

struct Form {
    const char *name;
    AVSampleFormat fmt;
    int bytes;
};
const Form kForms[] = {
    {"u8", AV_SAMPLE_FMT_U8, 1}, {"s16", AV_SAMPLE_FMT_S16, 2}, {"s32", AV_SAMPLE_FMT_S32, 4},
    {"flt", AV_SAMPLE_FMT_FLT, 4}, {"dbl", AV_SAMPLE_FMT_DBL, 8},
};

double Now()
{
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec + t.tv_nsec * 1e-9;
}

void Fill(const Form &f, uint8_t *p, size_t n)
{
    uint32_t x = 2463534242u;
    for (size_t i = 0; i < n; i++) {
        x ^= x << 13; x ^= x >> 17; x ^= x << 5;
        double v = ((double)x / 4294967296.0) * 2.2 - 1.1;
        if (f.fmt == AV_SAMPLE_FMT_FLT) { float g = (float)v; memcpy(p + i * 4, &g, 4); }
        else if (f.fmt == AV_SAMPLE_FMT_DBL) memcpy(p + i * 8, &v, 8);
        else memcpy(p + i * f.bytes, &x, f.bytes);
    }
}

} // namespace

int main(int argc, char **argv)
{
    double budget = argc > 1 ? atof(argv[1]) : 0.12;
    const int sizes[] = {4 << 10, 256 << 10, 16 << 20};
    AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
    for (int n : sizes) {
        double b = n >= (16 << 20) ? budget * 2 : budget;
        std::vector<uint8_t> src((size_t)n * 8 + 64), dst((size_t)n * 8 + 64);
        for (int bytes : {1, 2, 4, 8}) {
            double r = BestRate(Now, [&] { memcpy(dst.data(), src.data(), (size_t)n * bytes); }, n, b);
            printf("memcpy %d %d %.0f\n", bytes, n, r);
        }
        for (const Form &s : kForms) {
            Fill(s, src.data(), n);
            for (const Form &d : kForms) {
                if (&s == &d)
                    continue;
                SwrContext *ctx = nullptr;
                if (swr_alloc_set_opts2(&ctx, &mono, d.fmt, 48000, &mono, s.fmt, 48000, 0, nullptr) < 0 ||
                    swr_init(ctx) < 0) {
                    fprintf(stderr, "swr init failed\n");
                    return 1;
                }
                uint8_t *out = dst.data();
                const uint8_t *in = src.data();
                double r = BestRate(Now, [&] { swr_convert(ctx, &out, n, &in, n); }, n, b);
                swr_free(&ctx);
                printf("swr %s %s %d %.0f\n", d.name, s.name, n, r);
                fflush(stdout);
            }
        }
        Fill(kForms[3], src.data(), n);
        printf("lsr s16 flt %d %.0f\n", n, BestRate(Now, [&] {
            src_float_to_short_array((const float *)src.data(), (short *)dst.data(), n); }, n, b));
        printf("lsr s32 flt %d %.0f\n", n, BestRate(Now, [&] {
            src_float_to_int_array((const float *)src.data(), (int *)dst.data(), n); }, n, b));
        Fill(kForms[1], src.data(), n);
        printf("lsr flt s16 %d %.0f\n", n, BestRate(Now, [&] {
            src_short_to_float_array((const short *)src.data(), (float *)dst.data(), n); }, n, b));
        Fill(kForms[2], src.data(), n);
        printf("lsr flt s32 %d %.0f\n", n, BestRate(Now, [&] {
            src_int_to_float_array((const int *)src.data(), (float *)dst.data(), n); }, n, b));
        fflush(stdout);
    }
    return 0;
}
