// AVX2 passes of the scalers. The vertical pass multiplies byte pairs by word
// weights into 32-bit sums as the plain loop does; the horizontal pass sums
// in doubles, where every product and sum of the plain 64-bit form is exact
// (below 2^37), so the floor of the shifted sum is the same integer.
#if defined(__i386__)
#pragma GCC target("avx2,fpmath=sse")
#else
#pragma GCC target("avx2")
#endif
#include <immintrin.h>
#include "video/scalerows.h"

namespace zvscale {

namespace {

// 16 samples of two rows, interleaved, times the pair of weights.
inline void Madd16(const BYTE *a, const BYTE *b, __m256i w, __m256i *lo, __m256i *hi)
{
    __m128i x = _mm_loadu_si128((const __m128i *)a), y = _mm_loadu_si128((const __m128i *)b);
    *lo = _mm256_madd_epi16(_mm256_cvtepu8_epi16(_mm_unpacklo_epi8(x, y)), w);
    *hi = _mm256_madd_epi16(_mm256_cvtepu8_epi16(_mm_unpackhi_epi8(x, y)), w);
}

inline __m256i Pair(int a, int b)
{
    return _mm256_set1_epi32((int)((uint32_t)(uint16_t)a | (uint32_t)b << 16));
}

} // namespace

void VerticalAVX2(const BYTE *const rows[4], const int w[4], int taps, int count, int32_t *acc)
{
    const __m256i w01 = Pair(w[0], w[1]), w23 = taps > 2 ? Pair(w[2], w[3]) : _mm256_setzero_si256();
    int i = 0;
    for (; i + 16 <= count; i += 16) {
        __m256i lo, hi;
        Madd16(rows[0] + i, rows[1] + i, w01, &lo, &hi);
        if (taps > 2) {
            __m256i lo2, hi2;
            Madd16(rows[2] + i, rows[3] + i, w23, &lo2, &hi2);
            lo = _mm256_add_epi32(lo, lo2);
            hi = _mm256_add_epi32(hi, hi2);
        }
        _mm256_storeu_si256((__m256i *)(acc + i), lo);
        _mm256_storeu_si256((__m256i *)(acc + i + 8), hi);
    }
    for (; i < count; ++i) {
        int32_t s = 0;
        for (int k = 0; k < taps; ++k)
            s += w[k] * rows[k][i];
        acc[i] = s;
    }
}

void HorizontalAVX2(const int32_t *acc, const int *col, const int *w, int taps, int n, int shift, BYTE *out)
{
    const __m256d half = _mm256_set1_pd((double)(1LL << (shift - 1))), scale = _mm256_set1_pd(1.0 / (double)(1LL << shift));
    int x = 0;
    for (; x + 2 <= n; x += 2) {
        __m128i px[2];
        for (int p = 0; p < 2; ++p) {
            const int *c = col + (x + p) * taps, *k = w + (x + p) * taps;
            __m256d v = _mm256_mul_pd(_mm256_cvtepi32_pd(_mm_loadu_si128((const __m128i *)(acc + c[0]))),
                                      _mm256_set1_pd(k[0]));
            for (int t = 1; t < taps; ++t)
                v = _mm256_add_pd(v, _mm256_mul_pd(_mm256_cvtepi32_pd(_mm_loadu_si128((const __m128i *)(acc + c[t]))),
                                                   _mm256_set1_pd(k[t])));
            px[p] = _mm256_cvttpd_epi32(_mm256_floor_pd(_mm256_mul_pd(_mm256_add_pd(v, half), scale)));
        }
        __m128i b = _mm_packus_epi16(_mm_packs_epi32(px[0], px[1]), _mm_setzero_si128());
        _mm_storel_epi64((__m128i *)(out + 4 * x), b);
    }
    for (; x < n; ++x)
        for (int ch = 0; ch < 4; ++ch) {
            int64_t v = 0;
            for (int t = 0; t < taps; ++t)
                v += (int64_t)w[x * taps + t] * acc[col[x * taps + t] + ch];
            v = (v + ((int64_t)1 << (shift - 1))) >> shift;
            out[4 * x + ch] = (BYTE)(v < 0 ? 0 : v > 255 ? 255 : v);
        }
}

} // namespace zvscale
