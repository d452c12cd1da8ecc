// Starts a surrogate the way a 64-bit host does, reaches it, asks for its
// process id, lets it go and watches it end.
#include <windows.h>
#include <objbase.h>
#include <stdio.h>
#include "vantrycmd.h"
#include "zvproxy.h"
#include "zvsurrogate.h"

static double now_ms(void)
{
    LARGE_INTEGER f, c;
    QueryPerformanceFrequency(&f);
    QueryPerformanceCounter(&c);
    return (double)c.QuadPart * 1000.0 / (double)f.QuadPart;
}

int main(void)
{
    CoInitializeEx(NULL, COINIT_MULTITHREADED);
    ZvProxy_Register();
    wchar_t path[MAX_PATH];
    if (!Vantry_SurrogatePath(NULL, path, MAX_PATH)) {
        fprintf(stderr, "vantryping: path of the surrogate too long\n");
        return 1;
    }
    printf("surrogate: %ls\n", path);
    double t0 = now_ms();
    PROCESS_INFORMATION pi;
    HRESULT hr = Vantry_Launch(path, 0, &pi);
    if (FAILED(hr)) {
        fprintf(stderr, "vantryping: can't start the surrogate: 0x%08lX\n", (unsigned long)hr);
        return 1;
    }
    CloseHandle(pi.hThread);
    IZvFileIOManagerSurrogate *surrogate = NULL;
    hr = Vantry_Connect(pi.dwProcessId, pi.hProcess, 100, IID_IZvFileIOManagerSurrogate, (void **)&surrogate);
    double t1 = now_ms();
    DWORD pid = 0;
    if (SUCCEEDED(hr))
        hr = surrogate->GetProcessId(&pid);
    if (FAILED(hr)) {
        fprintf(stderr, "vantryping: can't reach the surrogate: 0x%08lX\n", (unsigned long)hr);
        TerminateProcess(pi.hProcess, 1);
        CloseHandle(pi.hProcess);
        return 1;
    }
    printf("started process %lu, connected in %.1f ms, it says it is process %lu\n",
           (unsigned long)pi.dwProcessId, t1 - t0, (unsigned long)pid);

    const int calls = 1000;
    double t2 = now_ms();
    for (int i = 0; i < calls; i++)
        surrogate->GetProcessId(&pid);
    printf("%d calls of GetProcessId: %.3f ms each\n", calls, (now_ms() - t2) / calls);

    double t3 = now_ms();
    surrogate->Release();
    int status = 0;
    if (WaitForSingleObject(pi.hProcess, 5000) == WAIT_OBJECT_0) {
        DWORD code = 0;
        GetExitCodeProcess(pi.hProcess, &code);
        printf("released: the surrogate ended %.0f ms later with exit code %lu\n", now_ms() - t3,
               (unsigned long)code);
    } else {
        printf("released: the surrogate is still running after 5 s, terminating it\n");
        TerminateProcess(pi.hProcess, 1);
        status = 1;
    }
    CloseHandle(pi.hProcess);
    ZvProxy_Unregister();
    CoUninitialize();
    return status;
}
