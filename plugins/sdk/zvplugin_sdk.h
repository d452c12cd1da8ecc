/*
 * Everything a file-format plug-in is built against: the interfaces and
 * records of the contract (zvplugin.h and zvmanager.h, generated from
 * the idl folder; link the interface ids from zvidl or define INITGUID in one
 * source), the results plug-ins report, handle conversion for the wire, and
 * access to the kernel functions of the host executable.
 *
 * A plug-in DLL exports DllGetClassObject (and, by custom, DllCanUnloadNow).
 * Under CLSID_ZvPluginInfo it serves IZvUnsharedFIOPluginInfo, which lists
 * its classes; under each listed class id it serves a class factory whose
 * objects answer IZvReadFileClass or IZvRenderFileClass. A DLL is listed
 * next to a *.Fio2007-Config file:
 *
 *     [FileIO Plug-Ins]
 *     MyFormat=MyFormat.dll          ; path relative to the config file
 *     [MyFormat]
 *     Surrogate=1                    ; optional: run in surrogate group 1
 *     Reader={class id}              ; optional: claim files by merit ...
 *     {class id}=10                  ; ... with this merit
 *
 * A plug-in must not depend on the host at load time: kernel functions are
 * looked up by name when they are needed (ZvSdk_KernelProc).
 */
#pragma once
#include <windows.h>
#include <objbase.h>
#include <stdlib.h>
#include "zvplugin.h"
#include "zvmanager.h"

/* Results a plug-in reports (same values as the kernel's). */
#ifndef ZVERR_UNSUPPORTED_FORMAT
#define ZVERR_UNSUPPORTED_FORMAT ((HRESULT)0x8004E016)   /* not this reader's file */
#endif
#ifndef ZVERR_BUFFER_TOO_SMALL
#define ZVERR_BUFFER_TOO_SMALL   ((HRESULT)0x8004E03C)
#endif
#ifndef ZVERR_PLUGIN_NOT_INITIALIZED
#define ZVERR_PLUGIN_NOT_INITIALIZED ((HRESULT)0x8004E047) /* a dependency is missing */
#endif
#ifndef ZVERR_NOT_FOUND
#define ZVERR_NOT_FOUND          ((HRESULT)0x8004E00A)
#endif
#ifndef ZVERR_TEMPLATE_REFUSED
#define ZVERR_TEMPLATE_REFUSED   ((HRESULT)0x8004E0AF)
#endif

/* The records' sizes are part of the wire contract. */
#ifdef __cplusplus
#define ZVSDK_ASSERT(cond, text) static_assert(cond, text)
#else
#define ZVSDK_ASSERT(cond, text) _Static_assert(cond, text)
#endif
ZVSDK_ASSERT(sizeof(_zvmemorytoken) == 40, "memory token is 40 bytes in both architectures");
ZVSDK_ASSERT(sizeof(_ZVFILESTREAMFORMATINFOv2) == ZVFILESTREAMFORMATINFO_SIZE, "stream format record is 184 bytes");
ZVSDK_ASSERT(sizeof(tagZVTEMPLATExV2) == ZVTEMPLATE_HEADER_SIZE, "template head is 536 bytes");
ZVSDK_ASSERT(sizeof(ZVFIO_PLUGINDESC) == 592, "plug-in description is 592 bytes");
ZVSDK_ASSERT(sizeof(_ZVFIO_ACCELERATION_INFO) == 48, "acceleration info is 48 bytes");
#if defined(_M_IX86) || defined(__i386__)
ZVSDK_ASSERT(sizeof(ZVFIO_IDENTIFYINFO) == 32, "identification record, 32-bit layout");
#endif

/* Handles cross interfaces as 64-bit integers; INVALID_HANDLE_VALUE is ~0
   in both architectures (sign extension). */
static __inline UINT64 ZvSdk_HandleToWire(HANDLE h)
{
    return (UINT64)(INT64)(LONG_PTR)h;
}
static __inline HANDLE ZvSdk_WireToHandle(UINT64 v)
{
    return (HANDLE)(LONG_PTR)(INT64)v;
}

/* A kernel function exported by name from the executable that hosts the
   plug-in (the application or the surrogate); null when it has none. */
static __inline FARPROC ZvSdk_KernelProc(const char *name)
{
    HMODULE host = GetModuleHandleW(NULL);
    return host ? GetProcAddress(host, name) : NULL;
}

#ifdef __cplusplus
/* The same, typed: auto f = ZvSdk_KernelFunction<HRESULT (*)(int)>("Name"); */
template <class Fn>
inline Fn ZvSdk_KernelFunction(const char *name)
{
    return reinterpret_cast<Fn>(reinterpret_cast<void *>(ZvSdk_KernelProc(name)));
}
#endif

#ifdef __cplusplus
#define ZVSDK_CALL(obj, method, ...) ((obj)->method(__VA_ARGS__))
#else
#define ZVSDK_CALL(obj, method, ...) ((obj)->lpVtbl->method((obj), __VA_ARGS__))
#endif

/* The reader's type test on the first bytes of an open file (IsType):
   S_OK means the file is the reader's. file is ~0 when there is none. */
static __inline HRESULT ZvSdk_IsType(IZvReadFileClass *cls, UINT64 file, const void *chunk,
                                     DWORD chunkSize, DWORD flags)
{
    ZVFIO_IDENTIFYINFO info;
    ZeroMemory(&info, sizeof(info));
    info.cbSize = sizeof(info);
    info.dwFlags = flags;
    info.hFile = file;
    info.dwProcessId = GetCurrentProcessId();
    info.cbChunk = chunk ? chunkSize : 0;
    info.pChunk = (BYTE *)chunk;
    return ZVSDK_CALL(cls, IdentifyFile, &info);
}

/* The reader's type test by path alone (IsTypeSlow). */
static __inline HRESULT ZvSdk_IsTypeSlow(IZvReadFileClass *cls, const WCHAR *path)
{
    ZVFIO_IDENTIFYINFO info;
    ZeroMemory(&info, sizeof(info));
    info.cbSize = sizeof(info);
    info.hFile = ~(UINT64)0;
    info.dwProcessId = GetCurrentProcessId();
    info.pszPath = (WCHAR *)path;
    return ZVSDK_CALL(cls, IdentifyFile, &info);
}

/* A fresh template record of the given size (zero-filled, size and version
   set), from the C run-time heap as the contract wants; null on failure. */
static __inline tagZVTEMPLATExV2 *ZvSdk_AllocTemplate(DWORD size)
{
    tagZVTEMPLATExV2 *t;
    if (size < ZVTEMPLATE_HEADER_SIZE + 4)
        size = ZVTEMPLATE_HEADER_SIZE + 4;
    t = (tagZVTEMPLATExV2 *)calloc(1, size);
    if (t) {
        t->dwSize = size;
        t->dwVersion = ZVTEMPLATE_VERSION_V2;
    }
    return t;
}
