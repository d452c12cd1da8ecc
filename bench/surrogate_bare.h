// The floor under a surrogate call: a minimal COM local server (this bench
// program started again with --bare-server) whose audio stream does nothing,
// reached through the same proxy-stub module as the surrogate's objects.
#pragma once
#include "zvplugin.h"
#include "zvproxy.h"
#include <objbase.h>
#include <string>

namespace bare {

// Data1 is exclusive-or'ed with the server's process id, as the surrogate's.
static const CLSID kClass = {0x2D7F41A9, 0x53C6, 0x4B1E, {0x9A, 0x04, 0x6E, 0x11, 0xC8, 0x3B, 0x72, 0x5D}};

HANDLE g_done;

// Every method but the two measured ones refuses.
class Stream : public IZvReadAudioStream {
public:
    STDMETHODIMP QueryInterface(REFIID iid, void **out) override
    {
        if (iid == IID_IUnknown || iid == IID_IZvReadStream || iid == IID_IZvReadAudioStream) {
            *out = static_cast<IZvReadAudioStream *>(this);
            AddRef();
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return (ULONG)InterlockedIncrement(&refs_); }
    STDMETHODIMP_(ULONG) Release() override
    {
        LONG n = InterlockedDecrement(&refs_);
        if (!n)
            SetEvent(g_done); // the server goes with its one object
        return (ULONG)n;
    }
    STDMETHODIMP GetClass(IZvReadFileClass **) override { return E_NOTIMPL; }
    STDMETHODIMP GetFile(IZvReadFile **) override { return E_NOTIMPL; }
    STDMETHODIMP GetStreamIndex(LONG *) override { return E_NOTIMPL; }
    STDMETHODIMP GetType(ZVFILESTREAMTYPE *) override { return E_NOTIMPL; }
    STDMETHODIMP GetStreamLength(LONGLONG *) override { return E_NOTIMPL; }
    STDMETHODIMP GetInfoText(WCHAR *, DWORD, DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP GetInfo(BYTE *, DWORD, DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP SetReadOptions(DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP GetSampleCount(LONGLONG *) override { return E_NOTIMPL; }
    STDMETHODIMP SetOutputFormat(const _ZVFILESTREAMFORMATINFOv2 *) override { return E_NOTIMPL; }
    STDMETHODIMP GetStreamFormatInfo(_ZVFILESTREAMFORMATINFOv2 *) override { return E_NOTIMPL; }
    STDMETHODIMP GetStoredFormatInfo(_ZVFILESTREAMFORMATINFOv2 *) override { return E_NOTIMPL; }
    STDMETHODIMP GetReadPosition(LONGLONG *) override { return E_NOTIMPL; }
    // the 40-byte record crosses, nothing is done with it
    STDMETHODIMP ReadSamples(DWORD, LONG, _zvmemorytoken, DWORD count, DWORD *read) override
    {
        *read = count;
        return S_OK;
    }
    STDMETHODIMP GetBlockAlign(DWORD *align) override
    {
        *align = 4;
        return S_OK;
    }
    STDMETHODIMP Prefetch(LONGLONG, DWORD) override { return E_NOTIMPL; }

private:
    volatile LONG refs_ = 0;
};

class Factory : public IClassFactory {
public:
    STDMETHODIMP QueryInterface(REFIID iid, void **out) override
    {
        if (iid == IID_IUnknown || iid == IID_IClassFactory) {
            *out = static_cast<IClassFactory *>(this);
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP CreateInstance(IUnknown *outer, REFIID iid, void **out) override
    {
        return outer ? CLASS_E_NOAGGREGATION : stream_.QueryInterface(iid, out);
    }
    STDMETHODIMP LockServer(BOOL) override { return S_OK; }

private:
    Stream stream_;
};

// The server's life: register, serve until the object is released, go.
inline int Serve()
{
    CoInitializeEx(NULL, COINIT_MULTITHREADED);
    ZvProxy_Register();
    g_done = CreateEventW(NULL, TRUE, FALSE, NULL);
    static Factory factory;
    CLSID clsid = kClass;
    clsid.Data1 ^= GetCurrentProcessId();
    DWORD cookie = 0;
    if (FAILED(CoRegisterClassObject(clsid, &factory, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, &cookie)))
        return 1;
    // ends on its own if no client comes
    WaitForSingleObject(g_done, 60000);
    CoRevokeClassObject(cookie);
    CoUninitialize();
    return 0;
}

// A bare server started from this program, and its stream's proxy.
class Client {
public:
    Client()
    {
        wchar_t self[MAX_PATH];
        GetModuleFileNameW(NULL, self, MAX_PATH);
        std::wstring line = L"\"" + std::wstring(self) + L"\" --bare-server";
        STARTUPINFOW si;
        ZeroMemory(&si, sizeof si);
        si.cb = sizeof si;
        PROCESS_INFORMATION pi;
        if (!CreateProcessW(NULL, &line[0], NULL, NULL, FALSE, 0, NULL, NULL, &si, &pi))
            return;
        CloseHandle(pi.hThread);
        process_ = pi.hProcess;
        CLSID clsid = kClass;
        clsid.Data1 ^= pi.dwProcessId;
        HRESULT hr = REGDB_E_CLASSNOTREG;
        for (int i = 0; i < 100 && hr == REGDB_E_CLASSNOTREG; ++i) {
            if (i)
                Sleep(100);
            hr = CoCreateInstance(clsid, NULL, CLSCTX_LOCAL_SERVER, IID_IZvReadAudioStream, (void **)&stream);
        }
    }
    ~Client()
    {
        if (stream)
            stream->Release();
        if (process_) {
            if (WaitForSingleObject(process_, 5000) != WAIT_OBJECT_0)
                TerminateProcess(process_, 1);
            CloseHandle(process_);
        }
    }
    IZvReadAudioStream *stream = nullptr;

private:
    HANDLE process_ = NULL;
};

} // namespace bare
