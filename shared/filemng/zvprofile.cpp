#include "filemng/zvprofile.h"
#include "zvpaths.h"
#include <objbase.h>
#include <stdio.h>
#include <wchar.h>

static const WCHAR kMissing[] = L"_._";

void ZvFioGuidText(const GUID &id, WCHAR text[40])
{
    if (!StringFromGUID2(id, text, 40))
        text[0] = 0;
}

CZvProfile::CZvProfile(const WCHAR *folder, const WCHAR *baseName)
{
    m_path[0] = 0;
    if (folder && wcslen(folder) < MAX_PATH) {
        wcscpy(m_path, folder);
        if (baseName)
            ZvAppendToPathName(m_path, MAX_PATH, baseName);
        ZvReplaceExtensionOnPathName(m_path, MAX_PATH, L"ini");
    }
    wcscpy(m_section, L"main");
}

CZvProfile::CZvProfile(const WCHAR *fileName)
{
    m_path[0] = 0;
    if (fileName && wcslen(fileName) < MAX_PATH)
        wcscpy(m_path, fileName);
    wcscpy(m_section, L"main");
}

void CZvProfile::SetSection(const WCHAR *section)
{
    _snwprintf(m_section, 130, L"%s", section ? section : L"main");
    m_section[129] = 0;
}

void CZvProfile::Flush()
{
    WritePrivateProfileStringW(NULL, NULL, NULL, m_path);
}

BOOL CZvProfile::GetString(const WCHAR *key, const WCHAR *def, WCHAR *buffer, DWORD size)
{
    if (!buffer || !size)
        return FALSE;
    GetPrivateProfileStringW(m_section, key, def ? def : kMissing, buffer, size, m_path);
    if (!def && !wcscmp(buffer, kMissing)) {
        buffer[0] = 0;
        return FALSE;
    }
    return TRUE;
}

int CZvProfile::GetInt(const WCHAR *key, int def)
{
    return (int)GetPrivateProfileIntW(m_section, key, def, m_path);
}

int CZvProfile::GetClassIds(const WCHAR *key, GUID *ids, int maximum)
{
    WCHAR buf[672];
    DWORD n;
    if (key) {
        n = GetPrivateProfileStringW(m_section, key, L"", buf, 672, m_path);
        // one value may hold several ids; make it a list of strings
        for (DWORD i = 0; i < n; ++i)
            if (buf[i] == L',' || buf[i] == L';' || buf[i] == L' ')
                buf[i] = 0;
    } else {
        n = GetPrivateProfileStringW(m_section, NULL, L"", buf, 672, m_path);
    }
    if (n >= 671)
        n = 670;
    buf[n] = buf[n + 1] = 0;
    int count = 0;
    for (WCHAR *p = buf; p < buf + n; p += wcslen(p) + 1) {
        if (count >= maximum)
            break;
        if (!*p)
            continue;
        GUID id;
        if (CLSIDFromString(p, &id) == CO_E_CLASSSTRING || p[0] != L'{')
            continue;
        if (ids)
            ids[count] = id;
        ++count;
    }
    return count;
}

BOOL CZvProfile::SetString(const WCHAR *key, const WCHAR *value)
{
    if (value && !*value) {
        // an empty value must still leave its key in the file
        WritePrivateProfileStringW(m_section, key, L".", m_path);
    }
    return WritePrivateProfileStringW(m_section, key, value ? value : L"", m_path);
}

BOOL CZvProfile::SetInt(const WCHAR *key, int value)
{
    WCHAR text[16];
    _snwprintf(text, 16, L"%d", value);
    text[15] = 0;
    return WritePrivateProfileStringW(m_section, key, text, m_path);
}

BOOL CZvProfile::SetClassId(const WCHAR *key, const GUID &id, const WCHAR *name)
{
    WCHAR text[40];
    ZvFioGuidText(id, text);
    // with a key the id is the value; without, the id is the key and the name its value
    if (key)
        return SetString(key, text);
    return SetString(text, name ? name : L"");
}

BOOL CZvProfile::ClearSection()
{
    return WritePrivateProfileSectionW(m_section, L"\0", m_path);
}

BOOL CZvProfile::DeleteFile()
{
    if (!FileExists())
        return FALSE;
    Flush();
    return ::DeleteFileW(m_path);
}

BOOL CZvProfile::FileExists()
{
    DWORD a = GetFileAttributesW(m_path);
    return a != INVALID_FILE_ATTRIBUTES && !(a & 0x50);
}
