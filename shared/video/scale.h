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

// OpenCL forms of the interlace family (opencl.dll loaded at run time; see
// YUV_OpenCL_Initialize in video/yuv.h for the codes), with the arguments of
// ZvDibCopyInterlace and results equal to it;
// HRESULT_FROM_WIN32(ERROR_INVALID_STATE) before Initialize.
ZVAPI HRESULT DibInterlace_OpenCL_Initialize(const void *context, ZVOPENCLLOG log);
ZVAPI HRESULT DibInterlace_OpenCL_Shutdown();
ZVAPI HRESULT ZvDibCopyInterlaceOCL(const BITMAPINFOHEADER *src, const void *srcPixels, const RECT *srcRect,
                                    const BITMAPINFOHEADER *dst, void *dstPixels, const RECT *dstRect, DWORD flags);
// Only rows resample: a copy whose width changes or whose columns start at a
// fraction is E_INVALIDARG (nothing written).
ZVAPI HRESULT ZvDibCopyInterlaceVerticalOCL(const BITMAPINFOHEADER *src, const void *srcPixels, const RECT *srcRect,
                                            const BITMAPINFOHEADER *dst, void *dstPixels, const RECT *dstRect,
                                            DWORD flags);
// One field of src (ZVINTERLACE_FIELD_LOWER: the second) into all of dst:
// ZvDibCopyInterlace with ZVINTERLACE_TOFIELD.
ZVAPI HRESULT ZvDibCopyInterlaceCopyFieldOCL(const BITMAPINFOHEADER *src, const void *srcPixels,
                                             const RECT *srcRect, const BITMAPINFOHEADER *dst, void *dstPixels,
                                             const RECT *dstRect, DWORD flags);
// A frame resampled from one field (all of src) into each field of dst:
// ZvDibCopyInterlace with ZVINTERLACE_ONEFIELD.
ZVAPI HRESULT ZvDibResampledInterlacedFrameOCL(const BITMAPINFOHEADER *src, const void *srcPixels,
                                               const RECT *srcRect, const BITMAPINFOHEADER *dst, void *dstPixels,
                                               const RECT *dstRect, DWORD flags);
