// Vantry.exe as a separate process: reaching it, its end after the last
// release or after its client's death, and its registration switches.
#include <gtest/gtest.h>
#include <objbase.h>
#include <stdio.h>
#include <string>
#include "testutil.h"
#include "childguard.h"
#include "vantrycmd.h"
#include "zvproxy.h"
#include "zvsurrogate.h"

namespace {

ULONGLONG nowMs()
{
    LARGE_INTEGER f, c;
    QueryPerformanceFrequency(&f);
    QueryPerformanceCounter(&c);
    return (ULONGLONG)(c.QuadPart * 1000 / f.QuadPart);
}

std::wstring surrogatePath()
{
    wchar_t path[MAX_PATH];
    return Vantry_SurrogatePath(NULL, path, MAX_PATH) ? path : L"";
}

// Whatever path a test takes, no Vantry.exe it started outlives it.
typedef zvtest::ChildGuard SurrogateGuard;

// Starts the surrogate with a command line tail of its own.
HRESULT launchWith(const std::wstring &tail, SurrogateGuard &guard)
{
    std::wstring line = L"\"" + surrogatePath() + L"\" " + tail;
    STARTUPINFOW si = {};
    si.cb = sizeof(si);
    PROCESS_INFORMATION pi = {};
    if (!CreateProcessW(NULL, &line[0], NULL, NULL, FALSE, CREATE_SUSPENDED, NULL, NULL, &si, &pi))
        return HRESULT_FROM_WIN32(GetLastError());
    guard.adopt(pi.hProcess, pi.dwProcessId);
    ResumeThread(pi.hThread);
    CloseHandle(pi.hThread);
    return S_OK;
}

HRESULT launch(SurrogateGuard &guard)
{
    PROCESS_INFORMATION pi;
    HRESULT hr = Vantry_Launch(surrogatePath().c_str(), 1033, &pi);
    if (SUCCEEDED(hr)) {
        guard.adopt(pi.hProcess, pi.dwProcessId);
        CloseHandle(pi.hThread);
    }
    return hr;
}

class VantryServer : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        CoInitializeEx(NULL, COINIT_MULTITHREADED);
        ZvProxy_Register();
    }
    static void TearDownTestSuite()
    {
        ZvProxy_Unregister();
        CoUninitialize();
    }
};

TEST_F(VantryServer, ServesItsProcessIdAndEndsAfterTheLastRelease)
{
    SurrogateGuard guard;
    ASSERT_EQ(S_OK, launch(guard));
    IZvFileIOManagerSurrogate *surrogate = NULL;
    ULONGLONG start = nowMs();
    ASSERT_EQ(S_OK, Vantry_Connect(guard.pid(), guard.handle(), 100, IID_IZvFileIOManagerSurrogate,
                                   (void **)&surrogate));
    ULONGLONG connected = nowMs();
    DWORD pid = 0;
    EXPECT_EQ(S_OK, surrogate->GetProcessId(&pid));
    EXPECT_EQ(guard.pid(), pid);
    IUnknown *other = NULL;
    EXPECT_EQ(S_OK, surrogate->QueryInterface(IID_IVantry32, (void **)&other));
    if (other)
        other->Release();
    EXPECT_EQ(E_INVALIDARG, surrogate->CreateObject(L"", CLSID_Vantry32, IID_IUnknown, &other));
    EXPECT_EQ(NULL, other);

    ULONGLONG released = nowMs();
    surrogate->Release();
    DWORD code = guard.waitExit(3000);
    ULONGLONG ended = nowMs();
    EXPECT_EQ(0u, code) << "not ended within 3 s of the last release";
    EXPECT_GE(ended - released, 990u) << "ended before the pause after revoking";
    printf("[ vantry   ] connect %llu ms, exit %llu ms after the last release\n",
           (unsigned long long)(connected - start), (unsigned long long)(ended - released));
}

TEST_F(VantryServer, ASecondClientOfTheSameClassIsRefusedAfterTheEnd)
{
    SurrogateGuard guard;
    ASSERT_EQ(S_OK, launch(guard));
    IZvFileIOManagerSurrogate *first = NULL, *second = NULL;
    ASSERT_EQ(S_OK, Vantry_Connect(guard.pid(), guard.handle(), 100, IID_IZvFileIOManagerSurrogate,
                                   (void **)&first));
    // a second object of the same process keeps it alive past the first release
    ASSERT_EQ(S_OK, Vantry_Connect(guard.pid(), guard.handle(), 1, IID_IZvFileIOManagerSurrogate,
                                   (void **)&second));
    first->Release();
    EXPECT_EQ((DWORD)STILL_ACTIVE, guard.waitExit(1500));
    DWORD pid = 0;
    EXPECT_EQ(S_OK, second->GetProcessId(&pid));
    EXPECT_EQ(guard.pid(), pid);
    second->Release();
    EXPECT_EQ(0u, guard.waitExit(3000));
    // the class went with the process
    IUnknown *late = NULL;
    EXPECT_NE(S_OK, Vantry_Connect(guard.pid(), guard.handle(), 2, IID_IUnknown, (void **)&late));
    EXPECT_EQ(NULL, late);
}

TEST_F(VantryServer, ConnectingToNoSurrogateRunsIntoItsLimit)
{
    IUnknown *unk = (IUnknown *)1;
    EXPECT_EQ(E_POINTER, Vantry_Connect(GetCurrentProcessId(), NULL, 2, IID_IUnknown, NULL));
    // this process serves no surrogate class
    ULONGLONG start = nowMs();
    EXPECT_EQ(REGDB_E_CLASSNOTREG, Vantry_Connect(GetCurrentProcessId(), NULL, 2, IID_IUnknown, (void **)&unk));
    EXPECT_EQ(NULL, unk);
    EXPECT_GE(nowMs() - start, 95u) << "no pause between the attempts";
    // an ended surrogate is given up at once
    SurrogateGuard guard;
    ASSERT_EQ(S_OK, launchWith(L"/RegServer", guard));
    ASSERT_EQ(0u, guard.waitExit(10000));
    start = nowMs();
    EXPECT_EQ(CO_E_SERVER_EXEC_FAILURE, Vantry_Connect(guard.pid(), guard.handle(), 100, IID_IUnknown, (void **)&unk));
    EXPECT_LT(nowMs() - start, 2000u);
}

// The client of the test below: launches a surrogate, reaches it, reports its
// process id, then dies without releasing anything.
ZVTEST_CHILD(vantry_client)
{
    if (argc < 2)
        return 2;
    CoInitializeEx(NULL, COINIT_MULTITHREADED);
    ZvProxy_Register();
    PROCESS_INFORMATION pi;
    if (FAILED(Vantry_Launch(surrogatePath().c_str(), 1033, &pi)))
        return 3;
    IZvFileIOManagerSurrogate *surrogate = NULL;
    HRESULT hr = Vantry_Connect(pi.dwProcessId, pi.hProcess, 100, IID_IZvFileIOManagerSurrogate,
                                (void **)&surrogate);
    DWORD pid = 0;
    if (SUCCEEDED(hr))
        hr = surrogate->GetProcessId(&pid);
    FILE *f = fopen(argv[0], "w");
    if (f) {
        fprintf(f, "%lu %lu\n", (unsigned long)pi.dwProcessId, (unsigned long)(SUCCEEDED(hr) ? pid : 0));
        fclose(f);
    }
    HANDLE go = OpenEventA(SYNCHRONIZE, FALSE, argv[1]);
    if (go)
        WaitForSingleObject(go, 20000);
    TerminateProcess(GetCurrentProcess(), 9);
    return 4;
}

TEST_F(VantryServer, EndsByItselfWhenItsClientDies)
{
    zvtest::TempDir dir;
    std::wstring pidFile = dir.file(L"pid.txt");
    char pidFileA[MAX_PATH * 3];
    WideCharToMultiByte(CP_UTF8, 0, pidFile.c_str(), -1, pidFileA, sizeof(pidFileA), NULL, NULL);
    char eventName[64];
    snprintf(eventName, sizeof(eventName), "Local\\vantry_test_go_%lu", GetCurrentProcessId());
    HANDLE go = CreateEventA(NULL, TRUE, FALSE, eventName);
    ASSERT_TRUE(go != NULL);

    std::wstring line = L"\"" + zvtest::ExePath() + L"\" --child vantry_client \"" + pidFile + L"\" " +
                        std::wstring(eventName, eventName + strlen(eventName));
    STARTUPINFOW si = {};
    si.cb = sizeof(si);
    PROCESS_INFORMATION client = {};
    ASSERT_TRUE(CreateProcessW(NULL, &line[0], NULL, NULL, FALSE, 0, NULL, NULL, &si, &client));
    CloseHandle(client.hThread);

    // wait for the client to report its surrogate
    SurrogateGuard guard;
    unsigned long spid = 0, served = 0;
    for (int i = 0; i < 300 && !spid; i++) {
        std::vector<unsigned char> text;
        if (zvtest::ReadFileBytes(pidFile, text) && !text.empty() && text.back() == '\n') {
            text.push_back(0);
            sscanf((const char *)text.data(), "%lu %lu", &spid, &served);
            break;
        }
        if (WaitForSingleObject(client.hProcess, 50) == WAIT_OBJECT_0)
            break;
    }
    if (spid) {
        HANDLE h = OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE | PROCESS_QUERY_INFORMATION, FALSE, spid);
        if (h)
            guard.adopt(h, spid);
    }
    SetEvent(go);
    if (WaitForSingleObject(client.hProcess, 10000) != WAIT_OBJECT_0)
        TerminateProcess(client.hProcess, 1);
    ULONGLONG died = nowMs();
    CloseHandle(client.hProcess);
    CloseHandle(go);
    ASSERT_NE(0ul, spid) << "the client didn't report a surrogate";
    ASSERT_TRUE(guard.handle() != NULL);
    EXPECT_EQ(spid, served) << "the client couldn't reach its surrogate";
    DWORD code = guard.waitExit(3000);
    EXPECT_NE((DWORD)STILL_ACTIVE, code) << "the surrogate outlived its client by 3 s";
    printf("[ vantry   ] surrogate ended %llu ms after its client died\n",
           (unsigned long long)(nowMs() - died));
}

TEST_F(VantryServer, RegistrationSwitchesEndAtOnceWithSuccess)
{
    for (const wchar_t *tail : { L"/RegServer", L"-unregserver", L"/RegServerPerUser 1033", L"-UNREGSERVERPERUSER" }) {
        SurrogateGuard guard;
        ASSERT_EQ(S_OK, launchWith(tail, guard));
        EXPECT_EQ(0u, guard.waitExit(10000)) << "switch " << (const char *)std::string(tail, tail + wcslen(tail)).c_str();
    }
}

} // namespace
