// Internal: rows of YUV layouts to and from per-pixel sample arrays, the
// integer coefficient sets, and the row kernels the conversions share.
#pragma once
#include "video/yuv.h"

namespace zvyuv {

enum Kind { PACKED8, PACKED16, V210, PLANAR, SEMIPLANAR };

// One frame's geometry: plane starts, pitches, subsampling, sample format.
struct Frame {
    ZVPIXELTYPE type;
    Kind kind;
    int width, height;         // height positive, rows top-down
    BYTE *plane[4];
    int pitch[4];
    int sx, sy;                // chroma subsampling shifts
    int cw, ch;                // chroma samples across and down
    int bytes;                 // 1 or 2 bytes a sample
    int bits;                  // significant bits
    int down;                  // right shift from a stored word to the sample
    int lumaFirst;             // packed: Y before U (YUYV, Y210)
    int vFirst;                // planar: V plane stored before U
};

// Fills f for a YUV header; planes null mean behind the header, pitches 0
// the computed ones. False for a header that is not YUV or too large.
bool Describe(Frame *f, const BITMAPINFOHEADER *h, const void *const planes[3], const int pitches[3],
              const void *image);

// Samples of pixels x0 .. x0 + n - 1 of a row, chroma repeated over its pair
// or block; raw values at the layout's significant bits.
void FetchRow(const Frame &f, int row, int x0, int n, int32_t *y, int32_t *u, int32_t *v);
// Luma of one row, and chroma of one chroma row (cw samples) when u is not
// null; values at the layout's bits, already clamped.
void StoreRow(const Frame &f, int row, const int32_t *y, const int32_t *u, const int32_t *v);

// Coefficients of YUV to 8-bit RGB, scaled by 2^shift: R = (cy (Y - yoff)
// + crv V' + round) >> shift and so on, with V' = V - mid.
//
// 8-bit sources use instead the arithmetic of 16-bit vector lanes: a
// sample's term is (s k) >> 8 with k its gain times 2^14 (unsigned, below
// 2^16), so terms count in 2^-6, and each channel adds a bias that takes off
// the luma offset and the terms of neutral chroma and rounds:
// R = (Yt + Vr + br) >> 6, G = (Yt - Ug - Vg + bg) >> 6, B = (Yt + Ub + bb)
// >> 6, clamped. Yt, Vr + br, Ub + bb and bg - Ug - Vg all fit 16 signed
// bits, so a saturating final sum clamps the same way.
struct Decode {
    int32_t yoff, mid;
    int32_t cy, crv, cgu, cgv, cbu;
    int shift;
    float fy, frv, fgu, fgv, fbu;   // the float destination's gains
    bool eight;
    uint16_t ky8, kr8, kgu8, kgv8, kb8;   // kgu8, kgv8: gains of G's negative terms
    int16_t br8, bg8, bb8;
};
void MakeDecode(Decode *d, int standard, bool limited, int bits);

// YUV samples to 8-bit pixels, bytes B, G, R, A (rgbaOrder: R, G, B, A).
typedef void (*DecodeRowFn)(const Decode &d, const int32_t *y, const int32_t *u, const int32_t *v, int n,
                            BYTE *dst, bool rgbaOrder);
void DecodeRowC(const Decode &d, const int32_t *y, const int32_t *u, const int32_t *v, int n, BYTE *dst,
                bool rgbaOrder);
void DecodeRowSSE2(const Decode &d, const int32_t *y, const int32_t *u, const int32_t *v, int n, BYTE *dst,
                   bool rgbaOrder);
// Pixels decoded straight from the planes of an 8-bit 4:2:0 or 4:2:2 layout
// (I420, YV12, YV16, NV12, UYVY, YUYV) from an even x0, in steps of eight
// while the row's chroma lasts; returns how many (the rest is the caller's).
int DecodePairsSSE2(const Decode &d, const Frame &f, int row, int x0, int n, BYTE *dst, bool rgbaOrder);
bool HasPairsBody(const Frame &f);
// The same sixteen pixels a step (AVX2); the rest is left as above. With
// dst2 (planar and two-plane 4:2:0 only, row even) the row below is decoded
// into it too, with the chroma terms of the first.
int DecodePairsAVX2(const Decode &d, const Frame &f, int row, int x0, int n, BYTE *dst, BYTE *dst2,
                    bool rgbaOrder);
// Packed 4:2:2 (UYVY, YUYV): rows from row on in one call, dst a row's step
// apart; returns the pixels done in each.
int DecodePackedAVX2(const Decode &d, const Frame &f, int row, int rows, int x0, int n, BYTE *dst,
                     LONG_PTR dstStep, bool rgbaOrder);
// The body for a support word: SSE2 (0x40) where 8-bit samples allow it.
DecodeRowFn PickDecodeRow(DWORD cpuWord, int bits);

// RGB to YUV, 8-bit RGB in, coefficients scaled by 2^14 and the output's
// extra bits: Y = yoff + (ky . RGB + 2^13) >> 14; chroma of the sum of 2^k
// pixels mid + (ku . sum + 2^(13 + k)) >> (14 + k), 64-bit sums.
//
// 8-bit destinations take luma at 8-bit weights that sum to round(256 g) (g
// the range's gain), so vector byte madds keep it exact: Y = (k8 . RGB + 128
// + 256 yoff) >> 8; and G's chroma weights are minus the sum of the others.
struct Encode {
    int32_t kyr, kyg, kyb, kur, kug, kub, kvr, kvg, kvb;
    int32_t yoff, mid, maxv;
    int32_t k8r, k8g, k8b;
};
void MakeEncode(Encode *e, int standard, bool limited, int bits);

// Luma of an 8-bit destination.
inline int32_t Luma8(const Encode &e, int r, int g, int b)
{
    return (e.k8r * r + e.k8g * g + e.k8b * b + 128 + (e.yoff << 8)) >> 8;
}

// Two rows of 8-bit BGRA (or RGBA) pixels to 4:2:0: luma into y0 and y1
// (y1 null: none for the second row), chroma of the 2x2 blocks into u and v, uvStep bytes
// apart (2: interleaved, v = u + 1). Eight pixels a step from the rows'
// start; returns how many were done. Gives the plain form's values.
int EncodeRows420SSE2(const Encode &e, const BYTE *row0, const BYTE *row1, int n, bool rgbaOrder, BYTE *y0,
                      BYTE *y1, BYTE *u, BYTE *v, int uvStep);

// The 4:2:0 planes from a row pair's first row on: luma rows yStep apart,
// chroma rows uRow and vRow apart, uvStep bytes between a row's samples (2:
// interleaved).
struct Planes420 {
    BYTE *y, *u, *v;
    LONG_PTR yStep, uRow, vRow;
    int uvStep;
};
// The same sixteen pixels a step (AVX2) for groups whole row pairs (two rows
// and chroma) in one call, from row0 on, srcStep bytes a row; returns the
// pixels done in each.
int EncodeRows420AVX2(const Encode &e, const BYTE *row0, LONG_PTR srcStep, int groups, int n, bool rgbaOrder,
                      const Planes420 &out);

// A YUV to RGB call's checked shape: source, coefficients, the part of the
// source taken (x0, y0, w, h) and the destination's top row and step.
struct DecodePlan {
    Frame src;
    Decode dec;
    BYTE *dst;
    LONG_PTR dstStep;
    int x0, y0, w, h;
    bool rgba, toFloat;
    double gamma;   // ratio, 1.0 for none
};
// S_OK, S_FALSE for nothing to do, or the failure of ZvYUV_YUVToRGB.
HRESULT PlanDecode(DecodePlan *p, const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride,
                   const BITMAPINFOHEADER *src, const void *const srcPlanes[3], const int srcPitches[3],
                   const RECT *rect, const ZVYUVSETTINGS *settings);
void GammaTable(double ratio, BYTE lut[256]);

// An RGB to YUV call's checked shape: destination, coefficients, the top
// source row and its step, bytes a pixel and the offsets of red and blue.
struct EncodePlan {
    Frame dst;
    Encode enc;
    const BYTE *src;
    LONG_PTR srcStep;
    int bpp, ir, ib;
};
HRESULT PlanEncode(EncodePlan *p, const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                   const BITMAPINFOHEADER *dst, void *const dstPlanes[3], const int dstPitches[3],
                   const ZVYUVSETTINGS *settings);

// Runs body(first, end) over [0, count) in static ranges across worker
// threads; threads 1, small counts and a machine whose other processes keep
// every processor busy run on the calling thread.
void ForRanges(int count, int threads, LONGLONG workPerItem, void (*body)(void *ctx, int first, int end),
               void *ctx);
// Threads for calls that ask for 0 (0: the runtime's choice).
void SetThreadOverride(int threads);

// The support word the conversions consult, and an override for checks
// (0xFFFFFFFF restores the detected word).
DWORD CpuWord();
// The AVX2 bodies: the word's AVX bit (0x800) and a processor that has AVX2.
bool UseAvx2(DWORD cpuWord);

} // namespace zvyuv
