// Kernel start and end, processor detection and the process time base.
#include "zvkernel.h"
#include "zvlang.h"
#include "zvprintf.h"
#include <intrin.h>
#include <cpuid.h>
#include <math.h>
#include <omp.h>

namespace {

// ---------------------------------------------------------------- state

struct KernelState {
    HINSTANCE module;
    DWORD flags;
    DWORD mode;
    int displayDepth;
    COLORREF colors[53];
    HBRUSH brushes[53];
};
KernelState g_kernel;

// Processor words: from CPUID, what the system has enabled, and both.
bool g_detected;
DWORD g_processorWord;
DWORD g_osWord;
DWORD g_combinedWord;
DWORD g_allowed = 0xFFFFFFFFu;
DWORD g_forced;

// ---------------------------------------------------------------- detection

// An SSE instruction in a function of its own, so that a fault in it can be
// recognised by its address and stepped over (xorps xmm0,xmm0: 3 bytes).
extern "C" void zv_sse_probe(void) asm("zv_sse_probe_impl");
asm(".text\n"
    ".p2align 4\n"
    "zv_sse_probe_impl:\n"
    "    xorps %xmm0, %xmm0\n"
    "    ret\n");

volatile LONG g_probeFaulted;

LONG CALLBACK ProbeFaultHandler(EXCEPTION_POINTERS *info)
{
    if (info->ExceptionRecord->ExceptionAddress != (void *)zv_sse_probe)
        return EXCEPTION_CONTINUE_SEARCH;
    DWORD code = info->ExceptionRecord->ExceptionCode;
    if (code != STATUS_ILLEGAL_INSTRUCTION && code != STATUS_PRIVILEGED_INSTRUCTION)
        return EXCEPTION_CONTINUE_SEARCH;
    g_probeFaulted = 1;
#ifdef _WIN64
    info->ContextRecord->Rip += 3;
#else
    info->ContextRecord->Eip += 3;
#endif
    return EXCEPTION_CONTINUE_EXECUTION;
}

typedef void (*TrapBypassFn)(void);

// Runs the SSE probe. The crash reporter, when it is in the process, is told
// to let the possible fault pass instead of reporting it.
bool ProbeSSE()
{
    HMODULE reporter = GetModuleHandleW(L"ErrorReport.dll");
    TrapBypassFn start = nullptr, end = nullptr;
    if (reporter) {
        start = (TrapBypassFn)(void *)GetProcAddress(reporter, "ErrorReport_StartTrapBypass");
        end = (TrapBypassFn)(void *)GetProcAddress(reporter, "ErrorReport_EndTrapBypass");
    }
    if (start)
        start();
    g_probeFaulted = 0;
    PVOID handler = AddVectoredExceptionHandler(1, ProbeFaultHandler);
    zv_sse_probe();
    if (handler)
        RemoveVectoredExceptionHandler(handler);
    if (end)
        end();
    return g_probeFaulted == 0;
}

bool Cpuid(unsigned leaf, unsigned regs[4])
{
    if ((unsigned)__get_cpuid_max(leaf & 0x80000000u, nullptr) < leaf)
        return false;
    __cpuid_count(leaf, 0, regs[0], regs[1], regs[2], regs[3]);
    return true;
}

unsigned long long ReadXcr0()
{
    unsigned lo, hi;
    asm volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    return ((unsigned long long)hi << 32) | lo;
}

// MXCSR bits that the processor accepts, from the save area of FXSAVE.
DWORD MxcsrMask()
{
    alignas(16) unsigned char area[512] = {};
    asm volatile("fxsave %0" : "=m"(area));
    DWORD mask;
    memcpy(&mask, area + 28, 4);
    return mask ? mask : 0xFFBFu;  // 0 means the default mask, without DAZ
}

// The class rises step by step from the platform's processor type.
DWORD ClassOf(DWORD features, DWORD base)
{
    DWORD cls = base;
    if (cls >= ZVCPU_CLASS_586 && (features & (ZVCPU_CMOV | ZVCPU_FPU)) == (ZVCPU_CMOV | ZVCPU_FPU)) {
        cls = ZVCPU_CLASS_CMOV;
        if (features & ZVCPU_MMX) {
            cls = ZVCPU_CLASS_MMX;
            if (features & ZVCPU_SSE) {
                cls = ZVCPU_CLASS_SSE;
                if (features & ZVCPU_SSE2)
                    cls = ZVCPU_CLASS_SSE2;
            }
        }
    }
    return cls;
}

void Detect()
{
    SYSTEM_INFO si;
    GetSystemInfo(&si);
    DWORD base;
    switch (si.dwProcessorType) {
    case PROCESSOR_INTEL_386: base = ZVCPU_CLASS_386; break;
    case PROCESSOR_INTEL_486: base = ZVCPU_CLASS_486; break;
    default: base = ZVCPU_CLASS_586; break;
    }

    DWORD cpu = 0;
    unsigned r[4];
    unsigned ecx1 = 0;
    bool fxsr = false;
    if (Cpuid(1, r)) {
        unsigned edx = r[3];
        ecx1 = r[2];
        if (edx & (1u << 4)) cpu |= ZVCPU_TSC;
        if (edx & (1u << 15)) cpu |= ZVCPU_CMOV;
        if (edx & (1u << 0)) cpu |= ZVCPU_FPU;
        if (edx & (1u << 23)) cpu |= ZVCPU_MMX;
        if (edx & (1u << 25)) cpu |= ZVCPU_SSE;
        if (edx & (1u << 26)) cpu |= ZVCPU_SSE2;
        if (ecx1 & (1u << 0)) cpu |= ZVCPU_SSE3;
        if (ecx1 & (1u << 9)) cpu |= ZVCPU_SSSE3;
        if (ecx1 & (1u << 19)) cpu |= ZVCPU_SSE41;
        if (ecx1 & (1u << 20)) cpu |= ZVCPU_SSE42;
        if (ecx1 & (1u << 28)) cpu |= ZVCPU_AVX;
        fxsr = (edx & (1u << 24)) != 0;
    }

    // What the system has enabled. The plain integer and x87 features need
    // nothing from it; the SSE family needs saved XMM state, proven by
    // running an instruction; AVX needs the YMM state enabled in XCR0.
    DWORD os = cpu & (ZVCPU_TSC | ZVCPU_CMOV | ZVCPU_FPU | ZVCPU_MMX);
    if ((cpu & ZVCPU_SSE) && ProbeSSE()) {
        os |= cpu & (ZVCPU_SSE | ZVCPU_SSE2 | ZVCPU_SSE3 | ZVCPU_SSSE3 | ZVCPU_SSE41 | ZVCPU_SSE42);
        if (fxsr && (MxcsrMask() & 0x8040u) == 0x8040u) {
            cpu |= ZVCPU_FTZ_DAZ;
            os |= ZVCPU_FTZ_DAZ;
        }
        if ((cpu & ZVCPU_AVX) && (ecx1 & (1u << 27)) && (ReadXcr0() & 6) == 6)
            os |= ZVCPU_AVX;
    }

    g_processorWord = cpu | ClassOf(cpu, base);
    g_osWord = os | ClassOf(os, base);
    DWORD both = cpu & os;
    g_combinedWord = (both | ClassOf(both, base)) & g_allowed;
    g_combinedWord |= g_forced;
    g_detected = true;
}

void EnsureDetected()
{
    if (!g_detected)
        Detect();
}

// ---------------------------------------------------------------- UI colours

// The colours the controls draw with until the user changes them. The first
// entries follow the system's own elements.
void ResetColors()
{
    for (int i = 0; i < 53; i++) {
        if (g_kernel.brushes[i]) {
            DeleteObject(g_kernel.brushes[i]);
            g_kernel.brushes[i] = nullptr;
        }
        if (i <= COLOR_MENUBAR)
            g_kernel.colors[i] = GetSysColor(i);
        else {
            int grey = 32 + ((i - COLOR_MENUBAR) * 223) / (53 - COLOR_MENUBAR);
            g_kernel.colors[i] = RGB(grey, grey, grey);
        }
    }
}

void ReadDisplayDepth()
{
    HDC dc = GetDC(nullptr);
    g_kernel.displayDepth = dc ? GetDeviceCaps(dc, BITSPIXEL) * GetDeviceCaps(dc, PLANES) : 0;
    if (dc)
        ReleaseDC(nullptr, dc);
}

// ---------------------------------------------------------------- time base

struct TimeFunctions {
    DWORD (*millisec)(void);
    DWORD (*microsec)(void);
    ULONGLONG (*millisecEx)(void);
    ULONGLONG (*deltaMillisecEx)(ULONGLONG);
    ULONGLONG (*microsecEx)(void);
    ULONGLONG (*deltaMicrosecEx)(ULONGLONG);
};

// Origin of the time base; every function counts from it so that the switch
// from the performance counter to the time stamp counter is seamless.
LONGLONG g_qpcFrequency;
LONGLONG g_qpcOrigin;
unsigned long long g_tscOrigin;
double g_tscPerMicrosec;
volatile LONG g_timeStarted;

void StartTimeBase()
{
    if (InterlockedCompareExchange(&g_timeStarted, 1, 0) != 0)
        return;
    LARGE_INTEGER f, c;
    QueryPerformanceFrequency(&f);
    QueryPerformanceCounter(&c);
    g_tscOrigin = __rdtsc();
    g_qpcFrequency = f.QuadPart > 0 ? f.QuadPart : 1;
    g_qpcOrigin = c.QuadPart;
    InterlockedExchange(&g_timeStarted, 2);
}

inline void EnsureTimeBase()
{
    if (g_timeStarted != 2) {
        StartTimeBase();
        while (g_timeStarted != 2)
            YieldProcessor();
    }
}

ULONGLONG QpcMicros()
{
    EnsureTimeBase();
    LARGE_INTEGER c;
    QueryPerformanceCounter(&c);
    ULONGLONG ticks = (ULONGLONG)(c.QuadPart - g_qpcOrigin);
    ULONGLONG f = (ULONGLONG)g_qpcFrequency;
    return (ticks / f) * 1000000u + ((ticks % f) * 1000000u) / f;
}

ULONGLONG TickMillis()
{
    return QpcMicros() / 1000u;
}

ULONGLONG TscMicros()
{
    return (ULONGLONG)((double)(__rdtsc() - g_tscOrigin) / g_tscPerMicrosec);
}

DWORD QpcMillisec() { return (DWORD)TickMillis(); }
DWORD QpcMicrosec() { return (DWORD)QpcMicros(); }
ULONGLONG QpcMillisecEx() { return TickMillis(); }
ULONGLONG QpcDeltaMillisecEx(ULONGLONG stamp) { return TickMillis() - stamp; }
ULONGLONG QpcMicrosecEx() { return QpcMicros(); }
ULONGLONG QpcDeltaMicrosecEx(ULONGLONG stamp) { return QpcMicros() - stamp; }

DWORD TscMillisec() { return (DWORD)(TscMicros() / 1000u); }
DWORD TscMicrosec() { return (DWORD)TscMicros(); }
ULONGLONG TscMillisecEx() { return TscMicros() / 1000u; }
ULONGLONG TscDeltaMillisecEx(ULONGLONG stamp) { return TscMicros() / 1000u - stamp; }
ULONGLONG TscMicrosecEx() { return TscMicros(); }
ULONGLONG TscDeltaMicrosecEx(ULONGLONG stamp) { return TscMicros() - stamp; }

const TimeFunctions g_qpcTable = {QpcMillisec, QpcMicrosec, QpcMillisecEx,
                                  QpcDeltaMillisecEx, QpcMicrosecEx, QpcDeltaMicrosecEx};
const TimeFunctions g_tscTable = {TscMillisec, TscMicrosec, TscMillisecEx,
                                  TscDeltaMillisecEx, TscMicrosecEx, TscDeltaMicrosecEx};
const TimeFunctions *volatile g_time = &g_qpcTable;

} // namespace

// ---------------------------------------------------------------- kernel start

ZVAPI BOOL ZvKernel_EarlyInitialize(HINSTANCE module, DWORD flags, LPVOID)
{
    SetErrorMode(SetErrorMode(0) | SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
    StartTimeBase();

    g_kernel.module = module;
    g_kernel.flags = flags;
    EnsureDetected();
    // the pixel kernels' worker teams shrink when the machine is busy
    omp_set_dynamic(1);
    g_kernel.mode = (flags & 1) ? 1 : ((flags & 0x20) ? 2 : 0);

    ResetColors();
    // asking the display costs a surrogate tens of milliseconds at start and
    // is rarely wanted: read on first use
    g_kernel.displayDepth = -1;
    ZvPrintF_InitTokens();
    BOOL langOpened = SUCCEEDED(ZvLang_OpenKernelLang(module));
    ZvLang_GetInternationals(nullptr, 0);
    EnsureTimeBase();
    return langOpened;
}

ZVAPI BOOL ZvKernel_LateTerminate(HINSTANCE, DWORD)
{
    ZvLang_CloseKernelLang();
    ZvPrintF_FreeTokens();
    for (int i = 0; i < 53; i++) {
        if (g_kernel.brushes[i]) {
            DeleteObject(g_kernel.brushes[i]);
            g_kernel.brushes[i] = nullptr;
        }
    }
    SetCursor(LoadCursorW(nullptr, IDC_ARROW));
    g_kernel.module = nullptr;
    return TRUE;
}

ZVAPI HINSTANCE ZvKernel_GetAppKernel(void)
{
    return g_kernel.module;
}

ZVAPI HRESULT ZvKernel_GetAppKernelPathName(LPWSTR buffer, int length)
{
    if (!buffer || length < 1)
        return E_INVALIDARG;
    DWORD n = GetModuleFileNameW(g_kernel.module, buffer, (DWORD)length);
    if (n == 0) {
        buffer[0] = 0;
        DWORD err = GetLastError();
        return err ? HRESULT_FROM_WIN32(err) : E_FAIL;
    }
    if (n >= (DWORD)length) {
        buffer[length - 1] = 0;
        return ZVERR_BUFFER_TOO_SMALL;
    }
    return S_OK;
}

ZVAPI DWORD ZvKernel_GetMode(void)
{
    return g_kernel.mode;
}

ZVAPI BOOL ZvKernel_UserPrefChanges(HWND, UINT message, WPARAM, LPARAM)
{
    if (message == WM_SYSCOLORCHANGE) {
        ReadDisplayDepth();
        ResetColors();
        return TRUE;
    }
    if (message == WM_DISPLAYCHANGE) {
        ReadDisplayDepth();
        return TRUE;
    }
    return FALSE;
}

ZVAPI int ZvKernel_GetDisplayDepth(void)
{
    if (g_kernel.displayDepth < 0)
        ReadDisplayDepth();
    return g_kernel.displayDepth;
}

ZVAPI COLORREF ZvKernel_GetUIColor(int index)
{
    if (index < 0 || index >= 53)
        return CLR_INVALID;
    return g_kernel.colors[index];
}

// ---------------------------------------------------------------- capability words

ZVAPI DWORD ZvGetCPUSupport(DWORD mask)
{
    EnsureDetected();
    if (!mask)
        mask = 0xFFFFFFFFu;
    return (mask & g_allowed & g_combinedWord) | g_forced;
}

ZVAPI DWORD ZvGetOSSupport(DWORD mask)
{
    EnsureDetected();
    return g_osWord & (mask ? mask : 0xFFFFFFFFu);
}

ZVAPI DWORD ZvGetProcessorSupport(DWORD mask)
{
    EnsureDetected();
    return g_processorWord & (mask ? mask : 0xFFFFFFFFu);
}

ZVAPI BOOL ZvAllowCPUSupport(DWORD bits)
{
    g_allowed |= bits;
    return TRUE;
}

ZVAPI BOOL ZvDisallowCPUSupport(DWORD bits)
{
    g_allowed &= ~bits;
    return TRUE;
}

ZVAPI BOOL ZvOnlyAllowCPUSupport(DWORD bits)
{
    if (bits & ~ZVCPU_SWITCHABLE)
        return FALSE;
    g_allowed = (g_allowed & ~ZVCPU_SWITCHABLE) | bits;
    return TRUE;
}

ZVAPI BOOL ZvSetCPUClassBySupport(void)
{
    EnsureDetected();
    DWORD features = g_allowed & g_combinedWord;
    DWORD cls = g_combinedWord & ZVCPU_CLASS_MASK;
    if (cls > ZVCPU_CLASS_CMOV)
        cls = ZVCPU_CLASS_CMOV;
    if (features & ZVCPU_MMX) {
        cls = ZVCPU_CLASS_MMX;
        if (features & ZVCPU_SSE) {
            cls = ZVCPU_CLASS_SSE;
            if (features & ZVCPU_SSE2)
                cls = ZVCPU_CLASS_SSE2;
        }
    }
    g_allowed &= ~ZVCPU_CLASS_MASK;
    g_forced = (g_forced & ~ZVCPU_CLASS_MASK) | cls;
    return TRUE;
}

ZVAPI DWORD ZvGetCPUForcedSupport(void)
{
    return g_forced;
}

ZVAPI int ZvGetProcessorCount(void)
{
    SYSTEM_INFO si;
    GetSystemInfo(&si);
    return (int)si.dwNumberOfProcessors;
}

// ---------------------------------------------------------------- platform version

namespace {
struct OsVersion { DWORD major, minor, build; };

// The true version: GetVersionEx answers what the manifest allows.
OsVersion QueryOsVersion()
{
    static OsVersion cached;
    static volatile LONG done;
    if (!done) {
        OsVersion v = {};
        typedef LONG(WINAPI * RtlGetVersionFn)(OSVERSIONINFOW *);
        HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
        RtlGetVersionFn fn = ntdll ? (RtlGetVersionFn)(void *)GetProcAddress(ntdll, "RtlGetVersion") : nullptr;
        OSVERSIONINFOW info = {};
        info.dwOSVersionInfoSize = sizeof(info);
        if (fn && fn(&info) == 0) {
            v.major = info.dwMajorVersion;
            v.minor = info.dwMinorVersion;
            v.build = info.dwBuildNumber;
        }
        cached = v;
        done = 1;
    }
    return cached;
}
} // namespace

ZVAPI DWORD ZvGetOS(void)
{
    OsVersion v = QueryOsVersion();
    return (v.major << 8) | (v.minor & 0xFF);
}

ZVAPI DWORD ZvGetOSBuild(void)
{
    return QueryOsVersion().build;
}

ZVAPI BOOL ZvIsOS64Bit(void)
{
#ifdef _WIN64
    return TRUE;
#else
    BOOL wow = FALSE;
    typedef BOOL(WINAPI * IsWow64ProcessFn)(HANDLE, PBOOL);
    IsWow64ProcessFn fn = (IsWow64ProcessFn)(void *)GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "IsWow64Process");
    if (fn && !fn(GetCurrentProcess(), &wow))
        wow = FALSE;
    return wow;
#endif
}

ZVAPI BOOL ZvOSVersionOK(int code)
{
    static const DWORD needed[] = {0x0501, 0x0600, 0x0601, 0x0602, 0x0A00, 0x0A00};
    if (code < 6 || code > 11)
        return FALSE;
    DWORD v = ZvGetOS();
    if (v < needed[code - 6])
        return FALSE;
    if (code == 11)
        return v > 0x0A00 || ZvGetOSBuild() >= 22000;
    return TRUE;
}

// ---------------------------------------------------------------- time base

ZVAPI void ZvTimer_LateInitialize(void)
{
    if (g_time == &g_tscTable || g_timeStarted != 2)
        return;
    if (!(ZvGetCPUSupport(ZVCPU_TSC) & ZVCPU_TSC))
        return;
    // Measure the counter against the performance counter over at least half
    // a second since the first stage started.
    ULONGLONG micros = QpcMicros();
    if (micros < 500000)
        Sleep((DWORD)((500000 - micros + 999) / 1000));
    micros = QpcMicros();
    unsigned long long cycles = __rdtsc() - g_tscOrigin;
    if (micros < 450000)
        return;
    double rate = (double)cycles / (double)micros;
    if (!(rate > 0.0) || !isfinite(rate))
        return;
    g_tscPerMicrosec = rate;
    g_time = &g_tscTable;
}

ZVAPI double ZvTimer_GetCyclesPerMicrosec(void)
{
    return g_time == &g_tscTable ? g_tscPerMicrosec : 0.0;
}

ZVAPI DWORD ZvGetMillisec(void) { return g_time->millisec(); }
ZVAPI DWORD ZvGetMicrosec(void) { return g_time->microsec(); }
ZVAPI ULONGLONG ZvGetMillisecEx(void) { return g_time->millisecEx(); }
ZVAPI ULONGLONG ZvDeltaMillisecEx(ULONGLONG stamp) { return g_time->deltaMillisecEx(stamp); }
ZVAPI ULONGLONG ZvGetMicrosecEx(void) { return g_time->microsecEx(); }
ZVAPI ULONGLONG ZvDeltaMicrosecEx(ULONGLONG stamp) { return g_time->deltaMicrosecEx(stamp); }
