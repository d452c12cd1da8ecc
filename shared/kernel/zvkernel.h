// Kernel start and end, the processor capability word that all vector code
// consults, the platform version, and the process time base.
#pragma once
#include "zvbase.h"

// Processor capability word. Bits 0 to 3 hold the class, the rest features.
#define ZVCPU_CLASS_MASK   0x0000000Fu
#define ZVCPU_CLASS_386    0
#define ZVCPU_CLASS_486    1
#define ZVCPU_CLASS_586    2
#define ZVCPU_CLASS_CMOV   3   // conditional moves and a floating point unit
#define ZVCPU_CLASS_MMX    4
#define ZVCPU_CLASS_SSE    5
#define ZVCPU_CLASS_SSE2   6
#define ZVCPU_MMX          0x00000010u
#define ZVCPU_SSE          0x00000020u
#define ZVCPU_SSE2         0x00000040u
#define ZVCPU_SSE3         0x00000080u
#define ZVCPU_SSSE3        0x00000100u
#define ZVCPU_SSE41        0x00000200u
#define ZVCPU_SSE42        0x00000400u
#define ZVCPU_AVX          0x00000800u
#define ZVCPU_CMOV         0x00001000u
#define ZVCPU_FPU          0x00002000u
#define ZVCPU_TSC          0x00004000u
#define ZVCPU_FTZ_DAZ      0x00020000u
// The feature bits that ZvOnlyAllowCPUSupport may switch.
#define ZVCPU_SWITCHABLE   0x00000FF0u

// Start and end of the kernel. EarlyInitialize returns 1 when the kernel's
// language opened, else 0; repeated calls only redo what is missing.
ZVAPI BOOL ZvKernel_EarlyInitialize(HINSTANCE module, DWORD flags, LPVOID reserved);
ZVAPI BOOL ZvKernel_LateTerminate(HINSTANCE module, DWORD reserved);
ZVAPI HINSTANCE ZvKernel_GetAppKernel(void);
// Full path of the kernel's module; 0 or an HRESULT from the last error.
ZVAPI HRESULT ZvKernel_GetAppKernelPathName(LPWSTR buffer, int length);
// The kernel's mode word: bit 0 of the start flags, or 2 for bit 5 of them.
ZVAPI DWORD ZvKernel_GetMode(void);
// To be called from a top window's procedure: reacts to WM_SYSCOLORCHANGE
// and WM_DISPLAYCHANGE. Returns 1 when the message was one of those.
ZVAPI BOOL ZvKernel_UserPrefChanges(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
// The display's colour depth in bits per pixel as last read.
ZVAPI int ZvKernel_GetDisplayDepth(void);
// One of the 53 UI colours (index 0 to 52), CLR_INVALID outside.
ZVAPI COLORREF ZvKernel_GetUIColor(int index);

// Capability words. A mask of 0 means all bits.
ZVAPI DWORD ZvGetCPUSupport(DWORD mask);
ZVAPI DWORD ZvGetOSSupport(DWORD mask);
// The word from CPUID alone, before what the system enables is considered.
ZVAPI DWORD ZvGetProcessorSupport(DWORD mask);
ZVAPI BOOL ZvAllowCPUSupport(DWORD bits);
ZVAPI BOOL ZvDisallowCPUSupport(DWORD bits);
// Replaces the switchable bits of the allowed word; 0 for bits outside them.
ZVAPI BOOL ZvOnlyAllowCPUSupport(DWORD bits);
// Pins the class to what the allowed features give: 4, 5 or 6.
ZVAPI BOOL ZvSetCPUClassBySupport(void);
// The forced bits alone: what ZvGetCPUSupport joins whatever the mask.
ZVAPI DWORD ZvGetCPUForcedSupport(void);
ZVAPI int ZvGetProcessorCount(void);

// Platform version. ZvGetOS gives (major << 8) | minor.
ZVAPI DWORD ZvGetOS(void);
ZVAPI DWORD ZvGetOSBuild(void);
ZVAPI BOOL ZvIsOS64Bit(void);
// Version codes: 6 XP (5.1), 7 Vista (6.0), 8 7 (6.1), 9 8 (6.2), 10 10.0,
// 11 a 10.0 system of build 22000 or later. Other codes give 0.
ZVAPI BOOL ZvOSVersionOK(int code);

// Time base. First stage: tick count and performance counter. After
// ZvTimer_LateInitialize the time stamp counter serves, once calibrated.
ZVAPI void ZvTimer_LateInitialize(void);
// Cycles of the time stamp counter per microsecond, 0 while not calibrated.
ZVAPI double ZvTimer_GetCyclesPerMicrosec(void);
ZVAPI DWORD ZvGetMillisec(void);
ZVAPI DWORD ZvGetMicrosec(void);
ZVAPI ULONGLONG ZvGetMillisecEx(void);
ZVAPI ULONGLONG ZvDeltaMillisecEx(ULONGLONG stamp);
ZVAPI ULONGLONG ZvGetMicrosecEx(void);
ZVAPI ULONGLONG ZvDeltaMicrosecEx(ULONGLONG stamp);
