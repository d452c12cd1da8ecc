// Tables and helpers shared by the error handler's files; not exported.
#pragma once
#include "zverror.h"

struct ZVERRORROW {
    HRESULT hr;
    ZVLANGSTRING text;
};
struct ZVERRORCONTEXT {
    int context;
    ZVLANGSTRING text;
};

extern ZVERRORROW zverr_ResultRows[];
extern const int zverr_ResultRowCount;
extern ZVERRORCONTEXT zverr_ContextRows[];
extern const int zverr_ContextRowCount;

// Texts of the kernel's own boxes and reports, records of zvtexts.rc.
extern ZVLANGSTRING zverr_MissingText;      // "\n\nError 0x%08x (message missing)"
extern ZVLANGSTRING zverr_WarningTitle;     // "Warning: "
extern ZVLANGSTRING zverr_DetailsOpen;      // "&Details >>"
extern ZVLANGSTRING zverr_DetailsClose;     // "No &Details"
extern ZVLANGSTRING zverr_ButtonLabels[10]; // OK ... D&elete
extern ZVLANGSTRING zverr_DontShowAgain;

// Formats into buffer (cch characters, always terminated) with the kernel's
// format language: "%s" and the like, "$(Token)".
void zverr_Format(wchar_t *buffer, int cch, const wchar_t *format, ...);
void zverr_VFormat(wchar_t *buffer, int cch, const wchar_t *format, va_list args);
// True when text holds a "%" or "$" element that formatting would change.
bool zverr_HasFormat(const wchar_t *text);
// The application title recorded by ZvMsgBoxSetAppData, never null.
const wchar_t *zverr_AppTitle(void);
// The box with hooks applied: the kernel's own dialog.
int zverr_ShowCustomBox(HWND owner, UINT style, const wchar_t *text, const wchar_t *title, const wchar_t *details,
                        const wchar_t *linkText, const wchar_t *linkTarget, BOOL *dontShow);
