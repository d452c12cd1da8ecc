// 8-bit RGB frames to the YUV layouts.
#include "video/yuvrows.h"
#include <initializer_list>
#include <stdlib.h>

namespace zvyuv {

namespace {

struct Job : EncodePlan {
    bool vector;        // 8-bit 4:2:0 planes from 32-bit pixels: the SSE2 body
    bool avx2;          // and the AVX2 one ahead of it
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
                y[x] = f.bits == 8 ? Luma8(e, q[j.ir], q[1], q[j.ib])
                                   : Clamp(e.yoff + (((int64_t)e.kyr * q[j.ir] + e.kyg * q[1] + e.kyb * q[j.ib] +
                                                      8192) >> 14),
                                           e.maxv);
            }
            bool chromaRow = dy == 0 && (row0 >> f.sy) < f.ch;
            StoreRow(f, row0 + dy, y, chromaRow ? cu : nullptr, chromaRow ? cv : nullptr);
        }
    }
    free(buf);
}

// 8-bit 4:2:0 planes: the vector body takes the head of each row pair, the
// plain sums below the rest, written straight into the planes.
void RunGroupsVector(void *ctx, int first, int end)
{
    const Job &j = *(const Job *)ctx;
    const Frame &f = j.dst;
    const Encode &e = j.enc;
    const int w = f.width;
    const bool nv = f.kind == SEMIPLANAR;
    const int n = 2 * f.cw < w ? 2 * f.cw : w;
    BYTE scratch[2][64];
    // the groups with two rows and chroma: one call of the AVX2 body
    int full = f.height / 2 < f.ch ? f.height / 2 : f.ch, avx = 0;
    full = full < end ? full : end;
    if (j.avx2 && first < full) {
        const int iu = nv ? 1 : f.vFirst ? 2 : 1, iv = nv ? 1 : f.vFirst ? 1 : 2;
        Planes420 out = {f.plane[0] + (LONG_PTR)2 * first * f.pitch[0],
                         f.plane[iu] + (LONG_PTR)first * f.pitch[iu],
                         f.plane[iv] + (LONG_PTR)first * f.pitch[iv] + (nv ? 1 : 0),
                         f.pitch[0], f.pitch[iu], f.pitch[iv], nv ? 2 : 1};
        avx = EncodeRows420AVX2(e, j.src + j.srcStep * 2 * first, j.srcStep, full - first, n, j.ir == 0, out);
    }
    for (int g = first; g < end; ++g) {
        int row0 = 2 * g, row1 = row0 + 1 < f.height ? row0 + 1 : row0;
        const BYTE *s0 = j.src + j.srcStep * row0, *s1 = j.src + j.srcStep * row1;
        BYTE *y0 = f.plane[0] + (LONG_PTR)row0 * f.pitch[0];
        BYTE *y1 = row1 != row0 ? f.plane[0] + (LONG_PTR)row1 * f.pitch[0] : nullptr;
        bool chroma = g < f.ch;
        BYTE *u, *v;
        if (nv) {
            u = chroma ? f.plane[1] + (LONG_PTR)g * f.pitch[1] : scratch[0];
            v = u + 1;
        } else {
            u = chroma ? f.plane[f.vFirst ? 2 : 1] + (LONG_PTR)g * f.pitch[f.vFirst ? 2 : 1] : scratch[0];
            v = chroma ? f.plane[f.vFirst ? 1 : 2] + (LONG_PTR)g * f.pitch[f.vFirst ? 1 : 2] : scratch[1];
        }
        int done = g < full ? avx : 0;
        if (chroma) {
            // chroma bytes of the pixels done: pairs interleaved, or a plane each
            int c = nv ? done : done / 2;
            if (done + 8 <= n)
                done += EncodeRows420SSE2(e, s0 + 4 * done, s1 + 4 * done, n - done, j.ir == 0, y0 + done,
                                          y1 ? y1 + done : nullptr, u + c, v + c, nv ? 2 : 1);
        }
        for (int r = 0; r < 2; ++r) {
            BYTE *yo = r ? y1 : y0;
            const BYTE *p = r ? s1 : s0;
            for (int x = done; yo && x < w; ++x) {
                const BYTE *q = p + 4 * x;
                yo[x] = (BYTE)Luma8(e, q[j.ir], q[1], q[j.ib]);
            }
        }
        for (int c = done / 2; chroma && c < f.cw; ++c) {
            int64_t sr = 0, sg = 0, sb = 0;
            for (const BYTE *p : {s0, s1})
                for (int dx = 0; dx < 2; ++dx) {
                    int x = 2 * c + dx < w ? 2 * c + dx : w - 1;
                    sr += p[4 * x + j.ir];
                    sg += p[4 * x + 1];
                    sb += p[4 * x + j.ib];
                }
            int step = nv ? 2 : 1;
            u[c * step] = (BYTE)Clamp(e.mid + ((e.kur * sr + e.kug * sg + e.kub * sb + (1 << 15)) >> 16), e.maxv);
            v[c * step] = (BYTE)Clamp(e.mid + ((e.kvr * sr + e.kvg * sg + e.kvb * sb + (1 << 15)) >> 16), e.maxv);
        }
    }
}

} // namespace

} // namespace zvyuv

namespace zvyuv {

HRESULT PlanEncode(EncodePlan *p, const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
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
    const void *image = (dstPlanes && dstPlanes[0]) ? nullptr : (const BYTE *)dst + dst->biSize;
    if (!Describe(&p->dst, dst, (const void *const *)dstPlanes, dstPitches, image))
        return E_INVALIDARG;
    int sh = src->biHeight < 0 ? -src->biHeight : src->biHeight;
    if (src->biWidth != p->dst.width || sh != p->dst.height)
        return E_INVALIDARG;
    const BYTE *in = (const BYTE *)(srcPixels ? srcPixels : ZvDibPixels(src));
    LONG_PTR stride = srcStride ? srcStride : ZvDibStride(src);
    if (src->biHeight > 0) {
        in += (LONG_PTR)(sh - 1) * stride;
        stride = -stride;
    }
    p->src = in;
    p->srcStep = stride;
    p->bpp = st == ZVPT_BGR24 ? 3 : 4;
    p->ir = st == ZVPT_RGBA32 ? 0 : 2;
    p->ib = 2 - p->ir;
    MakeEncode(&p->enc, ZvYUV_ResolveMatrix(s.selector, p->dst.width, p->dst.height), s.limited && s.mode != 2,
               p->dst.bits);
    return S_OK;
}

} // namespace zvyuv

using namespace zvyuv;

ZVAPI HRESULT ZvYUV_RGBToYUV(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                             const BITMAPINFOHEADER *dst, void *const dstPlanes[3], const int dstPitches[3],
                             const ZVYUVSETTINGS *settings)
{
    Job j;
    HRESULT hr = PlanEncode(&j, src, srcPixels, srcStride, dst, dstPlanes, dstPitches, settings);
    if (FAILED(hr))
        return hr;
    ZVPIXELTYPE dt = j.dst.type;
    j.vector = j.bpp == 4 && j.dst.bits == 8 && (CpuWord() & 0x40) &&
               (dt == ZVPT_I420 || dt == ZVPT_YV12 || dt == ZVPT_NV12);
    j.avx2 = j.vector && UseAvx2(CpuWord());
    int groups = (j.dst.height + (1 << j.dst.sy) - 1) >> j.dst.sy;
    ForRanges(groups, settings ? settings->threads : 0, (LONGLONG)j.dst.width << j.dst.sy,
              j.vector ? RunGroupsVector : RunGroups, &j);
    return S_OK;
}
