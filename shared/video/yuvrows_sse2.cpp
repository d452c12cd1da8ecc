// SSE2 bodies of the row kernels; each gives the plain form's integers exactly
// (the decode's 16-bit terms as they are; the encode's 16-bit products summed
// in 32 bits; saturating packs clamp like the C form).
#if defined(__i386__)
#pragma GCC target("sse2")
#endif
#include <emmintrin.h>
#include "video/yuvrows.h"
#include <string.h>

namespace zvyuv {

namespace {

// The plain form's 8-bit arithmetic on eight pixels: 16-bit lanes, each
// sample in the high byte of its word, so that mulhi gives (s k) >> 8.
struct Consts {
    __m128i ky, k0, k2, kgu, kgv, b0, b2, bg, alpha;
    // byte 0 of a pixel is blue (from U), or red (from V) in RGBA order
    Consts(const Decode &d, bool rgbaOrder)
    {
        ky = _mm_set1_epi16((short)d.ky8);
        kgu = _mm_set1_epi16((short)d.kgu8);
        kgv = _mm_set1_epi16((short)d.kgv8);
        bg = _mm_set1_epi16(d.bg8);
        k0 = _mm_set1_epi16((short)(rgbaOrder ? d.kr8 : d.kb8));
        b0 = _mm_set1_epi16(rgbaOrder ? d.br8 : d.bb8);
        k2 = _mm_set1_epi16((short)(rgbaOrder ? d.kb8 : d.kr8));
        b2 = _mm_set1_epi16(rgbaOrder ? d.bb8 : d.br8);
        alpha = _mm_set1_epi16(255);
    }
};

// Chroma terms of bytes 0, 1 and 2 of eight pixels, from each pixel's U and V.
struct Chroma {
    __m128i c0, c1, c2;
    template <bool rgba> static Chroma Of(const Consts &k, __m128i U, __m128i V)
    {
        Chroma c;
        c.c0 = _mm_add_epi16(_mm_mulhi_epu16(rgba ? V : U, k.k0), k.b0);
        c.c2 = _mm_add_epi16(_mm_mulhi_epu16(rgba ? U : V, k.k2), k.b2);
        c.c1 = _mm_sub_epi16(_mm_sub_epi16(k.bg, _mm_mulhi_epu16(U, k.kgu)), _mm_mulhi_epu16(V, k.kgv));
        return c;
    }
};

// Eight pixels from their luma words and chroma terms.
inline void Emit8(const Consts &k, __m128i Y, const Chroma &c, BYTE *dst)
{
    __m128i yt = _mm_mulhi_epu16(Y, k.ky);
    __m128i x0 = _mm_srai_epi16(_mm_adds_epi16(yt, c.c0), 6);
    __m128i x1 = _mm_srai_epi16(_mm_adds_epi16(yt, c.c1), 6);
    __m128i x2 = _mm_srai_epi16(_mm_adds_epi16(yt, c.c2), 6);
    __m128i p02 = _mm_packus_epi16(x0, x2), p1a = _mm_packus_epi16(x1, k.alpha);
    __m128i lo = _mm_unpacklo_epi8(p02, p1a), hi = _mm_unpackhi_epi8(p02, p1a);
    _mm_storeu_si128((__m128i *)dst, _mm_unpacklo_epi16(lo, hi));
    _mm_storeu_si128((__m128i *)(dst + 16), _mm_unpackhi_epi16(lo, hi));
}

// Eight samples as words, in the high byte.
inline __m128i Load32(const int32_t *p)
{
    __m128i w = _mm_packs_epi32(_mm_loadu_si128((const __m128i *)p), _mm_loadu_si128((const __m128i *)(p + 4)));
    return _mm_slli_epi16(w, 8);
}

template <bool rgba>
void DecodeRow8(const Decode &d, const int32_t *y, const int32_t *u, const int32_t *v, int n, BYTE *dst)
{
    const Consts k(d, rgba);
    int i = 0;
    for (; i + 8 <= n; i += 8)
        Emit8(k, Load32(y + i), Chroma::Of<rgba>(k, Load32(u + i), Load32(v + i)), dst + 4 * i);
    if (i < n)
        DecodeRowC(d, y + i, u + i, v + i, n - i, dst + 4 * i, rgba);
}

} // namespace

void DecodeRowSSE2(const Decode &d, const int32_t *y, const int32_t *u, const int32_t *v, int n, BYTE *dst,
                   bool rgbaOrder)
{
    if (rgbaOrder)
        DecodeRow8<true>(d, y, u, v, n, dst);
    else
        DecodeRow8<false>(d, y, u, v, n, dst);
}

namespace {

// Words a and b in every 32-bit lane, a in the low one.
inline __m128i Pair(int a, int b)
{
    return _mm_set1_epi32((int)((uint32_t)(uint16_t)a | (uint32_t)b << 16));
}

// Each word of w to both words of its pair: 0 0 2 2 4 4 6 6 (odd: 1 1 3 3 ...).
template <int odd> inline __m128i Spread(__m128i w)
{
    const int m = odd ? _MM_SHUFFLE(3, 3, 1, 1) : _MM_SHUFFLE(2, 2, 0, 0);
    return _mm_shufflehi_epi16(_mm_shufflelo_epi16(w, m), m);
}

template <bool rgba> int Pairs8(const Decode &d, const Frame &f, int row, int x0, int n, BYTE *dst)
{
    const Consts k(d, rgba);
    const __m128i zero = _mm_setzero_si128(), high = _mm_set1_epi16((short)0xFF00);
    const BYTE *py = f.plane[0] + (LONGLONG)row * f.pitch[0];
    int i = 0;
    if (f.kind == PACKED8) {
        // a pair's four bytes: luma in one byte of each word, chroma in the other
        const BYTE *p = py + 2 * x0;
        for (; i + 8 <= n; i += 8) {
            __m128i w = _mm_loadu_si128((const __m128i *)(p + 2 * i));
            __m128i Y = f.lumaFirst ? _mm_slli_epi16(w, 8) : _mm_and_si128(w, high);
            __m128i C = f.lumaFirst ? _mm_and_si128(w, high) : _mm_slli_epi16(w, 8);
            Emit8(k, Y, Chroma::Of<rgba>(k, Spread<0>(C), Spread<1>(C)), dst + 4 * i);
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
            __m128i Y = _mm_unpacklo_epi8(zero, _mm_loadl_epi64((const __m128i *)(py + i)));
            __m128i C = _mm_unpacklo_epi8(zero, _mm_loadl_epi64((const __m128i *)(pc + i)));
            Emit8(k, Y, Chroma::Of<rgba>(k, Spread<0>(C), Spread<1>(C)), dst + 4 * i);
        }
        return i;
    }
    const BYTE *pu = f.plane[f.vFirst ? 2 : 1] + (LONGLONG)crow * f.pitch[f.vFirst ? 2 : 1] + x0 / 2;
    const BYTE *pv = f.plane[f.vFirst ? 1 : 2] + (LONGLONG)crow * f.pitch[f.vFirst ? 1 : 2] + x0 / 2;
    for (; i + 8 <= n; i += 8) {
        int32_t u4, v4;
        memcpy(&u4, pu + i / 2, 4);
        memcpy(&v4, pv + i / 2, 4);
        __m128i U = _mm_unpacklo_epi8(zero, _mm_cvtsi32_si128(u4)), V = _mm_unpacklo_epi8(zero, _mm_cvtsi32_si128(v4));
        __m128i Y = _mm_unpacklo_epi8(zero, _mm_loadl_epi64((const __m128i *)(py + i)));
        Emit8(k, Y, Chroma::Of<rgba>(k, _mm_unpacklo_epi16(U, U), _mm_unpacklo_epi16(V, V)), dst + 4 * i);
    }
    return i;
}

} // namespace

int DecodePairsSSE2(const Decode &d, const Frame &f, int row, int x0, int n, BYTE *dst, bool rgbaOrder)
{
    return rgbaOrder ? Pairs8<true>(d, f, row, x0, n, dst) : Pairs8<false>(d, f, row, x0, n, dst);
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
        ky02 = rgbaOrder ? Pair(e.k8r, e.k8b) : Pair(e.k8b, e.k8r);
        ku02 = rgbaOrder ? Pair(e.kur, e.kub) : Pair(e.kub, e.kur);
        kv02 = rgbaOrder ? Pair(e.kvr, e.kvb) : Pair(e.kvb, e.kvr);
        ky13 = Pair(e.k8g, 0);
        ku13 = Pair(e.kug, 0);
        kv13 = Pair(e.kvg, 0);
        // offsets ride on the rounding: mid + (s + 2^15 >> 16) is (s + 2^15 +
        // mid 2^16) >> 16
        ybase = _mm_set1_epi32(128 + e.yoff * 256);
        cbase = _mm_set1_epi32((1 << 15) + e.mid * 65536);
        low = _mm_set1_epi32(0x00FF00FF);
    }
};

// Luma of four pixels as dwords, from their split words.
inline __m128i Luma4(const EncodeConsts &k, __m128i e, __m128i o)
{
    __m128i s = _mm_add_epi32(_mm_madd_epi16(e, k.ky02), _mm_madd_epi16(o, k.ky13));
    return _mm_srai_epi32(_mm_add_epi32(s, k.ybase), 8);
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
