// The vector form of every copy, written once with the compiler's generic
// vectors and compiled per instruction set. The including unit defines
// ZVSC_VB (vector bytes), RoundPs (floats to int32, nearest-even), AnyNaNPs
// (a NaN in either of two vectors), ClampPd and ClampPs (clamp, a NaN
// passing unchanged), then includes this inside its own namespace.
//
// The double path does exactly the scalar steps lane by lane (multiply,
// clamp with NaN passing, add 1.5 * 2^52, take the low word). The float path
// is used only where it is exact: scaling a float by a power of two, and
// integers of up to 24 bits, which floats hold exactly.

// Each block step is called from several places of the run; it must still
// be inlined into each.
#define ZVSC_INLINE __attribute__((always_inline))

constexpr int L = ZVSC_VB / 8;    // doubles per vector
constexpr int LF = ZVSC_VB / 4;   // floats per vector

template <int N> struct V {
    typedef int32_t i32 __attribute__((vector_size(N * 4)));
    typedef uint32_t u32 __attribute__((vector_size(N * 4)));
    typedef int16_t i16 __attribute__((vector_size(N * 2)));
    typedef uint16_t u16 __attribute__((vector_size(N * 2)));
    typedef int8_t i8 __attribute__((vector_size(N)));
    typedef uint8_t u8 __attribute__((vector_size(N)));
    typedef float f32 __attribute__((vector_size(N * 4)));
    typedef double f64 __attribute__((vector_size(N * 8)));
    typedef int64_t i64 __attribute__((vector_size(N * 8)));
    typedef int32_t i32x2 __attribute__((vector_size(N * 8)));
};
typedef V<L>::f64 vd;
typedef V<LF>::f32 vf;

template <int S, int N> inline typename V<N>::i32 LoadI(const uint8_t *p)
{
    typedef typename V<N>::i32 I;
#if ZVSC_VB == 64
    // Widening loads of the small forms, big-endian words swapped first.
    if constexpr (N == 16 && (S == 16 || S == 49 || S == 17 || S == 64)) {
        if constexpr (S == 17 || S == 64) {
            __m256i w = _mm256_loadu_si256((const __m256i *)p);
            if constexpr (S == 64)
                w = _mm256_shuffle_epi8(w, _mm256_setr_epi8(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14,
                                                             1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14));
            return (I)_mm512_cvtepi16_epi32(w);
        }
        __m128i b = _mm_loadu_si128((const __m128i *)p);
        if constexpr (S == 16)
            return (I)_mm512_sub_epi32(_mm512_cvtepu8_epi32(b), _mm512_set1_epi32(128));
        return (I)_mm512_cvtepi8_epi32(b);
    }
#endif
#if ZVSC_VB >= 32
    // Widening loads of the small forms in one instruction each.
    if constexpr (N == 8 && (S == 16 || S == 49 || S == 17)) {
        if constexpr (S == 17)
            return (I)_mm256_cvtepi16_epi32(_mm_loadu_si128((const __m128i *)p));
        __m128i b = _mm_loadl_epi64((const __m128i *)p);
        if constexpr (S == 16)
            return (I)_mm256_sub_epi32(_mm256_cvtepu8_epi32(b), _mm256_set1_epi32(128));
        return (I)_mm256_cvtepi8_epi32(b);
    }
    if constexpr (N == 4 && (S == 16 || S == 49 || S == 17)) {
        if constexpr (S == 17)
            return (I)_mm_cvtepi16_epi32(_mm_loadl_epi64((const __m128i *)p));
        int32_t w;
        memcpy(&w, p, 4);
        __m128i b = _mm_cvtsi32_si128(w);
        if constexpr (S == 16)
            return (I)_mm_sub_epi32(_mm_cvtepu8_epi32(b), _mm_set1_epi32(128));
        return (I)_mm_cvtepi8_epi32(b);
    }
#endif
    if constexpr (S == 16) {
        typename V<N>::u8 x; memcpy(&x, p, N);
        return __builtin_convertvector(x, I) - 128;
    } else if constexpr (S == 49) {
        typename V<N>::i8 x; memcpy(&x, p, N);
        return __builtin_convertvector(x, I);
    } else if constexpr (S == 17) {
        typename V<N>::i16 x; memcpy(&x, p, N * 2);
        return __builtin_convertvector(x, I);
    } else if constexpr (S == 64) {
        typename V<N>::u16 x; memcpy(&x, p, N * 2);
        x = (x >> 8) | (x << 8);
        return __builtin_convertvector((typename V<N>::i16)x, I);
    } else if constexpr (S == 18 || S == 65) {
        I r;
        for (int k = 0; k < N; k++)
            r[k] = ReadInt<S>(p + 3 * k);
        return r;
    } else if constexpr (S == 66) {
        typename V<N>::u32 x; memcpy(&x, p, N * 4);
        x = (x >> 24) | ((x >> 8) & 0xFF00u) | ((x << 8) & 0xFF0000u) | (x << 24);
        return (I)x;
    } else {
        I x; memcpy(&x, p, N * 4);
        return x;
    }
}

template <int D, int N> inline void StoreI(uint8_t *p, typename V<N>::i32 v)
{
#if ZVSC_VB == 64
    // Truncating narrowing moves; the low bytes are the rule's, NaN's zero
    // included.
    if constexpr (N == 16 && (D == 16 || D == 49 || D == 17 || D == 64)) {
        if constexpr (D == 17 || D == 64) {
            __m256i w = _mm512_cvtepi32_epi16((__m512i)v);
            if constexpr (D == 64)
                w = _mm256_shuffle_epi8(w, _mm256_setr_epi8(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14,
                                                             1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14));
            _mm256_storeu_si256((__m256i *)p, w);
        } else {
            __m128i b = _mm512_maskz_cvtepi32_epi8((__mmask16)-1, (__m512i)v);
            if constexpr (D == 16)
                b = _mm_xor_si128(b, _mm_set1_epi8((char)0x80));
            _mm_storeu_si128((__m128i *)p, b);
        }
        return;
    }
    if constexpr (N == 8 && (D == 16 || D == 49 || D == 17)) {
        if constexpr (D == 17) {
            _mm_storeu_si128((__m128i *)p, _mm256_cvtepi32_epi16((__m256i)v));
        } else {
            __m128i b = _mm256_maskz_cvtepi32_epi8((__mmask8)-1, (__m256i)v);
            if constexpr (D == 16)
                b = _mm_xor_si128(b, _mm_set1_epi8((char)0x80));
            _mm_storel_epi64((__m128i *)p, b);
        }
        return;
    }
#endif
#if ZVSC_VB >= 32
    // The low bytes of each word, gathered by byte shuffles: a NaN's word
    // is not in range, so saturating packs would not do.
    if constexpr (N == 8 && (D == 16 || D == 49 || D == 17)) {
        __m256i x = (__m256i)v;
        if constexpr (D == 17) {
            const __m256i pick = _mm256_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, -1, -1, -1, -1, -1, -1, -1, -1,
                                                  0, 1, 4, 5, 8, 9, 12, 13, -1, -1, -1, -1, -1, -1, -1, -1);
            x = _mm256_permute4x64_epi64(_mm256_shuffle_epi8(x, pick), 0x08);
            _mm_storeu_si128((__m128i *)p, _mm256_castsi256_si128(x));
        } else {
            const __m256i pick = _mm256_setr_epi8(0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
                                                  0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
            x = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(x, pick), _mm256_setr_epi32(0, 4, 1, 1, 1, 1, 1, 1));
            __m128i b = _mm256_castsi256_si128(x);
            if constexpr (D == 16)
                b = _mm_xor_si128(b, _mm_set1_epi8((char)0x80));
            _mm_storel_epi64((__m128i *)p, b);
        }
        return;
    }
    if constexpr (N == 4 && (D == 16 || D == 49 || D == 17)) {
        __m128i x = (__m128i)v;
        if constexpr (D == 17) {
            x = _mm_shuffle_epi8(x, _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, -1, -1, -1, -1, -1, -1, -1, -1));
            _mm_storel_epi64((__m128i *)p, x);
        } else {
            x = _mm_shuffle_epi8(x, _mm_setr_epi8(0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1));
            if constexpr (D == 16)
                x = _mm_xor_si128(x, _mm_set1_epi8((char)0x80));
            int32_t k = _mm_cvtsi128_si32(x);
            memcpy(p, &k, 4);
        }
        return;
    }
#endif
    if constexpr (D == 16) {
        typename V<N>::u8 x = __builtin_convertvector(v, typename V<N>::u8) ^ 0x80;
        memcpy(p, &x, N);
    } else if constexpr (D == 49) {
        typename V<N>::i8 x = __builtin_convertvector(v, typename V<N>::i8);
        memcpy(p, &x, N);
    } else if constexpr (D == 17) {
        typename V<N>::i16 x = __builtin_convertvector(v, typename V<N>::i16);
        memcpy(p, &x, N * 2);
    } else if constexpr (D == 64) {
        typename V<N>::u16 x = __builtin_convertvector(v, typename V<N>::u16);
        x = (x >> 8) | (x << 8);
        memcpy(p, &x, N * 2);
    } else if constexpr (D == 18 || D == 65) {
        for (int k = 0; k < N; k++)
            WriteInt<D>(p + 3 * k, v[k]);
    } else if constexpr (D == 66) {
        typename V<N>::u32 x = (typename V<N>::u32)v;
        x = (x >> 24) | ((x >> 8) & 0xFF00u) | ((x << 8) & 0xFF0000u) | (x << 24);
        memcpy(p, &x, N * 4);
    } else {
        memcpy(p, &v, N * 4);
    }
}

// Two vectors of values known to be in the destination's range (no NaN
// words): narrow forms pack both with saturation in one pass.
template <int D> inline void StoreIPair(uint8_t *p, V<LF>::i32 a, V<LF>::i32 b)
{
#if ZVSC_VB == 64
    // One saturating pack and one lane fix for both, in place of two
    // narrowing moves of two steps each.
    if constexpr (D == 17 || D == 64) {
        __m512i w = _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7),
                                             _mm512_packs_epi32((__m512i)a, (__m512i)b));
        if constexpr (D == 64)
            w = _mm512_or_si512(_mm512_slli_epi16(w, 8), _mm512_srli_epi16(w, 8));
        _mm512_storeu_si512(p, w);
        return;
    }
#endif
#if ZVSC_VB == 32
    if constexpr (D == 16 || D == 49 || D == 17) {
        __m256i w = _mm256_permute4x64_epi64(_mm256_packs_epi32((__m256i)a, (__m256i)b), 0xD8);
        if constexpr (D == 17) {
            _mm256_storeu_si256((__m256i *)p, w);
        } else {
            __m128i bytes = _mm_packs_epi16(_mm256_castsi256_si128(w), _mm256_extracti128_si256(w, 1));
            if constexpr (D == 16)
                bytes = _mm_xor_si128(bytes, _mm_set1_epi8((char)0x80));
            _mm_storeu_si128((__m128i *)p, bytes);
        }
        return;
    }
#endif
    StoreI<D, LF>(p, a);
    StoreI<D, LF>(p + (size_t)LF * Bytes(D), b);
}

template <int S> inline vd LoadD(const uint8_t *p)
{
    if constexpr (S == 32) {
        V<L>::f32 x; memcpy(&x, p, L * 4);
        return __builtin_convertvector(x, vd);
    } else if constexpr (S == 33) {
        vd x; memcpy(&x, p, sizeof(x));
        return x;
    } else {
        return __builtin_convertvector(LoadI<S, L>(p), vd);
    }
}

inline V<L>::i32 LowWords(V<L>::i32x2 w)
{
#if ZVSC_VB == 16
    return __builtin_shufflevector(w, w, 0, 2);
#elif ZVSC_VB == 32
    return __builtin_shufflevector(w, w, 0, 2, 4, 6);
#else
    return __builtin_shufflevector(w, w, 0, 2, 4, 6, 8, 10, 12, 14);
#endif
}

template <int D> inline void StoreD(uint8_t *p, vd v)
{
    if constexpr (D == 32) {
        V<L>::f32 x = __builtin_convertvector(v, V<L>::f32);
        memcpy(p, &x, L * 4);
    } else if constexpr (D == 33) {
        memcpy(p, &v, sizeof(v));
    } else {
        const vd lo = vd{} - Denorm(D), hi = vd{} + (Denorm(D) - 1.0);
        v = ClampPd(v, lo, hi);
        v += kRoundMagic;
        StoreI<D, L>(p, LowWords((V<L>::i32x2)v));
    }
}

// Samples before the destination reaches a whole vector boundary, when it
// can reach one (a sample width that divides the vector, a buffer aligned
// to the sample).
template <int D> inline int AlignHead(const uint8_t *d)
{
    constexpr int db = D;
    if constexpr ((db & (db - 1)) != 0) {
        return 0;
    } else {
        const uintptr_t a = (uintptr_t)d;
        if (a % db)
            return 0;
        return (int)((0 - a) & (ZVSC_VB - 1)) / db;
    }
}

template <int D, int S> inline bool Apart(const uint8_t *d, const uint8_t *s, int count)
{
    return d + (size_t)count * Bytes(D) <= s || s + (size_t)count * Bytes(S) <= d;
}

// Whole blocks of K samples. Separate buffers: a first block where the
// destination starts, then blocks on vector boundaries of the destination
// (stores never split a cache line), and a last block that ends with the
// run; the overlaps are converted twice to the same bytes. A shared buffer:
// blocks in the safe order for in-place use, the rest through the scalar
// loop.
template <int D, int S, int K, bool Unity, class Step>
inline void RunBlocks(uint8_t *d, const uint8_t *s, int count, double scale, Step step)
{
    if (count >= K && Apart<D, S>(d, s, count)) {
        int head = Bytes(D) >= Bytes(S) ? AlignHead<Bytes(D)>(d) : AlignHead<Bytes(S)>(s);
        if (count - head < K)
            head = 0;
        for (int i = 0; i < head; i += K)
            step(i);
        int i = head;
        for (; i <= count - K; i += K)
            step(i);
        if (i < count)
            step(count - K);
        return;
    }
    const int full = count / K * K;
    if (Bytes(D) > Bytes(S)) {
        ScalarRun<D, S, Unity>(d, s, full, count, scale);
        for (int i = full - K; i >= 0; i -= K)
            step(i);
    } else {
        for (int i = 0; i < full; i += K)
            step(i);
        ScalarRun<D, S, Unity>(d, s, full, count, scale);
    }
}

// Two vectors per loop pass, still in the safe order.
template <int D, int S, int K, bool Unity, class Step>
inline void RunBlocks2(uint8_t *d, const uint8_t *s, int count, double scale, Step step)
{
    RunBlocks<D, S, 2 * K, Unity>(d, s, count, scale, [&](int i) ZVSC_INLINE {
        if (Bytes(D) > Bytes(S)) {
            step(i + K);
            step(i);
        } else {
            step(i);
            step(i + K);
        }
    });
}

template <int D, int S, bool Unity>
inline void RunDouble(uint8_t *d, const uint8_t *s, int count, double scale)
{
    const vd sc = vd{} + scale;
    RunBlocks<D, S, 2 * L, Unity>(d, s, count, scale, [&](int i) ZVSC_INLINE {
        vd a = LoadD<S>(s + (size_t)i * Bytes(S));
        vd b = LoadD<S>(s + (size_t)(i + L) * Bytes(S));
        // Between the float types at unity the factor is 1: the conversions
        // alone quiet a signalling NaN as the product would.
        if constexpr (!(Unity && IsFloat(D) && IsFloat(S))) {
            a *= sc;
            b *= sc;
        }
        StoreD<D>(d + (size_t)i * Bytes(D), a);
        StoreD<D>(d + (size_t)(i + L) * Bytes(D), b);
    });
}

// Float to an integer at unity: x * 2^(m-1) is exact in float, and the
// processor's rounding is the same nearest-even. For 32 bits the clamp is
// the conversion's own out-of-range word 0x80000000: right for the bottom,
// and flipped to 2^31 - 1 for lanes at 2^31 or above. A NaN passes the clamp and converts to 0x80000000, whose low
// 24 bits are the rule's zero; a destination that keeps more bits, or a
// store that saturates, sends a block holding a NaN through the scalar rule
// for the NaN's exact bits.
template <int D> inline V<LF>::i32 RoundToInt(vf x)
{
    typedef V<LF>::i32 I;
    const vf lo = vf{} - (float)Denorm(D), hi = vf{} + (float)(Denorm(D) - 1.0);
    if constexpr (Bits(D) == 32) {
#if ZVSC_VB == 64
        const __m512i r = (__m512i)RoundPs(x);
        return (I)_mm512_mask_sub_epi32(r, _mm512_cmp_ps_mask((__m512)x, (__m512)-lo, _CMP_GE_OQ), r,
                                        _mm512_set1_epi32(1));
#else
        return RoundPs(x) ^ (I)(x >= -lo);
#endif
    } else {
#if ZVSC_VB == 32
        // These stores saturate, and NaN has gone the scalar way: only the
        // top needs holding, to 2^(m-1), which the store brings down by one.
        // Below -2^31 the conversion's 0x80000000 saturates to the bottom.
        if constexpr (D == 16 || D == 49 || D == 17)
            return RoundPs((vf)_mm256_min_ps((__m256)x, (__m256)(vf{} + (float)Denorm(D))));
#endif
        return RoundPs(ClampPs(x, lo, hi));
    }
}

template <int D> constexpr bool NaNNeedsScalar()
{
    return Bits(D) == 32 || D == 48 || (ZVSC_VB == 32 && (D == 16 || D == 49 || D == 17));
}

template <int D>
inline void RunFloatToInt(uint8_t *d, const uint8_t *s, int count)
{
    const vf mul = vf{} + (float)Denorm(D);
#if ZVSC_VB == 64
    // 32 bits: four vectors a step, one NaN test for all.
    if constexpr (Bits(D) == 32) {
        const __m512 m = (__m512)mul;
        RunBlocks<D, 32, 4 * LF, true>(d, s, count, Denorm(D), [&](int i) ZVSC_INLINE {
            const float *p = (const float *)(s + (size_t)i * 4);
            const __m512 x0 = _mm512_mul_ps(_mm512_loadu_ps(p), m), x1 = _mm512_mul_ps(_mm512_loadu_ps(p + 16), m);
            const __m512 x2 = _mm512_mul_ps(_mm512_loadu_ps(p + 32), m), x3 = _mm512_mul_ps(_mm512_loadu_ps(p + 48), m);
            if (!_kortestz_mask16_u8(_mm512_cmp_ps_mask(x0, x1, _CMP_UNORD_Q), _mm512_cmp_ps_mask(x2, x3, _CMP_UNORD_Q))) {
                ScalarRun<D, 32, true>(d, s, i, i + 4 * LF, Denorm(D));
                return;
            }
            uint8_t *q = d + (size_t)i * Bytes(D);
            StoreI<D, LF>(q, RoundToInt<D>((vf)x0));
            StoreI<D, LF>(q + 64, RoundToInt<D>((vf)x1));
            StoreI<D, LF>(q + 128, RoundToInt<D>((vf)x2));
            StoreI<D, LF>(q + 192, RoundToInt<D>((vf)x3));
        });
        return;
    }
#endif
    RunBlocks<D, 32, 2 * LF, true>(d, s, count, Denorm(D), [&](int i) ZVSC_INLINE {
        vf x, y;
        memcpy(&x, s + (size_t)i * 4, sizeof(x));
        memcpy(&y, s + (size_t)(i + LF) * 4, sizeof(y));
        x *= mul;
        y *= mul;
#if ZVSC_VB == 64
        // 16 bits: one symmetric clamp to +-2^15 (the pack saturates the top
        // to 2^15 - 1), and NaN through the scalar rule.
        if constexpr (D == 17 || D == 64) {
            if (AnyNaNPs(x, y)) {
                ScalarRun<D, 32, true>(d, s, i, i + 2 * LF, Denorm(D));
                return;
            }
            const __m512 c = _mm512_set1_ps(32768.0f);
            StoreIPair<D>(d + (size_t)i * Bytes(D), RoundPs((vf)_mm512_range_ps((__m512)x, c, 2)),
                          RoundPs((vf)_mm512_range_ps((__m512)y, c, 2)));
            return;
        }
#endif
        if (NaNNeedsScalar<D>() && AnyNaNPs(x, y)) {
            ScalarRun<D, 32, true>(d, s, i, i + 2 * LF, Denorm(D));
            return;
        }
        StoreIPair<D>(d + (size_t)i * Bytes(D), RoundToInt<D>(x), RoundToInt<D>(y));
    });
}

// Integer to integer at unity in integer lanes: shifts up, or a shift down
// that rounds to nearest-even by adding half less one plus the kept low bit.
// A 32-bit source is held below the point where that sum would wrap (the
// values above it all clamp to the top anyway); narrower sources cannot
// wrap and clamp the one value that rounds up past the top. Not for the
// unpacked type, whose words may exceed 24 bits.
template <int D, int S> inline V<LF>::i32 IntLanes(V<LF>::i32 x)
{
    typedef V<LF>::i32 I;
    constexpr int n = Bits(S), m = Bits(D);
    if constexpr (m >= n) {
        return x << (m - n);
    } else {
        constexpr int k = n - m;
        constexpr int32_t half = 1 << (k - 1), hi = (int32_t)((1u << (m - 1)) - 1);
#if ZVSC_VB == 64
        // 32 to 16 bits for a saturating store: the kept part, plus one where
        // the dropped bits with the kept low bit beside them exceed one half
        // (a tie goes up only to an even result). No clamp: the one value
        // past the top is saturated by the store.
        if constexpr (n == 32 && (D == 17 || D == 64)) {
            const __m512i v = (__m512i)x, q = _mm512_srai_epi32(v, k);
            const __m512i f = _mm512_ternarylogic_epi32(_mm512_slli_epi32(v, 32 - k), q, _mm512_set1_epi32(1), 0xF8);
            return (I)_mm512_mask_sub_epi32(q, _mm512_cmpgt_epu32_mask(f, _mm512_set1_epi32(INT32_MIN)), q,
                                            _mm512_set1_epi32(-1));
        }
#endif
        if constexpr (n == 32) {
            constexpr int32_t top = INT32_MAX - half;
            x = x > top ? top : x;
        }
        I r = (x + (half - 1) + ((x >> k) & 1)) >> k;
        if constexpr (n == 32)
            return r;
        else
            return r > hi ? hi : r;
    }
}

template <int D, int S>
inline void RunIntToInt(uint8_t *d, const uint8_t *s, int count)
{
#if ZVSC_VB == 64
    // 32 to 16 bits in 16-bit lanes: the kept halves and the dropped halves
    // of two vectors are packed side by side, and the kept half goes up by
    // one (saturating) where the dropped half, with the kept low bit beside
    // it, exceeds one half.
    if constexpr (Bits(S) == 32 && (D == 17 || D == 64)) {
        RunBlocks<D, S, 2 * LF, true>(d, s, count, 1.0, [&](int i) ZVSC_INLINE {
            const __m512i a = (__m512i)LoadI<S, LF>(s + (size_t)i * Bytes(S));
            const __m512i b = (__m512i)LoadI<S, LF>(s + (size_t)(i + LF) * Bytes(S));
            const __m512i low = _mm512_set1_epi32(0xFFFF), one = _mm512_set1_epi16(1);
            const __m512i kept = _mm512_packs_epi32(_mm512_srai_epi32(a, 16), _mm512_srai_epi32(b, 16));
            const __m512i dropped = _mm512_packus_epi32(_mm512_and_si512(a, low), _mm512_and_si512(b, low));
            const __m512i f = _mm512_ternarylogic_epi32(dropped, kept, one, 0xF8);
            __m512i w = _mm512_mask_adds_epi16(kept, _mm512_cmpgt_epu16_mask(f, _mm512_set1_epi16((short)0x8000)),
                                               kept, one);
            w = _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), w);
            if constexpr (D == 64)
                w = _mm512_or_si512(_mm512_slli_epi16(w, 8), _mm512_srli_epi16(w, 8));
            _mm512_storeu_si512(d + (size_t)i * Bytes(D), w);
        });
        return;
    }
#endif
    RunBlocks<D, S, 2 * LF, true>(d, s, count, 1.0, [&](int i) ZVSC_INLINE {
        V<LF>::i32 a = LoadI<S, LF>(s + (size_t)i * Bytes(S));
        V<LF>::i32 b = LoadI<S, LF>(s + (size_t)(i + LF) * Bytes(S));
        StoreIPair<D>(d + (size_t)i * Bytes(D), IntLanes<D, S>(a), IntLanes<D, S>(b));
    });
}

// An integer to float: at unity the conversion rounds once and the power of
// two is exact; with a gain the integer (up to 24 bits) and the scale are
// exact in float, and one float product rounds as the double product
// narrowed does.
template <int S>
inline void RunIntToFloat(uint8_t *d, const uint8_t *s, int count, double scale, bool unity)
{
    const vf mul = vf{} + (float)scale;
    auto step = [&](int i) ZVSC_INLINE {
        vf x = __builtin_convertvector((LoadI<S, LF>(s + (size_t)i * Bytes(S))), vf) * mul;
        memcpy(d + (size_t)i * 4, &x, sizeof(x));
    };
    if (unity)
        RunBlocks2<32, S, LF, true>(d, s, count, scale, step);
    else
        RunBlocks2<32, S, LF, false>(d, s, count, scale, step);
}

inline bool FloatHoldsScale(double scale)
{
    float f = (float)scale;
    double a = scale < 0 ? -scale : scale;
    return (double)f == scale && a >= 1.1754943508222875e-38 && a <= 3.4028234663852886e38;
}

template <int D, int S> void CopyVec(void *dest, const void *src, int count, float gain);

// Bytes from a staging block to memory with streaming stores, on vector
// boundaries of the destination; the staging block has the destination's
// alignment, so its loads are whole vectors too.
inline void StreamOut(uint8_t *d, const uint8_t *stage, size_t bytes)
{
    size_t head = (0 - (uintptr_t)d) & (ZVSC_VB - 1);
    if (head > bytes)
        head = bytes;
    memcpy(d, stage, head);
    size_t i = head;
    for (; i + ZVSC_VB <= bytes; i += ZVSC_VB)
#if ZVSC_VB == 64
        _mm512_stream_si512((__m512i *)(d + i), _mm512_load_si512((const __m512i *)(stage + i)));
#elif ZVSC_VB == 32
        _mm256_stream_si256((__m256i *)(d + i), _mm256_load_si256((const __m256i *)(stage + i)));
#else
        _mm_stream_si128((__m128i *)(d + i), _mm_load_si128((const __m128i *)(stage + i)));
#endif
    memcpy(d + i, stage + i, bytes - i);
}

template <int Hint> inline void Fetch(const uint8_t *p, int bytes)
{
    for (int b = 0; b < bytes; b += 64)
        _mm_prefetch((const char *)p + b, (_mm_hint)Hint);
}

// A long run between separate buffers, in pieces for the worker threads.
// A large output is converted in tiles into a staging block that stays in
// the first-level cache and streamed out from there.
template <int D, int S> struct LongRun {
    uint8_t *d;
    const uint8_t *s;
    float gain;
    bool stream;

    static void Piece(void *ctx, int begin, int end)
    {
        const LongRun &r = *(const LongRun *)ctx;
        if (!r.stream) {
            CopyVec<D, S>(r.d + (size_t)begin * Bytes(D), r.s + (size_t)begin * Bytes(S), end - begin, r.gain);
            return;
        }
        // The source is fetched ahead of use, some 2 KiB into the first-level
        // cache and some 8 KiB into the second: the processor's own prefetch
        // keeps fewer reads in flight than the memory can serve.
        constexpr int kTile = 2048, kSub = 256, kAhead = 2048 / Bytes(S) > kSub ? 2048 / Bytes(S) : kSub;
        uint8_t raw[kTile * Bytes(D) + ZVSC_VB];
        for (int i = begin, n; i < end; i += n) {
            n = end - i < kTile ? end - i : kTile;
            uint8_t *out = r.d + (size_t)i * Bytes(D);
            uint8_t *stage = raw + (((uintptr_t)out - (uintptr_t)raw) & (ZVSC_VB - 1));
            for (int j = 0, m; j < n; j += m) {
                m = n - j < kSub ? n - j : kSub;
                if (i + j + kAhead + kSub <= end)
                    Fetch<_MM_HINT_T0>(r.s + (size_t)(i + j + kAhead) * Bytes(S), kSub * Bytes(S));
                if (i + j + 4 * kAhead + kSub <= end)
                    Fetch<_MM_HINT_T1>(r.s + (size_t)(i + j + 4 * kAhead) * Bytes(S), kSub * Bytes(S));
                CopyVec<D, S>(stage + (size_t)j * Bytes(D), r.s + (size_t)(i + j) * Bytes(S), m, r.gain);
            }
            StreamOut(out, stage, (size_t)n * Bytes(D));
        }
    }
};

template <int D, int S>
void CopyVec(void *dest, const void *src, int count, float gain)
{
    if (count <= 0 || !dest || !src)
        return;
    uint8_t *d = (uint8_t *)dest;
    const uint8_t *s = (const uint8_t *)src;
    if (gain != gain) {
        // Which of two NaNs a product keeps depends on operand order; the
        // scalar loop is the one definition of that case.
        BaseTable()[TypeIndex(D)][TypeIndex(S)](dest, src, count, gain);
        return;
    }
    const bool unity = gain == 1.0f;
    if (unity && D == S) {
        if (d != s)
            memmove(d, s, (size_t)count * Bytes(D));
        return;
    }
    if (count >= kSharedRunFrom && Apart<D, S>(d, s, count)) {
        LongRun<D, S> run = {d, s, gain, (size_t)count * Bytes(D) >= kStreamFromBytes};
        RunPieces(count, kSharedPiece, &LongRun<D, S>::Piece, &run);
        return;
    }
    const double scale = Scale<D, S>(gain, unity);
    if constexpr (S == 32 && !IsFloat(D)) {
        if (unity) {
            RunFloatToInt<D>(d, s, count);
            return;
        }
    }
    if constexpr (!IsFloat(D) && !IsFloat(S) && S != 48) {
        if (unity) {
            RunIntToInt<D, S>(d, s, count);
            return;
        }
    }
    if constexpr (D == 32 && !IsFloat(S)) {
        // At unity any integer goes: converting it to float rounds it once,
        // as narrowing the exact double does, and the power of two is exact.
        // With a gain the integer itself must be exact in float.
        if (unity || (Bits(S) <= 24 && S != 48 && FloatHoldsScale(scale))) {
            RunIntToFloat<S>(d, s, count, scale, unity);
            return;
        }
    }
    if (unity)
        RunDouble<D, S, true>(d, s, count, scale);
    else
        RunDouble<D, S, false>(d, s, count, scale);
}

template <int D, int S> struct VecFn {
    static void fn(void *d, const void *s, int c, float g) { CopyVec<D, S>(d, s, c, g); }
};
