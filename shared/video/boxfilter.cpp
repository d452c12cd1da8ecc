// The box filter: each pixel the mean of the box of source pixels around it.
// Separable: a row of column sums over the box's rows, then sums along it.
#include "video/dibrows.h"
#include "video/scalerows.h"
#include "video/yuvrows.h"
#include <stdlib.h>
#include <string.h>

namespace {

inline int Clamp(int v, int lo, int hi)
{
    return v < lo ? lo : v > hi ? hi : v;
}

// The bytes a frame's rows cover, for the overlap test.
void Extent(const BYTE *top, LONG_PTR step, int rows, size_t rowBytes, const BYTE **lo, const BYTE **hi)
{
    const BYTE *last = top + step * (rows - 1);
    *lo = step < 0 ? last : top;
    *hi = (step < 0 ? top : last) + rowBytes;
}

void BoxRows(void *ctx, int first, int end)
{
    const zvdib::Box &b = *(const zvdib::Box *)ctx;
    const int span = b.hi - b.lo + 1, ch = b.ch;
    void *mem = malloc((size_t)span * ch * 4);
    if (!mem)
        return;
    int32_t *acc = (int32_t *)mem;
    float *facc = (float *)mem;
    for (int y = b.r.top + first; y < b.r.top + end; ++y) {
        // column sums, the box's rows top to bottom
        memset(mem, 0, (size_t)span * ch * 4);
        for (int k = -b.ry; k <= b.ry; ++k) {
            const BYTE *s = b.srcTop + b.srcStep * Clamp(y + k, 0, b.h - 1) + (LONG_PTR)b.lo * b.bpp;
            if (b.isFloat)
                for (int i = 0; i < span * ch; ++i)
                    facc[i] += ((const float *)s)[i];
            else
                for (int i = 0; i < span * ch; ++i)
                    acc[i] += s[i];
        }
        BYTE *out = b.dstTop + b.dstStep * y;
        for (int x = b.r.left; x < b.r.right; ++x)
            for (int c = 0; c < ch; ++c) {
                if (b.isFloat) {
                    float v = 0;
                    for (int k = -b.rx; k <= b.rx; ++k)
                        v += facc[(Clamp(x + k, 0, b.w - 1) - b.lo) * ch + c];
                    ((float *)out)[x * ch + c] = v * b.inv;
                    continue;
                }
                int v = 0;
                for (int k = -b.rx; k <= b.rx; ++k)
                    v += acc[(Clamp(x + k, 0, b.w - 1) - b.lo) * ch + c];
                out[x * ch + c] = (BYTE)((v + b.n / 2) / b.n);
            }
    }
    free(mem);
}

} // namespace

HRESULT zvdib::MakeBox(Box *b, const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                       const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride, const RECT *rect, int radiusX,
                       int radiusY)
{
    if (!src || !dst)
        return E_POINTER;
    ZVPIXELTYPE t = ZvGetPixelType(src);
    memset(b, 0, sizeof(*b));
    b->ch = zvscale::Channels(t);
    if (!b->ch || ZvGetPixelType(dst) != t)
        return E_NOTIMPL;
    if (src->biWidth != dst->biWidth || abs(src->biHeight) != abs(dst->biHeight) || radiusX < 0 || radiusY < 0 ||
        radiusX > ZVDIBBOX_MAXRADIUS || radiusY > ZVDIBBOX_MAXRADIUS)
        return E_INVALIDARG;
    BYTE *srcTop;
    if (!Rows(src, srcPixels, srcStride, &srcTop, &b->srcStep) || !Rows(dst, dstPixels, dstStride, &b->dstTop,
                                                                        &b->dstStep))
        return E_INVALIDARG;
    b->srcTop = srcTop;
    b->w = src->biWidth;
    b->h = abs(src->biHeight);
    b->isFloat = t == ZVPT_RGBAF;
    b->bpp = b->isFloat ? 16 : b->ch;
    // the filter reads around each pixel: written rows would feed later ones
    const BYTE *s0, *s1, *d0, *d1;
    Extent(b->srcTop, b->srcStep, b->h, (size_t)b->w * b->bpp, &s0, &s1);
    Extent(b->dstTop, b->dstStep, b->h, (size_t)b->w * b->bpp, &d0, &d1);
    if (s0 < d1 && d0 < s1)
        return E_INVALIDARG;
    b->rx = radiusX;
    b->ry = radiusY;
    b->n = (2 * radiusX + 1) * (2 * radiusY + 1);
    b->inv = 1.f / (float)b->n;
    if (!ClipRect(src, rect, &b->r))
        return S_FALSE;
    b->lo = b->r.left - radiusX > 0 ? b->r.left - radiusX : 0;
    b->hi = b->r.right - 1 + radiusX < b->w - 1 ? b->r.right - 1 + radiusX : b->w - 1;
    return S_OK;
}

ZVAPI HRESULT ZvDibBoxFilter(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                             const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride, const RECT *rect,
                             int radiusX, int radiusY)
{
    zvdib::Box b;
    HRESULT hr = zvdib::MakeBox(&b, src, srcPixels, srcStride, dst, dstPixels, dstStride, rect, radiusX, radiusY);
    if (hr != S_OK)
        return FAILED(hr) ? hr : S_OK;
    const int h = b.r.bottom - b.r.top;
    zvyuv::ForRanges(h, 0, (LONGLONG)(b.r.right - b.r.left) * b.ch * (2 * b.rx + 2 * b.ry + 2), BoxRows, &b);
    return S_OK;
}
