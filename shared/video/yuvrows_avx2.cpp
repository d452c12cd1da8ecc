// AVX2 bodies of the 8-bit row kernels, sixteen pixels a step; each gives the
// plain form's integers exactly. Compiled for AVX2 alone; called only where
// the support word and the processor allow it.
#if defined(__i386__)
#pragma GCC target("avx2,fpmath=sse")
#else
#pragma GCC target("avx2")
#endif
#include <immintrin.h>
#include "video/yuvrows.h"

namespace zvyuv {

namespace {

// Words a and b in every 32-bit lane, a in the low one.
inline __m256i pair(int a, int b)
{
    return _mm256_set1_epi32((int)((uint32_t)(uint16_t)a | (uint32_t)b << 16));
}

// The decode: sixteen pixels a step in 16-bit lanes, each sample in the high
// byte of its word so that mulhi gives the plain form's (s k) >> 8. The
// lanes hold pixels 0-3 8-11 | 4-7 12-15: the packs and unpacks that
// interleave the channels then leave pixels 0-7 and 8-15 whole, and the
// stores need no permute.
struct Consts {
    __m256i ky, k0, k2, kgu, kgv, b0, b2, bg, alpha;
    // byte 0 of a pixel is blue (from U), or red (from V) in RGBA order
    Consts(const Decode &d, bool rgbaOrder)
    {
        ky = _mm256_set1_epi16((short)d.ky8);
        kgu = _mm256_set1_epi16((short)d.kgu8);
        kgv = _mm256_set1_epi16((short)d.kgv8);
        bg = _mm256_set1_epi16(d.bg8);
        k0 = _mm256_set1_epi16((short)(rgbaOrder ? d.kr8 : d.kb8));
        b0 = _mm256_set1_epi16(rgbaOrder ? d.br8 : d.bb8);
        k2 = _mm256_set1_epi16((short)(rgbaOrder ? d.kb8 : d.kr8));
        b2 = _mm256_set1_epi16(rgbaOrder ? d.bb8 : d.br8);
        alpha = _mm256_set1_epi16(255);
    }
};

// Chroma terms of bytes 0, 1 and 2 of sixteen pixels, from each one's U and V.
struct Chroma {
    __m256i c0, c1, c2;
    template <bool rgba> static Chroma Of(const Consts &k, __m256i U, __m256i V)
    {
        Chroma c;
        c.c0 = _mm256_add_epi16(_mm256_mulhi_epu16(rgba ? V : U, k.k0), k.b0);
        c.c2 = _mm256_add_epi16(_mm256_mulhi_epu16(rgba ? U : V, k.k2), k.b2);
        c.c1 = _mm256_sub_epi16(_mm256_sub_epi16(k.bg, _mm256_mulhi_epu16(U, k.kgu)), _mm256_mulhi_epu16(V, k.kgv));
        return c;
    }
};

inline void Emit16(const Consts &k, __m256i Y, const Chroma &c, BYTE *dst)
{
    __m256i yt = _mm256_mulhi_epu16(Y, k.ky);
    __m256i x0 = _mm256_srai_epi16(_mm256_adds_epi16(yt, c.c0), 6);
    __m256i x1 = _mm256_srai_epi16(_mm256_adds_epi16(yt, c.c1), 6);
    __m256i x2 = _mm256_srai_epi16(_mm256_adds_epi16(yt, c.c2), 6);
    __m256i p02 = _mm256_packus_epi16(x0, x2), p1a = _mm256_packus_epi16(x1, k.alpha);
    __m256i lo = _mm256_unpacklo_epi8(p02, p1a), hi = _mm256_unpackhi_epi8(p02, p1a);
    _mm256_storeu_si256((__m256i *)dst, _mm256_unpacklo_epi16(lo, hi));
    _mm256_storeu_si256((__m256i *)(dst + 32), _mm256_unpackhi_epi16(lo, hi));
}

// Byte picks into the high bytes of the words (-1 zeroes the low ones), in
// the lanes' pixel order: sixteen luma bytes; eight chroma bytes, each to its
// pair of pixels; sixteen NV12 chroma bytes (U and V).
#define Z -1
#define P8(a, b, c, d, e, f, g, h) Z, a, Z, b, Z, c, Z, d, Z, e, Z, f, Z, g, Z, h
const signed char kPicks[4][32] = {
    {P8(0, 1, 2, 3, 8, 9, 10, 11), P8(4, 5, 6, 7, 12, 13, 14, 15)},
    {P8(0, 0, 1, 1, 4, 4, 5, 5), P8(2, 2, 3, 3, 6, 6, 7, 7)},
    {P8(0, 0, 2, 2, 8, 8, 10, 10), P8(4, 4, 6, 6, 12, 12, 14, 14)},
    {P8(1, 1, 3, 3, 9, 9, 11, 11), P8(5, 5, 7, 7, 13, 13, 15, 15)},
};
#undef P8
#undef Z
enum { LUMA, PLANE, NV_U, NV_V };

inline __m256i Pick(int which)
{
    return _mm256_loadu_si256((const __m256i *)kPicks[which]);
}

inline __m256i Both(const BYTE *p)
{
    return _mm256_broadcastsi128_si256(_mm_loadu_si128((const __m128i *)p));
}

// Packed 4:2:2 (YUYV when lumaFirst): luma in one byte of each word, chroma
// in the other; after the permute each lane holds pairs 0 1 4 5 | 2 3 6 7.
// The chroma terms of a pair come from its (U, V) words, then go to both
// pixels: G's two terms summed with the words swapped, so both hold it.
template <bool rgba, bool lumaFirst>
int Packed16(const Consts &k, const Decode &d, const BYTE *p, int pitch, int rows, int n, BYTE *dst,
             LONG_PTR dstStep)
{
    const __m256i high = _mm256_set1_epi16((short)0xFF00);
    const __m256i kbr = pair(d.kb8, d.kr8), bbr = pair(d.bb8, d.br8), kg = pair(d.kgu8, d.kgv8);
    // byte picks within each dword: its low word twice, its high word twice,
    // its words swapped
    const __m256i at = _mm256_setr_epi8(0, 0, 0, 0, 4, 4, 4, 4, 8, 8, 8, 8, 12, 12, 12, 12, 0, 0, 0, 0, 4, 4, 4, 4,
                                        8, 8, 8, 8, 12, 12, 12, 12);
    const __m256i even = _mm256_add_epi8(at, _mm256_set1_epi32(0x01000100));
    const __m256i odd = _mm256_add_epi8(at, _mm256_set1_epi32(0x03020302));
    const __m256i swap = _mm256_add_epi8(at, _mm256_set1_epi32(0x01000302));
    const __m256i m0 = rgba ? odd : even, m2 = rgba ? even : odd;
    for (int r = 0; r < rows; ++r, p += pitch, dst += dstStep)
        for (int i = 0; i + 16 <= n; i += 16) {
            __m256i w = _mm256_permute4x64_epi64(_mm256_loadu_si256((const __m256i *)(p + 2 * i)), 0xD8);
            __m256i Y = lumaFirst ? _mm256_slli_epi16(w, 8) : _mm256_and_si256(w, high);
            __m256i C = lumaFirst ? _mm256_and_si256(w, high) : _mm256_slli_epi16(w, 8);
            __m256i br = _mm256_add_epi16(_mm256_mulhi_epu16(C, kbr), bbr), g = _mm256_mulhi_epu16(C, kg);
            Chroma c;
            c.c0 = _mm256_shuffle_epi8(br, m0);
            c.c2 = _mm256_shuffle_epi8(br, m2);
            c.c1 = _mm256_sub_epi16(k.bg, _mm256_add_epi16(g, _mm256_shuffle_epi8(g, swap)));
            Emit16(k, Y, c, dst + 4 * i);
        }
    return n & ~15;
}

template <bool rgba>
int Pairs16(const Decode &d, const Frame &f, int row, int rows, int x0, int n, BYTE *dst, LONG_PTR dstStep,
            BYTE *dst2)
{
    const Consts k(d, rgba);
    const BYTE *py = f.plane[0] + (LONGLONG)row * f.pitch[0];
    int i = 0;
    if (f.kind == PACKED8)
        return f.lumaFirst ? Packed16<rgba, true>(k, d, py + 2 * x0, f.pitch[0], rows, n, dst, dstStep)
                           : Packed16<rgba, false>(k, d, py + 2 * x0, f.pitch[0], rows, n, dst, dstStep);
    const int crow = row >> f.sy;
    if (crow >= f.ch)
        return 0;
    const BYTE *pc = f.plane[1] + (LONGLONG)crow * f.pitch[1];
    py += x0;
    // the row below takes the same chroma terms
    const BYTE *py2 = py + f.pitch[0];
    const __m256i my = Pick(LUMA);
    if (f.kind == SEMIPLANAR) {
        const __m256i mu = Pick(NV_U), mv = Pick(NV_V);
        pc += x0;
        for (; i + 16 <= n; i += 16) {
            __m256i uv = Both(pc + i);
            Chroma c = Chroma::Of<rgba>(k, _mm256_shuffle_epi8(uv, mu), _mm256_shuffle_epi8(uv, mv));
            Emit16(k, _mm256_shuffle_epi8(Both(py + i), my), c, dst + 4 * i);
            if (dst2)
                Emit16(k, _mm256_shuffle_epi8(Both(py2 + i), my), c, dst2 + 4 * i);
        }
        return i;
    }
    const BYTE *pu = f.plane[f.vFirst ? 2 : 1] + (LONGLONG)crow * f.pitch[f.vFirst ? 2 : 1] + x0 / 2;
    const BYTE *pv = f.plane[f.vFirst ? 1 : 2] + (LONGLONG)crow * f.pitch[f.vFirst ? 1 : 2] + x0 / 2;
    const __m256i mc = Pick(PLANE);
    for (; i + 16 <= n; i += 16) {
        __m256i U = _mm256_broadcastq_epi64(_mm_loadl_epi64((const __m128i *)(pu + i / 2)));
        __m256i V = _mm256_broadcastq_epi64(_mm_loadl_epi64((const __m128i *)(pv + i / 2)));
        Chroma c = Chroma::Of<rgba>(k, _mm256_shuffle_epi8(U, mc), _mm256_shuffle_epi8(V, mc));
        Emit16(k, _mm256_shuffle_epi8(Both(py + i), my), c, dst + 4 * i);
        if (dst2)
            Emit16(k, _mm256_shuffle_epi8(Both(py2 + i), my), c, dst2 + 4 * i);
    }
    return i;
}

} // namespace

int DecodePairsAVX2(const Decode &d, const Frame &f, int row, int x0, int n, BYTE *dst, BYTE *dst2,
                    bool rgbaOrder)
{
    return rgbaOrder ? Pairs16<true>(d, f, row, 1, x0, n, dst, 0, dst2)
                     : Pairs16<false>(d, f, row, 1, x0, n, dst, 0, dst2);
}

int DecodePackedAVX2(const Decode &d, const Frame &f, int row, int rows, int x0, int n, BYTE *dst,
                     LONG_PTR dstStep, bool rgbaOrder)
{
    return rgbaOrder ? Pairs16<true>(d, f, row, rows, x0, n, dst, dstStep, nullptr)
                     : Pairs16<false>(d, f, row, rows, x0, n, dst, dstStep, nullptr);
}

namespace {

// The encode works on the pixels' bytes. Luma: byte madds of the weights
// against the bytes less 128 (signed), so the words never saturate; each
// pixel's two words summed. Chroma: with G's weight minus the other two,
// a block's value is kb (B - G) + kr (R - G) over its sums, and byte madds
// against ones give a pixel pair's sums of bytes 0 and 2 (picks 0 4 2 6)
// and of byte 1 twice (picks 1 5 1 5).
struct EncodeConsts {
    __m256i ky, flip, sumPick, ones8, yadd, ku, kv, cbase, order;
    EncodeConsts(const Encode &e, bool rgbaOrder)
    {
        int w0 = rgbaOrder ? e.k8r : e.k8b, w2 = rgbaOrder ? e.k8b : e.k8r;
        // alpha weighs nothing
        ky = _mm256_set1_epi32((int)((uint32_t)w0 | (uint32_t)e.k8g << 8 | (uint32_t)w2 << 16));
        flip = _mm256_set1_epi8((char)0x80);
        yadd = _mm256_set1_epi16((short)(128 * (w0 + e.k8g + w2) + 128 + (e.yoff << 8)));
        sumPick = _mm256_setr_epi8(0, 4, 2, 6, 8, 12, 10, 14, 1, 5, 1, 5, 9, 13, 9, 13, 0, 4, 2, 6, 8, 12, 10, 14,
                                   1, 5, 1, 5, 9, 13, 9, 13);
        ones8 = _mm256_set1_epi8(1);
        ku = rgbaOrder ? pair(e.kur, e.kub) : pair(e.kub, e.kur);
        kv = rgbaOrder ? pair(e.kvr, e.kvb) : pair(e.kvb, e.kvr);
        // a chroma value is the high word of its sum
        cbase = _mm256_set1_epi32((1 << 15) + e.mid * 65536);
        // dwords 0 4 1 5 of the lanes: the order two packs leave behind
        order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    }
};

// Eight pixels' luma terms: words w . (byte 0, byte 1) and w . (byte 2, alpha)
// of the bytes less 128.
inline __m256i LumaTerms(const EncodeConsts &k, __m256i p)
{
    return _mm256_maddubs_epi16(k.ky, _mm256_xor_si256(p, k.flip));
}

// Eight pixels' pair sums: per lane the (byte 0, byte 2) sums of its two
// pairs, then their byte 1 sums twice.
inline __m256i PairSums(const EncodeConsts &k, __m256i p)
{
    return _mm256_maddubs_epi16(_mm256_shuffle_epi8(p, k.sumPick), k.ones8);
}

// Sixteen pixels a step over groups row pairs. The byte madds never
// saturate and the sums are exact, so every value is the plain form's.
int Encode420(const EncodeConsts &k, const BYTE *row0, LONG_PTR srcStep, int groups, int n, const Planes420 &out)
{
    const __m128i planes = _mm_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15);
    BYTE *y0 = out.y, *u = out.u, *v = out.v;
    const int uvStep = out.uvStep;
    for (int g = 0; g < groups; ++g, row0 += 2 * srcStep, y0 += 2 * out.yStep, u += out.uRow, v += out.vRow) {
        const BYTE *row1 = row0 + srcStep;
        BYTE *y1 = y0 + out.yStep;
        for (int i = 0; i + 16 <= n; i += 16) {
            __m256i pa0 = _mm256_loadu_si256((const __m256i *)(row0 + 4 * i));
            __m256i pb0 = _mm256_loadu_si256((const __m256i *)(row0 + 4 * i + 32));
            __m256i pa1 = _mm256_loadu_si256((const __m256i *)(row1 + 4 * i));
            __m256i pb1 = _mm256_loadu_si256((const __m256i *)(row1 + 4 * i + 32));
            // per lane y0 0-3 8-11 | y1 0-3 8-11 and 4-7 12-15 of each: one
            // permute puts both rows in order (the sums fit 16 signed bits, and
            // 16 unsigned once the offset is added)
            __m256i w0 = _mm256_hadd_epi16(LumaTerms(k, pa0), LumaTerms(k, pb0));
            __m256i w1 = _mm256_hadd_epi16(LumaTerms(k, pa1), LumaTerms(k, pb1));
            w0 = _mm256_srli_epi16(_mm256_add_epi16(w0, k.yadd), 8);
            w1 = _mm256_srli_epi16(_mm256_add_epi16(w1, k.yadd), 8);
            __m256i ys = _mm256_permutevar8x32_epi32(_mm256_packus_epi16(w0, w1), k.order);
            _mm_storeu_si128((__m128i *)(y0 + i), _mm256_castsi256_si128(ys));
            _mm_storeu_si128((__m128i *)(y1 + i), _mm256_extracti128_si256(ys, 1));
            // block sums: the rows' pair sums added (no word passes 1020), then
            // (byte 0 - G, byte 2 - G) of each block; chroma 0 1 4 5 | 2 3 6 7
            __m256i sa = _mm256_add_epi16(PairSums(k, pa0), PairSums(k, pa1));
            __m256i sb = _mm256_add_epi16(PairSums(k, pb0), PairSums(k, pb1));
            __m256i dif = _mm256_sub_epi16(_mm256_unpacklo_epi64(sa, sb), _mm256_unpackhi_epi64(sa, sb));
            __m256i U = _mm256_add_epi32(_mm256_madd_epi16(dif, k.ku), k.cbase);
            __m256i V = _mm256_add_epi32(_mm256_madd_epi16(dif, k.kv), k.cbase);
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
    }
    return n & ~15;
}

} // namespace

int EncodeRows420AVX2(const Encode &e, const BYTE *row0, LONG_PTR srcStep, int groups, int n, bool rgbaOrder,
                      const Planes420 &out)
{
    const EncodeConsts k(e, rgbaOrder);
    return Encode420(k, row0, srcStep, groups, n, out);
}

} // namespace zvyuv
