// Internal: the AVX2 passes of the scalers for four 8-bit channels. Each
// gives the plain form's integers exactly.
#pragma once
#include <windows.h>
#include <stdint.h>

namespace zvscale {

// acc[i] = sum of w[k] * rows[k][i] over taps rows, for count samples.
void VerticalAVX2(const BYTE *const rows[4], const int w[4], int taps, int count, int32_t *acc);
// Pixel x of out: (sum of w[x * taps + k] * acc[col[x * taps + k] + c] +
// 2^(shift - 1)) >> shift for each channel c, clamped to a byte.
void HorizontalAVX2(const int32_t *acc, const int *col, const int *w, int taps, int n, int shift, BYTE *out);

} // namespace zvscale
