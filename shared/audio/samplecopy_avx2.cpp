// Copy functions built for AVX2; chosen only where the processor has it.
#pragma GCC target("avx2")
#include <immintrin.h>
#include "audio/samplecopy_impl.h"

namespace zvsc {
namespace {
namespace avx2 {

#define ZVSC_VB 32
typedef float fvec __attribute__((vector_size(32)));
typedef int32_t ivec __attribute__((vector_size(32)));
inline ivec RoundPs(fvec x) { return (ivec)_mm256_cvtps_epi32((__m256)x); }
inline bool AnyNaNPs(fvec x)
{
    return _mm256_movemask_ps(_mm256_cmp_ps((__m256)x, (__m256)x, _CMP_UNORD_Q)) != 0;
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
