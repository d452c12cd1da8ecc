// OpenCL forms of the frame operations (the copy family): red and blue
// swapped, and the fade, in place, for the types the plain forms take.
#include "video/dibrows.h"
#include "video/opencl.h"
#include <stdlib.h>
#include <string.h>

using namespace zvocl;

namespace {

const char *const kNames[] = {"k3b07d5e2", "k8d16c4f0"};

const char kSource[] = R"CL(
/* rows packed tightly: w pixels of bpp bytes; channels of size bytes */
__kernel void k3b07d5e2(__global uchar *p, int w, int bpp, int size)
{
    int x = get_global_id(0), r = get_global_id(1);
    if (x >= w)
        return;
    __global uchar *q = p + ((long)r * w + x) * bpp;
    for (int i = 0; i < size; ++i) {
        uchar t = q[i];
        q[i] = q[2 * size + i];
        q[2 * size + i] = t;
    }
}

/* the plain form's single operations in its order, none fused */
#pragma OPENCL FP_CONTRACT OFF
__kernel void k8d16c4f0(__global uchar *p, int w, int channels, int isFloat, int a, float f, uchar4 c4,
                        float4 fc4)
{
    uchar c[4] = {c4.s0, c4.s1, c4.s2, c4.s3};
    float fc[4] = {fc4.s0, fc4.s1, fc4.s2, fc4.s3};
    int x = get_global_id(0), r = get_global_id(1);
    if (x >= w)
        return;
    long at = (long)r * w + x;
    for (int ch = 0; ch < channels; ++ch) {
        if (isFloat) {
            __global float *q = (__global float *)(p + 16 * at) + ch;
            *q += (fc[ch] - *q) * f;
        } else {
            __global uchar *q = p + 4 * at + ch;
            *q = (uchar)(*q + (((c[ch] - *q) * a + 32768) >> 16));
        }
    }
}
)CL";

Family g_copy;

// Pixels x0 .. x0 + w - 1 of rows y0 .. y0 + h - 1 through kernel k in place:
// they go packed in a block, the kernel's first argument, then w, then args.
HRESULT InPlace(BYTE *top, LONG_PTR step, int x0, int y0, int w, int h, int bpp, int kernel, const Arg *args,
                int count)
{
    size_t row = (size_t)w * bpp, bytes = row * h;
    if (!bytes)
        return S_OK;
    BYTE *block = (BYTE *)malloc(bytes);
    if (!block)
        return E_OUTOFMEMORY;
    BYTE *first = top + step * y0 + (LONG_PTR)x0 * bpp;
    for (int r = 0; r < h; ++r)
        memcpy(block + row * r, first + step * r, row);
    Lock();
    HRESULT hr = HRESULT_FROM_WIN32(ERROR_INVALID_STATE);
    if (g_copy.program) {
        Buffers b;
        cl_mem m = b.Add(0, bytes, block);
        Arg all[10] = {{sizeof(cl_mem), &m}, {4, &w}};
        for (int i = 0; i < count && i < 8; ++i)
            all[2 + i] = args[i];
        hr = m ? Run(g_copy.kernels[kernel], all, 2 + count, (size_t)w, (size_t)h) : E_OUTOFMEMORY;
        if (SUCCEEDED(hr))
            hr = Read(m, bytes, block);
    }
    Unlock();
    for (int r = 0; SUCCEEDED(hr) && r < h; ++r)
        memcpy(first + step * r, block + row * r, row);
    free(block);
    return hr;
}

} // namespace

ZVAPI HRESULT DibCopy_OpenCL_Initialize(const void *, ZVOPENCLLOG log)
{
    return Start(&g_copy, kSource, kNames, (int)(sizeof kNames / sizeof kNames[0]), log);
}

ZVAPI HRESULT DibCopy_OpenCL_Shutdown()
{
    return Stop(&g_copy);
}

ZVAPI HRESULT ZvDibSwapRB_OCL(const BITMAPINFOHEADER *frame, void *pixels, int stride)
{
    if (!frame)
        return E_INVALIDARG;
    ZVPIXELTYPE t = ZvGetPixelType(frame);
    int size = zvdib::SwapSize(t);
    if (!size)
        return E_NOTIMPL;
    BYTE *top;
    LONG_PTR step;
    if (!zvdib::Rows(frame, pixels, stride, &top, &step))
        return E_INVALIDARG;
    int bpp = zvdib::BitsOf(t) / 8;
    const Arg args[] = {{4, &bpp}, {4, &size}};
    return InPlace(top, step, 0, 0, frame->biWidth, abs(frame->biHeight), bpp, 0, args, 2);
}

ZVAPI HRESULT ZvDibFadeToColorOCL(const BITMAPINFOHEADER *frame, void *pixels, const RECT *rect, DWORD color,
                                  DWORD flags, float amount)
{
    zvdib::Fade k;
    HRESULT hr = zvdib::MakeFade(&k, frame, color, flags, amount);
    if (FAILED(hr))
        return hr;
    BYTE *top;
    LONG_PTR step;
    RECT r;
    if (!zvdib::Rows(frame, pixels, 0, &top, &step))
        return E_INVALIDARG;
    if (!zvdib::ClipRect(frame, rect, &r))
        return S_OK;
    int isFloat = k.t == 32, bpp = isFloat ? 16 : 4;
    const Arg args[] = {{4, &k.channels}, {4, &isFloat}, {4, &k.a}, {4, &k.f}, {4, k.c}, {16, k.fc}};
    return InPlace(top, step, r.left, r.top, r.right - r.left, r.bottom - r.top, bpp, 1, args, 6);
}
