#include "zvpaths.h"
#include "zverror.h"
#include "zvprintf.h"
#include <objidl.h>
#include <shlobj.h>
#include <shlwapi.h>
#include <stdio.h>
#include <wchar.h>
#include <string.h>

static bool IsSlashW(wchar_t c) { return c == L'\\' || c == L'/'; }

static HRESULT CopyOut(wchar_t *out, int length, const wchar_t *text, size_t count)
{
    if (!out || length < 1)
        return E_INVALIDARG;
    if (count + 1 > (size_t)length) {
        out[0] = 0;
        return ZVERR_BUFFER_TOO_SMALL;
    }
    memmove(out, text, count * sizeof(wchar_t));
    out[count] = 0;
    return S_OK;
}

ZVAPI const char *ZvGetFileNamePtrA(const char *path)
{
    if (!path)
        return NULL;
    const char *name = path;
    for (const char *p = path; *p; ++p)
        if (*p == '\\' || *p == '/' || *p == ':')
            name = p + 1;
    return name;
}

ZVAPI const wchar_t *ZvGetFileNamePtrW(const wchar_t *path)
{
    if (!path)
        return NULL;
    const wchar_t *name = path;
    for (const wchar_t *p = path; *p; ++p)
        if (IsSlashW(*p) || *p == L':')
            name = p + 1;
    return name;
}

ZVAPI const char *ZvGetFileNameExtensionPtrA(const char *path)
{
    const char *name = ZvGetFileNamePtrA(path);
    if (!name)
        return NULL;
    const char *dot = strrchr(name, '.');
    return dot ? dot : name + strlen(name);
}

ZVAPI const wchar_t *ZvGetFileNameExtensionPtrW(const wchar_t *path)
{
    const wchar_t *name = ZvGetFileNamePtrW(path);
    if (!name)
        return NULL;
    const wchar_t *dot = wcsrchr(name, L'.');
    return dot ? dot : name + wcslen(name);
}

// ".ext" from "*.ext", ".ext" or "ext"; empty for null.
static void NormaliseExt(const wchar_t *ext, wchar_t *out, size_t size)
{
    out[0] = 0;
    if (!ext)
        return;
    while (*ext == L'*')
        ++ext;
    if (!*ext)
        return;
    if (*ext == L'.')
        _snwprintf(out, size, L"%s", ext);
    else
        _snwprintf(out, size, L".%s", ext);
    out[size - 1] = 0;
}

ZVAPI HRESULT ZvReplaceExtensionOnPathNameEx(wchar_t *path, int length, const wchar_t *ext, BOOL onlyIfMissing)
{
    if (!path || length < 1)
        return E_INVALIDARG;
    wchar_t *dot = (wchar_t *)ZvGetFileNameExtensionPtrW(path);
    if (onlyIfMissing && *dot && dot[1])
        return S_OK;
    wchar_t norm[MAX_PATH];
    NormaliseExt(ext, norm, MAX_PATH);
    size_t keep = (size_t)(dot - path);
    if (keep + wcslen(norm) + 1 > (size_t)length)
        return ZVERR_BUFFER_TOO_SMALL;
    wcscpy(dot, norm);
    return S_OK;
}

ZVAPI HRESULT ZvReplaceExtensionOnPathName(wchar_t *path, int length, const wchar_t *ext)
{
    return ZvReplaceExtensionOnPathNameEx(path, length, ext, FALSE);
}

ZVAPI HRESULT ZvAddExtensionToPathName(wchar_t *path, int length, const wchar_t *ext)
{
    return ZvReplaceExtensionOnPathNameEx(path, length, ext, TRUE);
}

ZVAPI HRESULT ZvAddSlashToPathName(wchar_t *path, int length)
{
    if (!path || length < 1)
        return E_INVALIDARG;
    size_t n = wcslen(path);
    if (n && IsSlashW(path[n - 1]))
        return S_OK;
    if (n + 2 > (size_t)length)
        return ZVERR_BUFFER_TOO_SMALL;
    path[n] = L'\\';
    path[n + 1] = 0;
    return S_OK;
}

ZVAPI void ZvRemoveSlashFromPathNameEnd(wchar_t *path)
{
    if (!path)
        return;
    size_t n = wcslen(path);
    // keep the slash of a drive root such as "C:\"
    while (n > 0 && IsSlashW(path[n - 1]) && !(n == 3 && path[1] == L':'))
        path[--n] = 0;
}

ZVAPI HRESULT ZvAppendToPathName(wchar_t *path, int length, const wchar_t *more)
{
    if (!path || !more || length < 1)
        return E_INVALIDARG;
    while (IsSlashW(*more))
        ++more;
    size_t n = wcslen(path);
    bool slash = n && !IsSlashW(path[n - 1]);
    if (n + (slash ? 1 : 0) + wcslen(more) + 1 > (size_t)length)
        return ZVERR_BUFFER_TOO_SMALL;
    if (slash)
        path[n++] = L'\\';
    wcscpy(path + n, more);
    return S_OK;
}

ZVAPI HRESULT ZvGetPathNameFromFilePath(const wchar_t *path, wchar_t *out, int length)
{
    if (!path)
        return E_INVALIDARG;
    return CopyOut(out, length, path, (size_t)(ZvGetFileNamePtrW(path) - path));
}

// Length of the root of a path: "C:\", "\\server\share\" or a leading slash.
static size_t RootLength(const wchar_t *path)
{
    if (path[0] && path[1] == L':')
        return IsSlashW(path[2]) ? 3 : 2;
    if (IsSlashW(path[0]) && IsSlashW(path[1])) {
        const wchar_t *p = path + 2;
        for (int part = 0; part < 2 && *p; ++part) {
            while (*p && !IsSlashW(*p))
                ++p;
            if (*p)
                ++p;
        }
        return (size_t)(p - path);
    }
    return IsSlashW(path[0]) ? 1 : 0;
}

ZVAPI HRESULT ZvGetRootPathFromFilePath(const wchar_t *path, wchar_t *out, int length)
{
    if (!path)
        return E_INVALIDARG;
    size_t n = RootLength(path);
    if (!n)
        return ZVERR_NOT_FOUND;
    return CopyOut(out, length, path, n);
}

ZVAPI BOOL ZvDirectoryUpOneLevel(wchar_t *path)
{
    if (!path)
        return FALSE;
    size_t root = RootLength(path);
    size_t n = wcslen(path);
    while (n > root && IsSlashW(path[n - 1]))
        --n;
    if (n <= root)
        return FALSE;
    while (n > root && !IsSlashW(path[n - 1]))
        --n;
    path[n] = 0;
    return TRUE;
}

ZVAPI HRESULT ZvGetFileNameWithoutPathOrExtension(const wchar_t *path, wchar_t *out, int length)
{
    if (!path)
        return E_INVALIDARG;
    const wchar_t *name = ZvGetFileNamePtrW(path);
    return CopyOut(out, length, name, (size_t)(ZvGetFileNameExtensionPtrW(path) - name));
}

ZVAPI int ZvValidateFileName(wchar_t *name, BOOL repair)
{
    if (!name || !*name)
        return 1;
    int valid = 1;
    size_t n = wcslen(name);
    for (size_t i = 0; i < n; ++i) {
        wchar_t c = name[i];
        bool bad = wcschr(L"\n\r\"*/:<>?\\|", c) != NULL && c != 0;
        if (i == n - 1 && (c == L' ' || c == L'.'))
            bad = true;
        if (bad) {
            if (!repair)
                return 0;
            name[i] = L'_';
            valid = 0;
        }
    }
    return valid;
}

static bool LowEq(wchar_t a, wchar_t b) { return (a & 0xFF) == (b & 0xFF); }

ZVAPI BOOL ZvIsMatchWildCard(const wchar_t *pattern, const wchar_t *name)
{
    if (!pattern || !name)
        return FALSE;
    if (pattern[0] == L'*' && pattern[1] == 0)
        return TRUE;
    const wchar_t *p = pattern, *n = name;
    for (;;) {
        if (!*n) {
            // the rest of the pattern may be stars and one last dot
            int dots = 0;
            for (; *p; ++p) {
                if (*p == L'.')
                    ++dots;
                else if (*p != L'*')
                    return FALSE;
            }
            return dots <= 1;
        }
        if (!*p)
            return n[0] == L'.' && n[1] == 0;
        if (*p == L'*') {
            ++p;
            // a star stops at the next pattern character or at a dot
            while (*n && *n != L'.' && !(*p && LowEq(*n, *p)))
                ++n;
            continue;
        }
        if (*p != L'?' && !LowEq(*p, *n))
            return FALSE;
        ++p;
        ++n;
    }
}

ZVAPI HRESULT ZvGetLongPathName(const wchar_t *path, wchar_t *out, int length)
{
    if (!path || !out || length < 1)
        return E_INVALIDARG;
    DWORD n = GetLongPathNameW(path, out, (DWORD)length);
    if (!n)
        return HRESULT_FROM_WIN32(GetLastError());
    return n >= (DWORD)length ? ZVERR_BUFFER_TOO_SMALL : S_OK;
}

ZVAPI HRESULT ZvGetFullPathName(const wchar_t *path, wchar_t *out, int length)
{
    if (!path || !out || length < 1)
        return E_INVALIDARG;
    DWORD n = GetFullPathNameW(path, (DWORD)length, out, NULL);
    if (!n)
        return HRESULT_FROM_WIN32(GetLastError());
    return n >= (DWORD)length ? ZVERR_BUFFER_TOO_SMALL : S_OK;
}

ZVAPI HRESULT ZvQualifyPath(wchar_t *path, int length)
{
    wchar_t full[MAX_PATH];
    HRESULT hr = ZvGetFullPathName(path, full, MAX_PATH);
    if (FAILED(hr))
        return hr;
    wchar_t longer[MAX_PATH];
    // a path that doesn't exist yet keeps its full form
    if (FAILED(ZvGetLongPathName(full, longer, MAX_PATH)))
        wcscpy(longer, full);
    return CopyOut(path, length, longer, wcslen(longer));
}

ZVAPI HRESULT ZvGetTempPath(wchar_t *out, int length)
{
    if (!out || length < 1)
        return E_INVALIDARG;
    DWORD n = GetTempPathW((DWORD)length, out);
    if (!n)
        return HRESULT_FROM_WIN32(GetLastError());
    if (n >= (DWORD)length)
        return ZVERR_BUFFER_TOO_SMALL;
    GetLongPathNameW(out, out, (DWORD)length);
    return S_OK;
}

ZVAPI HRESULT ZvGetModuleFileName(HMODULE module, wchar_t *out, int length)
{
    if (!out || length < 1)
        return E_INVALIDARG;
    wchar_t raw[MAX_PATH];
    DWORD n = GetModuleFileNameW(module, raw, MAX_PATH);
    if (!n || n >= MAX_PATH)
        return HRESULT_FROM_WIN32(GetLastError() ? GetLastError() : ERROR_INSUFFICIENT_BUFFER);
    wchar_t longer[MAX_PATH];
    DWORD m = GetLongPathNameW(raw, longer, MAX_PATH);
    const wchar_t *use = (m && m < MAX_PATH) ? longer : raw;
    return CopyOut(out, length, use, wcslen(use));
}

ZVAPI HRESULT ZvGetModulePath(HMODULE module, wchar_t *out, int length)
{
    wchar_t file[MAX_PATH];
    HRESULT hr = ZvGetModuleFileName(module, file, MAX_PATH);
    if (FAILED(hr))
        return hr;
    return ZvGetPathNameFromFilePath(file, out, length);
}

ZVAPI HRESULT ZvGetFileExecutableInfo(const wchar_t *path, WORD *machine, WORD *subsystem)
{
    if (machine)
        *machine = 0;
    if (subsystem)
        *subsystem = 0;
    if (!path)
        return E_INVALIDARG;
    HANDLE h = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, NULL,
                           OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, NULL);
    if (h == INVALID_HANDLE_VALUE)
        return ZVERR_FILE_OPEN;
    HRESULT hr = ZVERR_MALFORMED;
    IMAGE_DOS_HEADER dos;
    DWORD got = 0;
    if (ReadFile(h, &dos, sizeof dos, &got, NULL) && got == sizeof dos && dos.e_magic == IMAGE_DOS_SIGNATURE &&
        dos.e_lfanew > 0 && SetFilePointer(h, dos.e_lfanew, NULL, FILE_BEGIN) != INVALID_SET_FILE_POINTER) {
        // signature, file header, then the optional header's magic and the
        // subsystem, which lies at the same place in both optional headers
        BYTE buf[4 + sizeof(IMAGE_FILE_HEADER) + 72];
        if (ReadFile(h, buf, sizeof buf, &got, NULL) && got >= 4 + sizeof(IMAGE_FILE_HEADER) &&
            *(DWORD *)buf == IMAGE_NT_SIGNATURE) {
            const IMAGE_FILE_HEADER *fh = (const IMAGE_FILE_HEADER *)(buf + 4);
            if (machine)
                *machine = fh->Machine;
            if (subsystem && got == sizeof buf)
                *subsystem = *(WORD *)(buf + 4 + sizeof(IMAGE_FILE_HEADER) + 68);
            hr = S_OK;
        }
    }
    CloseHandle(h);
    return hr;
}

ZVAPI BOOL ZvIsFileExecutable(const wchar_t *path)
{
    return SUCCEEDED(ZvGetFileExecutableInfo(path, NULL, NULL));
}

ZVAPI const wchar_t *ZvGetFileNamePtrRelative(const wchar_t *path, const wchar_t *base)
{
    if (!path || !base)
        return NULL;
    size_t n = wcslen(base);
    if (_wcsnicmp(path, base, n) != 0)
        return NULL;
    const wchar_t *rest = path + n;
    if (n && !IsSlashW(base[n - 1])) {
        if (*rest && !IsSlashW(*rest))
            return NULL;
        while (IsSlashW(*rest))
            ++rest;
    }
    return rest;
}

ZVAPI HRESULT ZvGetBasePathRelative(const wchar_t *path, const wchar_t *base, wchar_t *out, int length)
{
    const wchar_t *rest = ZvGetFileNamePtrRelative(path, base);
    if (!rest)
        return ZVERR_NOT_FOUND;
    return CopyOut(out, length, rest, wcslen(rest));
}

ZVAPI HRESULT ZvReplaceBasePathRelative(const wchar_t *path, const wchar_t *oldBase, const wchar_t *newBase,
                                        wchar_t *out, int length)
{
    const wchar_t *rest = ZvGetFileNamePtrRelative(path, oldBase);
    if (!rest || !newBase)
        return ZVERR_NOT_FOUND;
    wchar_t buf[MAX_PATH];
    if (wcslen(newBase) >= MAX_PATH)
        return ZVERR_BUFFER_TOO_SMALL;
    wcscpy(buf, newBase);
    if (*rest) {
        HRESULT hr = ZvAppendToPathName(buf, MAX_PATH, rest);
        if (FAILED(hr))
            return hr;
    }
    return CopyOut(out, length, buf, wcslen(buf));
}

ZVAPI BOOL ZvDoesFileExist(const wchar_t *path)
{
    if (!path || !*path)
        return FALSE;
    DWORD a = GetFileAttributesW(path);
    return a != INVALID_FILE_ATTRIBUTES && !(a & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_OFFLINE));
}

ZVAPI BOOL ZvIsFileWritable(const wchar_t *path)
{
    if (!ZvDoesFileExist(path))
        return FALSE;
    HANDLE h = CreateFileW(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING, 0, NULL);
    if (h == INVALID_HANDLE_VALUE)
        return FALSE;
    CloseHandle(h);
    return TRUE;
}

ZVAPI LONGLONG ZvGetFileSizeByName(const wchar_t *path)
{
    WIN32_FILE_ATTRIBUTE_DATA d;
    if (!path || !GetFileAttributesExW(path, GetFileExInfoStandard, &d) ||
        (d.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
        return -1;
    return ((LONGLONG)d.nFileSizeHigh << 32) | d.nFileSizeLow;
}

ZVAPI BOOL ZvIsDirectoryWritable(const wchar_t *folder)
{
    wchar_t name[MAX_PATH];
    if (!folder || FAILED(ZvCreateTempFileAndNameEx(folder, L"zvw", L".tmp", NULL, name, MAX_PATH)))
        return FALSE;
    DeleteFileW(name);
    return TRUE;
}

// Calls `visit` for each entry of `folder` except "." and "..";
// a false result stops the walk and is returned.
template <typename Visit> static bool WalkFolder(const wchar_t *folder, Visit visit)
{
    wchar_t pattern[MAX_PATH];
    if (_snwprintf(pattern, MAX_PATH, L"%s\\*", folder) < 0)
        return false;
    pattern[MAX_PATH - 1] = 0;
    WIN32_FIND_DATAW fd;
    HANDLE f = FindFirstFileW(pattern, &fd);
    if (f == INVALID_HANDLE_VALUE)
        return true;
    bool go = true;
    do {
        if (!wcscmp(fd.cFileName, L".") || !wcscmp(fd.cFileName, L".."))
            continue;
        go = visit(fd);
    } while (go && FindNextFileW(f, &fd));
    FindClose(f);
    return go;
}

ZVAPI BOOL ZvIsDirectoryEmpty(const wchar_t *folder)
{
    if (!folder)
        return FALSE;
    return WalkFolder(folder, [](const WIN32_FIND_DATAW &) { return false; });
}

ZVAPI BOOL ZvIsDirectoryEmptyRecursive(const wchar_t *folder)
{
    if (!folder)
        return FALSE;
    return WalkFolder(folder, [folder](const WIN32_FIND_DATAW &fd) {
        if (!(fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
            return false;
        wchar_t sub[MAX_PATH];
        _snwprintf(sub, MAX_PATH, L"%s\\%s", folder, fd.cFileName);
        sub[MAX_PATH - 1] = 0;
        return ZvIsDirectoryEmptyRecursive(sub) != FALSE;
    });
}

ZVAPI LONGLONG ZvGetDirectorySize(const wchar_t *folder)
{
    if (!folder)
        return 0;
    LONGLONG total = 0;
    WalkFolder(folder, [folder, &total](const WIN32_FIND_DATAW &fd) {
        if (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            wchar_t sub[MAX_PATH];
            _snwprintf(sub, MAX_PATH, L"%s\\%s", folder, fd.cFileName);
            sub[MAX_PATH - 1] = 0;
            total += ZvGetDirectorySize(sub);
        } else {
            total += ((LONGLONG)fd.nFileSizeHigh << 32) | fd.nFileSizeLow;
        }
        return true;
    });
    return total;
}

ZVAPI LONGLONG ZvGetDiskFreeSpace(const wchar_t *path)
{
    ULARGE_INTEGER avail, total, free;
    if (!path || !GetDiskFreeSpaceExW(path, &avail, &total, &free))
        return -1;
    return (LONGLONG)avail.QuadPart;
}

ZVAPI LONGLONG ZvGetDiskTotalSpace(const wchar_t *path)
{
    ULARGE_INTEGER avail, total, free;
    if (!path || !GetDiskFreeSpaceExW(path, &avail, &total, &free))
        return -1;
    return (LONGLONG)total.QuadPart;
}

ZVAPI int ZvFormatDiskFreeSpace(const wchar_t *path, wchar_t *buffer, int length)
{
    if (!buffer || length < 1)
        return 0;
    buffer[0] = 0;
    LONGLONG free = ZvGetDiskFreeSpace(path);
    if (free < 0)
        return 0;
    wchar_t text[64];
    ZvGetByteSizeTextWithSpace((ULONGLONG)free, text);
    return SUCCEEDED(CopyOut(buffer, length, text, wcslen(text))) ? (int)wcslen(buffer) : 0;
}

ZVAPI int ZvCreateDirectory(const wchar_t *path, void *)
{
    if (!path || !*path || wcsstr(path, L".."))
        return 0;
    size_t n = wcslen(path);
    if (n >= MAX_PATH)
        return 0;
    wchar_t buf[MAX_PATH];
    wcscpy(buf, path);
    size_t root = RootLength(buf);
    if (root) {
        wchar_t rootPath[MAX_PATH];
        wcsncpy(rootPath, buf, root);
        rootPath[root] = 0;
        if (GetFileAttributesW(rootPath) == INVALID_FILE_ATTRIBUTES)
            return 0;
    }
    int made = 0;
    for (size_t i = root; i <= n; ++i) {
        if (i < n && !IsSlashW(buf[i]))
            continue;
        wchar_t keep = buf[i];
        buf[i] = 0;
        if (i > root && GetFileAttributesW(buf) == INVALID_FILE_ATTRIBUTES && CreateDirectoryW(buf, NULL))
            ++made;
        buf[i] = keep;
    }
    return made;
}

ZVAPI int ZvDeleteFiles(const wchar_t *folder, const wchar_t *pattern)
{
    if (!folder)
        return 0;
    int count = 0;
    WalkFolder(folder, [&](const WIN32_FIND_DATAW &fd) {
        if (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
            return true;
        if (pattern && !ZvIsMatchWildCard(pattern, fd.cFileName))
            return true;
        wchar_t file[MAX_PATH];
        _snwprintf(file, MAX_PATH, L"%s\\%s", folder, fd.cFileName);
        file[MAX_PATH - 1] = 0;
        if (DeleteFileW(file))
            ++count;
        return true;
    });
    return count;
}

ZVAPI HRESULT ZvDeleteDirectoryTree(const wchar_t *folder)
{
    if (!folder || !*folder)
        return E_INVALIDARG;
    WalkFolder(folder, [folder](const WIN32_FIND_DATAW &fd) {
        wchar_t sub[MAX_PATH];
        _snwprintf(sub, MAX_PATH, L"%s\\%s", folder, fd.cFileName);
        sub[MAX_PATH - 1] = 0;
        if (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
            ZvDeleteDirectoryTree(sub);
        else {
            SetFileAttributesW(sub, FILE_ATTRIBUTE_NORMAL);
            DeleteFileW(sub);
        }
        return true;
    });
    if (!RemoveDirectoryW(folder))
        return HRESULT_FROM_WIN32(GetLastError());
    return S_OK;
}

static bool IsFolder(const wchar_t *path)
{
    DWORD a = GetFileAttributesW(path);
    return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_DIRECTORY);
}

ZVAPI HRESULT ZvCanMoveFolder(const wchar_t *from, const wchar_t *to)
{
    if (!from || !to)
        return E_POINTER;
    wchar_t src[MAX_PATH], dst[MAX_PATH], parent[MAX_PATH];
    if (FAILED(ZvGetFullPathName(from, src, MAX_PATH)) || FAILED(ZvGetFullPathName(to, dst, MAX_PATH)))
        return ZVERR_BAD_FILENAME;
    ZvRemoveSlashFromPathNameEnd(src);
    ZvRemoveSlashFromPathNameEnd(dst);
    if (!IsFolder(src))
        return ZVERR_NOT_FOUND;
    if (GetFileAttributesW(dst) != INVALID_FILE_ATTRIBUTES)
        return ZvErrorHandler_TranslateWin32Error(ERROR_ALREADY_EXISTS);
    // a folder can't move into itself
    if (ZvGetFileNamePtrRelative(dst, src))
        return E_INVALIDARG;
    wcscpy(parent, dst);
    if (!ZvDirectoryUpOneLevel(parent) || !IsFolder(parent))
        return ZVERR_NOT_FOUND;
    if (!ZvIsDirectoryWritable(parent))
        return E_ACCESSDENIED;
    wchar_t rootFrom[MAX_PATH], rootTo[MAX_PATH];
    if (SUCCEEDED(ZvGetRootPathFromFilePath(src, rootFrom, MAX_PATH)) &&
        SUCCEEDED(ZvGetRootPathFromFilePath(dst, rootTo, MAX_PATH)) && _wcsicmp(rootFrom, rootTo) != 0) {
        // across disks the whole tree is copied first
        LONGLONG free = ZvGetDiskFreeSpace(parent);
        if (free >= 0 && free < ZvGetDirectorySize(src))
            return ZVERR_DISK_FULL;
    }
    return S_OK;
}

static HRESULT CopyTree(const wchar_t *from, const wchar_t *to)
{
    if (!CreateDirectoryW(to, NULL))
        return ZvErrorHandler_TranslateWin32Error(GetLastError());
    HRESULT hr = S_OK;
    WalkFolder(from, [&](const WIN32_FIND_DATAW &fd) {
        wchar_t a[MAX_PATH], b[MAX_PATH];
        if (_snwprintf(a, MAX_PATH, L"%s\\%s", from, fd.cFileName) < 0 ||
            _snwprintf(b, MAX_PATH, L"%s\\%s", to, fd.cFileName) < 0) {
            hr = ZVERR_BUFFER_TOO_SMALL;
            return false;
        }
        a[MAX_PATH - 1] = b[MAX_PATH - 1] = 0;
        if (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
            hr = CopyTree(a, b);
        else if (!CopyFileW(a, b, TRUE))
            hr = ZvErrorHandler_TranslateWin32Error(GetLastError());
        return SUCCEEDED(hr);
    });
    return hr;
}

ZVAPI HRESULT ZvMoveFolder(const wchar_t *from, const wchar_t *to)
{
    HRESULT hr = ZvCanMoveFolder(from, to);
    if (FAILED(hr))
        return hr;
    if (MoveFileExW(from, to, 0))
        return S_OK;
    DWORD err = GetLastError();
    if (err != ERROR_NOT_SAME_DEVICE)
        return ZvErrorHandler_TranslateWin32Error(err);
    // The source goes only once the whole copy stands; a failed copy is
    // removed again and the source stays as it was.
    hr = CopyTree(from, to);
    if (FAILED(hr)) {
        ZvDeleteDirectoryTree(to);
        return hr;
    }
    return ZvDeleteDirectoryTree(from);
}

ZVAPI HRESULT ZvGetUniqueSubFolder(const wchar_t *folder, const wchar_t *prefix, wchar_t *out, int length)
{
    if (!folder || !out)
        return E_INVALIDARG;
    for (int i = 1; i < 100000; ++i) {
        wchar_t name[MAX_PATH];
        if (_snwprintf(name, MAX_PATH, L"%s\\%s%d", folder, prefix ? prefix : L"", i) < 0)
            return ZVERR_BUFFER_TOO_SMALL;
        if (GetFileAttributesW(name) == INVALID_FILE_ATTRIBUTES)
            return CopyOut(out, length, name, wcslen(name));
    }
    return E_FAIL;
}

ZVAPI HRESULT ZvCreateTempFileAndNameEx(const wchar_t *folder, const wchar_t *prefix, const wchar_t *suffix,
                                        const wchar_t *numberFormat, wchar_t *buffer, int length)
{
    if ((!folder && !prefix && !suffix) || !buffer || length < 1)
        return E_INVALIDARG;
    wchar_t tempFolder[MAX_PATH];
    if (!folder) {
        HRESULT hr = ZvGetTempPath(tempFolder, MAX_PATH);
        if (FAILED(hr))
            return hr;
        ZvRemoveSlashFromPathNameEnd(tempFolder);
        folder = tempFolder;
    }
    if (!numberFormat)
        numberFormat = L"%d";
    for (unsigned n = 1; n < 0x7FFFFFFF; ++n) {
        wchar_t number[32];
        _snwprintf(number, 32, numberFormat, n);
        number[31] = 0;
        size_t fl = wcslen(folder);
        bool slash = fl && IsSlashW(folder[fl - 1]);
        int need = _snwprintf(buffer, (size_t)length, L"%s%s%s%s%s", folder, slash ? L"" : L"\\",
                              prefix ? prefix : L"", number, suffix ? suffix : L"");
        if (need < 0 || need >= length) {
            buffer[0] = 0;
            return E_INVALIDARG;
        }
        HANDLE h = CreateFileW(buffer, GENERIC_WRITE, 0, NULL, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, NULL);
        if (h != INVALID_HANDLE_VALUE) {
            CloseHandle(h);
            return S_OK;
        }
        DWORD err = GetLastError();
        if (err == ERROR_FILE_EXISTS || err == ERROR_SHARING_VIOLATION || err == ERROR_ALREADY_EXISTS)
            continue;
        buffer[0] = 0;
        HRESULT hr = ZvErrorHandler_TranslateWin32Error(err);
        return FAILED(hr) ? hr : E_FAIL;
    }
    buffer[0] = 0;
    return E_FAIL;
}

ZVAPI HRESULT ZvCreateTempFileAndName(const wchar_t *prefix, const wchar_t *suffix, wchar_t *buffer, int length)
{
    return ZvCreateTempFileAndNameEx(NULL, prefix ? prefix : L"zv", suffix, NULL, buffer, length);
}

ZVAPI int ZvFilenameLogicalCompare(const wchar_t *a, const wchar_t *b)
{
    return StrCmpLogicalW(a ? a : L"", b ? b : L"");
}

ZVAPI HRESULT ZvGetDateTime(const wchar_t *path, FILETIME *lastWrite)
{
    WIN32_FILE_ATTRIBUTE_DATA d;
    if (!path || !lastWrite)
        return E_INVALIDARG;
    if (!GetFileAttributesExW(path, GetFileExInfoStandard, &d))
        return ZVERR_NOT_FOUND;
    *lastWrite = d.ftLastWriteTime;
    return S_OK;
}

static DWORD DosFromFileTime(const FILETIME &ft)
{
    WORD date = 0, time = 0;
    if (!FileTimeToDosDateTime(&ft, &date, &time))
        return 0;
    return ((DWORD)date << 16) | time;
}

ZVAPI DWORD ZvDosGetDateTimeUTC(const wchar_t *path)
{
    FILETIME ft;
    if (FAILED(ZvGetDateTime(path, &ft)))
        return 0;
    return DosFromFileTime(ft);
}

ZVAPI DWORD ZvDosGetDateTime(const wchar_t *path)
{
    FILETIME ft, local;
    if (FAILED(ZvGetDateTime(path, &ft)) || !FileTimeToLocalFileTime(&ft, &local))
        return 0;
    return DosFromFileTime(local);
}

ZVAPI HRESULT ZvReadFile(HANDLE file, void *buffer, DWORD size)
{
    DWORD got = 0;
    if (!buffer && size)
        return E_INVALIDARG;
    if (!ReadFile(file, buffer, size, &got, NULL) || got != size)
        return ZVERR_FILE_READ;
    return S_OK;
}

ZVAPI HRESULT ZvReadIStream(IStream *stream, void *buffer, ULONG size)
{
    if (!stream || (!buffer && size))
        return E_INVALIDARG;
    ULONG got = 0;
    HRESULT hr = stream->Read(buffer, size, &got);
    if (FAILED(hr))
        return hr;
    return got == size ? S_OK : ZVERR_FILE_READ;
}

static HRESULT SpecialFolder(wchar_t *buffer, int length, int csidl, const wchar_t *sub)
{
    if (!buffer || length < MAX_PATH)
        return E_INVALIDARG;
    HRESULT hr = SHGetFolderPathW(NULL, csidl | CSIDL_FLAG_CREATE, NULL, 0, buffer);
    if (FAILED(hr))
        return hr;
    if (!PathAppendW(buffer, sub))
        return ZVERR_BUFFER_TOO_SMALL;
    if (GetFileAttributesW(buffer) == INVALID_FILE_ATTRIBUTES)
        ZvCreateDirectory(buffer, NULL);
    return GetFileAttributesW(buffer) == INVALID_FILE_ATTRIBUTES ? ZVERR_FILE_CREATE : S_OK;
}

ZVAPI HRESULT ZvGetSpecialFolderVer(wchar_t *buffer, int length, int csidl, const wchar_t *name, int major, int minor)
{
    wchar_t sub[MAX_PATH];
    _snwprintf(sub, MAX_PATH, L"%s\\%d.%d\\", name ? name : L"", major, minor);
    sub[MAX_PATH - 1] = 0;
    return SpecialFolder(buffer, length, csidl, sub);
}

ZVAPI HRESULT ZvGetSpecialFolderNoVer(wchar_t *buffer, int length, int csidl, const wchar_t *name)
{
    wchar_t sub[MAX_PATH];
    _snwprintf(sub, MAX_PATH, L"%s\\", name ? name : L"");
    sub[MAX_PATH - 1] = 0;
    return SpecialFolder(buffer, length, csidl, sub);
}

static bool ReadRegText(HKEY root, const wchar_t *key, const wchar_t *value, wchar_t *out, int length)
{
    DWORD bytes = (DWORD)length * sizeof(wchar_t), type = 0;
    HKEY h;
    if (RegOpenKeyExW(root, key, 0, KEY_READ, &h) != ERROR_SUCCESS)
        return false;
    LONG r = RegQueryValueExW(h, value, NULL, &type, (BYTE *)out, &bytes);
    RegCloseKey(h);
    if (r != ERROR_SUCCESS || (type != REG_SZ && type != REG_EXPAND_SZ) || bytes < sizeof(wchar_t))
        return false;
    out[length - 1] = 0;
    out[bytes / sizeof(wchar_t) < (DWORD)length ? bytes / sizeof(wchar_t) : (DWORD)length - 1] = 0;
    return out[0] != 0;
}

static void PresetKey(wchar_t *key, DWORD version, const wchar_t *application)
{
    _snwprintf(key, MAX_PATH, L"Software\\Kelpo Media Works\\%s\\%d.%d\\Metrics", application ? application : L"",
               (int)((version >> 24) & 0xFF), (int)((version >> 16) & 0xFF));
    key[MAX_PATH - 1] = 0;
}

ZVAPI HRESULT ZvGetPresetFolder(wchar_t *buffer, int length, DWORD version, const wchar_t *application)
{
    if (!buffer || length < MAX_PATH)
        return E_INVALIDARG;
    wchar_t key[MAX_PATH];
    PresetKey(key, version, application);
    if (ReadRegText(HKEY_CURRENT_USER, key, L"VSTPresetPath", buffer, length))
        return S_OK;
    return SHGetFolderPathW(NULL, CSIDL_PERSONAL, NULL, 0, buffer);
}

static HRESULT WriteRegText(HKEY root, const wchar_t *key, const wchar_t *value, const wchar_t *text)
{
    HKEY h;
    LONG r = RegCreateKeyExW(root, key, 0, NULL, 0, KEY_SET_VALUE, NULL, &h, NULL);
    if (r != ERROR_SUCCESS)
        return ZvErrorHandler_TranslateWin32Error((DWORD)r);
    if (text && *text)
        r = RegSetValueExW(h, value, 0, REG_SZ, (const BYTE *)text, (DWORD)((wcslen(text) + 1) * sizeof(wchar_t)));
    else if ((r = RegDeleteValueW(h, value)) == ERROR_FILE_NOT_FOUND)
        r = ERROR_SUCCESS;
    RegCloseKey(h);
    return r == ERROR_SUCCESS ? S_OK : ZvErrorHandler_TranslateWin32Error((DWORD)r);
}

ZVAPI HRESULT ZvSetPresetFolder(const wchar_t *folder, DWORD version, const wchar_t *application)
{
    if (!application)
        return E_POINTER;
    wchar_t key[MAX_PATH];
    PresetKey(key, version, application);
    return WriteRegText(HKEY_CURRENT_USER, key, L"VSTPresetPath", folder);
}

ZVAPI HRESULT ZvGetSharedComponentsFolder(wchar_t *buffer, int length)
{
    if (!buffer || length < 1)
        return E_INVALIDARG;
    buffer[0] = 0;
    if (ReadRegText(HKEY_LOCAL_MACHINE, L"Software\\Kelpo Media Works", L"SharedComponentsFolder", buffer, length))
        return S_OK;
    return ZVERR_NOT_FOUND;
}

static const wchar_t *const kTolanValues[2] = {L"HallinThemesFolder", L"AudioTransitionsFolder"};
static const wchar_t *const kTolanNames[2] = {L"Hallin Themes", L"Audio Transitions"};

ZVAPI HRESULT ZvGetSpecialTolanDefaultFolderName(int index, wchar_t *buffer, int length)
{
    if (!buffer)
        return E_POINTER;
    if (index < 0 || index > 1)
        return E_INVALIDARG;
    return CopyOut(buffer, length, kTolanNames[index], wcslen(kTolanNames[index]));
}

ZVAPI HRESULT ZvSetSpecialTolanFolder(int index, const wchar_t *folder)
{
    if (index < 0 || index > 1)
        return E_INVALIDARG;
    return WriteRegText(HKEY_LOCAL_MACHINE, L"Software\\Kelpo Media Works", kTolanValues[index], folder);
}

ZVAPI HRESULT ZvGetSpecialTolanFolder(wchar_t *buffer, int length, int index)
{
    if (!buffer || length < 1)
        return E_INVALIDARG;
    const wchar_t *const *values = kTolanValues;
    const wchar_t *const *names = kTolanNames;
    if (index >= 0 && index <= 1 &&
        ReadRegText(HKEY_LOCAL_MACHINE, L"Software\\Kelpo Media Works", values[index], buffer, length))
        return S_OK;
    HRESULT hr = ZvGetSharedComponentsFolder(buffer, length);
    if (FAILED(hr))
        return hr;
    if (index < 0 || index > 1)
        return E_INVALIDARG;
    hr = ZvAppendToPathName(buffer, length, names[index]);
    if (SUCCEEDED(hr))
        hr = ZvAddSlashToPathName(buffer, length);
    return hr;
}

ZVAPI BOOL ZvIsHiddenFolderByDefault(const wchar_t *path)
{
    if (!path || !*path)
        return FALSE;
    static const int kHidden[] = {CSIDL_APPDATA, CSIDL_LOCAL_APPDATA, CSIDL_COMMON_APPDATA};
    wchar_t full[MAX_PATH];
    if (FAILED(ZvGetFullPathName(path, full, MAX_PATH)))
        return FALSE;
    for (int csidl : kHidden) {
        wchar_t folder[MAX_PATH];
        if (SUCCEEDED(SHGetFolderPathW(NULL, csidl, NULL, 0, folder)) && ZvGetFileNamePtrRelative(full, folder))
            return TRUE;
    }
    return FALSE;
}
