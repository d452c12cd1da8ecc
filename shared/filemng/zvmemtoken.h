// Memory tokens: a buffer described by a small record that travels by value
// through any interface. The receiving side maps or copies the owner's bytes;
// the calling side can swap a private buffer for a shared mapping for the
// time of one call.
#pragma once
#include "zvbase.h"
#include "zvplugin.h"

// Access of a mapping: FILE_MAP_WRITE (2), FILE_MAP_READ (4); 0 means both.
#define ZVMEMTOKEN_WRITE 2u
#define ZVMEMTOKEN_READ  4u

// The bytes of a token, reachable in the current process.
class CMappingOfZvMemoryToken {
public:
    CMappingOfZvMemoryToken(const _zvmemorytoken &token, DWORD access);
    ~CMappingOfZvMemoryToken() { Dispose(); }
    CMappingOfZvMemoryToken &operator=(const CMappingOfZvMemoryToken &other);
    CMappingOfZvMemoryToken(const CMappingOfZvMemoryToken &) = delete;

    void Dispose();
    void Close() { Dispose(); }
    HRESULT GetPointer(void **out) const;
    void *Pointer() const { return invalid_ ? nullptr : data_; }
    LONG DataSize() const { return invalid_ ? -1 : (LONG)token_.cbData; }
    bool IsValid() const { return !invalid_; }

private:
    _zvmemorytoken token_;
    void *data_ = nullptr;
    void *view_ = nullptr;
    HANDLE mapping_ = INVALID_HANDLE_VALUE;
    BYTE mapped_ = 0;
    BYTE copied_ = 0;
    BYTE invalid_ = 1;
    BYTE writeBack_ = 0;
};

// Copy modes of COutOfProcessMemoryToken: the access mask says which way the
// bytes go; read copies the caller's bytes into the shadow before the call,
// write copies the shadow back when the object goes.
class COutOfProcessMemoryToken {
public:
    COutOfProcessMemoryToken(const _zvmemorytoken &token, DWORD access, BOOL copyBack);
    ~COutOfProcessMemoryToken();
    COutOfProcessMemoryToken(const COutOfProcessMemoryToken &) = delete;
    COutOfProcessMemoryToken &operator=(const COutOfProcessMemoryToken &other);

    // The token to hand to the other process; E_FAIL when the shadow could
    // not be made or filled.
    HRESULT GetMemoryToken(_zvmemorytoken &out) const;
    bool Failed() const { return failed_ != 0; }
    bool Shadowed() const { return shadowed_ != 0; }

private:
    void dropShadow();

    _zvmemorytoken token_;
    _zvmemorytoken shadow_;
    DWORD shadowed_ = 0;
    DWORD failed_ = 1;
    DWORD access_ = 0;
};

// A token over a fresh anonymous mapping of `size` bytes, mapped for read and
// write in this process (kind 1). E_OUTOFMEMORY when it can't be made.
ZVAPI HRESULT ZvMemoryToken_CreateMapping(_zvmemorytoken *token, DWORD size);
// Unmaps and closes a kind 1 token of this process; other kinds give
// E_INVALIDARG. The token is zeroed in any case.
ZVAPI HRESULT ZvMemoryToken_ReleaseMapping(_zvmemorytoken *token);
// A token for memory of this process (kind 0 with base and size).
ZVAPI void ZvMemoryToken_InitLocal(_zvmemorytoken *token, void *data, DWORD size, DWORD kind);
