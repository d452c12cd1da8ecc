// Copy functions built for SSE2.
#if defined(__i386__)
#pragma GCC target("sse2,fpmath=sse")
#endif
#include <emmintrin.h>
#include "audio/samplecopy_impl.h"

namespace zvsc {
namespace {
namespace sse2 {

#define ZVSC_VB 16
typedef float fvec __attribute__((vector_size(16)));
typedef int32_t ivec __attribute__((vector_size(16)));
inline ivec RoundPs(fvec x) { return (ivec)_mm_cvtps_epi32((__m128)x); }
inline bool AnyNaNPs(fvec x, fvec y) { return _mm_movemask_ps(_mm_cmpunord_ps((__m128)x, (__m128)y)) != 0; }
typedef double dvec __attribute__((vector_size(16)));
// max(lo, v) and min(hi, v) give v back when it is NaN.
inline dvec ClampPd(dvec v, dvec lo, dvec hi)
{
    return (dvec)_mm_min_pd((__m128d)hi, _mm_max_pd((__m128d)lo, (__m128d)v));
}
inline fvec ClampPs(fvec v, fvec lo, fvec hi)
{
    return (fvec)_mm_min_ps((__m128)hi, _mm_max_ps((__m128)lo, (__m128)v));
}
#include "audio/samplecopy_vec.h"
#undef ZVSC_VB

} // namespace sse2
} // namespace

const CopyTable &Sse2Table()
{
    static CopyTable table;
    static bool built = (BuildTable<sse2::VecFn>(table), true);
    (void)built;
    return table;
}

} // namespace zvsc
