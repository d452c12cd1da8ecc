// A child whose per-process class id is taken by a dead registration. The
// system's class table keeps the registration of a server ended by force for
// the rest of the session, and hands it out before the new child's; process
// ids are reused, so a later surrogate can compute the same id. The launch
// must end such a child and start another instead of failing the group.
#include "surrogate_world.h"
#include <tlhelp32.h>
#include <stdio.h>

using namespace tsworld;

namespace {

CLSID ProcessClass(DWORD pid)
{
    CLSID c = {0x5CDF45F4, 0x888C, 0x461A, {0x8A, 0xB2, 0x5A, 0xAA, 0x01, 0x5B, 0x46, 0x42}};
    c.Data1 ^= pid;
    return c;
}

// Answers the first activation as a registration whose server is gone would,
// after taking its registrations back, so that later children are reachable.
struct DeadFactory : IClassFactory {
    HANDLE asked, revoked;
    STDMETHODIMP QueryInterface(REFIID iid, void **out)
    {
        *out = (iid == IID_IUnknown || iid == IID_IClassFactory) ? this : nullptr;
        return *out ? S_OK : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() { return 2; }
    STDMETHODIMP_(ULONG) Release() { return 1; }
    STDMETHODIMP CreateInstance(IUnknown *, REFIID, void **out)
    {
        *out = nullptr;
        SetEvent(asked);
        WaitForSingleObject(revoked, 10000);
        return HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE);
    }
    STDMETHODIMP LockServer(BOOL) { return S_OK; }
};

// args: lowest and highest process id to take, the names of the ready,
// asked and done events
ZVTEST_CHILD(deadclasses)
{
    if (argc < 5)
        return 2;
    CoInitializeEx(NULL, COINIT_MULTITHREADED);
    DWORD lo = strtoul(argv[0], NULL, 0), hi = strtoul(argv[1], NULL, 0);
    HANDLE ready = OpenEventA(EVENT_MODIFY_STATE, FALSE, argv[2]);
    DeadFactory factory;
    factory.asked = OpenEventA(EVENT_MODIFY_STATE | SYNCHRONIZE, FALSE, argv[3]);
    factory.revoked = CreateEventW(NULL, TRUE, FALSE, NULL);
    HANDLE done = OpenEventA(SYNCHRONIZE, FALSE, argv[4]);
    std::vector<DWORD> cookies;
    for (DWORD pid = lo; pid <= hi; pid += 4) {
        DWORD cookie = 0;
        if (SUCCEEDED(CoRegisterClassObject(ProcessClass(pid), &factory, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE,
                                            &cookie)))
            cookies.push_back(cookie);
    }
    SetEvent(ready);
    HANDLE wake[2] = {factory.asked, done};
    WaitForMultipleObjects(2, wake, FALSE, 120000);
    for (DWORD cookie : cookies)
        CoRevokeClassObject(cookie);
    SetEvent(factory.revoked);
    WaitForSingleObject(done, 120000);
    return 0;
}

// Surrogates started by this process that are still running.
int RunningChildren()
{
    int n = 0;
    HANDLE snap = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W pe;
    pe.dwSize = sizeof pe;
    for (BOOL ok = Process32FirstW(snap, &pe); ok; ok = Process32NextW(snap, &pe))
        if (pe.th32ParentProcessID == GetCurrentProcessId() && !_wcsicmp(pe.szExeFile, L"Vantry.exe"))
            ++n;
    CloseHandle(snap);
    return n;
}

} // namespace

TEST_F(SurrogateTest, AChildBehindADeadRegistrationIsReplaced)
{
    // The next process ids lie near the one just handed out; the ids below it
    // may come back from the free list. All of them are taken.
    PROCESS_INFORMATION probe;
    STARTUPINFOW si = {};
    si.cb = sizeof si;
    std::wstring line = L"\"" + zvtest::ExePath() + L"\" --child none";
    ASSERT_TRUE(CreateProcessW(NULL, &line[0], NULL, NULL, FALSE, CREATE_SUSPENDED, NULL, NULL, &si, &probe));
    TerminateProcess(probe.hProcess, 0);
    CloseHandle(probe.hThread);
    CloseHandle(probe.hProcess);

    HANDLE ready = CreateEventA(NULL, TRUE, FALSE, "zvtest-dead-ready");
    HANDLE asked = CreateEventA(NULL, TRUE, FALSE, "zvtest-dead-asked");
    HANDLE done = CreateEventA(NULL, TRUE, FALSE, "zvtest-dead-done");
    char args[200];
    snprintf(args, sizeof args, " --child deadclasses 4 %lu zvtest-dead-ready zvtest-dead-asked zvtest-dead-done",
             probe.dwProcessId + 0x1000);
    std::wstring child = L"\"" + zvtest::ExePath() + L"\"";
    for (const char *p = args; *p; ++p)
        child += (wchar_t)*p;
    PROCESS_INFORMATION dead;
    ASSERT_TRUE(CreateProcessW(NULL, &child[0], NULL, NULL, FALSE, 0, NULL, NULL, &si, &dead));
    CloseHandle(dead.hThread);
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(ready, 60000)) << "the dead registrations were not made";

    {
        World w;
        EXPECT_EQ(S_OK, w.created);
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(asked, 0)) << "no child got a taken class id";
        // every group reaches a child of its own
        ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
        ASSERT_TRUE(t);
        EXPECT_EQ(3, t->used);
        for (int variant : {TS_G1A, TS_G2, TS_G3}) {
            IZvReadFileClass *cls = w.reader(variant);
            EXPECT_TRUE(cls) << "group of variant " << variant;
            if (cls)
                cls->Release();
        }
        EXPECT_EQ(3, RunningChildren()) << "the unreachable child must have been ended";
        w.cleanUp();
        EXPECT_TRUE(w.guard.waitAll(3000));
    }
    SetEvent(done);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(dead.hProcess, 30000));
    CloseHandle(dead.hProcess);
    CloseHandle(ready);
    CloseHandle(asked);
    CloseHandle(done);
}
