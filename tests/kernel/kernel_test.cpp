#include <gtest/gtest.h>
#include <stdio.h>
#include "testutil.h"
#include "zvkernel.h"
#include "zvlang.h"
#include "zvprintf.h"

namespace {
// Restores the allowed and forced words a test changed.
struct CpuWordGuard {
    ~CpuWordGuard()
    {
        ZvAllowCPUSupport(0xFFFFFFFFu);
    }
};
} // namespace

// Prints the capability words for the check against the system's own view.
ZVTEST_CHILD(cpuword)
{
    (void)argc;
    (void)argv;
    ZvKernel_EarlyInitialize(GetModuleHandleW(nullptr), 0, nullptr);
    printf("cpu %08lx os %08lx processor %08lx\n", (unsigned long)ZvGetCPUSupport(0),
           (unsigned long)ZvGetOSSupport(0), (unsigned long)ZvGetProcessorSupport(0));
    ZvKernel_LateTerminate(nullptr, 0);
    return 0;
}

TEST(KernelStart, StartAndEndKeepModuleAndErrorMode)
{
    HINSTANCE self = GetModuleHandleW(nullptr);
    UINT before = SetErrorMode(0);
    SetErrorMode(before | SEM_NOGPFAULTERRORBOX);
    EXPECT_TRUE(ZvKernel_EarlyInitialize(self, 0x20, nullptr));
    EXPECT_TRUE(ZvKernel_EarlyInitialize(self, 0x21, nullptr));  // repeated start is harmless
    UINT mode = SetErrorMode(0);
    SetErrorMode(before);
    EXPECT_EQ(mode & (SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX | SEM_NOGPFAULTERRORBOX),
              (UINT)(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX | SEM_NOGPFAULTERRORBOX));
    EXPECT_EQ(ZvKernel_GetMode(), 1u);
    ZvKernel_EarlyInitialize(self, 0x20, nullptr);
    EXPECT_EQ(ZvKernel_GetMode(), 2u);
    EXPECT_EQ(ZvKernel_GetAppKernel(), self);

    WCHAR path[MAX_PATH];
    EXPECT_EQ(ZvKernel_GetAppKernelPathName(path, MAX_PATH), S_OK);
    EXPECT_STREQ(path, zvtest::ExePath().c_str());
    EXPECT_EQ(ZvKernel_GetAppKernelPathName(path, 4), ZVERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(wcslen(path), 3u);
    EXPECT_EQ(ZvKernel_GetAppKernelPathName(nullptr, 10), E_INVALIDARG);
    EXPECT_EQ(ZvKernel_GetAppKernelPathName(path, 0), E_INVALIDARG);

    EXPECT_EQ(ZvKernel_GetUIColor(COLOR_WINDOW), GetSysColor(COLOR_WINDOW));
    EXPECT_EQ(ZvKernel_GetUIColor(53), CLR_INVALID);
    EXPECT_EQ(ZvKernel_GetUIColor(-1), CLR_INVALID);
    EXPECT_TRUE(ZvKernel_UserPrefChanges(nullptr, WM_SYSCOLORCHANGE, 0, 0));
    EXPECT_TRUE(ZvKernel_UserPrefChanges(nullptr, WM_DISPLAYCHANGE, 0, 0));
    EXPECT_FALSE(ZvKernel_UserPrefChanges(nullptr, WM_PAINT, 0, 0));

    // The kernel's language and the token table exist between start and end.
    EXPECT_NE(ZvLang_GetKernelLang(), nullptr);
    EXPECT_TRUE(ZvPrintF_AddToken(L"KernelTestToken", L"v"));
    WCHAR value[8];
    EXPECT_EQ(ZvPrintF_GetToken(L"KernelTestToken", value, 8), 1);
    EXPECT_TRUE(ZvKernel_LateTerminate(nullptr, 0));
    EXPECT_EQ(ZvKernel_GetAppKernel(), nullptr);
    EXPECT_EQ(ZvLang_GetKernelLang(), nullptr);
    EXPECT_TRUE(ZvKernel_EarlyInitialize(self, 0, nullptr));
    EXPECT_EQ(ZvPrintF_GetToken(L"KernelTestToken", value, 8), -1);
    EXPECT_NE(ZvLang_GetKernelLang(), nullptr);
}

TEST(KernelCpu, AllowDisallowAndForce)
{
    CpuWordGuard guard;
    // Every feature in use is one the processor has and the system enabled;
    // the bits themselves are checked against /proc/cpuinfo (cpuword_check.sh).
    DWORD full = ZvGetCPUSupport(0);
    EXPECT_EQ(full & ~ZVCPU_CLASS_MASK & ~(ZvGetProcessorSupport(0) & ZvGetOSSupport(0)), 0u);
    EXPECT_TRUE(ZvDisallowCPUSupport(ZVCPU_SSE2));
    EXPECT_EQ(ZvGetCPUSupport(64), 0u);
    EXPECT_EQ(ZvGetCPUSupport(0), full & ~ZVCPU_SSE2);
    EXPECT_TRUE(ZvAllowCPUSupport(ZVCPU_SSE2));
    EXPECT_EQ(ZvGetCPUSupport(0), full);

    // Only within the switchable bits; outside it changes nothing.
    EXPECT_FALSE(ZvOnlyAllowCPUSupport(ZVCPU_MMX | ZVCPU_CMOV));
    EXPECT_EQ(ZvGetCPUSupport(0), full);
    EXPECT_TRUE(ZvOnlyAllowCPUSupport(ZVCPU_MMX | ZVCPU_SSE));
    EXPECT_EQ(ZvGetCPUSupport(0) & ZVCPU_SWITCHABLE, ZVCPU_MMX | ZVCPU_SSE);
    EXPECT_EQ(ZvGetCPUSupport(0) & ~ZVCPU_SWITCHABLE, full & ~ZVCPU_SWITCHABLE);

    // The class follows what is allowed: SSE without SSE2 is class 5, MMX
    // alone class 4, none of them at most 3.
    EXPECT_TRUE(ZvSetCPUClassBySupport());
    EXPECT_EQ(ZvGetCPUSupport(0) & ZVCPU_CLASS_MASK, (DWORD)ZVCPU_CLASS_SSE);
    EXPECT_TRUE(ZvOnlyAllowCPUSupport(ZVCPU_MMX));
    EXPECT_TRUE(ZvSetCPUClassBySupport());
    EXPECT_EQ(ZvGetCPUSupport(0) & ZVCPU_CLASS_MASK, (DWORD)ZVCPU_CLASS_MMX);
    EXPECT_TRUE(ZvOnlyAllowCPUSupport(0));
    EXPECT_TRUE(ZvSetCPUClassBySupport());
    EXPECT_LE(ZvGetCPUSupport(0) & ZVCPU_CLASS_MASK, (DWORD)ZVCPU_CLASS_CMOV);
    EXPECT_EQ(ZvGetCPUSupport(ZVCPU_SSE | ZVCPU_SSE2 | ZVCPU_MMX) & ~ZVCPU_CLASS_MASK, 0u);

    // Back to the detected class.
    ZvAllowCPUSupport(0xFFFFFFFFu);
    ZvOnlyAllowCPUSupport(ZVCPU_SWITCHABLE);
    EXPECT_TRUE(ZvSetCPUClassBySupport());
    EXPECT_EQ(ZvGetCPUSupport(0), full);
}

TEST(KernelPlatform, VersionChecks)
{
    DWORD v = ZvGetOS();
    EXPECT_GE(v, 0x0501u);
    const struct { int major; bool ok; } rows[] = {
        {0, false}, {5, false}, {12, false}, {6, true}, {8, v >= 0x0601u}, {10, v >= 0x0A00u}};
    for (const auto &r : rows)
        EXPECT_EQ(r.ok, ZvOSVersionOK(r.major) != FALSE) << r.major;
#ifdef _WIN64
    EXPECT_TRUE(ZvIsOS64Bit());
#endif
}

TEST(KernelTime, ClocksRunForwardAndAgree)
{
    ULONGLONG ms0 = ZvGetMillisecEx();
    ULONGLONG us0 = ZvGetMicrosecEx();
    Sleep(20);
    ULONGLONG dus = ZvDeltaMicrosecEx(us0);
    ULONGLONG dms = ZvDeltaMillisecEx(ms0);
    EXPECT_GE(dus, 15000u);
    EXPECT_GE(dms, 15u);
    EXPECT_LT(dus, 5000000u);

    // After calibration the counter-based clock continues the same scale.
    ZvTimer_LateInitialize();
    ULONGLONG after = ZvGetMicrosecEx();
    EXPECT_GE(after + 1000, us0 + dus);  // no step back at the switch
    if (ZvGetCPUSupport(ZVCPU_TSC)) {
        EXPECT_GT(ZvTimer_GetCyclesPerMicrosec(), 1.0);
    }
    ULONGLONG t0 = ZvGetMicrosecEx();
    DWORD m0 = ZvGetMillisec();
    Sleep(30);
    ULONGLONG elapsed = ZvDeltaMicrosecEx(t0);
    EXPECT_GE(elapsed, 25000u);
    EXPECT_LT(elapsed, 2000000u);
    EXPECT_GE(ZvGetMillisec() - m0, 25u);
    ZvTimer_LateInitialize();  // a second call changes nothing
}
