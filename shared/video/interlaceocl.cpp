// OpenCL forms of the interlace copies: the plain form's fields, each scaled
// by the scalers' kernel of this family.
#include "video/opencl.h"
#include "video/scalerows.h"

using namespace zvocl;

namespace {

const char *const kNames[] = {kScaleName};

Family g_interlace;

HRESULT FieldScale(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride, const RECT *srcRect,
                   const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride, const RECT *dstRect, DWORD)
{
    return zvscale::Scale(src, srcPixels, srcStride, srcRect, dst, dstPixels, dstStride, dstRect, true, false,
                          ScaleRows, &g_interlace.kernels[0]);
}

// Columns stay as they are: both fields share them, so the first field's
// refusal comes before anything is written.
HRESULT VerticalRows(const ZVSUBPIXELPARAM &p, bool cubic, void *kernel)
{
    if (p.scaleX != ZVSUBPIXEL_ONE || ((p.srcRect.left | p.dstRect.left) & (ZVSUBPIXEL_ONE - 1)))
        return E_INVALIDARG;
    return ScaleRows(p, cubic, kernel);
}

HRESULT VerticalScale(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride, const RECT *srcRect,
                      const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride, const RECT *dstRect, DWORD)
{
    return zvscale::Scale(src, srcPixels, srcStride, srcRect, dst, dstPixels, dstStride, dstRect, true, false,
                          VerticalRows, &g_interlace.kernels[0]);
}

HRESULT Interlace(const BITMAPINFOHEADER *src, const void *srcPixels, const RECT *srcRect,
                  const BITMAPINFOHEADER *dst, void *dstPixels, const RECT *dstRect, DWORD flags,
                  zvscale::ScaleFn scale)
{
    Lock();
    HRESULT hr = g_interlace.program
                     ? zvscale::CopyInterlace(src, srcPixels, srcRect, dst, dstPixels, dstRect, flags, scale)
                     : HRESULT_FROM_WIN32(ERROR_INVALID_STATE);
    Unlock();
    return hr;
}

} // namespace

ZVAPI HRESULT DibInterlace_OpenCL_Initialize(const void *, ZVOPENCLLOG log)
{
    const char *sources[] = {kScaleSource};
    return Start(&g_interlace, sources, 1, kNames, 1, log);
}

ZVAPI HRESULT DibInterlace_OpenCL_Shutdown()
{
    return Stop(&g_interlace);
}

ZVAPI HRESULT ZvDibCopyInterlaceOCL(const BITMAPINFOHEADER *src, const void *srcPixels, const RECT *srcRect,
                                    const BITMAPINFOHEADER *dst, void *dstPixels, const RECT *dstRect, DWORD flags)
{
    return Interlace(src, srcPixels, srcRect, dst, dstPixels, dstRect, flags, FieldScale);
}

ZVAPI HRESULT ZvDibCopyInterlaceVerticalOCL(const BITMAPINFOHEADER *src, const void *srcPixels, const RECT *srcRect,
                                            const BITMAPINFOHEADER *dst, void *dstPixels, const RECT *dstRect,
                                            DWORD flags)
{
    return Interlace(src, srcPixels, srcRect, dst, dstPixels, dstRect, flags, VerticalScale);
}

ZVAPI HRESULT ZvDibCopyInterlaceCopyFieldOCL(const BITMAPINFOHEADER *src, const void *srcPixels,
                                             const RECT *srcRect, const BITMAPINFOHEADER *dst, void *dstPixels,
                                             const RECT *dstRect, DWORD flags)
{
    return Interlace(src, srcPixels, srcRect, dst, dstPixels, dstRect, flags | ZVINTERLACE_TOFIELD, FieldScale);
}

ZVAPI HRESULT ZvDibResampledInterlacedFrameOCL(const BITMAPINFOHEADER *src, const void *srcPixels,
                                               const RECT *srcRect, const BITMAPINFOHEADER *dst, void *dstPixels,
                                               const RECT *dstRect, DWORD flags)
{
    return Interlace(src, srcPixels, srcRect, dst, dstPixels, dstRect, flags | ZVINTERLACE_ONEFIELD, FieldScale);
}
