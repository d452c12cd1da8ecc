#include "testutil.h"
#include <map>
#include <string>
#include <cstdio>
#include <cstdlib>
#include <shellapi.h>
#include <objbase.h>

namespace zvtest {

static std::map<std::string, ChildRoutine> &children()
{
    static std::map<std::string, ChildRoutine> table;
    return table;
}

ChildRegistration::ChildRegistration(const char *name, ChildRoutine routine)
{
    children()[name] = routine;
}

int RunChild(const char *name, int argc, char **argv)
{
    auto it = children().find(name);
    if (it == children().end()) {
        fprintf(stderr, "unknown child routine %s\n", name);
        return 2;
    }
    return it->second(argc, argv);
}

std::wstring ExePath()
{
    wchar_t buf[MAX_PATH];
    DWORD n = GetModuleFileNameW(NULL, buf, MAX_PATH);
    return std::wstring(buf, n);
}

std::wstring ExeDir()
{
    std::wstring p = ExePath();
    return p.substr(0, p.find_last_of(L"\\/") + 1);
}

std::wstring TestkitDir()
{
    std::wstring here = ExeDir();
    if (GetFileAttributesW((here + L"testkit.Fio2007-Config").c_str()) != INVALID_FILE_ATTRIBUTES)
        return here;
    return here + L"testkit\\";
}

std::wstring HostDirFromEnv(const char *var)
{
    const char *env = getenv(var);
    if (!env || !*env)
        return L"";
    std::wstring dir = env[0] == '/' ? L"Z:" : L"";
    for (const char *p = env; *p; p++)
        dir += *p == '/' ? L'\\' : (wchar_t)*p;
    return dir + L"\\";
}

HRESULT CreateFromDll(const wchar_t *dll, const GUID &clsid, REFIID iid, void **out)
{
    *out = nullptr;
    HMODULE module = LoadLibraryW((ExeDir() + dll).c_str());
    auto get = module ? (LPFNGETCLASSOBJECT)(void *)GetProcAddress(module, "DllGetClassObject") : nullptr;
    if (!get)
        return E_FAIL;
    IClassFactory *factory = nullptr;
    HRESULT hr = get(clsid, IID_IClassFactory, (void **)&factory);
    if (FAILED(hr))
        return hr;
    hr = factory->CreateInstance(nullptr, iid, out);
    factory->Release();
    return hr;
}

TempDir::TempDir()
{
    static LONG serial;
    wchar_t base[MAX_PATH];
    GetTempPathW(MAX_PATH, base);
    wchar_t name[MAX_PATH];
    swprintf(name, MAX_PATH, L"%lszvtest_%lu_%ld_%lu", base, GetCurrentProcessId(),
             InterlockedIncrement(&serial), GetTickCount());
    CreateDirectoryW(name, NULL);
    path_ = name;
}

void RemoveTree(const std::wstring &dir)
{
    WIN32_FIND_DATAW fd;
    HANDLE h = FindFirstFileW((dir + L"\\*").c_str(), &fd);
    if (h != INVALID_HANDLE_VALUE) {
        do {
            std::wstring name = fd.cFileName;
            if (name == L"." || name == L"..")
                continue;
            std::wstring full = dir + L"\\" + name;
            if (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
                RemoveTree(full);
            else {
                SetFileAttributesW(full.c_str(), FILE_ATTRIBUTE_NORMAL);
                DeleteFileW(full.c_str());
            }
        } while (FindNextFileW(h, &fd));
        FindClose(h);
    }
    RemoveDirectoryW(dir.c_str());
}

TempDir::~TempDir()
{
    RemoveTree(path_);
}

std::wstring Ini(const std::wstring &file, const std::wstring &section, const std::wstring &key)
{
    wchar_t buf[1024];
    GetPrivateProfileStringW(section.c_str(), key.c_str(), L"<none>", buf, 1024, file.c_str());
    return buf;
}

DWORD RunProcess(std::wstring commandLine, const wchar_t *folder, DWORD ms)
{
    STARTUPINFOW si = {};
    si.cb = sizeof si;
    PROCESS_INFORMATION pi = {};
    if (!CreateProcessW(nullptr, &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr, folder, &si, &pi))
        return 1000;
    DWORD code = 1001;
    if (WaitForSingleObject(pi.hProcess, ms) == WAIT_OBJECT_0)
        GetExitCodeProcess(pi.hProcess, &code);
    else
        TerminateProcess(pi.hProcess, 1001);
    CloseHandle(pi.hProcess);
    CloseHandle(pi.hThread);
    return code;
}

DWORD RunChildProcess(const std::wstring &nameAndArgs, const wchar_t *folder, DWORD ms)
{
    return RunProcess(L"\"" + ExePath() + L"\" --child " + nameAndArgs, folder, ms);
}

bool WriteFileBytes(const std::wstring &path, const void *data, size_t size)
{
    HANDLE h = CreateFileW(path.c_str(), GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, 0, NULL);
    if (h == INVALID_HANDLE_VALUE)
        return false;
    DWORD done = 0;
    BOOL ok = size == 0 || WriteFile(h, data, (DWORD)size, &done, NULL);
    CloseHandle(h);
    return ok && done == size;
}

bool ReadFileBytes(const std::wstring &path, std::vector<unsigned char> &out)
{
    HANDLE h = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, NULL,
                           OPEN_EXISTING, 0, NULL);
    if (h == INVALID_HANDLE_VALUE)
        return false;
    LARGE_INTEGER size;
    GetFileSizeEx(h, &size);
    out.resize((size_t)size.QuadPart);
    DWORD done = 0;
    BOOL ok = out.empty() || ReadFile(h, out.data(), (DWORD)out.size(), &done, NULL);
    CloseHandle(h);
    return ok && done == out.size();
}

// Busy blocks in all heaps of the process: what a leak leaves behind.
long long HeapBusyBlocks()
{
    HANDLE heaps[64];
    DWORD n = GetProcessHeaps(64, heaps);
    long long busy = 0;
    for (DWORD i = 0; i < n && i < 64; i++) {
        if (!HeapLock(heaps[i]))
            continue;
        PROCESS_HEAP_ENTRY e;
        e.lpData = nullptr;
        while (HeapWalk(heaps[i], &e))
            if (e.wFlags & PROCESS_HEAP_ENTRY_BUSY)
                busy++;
        HeapUnlock(heaps[i]);
    }
    return busy;
}

} // namespace zvtest
