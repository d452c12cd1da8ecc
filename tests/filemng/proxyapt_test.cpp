#include <gtest/gtest.h>
#include <windows.h>
#include <atomic>
#include <thread>
#include "zvproxy.h"
#include "zvlogger.h"
#include "memlogger.h"

namespace {

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
    zvtest::MemoryLogger logger; // lives in the multithreaded apartment
    IGlobalInterfaceTable *git = nullptr;
    ASSERT_EQ(CoCreateInstance(CLSID_StdGlobalInterfaceTable, NULL, CLSCTX_INPROC_SERVER, IID_IGlobalInterfaceTable,
                               (void **)&git), S_OK);
    DWORD cookie = 0;
    ASSERT_EQ(git->RegisterInterfaceInGlobal(&logger, IID_IZvLogger, &cookie), S_OK);
    EXPECT_EQ(callFromApartment(cookie, COINIT_MULTITHREADED), S_OK);
    EXPECT_EQ(callFromApartment(cookie, COINIT_APARTMENTTHREADED), S_OK);
    EXPECT_EQ(callFromApartment(cookie, COINIT_APARTMENTTHREADED), S_OK);
    EXPECT_EQ(logger.lines.size(), 3u);
    git->RevokeInterfaceFromGlobal(cookie);
    git->Release();
    CoUninitialize();
}
