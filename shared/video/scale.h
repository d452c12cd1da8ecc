// Scaling with sub-pixel positions, and the moves between frames and fields.
// Positions in the SubPixel forms are in 1/16384 pixel (a whole position
// shifted left by 14); 16384 is one pixel and a scale of 16384 is 1:1.
// Rectangles are top-down. Scalers take types 20, 27, 28, 29 (8-bit
// channels) and 32 (float); source and destination of one type.
#pragma once
#include "video/dib.h"

#define ZVSUBPIXEL_ONE 16384

typedef struct tagZVSUBPIXELPARAM {
    ZVPIXELTYPE type;
    int bytesPerPixel;
    RECT srcRect, dstRect;          // clipped, fixed point
    LONG scaleX, scaleY;            // source units per destination pixel, 16384 = 1:1
    const BYTE *srcTop;             // top row of the source frame
    BYTE *dstTop;
    LONG_PTR srcStep, dstStep;      // bytes from a top-down row to the next
    int srcWidth, srcHeight;        // the source frame in pixels
    int dstX0, dstY0, dstX1, dstY1; // destination pixels written
    int threads;
} ZVSUBPIXELPARAM;

// 1 if there is something to do, else 0 (also for a source or destination
// narrower than one pixel or a rectangle below 1024 units).
ZVAPI int ZvPrepareSubpixelParam(ZVSUBPIXELPARAM *p, const BITMAPINFOHEADER *src, const void *srcPixels,
                                 int srcStride, const RECT *srcRect, const BITMAPINFOHEADER *dst, void *dstPixels,
                                 int dstStride, const RECT *dstRect);

// 0, or the failure: E_POINTER, 0x80004001 for a type the scalers lack or
// two different types.
ZVAPI HRESULT ZvDibScale_Bilinear(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                                  const RECT *srcRect, const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride,
                                  const RECT *dstRect, DWORD flags);
ZVAPI HRESULT ZvDibScale_BiCubic(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                                 const RECT *srcRect, const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride,
                                 const RECT *dstRect, DWORD flags);
ZVAPI HRESULT ZvDibScale_BilinearSubPixel(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                                          const RECT *srcRect, const BITMAPINFOHEADER *dst, void *dstPixels,
                                          int dstStride, const RECT *dstRect, DWORD flags);
ZVAPI HRESULT ZvDibScale_BiCubicSubPixel(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                                         const RECT *srcRect, const BITMAPINFOHEADER *dst, void *dstPixels,
                                         int dstStride, const RECT *dstRect, DWORD flags);

// Every second row of B into A: field 0 or 1 names the field of the frame as
// seen top-down after the bottom-up correction. 0x80004001 when depth,
// width or height differ.
ZVAPI HRESULT ZvDibMergeFields(const BITMAPINFOHEADER *a, void *aPixels, int aStride, const BITMAPINFOHEADER *b,
                               const void *bPixels, int bStride, int field, DWORD reserved);
// The same for frames stored rotated by 90 degrees: every second column.
ZVAPI HRESULT ZvDibMergeFieldsRotated(const BITMAPINFOHEADER *a, void *aPixels, int aStride,
                                      const BITMAPINFOHEADER *b, const void *bPixels, int bStride, int field,
                                      DWORD reserved);

#define ZVINTERLACE_FIXEDPOINT 0x1000000u   // rectangles in 1/16384 pixel
#define ZVINTERLACE_FIELD_LOWER 0x1u        // with ONEFIELD: take the second field
#define ZVINTERLACE_ONEFIELD    0x2u        // source is one field: line-double it
#define ZVINTERLACE_TOFIELD     0x4u        // destination gets one field of the source
// Copies src into dst treating the two fields of a frame apart: each field
// scales on its own, so that rows of one field never mix with the other's.
ZVAPI HRESULT ZvDibCopyInterlace(const BITMAPINFOHEADER *src, const void *srcPixels, const RECT *srcRect,
                                 const BITMAPINFOHEADER *dst, void *dstPixels, const RECT *dstRect, DWORD flags);
