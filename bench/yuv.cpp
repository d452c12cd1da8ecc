// Frame conversions and scalers at 1080p, timed on all worker threads and on
// one. Prints: rate <case> <threads> <frames per second>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vector>
#include "samplecopy_rate.h"
#include "video/scale.h"
#include "video/yuv.h"

namespace {

double Now()
{
    LARGE_INTEGER f, c;
    QueryPerformanceFrequency(&f);
    QueryPerformanceCounter(&c);
    return (double)c.QuadPart / f.QuadPart;
}

struct Frame {
    std::vector<BYTE> mem;
    BITMAPINFOHEADER *h() { return (BITMAPINFOHEADER *)mem.data(); }
};

Frame Make(ZVPIXELTYPE t, int w, int h)
{
    Frame f;
    BITMAPINFOHEADER hd;
    ZvDibInfo(nullptr, nullptr, &hd, t, w, h, nullptr, 0);
    f.mem.resize(sizeof(hd) + hd.biSizeImage);
    memcpy(f.mem.data(), &hd, sizeof(hd));
    uint32_t x = 2463534242u;
    for (size_t i = sizeof(hd); i < f.mem.size(); ++i) {
        x ^= x << 13; x ^= x >> 17; x ^= x << 5;
        f.mem[i] = (BYTE)x;
    }
    return f;
}

template <typename F> double Rate(double budget, F fn)
{
    return BestRate(Now, fn, 1, budget);
}

} // namespace

int main(int argc, char **argv)
{
    double budget = argc > 1 ? atof(argv[1]) : 0.5;
    const int W = 1920, H = 1080;
    Frame i420 = Make(ZVPT_I420, W, H), nv12 = Make(ZVPT_NV12, W, H), uyvy = Make(ZVPT_UYVY, W, H);
    Frame bgra = Make(ZVPT_BGRA32, W, -H), out = Make(ZVPT_BGRA32, W, -H), small = Make(ZVPT_BGRA32, 1280, -720);
    ZVYUVSETTINGS s = {};
    s.selector = ZVYUV_BT601;
    s.limited = 1;
    for (int threads : {0, 1}) {
        s.threads = threads;
        ZvVideo_SetKernelOverride(0xFFFFFFFF, threads);
        const char *tn = threads ? "1" : "all";
        printf("rate i420 %s %.2f\n", tn, Rate(budget, [&] {
            ZvYUV_YUVToRGB(out.h(), nullptr, 0, i420.h(), nullptr, nullptr, nullptr, &s); }));
        printf("rate nv12 %s %.2f\n", tn, Rate(budget, [&] {
            ZvYUV_YUVToRGB(out.h(), nullptr, 0, nv12.h(), nullptr, nullptr, nullptr, &s); }));
        printf("rate uyvy %s %.2f\n", tn, Rate(budget, [&] {
            ZvYUV_YUVToRGB(out.h(), nullptr, 0, uyvy.h(), nullptr, nullptr, nullptr, &s); }));
        printf("rate bgra2i420 %s %.2f\n", tn, Rate(budget, [&] {
            ZvYUV_RGBToYUV(bgra.h(), nullptr, 0, i420.h(), nullptr, nullptr, &s); }));
        printf("rate bilinear %s %.2f\n", tn, Rate(budget, [&] {
            ZvDibScale_Bilinear(bgra.h(), nullptr, 0, nullptr, small.h(), nullptr, 0, nullptr, 0); }));
        printf("rate bicubic %s %.2f\n", tn, Rate(budget, [&] {
            ZvDibScale_BiCubic(bgra.h(), nullptr, 0, nullptr, small.h(), nullptr, 0, nullptr, 0); }));
        fflush(stdout);
    }
    ZvVideo_SetKernelOverride(0xFFFFFFFF, 0);
    return 0;
}
