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

struct Consts {
    __m256i one, yoff, mid, kR, kB, kG, kG2, rnd, alpha;
    __m128i sh;
    explicit Consts(const Decode &d)
    {
        one = _mm256_set1_epi16(1);
        yoff = _mm256_set1_epi16((short)d.yoff);
        mid = _mm256_set1_epi16((short)d.mid);
        kR = _mm256_unpacklo_epi16(_mm256_set1_epi16((short)d.cy), _mm256_set1_epi16((short)d.crv));
        kB = _mm256_unpacklo_epi16(_mm256_set1_epi16((short)d.cy), _mm256_set1_epi16((short)d.cbu));
        kG = _mm256_unpacklo_epi16(_mm256_set1_epi16((short)d.cy), _mm256_set1_epi16((short)d.cgu));
        kG2 = _mm256_unpacklo_epi16(_mm256_set1_epi16((short)d.cgv), _mm256_set1_epi16((short)(1 << (d.shift - 1))));
        rnd = _mm256_set1_epi32(1 << (d.shift - 1));
        alpha = _mm256_set1_epi8((char)0xFF);
        sh = _mm_cvtsi32_si128(d.shift);
    }
};

// Sixteen pixels from 16-bit samples in pixel order. The in-lane unpacks and
// packs undo each other, so the channel words come out in pixel order too.
inline void Emit16(const Consts &k, __m256i Y, __m256i U, __m256i V, BYTE *dst, bool rgbaOrder)
{
    Y = _mm256_sub_epi16(Y, k.yoff);
    U = _mm256_sub_epi16(U, k.mid);
    V = _mm256_sub_epi16(V, k.mid);
    __m256i yvL = _mm256_unpacklo_epi16(Y, V), yvH = _mm256_unpackhi_epi16(Y, V);
    __m256i yuL = _mm256_unpacklo_epi16(Y, U), yuH = _mm256_unpackhi_epi16(Y, U);
    __m256i v1L = _mm256_unpacklo_epi16(V, k.one), v1H = _mm256_unpackhi_epi16(V, k.one);
    __m256i rL = _mm256_sra_epi32(_mm256_add_epi32(_mm256_madd_epi16(yvL, k.kR), k.rnd), k.sh);
    __m256i rH = _mm256_sra_epi32(_mm256_add_epi32(_mm256_madd_epi16(yvH, k.kR), k.rnd), k.sh);
    __m256i bL = _mm256_sra_epi32(_mm256_add_epi32(_mm256_madd_epi16(yuL, k.kB), k.rnd), k.sh);
    __m256i bH = _mm256_sra_epi32(_mm256_add_epi32(_mm256_madd_epi16(yuH, k.kB), k.rnd), k.sh);
    __m256i gL = _mm256_sra_epi32(_mm256_add_epi32(_mm256_madd_epi16(yuL, k.kG), _mm256_madd_epi16(v1L, k.kG2)), k.sh);
    __m256i gH = _mm256_sra_epi32(_mm256_add_epi32(_mm256_madd_epi16(yuH, k.kG), _mm256_madd_epi16(v1H, k.kG2)), k.sh);
    // per lane: eight pixels' bytes in the low half
    __m256i R = _mm256_packus_epi16(_mm256_packs_epi32(rL, rH), _mm256_setzero_si256());
    __m256i G = _mm256_packus_epi16(_mm256_packs_epi32(gL, gH), _mm256_setzero_si256());
    __m256i B = _mm256_packus_epi16(_mm256_packs_epi32(bL, bH), _mm256_setzero_si256());
    if (rgbaOrder) {
        __m256i t = R;
        R = B;
        B = t;
    }
    __m256i bg = _mm256_unpacklo_epi8(B, G), ra = _mm256_unpacklo_epi8(R, k.alpha);
    __m256i lo = _mm256_unpacklo_epi16(bg, ra), hi = _mm256_unpackhi_epi16(bg, ra);
    _mm256_storeu_si256((__m256i *)dst, _mm256_permute2x128_si256(lo, hi, 0x20));
    _mm256_storeu_si256((__m256i *)(dst + 32), _mm256_permute2x128_si256(lo, hi, 0x31));
}

inline void SplitPairs(__m256i uv, __m256i *U, __m256i *V)
{
    *U = _mm256_shufflehi_epi16(_mm256_shufflelo_epi16(uv, _MM_SHUFFLE(2, 2, 0, 0)), _MM_SHUFFLE(2, 2, 0, 0));
    *V = _mm256_shufflehi_epi16(_mm256_shufflelo_epi16(uv, _MM_SHUFFLE(3, 3, 1, 1)), _MM_SHUFFLE(3, 3, 1, 1));
}

inline __m256i Bytes16(const BYTE *p)
{
    return _mm256_cvtepu8_epi16(_mm_loadu_si128((const __m128i *)p));
}

} // namespace

int DecodePairsAVX2(const Decode &d, const Frame &f, int row, int x0, int n, BYTE *dst, bool rgbaOrder)
{
    const Consts k(d);
    const BYTE *py = f.plane[0] + (LONGLONG)row * f.pitch[0];
    int i = 0;
    if (f.kind == PACKED8) {
        const __m256i low = _mm256_set1_epi16(0xFF);
        const BYTE *p = py + 2 * x0;
        for (; i + 16 <= n; i += 16) {
            __m256i w = _mm256_loadu_si256((const __m256i *)(p + 2 * i)), U, V;
            __m256i Y = f.lumaFirst ? _mm256_and_si256(w, low) : _mm256_srli_epi16(w, 8);
            SplitPairs(f.lumaFirst ? _mm256_srli_epi16(w, 8) : _mm256_and_si256(w, low), &U, &V);
            Emit16(k, Y, U, V, dst + 4 * i, rgbaOrder);
        }
        return i;
    }
    const int crow = row >> f.sy;
    if (crow >= f.ch)
        return 0;
    const BYTE *pc = f.plane[1] + (LONGLONG)crow * f.pitch[1];
    py += x0;
    if (f.kind == SEMIPLANAR) {
        pc += x0;
        for (; i + 16 <= n; i += 16) {
            __m256i U, V;
            SplitPairs(Bytes16(pc + i), &U, &V);
            Emit16(k, Bytes16(py + i), U, V, dst + 4 * i, rgbaOrder);
        }
        return i;
    }
    const BYTE *pu = f.plane[f.vFirst ? 2 : 1] + (LONGLONG)crow * f.pitch[f.vFirst ? 2 : 1] + x0 / 2;
    const BYTE *pv = f.plane[f.vFirst ? 1 : 2] + (LONGLONG)crow * f.pitch[f.vFirst ? 1 : 2] + x0 / 2;
    for (; i + 16 <= n; i += 16) {
        __m128i u8 = _mm_loadl_epi64((const __m128i *)(pu + i / 2));
        __m128i v8 = _mm_loadl_epi64((const __m128i *)(pv + i / 2));
        Emit16(k, Bytes16(py + i), _mm256_cvtepu8_epi16(_mm_unpacklo_epi8(u8, u8)),
               _mm256_cvtepu8_epi16(_mm_unpacklo_epi8(v8, v8)), dst + 4 * i, rgbaOrder);
    }
    return i;
}

namespace {

// Per lane [a0 a1 a2 a3] [b0 b1 b2 b3] to [a0+a1 a2+a3 b0+b1 b2+b3].
inline __m256i PairSums(__m256i a, __m256i b)
{
    __m256 x = _mm256_castsi256_ps(a), y = _mm256_castsi256_ps(b);
    return _mm256_add_epi32(_mm256_castps_si256(_mm256_shuffle_ps(x, y, _MM_SHUFFLE(2, 0, 2, 0))),
                            _mm256_castps_si256(_mm256_shuffle_ps(x, y, _MM_SHUFFLE(3, 1, 3, 1))));
}

// Weighted sums of the eight pixels of one 32-byte load, in pixel order.
inline __m256i Dot8(__m256i px, __m256i k)
{
    const __m256i zero = _mm256_setzero_si256();
    return PairSums(_mm256_madd_epi16(_mm256_unpacklo_epi8(px, zero), k),
                    _mm256_madd_epi16(_mm256_unpackhi_epi8(px, zero), k));
}

inline __m256i Weights(int32_t first, int32_t second, int32_t third)
{
    return _mm256_setr_epi16((short)first, (short)second, (short)third, 0, (short)first, (short)second, (short)third,
                             0, (short)first, (short)second, (short)third, 0, (short)first, (short)second,
                             (short)third, 0);
}

// Eight 32-bit values to eight saturated bytes in the low half.
inline __m128i Bytes8(__m256i v)
{
    __m128i w = _mm_packs_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    return _mm_packus_epi16(w, _mm_setzero_si128());
}

} // namespace

int EncodeRows420AVX2(const Encode &e, const BYTE *row0, const BYTE *row1, int n, bool rgbaOrder, BYTE *y0,
                      BYTE *y1, BYTE *u, BYTE *v, int uvStep)
{
    const __m256i ky = rgbaOrder ? Weights(e.kyr, e.kyg, e.kyb) : Weights(e.kyb, e.kyg, e.kyr);
    const __m256i ku = rgbaOrder ? Weights(e.kur, e.kug, e.kub) : Weights(e.kub, e.kug, e.kur);
    const __m256i kv = rgbaOrder ? Weights(e.kvr, e.kvg, e.kvb) : Weights(e.kvb, e.kvg, e.kvr);
    const __m256i yr = _mm256_set1_epi32(8192), yoff = _mm256_set1_epi32(e.yoff);
    const __m256i cr = _mm256_set1_epi32(1 << 15), mid = _mm256_set1_epi32(e.mid), zero = _mm256_setzero_si256();
    int i = 0;
    for (; i + 16 <= n; i += 16) {
        __m256i a0 = _mm256_loadu_si256((const __m256i *)(row0 + 4 * i));
        __m256i b0 = _mm256_loadu_si256((const __m256i *)(row0 + 4 * i + 32));
        __m256i a1 = _mm256_loadu_si256((const __m256i *)(row1 + 4 * i));
        __m256i b1 = _mm256_loadu_si256((const __m256i *)(row1 + 4 * i + 32));
        BYTE *outs[2] = {y0, y1};
        __m256i rows[2][2] = {{a0, b0}, {a1, b1}};
        for (int r = 0; r < 2; ++r) {
            if (!outs[r])
                continue;
            __m256i lo = _mm256_add_epi32(_mm256_srai_epi32(_mm256_add_epi32(Dot8(rows[r][0], ky), yr), 14), yoff);
            __m256i hi = _mm256_add_epi32(_mm256_srai_epi32(_mm256_add_epi32(Dot8(rows[r][1], ky), yr), 14), yoff);
            _mm_storeu_si128((__m128i *)(outs[r] + i), _mm_unpacklo_epi64(Bytes8(lo), Bytes8(hi)));
        }
        // block sums per lane as the SSE2 body forms them; the lanes give
        // chroma 0 1 4 5 | 2 3 6 7, put back in order after the sums
        __m256i sa = _mm256_add_epi16(_mm256_unpacklo_epi8(a0, zero), _mm256_unpacklo_epi8(a1, zero));
        __m256i sa2 = _mm256_add_epi16(_mm256_unpackhi_epi8(a0, zero), _mm256_unpackhi_epi8(a1, zero));
        __m256i sb = _mm256_add_epi16(_mm256_unpacklo_epi8(b0, zero), _mm256_unpacklo_epi8(b1, zero));
        __m256i sb2 = _mm256_add_epi16(_mm256_unpackhi_epi8(b0, zero), _mm256_unpackhi_epi8(b1, zero));
        __m256i pa = _mm256_unpacklo_epi64(_mm256_add_epi16(sa, _mm256_srli_si256(sa, 8)),
                                           _mm256_add_epi16(sa2, _mm256_srli_si256(sa2, 8)));
        __m256i pb = _mm256_unpacklo_epi64(_mm256_add_epi16(sb, _mm256_srli_si256(sb, 8)),
                                           _mm256_add_epi16(sb2, _mm256_srli_si256(sb2, 8)));
        __m256i U = _mm256_add_epi32(
            _mm256_srai_epi32(_mm256_add_epi32(PairSums(_mm256_madd_epi16(pa, ku), _mm256_madd_epi16(pb, ku)), cr), 16),
            mid);
        __m256i V = _mm256_add_epi32(
            _mm256_srai_epi32(_mm256_add_epi32(PairSums(_mm256_madd_epi16(pa, kv), _mm256_madd_epi16(pb, kv)), cr), 16),
            mid);
        __m128i U8 = Bytes8(_mm256_permute4x64_epi64(U, _MM_SHUFFLE(3, 1, 2, 0)));
        __m128i V8 = Bytes8(_mm256_permute4x64_epi64(V, _MM_SHUFFLE(3, 1, 2, 0)));
        if (uvStep == 1) {
            _mm_storel_epi64((__m128i *)(u + i / 2), U8);
            _mm_storel_epi64((__m128i *)(v + i / 2), V8);
        } else {
            _mm_storeu_si128((__m128i *)(u + i), _mm_unpacklo_epi8(U8, V8));
        }
    }
    return i;
}

} // namespace zvyuv
