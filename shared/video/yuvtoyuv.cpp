// YUV layout to YUV layout: one resampling path through sample rows serves
// the dispatch of ZvYUV_YUVToYUV and the plane-to-plane family. Chroma is
// taken from the first pixel of each destination pair or block, never
// interpolated; sample depths are shifted to the destination's.
#include "video/yuvrows.h"
#include <stdlib.h>

namespace zvyuv {

namespace {

struct Job {
    Frame src, dst;
    int x0, y0;
};

void RunRows(void *ctx, int first, int end)
{
    const Job &j = *(const Job *)ctx;
    const Frame &s = j.src, &d = j.dst;
    const int w = d.width;
    int32_t *buf = (int32_t *)malloc(sizeof(int32_t) * (3 * (size_t)w + 2 * ((size_t)d.cw + 1)));
    if (!buf)
        return;
    int32_t *y = buf, *u = y + w, *v = u + w, *cu = v + w, *cv = cu + d.cw + 1;
    const int up = d.bits - s.bits;
    for (int r = first; r < end; ++r) {
        FetchRow(s, j.y0 + r, j.x0, w, y, u, v);
        for (int i = 0; i < w; ++i)
            y[i] = up >= 0 ? y[i] << up : y[i] >> -up;
        bool chromaRow = ((r >> d.sy) << d.sy) == r && (r >> d.sy) < d.ch;
        if (chromaRow) {
            for (int c = 0; c < d.cw; ++c) {
                int x = c << d.sx;
                if (x >= w)
                    x = w - 1;
                cu[c] = up >= 0 ? u[x] << up : u[x] >> -up;
                cv[c] = up >= 0 ? v[x] << up : v[x] >> -up;
            }
        }
        StoreRow(d, r, y, chromaRow ? cu : nullptr, chromaRow ? cv : nullptr);
    }
    free(buf);
}

// Converts rect of src (null: all) into the top-left of dst.
HRESULT Convert(const BITMAPINFOHEADER *src, const void *srcImage, const BITMAPINFOHEADER *dst, void *dstImage,
                const RECT *rect, ZVPIXELTYPE needSrc, ZVPIXELTYPE needDst)
{
    if (!src || !dst)
        return E_POINTER;
    if ((needSrc && ZvGetPixelType(src) != needSrc) || (needDst && ZvGetPixelType(dst) != needDst))
        return ZVERR_UNSUPPORTED_MEDIA;
    Job j;
    if (!Describe(&j.src, src, nullptr, nullptr, srcImage ? srcImage : (const BYTE *)src + src->biSize) ||
        !Describe(&j.dst, dst, nullptr, nullptr, dstImage ? dstImage : (BYTE *)dst + dst->biSize))
        return E_INVALIDARG;
    RECT r = {0, 0, j.src.width, j.src.height};
    if (rect) {
        if (rect->left < 0 || rect->top < 0 || rect->right > r.right || rect->bottom > r.bottom ||
            rect->left >= rect->right || rect->top >= rect->bottom)
            return E_INVALIDARG;
        r = *rect;
    }
    // the destination takes what fits of the rectangle
    if (r.right - r.left < j.dst.width || r.bottom - r.top < j.dst.height)
        return E_INVALIDARG;
    j.x0 = r.left;
    j.y0 = r.top;
    ForRanges(j.dst.height, 0, j.dst.width, RunRows, &j);
    return S_OK;
}

} // namespace

} // namespace zvyuv

using namespace zvyuv;

ZVAPI HRESULT ZvYUV_YUVToYUV(const BITMAPINFOHEADER *src, const void *srcPixels, int,
                             const BITMAPINFOHEADER *dst, void *dstPixels, int)
{
    if (!src || !dst)
        return E_POINTER;
    ZVPIXELTYPE s = ZvGetPixelType(src), d = ZvGetPixelType(dst);
    if (src->biWidth != dst->biWidth || abs(src->biHeight) != abs(dst->biHeight))
        return E_INVALIDARG;
    bool ok = (s == ZVPT_I420 && (d == ZVPT_I420 || d == ZVPT_YV12 || d == ZVPT_NV12)) ||
              ((s == ZVPT_NV12 || s == ZVPT_YV12) && d == ZVPT_I420) ||
              (s == ZVPT_UYVY && (d == ZVPT_YUYV || d == ZVPT_I420 || d == ZVPT_UYVY)) ||
              (d == ZVPT_UYVY && (s == ZVPT_YUYV || s == ZVPT_I420 || s == ZVPT_V210));
    if (!ok)
        return ZVERR_UNSUPPORTED_MEDIA;
    return Convert(src, srcPixels, dst, dstPixels, nullptr, 0, 0);
}

#define ZV_PAIR(name, s, d)                                                                                   \
    ZVAPI HRESULT name(const BITMAPINFOHEADER *src, const void *srcImage, const BITMAPINFOHEADER *dst,      \
                       void *dstImage)                                                                      \
    {                                                                                                       \
        return Convert(src, srcImage, dst, dstImage, nullptr, s, d);                                        \
    }
#define ZV_SUBRECT(name, s, d)                                                                                \
    ZVAPI HRESULT name(const BITMAPINFOHEADER *src, const void *srcImage, const BITMAPINFOHEADER *dst,      \
                       void *dstImage, const RECT *rect)                                                    \
    {                                                                                                       \
        return Convert(src, srcImage, dst, dstImage, rect, s, d);                                           \
    }

ZV_SUBRECT(ZvYUV_I420_To_I420_SubRect, ZVPT_I420, ZVPT_I420)
ZV_SUBRECT(ZvYUV_P010_To_P010_SubRect, ZVPT_P010, ZVPT_P010)
ZV_SUBRECT(ZvYUV_P216_To_P216_SubRect, ZVPT_P216, ZVPT_P216)
ZV_SUBRECT(ZvYUV_Y210_To_Y210_SubRect, ZVPT_Y210, ZVPT_Y210)
ZV_PAIR(ZvYUV_YV12_To_I420, ZVPT_YV12, ZVPT_I420)
ZV_SUBRECT(ZvYUV_YV12_To_I420_SubRect, ZVPT_YV12, ZVPT_I420)
ZV_PAIR(ZvYUV_I420_To_YV12, ZVPT_I420, ZVPT_YV12)
ZV_PAIR(ZvYUV_NV12_To_I420, ZVPT_NV12, ZVPT_I420)
ZV_SUBRECT(ZvYUV_NV12_To_I420_SubRect, ZVPT_NV12, ZVPT_I420)
ZV_PAIR(ZvYUV_I420_To_NV12, ZVPT_I420, ZVPT_NV12)
ZV_PAIR(ZvYUV_P010_To_I420, ZVPT_P010, ZVPT_I420)
ZV_PAIR(ZvYUV_P210_To_I420, ZVPT_P210, ZVPT_I420)
ZV_PAIR(ZvYUV_P410_To_I420, ZVPT_P410, ZVPT_I420)
ZV_PAIR(ZvYUV_P210_To_v210, ZVPT_P210, ZVPT_V210)
ZV_PAIR(ZvYUV_v210_To_P210, ZVPT_V210, ZVPT_P210)
ZV_PAIR(ZvYUV_v210_TO_UYVY, ZVPT_V210, ZVPT_UYVY)
ZV_SUBRECT(ZvYUV_YV16_To_YUYV_SubRect, ZVPT_YV16, ZVPT_YUYV)
