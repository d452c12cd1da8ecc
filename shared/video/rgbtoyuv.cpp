// 8-bit RGB frames to the YUV layouts.
#include "video/yuvrows.h"
#include <stdlib.h>

namespace zvyuv {

namespace {

struct Job {
    Frame dst;
    Encode enc;
    const BYTE *src;
    LONG_PTR srcStep;   // bytes from one top-down row to the next
    int bpp, ir, ib;    // bytes a pixel, offsets of red and blue
};

inline int32_t Clamp(int64_t v, int32_t maxv)
{
    return (int32_t)(v < 0 ? 0 : v > maxv ? maxv : v);
}

void RunGroups(void *ctx, int first, int end)
{
    const Job &j = *(const Job *)ctx;
    const Frame &f = j.dst;
    const Encode &e = j.enc;
    const int w = f.width, rows = 1 << f.sy, bx = 1 << f.sx, k = f.sx + f.sy;
    int32_t *buf = (int32_t *)malloc(sizeof(int32_t) * ((size_t)w + 2 * (size_t)(f.cw + 1)));
    if (!buf)
        return;
    int32_t *y = buf, *cu = buf + w, *cv = cu + f.cw + 1;
    for (int g = first; g < end; ++g) {
        int row0 = g << f.sy;
        // chroma of the block's sums, edges repeated
        for (int c = 0; c < f.cw; ++c) {
            int64_t sr = 0, sg = 0, sb = 0;
            for (int dy = 0; dy < rows; ++dy) {
                int r = row0 + dy < f.height ? row0 + dy : f.height - 1;
                const BYTE *p = j.src + j.srcStep * r;
                for (int dx = 0; dx < bx; ++dx) {
                    int x = (c << f.sx) + dx;
                    if (x >= w)
                        x = w - 1;
                    const BYTE *q = p + j.bpp * x;
                    sr += q[j.ir];
                    sg += q[1];
                    sb += q[j.ib];
                }
            }
            int64_t half = (int64_t)1 << (13 + k);
            cu[c] = Clamp(e.mid + ((e.kur * sr + e.kug * sg + e.kub * sb + half) >> (14 + k)), e.maxv);
            cv[c] = Clamp(e.mid + ((e.kvr * sr + e.kvg * sg + e.kvb * sb + half) >> (14 + k)), e.maxv);
        }
        for (int dy = 0; dy < rows && row0 + dy < f.height; ++dy) {
            const BYTE *p = j.src + j.srcStep * (row0 + dy);
            for (int x = 0; x < w; ++x) {
                const BYTE *q = p + j.bpp * x;
                y[x] = Clamp(e.yoff + (((int64_t)e.kyr * q[j.ir] + e.kyg * q[1] + e.kyb * q[j.ib] + 8192) >> 14),
                             e.maxv);
            }
            bool chromaRow = dy == 0 && (row0 >> f.sy) < f.ch;
            StoreRow(f, row0 + dy, y, chromaRow ? cu : nullptr, chromaRow ? cv : nullptr);
        }
    }
    free(buf);
}

} // namespace

} // namespace zvyuv

using namespace zvyuv;

ZVAPI HRESULT ZvYUV_RGBToYUV(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                             const BITMAPINFOHEADER *dst, void *const dstPlanes[3], const int dstPitches[3],
                             const ZVYUVSETTINGS *settings)
{
    if (!src || !dst)
        return E_POINTER;
    ZVPIXELTYPE st = ZvGetPixelType(src), dt = ZvGetPixelType(dst);
    switch (dt) {
    case ZVPT_YV24: case ZVPT_YV16: case ZVPT_YV12: case ZVPT_NV12: case ZVPT_I420: case ZVPT_P410:
    case ZVPT_P210: case ZVPT_P216: case ZVPT_P010: case ZVPT_V210: case ZVPT_YUYV: case ZVPT_UYVY:
        break;
    default:
        return dt >= 64 ? ZVERR_UNSUPPORTED_MEDIA : E_INVALIDARG;
    }
    if (st != ZVPT_BGR24 && st != ZVPT_BGRA32 && st != ZVPT_RGBA32)
        return ZVERR_UNSUPPORTED_MEDIA;
    ZVYUVSETTINGS def = {};
    const ZVYUVSETTINGS &s = settings ? *settings : def;
    Job j;
    const void *image = (dstPlanes && dstPlanes[0]) ? nullptr : (const BYTE *)dst + dst->biSize;
    if (!Describe(&j.dst, dst, (const void *const *)dstPlanes, dstPitches, image))
        return E_INVALIDARG;
    int sh = src->biHeight < 0 ? -src->biHeight : src->biHeight;
    if (src->biWidth != j.dst.width || sh != j.dst.height)
        return E_INVALIDARG;
    const BYTE *in = (const BYTE *)(srcPixels ? srcPixels : ZvDibPixels(src));
    LONG_PTR stride = srcStride ? srcStride : ZvDibStride(src);
    if (src->biHeight > 0) {
        in += (LONG_PTR)(sh - 1) * stride;
        stride = -stride;
    }
    j.src = in;
    j.srcStep = stride;
    j.bpp = st == ZVPT_BGR24 ? 3 : 4;
    j.ir = st == ZVPT_RGBA32 ? 0 : 2;
    j.ib = 2 - j.ir;
    MakeEncode(&j.enc, ZvYUV_ResolveMatrix(s.selector, j.dst.width, j.dst.height), s.limited && s.mode != 2,
               j.dst.bits);
    int groups = (j.dst.height + (1 << j.dst.sy) - 1) >> j.dst.sy;
    ForRanges(groups, s.threads, (LONGLONG)j.dst.width << j.dst.sy, RunGroups, &j);
    return S_OK;
}
