#include "zvcomspy.h"

STDMETHODIMP CMonitored_CoInitializeEx::QueryInterface(REFIID riid, void **out)
{
    if (!out)
        return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IInitializeSpy)) {
        *out = static_cast<IInitializeSpy *>(this);
        return S_OK;
    }
    *out = NULL;
    return E_NOINTERFACE;
}

HRESULT CMonitored_CoInitializeEx::Initialize()
{
    return ::CoRegisterInitializeSpy(this, &m_cookie);
}

void CMonitored_CoInitializeEx::UnInitialize()
{
    // A cookie of 0 (never registered) fails to revoke; that is harmless.
    ::CoRevokeInitializeSpy(m_cookie);
    m_cookie.QuadPart = 0;
}

HRESULT CMonitored_CoInitializeEx::CoInitialize(void *reserved)
{
    Initialize();
    return ::CoInitialize(reserved);
}

HRESULT CMonitored_CoInitializeEx::CoInitializeEx(void *reserved, DWORD flags)
{
    Initialize();
    return ::CoInitializeEx(reserved, flags);
}

void CMonitored_CoInitializeEx::CoUninitialize()
{
    UnInitialize();
    ::CoUninitialize();
}

HRESULT CMonitored_CoInitializeEx::OleInitialize(void *reserved)
{
    Initialize();
    return ::OleInitialize(reserved);
}

void CMonitored_CoInitializeEx::OleUninitialize()
{
    UnInitialize();
    ::OleUninitialize();
}
