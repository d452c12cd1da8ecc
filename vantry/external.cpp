// Outside services of the start-up; see external.h.
#include "external.h"

/* ErrorReport.dll */

typedef void (WINAPI *errorreport_flags_fn)(DWORD);
typedef void (WINAPI *errorreport_void_fn)(void);

static struct
{
    INIT_ONCE once;
    HMODULE module;
    errorreport_flags_fn initialize;
    errorreport_void_fn shutdown;
    errorreport_flags_fn start_monitoring;
    errorreport_flags_fn stop_monitoring;
} errorreport = { INIT_ONCE_STATIC_INIT, NULL, NULL, NULL, NULL, NULL };

static BOOL CALLBACK errorreport_load(INIT_ONCE *once, void *param, void **context)
{
    (void)once; (void)param; (void)context;
    // a missing crash reporter is normal: it is installed separately
    UINT mode = SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
    errorreport.module = LoadLibraryExW(L"ErrorReport.dll", NULL, 0);
    SetErrorMode(mode);
    if (!errorreport.module)
        return TRUE;
    errorreport.initialize = (errorreport_flags_fn)(void *)GetProcAddress(errorreport.module, "ErrorReport_Initialize");
    errorreport.shutdown = (errorreport_void_fn)(void *)GetProcAddress(errorreport.module, "ErrorReport_Shutdown");
    errorreport.start_monitoring =
        (errorreport_flags_fn)(void *)GetProcAddress(errorreport.module, "ErrorReport_StartMonitoringProcess");
    errorreport.stop_monitoring =
        (errorreport_flags_fn)(void *)GetProcAddress(errorreport.module, "ErrorReport_StopMonitoringProcess");
    return TRUE;
}

static void errorreport_ensure(void)
{
    InitOnceExecuteOnce(&errorreport.once, errorreport_load, NULL, NULL);
}

void Vantry_ErrorReportInitialize(DWORD flags)
{
    errorreport_ensure();
    if (errorreport.initialize)
        errorreport.initialize(flags);
}

void Vantry_ErrorReportShutdown(void)
{
    errorreport_ensure();
    if (errorreport.shutdown)
        errorreport.shutdown();
}

void Vantry_ErrorReportStartMonitoringProcess(DWORD processId)
{
    errorreport_ensure();
    if (errorreport.start_monitoring)
        errorreport.start_monitoring(processId);
}

void Vantry_ErrorReportStopMonitoringProcess(DWORD processId)
{
    errorreport_ensure();
    if (errorreport.stop_monitoring)
        errorreport.stop_monitoring(processId);
}

/* UI controls */

void Vantry_ControlsInitialize(HINSTANCE instance, DWORD flags)
{
    (void)instance; (void)flags;
}

void Vantry_ControlsTerminate(HINSTANCE instance, DWORD flags)
{
    (void)instance; (void)flags;
}
