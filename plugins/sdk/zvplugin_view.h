// zvplugin_view.h: a reader's or renderer's view of its caller's shared
// buffer, kept from call to call.
//
// A host passes the same shared buffer (a mapping token) to every
// ReadSamples, ReadFrame or WriteSamples call of a stream. In a surrogate,
// mapping that buffer afresh for each call makes the first touch of every
// page fault; on a machine that virtualises its page tables that costs
// 10-20 us a page, several times the copy itself. A KeptView maps the
// caller's section once and checks at each call, by comparing the section
// objects, that the token still names the same one: a handle value may be
// used again for another section once the caller closed the first.
//
// Use: one KeptView per stream (or per file); in each call
//     zvsdk::HeldView view(kept_, token, FILE_MAP_WRITE);
//     BYTE *p = view.get();   // null: map the token for this call instead
// The view stays locked while the HeldView lives, so threads that share the
// stream take turns on it. The section stays referenced until the stream
// is released or the caller passes another buffer.
#pragma once
#include "zvplugin_sdk.h"

namespace zvsdk {

class KeptView {
public:
    KeptView()
    {
        InitializeCriticalSection(&lock_);
        HMODULE base = GetModuleHandleW(L"kernelbase.dll");
        same_ = base ? (Compare)(void *)GetProcAddress(base, "CompareObjectHandles") : nullptr;
    }
    ~KeptView()
    {
        Drop();
        if (owner_)
            CloseHandle(owner_);
        DeleteCriticalSection(&lock_);
    }
    KeptView(const KeptView &) = delete;
    KeptView &operator=(const KeptView &) = delete;

    // The token's bytes through the kept view, locked until Release; null
    // and unlocked for a token of this process, of another kind, or when
    // the system can't compare sections.
    BYTE *Hold(const _zvmemorytoken &t, DWORD access)
    {
        if (!same_ || t.dwKind != ZVMEMTOKEN_KIND_MAPPING || t.dwProcessId == GetCurrentProcessId())
            return nullptr;
        EnterCriticalSection(&lock_);
        BYTE *p = Map(t, access);
        if (!p)
            LeaveCriticalSection(&lock_);
        return p;
    }
    void Release() { LeaveCriticalSection(&lock_); }

private:
    typedef BOOL(WINAPI *Compare)(HANDLE, HANDLE);

    BYTE *Map(const _zvmemorytoken &t, DWORD access)
    {
        if (ownerId_ != t.dwProcessId) {   // the caller's process, opened once
            if (owner_)
                CloseHandle(owner_);
            owner_ = OpenProcess(PROCESS_DUP_HANDLE, FALSE, t.dwProcessId);
            ownerId_ = owner_ ? t.dwProcessId : 0;
        }
        HANDLE h = NULL;
        if (!owner_ || !DuplicateHandle(owner_, ZvSdk_WireToHandle(t.hMapping), GetCurrentProcess(), &h, 0,
                                        FALSE, DUPLICATE_SAME_ACCESS))
            return nullptr;
        const ULONGLONG need = (ULONGLONG)t.dwOffset + t.cbData;
        if (section_ && need <= size_ && (access & ~access_) == 0 && same_(h, section_)) {
            CloseHandle(h);
            return view_ + t.dwOffset;
        }
        Drop();
        if (need > (SIZE_T)-1 || !(view_ = (BYTE *)MapViewOfFile(h, access, 0, 0, (SIZE_T)need))) {
            CloseHandle(h);
            return nullptr;
        }
        section_ = h;
        size_ = need;
        access_ = access;
        return view_ + t.dwOffset;
    }
    void Drop()
    {
        if (view_)
            UnmapViewOfFile(view_);
        if (section_)
            CloseHandle(section_);
        view_ = nullptr;
        section_ = NULL;
        size_ = 0;
        access_ = 0;
    }

    CRITICAL_SECTION lock_;
    Compare same_;
    HANDLE owner_ = NULL;
    DWORD ownerId_ = 0;
    HANDLE section_ = NULL;
    BYTE *view_ = nullptr;
    ULONGLONG size_ = 0;
    DWORD access_ = 0;
};

// One call's hold on a KeptView.
class HeldView {
public:
    HeldView(KeptView &kept, const _zvmemorytoken &t, DWORD access) : kept_(kept), data_(kept.Hold(t, access)) {}
    ~HeldView()
    {
        if (data_)
            kept_.Release();
    }
    HeldView(const HeldView &) = delete;
    HeldView &operator=(const HeldView &) = delete;
    BYTE *get() const { return data_; }

private:
    KeptView &kept_;
    BYTE *data_;
};

} // namespace zvsdk
