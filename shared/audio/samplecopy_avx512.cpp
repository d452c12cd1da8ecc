// Copy functions built for 512-bit vectors (foundation, byte/word, vector
// length and doubleword extensions); chosen only where the processor has
// them. The narrowing stores truncate, so a float NaN, whose converted word
// has zero low bits, needs no separate pass for destinations of 24 bits or
// fewer.
#if defined(__i386__)
#pragma GCC target("avx512f,avx512bw,avx512vl,avx512dq,fpmath=sse")
#else
#pragma GCC target("avx512f,avx512bw,avx512vl,avx512dq")
#endif
// The compiler's own 512-bit intrinsics start from a deliberately undefined
// vector, which this compiler version reports as maybe uninitialized.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <immintrin.h>
#include "audio/samplecopy_impl.h"

namespace zvsc {
namespace {
namespace avx512 {

#define ZVSC_VB 64
typedef float fvec __attribute__((vector_size(64)));
typedef int32_t ivec __attribute__((vector_size(64)));
inline ivec RoundPs(fvec x) { return (ivec)_mm512_cvtps_epi32((__m512)x); }
inline bool AnyNaNPs(fvec x, fvec y) { return _mm512_cmp_ps_mask((__m512)x, (__m512)y, _CMP_UNORD_Q) != 0; }
typedef double dvec __attribute__((vector_size(64)));
// max(lo, v) and min(hi, v) give v back when it is NaN.
inline dvec ClampPd(dvec v, dvec lo, dvec hi)
{
    return (dvec)_mm512_min_pd((__m512d)hi, _mm512_max_pd((__m512d)lo, (__m512d)v));
}
inline fvec ClampPs(fvec v, fvec lo, fvec hi)
{
    return (fvec)_mm512_min_ps((__m512)hi, _mm512_max_ps((__m512)lo, (__m512)v));
}
#include "audio/samplecopy_vec.h"
#undef ZVSC_VB

} // namespace avx512
} // namespace

const CopyTable &Avx512Table()
{
    static CopyTable table;
    static bool built = (BuildTable<avx512::VecFn>(table), true);
    (void)built;
    return table;
}

} // namespace zvsc
