// Entry of Vantry.exe: start-up, the message loop, tear-down.
#include "vantry.h"
#include "external.h"
#include "zvproxy.h"
#include "zvkernel.h"
#include "zvlang.h"
#include <omp.h>
#include <gdiplus.h>

// The process's language handle, opened when the command line names one.
static HZVLANG vantry_lang;

// Takes the client's language, the last number of the command line, for this
// process's handle and the kernel's, the layout and the thread locale.
static void apply_language(HINSTANCE instance)
{
    LANGID lang;
    if (!Vantry_ParseLanguage(GetCommandLineW(), &lang))
        return;
    if (FAILED(ZvLang_Open(&vantry_lang, instance, lang, 0))) {
        vantry_lang = NULL;
        return;
    }
    ZvLang_UpdateKernelLCID(vantry_lang, lang, 0);
    if (ZvLang_UseRTL(vantry_lang))
        ZvLang_EnableProcessMirroring();
    else
        ZvLang_DisableProcessMirroring();
    ZvLang_UpdateThreadLocale(vantry_lang);
}

static int run_server(HINSTANCE instance)
{
    HRESULT exit_code = S_OK;

    vantry_module_init();
    // the main thread gets its message queue now, so that WM_QUIT can't be
    // posted before there is a queue to receive it
    MSG msg;
    PeekMessageW(&msg, NULL, WM_USER, WM_USER, PM_NOREMOVE);

    CoInitializeEx(NULL, COINIT_MULTITHREADED);
    Vantry_ErrorReportInitialize(0);
    omp_set_dynamic(1);
    ZvKernel_EarlyInitialize(instance, 0, NULL);
    apply_language(instance);
    Gdiplus::GdiplusStartupInput gdiplus_input;
    ULONG_PTR gdiplus_token = 0;
    if (Gdiplus::GdiplusStartup(&gdiplus_token, &gdiplus_input, NULL) != Gdiplus::Ok)
        gdiplus_token = 0;
    Vantry_ControlsInitialize(instance, 0);

    if (vantry_module.failed) {
        exit_code = -1;
        goto teardown2;
    }
    exit_code = CoInitializeEx(NULL, COINIT_MULTITHREADED);
    if (SUCCEEDED(exit_code))
        vantry_module.com_initialized = TRUE;
    else if (!(exit_code == RPC_E_CHANGED_MODE && GetModuleHandleW(L"Mscoree.dll")))
        goto teardown2;
    ZvProxy_Register();

    switch (Vantry_ParseSwitch(GetCommandLineW())) {
    case VANTRY_UNREGSERVER:
        exit_code = vantry_module_unregister(FALSE);
        goto teardown1;
    case VANTRY_REGSERVER:
        exit_code = vantry_module_register(FALSE);
        goto teardown1;
    case VANTRY_UNREGSERVER_PERUSER:
        exit_code = vantry_module_unregister(TRUE);
        goto teardown1;
    case VANTRY_REGSERVER_PERUSER:
        exit_code = vantry_module_register(TRUE);
        goto teardown1;
    case VANTRY_RUN:
        break;
    }

    exit_code = vantry_module_pre_message_loop();
    if (FAILED(exit_code))
        goto teardown1;
    if (exit_code == S_OK) {
        while (GetMessageW(&msg, NULL, 0, 0) > 0) {
            TranslateMessage(&msg);
            DispatchMessageW(&msg);
        }
    }
    exit_code = vantry_module_post_message_loop();

teardown1:
    if (vantry_module.com_initialized)
        CoUninitialize();
teardown2:
    Vantry_ControlsTerminate(instance, 0);
    if (vantry_lang) {
        ZvLang_Close(vantry_lang);
        vantry_lang = NULL;
    }
    ZvKernel_LateTerminate(instance, 0);
    Vantry_ErrorReportShutdown();
    ZvProxy_Unregister();
    CoUninitialize();
    if (gdiplus_token)
        Gdiplus::GdiplusShutdown(gdiplus_token);
    vantry_module_term();
    return (int)exit_code;
}

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE previous, LPWSTR commandLine, int show)
{
    (void)previous; (void)commandLine; (void)show;
    return run_server(instance);
}
