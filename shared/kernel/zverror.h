// The error handler: turns an HRESULT and a context into the text a user
// reads, collects optional details, translates platform error numbers, shows
// message boxes and reports unhandled exceptions.
//
// A command-line tool turns a result into text with
//     ZvErrorHandler_GetErrorMessage(0, hr, nullptr)
// (context 0 gives "An error occurred during the current operation." and
// then the result's sentence) or ZvErrorHandler_GetHresultString(hr) for the
// result's sentence alone, and calls ZvMsgBoxSetNoUIHook so that no box ever
// waits for a user.
#pragma once
#include "zvbase.h"
#include "zvlang.h"
#include <oleauto.h>
#include <stdarg.h>

// A row of a registered table. The text may take any form a language handle
// resolves: plain text, a record, or a string number (the _rcid form).
typedef struct _zverror_table {
    HRESULT hr;
    const wchar_t *text;
} ZVERROR_TABLE;
typedef struct _zverror_table_rcid {
    HRESULT hr;
    UINT_PTR rcid;
} ZVERROR_TABLE_RCID;

#define ZVERR_MAX_TABLES 32
// Context numbers; a value above 0xFFFF is a pointer to the context text.
#define ZVERR_CONTEXT_OPERATION 0
#define ZVERR_CONTEXT_PLUGIN    2
#define ZVERR_CONTEXT_OPENFILES 22
#define ZVERR_CONTEXT_FILEIO    27
#define ZVERR_EXCEPTION         ((HRESULT)0x8004E017)

// --- Tables and text ---------------------------------------------------------
// 0, or 1 when ZVERR_MAX_TABLES tables exist. Rows must stay valid.
ZVAPI int ZvErrorHandler_AddErrorTable(const ZVERROR_TABLE *rows, int count);
ZVAPI int ZvErrorHandler_AddErrorTableLang(HZVLANG lang, const ZVERROR_TABLE *rows, int count);
ZVAPI HRESULT ZvErrorHandler_GetLastError(void);
ZVAPI const wchar_t *ZvErrorHandler_GetContextString(UINT_PTR context);
// The result's text (with its leading blank line), or null when none.
ZVAPI const wchar_t *ZvErrorHandler_GetHresultString(HRESULT hr);
// Context sentence and result sentence; the text stays until the next
// compose. argument fills a "%s" of the context (null: empty).
ZVAPI const wchar_t *ZvErrorHandler_GetErrorMessage(UINT_PTR context, HRESULT hr, const wchar_t *argument);
// The message with the details; free with SysFreeString.
ZVAPI BSTR ZvErrorHandler_ComposeErrorText(UINT_PTR context, HRESULT hr, const wchar_t *argument);

// --- Details -------------------------------------------------------------------
ZVAPI int ZvErrorHandler_DetailsInit(void);
// The detail lines, or null when there are none.
ZVAPI const wchar_t *ZvErrorHandler_DetailsInfo(HRESULT *hr, int *lineCount, DWORD *owner);
ZVAPI HRESULT ZvErrorHandler_DetailsAddString(HRESULT hr, const wchar_t *format, ...);
ZVAPI HRESULT ZvErrorHandler_DetailsSetHyperlink(const wchar_t *target, const wchar_t *label);

// --- Translation -----------------------------------------------------------------
ZVAPI HRESULT ZvErrorHandler_TranslateWin32Error(DWORD error);
ZVAPI HRESULT ZvErrorHandler_TranslateCommDlgError(DWORD error);

// --- Boxes -------------------------------------------------------------------------
ZVAPI int ZvErrorHandler_MsgBox(HWND owner, UINT style, UINT_PTR context, HRESULT hr, const wchar_t *argument,
                                const wchar_t *caption);
ZVAPI int ZvErrorHandler_MsgBoxText(HWND owner, UINT style, const wchar_t *text, const wchar_t *caption);

// Replacement of the whole box: any result other than -1 is the answer.
typedef int(WINAPI *ZVMSGBOXHOOK)(void *data, HWND owner, const wchar_t *text, const wchar_t *title, UINT style);
// Receives the text of each box the no-interface replacement answers.
typedef void(WINAPI *ZVMSGBOXLOG)(const wchar_t *text);

ZVAPI void ZvMsgBoxSetAppData(HINSTANCE module, HWND mainWindow, const wchar_t *title);
// Only from the thread that called ZvMsgBoxSetAppData (or any thread before
// it was called). FALSE from another thread.
ZVAPI BOOL ZvMsgBoxSetHook(ZVMSGBOXHOOK hook, void *data);
// Arms (callback) or clears (null) the answering of every box by its default
// button, without a window.
ZVAPI BOOL ZvMsgBoxSetNoUIHook(ZVMSGBOXLOG log);
ZVAPI int ZvMessageBox(HWND owner, const wchar_t *text, const wchar_t *title, UINT style);
// Texts and formats may take any text form of zvlang.h.
ZVAPI int ZvMsgBoxF(HWND owner, UINT style, const wchar_t *format, ...);
ZVAPI int ZvMsgBoxNoF(HWND owner, UINT style, const wchar_t *text);
ZVAPI int ZvMsgBoxId(HWND owner, UINT style, HZVLANG lang, UINT id, ...);

// The kernel's own box: extra button sets (styles 10 to 13), a details
// button (style bits 14 and 15 with details text), a link, a check box.
#define ZVMB_YESYESALLNOCANCEL    10
#define ZVMB_YESNODELETE          11
#define ZVMB_YESNONOALLCANCEL     12
#define ZVMB_YESYESALLNONOALLCANCEL 13
#define ZVMB_DETAILS              0xC000
#define ZVID_YESTOALL             100
#define ZVID_DELETE               101
#define ZVID_NOTOALL              102
ZVAPI int ZvMsgBox_CustomF(HWND owner, UINT style, const wchar_t *details, const wchar_t *title,
                           const wchar_t *format, ...);
ZVAPI int ZvMsgBox_CustomNoF(HWND owner, UINT style, const wchar_t *details, const wchar_t *title,
                             const wchar_t *text);
// dontShow (optional) receives the state of "Do not show this message again."
ZVAPI int ZvMsgBox_CustomExF(HWND owner, UINT style, const wchar_t *details, const wchar_t *title, BOOL *dontShow,
                             const wchar_t *format, ...);
ZVAPI int ZvMsgBox_CustomExNoF(HWND owner, UINT style, const wchar_t *details, const wchar_t *title,
                               BOOL *dontShow, const wchar_t *text);
ZVAPI int ZvMsgBox_CustomExLinkF(HWND owner, UINT style, const wchar_t *details, const wchar_t *title,
                                 const wchar_t *linkText, const wchar_t *linkTarget, const wchar_t *format, ...);
ZVAPI int ZvMsgBox_TitledF(HWND owner, UINT style, const wchar_t *title, const wchar_t *format, ...);
ZVAPI int ZvMsgBox_TitledNoF(HWND owner, UINT style, const wchar_t *title, const wchar_t *text);

// --- Dumps ---------------------------------------------------------------------------
// Narrow text into buffer (size in bytes); the bytes written. Unreadable
// memory shows as ".." and never faults.
ZVAPI int ZvErrorHandler_DumpHex(char *buffer, int size, const void *address, int bytes);
ZVAPI int ZvErrorHandler_DumpHexDWords(char *buffer, int size, const void *address, int words);
// Sections: 1 exception, 2 module, 4 registers, 8 code bytes, 16 stack,
// 32 thread; 0 means all.
ZVAPI void ZvErrorHandler_DumpExceptionRecord(char *buffer, int size, const char *threadName,
                                              EXCEPTION_POINTERS *pointers, DWORD sections);
// For an exception filter: reports the exception in a box and returns 1
// (EXCEPTION_EXECUTE_HANDLER), or 0 for a debugger or misalignment.
ZVAPI LONG ZvErrorHandler_ExceptionFilter(EXCEPTION_POINTERS *pointers, const char *threadName);

#ifdef __cplusplus
inline int ZvErrorHandler_AddErrorTable(HZVLANG lang, const ZVERROR_TABLE *rows, int count)
{
    return ZvErrorHandler_AddErrorTableLang(lang, rows, count);
}
inline int ZvErrorHandler_AddErrorTable(const ZVERROR_TABLE_RCID *rows, int count)
{
    return ZvErrorHandler_AddErrorTable(reinterpret_cast<const ZVERROR_TABLE *>(rows), count);
}
inline int ZvErrorHandler_AddErrorTable(HZVLANG lang, const ZVERROR_TABLE_RCID *rows, int count)
{
    return ZvErrorHandler_AddErrorTableLang(lang, reinterpret_cast<const ZVERROR_TABLE *>(rows), count);
}
#endif
