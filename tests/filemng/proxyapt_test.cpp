#include <gtest/gtest.h>
#include <windows.h>
#include <atomic>
#include <thread>
#include "zvproxy.h"
#include "zvlogger.h"

namespace {

// A logger that only counts, living in the multithreaded apartment.
struct CountingLogger : IZvLogger {
    std::atomic<LONG> refs{1}, writes{0};
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **out) override
    {
        if (iid == IID_IUnknown || iid == IID_IZvLogger) {
            *out = static_cast<IZvLogger *>(this);
            AddRef();
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
    ULONG STDMETHODCALLTYPE Release() override { return --refs; }
    HRESULT STDMETHODCALLTYPE Init(LPCWSTR, DWORD, LONG, LONG) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Shutdown() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Write(DWORD, LPCWSTR, LONG, LPCWSTR) override { writes++; return S_OK; }
    HRESULT STDMETHODCALLTYPE GetLogFileName(WCHAR *, LONG) override { return S_OK; }
};

HRESULT callFromApartment(DWORD cookie, DWORD model)
{
    HRESULT result = E_UNEXPECTED;
    std::thread t([&] {
        CoInitializeEx(NULL, model);
        EXPECT_EQ(ZvProxy_Register(), model == COINIT_MULTITHREADED ? S_FALSE : S_OK);
        IGlobalInterfaceTable *git = nullptr;
        CoCreateInstance(CLSID_StdGlobalInterfaceTable, NULL, CLSCTX_INPROC_SERVER, IID_IGlobalInterfaceTable,
                         (void **)&git);
        IZvLogger *logger = nullptr;
        result = git->GetInterfaceFromGlobal(cookie, IID_IZvLogger, (void **)&logger);
        if (SUCCEEDED(result)) {
            result = logger->Write(4, L"x.cpp", 1, L"line");
            logger->Release();
        }
        git->Release();
        CoUninitialize();
    });
    t.join();
    return result;
}

} // namespace

// The contract's proxies must work in every apartment of the process, also in
// single-threaded ones made after the registration.
TEST(ProxyRegistration, ContractInterfacesCrossApartments)
{
    CoInitializeEx(NULL, COINIT_MULTITHREADED);
    ZvProxy_Register();
    CountingLogger logger;
    IGlobalInterfaceTable *git = nullptr;
    ASSERT_EQ(CoCreateInstance(CLSID_StdGlobalInterfaceTable, NULL, CLSCTX_INPROC_SERVER, IID_IGlobalInterfaceTable,
                               (void **)&git), S_OK);
    DWORD cookie = 0;
    ASSERT_EQ(git->RegisterInterfaceInGlobal(&logger, IID_IZvLogger, &cookie), S_OK);
    EXPECT_EQ(callFromApartment(cookie, COINIT_MULTITHREADED), S_OK);
    EXPECT_EQ(callFromApartment(cookie, COINIT_APARTMENTTHREADED), S_OK);
    EXPECT_EQ(callFromApartment(cookie, COINIT_APARTMENTTHREADED), S_OK);
    EXPECT_EQ(logger.writes, 3);
    git->RevokeInterfaceFromGlobal(cookie);
    git->Release();
    CoUninitialize();
}
