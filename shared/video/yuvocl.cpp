// OpenCL forms of the YUV conversions for the 8-bit layouts: the plain forms'
// integer arithmetic, one work item a pixel (decode) or a 2x2 block (4:2:0
// encode), so that the results equal theirs bit for bit.
#include "video/opencl.h"
#include "video/yuvrows.h"
#include <stdlib.h>
#include <string.h>

using namespace zvocl;

namespace {

// Kernel names are short codes; they only find the kernels in the program.
const char *const kNames[] = {"k6c1f93d2", "k2e84a07b"};

const char kSource[] = R"CL(
enum { PACKED8 = 0, PLANAR = 3, SEMIPLANAR = 4 };
int clampb(int v) { return v < 0 ? 0 : v > 255 ? 255 : v; }

/* k: mid ky kr kgu kgv kb br bg bb (the 8-bit terms); g: kind sx sy cw ch width lumaFirst
   x0 y0 w rgba useLut */
__kernel void k6c1f93d2(__global const uchar *p0, __global const uchar *p1, __global const uchar *p2,
                        int pitch0, int pitch1, int pitch2, __constant int *k, __constant int *g,
                        __constant uchar *lut, __global uchar *out)
{
    int x = get_global_id(0), r = get_global_id(1);
    if (x >= g[9])
        return;
    int kind = g[0], px = g[7] + x, row = g[8] + r, mid = k[0];
    int Y, U, V;
    if (kind == PACKED8) {
        int iy = g[6] ? 0 : 1, iu = g[6] ? 1 : 0, iv = g[6] ? 3 : 2, kk = px >> 1;
        __global const uchar *q = p0 + row * pitch0 + 4 * kk;
        if (kk < g[5] / 2) {
            Y = q[iy + 2 * (px & 1)];
            U = q[iu];
            V = q[iv];
        } else {
            Y = q[iy];
            U = q[iu];
            V = kk > 0 ? q[iv - 4] : mid;
        }
    } else {
        Y = p0[row * pitch0 + px];
        int crow = row >> g[2];
        if (crow >= g[4])
            crow = g[4] - 1;
        if (g[3] <= 0 || crow < 0) {
            U = V = mid;
        } else {
            int c = px >> g[1];
            if (c >= g[3])
                c = g[3] - 1;
            if (kind == SEMIPLANAR) {
                U = p1[crow * pitch1 + 2 * c];
                V = p1[crow * pitch1 + 2 * c + 1];
            } else {
                U = p1[crow * pitch1 + c];
                V = p2[crow * pitch2 + c];
            }
        }
    }
    int yt = (Y * k[1]) >> 8;
    int red = clampb((yt + ((V * k[2]) >> 8) + k[6]) >> 6);
    int green = clampb((yt - ((U * k[3]) >> 8) - ((V * k[4]) >> 8) + k[7]) >> 6);
    int blue = clampb((yt + ((U * k[5]) >> 8) + k[8]) >> 6);
    if (g[11]) {
        red = lut[red];
        green = lut[green];
        blue = lut[blue];
    }
    __global uchar *o = out + 4 * (r * g[9] + x);
    o[0] = (uchar)(g[10] ? red : blue);
    o[1] = (uchar)green;
    o[2] = (uchar)(g[10] ? blue : red);
    o[3] = 255;
}

/* e: kyr kyg kyb kur kug kub kvr kvg kvb yoff mid maxv k8r k8g k8b; g: width height cw ch
   bpp ir ib srcPitch yPitch cPitch semiplanar */
__kernel void k2e84a07b(__global const uchar *src, __constant int *e, __constant int *g,
                        __global uchar *py, __global uchar *pu, __global uchar *pv)
{
    int c = get_global_id(0), grp = get_global_id(1);
    int w = g[0], h = g[1], bpp = g[4], ir = g[5], ib = g[6];
    if (2 * c >= w && c >= g[2])
        return;
    long sr = 0, sg = 0, sb = 0;
    for (int dy = 0; dy < 2; ++dy) {
        int row = 2 * grp + dy < h ? 2 * grp + dy : h - 1;
        for (int dx = 0; dx < 2; ++dx) {
            int x = 2 * c + dx < w ? 2 * c + dx : w - 1;
            __global const uchar *q = src + (long)row * g[7] + bpp * x;
            sr += q[ir];
            sg += q[1];
            sb += q[ib];
            // each pixel's luma once: by the block that holds it
            if (2 * grp + dy < h && 2 * c + dx < w) {
                long v = (e[12] * q[ir] + e[13] * q[1] + e[14] * q[ib] + 128 + (e[9] << 8)) >> 8;
                py[(long)(2 * grp + dy) * g[8] + 2 * c + dx] = (uchar)(v < 0 ? 0 : v > e[11] ? e[11] : v);
            }
        }
    }
    if (c >= g[2] || grp >= g[3])
        return;
    long u = e[10] + ((e[3] * sr + e[4] * sg + e[5] * sb + (1 << 15)) >> 16);
    long v = e[10] + ((e[6] * sr + e[7] * sg + e[8] * sb + (1 << 15)) >> 16);
    int step = g[10] ? 2 : 1;
    pu[(long)grp * g[9] + step * c] = (uchar)(u < 0 ? 0 : u > e[11] ? e[11] : u);
    pv[(long)grp * g[9] + step * c + (g[10] ? 1 : 0)] = (uchar)(v < 0 ? 0 : v > e[11] ? e[11] : v);
}
)CL";

Family g_yuv;

HRESULT Decode(const zvyuv::DecodePlan &p)
{
    const zvyuv::Frame &f = p.src;
    if (f.bytes != 1 || (f.kind != zvyuv::PACKED8 && f.kind != zvyuv::PLANAR && f.kind != zvyuv::SEMIPLANAR) ||
        p.toFloat)
        return ZVERR_UNSUPPORTED_MEDIA;
    for (int i = 0; i < 3; ++i)
        if (f.plane[i] && f.pitch[i] < 0)
            return E_INVALIDARG;
    const zvyuv::Decode &d = p.dec;
    int k[9] = {d.mid, d.ky8, d.kr8, d.kgu8, d.kgv8, d.kb8, d.br8, d.bg8, d.bb8};
    int g[12] = {f.kind, f.sx, f.sy, f.cw, f.ch, f.width, f.lumaFirst, p.x0, p.y0, p.w, p.rgba, p.gamma != 1.0};
    BYTE lut[256];
    zvyuv::GammaTable(p.gamma, lut);
    // planes as the kernel reads them: luma or packed, then U, then V
    int iu = f.vFirst ? 2 : 1, iv = f.vFirst ? 1 : 2;
    bool planar = f.kind == zvyuv::PLANAR, semi = f.kind == zvyuv::SEMIPLANAR;
    int pitch[3] = {f.pitch[0], planar || semi ? f.pitch[iu] : 0, planar ? f.pitch[iv] : 0};
    Buffers b;
    cl_mem m0 = b.Add(CL_MEM_READ_ONLY, (size_t)f.pitch[0] * f.height, f.plane[0]);
    cl_mem m1 = planar || semi ? b.Add(CL_MEM_READ_ONLY, (size_t)pitch[1] * f.ch, f.plane[iu]) : m0;
    cl_mem m2 = planar ? b.Add(CL_MEM_READ_ONLY, (size_t)pitch[2] * f.ch, f.plane[iv]) : m0;
    cl_mem mk = b.Add(CL_MEM_READ_ONLY, sizeof(k), k), mg = b.Add(CL_MEM_READ_ONLY, sizeof(g), g);
    cl_mem ml = b.Add(CL_MEM_READ_ONLY, sizeof(lut), lut);
    size_t outBytes = (size_t)4 * p.w * p.h;
    cl_mem mo = b.Add(CL_MEM_WRITE_ONLY, outBytes, nullptr);
    if (!m0 || !m1 || !m2 || !mk || !mg || !ml || !mo)
        return E_OUTOFMEMORY;
    BYTE *out = (BYTE *)malloc(outBytes);
    if (!out)
        return E_OUTOFMEMORY;
    const Arg args[] = {{sizeof(cl_mem), &m0}, {sizeof(cl_mem), &m1}, {sizeof(cl_mem), &m2}, {4, &pitch[0]},
                        {4, &pitch[1]},         {4, &pitch[2]},         {sizeof(cl_mem), &mk}, {sizeof(cl_mem), &mg},
                        {sizeof(cl_mem), &ml}, {sizeof(cl_mem), &mo}};
    HRESULT hr = Run(g_yuv.kernels[0], args, 10, (size_t)p.w, (size_t)p.h);
    if (SUCCEEDED(hr))
        hr = Read(mo, outBytes, out);
    for (int r = 0; SUCCEEDED(hr) && r < p.h; ++r)
        memcpy(p.dst + p.dstStep * r, out + (size_t)4 * p.w * r, (size_t)4 * p.w);
    free(out);
    return hr;
}

HRESULT Encode(const zvyuv::EncodePlan &p)
{
    const zvyuv::Frame &f = p.dst;
    if (f.bytes != 1 || f.sx != 1 || f.sy != 1 || (f.kind != zvyuv::PLANAR && f.kind != zvyuv::SEMIPLANAR))
        return ZVERR_UNSUPPORTED_MEDIA;
    bool semi = f.kind == zvyuv::SEMIPLANAR;
    int iu = f.vFirst ? 2 : 1, iv = f.vFirst ? 1 : 2;
    if (f.pitch[0] < 0 || f.pitch[1] < 0 || (!semi && f.pitch[2] < 0) || (!semi && f.pitch[iu] != f.pitch[iv]))
        return E_INVALIDARG;
    // the source rows top-down in one block, whatever their order in memory
    size_t rowBytes = (size_t)p.bpp * f.width, srcBytes = rowBytes * f.height;
    BYTE *src = (BYTE *)malloc(srcBytes);
    if (!src)
        return E_OUTOFMEMORY;
    for (int r = 0; r < f.height; ++r)
        memcpy(src + rowBytes * r, p.src + p.srcStep * r, rowBytes);
    const zvyuv::Encode &c = p.enc;
    int e[15] = {c.kyr, c.kyg, c.kyb, c.kur, c.kug, c.kub, c.kvr, c.kvg, c.kvb, c.yoff, c.mid, c.maxv,
                 c.k8r, c.k8g, c.k8b};
    int g[11] = {f.width, f.height, f.cw, f.ch, p.bpp, p.ir, p.ib, (int)rowBytes, f.pitch[0], f.pitch[1], semi};
    size_t yBytes = (size_t)f.pitch[0] * f.height, cBytes = (size_t)f.pitch[1] * f.ch;
    Buffers b;
    cl_mem ms = b.Add(CL_MEM_READ_ONLY, srcBytes, src);
    free(src);
    cl_mem me = b.Add(CL_MEM_READ_ONLY, sizeof(e), e), mg = b.Add(CL_MEM_READ_ONLY, sizeof(g), g);
    // the planes start from their present bytes: pitch padding stays as it was
    cl_mem my = b.Add(0, yBytes, f.plane[0]);
    cl_mem mu = b.Add(0, cBytes, f.plane[semi ? 1 : iu]);
    cl_mem mv = semi ? mu : b.Add(0, cBytes, f.plane[iv]);
    if (!ms || !me || !mg || !my || !mu || !mv)
        return E_OUTOFMEMORY;
    const Arg args[] = {{sizeof(cl_mem), &ms}, {sizeof(cl_mem), &me}, {sizeof(cl_mem), &mg},
                        {sizeof(cl_mem), &my}, {sizeof(cl_mem), &mu}, {sizeof(cl_mem), &mv}};
    int blocksAcross = (f.width + 1) / 2 > f.cw ? (f.width + 1) / 2 : f.cw;
    HRESULT hr = Run(g_yuv.kernels[1], args, 6, (size_t)blocksAcross, (size_t)(f.height + 1) / 2);
    if (SUCCEEDED(hr))
        hr = Read(my, yBytes, f.plane[0]);
    if (SUCCEEDED(hr) && cBytes)
        hr = Read(mu, cBytes, f.plane[semi ? 1 : iu]);
    if (SUCCEEDED(hr) && cBytes && !semi)
        hr = Read(mv, cBytes, f.plane[iv]);
    return hr;
}

} // namespace

// the context argument is reserved: the shared context serves every family
ZVAPI HRESULT YUV_OpenCL_Initialize(const void *, ZVOPENCLLOG log)
{
    const char *sources[] = {kSource};
    return Start(&g_yuv, sources, 1, kNames, (int)(sizeof kNames / sizeof kNames[0]), log);
}

ZVAPI HRESULT YUV_OpenCL_Shutdown()
{
    return Stop(&g_yuv);
}

ZVAPI HRESULT ZvYUV_YUVToRGB_OCL(const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride,
                                 const BITMAPINFOHEADER *src, const void *const srcPlanes[3],
                                 const int srcPitches[3], const RECT *rect, const ZVYUVSETTINGS *settings)
{
    zvyuv::DecodePlan plan;
    HRESULT hr = zvyuv::PlanDecode(&plan, dst, dstPixels, dstStride, src, srcPlanes, srcPitches, rect, settings);
    if (hr != S_OK)
        return FAILED(hr) ? hr : S_OK;
    Lock();
    hr = g_yuv.program ? Decode(plan) : HRESULT_FROM_WIN32(ERROR_INVALID_STATE);
    Unlock();
    return hr;
}

ZVAPI HRESULT ZvYUV_RGBToYUV_OCL(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                                 const BITMAPINFOHEADER *dst, void *const dstPlanes[3], const int dstPitches[3],
                                 const ZVYUVSETTINGS *settings)
{
    zvyuv::EncodePlan plan;
    HRESULT hr = zvyuv::PlanEncode(&plan, src, srcPixels, srcStride, dst, dstPlanes, dstPitches, settings);
    if (FAILED(hr))
        return hr;
    Lock();
    hr = g_yuv.program ? Encode(plan) : HRESULT_FROM_WIN32(ERROR_INVALID_STATE);
    Unlock();
    return hr;
}
