#include "childserver.h"
#include "testutil.h"
#include "zvproxy.h"
#include <vector>
#include <cstdio>

namespace contracttest {

static std::wstring eventName(const wchar_t *what, DWORD parentPid)
{
    wchar_t name[96];
    swprintf(name, 96, L"Local\\ZvContract%ls_%lu", what, parentPid);
    return name;
}

HRESULT InitComOnce()
{
    static HRESULT result = [] {
        HRESULT hr = CoInitializeEx(NULL, COINIT_MULTITHREADED);
        return FAILED(hr) ? hr : ZvProxy_Register();
    }();
    return result;
}

ChildServer::ChildServer(const char *routine, const std::wstring &marshalFile)
{
    HANDLE ready = CreateEventW(NULL, TRUE, FALSE, eventName(L"Ready", GetCurrentProcessId()).c_str());
    done_ = CreateEventW(NULL, TRUE, FALSE, eventName(L"Done", GetCurrentProcessId()).c_str());
    std::wstring cmd = L"\"" + zvtest::ExePath() + L"\" --child ";
    cmd += std::wstring(routine, routine + strlen(routine));
    cmd += L" \"" + marshalFile + L"\" " + std::to_wstring(GetCurrentProcessId());
    STARTUPINFOW si = {};
    si.cb = sizeof(si);
    std::vector<wchar_t> line(cmd.begin(), cmd.end());
    line.push_back(0);
    if (!CreateProcessW(NULL, line.data(), NULL, NULL, FALSE, 0, NULL, NULL, &si, &pi_)) {
        CloseHandle(ready);
        return;
    }
    HANDLE waits[2] = {ready, pi_.hProcess};
    DWORD w = WaitForMultipleObjects(2, waits, FALSE, 60000);
    CloseHandle(ready);
    if (w != WAIT_OBJECT_0)
        return;
    std::vector<unsigned char> bytes;
    if (!zvtest::ReadFileBytes(marshalFile, bytes) || bytes.empty())
        return;
    HGLOBAL mem = GlobalAlloc(GMEM_MOVEABLE, bytes.size());
    memcpy(GlobalLock(mem), bytes.data(), bytes.size());
    GlobalUnlock(mem);
    IStream *stream = nullptr;
    if (SUCCEEDED(CreateStreamOnHGlobal(mem, TRUE, &stream))) {
        CoUnmarshalInterface(stream, IID_IUnknown, (void **)&object_);
        stream->Release();
    }
}

ChildServer::~ChildServer()
{
    if (object_)
        object_->Release();
    if (done_) {
        SetEvent(done_);
        CloseHandle(done_);
    }
    if (pi_.hProcess) {
        if (WaitForSingleObject(pi_.hProcess, 20000) != WAIT_OBJECT_0)
            TerminateProcess(pi_.hProcess, 1);
        CloseHandle(pi_.hProcess);
        CloseHandle(pi_.hThread);
    }
}

int ServeObject(IUnknown *object, int argc, char **argv)
{
    if (argc < 2)
        return 2;
    std::string narrow = argv[0];
    std::wstring file(narrow.begin(), narrow.end());
    DWORD parentPid = strtoul(argv[1], NULL, 10);
    IStream *stream = nullptr;
    if (FAILED(CreateStreamOnHGlobal(NULL, TRUE, &stream)))
        return 3;
    HRESULT hr = CoMarshalInterface(stream, IID_IUnknown, object, MSHCTX_LOCAL, NULL, MSHLFLAGS_NORMAL);
    if (FAILED(hr)) {
        stream->Release();
        return 4;
    }
    HGLOBAL mem = NULL;
    GetHGlobalFromStream(stream, &mem);
    STATSTG st = {};
    stream->Stat(&st, STATFLAG_NONAME);
    bool written = zvtest::WriteFileBytes(file, GlobalLock(mem), (size_t)st.cbSize.QuadPart);
    GlobalUnlock(mem);
    stream->Release();
    if (!written)
        return 5;

    HANDLE ready = OpenEventW(EVENT_MODIFY_STATE, FALSE, eventName(L"Ready", parentPid).c_str());
    HANDLE done = OpenEventW(SYNCHRONIZE, FALSE, eventName(L"Done", parentPid).c_str());
    HANDLE parent = OpenProcess(SYNCHRONIZE, FALSE, parentPid);
    if (!ready || !done || !parent)
        return 6;
    SetEvent(ready);
    // serve until the parent is done with us, or has gone
    HANDLE waits[2] = {done, parent};
    WaitForMultipleObjects(2, waits, FALSE, 120000);
    CloseHandle(ready);
    CloseHandle(done);
    CloseHandle(parent);
    return 0;
}

} // namespace contracttest
