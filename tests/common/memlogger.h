// A logger that keeps its lines in memory and counts its references (it is
// never deleted through them).
#pragma once
#include "zvlog.h"
#include <string>
#include <vector>

namespace zvtest {

struct MemoryLogger : IZvLogger {
    LONG refs = 1;
    std::vector<std::wstring> lines;
    STDMETHODIMP QueryInterface(REFIID riid, void **out) override
    {
        if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IZvLogger)) {
            *out = this;
            AddRef();
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return (ULONG)InterlockedIncrement(&refs); }
    STDMETHODIMP_(ULONG) Release() override { return (ULONG)InterlockedDecrement(&refs); }
    STDMETHODIMP Init(LPCWSTR, DWORD, LONG, LONG) override { return S_OK; }
    STDMETHODIMP Shutdown() override { return S_OK; }
    STDMETHODIMP Write(DWORD, LPCWSTR, LONG, LPCWSTR text) override
    {
        lines.push_back(text ? text : L"");
        return S_OK;
    }
    STDMETHODIMP GetLogFileName(WCHAR *buffer, LONG length) override
    {
        if (length > 0)
            buffer[0] = 0;
        return S_OK;
    }
    bool has(const wchar_t *part) const
    {
        for (const auto &l : lines)
            if (l.find(part) != std::wstring::npos)
                return true;
        return false;
    }
};

} // namespace zvtest
