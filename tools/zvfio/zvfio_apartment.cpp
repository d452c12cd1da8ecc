// The thread a command runs on: "--apartment=sta" (the default) is a
// single-threaded apartment with a message loop, as an application's window
// thread is; "--apartment=mta" a thread of the multithreaded apartment.
#include "zvfio.h"
#include <objbase.h>
#include <process.h>
#include <string.h>

namespace zvfio {

namespace {

struct Run {
    DWORD model;
    int (*body)(int, wchar_t **);
    int argc;
    wchar_t **argv;
    int result;
};

unsigned __stdcall ApartmentThread(void *param)
{
    Run *run = (Run *)param;
    HRESULT com = CoInitializeEx(NULL, run->model);
    MSG msg;
    PeekMessageW(&msg, NULL, 0, 0, PM_NOREMOVE); // the thread's queue
    // the command is the first message the loop dispatches
    PostThreadMessageW(GetCurrentThreadId(), WM_APP, 0, 0);
    while (GetMessageW(&msg, NULL, 0, 0) > 0) {
        if (!msg.hwnd && msg.message == WM_APP) {
            run->result = run->body(run->argc, run->argv);
            PostQuitMessage(0);
            continue;
        }
        TranslateMessage(&msg);
        DispatchMessageW(&msg);
    }
    if (SUCCEEDED(com))
        CoUninitialize();
    return 0;
}

} // namespace

int RunInApartment(int argc, wchar_t **argv, int (*body)(int, wchar_t **))
{
    Run run = {COINIT_APARTMENTTHREADED, body, 0, nullptr, 2};
    wchar_t **rest = new wchar_t *[argc + 1];
    const wchar_t *const key = L"--apartment=";
    for (int i = 0; i < argc; ++i) {
        if (i == 0 || wcsncmp(argv[i], key, wcslen(key)) != 0) {
            rest[run.argc++] = argv[i];
            continue;
        }
        const wchar_t *value = argv[i] + wcslen(key);
        if (!wcscmp(value, L"sta")) {
            run.model = COINIT_APARTMENTTHREADED;
        } else if (!wcscmp(value, L"mta")) {
            run.model = COINIT_MULTITHREADED;
        } else {
            Err("zvfio: --apartment takes sta or mta, not '%s'\n", Utf8(value).c_str());
            delete[] rest;
            return 2;
        }
    }
    rest[run.argc] = nullptr;
    run.argv = rest;
    HANDLE thread = (HANDLE)_beginthreadex(NULL, 0, ApartmentThread, &run, 0, NULL);
    if (thread) {
        WaitForSingleObject(thread, INFINITE);
        CloseHandle(thread);
    } else {
        Err("zvfio: no thread for the command\n");
    }
    delete[] rest;
    return run.result;
}

} // namespace zvfio
