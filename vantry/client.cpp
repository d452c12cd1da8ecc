// Launching and reaching a surrogate from the calling side.
#include "vantrycmd.h"
#include <objbase.h>
#include <stdio.h>

HRESULT Vantry_Launch(const wchar_t *path, int language, PROCESS_INFORMATION *pi)
{
    if (!path || !*path || !pi)
        return E_INVALIDARG;
    wchar_t line[388];
    int n = _snwprintf(line, sizeof(line) / sizeof(line[0]), L"\"%ls\" %d", path, language);
    if (n < 0 || n >= (int)(sizeof(line) / sizeof(line[0])))
        return HRESULT_FROM_WIN32(ERROR_FILENAME_EXCED_RANGE);
    STARTUPINFOW si;
    ZeroMemory(&si, sizeof(si));
    si.cb = sizeof(si);
    ZeroMemory(pi, sizeof(*pi));
    // suspended, so that a crash reporter may watch it from its first instruction
    if (!CreateProcessW(NULL, line, NULL, NULL, FALSE, CREATE_SUSPENDED, NULL, NULL, &si, pi))
        return HRESULT_FROM_WIN32(GetLastError());
    ResumeThread(pi->hThread);
    return S_OK;
}

HRESULT Vantry_Connect(DWORD processId, HANDLE process, unsigned attempts, REFIID iid, void **out)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    CLSID clsid;
    Vantry_ProcessClassId(processId, &clsid);
    HRESULT hr = REGDB_E_CLASSNOTREG;
    for (unsigned i = 0; i < attempts; i++) {
        if (i)
            Sleep(100);
        // the class exists only once the child has registered it
        hr = CoCreateInstance(clsid, NULL, CLSCTX_LOCAL_SERVER, iid, out);
        if (hr != REGDB_E_CLASSNOTREG)
            break;
        if (process && WaitForSingleObject(process, 0) == WAIT_OBJECT_0)
            return CO_E_SERVER_EXEC_FAILURE;
    }
    return hr;
}
