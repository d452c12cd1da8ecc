// YUV frames to 8-bit and float RGB frames.
#include "video/yuvrows.h"
#include <math.h>
#include <stdlib.h>
#include <string.h>

namespace zvyuv {

static inline BYTE Clamp8(int32_t v)
{
    return (BYTE)(v < 0 ? 0 : v > 255 ? 255 : v);
}

void DecodeRowC(const Decode &d, const int32_t *y, const int32_t *u, const int32_t *v, int n, BYTE *dst,
                bool rgbaOrder)
{
    const int32_t rnd = 1 << (d.shift - 1);
    const int ir = rgbaOrder ? 0 : 2, ib = rgbaOrder ? 2 : 0;
    if (d.eight) {
        for (int i = 0; i < n; ++i) {
            int32_t yt = (y[i] * d.ky8) >> 8, uu = u[i], vv = v[i];
            BYTE *p = dst + 4 * i;
            p[ir] = Clamp8((yt + ((vv * d.kr8) >> 8) + d.br8) >> 6);
            p[1] = Clamp8((yt - ((uu * d.kgu8) >> 8) - ((vv * d.kgv8) >> 8) + d.bg8) >> 6);
            p[ib] = Clamp8((yt + ((uu * d.kb8) >> 8) + d.bb8) >> 6);
            p[3] = 255;
        }
        return;
    }
    for (int i = 0; i < n; ++i) {
        int32_t ys = (y[i] - d.yoff) * d.cy + rnd, uu = u[i] - d.mid, vv = v[i] - d.mid;
        BYTE *p = dst + 4 * i;
        p[ir] = Clamp8((ys + d.crv * vv) >> d.shift);
        p[1] = Clamp8((ys + d.cgu * uu + d.cgv * vv) >> d.shift);
        p[ib] = Clamp8((ys + d.cbu * uu) >> d.shift);
        p[3] = 255;
    }
}

bool HasPairsBody(const Frame &f)
{
    switch (f.type) {
    case ZVPT_I420: case ZVPT_YV12: case ZVPT_YV16: case ZVPT_NV12: case ZVPT_UYVY: case ZVPT_YUYV:
        return true;
    }
    return false;
}

DecodeRowFn PickDecodeRow(DWORD cpuWord, int bits)
{
    if (bits == 8 && (cpuWord & 0x40))
        return DecodeRowSSE2;
    return DecodeRowC;
}

static void DecodeRowFloat(const Decode &d, const int32_t *y, const int32_t *u, const int32_t *v, int n,
                           float *dst, float gamma)
{
    for (int i = 0; i < n; ++i) {
        float ys = (float)(y[i] - d.yoff) * d.fy, uu = (float)(u[i] - d.mid), vv = (float)(v[i] - d.mid);
        float c[3] = {ys + d.frv * vv, ys + d.fgu * uu + d.fgv * vv, ys + d.fbu * uu};
        for (int k = 0; k < 3; ++k) {
            float x = c[k] < 0.f ? 0.f : c[k] > 1.f ? 1.f : c[k];
            dst[4 * i + k] = gamma != 1.f ? powf(x, gamma) : x;
        }
        dst[4 * i + 3] = 1.f;
    }
}

namespace {

struct Job {
    Frame src;
    Decode dec;
    DecodeRowFn row;
    BYTE *dst;
    LONG_PTR dstStep;   // bytes from one top-down row to the next
    int x0, y0, w;
    bool rgba, toFloat;
    float gamma;
    BYTE lut[256];
    bool useLut;
    int pairs;   // pixels the planes' own vector body may take from x0
    bool avx2;
};

// Row r from pixel done on: the SSE2 body while the chroma pairs last, then
// the plain one, then the gamma table.
void FinishRow(const Job &j, int r, BYTE *out, int done, int32_t *y, int32_t *u, int32_t *v)
{
    if (done < j.pairs)
        done += DecodePairsSSE2(j.dec, j.src, j.y0 + r, j.x0 + done, j.pairs - done, out + 4 * done, j.rgba);
    if (done < j.w) {
        FetchRow(j.src, j.y0 + r, j.x0 + done, j.w - done, y, u, v);
        j.row(j.dec, y, u, v, j.w - done, out + 4 * done, j.rgba);
    }
    if (j.useLut)
        for (int i = 0; i < 4 * j.w; ++i)
            if ((i & 3) != 3)
                out[i] = j.lut[out[i]];
}

void RunRows(void *ctx, int first, int end)
{
    const Job &j = *(const Job *)ctx;
    int32_t *buf = (int32_t *)malloc(3 * sizeof(int32_t) * (j.w + 8));
    if (!buf)
        return;
    int32_t *y = buf, *u = buf + j.w + 8, *v = u + j.w + 8;
    if (j.avx2 && !j.toFloat && j.src.kind == PACKED8) {
        // packed rows stand alone: one call takes them all
        int done = DecodePackedAVX2(j.dec, j.src, j.y0 + first, end - first, j.x0, j.pairs,
                                    j.dst + j.dstStep * first, j.dstStep, j.rgba);
        for (int r = first; r < end; ++r)
            FinishRow(j, r, j.dst + j.dstStep * r, done, y, u, v);
        free(buf);
        return;
    }
    for (int r = first; r < end; ++r) {
        BYTE *out = j.dst + j.dstStep * r;
        if (j.toFloat) {
            FetchRow(j.src, j.y0 + r, j.x0, j.w, y, u, v);
            DecodeRowFloat(j.dec, y, u, v, j.w, (float *)out, j.gamma);
            continue;
        }
        if (!j.avx2) {
            FinishRow(j, r, out, 0, y, u, v);
            continue;
        }
        // the two rows of a 4:2:0 chroma row share its terms when both are ours
        bool two = j.src.sy && j.src.kind != PACKED8 && !((j.y0 + r) & 1) && r + 1 < end;
        BYTE *out2 = two ? out + j.dstStep : nullptr;
        int done = DecodePairsAVX2(j.dec, j.src, j.y0 + r, j.x0, j.pairs, out, out2, j.rgba);
        FinishRow(j, r, out, done, y, u, v);
        if (two)
            FinishRow(j, ++r, out2, done, y, u, v);
    }
    free(buf);
}

} // namespace

} // namespace zvyuv

namespace zvyuv {

HRESULT PlanDecode(DecodePlan *p, const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride,
                   const BITMAPINFOHEADER *src, const void *const srcPlanes[3], const int srcPitches[3],
                   const RECT *rect, const ZVYUVSETTINGS *settings)
{
    if (!dst || !src)
        return E_POINTER;
    ZVPIXELTYPE dt = ZvGetPixelType(dst);
    ZVPIXELTYPE st = ZvGetPixelType(src);
    if (st < 64)
        return E_INVALIDARG;
    if (dt != ZVPT_BGRA32 && dt != ZVPT_RGBA32 && dt != ZVPT_RGBAF)
        return ZVERR_UNSUPPORTED_MEDIA;
    ZVYUVSETTINGS def = {};
    const ZVYUVSETTINGS &s = settings ? *settings : def;
    if (s.mode < 0 || s.mode > 3)
        return E_INVALIDARG;
    const void *image = (srcPlanes && srcPlanes[0]) ? nullptr : (const BYTE *)src + src->biSize;
    if (!Describe(&p->src, src, srcPlanes, srcPitches, image))
        return E_INVALIDARG;
    RECT r = {0, 0, p->src.width, p->src.height};
    if (rect) {
        r.left = rect->left > 0 ? rect->left : 0;
        r.top = rect->top > 0 ? rect->top : 0;
        r.right = rect->right < r.right ? rect->right : r.right;
        r.bottom = rect->bottom < r.bottom ? rect->bottom : r.bottom;
    }
    int dh = dst->biHeight < 0 ? -dst->biHeight : dst->biHeight;
    p->x0 = r.left;
    p->y0 = r.top;
    p->w = r.right - r.left < dst->biWidth ? r.right - r.left : dst->biWidth;
    p->h = r.bottom - r.top < dh ? r.bottom - r.top : dh;
    if (p->w <= 0 || p->h <= 0)
        return S_FALSE;
    BYTE *out = (BYTE *)(dstPixels ? dstPixels : ZvDibPixels(dst));
    LONG_PTR stride = dstStride ? dstStride : ZvDibStride(dst);
    // bottom-up rows: the top row is the last in memory
    if (dst->biHeight > 0) {
        out += (LONG_PTR)(dh - 1) * stride;
        stride = -stride;
    }
    p->dst = out;
    p->dstStep = stride;
    MakeDecode(&p->dec, ZvYUV_ResolveMatrix(s.selector, p->src.width, p->src.height), s.limited && s.mode != 2,
               p->src.bits);
    p->rgba = dt == ZVPT_RGBA32;
    p->toFloat = dt == ZVPT_RGBAF;
    p->gamma = ZvYUV_GammaRatio(s.srcGamma, s.dstGamma);
    return S_OK;
}

void GammaTable(double ratio, BYTE lut[256])
{
    for (int i = 0; i < 256; ++i)
        lut[i] = (BYTE)lround(255.0 * pow(i / 255.0, ratio));
}

} // namespace zvyuv

using namespace zvyuv;

ZVAPI HRESULT ZvYUV_YUVToRGB(const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride,
                             const BITMAPINFOHEADER *src, const void *const srcPlanes[3], const int srcPitches[3],
                             const RECT *rect, const ZVYUVSETTINGS *settings)
{
    Job *j = (Job *)calloc(1, sizeof(Job));
    if (!j)
        return E_OUTOFMEMORY;
    DecodePlan plan;
    HRESULT hr = PlanDecode(&plan, dst, dstPixels, dstStride, src, srcPlanes, srcPitches, rect, settings);
    if (hr != S_OK) {
        free(j);
        return FAILED(hr) ? hr : S_OK;
    }
    j->src = plan.src;
    j->dec = plan.dec;
    j->row = PickDecodeRow(CpuWord(), j->src.bits);
    if (j->row == DecodeRowSSE2 && HasPairsBody(j->src) && !(plan.x0 & 1)) {
        // pixels whose chroma pair is whole in the planes; the last rows of
        // an odd height, and the columns past the chroma, go the plain way
        int chromaPixels = (j->src.cw << j->src.sx) - plan.x0;
        j->pairs = plan.w < chromaPixels ? plan.w : chromaPixels;
        if (j->pairs < 0)
            j->pairs = 0;
        j->avx2 = UseAvx2(CpuWord());
    }
    j->dst = plan.dst;
    j->dstStep = plan.dstStep;
    j->x0 = plan.x0;
    j->y0 = plan.y0;
    j->w = plan.w;
    j->rgba = plan.rgba;
    j->toFloat = plan.toFloat;
    j->gamma = (float)plan.gamma;
    if (plan.gamma != 1.0 && !j->toFloat) {
        j->useLut = true;
        GammaTable(plan.gamma, j->lut);
    }
    ForRanges(plan.h, settings ? settings->threads : 0, plan.w, RunRows, j);
    free(j);
    return S_OK;
}
