// Native peers of the frame bench, timed the same way: a frame library's
// converters and a scaling library's bilinear and bicubic BGRA scalers, at
// 1080p on one thread (neither forks on its own). Reads "<case>" lines and
// answers each with one round of that case: rate <case> <frames per second>
extern "C" {
#include <libswscale/swscale.h>
}
#include <libyuv.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <functional>
#include <vector>
#include "samplecopy_rate.h"

namespace {

double Now()
{
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec + t.tv_nsec * 1e-9;
}

template <typename F> double Rate(double budget, F fn)
{
    return BestRate(Now, fn, 1, budget);
}

std::vector<uint8_t> Noise(size_t n)
{
    std::vector<uint8_t> v(n);
    uint32_t x = 2463534242u;
    for (auto &b : v) {
        x ^= x << 13; x ^= x >> 17; x ^= x << 5;
        b = (uint8_t)x;
    }
    return v;
}

} // namespace

int main(int argc, char **argv)
{
    double budget = argc > 1 ? atof(argv[1]) : 0.5;
    const int W = 1920, H = 1080;
    std::vector<uint8_t> yuv = Noise(W * H * 2), bgra = Noise(W * H * 4), out(W * H * 4), small(1280 * 720 * 4);
    uint8_t *y = yuv.data(), *u = y + W * H, *v = u + W * H / 4;
    SwsContext *bil = sws_getContext(W, H, AV_PIX_FMT_BGRA, 1280, 720, AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr,
                                     nullptr, nullptr);
    SwsContext *bic = sws_getContext(W, H, AV_PIX_FMT_BGRA, 1280, 720, AV_PIX_FMT_BGRA, SWS_BICUBIC, nullptr,
                                     nullptr, nullptr);
    const uint8_t *sp[1] = {bgra.data()};
    int ss[1] = {W * 4};
    uint8_t *dp[1] = {small.data()};
    int ds[1] = {1280 * 4};
    struct Case {
        const char *name;
        std::function<void()> run;
    } cases[] = {
        {"i420", [&] { libyuv::I420ToARGB(y, W, u, W / 2, v, W / 2, out.data(), W * 4, W, H); }},
        {"nv12", [&] { libyuv::NV12ToARGB(y, W, u, W, out.data(), W * 4, W, H); }},
        {"uyvy", [&] { libyuv::UYVYToARGB(y, W * 2, out.data(), W * 4, W, H); }},
        {"bgra2i420", [&] { libyuv::ARGBToI420(bgra.data(), W * 4, y, W, u, W / 2, v, W / 2, W, H); }},
        {"bilinear", [&] { sws_scale(bil, sp, ss, 0, H, dp, ds); }},
        {"bicubic", [&] { sws_scale(bic, sp, ss, 0, H, dp, ds); }},
    };
    char line[128], name[64];
    while (fgets(line, sizeof(line), stdin)) {
        if (sscanf(line, "%63s", name) != 1)
            continue;
        double r = 0;
        for (const Case &c : cases)
            if (strcmp(c.name, name) == 0)
                r = Rate(budget, c.run);
        printf("rate %s %.2f\n", name, r);
        fflush(stdout);
    }
    sws_freeContext(bil);
    sws_freeContext(bic);
    return 0;
}
