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

namespace {

// Words a and b in every 32-bit lane, a in the low one.
inline __m128i Pair(int a, int b)
{
    return _mm_set1_epi32((int)((uint32_t)(uint16_t)a | (uint32_t)b << 16));
}

// The pairs' form of the AVX2 body (see there): a 32-bit lane per pixel
// pair, sums eight times the plain form's, each pixel's value a high word.
struct PairConsts {
    __m128i mid, kYe, kYo, kR, kG, kB, base, alpha, high, up;
    // rgbaOrder swaps the red and blue weights: no swap per step
    PairConsts(const Decode &d, bool rgbaOrder)
    {
        mid = _mm_set1_epi16((short)d.mid);
        kYe = Pair(d.cy, 0);
        kYo = Pair(0, d.cy);
        kR = rgbaOrder ? Pair(d.cbu, 0) : Pair(0, d.crv);
        kG = Pair(d.cgu, d.cgv);
        kB = rgbaOrder ? Pair(0, d.crv) : Pair(d.cbu, 0);
        base = _mm_set1_epi32(((1 << (d.shift - 1)) - d.yoff * d.cy) * (1 << (16 - d.shift)));
        alpha = _mm_set1_epi16(255);
        high = _mm_set1_epi32((int)0xFFFF0000u);
        up = _mm_cvtsi32_si128(16 - d.shift);
    }
};

inline __m128i Channel(const PairConsts &k, __m128i ye, __m128i yo, __m128i c)
{
    return _mm_or_si128(_mm_srli_epi32(_mm_add_epi32(ye, c), 16), _mm_and_si128(_mm_add_epi32(yo, c), k.high));
}

// Eight pixels: Y as pairs of luma words, UV as the pairs' chroma words.
inline void EmitPairs8(const PairConsts &k, __m128i Y, __m128i UV, BYTE *dst)
{
    Y = _mm_sll_epi16(Y, k.up);
    UV = _mm_sll_epi16(_mm_sub_epi16(UV, k.mid), k.up);
    __m128i r = _mm_madd_epi16(UV, k.kR), g = _mm_madd_epi16(UV, k.kG), b = _mm_madd_epi16(UV, k.kB);
    __m128i ye = _mm_add_epi32(_mm_madd_epi16(Y, k.kYe), k.base);
    __m128i yo = _mm_add_epi32(_mm_madd_epi16(Y, k.kYo), k.base);
    __m128i R = Channel(k, ye, yo, r), G = Channel(k, ye, yo, g), B = Channel(k, ye, yo, b);
    __m128i br = _mm_packus_epi16(B, R), ga = _mm_packus_epi16(G, k.alpha);
    __m128i bg = _mm_unpacklo_epi8(br, ga), ra = _mm_unpackhi_epi8(br, ga);
    _mm_storeu_si128((__m128i *)dst, _mm_unpacklo_epi16(bg, ra));
    _mm_storeu_si128((__m128i *)(dst + 16), _mm_unpackhi_epi16(bg, ra));
}

} // namespace

int DecodePairsSSE2(const Decode &d, const Frame &f, int row, int x0, int n, BYTE *dst, bool rgbaOrder)
{
    const PairConsts k(d, rgbaOrder);
    const __m128i zero = _mm_setzero_si128(), low = _mm_set1_epi16(0xFF);
    const BYTE *py = f.plane[0] + (LONGLONG)row * f.pitch[0];
    int i = 0;
    if (f.kind == PACKED8) {
        // a pair's four bytes: luma in one byte of each word, chroma in the other
        const BYTE *p = py + 2 * x0;
        for (; i + 8 <= n; i += 8) {
            __m128i w = _mm_loadu_si128((const __m128i *)(p + 2 * i));
            __m128i Y = f.lumaFirst ? _mm_and_si128(w, low) : _mm_srli_epi16(w, 8);
            __m128i UV = f.lumaFirst ? _mm_srli_epi16(w, 8) : _mm_and_si128(w, low);
            EmitPairs8(k, Y, UV, dst + 4 * i);
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
            __m128i Y = _mm_unpacklo_epi8(_mm_loadl_epi64((const __m128i *)(py + i)), zero);
            EmitPairs8(k, Y, _mm_unpacklo_epi8(_mm_loadl_epi64((const __m128i *)(pc + i)), zero), dst + 4 * i);
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
        __m128i UV = _mm_unpacklo_epi8(_mm_unpacklo_epi8(_mm_cvtsi32_si128(u4), _mm_cvtsi32_si128(v4)), zero);
        EmitPairs8(k, Y, UV, dst + 4 * i);
    }
    return i;
}

} // namespace zvyuv

namespace zvyuv {

namespace {

// [a0 a1 a2 a3] and [b0 b1 b2 b3] to [a0+a1 a2+a3 b0+b1 b2+b3]
inline __m128i PairSums(__m128i a, __m128i b)
{
    __m128 x = _mm_castsi128_ps(a), y = _mm_castsi128_ps(b);
    return _mm_add_epi32(_mm_castps_si128(_mm_shuffle_ps(x, y, _MM_SHUFFLE(2, 0, 2, 0))),
                         _mm_castps_si128(_mm_shuffle_ps(x, y, _MM_SHUFFLE(3, 1, 3, 1))));
}

// Pixels as 32-bit lanes: bytes 0 and 2 as one pair of words (e), byte 1 and
// alpha as another (o), so each weighted sum is two madds in pixel order.
struct EncodeConsts {
    __m128i ky02, ky13, ku02, ku13, kv02, kv13, ybase, cbase, low;
    EncodeConsts(const Encode &e, bool rgbaOrder)
    {
        // alpha weighs nothing
        ky02 = rgbaOrder ? Pair(e.kyr, e.kyb) : Pair(e.kyb, e.kyr);
        ku02 = rgbaOrder ? Pair(e.kur, e.kub) : Pair(e.kub, e.kur);
        kv02 = rgbaOrder ? Pair(e.kvr, e.kvb) : Pair(e.kvb, e.kvr);
        ky13 = Pair(e.kyg, 0);
        ku13 = Pair(e.kug, 0);
        kv13 = Pair(e.kvg, 0);
        // offsets ride on the rounding: yoff + (s + 2^13 >> 14) is (s + 2^13 +
        // yoff 2^14) >> 14, and mid + (s + 2^15 >> 16) the same way
        ybase = _mm_set1_epi32(8192 + e.yoff * 16384);
        cbase = _mm_set1_epi32((1 << 15) + e.mid * 65536);
        low = _mm_set1_epi32(0x00FF00FF);
    }
};

// Luma of four pixels as dwords, from their split words.
inline __m128i Luma4(const EncodeConsts &k, __m128i e, __m128i o)
{
    __m128i s = _mm_add_epi32(_mm_madd_epi16(e, k.ky02), _mm_madd_epi16(o, k.ky13));
    return _mm_srai_epi32(_mm_add_epi32(s, k.ybase), 14);
}

// Eight pixels a step; the second row's luma only when two is set. Every
// value is an exact 32-bit sum of the plain form's products.
template <bool two>
int Encode420(const EncodeConsts &k, const BYTE *row0, const BYTE *row1, int n, BYTE *y0, BYTE *y1, BYTE *u,
              BYTE *v, int uvStep)
{
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        __m128i pa0 = _mm_loadu_si128((const __m128i *)(row0 + 4 * i));
        __m128i pb0 = _mm_loadu_si128((const __m128i *)(row0 + 4 * i + 16));
        __m128i pa1 = _mm_loadu_si128((const __m128i *)(row1 + 4 * i));
        __m128i pb1 = _mm_loadu_si128((const __m128i *)(row1 + 4 * i + 16));
        __m128i ea0 = _mm_and_si128(pa0, k.low), oa0 = _mm_srli_epi16(pa0, 8);
        __m128i eb0 = _mm_and_si128(pb0, k.low), ob0 = _mm_srli_epi16(pb0, 8);
        __m128i ea1 = _mm_and_si128(pa1, k.low), oa1 = _mm_srli_epi16(pa1, 8);
        __m128i eb1 = _mm_and_si128(pb1, k.low), ob1 = _mm_srli_epi16(pb1, 8);
        __m128i w0 = _mm_packs_epi32(Luma4(k, ea0, oa0), Luma4(k, eb0, ob0));
        __m128i w1 = two ? _mm_packs_epi32(Luma4(k, ea1, oa1), Luma4(k, eb1, ob1)) : w0;
        __m128i ys = _mm_packus_epi16(w0, w1);
        _mm_storel_epi64((__m128i *)(y0 + i), ys);
        if (two)
            _mm_storeh_pd((double *)(y1 + i), _mm_castsi128_pd(ys));
        // block sums in the words: the two rows, then the neighbouring
        // columns (whole dwords: no word passes 1020)
        __m128i se = PairSums(_mm_add_epi16(ea0, ea1), _mm_add_epi16(eb0, eb1));
        __m128i so = PairSums(_mm_add_epi16(oa0, oa1), _mm_add_epi16(ob0, ob1));
        __m128i U = _mm_add_epi32(_mm_add_epi32(_mm_madd_epi16(se, k.ku02), _mm_madd_epi16(so, k.ku13)), k.cbase);
        __m128i V = _mm_add_epi32(_mm_add_epi32(_mm_madd_epi16(se, k.kv02), _mm_madd_epi16(so, k.kv13)), k.cbase);
        // U0-3 V0-3
        __m128i uv = _mm_packus_epi16(_mm_packs_epi32(_mm_srai_epi32(U, 16), _mm_srai_epi32(V, 16)), w0);
        if (uvStep == 1) {
            int u4 = _mm_cvtsi128_si32(uv), v4 = _mm_cvtsi128_si32(_mm_srli_si128(uv, 4));
            memcpy(u + i / 2, &u4, 4);
            memcpy(v + i / 2, &v4, 4);
        } else {
            _mm_storel_epi64((__m128i *)(u + i), _mm_unpacklo_epi8(uv, _mm_srli_si128(uv, 4)));
        }
    }
    return i;
}

} // namespace

int EncodeRows420SSE2(const Encode &e, const BYTE *row0, const BYTE *row1, int n, bool rgbaOrder, BYTE *y0,
                      BYTE *y1, BYTE *u, BYTE *v, int uvStep)
{
    const EncodeConsts k(e, rgbaOrder);
    return y1 ? Encode420<true>(k, row0, row1, n, y0, y1, u, v, uvStep)
              : Encode420<false>(k, row0, row1, n, y0, y1, u, v, uvStep);
}

} // namespace zvyuv
