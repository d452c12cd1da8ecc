// Copy functions built for AVX2; chosen only where the processor has it.
#if defined(__i386__)
#pragma GCC target("avx2,fpmath=sse")
#else
#pragma GCC target("avx2")
#endif
#include <immintrin.h>
#include "audio/samplecopy_impl.h"

namespace zvsc {
namespace {
namespace avx2 {

#define ZVSC_VB 32
typedef float fvec __attribute__((vector_size(32)));
typedef int32_t ivec __attribute__((vector_size(32)));
inline ivec RoundPs(fvec x) { return (ivec)_mm256_cvtps_epi32((__m256)x); }
inline bool AnyNaNPs(fvec x, fvec y)
{
    return !_mm256_testz_ps(_mm256_cmp_ps((__m256)x, (__m256)y, _CMP_UNORD_Q), _mm256_castsi256_ps(_mm256_set1_epi32(-1)));
}
typedef double dvec __attribute__((vector_size(32)));
// max(lo, v) and min(hi, v) give v back when it is NaN.
inline dvec ClampPd(dvec v, dvec lo, dvec hi)
{
    return (dvec)_mm256_min_pd((__m256d)hi, _mm256_max_pd((__m256d)lo, (__m256d)v));
}
inline fvec ClampPs(fvec v, fvec lo, fvec hi)
{
    return (fvec)_mm256_min_ps((__m256)hi, _mm256_max_ps((__m256)lo, (__m256)v));
}
#include "audio/samplecopy_vec.h"
#undef ZVSC_VB

} // namespace avx2
} // namespace

const CopyTable &Avx2Table()
{
    static CopyTable table;
    static bool built = (BuildTable<avx2::VecFn>(table), true);
    (void)built;
    return table;
}

} // namespace zvsc
