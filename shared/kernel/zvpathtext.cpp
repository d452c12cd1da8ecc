// Paths shortened for display, by characters or by the width of drawn text.
#include "zvpaths.h"
#include <string>
#include <wchar.h>

namespace {

const wchar_t kDots[] = L"...";

// Width of a text: characters, or pixels in the DC's current font.
struct Measure {
    HDC dc;
    int limit;
    bool fits(const std::wstring &text) const
    {
        if (!dc)
            return (int)text.size() <= limit;
        SIZE size = {};
        if (!GetTextExtentPoint32W(dc, text.c_str(), (int)text.size(), &size))
            return false;
        return size.cx <= limit;
    }
};

HRESULT Store(const std::wstring &text, wchar_t *out, int length)
{
    if ((size_t)length < text.size() + 1) {
        out[0] = 0;
        return ZVERR_BUFFER_TOO_SMALL;
    }
    wmemcpy(out, text.c_str(), text.size() + 1);
    return S_OK;
}

// The longest start of `text` that fits with `after` behind it; "..." alone
// (or as much of it as fits) when no character does.
std::wstring CutEnd(const Measure &m, const std::wstring &before, const std::wstring &text,
                    const std::wstring &after)
{
    size_t lo = 0, hi = text.size();
    while (lo < hi) {   // the largest n with before + text[0, n) + after fitting
        size_t mid = (lo + hi + 1) / 2;
        if (m.fits(before + text.substr(0, mid) + after))
            lo = mid;
        else
            hi = mid - 1;
    }
    std::wstring got = before + text.substr(0, lo) + after;
    if (lo == 0 && !m.fits(got)) {
        std::wstring dots = kDots;
        while (!dots.empty() && !m.fits(dots))
            dots.pop_back();
        return dots;
    }
    return got;
}

std::wstring PathEllipsis(const Measure &m, const std::wstring &path)
{
    if (m.fits(path))
        return path;
    wchar_t root[MAX_PATH] = L"";
    size_t rootLen = 0;
    if (SUCCEEDED(ZvGetRootPathFromFilePath(path.c_str(), root, MAX_PATH)) &&
        path.compare(0, wcslen(root), root) == 0)
        rootLen = wcslen(root);
    const size_t nameAt = (size_t)(ZvGetFileNamePtrW(path.c_str()) - path.c_str());
    const std::wstring head = path.substr(0, rootLen);
    const std::wstring name = path.substr(nameAt);
    // drop whole folders from the front of the middle part
    for (size_t at = rootLen; at < nameAt; ++at) {
        if (path[at] != L'\\' && path[at] != L'/')
            continue;
        std::wstring candidate = head + kDots + path.substr(at);
        if (m.fits(candidate))
            return candidate;
    }
    std::wstring sep = nameAt > rootLen ? std::wstring(kDots) + L"\\" : std::wstring();
    return CutEnd(m, head + sep, name, kDots);
}

std::wstring NameEllipsis(const Measure &m, const std::wstring &path)
{
    std::wstring name = ZvGetFileNamePtrW(path.c_str());
    if (m.fits(name))
        return name;
    const wchar_t *ext = ZvGetFileNameExtensionPtrW(name.c_str());
    std::wstring tail = std::wstring(kDots) + ext;
    std::wstring stem = name.substr(0, name.size() - wcslen(ext));
    if (m.fits(tail))
        return CutEnd(m, L"", stem, tail);
    return CutEnd(m, L"", name, kDots);
}

typedef std::wstring (*Shorten)(const Measure &, const std::wstring &);

HRESULT Run(Shorten how, HDC dc, const wchar_t *path, wchar_t *out, int length, int limit)
{
    if (!path || !out)
        return E_POINTER;
    if (length < 1 || limit < 0)
        return E_INVALIDARG;
    return Store(how(Measure{dc, limit}, path), out, length);
}

// Measures in the control's font against its client width.
HRESULT RunForControl(Shorten how, HWND control, const wchar_t *path, wchar_t *out, int length)
{
    if (!path || !out)
        return E_POINTER;
    RECT rc;
    if (!IsWindow(control) || !GetClientRect(control, &rc))
        return E_INVALIDARG;
    HDC dc = GetDC(control);
    if (!dc)
        return E_FAIL;
    HFONT font = (HFONT)SendMessageW(control, WM_GETFONT, 0, 0);
    HGDIOBJ old = SelectObject(dc, font ? (HGDIOBJ)font : GetStockObject(DEFAULT_GUI_FONT));
    HRESULT hr = Run(how, dc, path, out, length, rc.right - rc.left);
    SelectObject(dc, old);
    ReleaseDC(control, dc);
    return hr;
}

} // namespace

ZVAPI HRESULT ZvCalcPathEllipsis(const wchar_t *path, wchar_t *out, int length, int maxChars)
{
    return Run(PathEllipsis, NULL, path, out, length, maxChars);
}

ZVAPI HRESULT ZvCalcPathEllipsisEx(HDC dc, const wchar_t *path, wchar_t *out, int length, int maxWidth)
{
    return dc ? Run(PathEllipsis, dc, path, out, length, maxWidth) : E_INVALIDARG;
}

ZVAPI HRESULT ZvCalcPathEllipsisExCtl(HWND control, const wchar_t *path, wchar_t *out, int length)
{
    return RunForControl(PathEllipsis, control, path, out, length);
}

ZVAPI HRESULT ZvFilenameFormat(const wchar_t *path, wchar_t *out, int length, int maxChars)
{
    return Run(NameEllipsis, NULL, path, out, length, maxChars);
}

ZVAPI HRESULT ZvFilenameFormatForWidth(HDC dc, const wchar_t *path, wchar_t *out, int length, int maxWidth)
{
    return dc ? Run(NameEllipsis, dc, path, out, length, maxWidth) : E_INVALIDARG;
}

ZVAPI HRESULT ZvFilenameFormatForCtl(HWND control, const wchar_t *path, wchar_t *out, int length)
{
    return RunForControl(NameEllipsis, control, path, out, length);
}
