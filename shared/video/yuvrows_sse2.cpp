// SSE2 bodies of the row kernels; each gives the plain form's integers exactly
// (16-bit products summed in 32 bits, saturating packs clamp like the C form).
#if defined(__i386__)
#pragma GCC target("sse2")
#endif
#include <emmintrin.h>
#include "video/yuvrows.h"
#include <string.h>

namespace zvyuv {

namespace {

struct Consts {
    __m128i one, yoff, mid, kR, kB, kG, kG2, rnd, alpha, sh;
    explicit Consts(const Decode &d)
    {
        // pairs for madd: (Y', V') x (cy, crv), (Y', U') x (cy, cbu) and
        // (Y', U') x (cy, cgu) + (V', 1) x (cgv, round)
        one = _mm_set1_epi16(1);
        yoff = _mm_set1_epi16((short)d.yoff);
        mid = _mm_set1_epi16((short)d.mid);
        kR = _mm_unpacklo_epi16(_mm_set1_epi16((short)d.cy), _mm_set1_epi16((short)d.crv));
        kB = _mm_unpacklo_epi16(_mm_set1_epi16((short)d.cy), _mm_set1_epi16((short)d.cbu));
        kG = _mm_unpacklo_epi16(_mm_set1_epi16((short)d.cy), _mm_set1_epi16((short)d.cgu));
        kG2 = _mm_unpacklo_epi16(_mm_set1_epi16((short)d.cgv), _mm_set1_epi16((short)(1 << (d.shift - 1))));
        rnd = _mm_set1_epi32(1 << (d.shift - 1));
        alpha = _mm_set1_epi8((char)0xFF);
        sh = _mm_cvtsi32_si128(d.shift);
    }
};

// Eight pixels from 16-bit samples Y, U, V (offsets not yet taken off).
inline void Emit8(const Consts &k, __m128i Y, __m128i U, __m128i V, BYTE *dst, bool rgbaOrder)
{
    Y = _mm_sub_epi16(Y, k.yoff);
    U = _mm_sub_epi16(U, k.mid);
    V = _mm_sub_epi16(V, k.mid);
    __m128i yvL = _mm_unpacklo_epi16(Y, V), yvH = _mm_unpackhi_epi16(Y, V);
    __m128i yuL = _mm_unpacklo_epi16(Y, U), yuH = _mm_unpackhi_epi16(Y, U);
    __m128i v1L = _mm_unpacklo_epi16(V, k.one), v1H = _mm_unpackhi_epi16(V, k.one);
    __m128i rL = _mm_sra_epi32(_mm_add_epi32(_mm_madd_epi16(yvL, k.kR), k.rnd), k.sh);
    __m128i rH = _mm_sra_epi32(_mm_add_epi32(_mm_madd_epi16(yvH, k.kR), k.rnd), k.sh);
    __m128i bL = _mm_sra_epi32(_mm_add_epi32(_mm_madd_epi16(yuL, k.kB), k.rnd), k.sh);
    __m128i bH = _mm_sra_epi32(_mm_add_epi32(_mm_madd_epi16(yuH, k.kB), k.rnd), k.sh);
    __m128i gL = _mm_sra_epi32(_mm_add_epi32(_mm_madd_epi16(yuL, k.kG), _mm_madd_epi16(v1L, k.kG2)), k.sh);
    __m128i gH = _mm_sra_epi32(_mm_add_epi32(_mm_madd_epi16(yuH, k.kG), _mm_madd_epi16(v1H, k.kG2)), k.sh);
    __m128i R = _mm_packus_epi16(_mm_packs_epi32(rL, rH), _mm_setzero_si128());
    __m128i G = _mm_packus_epi16(_mm_packs_epi32(gL, gH), _mm_setzero_si128());
    __m128i B = _mm_packus_epi16(_mm_packs_epi32(bL, bH), _mm_setzero_si128());
    if (rgbaOrder) {
        __m128i t = R;
        R = B;
        B = t;
    }
    __m128i bg = _mm_unpacklo_epi8(B, G), ra = _mm_unpacklo_epi8(R, k.alpha);
    _mm_storeu_si128((__m128i *)dst, _mm_unpacklo_epi16(bg, ra));
    _mm_storeu_si128((__m128i *)(dst + 16), _mm_unpackhi_epi16(bg, ra));
}

inline __m128i Load32(const int32_t *p)
{
    return _mm_packs_epi32(_mm_loadu_si128((const __m128i *)p), _mm_loadu_si128((const __m128i *)(p + 4)));
}

// u0 v0 u1 v1 u2 v2 u3 v3 as words to u0 u0 u1 u1 ... and v0 v0 v1 v1 ...
inline void SplitPairs(__m128i uv, __m128i *U, __m128i *V)
{
    *U = _mm_shufflehi_epi16(_mm_shufflelo_epi16(uv, _MM_SHUFFLE(2, 2, 0, 0)), _MM_SHUFFLE(2, 2, 0, 0));
    *V = _mm_shufflehi_epi16(_mm_shufflelo_epi16(uv, _MM_SHUFFLE(3, 3, 1, 1)), _MM_SHUFFLE(3, 3, 1, 1));
}

} // namespace

void DecodeRowSSE2(const Decode &d, const int32_t *y, const int32_t *u, const int32_t *v, int n, BYTE *dst,
                   bool rgbaOrder)
{
    const Consts k(d);
    int i = 0;
    for (; i + 8 <= n; i += 8)
        Emit8(k, Load32(y + i), Load32(u + i), Load32(v + i), dst + 4 * i, rgbaOrder);
    if (i < n)
        DecodeRowC(d, y + i, u + i, v + i, n - i, dst + 4 * i, rgbaOrder);
}

int DecodePairsSSE2(const Decode &d, const Frame &f, int row, int x0, int n, BYTE *dst, bool rgbaOrder)
{
    const Consts k(d);
    const __m128i zero = _mm_setzero_si128(), low = _mm_set1_epi16(0xFF);
    const BYTE *py = f.plane[0] + (LONGLONG)row * f.pitch[0];
    int i = 0;
    if (f.kind == PACKED8) {
        const BYTE *p = py + 2 * x0;
        for (; i + 8 <= n; i += 8) {
            __m128i w = _mm_loadu_si128((const __m128i *)(p + 2 * i)), Y, U, V;
            Y = f.lumaFirst ? _mm_and_si128(w, low) : _mm_srli_epi16(w, 8);
            SplitPairs(f.lumaFirst ? _mm_srli_epi16(w, 8) : _mm_and_si128(w, low), &U, &V);
            Emit8(k, Y, U, V, dst + 4 * i, rgbaOrder);
        }
        return i;
    }
    const int crow = row >> f.sy;
    if (crow >= f.ch)
        return 0;   // the last row of an odd height borrows the row above
    const BYTE *pc = f.plane[1] + (LONGLONG)crow * f.pitch[1];
    py += x0;
    if (f.kind == SEMIPLANAR) {
        pc += x0;
        for (; i + 8 <= n; i += 8) {
            __m128i Y = _mm_unpacklo_epi8(_mm_loadl_epi64((const __m128i *)(py + i)), zero), U, V;
            SplitPairs(_mm_unpacklo_epi8(_mm_loadl_epi64((const __m128i *)(pc + i)), zero), &U, &V);
            Emit8(k, Y, U, V, dst + 4 * i, rgbaOrder);
        }
        return i;
    }
    const BYTE *pu = f.plane[f.vFirst ? 2 : 1] + (LONGLONG)crow * f.pitch[f.vFirst ? 2 : 1] + x0 / 2;
    const BYTE *pv = f.plane[f.vFirst ? 1 : 2] + (LONGLONG)crow * f.pitch[f.vFirst ? 1 : 2] + x0 / 2;
    for (; i + 8 <= n; i += 8) {
        int32_t u4, v4;
        memcpy(&u4, pu + i / 2, 4);
        memcpy(&v4, pv + i / 2, 4);
        __m128i Y = _mm_unpacklo_epi8(_mm_loadl_epi64((const __m128i *)(py + i)), zero);
        __m128i U = _mm_unpacklo_epi8(_mm_cvtsi32_si128(u4), zero), V = _mm_unpacklo_epi8(_mm_cvtsi32_si128(v4), zero);
        Emit8(k, Y, _mm_unpacklo_epi16(U, U), _mm_unpacklo_epi16(V, V), dst + 4 * i, rgbaOrder);
    }
    return i;
}

} // namespace zvyuv
