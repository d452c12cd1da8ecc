// SSE2 bodies of the row kernels; each gives the plain form's integers exactly
// (16-bit products summed in 32 bits, saturating packs clamp like the C form).
#if defined(__i386__)
#pragma GCC target("sse2")
#endif
#include <emmintrin.h>
#include "video/yuvrows.h"

namespace zvyuv {

void DecodeRowSSE2(const Decode &d, const int32_t *y, const int32_t *u, const int32_t *v, int n, BYTE *dst,
                   bool rgbaOrder)
{
    const __m128i rnd = _mm_set1_epi16((short)(1 << (d.shift - 1)));
    const __m128i one = _mm_set1_epi16(1);
    const __m128i yoff = _mm_set1_epi16((short)d.yoff), mid = _mm_set1_epi16((short)d.mid);
    // pairs for madd: (Y', V') x (cy, crv), (Y', U') x (cy, cbu) and
    // (Y', U') x (cy, cgu) + (V', 1) x (cgv, round)
    const __m128i kR = _mm_set_epi16((short)d.crv, (short)d.cy, (short)d.crv, (short)d.cy, (short)d.crv,
                                     (short)d.cy, (short)d.crv, (short)d.cy);
    const __m128i kB = _mm_set_epi16((short)d.cbu, (short)d.cy, (short)d.cbu, (short)d.cy, (short)d.cbu,
                                     (short)d.cy, (short)d.cbu, (short)d.cy);
    const __m128i kG = _mm_set_epi16((short)d.cgu, (short)d.cy, (short)d.cgu, (short)d.cy, (short)d.cgu,
                                     (short)d.cy, (short)d.cgu, (short)d.cy);
    const __m128i kG2 = _mm_unpacklo_epi16(_mm_set1_epi16((short)d.cgv), rnd);
    const __m128i rndR = _mm_set1_epi32(1 << (d.shift - 1));
    const __m128i alpha = _mm_set1_epi8((char)0xFF);
    const __m128i sh = _mm_cvtsi32_si128(d.shift);
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        __m128i Y = _mm_sub_epi16(_mm_packs_epi32(_mm_loadu_si128((const __m128i *)(y + i)),
                                                  _mm_loadu_si128((const __m128i *)(y + i + 4))), yoff);
        __m128i U = _mm_sub_epi16(_mm_packs_epi32(_mm_loadu_si128((const __m128i *)(u + i)),
                                                  _mm_loadu_si128((const __m128i *)(u + i + 4))), mid);
        __m128i V = _mm_sub_epi16(_mm_packs_epi32(_mm_loadu_si128((const __m128i *)(v + i)),
                                                  _mm_loadu_si128((const __m128i *)(v + i + 4))), mid);
        __m128i yvL = _mm_unpacklo_epi16(Y, V), yvH = _mm_unpackhi_epi16(Y, V);
        __m128i yuL = _mm_unpacklo_epi16(Y, U), yuH = _mm_unpackhi_epi16(Y, U);
        __m128i v1L = _mm_unpacklo_epi16(V, one), v1H = _mm_unpackhi_epi16(V, one);
        __m128i rL = _mm_sra_epi32(_mm_add_epi32(_mm_madd_epi16(yvL, kR), rndR), sh);
        __m128i rH = _mm_sra_epi32(_mm_add_epi32(_mm_madd_epi16(yvH, kR), rndR), sh);
        __m128i bL = _mm_sra_epi32(_mm_add_epi32(_mm_madd_epi16(yuL, kB), rndR), sh);
        __m128i bH = _mm_sra_epi32(_mm_add_epi32(_mm_madd_epi16(yuH, kB), rndR), sh);
        __m128i gL = _mm_sra_epi32(_mm_add_epi32(_mm_madd_epi16(yuL, kG), _mm_madd_epi16(v1L, kG2)), sh);
        __m128i gH = _mm_sra_epi32(_mm_add_epi32(_mm_madd_epi16(yuH, kG), _mm_madd_epi16(v1H, kG2)), sh);
        __m128i R = _mm_packus_epi16(_mm_packs_epi32(rL, rH), _mm_setzero_si128());
        __m128i G = _mm_packus_epi16(_mm_packs_epi32(gL, gH), _mm_setzero_si128());
        __m128i B = _mm_packus_epi16(_mm_packs_epi32(bL, bH), _mm_setzero_si128());
        if (rgbaOrder) {
            __m128i t = R;
            R = B;
            B = t;
        }
        __m128i bg = _mm_unpacklo_epi8(B, G), ra = _mm_unpacklo_epi8(R, alpha);
        _mm_storeu_si128((__m128i *)(dst + 4 * i), _mm_unpacklo_epi16(bg, ra));
        _mm_storeu_si128((__m128i *)(dst + 4 * i + 16), _mm_unpackhi_epi16(bg, ra));
    }
    if (i < n)
        DecodeRowC(d, y + i, u + i, v + i, n - i, dst + 4 * i, rgbaOrder);
}

} // namespace zvyuv
