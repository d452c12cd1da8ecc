// Sample copy throughput: samples per second for each pair of the common
// sample forms at three buffer sizes, timed inside the process.
// Prints: rate <dest> <src> <samples> <samples per second>
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <stdint.h>
#include <vector>
#include "audio/samplecopy.h"
#include "samplecopy_rate.h"

namespace {

struct Form {
    const char *name;
    ZVSAMPLETYPE type;
    int bytes;
};
const Form kForms[] = {
    {"u8", ZVSAMPLE_U8, 1}, {"s16", ZVSAMPLE_S16, 2}, {"s32", ZVSAMPLE_S32, 4},
    {"flt", ZVSAMPLE_F32, 4}, {"dbl", ZVSAMPLE_F64, 8},
};

double Now()
{
    static LARGE_INTEGER freq = [] { LARGE_INTEGER f; QueryPerformanceFrequency(&f); return f; }();
    LARGE_INTEGER t;
    QueryPerformanceCounter(&t);
    return (double)t.QuadPart / (double)freq.QuadPart;
}

void Fill(const Form &f, uint8_t *p, size_t n)
{
    uint32_t x = 2463534242u;
    for (size_t i = 0; i < n; i++) {
        x ^= x << 13; x ^= x >> 17; x ^= x << 5;
        double v = ((double)x / 4294967296.0) * 2.2 - 1.1;
        switch (f.type) {
        case ZVSAMPLE_F32: { float g = (float)v; memcpy(p + i * 4, &g, 4); break; }
        case ZVSAMPLE_F64: memcpy(p + i * 8, &v, 8); break;
        default: memcpy(p + i * f.bytes, &x, f.bytes); break;
        }
    }
}

} // namespace

int main(int argc, char **argv)
{
    double budget = argc > 1 ? atof(argv[1]) : 0.12;
    const int sizes[] = {4 << 10, 256 << 10, 16 << 20};
    for (int n : sizes) {
        std::vector<uint8_t> src((size_t)n * 8 + 64), dst((size_t)n * 8 + 64);
        for (const Form &s : kForms) {
            Fill(s, src.data(), n);
            for (const Form &d : kForms) {
                if (&s == &d)
                    continue;
                ZVAUDIOCOPYFUNC fn = ZvAudio_GetCopyFunction2(d.type, s.type);
                if (!fn)
                    return 1;
                double r = BestRate(Now, [&] { fn(dst.data(), src.data(), n, 1.0f); }, n,
                                    n >= (16 << 20) ? budget * 2 : budget);
                printf("rate %s %s %d %.0f\n", d.name, s.name, n, r);
                fflush(stdout);
            }
        }
    }
    return 0;
}
