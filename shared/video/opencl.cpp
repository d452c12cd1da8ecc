// The OpenCL library, loaded at the first family's start, and the context and
// queue all families share on the first device of the first platform.
#include "video/opencl.h"
#include "zvlog.h"
#include <stdlib.h>
#include <string.h>

namespace zvocl {

namespace {

CRITICAL_SECTION g_lock;
INIT_ONCE g_lockOnce = INIT_ONCE_STATIC_INIT;
HMODULE g_dll;
Api g_api;
cl_context g_context;
cl_command_queue g_queue;
cl_device_id g_device;
int g_families;

BOOL CALLBACK InitLock(PINIT_ONCE, PVOID, PVOID *)
{
    InitializeCriticalSection(&g_lock);
    return TRUE;
}

HRESULT LoadApi()
{
    if (g_dll)
        return S_OK;
    // a name in the environment stands in for the library (for checks)
    wchar_t name[MAX_PATH] = L"opencl.dll";
    GetEnvironmentVariableW(L"ZV_OPENCL_DLL", name, MAX_PATH);
    HMODULE dll = LoadLibraryW(name);
    if (!dll)
        return HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
    struct Entry {
        void *slot;
        const char *name;
    } entries[] = {
        {&g_api.GetPlatformIDs, "clGetPlatformIDs"}, {&g_api.GetDeviceIDs, "clGetDeviceIDs"},
        {&g_api.CreateContext, "clCreateContext"}, {&g_api.CreateCommandQueue, "clCreateCommandQueue"},
        {&g_api.CreateProgramWithSource, "clCreateProgramWithSource"}, {&g_api.BuildProgram, "clBuildProgram"},
        {&g_api.GetProgramBuildInfo, "clGetProgramBuildInfo"}, {&g_api.CreateKernel, "clCreateKernel"},
        {&g_api.SetKernelArg, "clSetKernelArg"}, {&g_api.CreateBuffer, "clCreateBuffer"},
        {&g_api.EnqueueNDRangeKernel, "clEnqueueNDRangeKernel"}, {&g_api.EnqueueReadBuffer, "clEnqueueReadBuffer"},
        {&g_api.ReleaseMemObject, "clReleaseMemObject"}, {&g_api.ReleaseKernel, "clReleaseKernel"},
        {&g_api.ReleaseProgram, "clReleaseProgram"}, {&g_api.ReleaseCommandQueue, "clReleaseCommandQueue"},
        {&g_api.ReleaseContext, "clReleaseContext"},
    };
    for (const Entry &e : entries) {
        FARPROC p = GetProcAddress(dll, e.name);
        if (!p) {
            FreeLibrary(dll);
            return ZVERR_INIT_FAILED;
        }
        memcpy(e.slot, &p, sizeof(p));
    }
    g_dll = dll;
    return S_OK;
}

HRESULT OpenContext()
{
    if (g_context)
        return S_OK;
    cl_platform_id platforms[8];
    cl_uint np = 0;
    if (g_api.GetPlatformIDs(8, platforms, &np) != 0 || np == 0)
        return ZVERR_INIT_FAILED;
    for (cl_uint i = 0; i < np && !g_context; ++i) {
        cl_uint nd = 0;
        if (g_api.GetDeviceIDs(platforms[i], CL_DEVICE_TYPE_ALL, 1, &g_device, &nd) != 0 || nd == 0)
            continue;
        cl_int err = 0;
        g_context = g_api.CreateContext(nullptr, 1, &g_device, nullptr, nullptr, &err);
    }
    if (!g_context)
        return ZVERR_INIT_FAILED;
    cl_int err = 0;
    g_queue = g_api.CreateCommandQueue(g_context, g_device, 0, &err);
    if (!g_queue) {
        g_api.ReleaseContext(g_context);
        g_context = nullptr;
        return ZVERR_INIT_FAILED;
    }
    return S_OK;
}

void Drop(Family *f)
{
    for (int i = 0; i < f->count; ++i)
        g_api.ReleaseKernel(f->kernels[i]);
    if (f->program)
        g_api.ReleaseProgram(f->program);
    memset(f, 0, sizeof(*f));
}

void CloseIfUnused()
{
    if (g_families > 0 || !g_context)
        return;
    g_api.ReleaseCommandQueue(g_queue);
    g_api.ReleaseContext(g_context);
    g_queue = nullptr;
    g_context = nullptr;
}

} // namespace

void Lock()
{
    InitOnceExecuteOnce(&g_lockOnce, InitLock, nullptr, nullptr);
    EnterCriticalSection(&g_lock);
}

void Unlock()
{
    LeaveCriticalSection(&g_lock);
}

const Api &Calls()
{
    return g_api;
}
cl_context Context()
{
    return g_context;
}
cl_command_queue Queue()
{
    return g_queue;
}

HRESULT Build(Family *f, const char *const *sources, int nsources, const char *const *names, int count,
              void(CALLBACK *log)(const char *text))
{
    if (f->program)
        return S_OK;
    HRESULT hr = LoadApi();
    if (SUCCEEDED(hr))
        hr = OpenContext();
    if (FAILED(hr))
        return hr;
    cl_int err = 0;
    f->program = g_api.CreateProgramWithSource(g_context, (cl_uint)nsources, (const char **)sources, nullptr, &err);
    if (f->program && g_api.BuildProgram(f->program, 1, &g_device, "", nullptr, nullptr) != 0) {
        size_t size = 0;
        g_api.GetProgramBuildInfo(f->program, g_device, CL_PROGRAM_BUILD_LOG, 0, nullptr, &size);
        char *text = (char *)calloc(1, size + 1);
        if (text && log && g_api.GetProgramBuildInfo(f->program, g_device, CL_PROGRAM_BUILD_LOG, size, text,
                                                     nullptr) == 0)
            log(text);
        free(text);
        g_api.ReleaseProgram(f->program);
        f->program = nullptr;
    }
    for (int i = 0; f->program && i < count; ++i) {
        if (!(f->kernels[i] = g_api.CreateKernel(f->program, names[i], &err)))
            Drop(f);
        else
            f->count = i + 1;
    }
    if (!f->program) {
        CloseIfUnused();
        return ZVERR_INIT_FAILED;
    }
    f->count = count;
    ++g_families;
    return S_OK;
}

void Release(Family *f)
{
    if (!f->program)
        return;
    Drop(f);
    --g_families;
    CloseIfUnused();
}

HRESULT Start(Family *f, const char *const *sources, int nsources, const char *const *names, int count,
              void(CALLBACK *log)(const char *text))
{
    Lock();
    HRESULT hr = Build(f, sources, nsources, names, count, log);
    Unlock();
    return hr;
}

HRESULT Stop(Family *f)
{
    Lock();
    Release(f);
    Unlock();
    return S_OK;
}

cl_mem Buffers::Add(uint64_t flags, size_t size, const void *host)
{
    cl_int err = 0;
    cl_mem m = g_api.CreateBuffer(g_context, flags | (host ? (uint64_t)CL_MEM_COPY_HOST_PTR : 0), size ? size : 1,
                                  (void *)host, &err);
    if (m && count < 8)
        mem[count++] = m;
    return m;
}

Buffers::~Buffers()
{
    for (int i = 0; i < count; ++i)
        g_api.ReleaseMemObject(mem[i]);
}

HRESULT Run(cl_kernel k, const Arg *args, int n, size_t gx, size_t gy)
{
    for (int i = 0; i < n; ++i)
        if (g_api.SetKernelArg(k, i, args[i].size, args[i].value) != 0)
            return E_FAIL;
    size_t grid[2] = {gx, gy};
    return g_api.EnqueueNDRangeKernel(g_queue, k, 2, nullptr, grid, nullptr, 0, nullptr, nullptr) == 0 ? S_OK
                                                                                                         : E_FAIL;
}

HRESULT Read(cl_mem m, size_t size, void *dst)
{
    return g_api.EnqueueReadBuffer(g_queue, m, 1, 0, size, dst, 0, nullptr, nullptr) == 0 ? S_OK : E_FAIL;
}

HRESULT InPlace(Family *f, int kernel, BYTE *top, LONG_PTR step, int x0, int y0, int w, int h, int bpp,
                const Arg *args, int count)
{
    size_t row = (size_t)w * bpp, bytes = row * h;
    BYTE *block = bytes ? (BYTE *)malloc(bytes) : nullptr;
    if (bytes && !block)
        return E_OUTOFMEMORY;
    BYTE *first = top + step * y0 + (LONG_PTR)x0 * bpp;
    for (int r = 0; r < h; ++r)
        memcpy(block + row * r, first + step * r, row);
    Lock();
    HRESULT hr = f->program ? S_OK : HRESULT_FROM_WIN32(ERROR_INVALID_STATE);
    if (SUCCEEDED(hr) && bytes) {
        Buffers b;
        cl_mem m = b.Add(0, bytes, block);
        Arg all[10] = {{sizeof(cl_mem), &m}, {4, &w}};
        for (int i = 0; i < count && i < 8; ++i)
            all[2 + i] = args[i];
        hr = m ? Run(f->kernels[kernel], all, 2 + (count < 8 ? count : 8), (size_t)w, (size_t)h) : E_OUTOFMEMORY;
        if (SUCCEEDED(hr))
            hr = Read(m, bytes, block);
    }
    Unlock();
    for (int r = 0; SUCCEEDED(hr) && r < h; ++r)
        memcpy(first + step * r, block + row * r, row);
    free(block);
    return hr;
}

} // namespace zvocl
