// Internal: the public OpenCL API loaded at run time from opencl.dll, so that
// the library runs where no OpenCL exists, and the context the video
// families share.
#pragma once
#include <windows.h>
#include <stdint.h>
#include "video/scale.h"

namespace zvocl {

typedef int32_t cl_int;
typedef uint32_t cl_uint;
typedef struct _cl_platform_id *cl_platform_id;
typedef struct _cl_device_id *cl_device_id;
typedef struct _cl_context *cl_context;
typedef struct _cl_command_queue *cl_command_queue;
typedef struct _cl_program *cl_program;
typedef struct _cl_kernel *cl_kernel;
typedef struct _cl_mem *cl_mem;

enum : uint64_t {
    CL_DEVICE_TYPE_ALL = 0xFFFFFFFF, CL_MEM_WRITE_ONLY = 2, CL_MEM_READ_ONLY = 4, CL_MEM_COPY_HOST_PTR = 32,
    CL_PROGRAM_BUILD_LOG = 0x1183,
};

// The entry points used, as the API declares them (stdcall on 32-bit x86).
struct Api {
    cl_int(WINAPI *GetPlatformIDs)(cl_uint, cl_platform_id *, cl_uint *);
    cl_int(WINAPI *GetDeviceIDs)(cl_platform_id, uint64_t, cl_uint, cl_device_id *, cl_uint *);
    cl_context(WINAPI *CreateContext)(const intptr_t *, cl_uint, const cl_device_id *, void *, void *, cl_int *);
    cl_command_queue(WINAPI *CreateCommandQueue)(cl_context, cl_device_id, uint64_t, cl_int *);
    cl_program(WINAPI *CreateProgramWithSource)(cl_context, cl_uint, const char **, const size_t *, cl_int *);
    cl_int(WINAPI *BuildProgram)(cl_program, cl_uint, const cl_device_id *, const char *, void *, void *);
    cl_int(WINAPI *GetProgramBuildInfo)(cl_program, cl_device_id, cl_uint, size_t, void *, size_t *);
    cl_kernel(WINAPI *CreateKernel)(cl_program, const char *, cl_int *);
    cl_int(WINAPI *SetKernelArg)(cl_kernel, cl_uint, size_t, const void *);
    cl_mem(WINAPI *CreateBuffer)(cl_context, uint64_t, size_t, void *, cl_int *);
    cl_int(WINAPI *EnqueueNDRangeKernel)(cl_command_queue, cl_kernel, cl_uint, const size_t *, const size_t *,
                                         const size_t *, cl_uint, const void *, void *);
    cl_int(WINAPI *EnqueueReadBuffer)(cl_command_queue, cl_mem, cl_uint, size_t, size_t, void *, cl_uint,
                                      const void *, void *);
    cl_int(WINAPI *ReleaseMemObject)(cl_mem);
    cl_int(WINAPI *ReleaseKernel)(cl_kernel);
    cl_int(WINAPI *ReleaseProgram)(cl_program);
    cl_int(WINAPI *ReleaseCommandQueue)(cl_command_queue);
    cl_int(WINAPI *ReleaseContext)(cl_context);
};

// One family's program and kernels on the shared context. Build takes the
// lock; the caller holds it (Lock) while it uses the family.
struct Family {
    cl_program program;
    cl_kernel kernels[8];
    int count;
};

void Lock();
void Unlock();
// Loads the library and opens the context (once); then builds the sources
// (one program) into f and finds its kernels by name. S_OK, HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND)
// without opencl.dll, ZVERR_INIT_FAILED without a device or when the build
// fails (its log goes to log when given). The caller holds the lock.
HRESULT Build(Family *f, const char *const *sources, int nsources, const char *const *names, int count,
              void(CALLBACK *log)(const char *text));
// Releases f's kernels and program; the context goes with the last family.
void Release(Family *f);
// Build and Release under the lock, for a family's _Initialize and _Shutdown.
HRESULT Start(Family *f, const char *const *sources, int nsources, const char *const *names, int count,
              void(CALLBACK *log)(const char *text));
HRESULT Stop(Family *f);
const Api &Calls();
cl_context Context();
cl_command_queue Queue();

// Buffers of one call on the shared context, released together; a host
// block is copied in when given.
struct Buffers {
    cl_mem mem[8];
    int count = 0;
    cl_mem Add(uint64_t flags, size_t size, const void *host);
    ~Buffers();
};

// Runs kernel over a 2-D grid with its arguments in order, and reads a
// buffer back (blocking).
struct Arg {
    size_t size;
    const void *value;
};
HRESULT Run(cl_kernel k, const Arg *args, int n, size_t gx, size_t gy);
HRESULT Read(cl_mem m, size_t size, void *dst);

// Pixels x0 .. x0 + w - 1 (bpp bytes each) of rows y0 .. y0 + h - 1 through
// f's kernel in place: they go packed in one buffer, the kernel's first
// argument, then w, then args. Takes the lock; ERROR_INVALID_STATE when f
// is not started.
HRESULT InPlace(Family *f, int kernel, BYTE *top, LONG_PTR step, int x0, int y0, int w, int h, int bpp,
                const Arg *args, int count);

// The scalers' kernel, built into each family that scales, and the rows of
// one scale through it (kernel points to the family's cl_kernel; the caller
// holds the lock). Gives the plain form's results bit for bit.
extern const char kScaleSource[];
extern const char kScaleName[];
HRESULT ScaleRows(const ZVSUBPIXELPARAM &p, bool cubic, void *kernel);

} // namespace zvocl
