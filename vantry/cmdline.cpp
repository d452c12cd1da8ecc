// Command line and class ids of the surrogate, shared with its clients.
#include "vantrycmd.h"
#include <wchar.h>
#include <stdlib.h>

const CLSID CLSID_Vantry32 = {0x5cdf45f4, 0x888c, 0x461a, {0x8a, 0xb2, 0x5a, 0xaa, 0x01, 0x5b, 0x46, 0x42}};
const GUID APPID_Vantry = {0x76cee251, 0xbf47, 0x41c7, {0xae, 0xc2, 0x84, 0xd3, 0x32, 0x9e, 0x5e, 0x78}};

void Vantry_ProcessClassId(DWORD processId, CLSID *out)
{
    *out = CLSID_Vantry32;
    out->Data1 ^= processId;
}

// CharUpperW converts a single character passed in the low word of the pointer.
static wchar_t upper(wchar_t c)
{
    return (wchar_t)(ULONG_PTR)CharUpperW((LPWSTR)(ULONG_PTR)c);
}

// Compares the word at `text` with `word` without regard to case; the word in
// the text ends at a blank, a tab or the end of the string.
static BOOL word_equals(const wchar_t *text, const wchar_t *word)
{
    for (;;) {
        wchar_t c = *text;
        BOOL end = c == 0 || c == L' ' || c == L'\t';
        if (*word == 0)
            return end;
        if (end)
            return FALSE;
        if (upper(c) != upper(*word))
            return FALSE;
        text = CharNextW(text);
        word++;
    }
}

enum VantrySwitch Vantry_ParseSwitch(const wchar_t *commandLine)
{
    static const struct { const wchar_t *word; enum VantrySwitch sw; } switches[] = {
        { L"UnregServer", VANTRY_UNREGSERVER },
        { L"RegServer", VANTRY_REGSERVER },
        { L"UnregServerPerUser", VANTRY_UNREGSERVER_PERUSER },
        { L"RegServerPerUser", VANTRY_REGSERVER_PERUSER },
    };
    if (!commandLine)
        return VANTRY_RUN;
    for (const wchar_t *p = commandLine; *p; p = CharNextW(p)) {
        if (*p != L'-' && *p != L'/')
            continue;
        for (const auto &s : switches)
            if (word_equals(p + 1, s.word))
                return s.sw;
    }
    return VANTRY_RUN;
}

BOOL Vantry_ParseLanguage(const wchar_t *commandLine, LANGID *lang)
{
    if (!commandLine)
        return FALSE;
    const wchar_t *blank = wcsrchr(commandLine, L' ');
    if (!blank)
        return FALSE;
    const wchar_t *token = blank + 1;
    // wcstol would skip signs and blanks: only plain digits make a language
    if (*token < L'0' || *token > L'9')
        return FALSE;
    wchar_t *end = NULL;
    long value = wcstol(token, &end, 10);
    if (*end != 0 || value < 0 || value > 0xFFFF)
        return FALSE;
    if (value == 0)
        value = (GetUserDefaultLangID() & 0x3FF) | 0x400;
    *lang = (LANGID)value;
    return TRUE;
}

BOOL Vantry_SurrogatePath(const wchar_t *hostPath, wchar_t *out, DWORD outChars)
{
    wchar_t host[MAX_PATH];
    if (!hostPath) {
        DWORD n = GetModuleFileNameW(NULL, host, MAX_PATH);
        if (n == 0 || n >= MAX_PATH)
            return FALSE;
        hostPath = host;
    }
    const wchar_t *name = hostPath;
    for (const wchar_t *p = hostPath; *p; p++)
        if (*p == L'\\' || *p == L'/')
            name = p + 1;
#ifdef _WIN64
    static const wchar_t file[] = L"x86\\Vantry.exe";
#else
    static const wchar_t file[] = L"Vantry.exe";
#endif
    size_t folder = (size_t)(name - hostPath);
    size_t need = folder + wcslen(file) + 1;
    if (need > outChars || need > MAX_PATH)
        return FALSE;
    wmemcpy(out, hostPath, folder);
    wcscpy(out + folder, file);
    return TRUE;
}
