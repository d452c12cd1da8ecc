// Internal: the scalers' steps that their plain and OpenCL forms share, and
// the AVX2 passes for four 8-bit channels (each gives the plain form's
// integers exactly).
#pragma once
#include "video/scale.h"
#include <stdint.h>

namespace zvscale {

// acc[i] = sum of w[k] * rows[k][i] over taps rows, for count samples.
void VerticalAVX2(const BYTE *const rows[4], const int w[4], int taps, int count, int32_t *acc);
// Pixel x of out: (sum of w[x * taps + k] * acc[col[x * taps + k] + c] +
// 2^(shift - 1)) >> shift for each channel c, clamped to a byte.
void HorizontalAVX2(const int32_t *acc, const int *col, const int *w, int taps, int n, int shift, BYTE *out);

// Channels of a type the scalers take (float: 4), 0 for others.
int Channels(ZVPIXELTYPE t);

// Catmull-Rom weights for 256 phases: 12 fraction bits summing to 4096, and
// as floats.
struct CubicTable {
    int16_t w[256][4];
    float f[256][4];
    CubicTable();
};
const CubicTable &Cubic();

// The filtered rows of one scale, p prepared and not 1:1: the plain form's
// workers or a device's kernel.
typedef HRESULT (*ScaleRows)(const ZVSUBPIXELPARAM &p, bool cubic, void *ctx);
// A scale as ZvDibScale_* make it (checks, rectangles, the 1:1 block copy),
// its filtered rows through rows.
HRESULT Scale(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride, const RECT *srcRect,
              const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride, const RECT *dstRect, bool fixed,
              bool cubic, ScaleRows rows, void *ctx);

// A scaler with the arguments of ZvDibScale_*.
typedef HRESULT (*ScaleFn)(const BITMAPINFOHEADER *, const void *, int, const RECT *, const BITMAPINFOHEADER *,
                           void *, int, const RECT *, DWORD);
// ZvDibCopyInterlace with its fields scaled by subPixel (a bilinear
// sub-pixel scaler).
HRESULT CopyInterlace(const BITMAPINFOHEADER *src, const void *srcPixels, const RECT *srcRect,
                      const BITMAPINFOHEADER *dst, void *dstPixels, const RECT *dstRect, DWORD flags,
                      ScaleFn subPixel);

// ZvDibCopy with the scalers given (bilinear, bicubic, their sub-pixel
// forms); convert false leaves conversions between types and YUV layouts
// out (ZVERR_UNSUPPORTED_MEDIA).
HRESULT Copy(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride, const RECT *srcRect,
             const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride, const RECT *dstRect, DWORD flags,
             const ScaleFn scalers[4], bool convert);

} // namespace zvscale
