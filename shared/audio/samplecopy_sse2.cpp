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
inline bool AnyNaNPs(fvec x) { return _mm_movemask_ps(_mm_cmpunord_ps((__m128)x, (__m128)x)) != 0; }
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
