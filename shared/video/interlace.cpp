// Fields: merging two frames row by row, and copies that scale each field
// of a frame on its own.
#include "video/scalerows.h"
#include <stdlib.h>
#include <string.h>

namespace {

bool SameShape(const BITMAPINFOHEADER *a, const BITMAPINFOHEADER *b)
{
    return a->biBitCount == b->biBitCount && a->biWidth == b->biWidth && a->biHeight == b->biHeight;
}

// A field of a frame as a top-down frame of its own: every second row.
struct Field {
    BITMAPINFOHEADER h;
    BYTE *top;
    int stride;
};

Field FieldOf(const BITMAPINFOHEADER *f, const void *pixels, int field, bool whole)
{
    Field r;
    r.h = *f;
    int rows = abs(f->biHeight);
    BYTE *p = (BYTE *)(pixels ? pixels : ZvDibPixels(f));
    LONG_PTR s = ZvDibStride(f);
    if (f->biHeight > 0) {
        p += (LONG_PTR)(rows - 1) * s;
        s = -s;
    }
    if (whole) {
        r.h.biHeight = -rows;
        r.top = p;
        r.stride = (int)s;
        return r;
    }
    r.h.biHeight = -((rows - field + 1) / 2);
    r.top = p + s * field;
    r.stride = (int)(2 * s);
    return r;
}

// Frame rows [top, bottom) of field f are field rows from ceil((top - f) / 2)
// to ceil((bottom - f) / 2); fractional edges halve as they stand.
LONG FieldEdge(LONG v, int f)
{
    const LONG one = ZVSUBPIXEL_ONE;
    LONG h = (v - f * one) / 2;
    if (!(v & (one - 1)))
        h = (h + one - 1) & ~(one - 1);
    return h < 0 ? 0 : h;
}

RECT HalfRows(const RECT &r, int f)
{
    RECT h = r;
    h.top = FieldEdge(r.top, f);
    h.bottom = FieldEdge(r.bottom, f);
    return h;
}

} // namespace

ZVAPI HRESULT ZvDibMergeFields(const BITMAPINFOHEADER *a, void *aPixels, int aStride, const BITMAPINFOHEADER *b,
                               const void *bPixels, int bStride, int field, DWORD)
{
    if (!a || !b)
        return E_POINTER;
    if (!SameShape(a, b))
        return E_NOTIMPL;
    int h = abs(a->biHeight);
    BYTE *pa = (BYTE *)(aPixels ? aPixels : ZvDibPixels(a));
    const BYTE *pb = (const BYTE *)(bPixels ? bPixels : ZvDibPixels(b));
    if (!aStride)
        aStride = ZvDibStride(a);
    if (!bStride)
        bStride = ZvDibStride(b);
    if (h <= 0)
        return S_OK;
    // memory rows of a bottom-up frame count from the bottom
    int offset = field == ((h & 1) ^ 1) ? 1 : 0;
    if (offset >= h)
        return S_OK;
    int rows = (h - offset - 1) / 2 + 1;
    size_t bytes = (size_t)ZvDibStride(a);
    if (bytes > (size_t)abs(aStride) || bytes > (size_t)abs(bStride))
        bytes = (size_t)(abs(aStride) < abs(bStride) ? abs(aStride) : abs(bStride));
    for (int i = 0; i < rows; ++i) {
        int r = offset + 2 * i;
        memcpy(pa + (LONG_PTR)r * aStride, pb + (LONG_PTR)r * bStride, bytes);
    }
    return S_OK;
}

ZVAPI HRESULT ZvDibMergeFieldsRotated(const BITMAPINFOHEADER *a, void *aPixels, int aStride,
                                      const BITMAPINFOHEADER *b, const void *bPixels, int bStride, int field,
                                      DWORD)
{
    if (!a || !b)
        return E_POINTER;
    if (!SameShape(a, b) || a->biBitCount < 8 || (a->biBitCount & 7))
        return E_NOTIMPL;
    int h = abs(a->biHeight), w = a->biWidth, bpp = a->biBitCount / 8;
    BYTE *pa = (BYTE *)(aPixels ? aPixels : ZvDibPixels(a));
    const BYTE *pb = (const BYTE *)(bPixels ? bPixels : ZvDibPixels(b));
    if (!aStride)
        aStride = ZvDibStride(a);
    if (!bStride)
        bStride = ZvDibStride(b);
    for (int r = 0; r < h; ++r)
        for (int x = field & 1; x < w; x += 2)
            memcpy(pa + (LONG_PTR)r * aStride + x * bpp, pb + (LONG_PTR)r * bStride + x * bpp, bpp);
    return S_OK;
}

HRESULT zvscale::CopyInterlace(const BITMAPINFOHEADER *src, const void *srcPixels, const RECT *srcRect,
                               const BITMAPINFOHEADER *dst, void *dstPixels, const RECT *dstRect, DWORD flags,
                               ScaleFn subPixel)
{
    if (!src || !dst)
        return E_POINTER;
    const LONG one = ZVSUBPIXEL_ONE;
    RECT sr = {0, 0, src->biWidth * one, abs(src->biHeight) * one};
    RECT dr = {0, 0, dst->biWidth * one, abs(dst->biHeight) * one};
    if (srcRect)
        sr = *srcRect;
    if (dstRect)
        dr = *dstRect;
    if (!(flags & ZVINTERLACE_FIXEDPOINT)) {
        if (srcRect)
            sr = {sr.left * one, sr.top * one, sr.right * one, sr.bottom * one};
        if (dstRect)
            dr = {dr.left * one, dr.top * one, dr.right * one, dr.bottom * one};
    }
    int lower = (flags & ZVINTERLACE_FIELD_LOWER) ? 1 : 0;
    HRESULT hr = S_OK;
    for (int f = 0; f < 2 && SUCCEEDED(hr); ++f) {
        bool srcWhole = (flags & ZVINTERLACE_ONEFIELD) != 0;
        bool dstWhole = (flags & ZVINTERLACE_TOFIELD) != 0;
        if (dstWhole && f != lower)
            continue;
        Field s = FieldOf(src, srcPixels, f, srcWhole);
        Field d = FieldOf(dst, dstPixels, f, dstWhole);
        if (s.h.biHeight == 0 || d.h.biHeight == 0)
            continue;
        RECT fs = srcWhole ? sr : HalfRows(sr, f);
        RECT fd = dstWhole ? dr : HalfRows(dr, f);
        hr = subPixel(&s.h, s.top, s.stride, &fs, &d.h, d.top, d.stride, &fd, 0);
    }
    return hr;
}

ZVAPI HRESULT ZvDibCopyInterlace(const BITMAPINFOHEADER *src, const void *srcPixels, const RECT *srcRect,
                                 const BITMAPINFOHEADER *dst, void *dstPixels, const RECT *dstRect, DWORD flags)
{
    return zvscale::CopyInterlace(src, srcPixels, srcRect, dst, dstPixels, dstRect, flags,
                                  ZvDibScale_BilinearSubPixel);
}
