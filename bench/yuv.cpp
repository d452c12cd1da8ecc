// Frame conversions and scalers at 1080p, timed on all worker threads and on
// one. Reads "<case> <threads>" lines (threads: all or 1) and answers each
// with one round of that case, so that a driver can interleave the rounds
// with its peer's: rate <case> <threads> <frames per second>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <functional>
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
    struct Case {
        const char *name;
        std::function<void()> run;
    } cases[] = {
        {"i420", [&] { ZvYUV_YUVToRGB(out.h(), nullptr, 0, i420.h(), nullptr, nullptr, nullptr, &s); }},
        {"nv12", [&] { ZvYUV_YUVToRGB(out.h(), nullptr, 0, nv12.h(), nullptr, nullptr, nullptr, &s); }},
        {"uyvy", [&] { ZvYUV_YUVToRGB(out.h(), nullptr, 0, uyvy.h(), nullptr, nullptr, nullptr, &s); }},
        {"bgra2i420", [&] { ZvYUV_RGBToYUV(bgra.h(), nullptr, 0, i420.h(), nullptr, nullptr, &s); }},
        {"bilinear", [&] { ZvDibScale_Bilinear(bgra.h(), nullptr, 0, nullptr, small.h(), nullptr, 0, nullptr, 0); }},
        {"bicubic", [&] { ZvDibScale_BiCubic(bgra.h(), nullptr, 0, nullptr, small.h(), nullptr, 0, nullptr, 0); }},
    };
    char line[128], name[64], tn[16];
    while (fgets(line, sizeof(line), stdin)) {
        if (sscanf(line, "%63s %15s", name, tn) != 2)
            continue;
        int threads = strcmp(tn, "all") == 0 ? 0 : atoi(tn);   // a count, or the runtime's choice
        s.threads = threads;
        ZvVideo_SetKernelOverride(0xFFFFFFFF, threads);
        double r = 0;
        for (const Case &c : cases)
            if (strcmp(c.name, name) == 0)
                r = Rate(budget, c.run);
        printf("rate %s %s %.2f\n", name, tn, r);
        fflush(stdout);
    }
    ZvVideo_SetKernelOverride(0xFFFFFFFF, 0);
    return 0;
}
