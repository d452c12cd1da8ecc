// Message boxes: the platform box with centring, the kernel's own box with
// its extra buttons, details, link and check box, and the hooks that replace
// both (the no-interface hook answers every box by its default button).
#include "zverrint.h"
#include "zvlangint.h"
#include <shellapi.h>
#include <stdio.h>
#include <string.h>
#include <vector>

namespace {

struct BoxSettings {
    DWORD ownerThread;
    HINSTANCE module;
    HWND mainWindow;
    wchar_t title[260];
    ZVMSGBOXHOOK hook;
    void *hookData;
    bool noUi;
    ZVMSGBOXLOG log;
};
BoxSettings g_box;
volatile LONG g_boxesUp;

// Button sets by style bits 0 to 3: the results in order.
struct ButtonSet {
    int count;
    int ids[5];
};
const ButtonSet kSets[14] = {
    {1, {IDOK}},
    {2, {IDOK, IDCANCEL}},
    {3, {IDABORT, IDRETRY, IDIGNORE}},
    {3, {IDYES, IDNO, IDCANCEL}},
    {2, {IDYES, IDNO}},
    {2, {IDRETRY, IDCANCEL}},
    {1, {IDOK}},
    {1, {IDOK}},
    {1, {IDOK}},
    {1, {IDOK}},
    {4, {IDYES, ZVID_YESTOALL, IDNO, IDCANCEL}},
    {3, {IDYES, IDNO, ZVID_DELETE}},
    {4, {IDYES, IDNO, ZVID_NOTOALL, IDCANCEL}},
    {5, {IDYES, ZVID_YESTOALL, IDNO, ZVID_NOTOALL, IDCANCEL}},
};

const ButtonSet &buttonSet(UINT style)
{
    UINT set = style & 0xF;
    return kSets[set < 14 ? set : 0];
}

int labelIndex(int id)
{
    switch (id) {
    case IDOK: return 0;
    case IDCANCEL: return 1;
    case IDABORT: return 2;
    case IDRETRY: return 3;
    case IDIGNORE: return 4;
    case IDYES: return 5;
    case IDNO: return 6;
    case ZVID_YESTOALL: return 7;
    case ZVID_NOTOALL: return 8;
    default: return 9;
    }
}

int defaultAnswer(UINT style)
{
    const ButtonSet &set = buttonSet(style);
    int index = static_cast<int>((style >> 8) & 0xF);
    return set.ids[index < set.count ? index : 0];
}

bool mayChangeSettings()
{
    return !g_box.ownerThread || g_box.ownerThread == GetCurrentThreadId();
}

// The installed replacements; true with *answer when one answered.
bool answeredByHook(HWND owner, const wchar_t *text, const wchar_t *title, UINT style, int *answer)
{
    if (g_box.hook) {
        int result = g_box.hook(g_box.hookData, owner, text, title, style);
        if (result != -1) {
            *answer = result;
            return true;
        }
    }
    if (g_box.noUi) {
        if (g_box.log)
            g_box.log(text ? text : L"");
        *answer = defaultAnswer(style);
        return true;
    }
    return false;
}

HWND resolveOwner(HWND owner)
{
    if (owner == reinterpret_cast<HWND>(-1))
        return nullptr;
    if (!owner && g_box.mainWindow && IsWindow(g_box.mainWindow))
        return GetLastActivePopup(g_box.mainWindow);
    return owner;
}

// Centres the next dialog box of the thread that carries the box's title.
struct CentreWatch {
    HHOOK hook;
    const wchar_t *title;
};
thread_local CentreWatch t_watch;

void centreOnOwner(HWND window)
{
    RECT box, area;
    GetWindowRect(window, &box);
    HWND owner = GetWindow(window, GW_OWNER);
    if (!owner || !GetWindowRect(owner, &area))
        SystemParametersInfoW(SPI_GETWORKAREA, 0, &area, 0);
    int x = area.left + ((area.right - area.left) - (box.right - box.left)) / 2;
    int y = area.top + ((area.bottom - area.top) - (box.bottom - box.top)) / 2;
    SetWindowPos(window, nullptr, x, y, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
}

LRESULT CALLBACK centreHook(int code, WPARAM wParam, LPARAM lParam)
{
    HHOOK hook = t_watch.hook;
    if (code == HCBT_ACTIVATE) {
        HWND window = reinterpret_cast<HWND>(wParam);
        wchar_t className[16], caption[260];
        if (GetClassNameW(window, className, ARRAYSIZE(className)) && lstrcmpW(className, L"#32770") == 0 &&
            GetWindowTextW(window, caption, ARRAYSIZE(caption)) >= 0 &&
            lstrcmpW(caption, t_watch.title ? t_watch.title : L"") == 0) {
            centreOnOwner(window);
            UnhookWindowsHookEx(hook);
            t_watch.hook = nullptr;
        }
    }
    return CallNextHookEx(hook, code, wParam, lParam);
}

// Formats a box text that holds a format element; plain text stands.
class BoxText {
public:
    BoxText(const wchar_t *format, va_list args)
    {
        text_ = ZvGetStringSmart(ZvLang_GetKernelLang(), format);
        if (zverr_HasFormat(text_)) {
            buffer_.resize(8192);
            zverr_VFormat(buffer_.data(), static_cast<int>(buffer_.size()), text_, args);
            text_ = buffer_.data();
        }
    }
    const wchar_t *text() const { return text_ ? text_ : L""; }
private:
    const wchar_t *text_;
    std::vector<wchar_t> buffer_;
};

} // namespace

const wchar_t *zverr_AppTitle(void)
{
    return g_box.title;
}

void ZvMsgBoxSetAppData(HINSTANCE module, HWND mainWindow, const wchar_t *title)
{
    memset(&g_box, 0, sizeof(g_box));
    g_box.ownerThread = GetCurrentThreadId();
    g_box.module = module;
    g_box.mainWindow = mainWindow;
    if (title)
        lstrcpynW(g_box.title, title, ARRAYSIZE(g_box.title));
}

BOOL ZvMsgBoxSetHook(ZVMSGBOXHOOK hook, void *data)
{
    if (!mayChangeSettings())
        return FALSE;
    g_box.hook = hook;
    g_box.hookData = data;
    return TRUE;
}

BOOL ZvMsgBoxSetNoUIHook(ZVMSGBOXLOG log)
{
    if (!mayChangeSettings())
        return FALSE;
    g_box.noUi = log != nullptr;
    g_box.log = log;
    return TRUE;
}

int ZvMessageBox(HWND owner, const wchar_t *text, const wchar_t *title, UINT style)
{
    owner = resolveOwner(owner);
    HZVLANG lang = ZvLang_GetKernelLang();
    text = ZvGetStringSmart(lang, text);
    title = ZvGetStringSmart(lang, title);
    int answer = 0;
    if (answeredByHook(owner, text, title, style, &answer))
        return answer;
    if (!title)
        title = g_box.title;
    bool watch = style != (MB_SYSTEMMODAL | MB_ICONHAND) && g_boxesUp == 0 && !t_watch.hook;
    if (watch) {
        t_watch.title = title;
        t_watch.hook = SetWindowsHookExW(WH_CBT, centreHook, nullptr, GetCurrentThreadId());
    }
    InterlockedIncrement(&g_boxesUp);
    int result = MessageBoxW(owner, text ? text : L"", title, style);
    InterlockedDecrement(&g_boxesUp);
    if (t_watch.hook) {
        UnhookWindowsHookEx(t_watch.hook);
        t_watch.hook = nullptr;
    }
    return result;
}

int ZvMsgBoxF(HWND owner, UINT style, const wchar_t *format, ...)
{
    va_list args;
    va_start(args, format);
    BoxText text(format, args);
    va_end(args);
    return ZvMessageBox(owner, text.text(), nullptr, style);
}

int ZvMsgBoxNoF(HWND owner, UINT style, const wchar_t *text)
{
    return ZvMessageBox(owner, text, nullptr, style);
}

int ZvMsgBoxId(HWND owner, UINT style, HZVLANG lang, UINT id, ...)
{
    const wchar_t *format = ZvGetString(lang ? lang : ZvLang_GetKernelLang(), id);
    va_list args;
    va_start(args, id);
    BoxText text(format, args);
    va_end(args);
    return ZvMessageBox(owner, text.text(), nullptr, style);
}

// --- The kernel's own box --------------------------------------------------------

namespace {

enum {
    kIdIcon = 1100,
    kIdText,
    kIdDetailsButton,
    kIdDetails,
    kIdCheck,
    kIdLink,
};

// A DLGTEMPLATE with its items, built in memory.
class TemplateWriter {
public:
    void header(DWORD style, int items, short cx, short cy, const wchar_t *title)
    {
        align(4);
        DLGTEMPLATE t = {};
        t.style = style;
        t.cdit = static_cast<WORD>(items);
        t.cx = cx;
        t.cy = cy;
        put(&t, sizeof(t));
        word(0);  // menu
        word(0);  // class
        text(title);
        word(8);  // font size, with DS_SETFONT
        text(L"MS Shell Dlg");
    }
    void item(DWORD style, short x, short y, short cx, short cy, WORD id, WORD classAtom, const wchar_t *label)
    {
        align(4);
        DLGITEMTEMPLATE t = {};
        t.style = style | WS_CHILD;
        t.x = x;
        t.y = y;
        t.cx = cx;
        t.cy = cy;
        t.id = id;
        put(&t, sizeof(t));
        word(0xFFFF);
        word(classAtom);
        text(label ? label : L"");
        word(0);  // no creation data
    }
    const DLGTEMPLATE *data() const { return reinterpret_cast<const DLGTEMPLATE *>(bytes_.data()); }
private:
    void put(const void *p, size_t n)
    {
        const BYTE *b = static_cast<const BYTE *>(p);
        bytes_.insert(bytes_.end(), b, b + n);
    }
    void word(WORD w) { put(&w, 2); }
    void text(const wchar_t *s) { put(s, (wcslen(s) + 1) * sizeof(wchar_t)); }
    void align(size_t n)
    {
        while (bytes_.size() % n)
            bytes_.push_back(0);
    }
    std::vector<BYTE> bytes_;
};

const WORD kButton = 0x0080, kEdit = 0x0081, kStatic = 0x0082;

struct BoxState {
    UINT style;
    const wchar_t *details;
    const wchar_t *linkTarget;
    BOOL *dontShow;
    int expandBy;  // pixels the details add
    bool expanded;
};

int estimateLines(const wchar_t *text, int charsPerLine)
{
    int lines = 1, column = 0;
    for (const wchar_t *p = text; *p; ++p) {
        if (*p == L'\n' || ++column > charsPerLine) {
            ++lines;
            column = *p == L'\n' ? 0 : 1;
        }
    }
    return lines;
}

void endBox(HWND dialog, BoxState *state, int result)
{
    if (state->dontShow)
        *state->dontShow = IsDlgButtonChecked(dialog, kIdCheck) == BST_CHECKED;
    EndDialog(dialog, result);
}

INT_PTR CALLBACK boxProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam)
{
    BoxState *state = reinterpret_cast<BoxState *>(GetWindowLongPtrW(dialog, DWLP_USER));
    switch (message) {
    case WM_INITDIALOG: {
        state = reinterpret_cast<BoxState *>(lParam);
        SetWindowLongPtrW(dialog, DWLP_USER, lParam);
        static const LPCWSTR kIcons[] = {IDI_HAND, IDI_QUESTION, IDI_EXCLAMATION, IDI_ASTERISK};
        UINT icon = (state->style >> 4) & 0xF;
        if (icon >= 1 && icon <= 4)
            SendDlgItemMessageW(dialog, kIdIcon, STM_SETICON,
                                reinterpret_cast<WPARAM>(LoadIconW(nullptr, kIcons[icon - 1])), 0);
        if (state->details) {
            SetDlgItemTextW(dialog, kIdDetails, state->details);
            RECT r = {0, 0, 0, 90};
            MapDialogRect(dialog, &r);
            state->expandBy = r.bottom;
        }
        centreOnOwner(dialog);
        const ButtonSet &set = buttonSet(state->style);
        int index = static_cast<int>((state->style >> 8) & 0xF);
        SetFocus(GetDlgItem(dialog, set.ids[index < set.count ? index : 0]));
        return FALSE;
    }
    case WM_COMMAND: {
        int id = LOWORD(wParam);
        if (id == kIdDetailsButton && state) {
            state->expanded = !state->expanded;
            RECT r;
            GetWindowRect(dialog, &r);
            SetWindowPos(dialog, nullptr, 0, 0, r.right - r.left,
                         r.bottom - r.top + (state->expanded ? state->expandBy : -state->expandBy),
                         SWP_NOMOVE | SWP_NOZORDER);
            ShowWindow(GetDlgItem(dialog, kIdDetails), state->expanded ? SW_SHOW : SW_HIDE);
            SetDlgItemTextW(dialog, kIdDetailsButton,
                            ZvGetString(ZvLang_GetKernelLang(),
                                        state->expanded ? &zverr_DetailsClose : &zverr_DetailsOpen));
            return TRUE;
        }
        if (id == kIdLink && HIWORD(wParam) == STN_CLICKED && state && state->linkTarget) {
            ShellExecuteW(dialog, L"open", state->linkTarget, nullptr, nullptr, SW_SHOWNORMAL);
            return TRUE;
        }
        if (id == kIdCheck || id == kIdText || id == kIdDetails)
            return FALSE;
        if (!state)
            return FALSE;
        const ButtonSet &set = buttonSet(state->style);
        if (id == IDCANCEL) {
            // Escape and the close box answer Cancel where there is one,
            // OK in a box with OK alone.
            for (int i = 0; i < set.count; ++i)
                if (set.ids[i] == IDCANCEL)
                    return endBox(dialog, state, IDCANCEL), TRUE;
            if (set.count == 1)
                return endBox(dialog, state, set.ids[0]), TRUE;
            return TRUE;
        }
        for (int i = 0; i < set.count; ++i)
            if (set.ids[i] == id)
                return endBox(dialog, state, id), TRUE;
        return FALSE;
    }
    }
    return FALSE;
}

} // namespace

int zverr_ShowCustomBox(HWND owner, UINT style, const wchar_t *text, const wchar_t *title, const wchar_t *details,
                        const wchar_t *linkText, const wchar_t *linkTarget, BOOL *dontShow)
{
    owner = resolveOwner(owner);
    HZVLANG lang = ZvLang_GetKernelLang();
    text = text ? text : L"";
    title = ZvGetStringSmart(lang, title);
    if (!title || !*title)
        title = g_box.title;
    if (dontShow)
        *dontShow = FALSE;
    int answer = 0;
    if (answeredByHook(owner, text, title, style, &answer))
        return answer;
    if (!(style & ZVMB_DETAILS))
        details = nullptr;

    const ButtonSet &set = buttonSet(style);
    UINT icon = (style >> 4) & 0xF;
    bool hasIcon = icon >= 1 && icon <= 4;
    const short margin = 7, textWidth = 230, buttonW = 50, buttonH = 14, gap = 4;
    short textX = hasIcon ? 36 : margin;
    short textH = static_cast<short>(8 * estimateLines(text, 56));
    short y = static_cast<short>(margin + (textH > 20 ? textH : 20) + margin);
    bool hasLink = linkText && *linkText && linkTarget && *linkTarget;
    short linkY = y;
    if (hasLink)
        y = static_cast<short>(y + 12);
    short width = static_cast<short>(textX + textWidth + margin);
    short buttonsW = static_cast<short>(set.count * (buttonW + gap) - gap + (details ? buttonW + gap : 0));
    if (width < buttonsW + 2 * margin)
        width = static_cast<short>(buttonsW + 2 * margin);
    short buttonY = y;
    y = static_cast<short>(y + buttonH + margin);
    short checkY = y;
    if (dontShow)
        y = static_cast<short>(y + 14);
    short detailsY = y;
    short height = y;

    int items = 1 + set.count + (hasIcon ? 1 : 0) + (details ? 2 : 0) + (dontShow ? 1 : 0) + (hasLink ? 1 : 0);
    TemplateWriter t;
    t.header(DS_MODALFRAME | DS_SETFONT | WS_POPUP | WS_CAPTION | WS_SYSMENU, items, width, height, title);
    if (hasIcon)
        t.item(SS_ICON | WS_VISIBLE, margin, margin, 21, 20, kIdIcon, kStatic, nullptr);
    t.item(SS_LEFT | SS_NOPREFIX | WS_VISIBLE, textX, margin, textWidth, textH, kIdText, kStatic, text);
    if (hasLink)
        t.item(SS_NOTIFY | SS_LEFT | WS_VISIBLE, textX, linkY, textWidth, 10, kIdLink, kStatic, linkText);
    short x = static_cast<short>(width - margin - (set.count * (buttonW + gap) - gap));
    int defaultIndex = static_cast<int>((style >> 8) & 0xF);
    for (int i = 0; i < set.count; ++i) {
        DWORD buttonStyle = WS_VISIBLE | WS_TABSTOP | (i == defaultIndex ? BS_DEFPUSHBUTTON : BS_PUSHBUTTON);
        t.item(buttonStyle, x, buttonY, buttonW, buttonH, static_cast<WORD>(set.ids[i]), kButton,
               ZvGetString(lang, &zverr_ButtonLabels[labelIndex(set.ids[i])]));
        x = static_cast<short>(x + buttonW + gap);
    }
    if (details) {
        t.item(WS_VISIBLE | WS_TABSTOP | BS_PUSHBUTTON, margin, buttonY, buttonW, buttonH, kIdDetailsButton, kButton,
               ZvGetString(lang, &zverr_DetailsOpen));
        t.item(ES_MULTILINE | ES_READONLY | WS_VSCROLL | WS_BORDER, margin, detailsY,
               static_cast<short>(width - 2 * margin), 84, kIdDetails, kEdit, nullptr);
    }
    if (dontShow)
        t.item(BS_AUTOCHECKBOX | WS_VISIBLE | WS_TABSTOP, margin, checkY, static_cast<short>(width - 2 * margin), 10,
               kIdCheck, kButton, ZvGetString(lang, &zverr_DontShowAgain));

    BoxState state = {style, details, linkTarget, dontShow, 0, false};
    HINSTANCE module = g_box.module ? g_box.module : GetModuleHandleW(nullptr);
    InterlockedIncrement(&g_boxesUp);
    INT_PTR result = DialogBoxIndirectParamW(module, t.data(), owner, boxProc, reinterpret_cast<LPARAM>(&state));
    InterlockedDecrement(&g_boxesUp);
    return result == -1 ? 0 : static_cast<int>(result);
}

#define ZV_BOX_FORMAT(last, call)          \
    va_list args;                          \
    va_start(args, last);                  \
    BoxText text(format, args);            \
    va_end(args);                          \
    return call

int ZvMsgBox_CustomF(HWND owner, UINT style, const wchar_t *details, const wchar_t *title, const wchar_t *format, ...)
{
    ZV_BOX_FORMAT(format, zverr_ShowCustomBox(owner, style, text.text(), title, details, nullptr, nullptr, nullptr));
}

int ZvMsgBox_CustomNoF(HWND owner, UINT style, const wchar_t *details, const wchar_t *title, const wchar_t *text)
{
    return zverr_ShowCustomBox(owner, style, ZvGetStringSmart(ZvLang_GetKernelLang(), text), title, details, nullptr,
                               nullptr, nullptr);
}

int ZvMsgBox_CustomExF(HWND owner, UINT style, const wchar_t *details, const wchar_t *title, BOOL *dontShow,
                       const wchar_t *format, ...)
{
    ZV_BOX_FORMAT(format, zverr_ShowCustomBox(owner, style, text.text(), title, details, nullptr, nullptr, dontShow));
}

int ZvMsgBox_CustomExNoF(HWND owner, UINT style, const wchar_t *details, const wchar_t *title, BOOL *dontShow,
                         const wchar_t *text)
{
    return zverr_ShowCustomBox(owner, style, ZvGetStringSmart(ZvLang_GetKernelLang(), text), title, details, nullptr,
                               nullptr, dontShow);
}

int ZvMsgBox_CustomExLinkF(HWND owner, UINT style, const wchar_t *details, const wchar_t *title,
                           const wchar_t *linkText, const wchar_t *linkTarget, const wchar_t *format, ...)
{
    ZV_BOX_FORMAT(format, zverr_ShowCustomBox(owner, style, text.text(), title, details, linkText, linkTarget, nullptr));
}

int ZvMsgBox_TitledF(HWND owner, UINT style, const wchar_t *title, const wchar_t *format, ...)
{
    ZV_BOX_FORMAT(format, zverr_ShowCustomBox(owner, style, text.text(), title, nullptr, nullptr, nullptr, nullptr));
}

int ZvMsgBox_TitledNoF(HWND owner, UINT style, const wchar_t *title, const wchar_t *text)
{
    return zverr_ShowCustomBox(owner, style, ZvGetStringSmart(ZvLang_GetKernelLang(), text), title, nullptr, nullptr,
                               nullptr, nullptr);
}
