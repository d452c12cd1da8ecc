// YUV frames: the layouts with their memory geometry, the conversions to and
// from RGB and between layouts, and the colour matrices with their ranges.
#pragma once
#include "video/dib.h"

// Plane offsets from the image start and pitches in bytes; planes in memory
// order (Y, then chroma as the layout stores it, then alpha).
typedef struct tagZVYUVPLANES {
    int count;
    int offset[4];
    int pitch[4];
} ZVYUVPLANES;

// Image bytes of a YUV header (0 for a header that is not YUV); planes when
// not null.
ZVAPI int ZvYUVImageBytesAndOffsets(const BITMAPINFOHEADER *header, ZVYUVPLANES *planes);

#define ZVYUV_BT601  515
#define ZVYUV_BT709  516
#define ZVYUV_BT2020 517
// Standard for a selector (515 to 517 or the older 1 to 3); anything else
// picks by frame size: BT.601 below 720 rows at a width of 704 to 720.
ZVAPI int ZvYUV_ResolveMatrix(int selector, int width, int height);

typedef struct tagZVYUVSETTINGS {
    int selector;      // colour matrix, see above
    int limited;       // range flag: studio-swing luma
    int mode;          // 0 to 3; 2 always takes the full-range path
    double srcGamma;   // 0 means 2.2222222222222223
    double dstGamma;
    int threads;       // 0 the runtime's choice, 1 on the calling thread
} ZVYUVSETTINGS;

// Gamma ratio applied, 1.0 when none: each gamma clamped to 0.5..4.0, a
// ratio within 0.999..1.001 counts as none.
ZVAPI double ZvYUV_GammaRatio(double srcGamma, double dstGamma);

// srcPlanes/dstPlanes: three plane pointers (null: the image follows the
// header; only the first: the others follow it by the layout's offsets) and their pitches (0: computed). rect: the part of the source to
// convert, top-down, into the top-left of the destination; null for all.
// Destinations: types 28, 29 (8-bit) and 32 (float). 0x8004E000 for a pair
// without a function.
ZVAPI HRESULT ZvYUV_YUVToRGB(const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride,
                             const BITMAPINFOHEADER *src, const void *const srcPlanes[3], const int srcPitches[3],
                             const RECT *rect, const ZVYUVSETTINGS *settings);
// Source types 27, 28, 29; destinations the 12 layouts YV24, YV16,
// YV12, NV12, I420, P410, P210, P216, P010, v210, YUYV, UYVY.
ZVAPI HRESULT ZvYUV_RGBToYUV(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                             const BITMAPINFOHEADER *dst, void *const dstPlanes[3], const int dstPitches[3],
                             const ZVYUVSETTINGS *settings);
// Same size; pixels null means behind the header, stride unused (the layout
// fixes it) but kept for the call's shape.
ZVAPI HRESULT ZvYUV_YUVToYUV(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                             const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride);

// OpenCL forms through the public API, opencl.dll loaded at run time.
// Initialize builds the family's kernels on the first device found (context
// is reserved and may be null; log, ZVOPENCLLOG of video/dib.h, receives a
// failed build's log):
// HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND) where no OpenCL is installed,
// 0x8004E01B without a device or when the build fails. The _OCL forms take
// the plain forms' arguments and give their results bit for bit, for 8-bit
// layouts (decode: planar, NV12, YUYV, UYVY to types 28 and 29; encode: the
// 4:2:0 ones); other layouts 0x8004E000, and before Initialize (or after
// Shutdown) HRESULT_FROM_WIN32(ERROR_INVALID_STATE). The plain forms work
// whatever happened here.
ZVAPI HRESULT YUV_OpenCL_Initialize(const void *context, ZVOPENCLLOG log);
ZVAPI HRESULT YUV_OpenCL_Shutdown();
ZVAPI HRESULT ZvYUV_YUVToRGB_OCL(const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride,
                                 const BITMAPINFOHEADER *src, const void *const srcPlanes[3],
                                 const int srcPitches[3], const RECT *rect, const ZVYUVSETTINGS *settings);
ZVAPI HRESULT ZvYUV_RGBToYUV_OCL(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                                 const BITMAPINFOHEADER *dst, void *const dstPlanes[3], const int dstPitches[3],
                                 const ZVYUVSETTINGS *settings);

// For checks: the support word and thread count the pixel kernels use
// (word 0xFFFFFFFF: the detected one; threads 0: the runtime's choice).
ZVAPI void ZvVideo_SetKernelOverride(DWORD cpuWord, int threads);

// Packed 4:2:2 to and from 8-bit RGB(A), top-down rows. matrix 1, 2, 3 or 0
// by frame size; even widths only (E_INVALIDARG).
ZVAPI HRESULT ZvUYVY2RGBA(const BYTE *src, int srcPitch, BYTE *dst, int dstPitch, int width, int height, int matrix);
ZVAPI HRESULT ZvRGBA2UYVY(const BYTE *src, int srcPitch, BYTE *dst, int dstPitch, int width, int height, int matrix);
ZVAPI HRESULT ZvUYVY2RGB(const BYTE *src, int srcPitch, BYTE *dst, int dstPitch, int width, int height, int matrix);
ZVAPI HRESULT ZvRGB2UYVY(const BYTE *src, int srcPitch, BYTE *dst, int dstPitch, int width, int height, int matrix);

// 4:2:0 planes to top-down BGRA for previews, limited range by frame size;
// the reduced forms write half or quarter size (dst sized accordingly);
// BlendFields averages the two rows of a pair instead of taking one.
typedef struct tagZVYUV420SRC {
    const BYTE *y, *u, *v;
    int yPitch, uvPitch;
    int width, height;
} ZVYUV420SRC;
ZVAPI HRESULT ZvYUV420ToRGBA(const ZVYUV420SRC *src, BYTE *dst, int dstPitch);
ZVAPI HRESULT ZvYUV420ToRGBA_Half(const ZVYUV420SRC *src, BYTE *dst, int dstPitch);
ZVAPI HRESULT ZvYUV420ToRGBA_HalfHorz(const ZVYUV420SRC *src, BYTE *dst, int dstPitch);
ZVAPI HRESULT ZvYUV420ToRGBA_Quarter(const ZVYUV420SRC *src, BYTE *dst, int dstPitch);
ZVAPI HRESULT ZvYUV420ToRGBA_Half_BlendFields(const ZVYUV420SRC *src, BYTE *dst, int dstPitch);
ZVAPI HRESULT ZvYUV420ToRGBA_Quarter_BlendFields(const ZVYUV420SRC *src, BYTE *dst, int dstPitch);
ZVAPI HRESULT ZvYUV420ToRGBA_QuarterHorz_HalfVert_BlendFields(const ZVYUV420SRC *src, BYTE *dst, int dstPitch);
// 4:2:2 planes (chroma pitch for width / 2) to top-down BGRA.
ZVAPI HRESULT ZvYUV422PlanarToRGBA(const BYTE *y, const BYTE *u, const BYTE *v, int yPitch, int uvPitch, int width,
                                   int height, BYTE *dst, int dstPitch);

// Plane-to-plane family: frames of the same size, images behind the headers
// or given; SubRect forms copy rect (even positions for subsampled chroma)
// of the source into the top-left of the destination.
ZVAPI HRESULT ZvYUV_I420_To_I420_SubRect(const BITMAPINFOHEADER *src, const void *srcImage,
                                         const BITMAPINFOHEADER *dst, void *dstImage, const RECT *rect);
ZVAPI HRESULT ZvYUV_P010_To_P010_SubRect(const BITMAPINFOHEADER *src, const void *srcImage,
                                         const BITMAPINFOHEADER *dst, void *dstImage, const RECT *rect);
ZVAPI HRESULT ZvYUV_P216_To_P216_SubRect(const BITMAPINFOHEADER *src, const void *srcImage,
                                         const BITMAPINFOHEADER *dst, void *dstImage, const RECT *rect);
ZVAPI HRESULT ZvYUV_Y210_To_Y210_SubRect(const BITMAPINFOHEADER *src, const void *srcImage,
                                         const BITMAPINFOHEADER *dst, void *dstImage, const RECT *rect);
ZVAPI HRESULT ZvYUV_YV12_To_I420(const BITMAPINFOHEADER *src, const void *srcImage, const BITMAPINFOHEADER *dst,
                                 void *dstImage);
ZVAPI HRESULT ZvYUV_YV12_To_I420_SubRect(const BITMAPINFOHEADER *src, const void *srcImage,
                                         const BITMAPINFOHEADER *dst, void *dstImage, const RECT *rect);
ZVAPI HRESULT ZvYUV_I420_To_YV12(const BITMAPINFOHEADER *src, const void *srcImage, const BITMAPINFOHEADER *dst,
                                 void *dstImage);
ZVAPI HRESULT ZvYUV_NV12_To_I420(const BITMAPINFOHEADER *src, const void *srcImage, const BITMAPINFOHEADER *dst,
                                 void *dstImage);
ZVAPI HRESULT ZvYUV_NV12_To_I420_SubRect(const BITMAPINFOHEADER *src, const void *srcImage,
                                         const BITMAPINFOHEADER *dst, void *dstImage, const RECT *rect);
ZVAPI HRESULT ZvYUV_I420_To_NV12(const BITMAPINFOHEADER *src, const void *srcImage, const BITMAPINFOHEADER *dst,
                                 void *dstImage);
ZVAPI HRESULT ZvYUV_P010_To_I420(const BITMAPINFOHEADER *src, const void *srcImage, const BITMAPINFOHEADER *dst,
                                 void *dstImage);
ZVAPI HRESULT ZvYUV_P210_To_I420(const BITMAPINFOHEADER *src, const void *srcImage, const BITMAPINFOHEADER *dst,
                                 void *dstImage);
ZVAPI HRESULT ZvYUV_P410_To_I420(const BITMAPINFOHEADER *src, const void *srcImage, const BITMAPINFOHEADER *dst,
                                 void *dstImage);
ZVAPI HRESULT ZvYUV_P210_To_v210(const BITMAPINFOHEADER *src, const void *srcImage, const BITMAPINFOHEADER *dst,
                                 void *dstImage);
ZVAPI HRESULT ZvYUV_v210_To_P210(const BITMAPINFOHEADER *src, const void *srcImage, const BITMAPINFOHEADER *dst,
                                 void *dstImage);
ZVAPI HRESULT ZvYUV_v210_TO_UYVY(const BITMAPINFOHEADER *src, const void *srcImage, const BITMAPINFOHEADER *dst,
                                 void *dstImage);
ZVAPI HRESULT ZvYUV_YV16_To_YUYV_SubRect(const BITMAPINFOHEADER *src, const void *srcImage,
                                         const BITMAPINFOHEADER *dst, void *dstImage, const RECT *rect);
