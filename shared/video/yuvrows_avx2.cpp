// AVX2 bodies of the 8-bit row kernels: the SSE2 arithmetic on sixteen pixels
// a step, so each gives the plain form's integers exactly. Compiled for AVX2
// alone; called only where the support word and the processor allow it.
#if defined(__i386__)
#pragma GCC target("avx2,fpmath=sse")
#else
#pragma GCC target("avx2")
#endif
#include <immintrin.h>
#include "video/yuvrows.h"
#include <string.h>

namespace zvyuv {

namespace {

// Each 32-bit lane holds a pixel pair: luma words (Y0, Y1) in one vector,
// the pair's chroma words (U, V) in another. Products come from madd with a
// zero partner word, so no lane ever changes place until the pixels are
// put together; the even and odd pixels of each pair run side by side.
inline __m256i pair(int a, int b)
{
    return _mm256_set1_epi32((int)((uint32_t)(uint16_t)a | (uint32_t)b << 16));
}

// The samples enter eight times as large, so each 32-bit sum is eight times
// the plain form's and its high word is the plain form's sum shifted right
// by 13 (the 8-bit layouts' shift): one shift and a word blend give a pair's
// two pixels in order, and the saturating pack is the plain form's clamp.
// With samples below 2^11 and coefficients below 2^15 the sums stay far
// inside 32 bits.
struct Consts {
    __m256i mid, kYe, kYo, kR, kG, kB, base, alpha;
    __m128i up;
    // rgbaOrder swaps the red and blue weights, so the pixels come out in
    // that order with no swap per step
    Consts(const Decode &d, bool rgbaOrder)
    {
        mid = _mm256_set1_epi16((short)d.mid);
        kYe = pair(d.cy, 0);
        kYo = pair(0, d.cy);
        kR = rgbaOrder ? pair(d.cbu, 0) : pair(0, d.crv);
        kG = pair(d.cgu, d.cgv);
        kB = rgbaOrder ? pair(0, d.crv) : pair(d.cbu, 0);
        up = _mm_cvtsi32_si128(16 - d.shift);
        // rounding and the luma offset, taken off the sum instead of each sample
        base = _mm256_set1_epi32(((1 << (d.shift - 1)) - d.yoff * d.cy) * (1 << (16 - d.shift)));
        alpha = _mm256_set1_epi16(255);
    }
};

// One channel of a pair vector: even and odd pixels' sums to their words.
inline __m256i Channel(__m256i ye, __m256i yo, __m256i c)
{
    return _mm256_blend_epi16(_mm256_srli_epi32(_mm256_add_epi32(ye, c), 16), _mm256_add_epi32(yo, c), 0xAA);
}

// The chroma terms of eight pairs, from their (U, V) words.
struct Chroma {
    __m256i r, g, b;
    Chroma(const Consts &k, __m256i UV)
    {
        UV = _mm256_sll_epi16(_mm256_sub_epi16(UV, k.mid), k.up);
        r = _mm256_madd_epi16(UV, k.kR);
        g = _mm256_madd_epi16(UV, k.kG);
        b = _mm256_madd_epi16(UV, k.kB);
    }
};

// Sixteen pixels: Y as pairs of luma words and their pairs' chroma terms.
inline void Emit16(const Consts &k, __m256i Y, const Chroma &c, BYTE *dst)
{
    Y = _mm256_sll_epi16(Y, k.up);
    __m256i ye = _mm256_add_epi32(_mm256_madd_epi16(Y, k.kYe), k.base);
    __m256i yo = _mm256_add_epi32(_mm256_madd_epi16(Y, k.kYo), k.base);
    __m256i R = Channel(ye, yo, c.r), G = Channel(ye, yo, c.g), B = Channel(ye, yo, c.b);
    // per lane: B0-7 R0-7 and G0-7 A0-7, then B G R A of pixels 0-3 and 4-7
    __m256i br = _mm256_packus_epi16(B, R), ga = _mm256_packus_epi16(G, k.alpha);
    __m256i bg = _mm256_unpacklo_epi8(br, ga), ra = _mm256_unpackhi_epi8(br, ga);
    __m256i lo = _mm256_unpacklo_epi16(bg, ra), hi = _mm256_unpackhi_epi16(bg, ra);
    _mm256_storeu_si256((__m256i *)dst, _mm256_permute2x128_si256(lo, hi, 0x20));
    _mm256_storeu_si256((__m256i *)(dst + 32), _mm256_permute2x128_si256(lo, hi, 0x31));
}

inline __m256i Widen16(const BYTE *p)
{
    return _mm256_cvtepu8_epi16(_mm_loadu_si128((const __m128i *)p));
}

} // namespace

int DecodePairsAVX2(const Decode &d, const Frame &f, int row, int x0, int n, BYTE *dst, BYTE *dst2,
                    bool rgbaOrder)
{
    const Consts k(d, rgbaOrder);
    const BYTE *py = f.plane[0] + (LONGLONG)row * f.pitch[0];
    int i = 0;
    if (f.kind == PACKED8) {
        // a pair's four bytes: luma in one byte of each word, chroma in the other
        const __m256i low = _mm256_set1_epi16(0xFF);
        const BYTE *p = py + 2 * x0;
        for (; i + 16 <= n; i += 16) {
            __m256i w = _mm256_loadu_si256((const __m256i *)(p + 2 * i));
            __m256i Y = f.lumaFirst ? _mm256_and_si256(w, low) : _mm256_srli_epi16(w, 8);
            __m256i UV = f.lumaFirst ? _mm256_srli_epi16(w, 8) : _mm256_and_si256(w, low);
            Emit16(k, Y, Chroma(k, UV), dst + 4 * i);
        }
        return i;
    }
    const int crow = row >> f.sy;
    if (crow >= f.ch)
        return 0;
    const BYTE *pc = f.plane[1] + (LONGLONG)crow * f.pitch[1];
    py += x0;
    // the row below takes the same chroma terms
    const BYTE *py2 = py + f.pitch[0];
    if (f.kind == SEMIPLANAR) {
        pc += x0;
        for (; i + 16 <= n; i += 16) {
            Chroma c(k, Widen16(pc + i));
            Emit16(k, Widen16(py + i), c, dst + 4 * i);
            if (dst2)
                Emit16(k, Widen16(py2 + i), c, dst2 + 4 * i);
        }
        return i;
    }
    const BYTE *pu = f.plane[f.vFirst ? 2 : 1] + (LONGLONG)crow * f.pitch[f.vFirst ? 2 : 1] + x0 / 2;
    const BYTE *pv = f.plane[f.vFirst ? 1 : 2] + (LONGLONG)crow * f.pitch[f.vFirst ? 1 : 2] + x0 / 2;
    for (; i + 16 <= n; i += 16) {
        __m128i u8 = _mm_loadl_epi64((const __m128i *)(pu + i / 2));
        __m128i v8 = _mm_loadl_epi64((const __m128i *)(pv + i / 2));
        Chroma c(k, _mm256_cvtepu8_epi16(_mm_unpacklo_epi8(u8, v8)));
        Emit16(k, Widen16(py + i), c, dst + 4 * i);
        if (dst2)
            Emit16(k, Widen16(py2 + i), c, dst2 + 4 * i);
    }
    return i;
}

namespace {

// Pixels as 32-bit lanes: bytes 0 and 2 as one pair of words (e), byte 1 and
// alpha as another (o), so each weighted sum is two madds in pixel order.
struct EncodeConsts {
    __m256i ky02, ky13, ku02, ku13, kv02, kv13, ybase, cbase, order, low;
    EncodeConsts(const Encode &e, bool rgbaOrder)
    {
        // alpha weighs nothing
        ky02 = rgbaOrder ? pair(e.kyr, e.kyb) : pair(e.kyb, e.kyr);
        ku02 = rgbaOrder ? pair(e.kur, e.kub) : pair(e.kub, e.kur);
        kv02 = rgbaOrder ? pair(e.kvr, e.kvb) : pair(e.kvb, e.kvr);
        ky13 = pair(e.kyg, 0);
        ku13 = pair(e.kug, 0);
        kv13 = pair(e.kvg, 0);
        // offsets ride on the rounding: yoff + (s + 2^13 >> 14) is (s + 2^13 +
        // yoff 2^14) >> 14, and a chroma value is the high word of its sum
        ybase = _mm256_set1_epi32(8192 + e.yoff * 16384);
        cbase = _mm256_set1_epi32((1 << 15) + e.mid * 65536);
        // dwords 0 4 1 5 of the lanes: the order two packs leave behind
        order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
        low = _mm256_set1_epi32(0x00FF00FF);
    }
};

// Luma of eight pixels as dwords, from their split words.
inline __m256i Luma8(const EncodeConsts &k, __m256i e, __m256i o)
{
    __m256i s = _mm256_add_epi32(_mm256_madd_epi16(e, k.ky02), _mm256_madd_epi16(o, k.ky13));
    return _mm256_srai_epi32(_mm256_add_epi32(s, k.ybase), 14);
}

// Sixteen pixels a step; the second row's luma only when two is set (the
// caller's last row of an odd height has none). Every value is an exact
// 32-bit sum of the plain form's products, so the results are its own.
template <bool two>
int Encode420(const EncodeConsts &k, const BYTE *row0, const BYTE *row1, int n, BYTE *y0, BYTE *y1, BYTE *u,
              BYTE *v, int uvStep)
{
    const __m128i planes = _mm_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15);
    int i = 0;
    for (; i + 16 <= n; i += 16) {
        __m256i pa0 = _mm256_loadu_si256((const __m256i *)(row0 + 4 * i));
        __m256i pb0 = _mm256_loadu_si256((const __m256i *)(row0 + 4 * i + 32));
        __m256i pa1 = _mm256_loadu_si256((const __m256i *)(row1 + 4 * i));
        __m256i pb1 = _mm256_loadu_si256((const __m256i *)(row1 + 4 * i + 32));
        __m256i ea0 = _mm256_and_si256(pa0, k.low), oa0 = _mm256_srli_epi16(pa0, 8);
        __m256i eb0 = _mm256_and_si256(pb0, k.low), ob0 = _mm256_srli_epi16(pb0, 8);
        __m256i ea1 = _mm256_and_si256(pa1, k.low), oa1 = _mm256_srli_epi16(pa1, 8);
        __m256i eb1 = _mm256_and_si256(pb1, k.low), ob1 = _mm256_srli_epi16(pb1, 8);
        // per lane y0 0-3 8-11 | y1 0-3 8-11 and 4-7 12-15 of each: one
        // permute puts both rows in order
        __m256i w0 = _mm256_packs_epi32(Luma8(k, ea0, oa0), Luma8(k, eb0, ob0));
        __m256i w1 = two ? _mm256_packs_epi32(Luma8(k, ea1, oa1), Luma8(k, eb1, ob1)) : w0;
        __m256i ys = _mm256_permutevar8x32_epi32(_mm256_packus_epi16(w0, w1), k.order);
        _mm_storeu_si128((__m128i *)(y0 + i), _mm256_castsi256_si128(ys));
        if (two)
            _mm_storeu_si128((__m128i *)(y1 + i), _mm256_extracti128_si256(ys, 1));
        // block sums in the words: the two rows, then the neighbouring
        // columns (whole dwords: no word passes 1020); chroma 0 1 4 5 | 2 3 6 7
        __m256i se = _mm256_hadd_epi32(_mm256_add_epi16(ea0, ea1), _mm256_add_epi16(eb0, eb1));
        __m256i so = _mm256_hadd_epi32(_mm256_add_epi16(oa0, oa1), _mm256_add_epi16(ob0, ob1));
        __m256i U = _mm256_add_epi32(_mm256_add_epi32(_mm256_madd_epi16(se, k.ku02), _mm256_madd_epi16(so, k.ku13)),
                                     k.cbase);
        __m256i V = _mm256_add_epi32(_mm256_add_epi32(_mm256_madd_epi16(se, k.kv02), _mm256_madd_epi16(so, k.kv13)),
                                     k.cbase);
        __m256i uv = _mm256_blend_epi16(_mm256_srli_epi32(U, 16), V, 0xAA);
        __m128i UV = _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(_mm256_packus_epi16(uv, uv), k.order));
        if (uvStep == 1) {
            UV = _mm_shuffle_epi8(UV, planes);
            _mm_storel_epi64((__m128i *)(u + i / 2), UV);
            _mm_storeh_pd((double *)(v + i / 2), _mm_castsi128_pd(UV));
        } else {
            _mm_storeu_si128((__m128i *)(u + i), UV);
        }
    }
    return i;
}

} // namespace

int EncodeRows420AVX2(const Encode &e, const BYTE *row0, const BYTE *row1, int n, bool rgbaOrder, BYTE *y0,
                      BYTE *y1, BYTE *u, BYTE *v, int uvStep)
{
    const EncodeConsts k(e, rgbaOrder);
    return y1 ? Encode420<true>(k, row0, row1, n, y0, y1, u, v, uvStep)
              : Encode420<false>(k, row0, row1, n, y0, y1, u, v, uvStep);
}

} // namespace zvyuv
