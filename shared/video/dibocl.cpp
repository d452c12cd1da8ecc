// OpenCL forms of the frame operations (the copy family): red and blue
// swapped in place, for the types the plain form takes.
#include "video/dibrows.h"
#include "video/opencl.h"
#include <stdlib.h>
#include <string.h>

using namespace zvocl;

namespace {

const char *const kNames[] = {"k3b07d5e2"};

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
)CL";

Family g_copy;

} // namespace

ZVAPI HRESULT DibCopy_OpenCL_Initialize(const void *context, ZVOPENCLLOG log)
{
    (void)context;
    Lock();
    HRESULT hr = Build(&g_copy, kSource, kNames, 1, log);
    Unlock();
    return hr;
}

ZVAPI HRESULT DibCopy_OpenCL_Shutdown()
{
    Lock();
    Release(&g_copy);
    Unlock();
    return S_OK;
}

ZVAPI HRESULT ZvDibSwapRB_OCL(const BITMAPINFOHEADER *frame, void *pixels, int stride)
{
    if (!frame)
        return E_INVALIDARG;
    ZVPIXELTYPE t = ZvGetPixelType(frame);
    int size = t == 27 || t == 28 || t == 29 ? 1 : t == 31 ? 2 : t == 32 ? 4 : 0;
    if (!size)
        return E_NOTIMPL;
    BYTE *top;
    LONG_PTR step;
    if (!zvdib::Rows(frame, pixels, stride, &top, &step))
        return E_INVALIDARG;
    int w = frame->biWidth, h = abs(frame->biHeight), bpp = zvdib::BitsOf(t) / 8;
    size_t row = (size_t)w * bpp, bytes = row * h;
    if (!bytes)
        return S_OK;
    BYTE *block = (BYTE *)malloc(bytes);
    if (!block)
        return E_OUTOFMEMORY;
    for (int r = 0; r < h; ++r)
        memcpy(block + row * r, top + step * r, row);
    Lock();
    HRESULT hr = HRESULT_FROM_WIN32(ERROR_INVALID_STATE);
    if (g_copy.program) {
        Buffers b;
        cl_mem m = b.Add(0, bytes, block);
        const Arg args[] = {{sizeof(cl_mem), &m}, {4, &w}, {4, &bpp}, {4, &size}};
        hr = m ? Run(g_copy.kernels[0], args, 4, (size_t)w, (size_t)h) : E_OUTOFMEMORY;
        if (SUCCEEDED(hr))
            hr = Read(m, bytes, block);
    }
    Unlock();
    for (int r = 0; SUCCEEDED(hr) && r < h; ++r)
        memcpy(top + step * r, block + row * r, row);
    free(block);
    return hr;
}
