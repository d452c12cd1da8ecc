// Error texts: the result and context tables, registered tables, the
// composed message, the detail store and the translation of platform errors.
#include "zverrint.h"
#include "zvlangint.h"
#include "zvprintf.h"
#include <stdio.h>
#include <string.h>

namespace {

struct RegisteredTable {
    const ZVERROR_TABLE *rows;
    int count;
    HZVLANG lang;  // null: the kernel's handle at lookup time
};

RegisteredTable g_tables[ZVERR_MAX_TABLES];
int g_tableCount;

// The detail store: one per process, used by one reporting thread at a time.
struct DetailStore {
    HRESULT lastError;
    wchar_t message[2048];
    DWORD owner;
    int lineCount;
    wchar_t details[8192];
    wchar_t linkUrl[2083];
    wchar_t linkText[2048];
};
DetailStore g_store;

// Past this length the message holds no result text.
const int kMessageFull = 1948;

HZVLANG kernelLang()
{
    return ZvLang_GetKernelLang();
}

// Makes a text safe as a format that receives only the argument text: every
// element other than "%s" and "$(...)" is doubled into a literal.
void escapeFormat(wchar_t *out, int cch, const wchar_t *text)
{
    int n = 0;
    for (const wchar_t *p = text; *p && n < cch - 2; ++p) {
        wchar_t c = *p;
        if (c == L'%' || c == L'$') {
            wchar_t next = p[1];
            bool keep = (c == L'%' && next == L's') || (c == L'$' && next == L'(') || next == c;
            out[n++] = c;
            if (!keep) {
                out[n++] = c;
            } else if (next == c) {
                out[n++] = next;
                ++p;
            }
            continue;
        }
        out[n++] = c;
    }
    out[n] = 0;
}

// Formats text with the argument for each "%s" it holds.
void formatWithArgument(wchar_t *out, int cch, const wchar_t *text, const wchar_t *argument)
{
    wchar_t format[2048];
    escapeFormat(format, ARRAYSIZE(format), text ? text : L"");
    const wchar_t *a = argument ? argument : L"";
    zverr_Format(out, cch, format, a, a, a, a, a, a, a, a);
}

const wchar_t *resultText(HRESULT hr)
{
    for (int t = 0; t < g_tableCount; ++t) {
        const RegisteredTable &table = g_tables[t];
        for (int i = 0; i < table.count; ++i) {
            if (table.rows[i].hr != hr)
                continue;
            if (!table.rows[i].text)
                return nullptr;
            return ZvGetStringSmart(table.lang ? table.lang : kernelLang(), table.rows[i].text);
        }
    }
    for (int i = 0; i < zverr_ResultRowCount; ++i) {
        if (zverr_ResultRows[i].hr == hr)
            return ZvGetString(kernelLang(), &zverr_ResultRows[i].text);
    }
    return nullptr;
}

} // namespace

void zverr_VFormat(wchar_t *buffer, int cch, const wchar_t *format, va_list args)
{
    if (!buffer || cch <= 0)
        return;
    buffer[0] = 0;
    if (format)
        ZvNVPrintF(buffer, cch, nullptr, format, args);
}

void zverr_Format(wchar_t *buffer, int cch, const wchar_t *format, ...)
{
    va_list args;
    va_start(args, format);
    zverr_VFormat(buffer, cch, format, args);
    va_end(args);
}

bool zverr_HasFormat(const wchar_t *text)
{
    return text && (wcschr(text, L'%') || wcschr(text, L'$'));
}

int ZvErrorHandler_AddErrorTable(const ZVERROR_TABLE *rows, int count)
{
    return ZvErrorHandler_AddErrorTableLang(nullptr, rows, count);
}

int ZvErrorHandler_AddErrorTableLang(HZVLANG lang, const ZVERROR_TABLE *rows, int count)
{
    if (g_tableCount >= ZVERR_MAX_TABLES || !rows || count <= 0)
        return 1;
    g_tables[g_tableCount++] = RegisteredTable{rows, count, lang};
    return 0;
}

HRESULT ZvErrorHandler_GetLastError(void)
{
    return g_store.lastError;
}

const wchar_t *ZvErrorHandler_GetContextString(UINT_PTR context)
{
    if (context > 0xFFFF)
        return ZvGetStringSmart(kernelLang(), reinterpret_cast<const wchar_t *>(context));
    const ZVERRORCONTEXT *row = &zverr_ContextRows[0];
    for (int i = 0; i < zverr_ContextRowCount; ++i) {
        if (static_cast<UINT_PTR>(zverr_ContextRows[i].context) == context) {
            row = &zverr_ContextRows[i];
            break;
        }
    }
    return ZvGetString(kernelLang(), &row->text);
}

const wchar_t *ZvErrorHandler_GetHresultString(HRESULT hr)
{
    return resultText(hr);
}

const wchar_t *ZvErrorHandler_GetErrorMessage(UINT_PTR context, HRESULT hr, const wchar_t *argument)
{
    wchar_t *message = g_store.message;
    const int cch = ARRAYSIZE(g_store.message);
    formatWithArgument(message, cch, ZvErrorHandler_GetContextString(context), argument);
    int length = lstrlenW(message);
    if (length >= kMessageFull)
        return message;
    const wchar_t *text = resultText(hr);
    wchar_t missing[100];
    if (!text) {
        zverr_Format(missing, ARRAYSIZE(missing), ZvGetString(kernelLang(), &zverr_MissingText),
                     static_cast<unsigned>(hr));
        text = missing;
    }
    formatWithArgument(message + length, cch - length, text, argument);
    return message;
}

BSTR ZvErrorHandler_ComposeErrorText(UINT_PTR context, HRESULT hr, const wchar_t *argument)
{
    const wchar_t *message = ZvErrorHandler_GetErrorMessage(context, hr, argument);
    if (g_store.lineCount <= 0)
        return SysAllocString(message);
    static const wchar_t open[] = L"\r\n<Details>\r\n";
    static const wchar_t close[] = L"\r\n</Details>";
    UINT m = lstrlenW(message), d = lstrlenW(g_store.details);
    UINT o = ARRAYSIZE(open) - 1, c = ARRAYSIZE(close) - 1;
    BSTR text = SysAllocStringLen(nullptr, m + o + d + c);
    if (!text)
        return nullptr;
    wchar_t *p = text;
    memcpy(p, message, m * sizeof(wchar_t));
    p += m;
    memcpy(p, open, o * sizeof(wchar_t));
    p += o;
    memcpy(p, g_store.details, d * sizeof(wchar_t));
    p += d;
    memcpy(p, close, c * sizeof(wchar_t));
    p[c] = 0;
    return text;
}

// --- Details -------------------------------------------------------------------

int ZvErrorHandler_DetailsInit(void)
{
    memset(&g_store, 0, sizeof(g_store));
    return 0;
}

const wchar_t *ZvErrorHandler_DetailsInfo(HRESULT *hr, int *lineCount, DWORD *owner)
{
    if (hr)
        *hr = g_store.lastError;
    if (lineCount)
        *lineCount = g_store.lineCount;
    if (owner)
        *owner = g_store.owner;
    return g_store.lineCount > 0 ? g_store.details : nullptr;
}

HRESULT ZvErrorHandler_DetailsAddString(HRESULT hr, const wchar_t *format, ...)
{
    DWORD thread = GetCurrentThreadId();
    if (!g_store.owner)
        g_store.owner = thread;
    else if (g_store.owner != thread && hr != g_store.lastError)
        return E_FAIL;  // another thread may only add to the failure being told
    if (!format)
        return E_POINTER;
    const wchar_t *text = ZvGetStringSmart(kernelLang(), format);
    static wchar_t scratch[8192];
    if (zverr_HasFormat(text)) {
        va_list args;
        va_start(args, format);
        zverr_VFormat(scratch, ARRAYSIZE(scratch), text, args);
        va_end(args);
        text = scratch;
    }
    int existing = lstrlenW(g_store.details);
    int added = lstrlenW(text);
    if ((existing + added) * 2 + 4 >= static_cast<int>(sizeof(g_store.details)))
        return E_FAIL;
    wchar_t *end = g_store.details + existing;
    memmove(end, text, added * sizeof(wchar_t));
    end[added] = L'\r';
    end[added + 1] = L'\n';
    end[added + 2] = 0;
    ++g_store.lineCount;
    g_store.lastError = hr;
    return S_OK;
}

HRESULT ZvErrorHandler_DetailsSetHyperlink(const wchar_t *target, const wchar_t *label)
{
    if (!target || !label)
        return E_POINTER;
    lstrcpynW(g_store.linkUrl, target, ARRAYSIZE(g_store.linkUrl));
    lstrcpynW(g_store.linkText, label, ARRAYSIZE(g_store.linkText));
    return S_OK;
}

// --- Boxes for results ------------------------------------------------------------

int ZvErrorHandler_MsgBox(HWND owner, UINT style, UINT_PTR context, HRESULT hr, const wchar_t *argument,
                          const wchar_t *caption)
{
    if (hr == ZVERR_CANCELLED)
        return IDOK;  // the user knows: no message
    return ZvErrorHandler_MsgBoxText(owner, style, ZvErrorHandler_GetErrorMessage(context, hr, argument), caption);
}

int ZvErrorHandler_MsgBoxText(HWND owner, UINT style, const wchar_t *text, const wchar_t *caption)
{
    wchar_t title[50];
    lstrcpynW(title, ZvGetString(kernelLang(), &zverr_WarningTitle), ARRAYSIZE(title));
    zvlang_StripMarker(title, lstrlenW(title));
    style &= ~static_cast<UINT>(ZVMB_DETAILS);
    static wchar_t details[8192];
    const wchar_t *shownDetails = nullptr;
    if (g_store.lineCount > 0) {
        lstrcpynW(details, g_store.details, ARRAYSIZE(details));
        shownDetails = details;
        style |= ZVMB_DETAILS;
    }
    const wchar_t *body = ZvGetStringSmart(kernelLang(), text);
    if (!body)
        body = L"";
    static wchar_t joined[4096];
    if (caption && *caption) {
        _snwprintf(joined, ARRAYSIZE(joined), L"%ls\n\n%ls", ZvGetStringSmart(kernelLang(), caption), body);
        joined[ARRAYSIZE(joined) - 1] = 0;
        body = joined;
    }
    if (g_store.linkUrl[0] && g_store.linkText[0])
        return ZvMsgBox_CustomExLinkF(owner, style, shownDetails, title, g_store.linkText, g_store.linkUrl, L"%s",
                                      body);
    return ZvMsgBox_CustomF(owner, style, shownDetails, title, L"%s", body);
}

// --- Translation -------------------------------------------------------------------

HRESULT ZvErrorHandler_TranslateWin32Error(DWORD error)
{
    static const struct {
        DWORD error;
        HRESULT hr;
    } kRows[] = {
        {0, S_OK},
        {ERROR_INVALID_FUNCTION, E_INVALIDARG},
        {ERROR_FILE_NOT_FOUND, ZVERR_NOT_FOUND},
        {ERROR_PATH_NOT_FOUND, ZVERR_NOT_FOUND},
        {ERROR_MOD_NOT_FOUND, ZVERR_NOT_FOUND},
        {ERROR_PROC_NOT_FOUND, ZVERR_NOT_FOUND},
        {ERROR_TOO_MANY_OPEN_FILES, (HRESULT)0x8004E026},
        {ERROR_ACCESS_DENIED, E_ACCESSDENIED},
        {ERROR_INVALID_HANDLE, E_HANDLE},
        {ERROR_OUTOFMEMORY, E_OUTOFMEMORY},
        {ERROR_OUT_OF_STRUCTURES, E_OUTOFMEMORY},
        {ERROR_INVALID_DRIVE, (HRESULT)0x800404B0},
        {ERROR_SHARING_VIOLATION, (HRESULT)0x8004E05A},
        {ERROR_HANDLE_DISK_FULL, ZVERR_DISK_FULL},
        {ERROR_DISK_FULL, ZVERR_DISK_FULL},
        {ERROR_FILE_EXISTS, (HRESULT)0x8004E032},
        {ERROR_OPEN_FAILED, ZVERR_FILE_OPEN},
        {ERROR_CALL_NOT_IMPLEMENTED, E_NOTIMPL},
        {ERROR_INVALID_NAME, ZVERR_BAD_FILENAME},
        {ERROR_BUSY, (HRESULT)0x8004E005},
        {ERROR_ALREADY_EXISTS, (HRESULT)0x8004E170},
    };
    for (const auto &row : kRows) {
        if (row.error == error)
            return row.hr;
    }
    return E_FAIL;
}

HRESULT ZvErrorHandler_TranslateCommDlgError(DWORD error)
{
    switch (error) {
    case 0:
        return S_OK;
    case 1: case 3: case 4: case 11:
    case 0x3003: case 0x4001: case 0xFFFF:
        return E_INVALIDARG;
    case 2: case 5: case 7: case 8: case 9: case 10:
    case 0x3001:
        return E_OUTOFMEMORY;
    case 6:
        return (HRESULT)0x8004E00E;
    case 0x3002:
        return ZVERR_BAD_FILENAME;
    default:
        return E_FAIL;
    }
}
