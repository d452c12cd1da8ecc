// Preview decoders of 4:2:0 and 4:2:2 planes at full, half and quarter size,
// and the packed 4:2:2 to and from 8-bit RGB entries.
#include "video/yuvrows.h"
#include <stdlib.h>

namespace zvyuv {

namespace {

Frame Planes8(const BYTE *y, const BYTE *u, const BYTE *v, int yPitch, int uvPitch, int w, int h, int sy)
{
    Frame f = {};
    f.type = ZVPT_I420;
    f.kind = PLANAR;
    f.width = w;
    f.height = h;
    f.plane[0] = (BYTE *)y;
    f.plane[1] = (BYTE *)u;
    f.plane[2] = (BYTE *)v;
    f.pitch[0] = yPitch;
    f.pitch[1] = f.pitch[2] = uvPitch;
    f.sx = 1;
    f.sy = sy;
    f.cw = (w + 1) / 2;
    f.ch = (h + sy) >> sy;
    f.bytes = 1;
    f.bits = 8;
    return f;
}

// dst pixel (x, y) from source pixel (x * stepX, y * stepY); with blend the
// luma of that row and the next are averaged.
HRESULT Reduce(const Frame &f, int stepX, int stepY, bool blend, BYTE *dst, int dstPitch, int selector,
               bool limited)
{
    if (!dst || !f.plane[0] || !f.plane[1] || !f.plane[2])
        return E_POINTER;
    if (f.width <= 0 || f.height <= 0)
        return E_INVALIDARG;
    int w = f.width / stepX, h = f.height / stepY;
    if (w <= 0 || h <= 0)
        return S_OK;
    Decode d;
    MakeDecode(&d, ZvYUV_ResolveMatrix(selector, f.width, f.height), limited, 8);
    DecodeRowFn row = PickDecodeRow(CpuWord(), 8);
    int32_t *buf = (int32_t *)malloc(sizeof(int32_t) * (4 * (size_t)f.width + 3 * (size_t)w + 8));
    if (!buf)
        return E_OUTOFMEMORY;
    int32_t *y = buf, *u = y + f.width, *v = u + f.width, *y2 = v + f.width;
    int32_t *ry = y2 + f.width, *ru = ry + w, *rv = ru + w;
    for (int r = 0; r < h; ++r) {
        int sr = r * stepY;
        FetchRow(f, sr, 0, f.width, y, u, v);
        if (blend && sr + 1 < f.height) {
            FetchRow(f, sr + 1, 0, f.width, y2, ru, rv);
            for (int i = 0; i < f.width; ++i)
                y[i] = (y[i] + y2[i] + 1) >> 1;
        }
        for (int i = 0; i < w; ++i) {
            ry[i] = y[i * stepX];
            ru[i] = u[i * stepX];
            rv[i] = v[i * stepX];
        }
        row(d, ry, ru, rv, w, dst + (LONG_PTR)r * dstPitch, false);
    }
    free(buf);
    return S_OK;
}

HRESULT Reduce420(const ZVYUV420SRC *s, int stepX, int stepY, bool blend, BYTE *dst, int dstPitch)
{
    if (!s)
        return E_POINTER;
    return Reduce(Planes8(s->y, s->u, s->v, s->yPitch, s->uvPitch, s->width, s->height, 1), stepX, stepY, blend,
                  dst, dstPitch, 0, true);
}

// Packed 4:2:2 rows as a frame of the given pitch.
Frame Packed8(const BYTE *p, int pitch, int w, int h)
{
    Frame f = {};
    f.type = ZVPT_UYVY;
    f.kind = PACKED8;
    f.width = w;
    f.height = h;
    f.plane[0] = (BYTE *)p;
    f.pitch[0] = pitch;
    f.sx = 1;
    f.cw = (w + 1) / 2;
    f.ch = h;
    f.bytes = 1;
    f.bits = 8;
    return f;
}

HRESULT PackedToRGB(const BYTE *src, int srcPitch, BYTE *dst, int dstPitch, int w, int h, int matrix, int bpp)
{
    if (!src || !dst)
        return E_POINTER;
    if (w <= 0 || h <= 0 || (w & 1))
        return E_INVALIDARG;
    Frame f = Packed8(src, srcPitch, w, h);
    Decode d;
    MakeDecode(&d, ZvYUV_ResolveMatrix(matrix, w, h), false, 8);
    DecodeRowFn row = PickDecodeRow(CpuWord(), 8);
    int32_t *buf = (int32_t *)malloc(sizeof(int32_t) * 3 * (size_t)w + 4 * (size_t)w);
    if (!buf)
        return E_OUTOFMEMORY;
    int32_t *y = buf, *u = y + w, *v = u + w;
    BYTE *tmp = (BYTE *)(v + w);
    for (int r = 0; r < h; ++r) {
        FetchRow(f, r, 0, w, y, u, v);
        BYTE *out = dst + (LONG_PTR)r * dstPitch;
        if (bpp == 4) {
            row(d, y, u, v, w, out, false);
            continue;
        }
        row(d, y, u, v, w, tmp, false);
        for (int i = 0; i < w; ++i)
            for (int k = 0; k < 3; ++k)
                out[3 * i + k] = tmp[4 * i + k];
    }
    free(buf);
    return S_OK;
}

HRESULT RGBToPacked(const BYTE *src, int srcPitch, BYTE *dst, int dstPitch, int w, int h, int matrix, int bpp)
{
    if (!src || !dst)
        return E_POINTER;
    if (w <= 0 || h <= 0 || (w & 1))
        return E_INVALIDARG;
    BITMAPINFOHEADER sh, dh;
    ZvVideo_InitBitmapInfo(&sh, w, -h, bpp * 8, 0, 0);
    ZvVideo_InitBitmapInfo(&dh, w, h, 16, ZVFOURCC('U', 'Y', 'V', 'Y'), 0);
    void *planes[3] = {dst, nullptr, nullptr};
    int pitches[3] = {dstPitch, 0, 0};
    ZVYUVSETTINGS s = {};
    s.selector = matrix;
    return ZvYUV_RGBToYUV(&sh, src, srcPitch, &dh, planes, pitches, &s);
}

} // namespace

} // namespace zvyuv

using namespace zvyuv;

ZVAPI HRESULT ZvYUV420ToRGBA(const ZVYUV420SRC *s, BYTE *dst, int dstPitch)
{
    return Reduce420(s, 1, 1, false, dst, dstPitch);
}
ZVAPI HRESULT ZvYUV420ToRGBA_Half(const ZVYUV420SRC *s, BYTE *dst, int dstPitch)
{
    return Reduce420(s, 2, 2, false, dst, dstPitch);
}
ZVAPI HRESULT ZvYUV420ToRGBA_HalfHorz(const ZVYUV420SRC *s, BYTE *dst, int dstPitch)
{
    return Reduce420(s, 2, 1, false, dst, dstPitch);
}
ZVAPI HRESULT ZvYUV420ToRGBA_Quarter(const ZVYUV420SRC *s, BYTE *dst, int dstPitch)
{
    return Reduce420(s, 4, 4, false, dst, dstPitch);
}
ZVAPI HRESULT ZvYUV420ToRGBA_Half_BlendFields(const ZVYUV420SRC *s, BYTE *dst, int dstPitch)
{
    return Reduce420(s, 2, 2, true, dst, dstPitch);
}
ZVAPI HRESULT ZvYUV420ToRGBA_Quarter_BlendFields(const ZVYUV420SRC *s, BYTE *dst, int dstPitch)
{
    return Reduce420(s, 4, 4, true, dst, dstPitch);
}
ZVAPI HRESULT ZvYUV420ToRGBA_QuarterHorz_HalfVert_BlendFields(const ZVYUV420SRC *s, BYTE *dst, int dstPitch)
{
    return Reduce420(s, 4, 2, true, dst, dstPitch);
}

ZVAPI HRESULT ZvYUV422PlanarToRGBA(const BYTE *y, const BYTE *u, const BYTE *v, int yPitch, int uvPitch, int width,
                                   int height, BYTE *dst, int dstPitch)
{
    return Reduce(Planes8(y, u, v, yPitch, uvPitch, width, height, 0), 1, 1, false, dst, dstPitch, 0, true);
}

ZVAPI HRESULT ZvUYVY2RGBA(const BYTE *src, int srcPitch, BYTE *dst, int dstPitch, int width, int height, int matrix)
{
    return PackedToRGB(src, srcPitch, dst, dstPitch, width, height, matrix, 4);
}
ZVAPI HRESULT ZvUYVY2RGB(const BYTE *src, int srcPitch, BYTE *dst, int dstPitch, int width, int height, int matrix)
{
    return PackedToRGB(src, srcPitch, dst, dstPitch, width, height, matrix, 3);
}
ZVAPI HRESULT ZvRGBA2UYVY(const BYTE *src, int srcPitch, BYTE *dst, int dstPitch, int width, int height, int matrix)
{
    return RGBToPacked(src, srcPitch, dst, dstPitch, width, height, matrix, 4);
}
ZVAPI HRESULT ZvRGB2UYVY(const BYTE *src, int srcPitch, BYTE *dst, int dstPitch, int width, int height, int matrix)
{
    return RGBToPacked(src, srcPitch, dst, dstPitch, width, height, matrix, 3);
}
