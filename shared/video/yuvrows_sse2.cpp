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

// The pairs' form of the AVX2 body (see there): a 32-bit lane per pixel
// pair, sums eight times the plain form's, each pixel's value a high word.
struct PairConsts {
    __m128i mid, kYe, kYo, kR, kG, kB, base, alpha, high, up;
    explicit PairConsts(const Decode &d)
    {
        mid = _mm_set1_epi16((short)d.mid);
        kYe = Pair(d.cy, 0);
        kYo = Pair(0, d.cy);
        kR = Pair(0, d.crv);
        kG = Pair(d.cgu, d.cgv);
        kB = Pair(d.cbu, 0);
        base = _mm_set1_epi32(((1 << (d.shift - 1)) - d.yoff * d.cy) * (1 << (16 - d.shift)));
        alpha = _mm_set1_epi16(255);
        high = _mm_set1_epi32((int)0xFFFF0000u);
        up = _mm_cvtsi32_si128(16 - d.shift);
    }
    static __m128i Pair(int a, int b)
    {
        return _mm_set1_epi32((int)((uint32_t)(uint16_t)a | (uint32_t)b << 16));
    }
};

inline __m128i Channel(const PairConsts &k, __m128i ye, __m128i yo, __m128i c)
{
    return _mm_or_si128(_mm_srli_epi32(_mm_add_epi32(ye, c), 16), _mm_and_si128(_mm_add_epi32(yo, c), k.high));
}

// Eight pixels: Y as pairs of luma words, UV as the pairs' chroma words.
inline void EmitPairs8(const PairConsts &k, __m128i Y, __m128i UV, BYTE *dst, bool rgbaOrder)
{
    Y = _mm_sll_epi16(Y, k.up);
    UV = _mm_sll_epi16(_mm_sub_epi16(UV, k.mid), k.up);
    __m128i r = _mm_madd_epi16(UV, k.kR), g = _mm_madd_epi16(UV, k.kG), b = _mm_madd_epi16(UV, k.kB);
    __m128i ye = _mm_add_epi32(_mm_madd_epi16(Y, k.kYe), k.base);
    __m128i yo = _mm_add_epi32(_mm_madd_epi16(Y, k.kYo), k.base);
    __m128i R = Channel(k, ye, yo, r), G = Channel(k, ye, yo, g), B = Channel(k, ye, yo, b);
    if (rgbaOrder) {
        __m128i t = R;
        R = B;
        B = t;
    }
    __m128i br = _mm_packus_epi16(B, R), ga = _mm_packus_epi16(G, k.alpha);
    __m128i bg = _mm_unpacklo_epi8(br, ga), ra = _mm_unpackhi_epi8(br, ga);
    _mm_storeu_si128((__m128i *)dst, _mm_unpacklo_epi16(bg, ra));
    _mm_storeu_si128((__m128i *)(dst + 16), _mm_unpackhi_epi16(bg, ra));
}

} // namespace

int DecodePairsSSE2(const Decode &d, const Frame &f, int row, int x0, int n, BYTE *dst, bool rgbaOrder)
{
    const PairConsts k(d);
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
            EmitPairs8(k, Y, UV, dst + 4 * i, rgbaOrder);
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
            EmitPairs8(k, Y, _mm_unpacklo_epi8(_mm_loadl_epi64((const __m128i *)(pc + i)), zero), dst + 4 * i,
                       rgbaOrder);
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
        EmitPairs8(k, Y, UV, dst + 4 * i, rgbaOrder);
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

// Weighted sums of four 8-bit pixels of one load: k holds the weights of
// the pixel's four bytes twice.
inline __m128i Dot4(__m128i px, __m128i k)
{
    const __m128i zero = _mm_setzero_si128();
    return PairSums(_mm_madd_epi16(_mm_unpacklo_epi8(px, zero), k), _mm_madd_epi16(_mm_unpackhi_epi8(px, zero), k));
}

inline __m128i Weights(int32_t first, int32_t second, int32_t third)
{
    return _mm_setr_epi16((short)first, (short)second, (short)third, 0, (short)first, (short)second, (short)third, 0);
}

} // namespace

int EncodeRows420SSE2(const Encode &e, const BYTE *row0, const BYTE *row1, int n, bool rgbaOrder, BYTE *y0,
                      BYTE *y1, BYTE *u, BYTE *v, int uvStep)
{
    // weights in memory order of the pixel's bytes
    const __m128i ky = rgbaOrder ? Weights(e.kyr, e.kyg, e.kyb) : Weights(e.kyb, e.kyg, e.kyr);
    const __m128i ku = rgbaOrder ? Weights(e.kur, e.kug, e.kub) : Weights(e.kub, e.kug, e.kur);
    const __m128i kv = rgbaOrder ? Weights(e.kvr, e.kvg, e.kvb) : Weights(e.kvb, e.kvg, e.kvr);
    const __m128i yr = _mm_set1_epi32(8192), yoff = _mm_set1_epi32(e.yoff);
    const __m128i cr = _mm_set1_epi32(1 << 15), mid = _mm_set1_epi32(e.mid), zero = _mm_setzero_si128();
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        __m128i a0 = _mm_loadu_si128((const __m128i *)(row0 + 4 * i));
        __m128i b0 = _mm_loadu_si128((const __m128i *)(row0 + 4 * i + 16));
        __m128i a1 = _mm_loadu_si128((const __m128i *)(row1 + 4 * i));
        __m128i b1 = _mm_loadu_si128((const __m128i *)(row1 + 4 * i + 16));
        BYTE *outs[2] = {y0, y1};
        __m128i rows[2][2] = {{a0, b0}, {a1, b1}};
        for (int r = 0; r < 2; ++r) {
            if (!outs[r])
                continue;
            __m128i lo = _mm_add_epi32(_mm_srai_epi32(_mm_add_epi32(Dot4(rows[r][0], ky), yr), 14), yoff);
            __m128i hi = _mm_add_epi32(_mm_srai_epi32(_mm_add_epi32(Dot4(rows[r][1], ky), yr), 14), yoff);
            _mm_storel_epi64((__m128i *)(outs[r] + i), _mm_packus_epi16(_mm_packs_epi32(lo, hi), zero));
        }
        // block sums: the two rows, then the two pixels of each pair
        __m128i sa = _mm_add_epi16(_mm_unpacklo_epi8(a0, zero), _mm_unpacklo_epi8(a1, zero));
        __m128i sa2 = _mm_add_epi16(_mm_unpackhi_epi8(a0, zero), _mm_unpackhi_epi8(a1, zero));
        __m128i sb = _mm_add_epi16(_mm_unpacklo_epi8(b0, zero), _mm_unpacklo_epi8(b1, zero));
        __m128i sb2 = _mm_add_epi16(_mm_unpackhi_epi8(b0, zero), _mm_unpackhi_epi8(b1, zero));
        __m128i pa = _mm_unpacklo_epi64(_mm_add_epi16(sa, _mm_srli_si128(sa, 8)), _mm_add_epi16(sa2, _mm_srli_si128(sa2, 8)));
        __m128i pb = _mm_unpacklo_epi64(_mm_add_epi16(sb, _mm_srli_si128(sb, 8)), _mm_add_epi16(sb2, _mm_srli_si128(sb2, 8)));
        __m128i U = _mm_add_epi32(_mm_srai_epi32(_mm_add_epi32(PairSums(_mm_madd_epi16(pa, ku), _mm_madd_epi16(pb, ku)), cr), 16), mid);
        __m128i V = _mm_add_epi32(_mm_srai_epi32(_mm_add_epi32(PairSums(_mm_madd_epi16(pa, kv), _mm_madd_epi16(pb, kv)), cr), 16), mid);
        __m128i U8 = _mm_packus_epi16(_mm_packs_epi32(U, zero), zero), V8 = _mm_packus_epi16(_mm_packs_epi32(V, zero), zero);
        int u4 = _mm_cvtsi128_si32(U8), v4 = _mm_cvtsi128_si32(V8);
        if (uvStep == 1) {
            memcpy(u + i / 2, &u4, 4);
            memcpy(v + i / 2, &v4, 4);
        } else {
            _mm_storel_epi64((__m128i *)(u + i), _mm_unpacklo_epi8(U8, V8));
        }
    }
    return i;
}

} // namespace zvyuv
