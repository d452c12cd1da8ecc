// A thread's COM initialisation with an apartment spy registered for as long
// as the apartment is held, so that code can watch what happens to it.
#pragma once
#include "zvbase.h"
#include <objbase.h>

class CMonitored_CoInitializeEx : public IInitializeSpy {
public:
    CMonitored_CoInitializeEx() : m_cookie() {}
    // Copies share the cookie: only one of them may uninitialise.
    CMonitored_CoInitializeEx(const CMonitored_CoInitializeEx &other) : IInitializeSpy(), m_cookie(other.m_cookie) {}
    CMonitored_CoInitializeEx &operator=(const CMonitored_CoInitializeEx &other) {
        m_cookie = other.m_cookie;
        return *this;
    }
    virtual ~CMonitored_CoInitializeEx() {}

    HRESULT CoInitialize(void *reserved);
    HRESULT CoInitializeEx(void *reserved, DWORD flags);
    void CoUninitialize();
    HRESULT OleInitialize(void *reserved);
    void OleUninitialize();

    ULARGE_INTEGER Cookie() const { return m_cookie; }

    // IUnknown: the object lives on the stack or inside its owner.
    STDMETHODIMP QueryInterface(REFIID riid, void **out) override;
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    // IInitializeSpy: watch only, never change a result.
    STDMETHODIMP PreInitialize(DWORD, DWORD) override { return S_OK; }
    STDMETHODIMP PostInitialize(HRESULT hrCoInit, DWORD, DWORD) override { return hrCoInit; }
    STDMETHODIMP PreUninitialize(DWORD) override { return S_OK; }
    STDMETHODIMP PostUninitialize(DWORD newAptRefs) override { return (HRESULT)newAptRefs; }

private:
    HRESULT Initialize();
    void UnInitialize();
    ULARGE_INTEGER m_cookie;
};
