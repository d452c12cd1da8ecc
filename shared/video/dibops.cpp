// Frame operations: rectangles, the general copy, set and fill, flip, channel
// swap, pixel access and fade.
#include "video/dibrows.h"
#include "video/scalerows.h"
#include "video/yuv.h"
#include "video/yuvrows.h"
#include <stdlib.h>
#include <string.h>

using namespace zvdib;

namespace {

RECT Whole(const BITMAPINFOHEADER *h)
{
    RECT r = {0, 0, h->biWidth, abs(h->biHeight)};
    return r;
}

// rect clipped to the frame; false when nothing is left
bool ClipTo(const BITMAPINFOHEADER *h, const RECT *rect, RECT *out)
{
    RECT w = Whole(h);
    *out = rect ? *rect : w;
    if (out->left < 0) out->left = 0;
    if (out->top < 0) out->top = 0;
    if (out->right > w.right) out->right = w.right;
    if (out->bottom > w.bottom) out->bottom = w.bottom;
    return out->left < out->right && out->top < out->bottom;
}

struct ConvertJob {
    ZVPIXELTYPE st, dt;
    const BYTE *srcTop;
    BYTE *dstTop;
    LONG_PTR srcStep, dstStep;
    RECT s, d;
    const RGBQUAD *pal;
    int palCount;
    bool same;
    int bytes;   // same type: bytes a row
};

void ConvertRows(void *ctx, int first, int end)
{
    const ConvertJob &j = *(const ConvertJob *)ctx;
    int w = j.s.right - j.s.left;
    DWORD *buf = j.same ? nullptr : (DWORD *)malloc(sizeof(DWORD) * (size_t)w);
    if (!j.same && !buf)
        return;
    for (int r = first; r < end; ++r) {
        const BYTE *in = j.srcTop + j.srcStep * (j.s.top + r);
        BYTE *out = j.dstTop + j.dstStep * (j.d.top + r);
        if (j.same) {
            int bpp = BitsOf(j.st) / 8;
            memmove(out + (LONG_PTR)j.d.left * bpp, in + (LONG_PTR)j.s.left * bpp, (size_t)j.bytes);
            continue;
        }
        ToBGRA(j.st, in, j.s.left, w, j.pal, j.palCount, buf);
        FromBGRA(j.dt, buf, w, out, j.d.left);
    }
    free(buf);
}

HRESULT ForEachPixelRow(const BITMAPINFOHEADER *h, void *pixels, int stride, const RECT *rect,
                        void (*fn)(BYTE *row, int x0, int n, void *ctx), void *ctx)
{
    BYTE *top;
    LONG_PTR step;
    RECT r;
    if (!Rows(h, pixels, stride, &top, &step))
        return E_INVALIDARG;
    if (!ClipTo(h, rect, &r))
        return S_OK;
    for (int y = r.top; y < r.bottom; ++y)
        fn(top + step * y, r.left, r.right - r.left, ctx);
    return S_OK;
}

struct SetCtx {
    ZVPIXELTYPE t;
    DWORD color;
};

void SetRow(BYTE *row, int x0, int n, void *ctx)
{
    const SetCtx &c = *(const SetCtx *)ctx;
    if (CanWrite(c.t)) {
        for (int i = 0; i < n; ++i)
            FromBGRA(c.t, &c.color, 1, row, x0 + i);
        return;
    }
    // palette indices and the narrow greys take the value's low bits
    int bits = BitsOf(c.t);
    if (bits >= 8) {
        for (int i = 0; i < n; ++i)
            memcpy(row + (LONG_PTR)(x0 + i) * (bits / 8), &c.color, bits / 8 > 4 ? 4 : bits / 8);
        return;
    }
    const int per = 8 / bits;
    const BYTE mask = (BYTE)((1 << bits) - 1);
    for (int x = x0; x < x0 + n; ++x) {
        int sh = (per - 1 - x % per) * bits;
        BYTE *b = row + x / per;
        *b = (BYTE)((*b & ~(mask << sh)) | ((c.color & mask) << sh));
    }
}

} // namespace

ZVAPI void ZvDibPrepareRects(const BITMAPINFOHEADER *src, RECT *srcOut, const RECT *srcRect,
                             const BITMAPINFOHEADER *dst, RECT *dstOut, const RECT *dstRect, ZVDIBCLIP *clip)
{
    RECT s = srcRect ? *srcRect : Whole(src), d = dstRect ? *dstRect : Whole(dst);
    const RECT given = s;
    // a cut on one side moves the other rectangle's start with it
    if (s.left < 0) { d.left -= s.left; s.left = 0; }
    if (s.top < 0) { d.top -= s.top; s.top = 0; }
    if (d.left < 0) { s.left -= d.left; d.left = 0; }
    if (d.top < 0) { s.top -= d.top; d.top = 0; }
    RECT sw = Whole(src), dw = Whole(dst);
    if (s.right > sw.right) s.right = sw.right;
    if (s.bottom > sw.bottom) s.bottom = sw.bottom;
    if (d.right > dw.right) d.right = dw.right;
    if (d.bottom > dw.bottom) d.bottom = dw.bottom;
    LONG w = s.right - s.left < d.right - d.left ? s.right - s.left : d.right - d.left;
    LONG h = s.bottom - s.top < d.bottom - d.top ? s.bottom - s.top : d.bottom - d.top;
    if (w < 0) w = 0;
    if (h < 0) h = 0;
    s.right = s.left + w;
    s.bottom = s.top + h;
    d.right = d.left + w;
    d.bottom = d.top + h;
    if (srcOut) *srcOut = s;
    if (dstOut) *dstOut = d;
    if (clip) {
        clip->left = s.left - given.left;
        clip->top = s.top - given.top;
        clip->right = given.right - s.right;
        clip->bottom = given.bottom - s.bottom;
    }
}

HRESULT zvscale::Copy(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride, const RECT *srcRect,
                      const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride, const RECT *dstRect, DWORD flags,
                      const ScaleFn scalers[4], bool convert)
{
    if (!src || !dst)
        return E_POINTER;
    ZVPIXELTYPE st = ZvGetPixelType(src), dt = ZvGetPixelType(dst);
    if (!st || !dt)
        return E_INVALIDARG;
    if (!convert && (st != dt || st >= 64))
        return ZVERR_UNSUPPORTED_MEDIA;
    // YUV on either side: the conversions of the layouts
    if (st >= 64 && dt >= 64)
        return ZvYUV_YUVToYUV(src, srcPixels, srcStride, dst, dstPixels, dstStride);
    if (st >= 64) {
        const void *planes[3] = {srcPixels, nullptr, nullptr};
        return ZvYUV_YUVToRGB(dst, dstPixels, dstStride, src, planes, nullptr, srcRect, nullptr);
    }
    if (dt >= 64) {
        void *planes[3] = {dstPixels, nullptr, nullptr};
        return ZvYUV_RGBToYUV(src, srcPixels, srcStride, dst, planes, nullptr, nullptr);
    }
    bool fixed = (flags & ZVDIBCOPY_FIXEDPOINT) != 0;
    RECT s = srcRect ? *srcRect : Whole(src), d = dstRect ? *dstRect : Whole(dst);
    if (!srcRect && fixed)
        s = {0, 0, s.right * ZVSUBPIXEL_ONE, s.bottom * ZVSUBPIXEL_ONE};
    if (!dstRect && fixed)
        d = {0, 0, d.right * ZVSUBPIXEL_ONE, d.bottom * ZVSUBPIXEL_ONE};
    bool sizesDiffer = s.right - s.left != d.right - d.left || s.bottom - s.top != d.bottom - d.top;
    bool fraction = fixed && ((s.left | s.top | s.right | s.bottom | d.left | d.top | d.right | d.bottom) &
                              (ZVSUBPIXEL_ONE - 1));
    if (sizesDiffer || fraction) {
        if (st != dt)
            return ZVERR_UNSUPPORTED_MEDIA;
        bool cubic = (flags & ZVDIBCOPY_BICUBIC) != 0;
        return scalers[(fixed ? 2 : 0) + (cubic ? 1 : 0)](src, srcPixels, srcStride, &s, dst, dstPixels, dstStride,
                                                          &d, 0);
    }
    if (fixed) {
        s = {s.left >> 14, s.top >> 14, s.right >> 14, s.bottom >> 14};
        d = {d.left >> 14, d.top >> 14, d.right >> 14, d.bottom >> 14};
    }
    ConvertJob j = {};
    j.st = st;
    j.dt = dt;
    j.same = st == dt && BitsOf(st) >= 8;
    if (!j.same && (!CanRead(st) || !CanWrite(dt)))
        return ZVERR_UNSUPPORTED_MEDIA;
    if (st == dt && BitsOf(st) < 8 && (s.left || d.left))
        return ZVERR_UNSUPPORTED_MEDIA;
    ZvDibPrepareRects(src, &j.s, &s, dst, &j.d, &d, nullptr);
    if (j.s.right <= j.s.left || j.s.bottom <= j.s.top)
        return S_OK;
    if (!Rows(src, srcPixels, srcStride, (BYTE **)&j.srcTop, &j.srcStep) ||
        !Rows(dst, dstPixels, dstStride, &j.dstTop, &j.dstStep))
        return E_INVALIDARG;
    if (st == dt && BitsOf(st) < 8) {
        // narrow types copy whole rows
        j.same = true;
        j.bytes = ZvDibStride(src) < ZvDibStride(dst) ? ZvDibStride(src) : ZvDibStride(dst);
        for (int r = 0; r < j.s.bottom - j.s.top; ++r)
            memmove(j.dstTop + j.dstStep * (j.d.top + r), j.srcTop + j.srcStep * (j.s.top + r), j.bytes);
        return S_OK;
    }
    j.bytes = (j.s.right - j.s.left) * (BitsOf(st) / 8);
    j.pal = (const RGBQUAD *)((const BYTE *)src + src->biSize);
    j.palCount = ZvDibPaletteCount(src);
    zvyuv::ForRanges(j.s.bottom - j.s.top, 0, j.s.right - j.s.left, ConvertRows, &j);
    return S_OK;
}

ZVAPI HRESULT ZvDibCopy(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride, const RECT *srcRect,
                        const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride, const RECT *dstRect,
                        DWORD flags)
{
    static const zvscale::ScaleFn scalers[4] = {ZvDibScale_Bilinear, ZvDibScale_BiCubic, ZvDibScale_BilinearSubPixel,
                                                ZvDibScale_BiCubicSubPixel};
    return zvscale::Copy(src, srcPixels, srcStride, srcRect, dst, dstPixels, dstStride, dstRect, flags, scalers,
                         true);
}

ZVAPI HRESULT ZvDibSet(const BITMAPINFOHEADER *frame, void *pixels, int stride, const RECT *rect, DWORD color)
{
    if (!frame)
        return E_INVALIDARG;
    ZVPIXELTYPE t = ZvGetPixelType(frame);
    if (t < 16 || t > 34 || t == 33)
        return E_NOTIMPL;
    SetCtx c = {t, color};
    return ForEachPixelRow(frame, pixels, stride, rect, SetRow, &c);
}

ZVAPI HRESULT ZvDibFillRect(const BITMAPINFOHEADER *frame, void *pixels, const RECT *rect, DWORD color)
{
    return ZvDibSet(frame, pixels, 0, rect, color);
}

ZVAPI HRESULT ZvDibFillRectChannel(const BITMAPINFOHEADER *frame, void *pixels, const RECT *rect, int channel,
                                   BYTE value)
{
    if (!frame)
        return E_INVALIDARG;
    ZVPIXELTYPE t = ZvGetPixelType(frame);
    if ((t != 27 && t != 28 && t != 29) || channel < 0 || channel > 3 || (t == 27 && channel == 3))
        return E_NOTIMPL;
    struct Ctx {
        int bpp, at;
        BYTE v;
    } c = {t == 27 ? 3 : 4, t == 29 && channel != 1 && channel != 3 ? 2 - channel : channel, value};
    return ForEachPixelRow(frame, pixels, 0, rect, [](BYTE *row, int x0, int n, void *ctx) {
        const Ctx &k = *(const Ctx *)ctx;
        for (int x = x0; x < x0 + n; ++x)
            row[x * k.bpp + k.at] = k.v;
    }, &c);
}

ZVAPI HRESULT ZvDibFlip(const BITMAPINFOHEADER *frame, void *pixels, int stride, DWORD flags)
{
    BYTE *top;
    LONG_PTR step;
    if (!frame || !Rows(frame, pixels, stride, &top, &step))
        return E_INVALIDARG;
    ZVPIXELTYPE t = ZvGetPixelType(frame);
    int bits = BitsOf(t);
    if (t >= 64 || !bits)
        return E_NOTIMPL;
    int h = abs(frame->biHeight), rowBytes = ZvDibStride(frame);
    if (flags & ZVDIBFLIP_VERTICAL) {
        BYTE *tmp = (BYTE *)malloc(rowBytes);
        if (!tmp)
            return E_OUTOFMEMORY;
        for (int y = 0; y < h / 2; ++y) {
            BYTE *a = top + step * y, *b = top + step * (h - 1 - y);
            memcpy(tmp, a, rowBytes);
            memcpy(a, b, rowBytes);
            memcpy(b, tmp, rowBytes);
        }
        free(tmp);
    }
    if (flags & ZVDIBFLIP_HORIZONTAL) {
        if (bits < 8)
            return E_NOTIMPL;
        int bpp = bits / 8, w = frame->biWidth;
        BYTE px[16];
        for (int y = 0; y < h; ++y) {
            BYTE *row = top + step * y;
            for (int x = 0; x < w / 2; ++x) {
                BYTE *a = row + x * bpp, *b = row + (w - 1 - x) * bpp;
                memcpy(px, a, bpp);
                memcpy(a, b, bpp);
                memcpy(b, px, bpp);
            }
        }
    }
    return S_OK;
}

int zvdib::SwapSize(ZVPIXELTYPE t)
{
    return t == 27 || t == 28 || t == 29 ? 1 : t == 31 ? 2 : t == 32 ? 4 : 0;
}

ZVAPI HRESULT ZvDibSwapRB(const BITMAPINFOHEADER *frame, void *pixels, int stride)
{
    if (!frame)
        return E_INVALIDARG;
    ZVPIXELTYPE t = ZvGetPixelType(frame);
    int size = SwapSize(t);
    if (!size)
        return E_NOTIMPL;
    struct Ctx {
        int bpp, size;
    } c = {BitsOf(t) / 8, size};
    return ForEachPixelRow(frame, pixels, stride, nullptr, [](BYTE *row, int x0, int n, void *ctx) {
        const Ctx &k = *(const Ctx *)ctx;
        BYTE tmp[4];
        for (int x = x0; x < x0 + n; ++x) {
            BYTE *p = row + x * k.bpp;
            memcpy(tmp, p, k.size);
            memcpy(p, p + 2 * k.size, k.size);
            memcpy(p + 2 * k.size, tmp, k.size);
        }
    }, &c);
}

ZVAPI HRESULT ZvDibGetPixel(const BITMAPINFOHEADER *frame, const void *pixels, POINT pos, DWORD *color)
{
    if (!frame || !color)
        return E_POINTER;
    BYTE *top;
    LONG_PTR step;
    ZVPIXELTYPE t = ZvGetPixelType(frame);
    if (!CanRead(t))
        return E_NOTIMPL;
    if (!Rows(frame, pixels, 0, &top, &step) || pos.x < 0 || pos.y < 0 || pos.x >= frame->biWidth ||
        pos.y >= abs(frame->biHeight))
        return E_INVALIDARG;
    ToBGRA(t, top + step * pos.y, pos.x, 1, (const RGBQUAD *)((const BYTE *)frame + frame->biSize),
           ZvDibPaletteCount(frame), color);
    return S_OK;
}

ZVAPI HRESULT ZvDibSetPixel(const BITMAPINFOHEADER *frame, void *pixels, POINT pos, DWORD color)
{
    if (!frame)
        return E_POINTER;
    RECT r = {pos.x, pos.y, pos.x + 1, pos.y + 1};
    if (pos.x < 0 || pos.y < 0 || pos.x >= frame->biWidth || pos.y >= abs(frame->biHeight))
        return E_INVALIDARG;
    return ZvDibSet(frame, pixels, 0, &r, color);
}

namespace zvdib {

bool ClipRect(const BITMAPINFOHEADER *h, const RECT *rect, RECT *out)
{
    return ClipTo(h, rect, out);
}

HRESULT MakeFade(Fade *k, const BITMAPINFOHEADER *frame, DWORD color, DWORD flags, float amount)
{
    if (!frame)
        return E_INVALIDARG;
    ZVPIXELTYPE t = ZvGetPixelType(frame);
    if (t != 28 && t != 29 && t != 32)
        return E_NOTIMPL;
    memset(k, 0, sizeof(*k));
    k->t = t;
    k->f = amount < 0.f ? 0.f : amount > 1.f ? 1.f : amount;
    k->a = (int)(k->f * 65536.f + 0.5f);
    k->channels = (flags & 1) ? 3 : 4;   // bit 0 leaves alpha
    BYTE bgra[4] = {(BYTE)color, (BYTE)(color >> 8), (BYTE)(color >> 16), (BYTE)(color >> 24)};
    for (int i = 0; i < 4; ++i) {
        int from = t == 28 || i == 3 ? i : 2 - i;   // 29 and 32 keep R, G, B, A
        k->c[i] = bgra[from];
        k->fc[i] = bgra[from] / 255.f;
    }
    return S_OK;
}

} // namespace zvdib

ZVAPI HRESULT ZvDibFadeToColor(const BITMAPINFOHEADER *frame, void *pixels, const RECT *rect, DWORD color,
                               DWORD flags, float amount)
{
    Fade c;
    HRESULT hr = MakeFade(&c, frame, color, flags, amount);
    if (FAILED(hr))
        return hr;
    return ForEachPixelRow(frame, pixels, 0, rect, [](BYTE *row, int x0, int n, void *ctx) {
        const Fade &k = *(const Fade *)ctx;
        for (int x = x0; x < x0 + n; ++x)
            for (int ch = 0; ch < k.channels; ++ch) {
                if (k.t == 32) {
                    float *p = (float *)row + 4 * x + ch;
                    *p += (k.fc[ch] - *p) * k.f;
                } else {
                    BYTE *p = row + 4 * x + ch;
                    *p = (BYTE)(*p + (((k.c[ch] - *p) * k.a + 32768) >> 16));
                }
            }
    }, &c);
}
