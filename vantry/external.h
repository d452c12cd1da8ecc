/*
 * Services the start-up of Vantry.exe calls that live outside this folder:
 * the crash reporter (a separate DLL, used when present) and the UI
 * controls.
 */
#pragma once
#include <windows.h>

/* ErrorReport.dll, loaded on first use; every call is a no-op without it. */
void Vantry_ErrorReportInitialize(DWORD flags);
void Vantry_ErrorReportShutdown(void);
void Vantry_ErrorReportStartMonitoringProcess(DWORD processId);
void Vantry_ErrorReportStopMonitoringProcess(DWORD processId);

/* The UI controls library isn't part of this process's build: its start and
   end are empty. */
void Vantry_ControlsInitialize(HINSTANCE instance, DWORD flags);
void Vantry_ControlsTerminate(HINSTANCE instance, DWORD flags);
