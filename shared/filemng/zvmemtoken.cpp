#include "filemng/zvmemtoken.h"
#include "zvmemory.h"
#include <string.h>

static const UINT64 kNoHandle = ~(UINT64)0;

static DWORD normalAccess(DWORD access)
{
    access &= ZVMEMTOKEN_READ | ZVMEMTOKEN_WRITE;
    return access ? access : ZVMEMTOKEN_READ | ZVMEMTOKEN_WRITE;
}

static inline void *tokenBase(const _zvmemorytoken &t) { return (void *)(ULONG_PTR)t.qwBase; }
static inline HANDLE tokenHandle(const _zvmemorytoken &t) { return (HANDLE)(ULONG_PTR)t.hMapping; }

// --- CMappingOfZvMemoryToken ---------------------------------------------------

CMappingOfZvMemoryToken::CMappingOfZvMemoryToken(const _zvmemorytoken &token, DWORD access)
    : token_(token)
{
    if (token_.dwProcessId == GetCurrentProcessId()) {
        // the owner itself: no system call, no copy
        data_ = (BYTE *)tokenBase(token_) + token_.dwOffset;
        invalid_ = 0;
        return;
    }
    access = normalAccess(access);
    if (token_.dwKind == ZVMEMTOKEN_KIND_MAPPING) {
        HANDLE owner = OpenProcess(PROCESS_DUP_HANDLE, FALSE, token_.dwProcessId);
        if (!owner)
            return;
        HANDLE local = NULL;
        if (DuplicateHandle(owner, tokenHandle(token_), GetCurrentProcess(), &local, 0, FALSE,
                            DUPLICATE_SAME_ACCESS)) {
            mapping_ = local;
            view_ = MapViewOfFile(mapping_, access, 0, 0, (SIZE_T)token_.cbData + token_.dwOffset);
            if (view_) {
                data_ = (BYTE *)view_ + token_.dwOffset;
                mapped_ = 1;
                invalid_ = 0;
            } else {
                CloseHandle(mapping_);
                mapping_ = INVALID_HANDLE_VALUE;
            }
        }
        CloseHandle(owner);
        return;
    }
    if (token_.dwKind != ZVMEMTOKEN_KIND_LOCAL)
        return;   // a private buffer of another process can't be reached
    void *block = ZvMem_Alloc(token_.cbData);
    if (!block)
        return;
    if (access & ZVMEMTOKEN_READ) {
        HANDLE owner = OpenProcess(PROCESS_VM_OPERATION | PROCESS_VM_READ | PROCESS_VM_WRITE, FALSE,
                                   token_.dwProcessId);
        SIZE_T got = 0;
        BOOL ok = owner && ReadProcessMemory(owner, (BYTE *)tokenBase(token_) + token_.dwOffset, block,
                                             token_.cbData, &got);
        if (owner)
            CloseHandle(owner);
        if (!ok || got != token_.cbData) {
            ZvMem_Free(block);
            return;
        }
    }
    data_ = block;
    copied_ = 1;
    writeBack_ = (access & ZVMEMTOKEN_WRITE) ? 1 : 0;
    invalid_ = 0;
}

// Member by member: the copy shares the view and the handle of the source, so
// only one of the two may be disposed.
CMappingOfZvMemoryToken &CMappingOfZvMemoryToken::operator=(const CMappingOfZvMemoryToken &other)
{
    if (this != &other) {
        token_ = other.token_;
        data_ = other.data_;
        view_ = other.view_;
        mapping_ = other.mapping_;
        mapped_ = other.mapped_;
        copied_ = other.copied_;
        invalid_ = other.invalid_;
        writeBack_ = other.writeBack_;
    }
    return *this;
}

void CMappingOfZvMemoryToken::Dispose()
{
    if (invalid_) {
        data_ = nullptr;
        return;
    }
    if (mapped_) {
        UnmapViewOfFile(view_);
        CloseHandle(mapping_);
        mapping_ = INVALID_HANDLE_VALUE;
        view_ = nullptr;
        mapped_ = 0;
    } else if (copied_ && data_) {
        if (writeBack_) {
            HANDLE owner = OpenProcess(PROCESS_VM_OPERATION | PROCESS_VM_WRITE, FALSE, token_.dwProcessId);
            if (owner) {
                SIZE_T done = 0;
                WriteProcessMemory(owner, (BYTE *)tokenBase(token_) + token_.dwOffset, data_, token_.cbData, &done);
                CloseHandle(owner);
            }
        }
        ZvMem_Free(data_);
        copied_ = 0;
    }
    data_ = nullptr;
    invalid_ = 1;
}

HRESULT CMappingOfZvMemoryToken::GetPointer(void **out) const
{
    if (!out)
        return E_POINTER;
    *out = Pointer();
    return invalid_ ? E_FAIL : S_OK;
}

// --- COutOfProcessMemoryToken --------------------------------------------------

COutOfProcessMemoryToken::COutOfProcessMemoryToken(const _zvmemorytoken &token, DWORD access, BOOL)
    : token_(token)
{
    ZeroMemory(&shadow_, sizeof shadow_);
    access_ = normalAccess(access);
    if (token_.dwKind == ZVMEMTOKEN_KIND_LOCAL || token_.dwKind == ZVMEMTOKEN_KIND_MAPPING) {
        // the other side reaches these by itself
        shadow_ = token_;
        failed_ = 0;
        return;
    }
    shadowed_ = 1;
    if (FAILED(ZvMemoryToken_CreateMapping(&shadow_, token_.cbData)))
        return;
    if (access_ & ZVMEMTOKEN_READ) {
        CMappingOfZvMemoryToken source(token_, ZVMEMTOKEN_READ);
        CMappingOfZvMemoryToken target(shadow_, ZVMEMTOKEN_WRITE);
        if (source.DataSize() == target.DataSize() && source.Pointer() && target.Pointer()) {
            memcpy(target.Pointer(), source.Pointer(), token_.cbData);
            failed_ = 0;
        }
    } else
        failed_ = 0;
    if (failed_)
        dropShadow();
}

void COutOfProcessMemoryToken::dropShadow()
{
    if (shadow_.dwKind == ZVMEMTOKEN_KIND_MAPPING && shadow_.dwProcessId == GetCurrentProcessId())
        ZvMemoryToken_ReleaseMapping(&shadow_);
    ZeroMemory(&shadow_, sizeof shadow_);
}

COutOfProcessMemoryToken::~COutOfProcessMemoryToken()
{
    if (!shadowed_ || failed_)
        return;
    if (access_ & ZVMEMTOKEN_WRITE) {
        CMappingOfZvMemoryToken source(shadow_, ZVMEMTOKEN_READ);
        CMappingOfZvMemoryToken target(token_, ZVMEMTOKEN_WRITE);
        if (source.DataSize() == target.DataSize() && source.Pointer() && target.Pointer())
            memcpy(target.Pointer(), source.Pointer(), token_.cbData);
    }
    dropShadow();
}

COutOfProcessMemoryToken &COutOfProcessMemoryToken::operator=(const COutOfProcessMemoryToken &other)
{
    if (this != &other) {
        token_ = other.token_;
        shadow_ = other.shadow_;
        shadowed_ = other.shadowed_;
        failed_ = other.failed_;
        access_ = other.access_;
    }
    return *this;
}

HRESULT COutOfProcessMemoryToken::GetMemoryToken(_zvmemorytoken &out) const
{
    if (failed_)
        return E_FAIL;
    out = shadow_;
    return S_OK;
}

// --- helpers -------------------------------------------------------------------

HRESULT ZvMemoryToken_CreateMapping(_zvmemorytoken *token, DWORD size)
{
    if (!token)
        return E_POINTER;
    ZeroMemory(token, sizeof *token);
    token->hMapping = kNoHandle;
    // a mapping can't be empty: a zero-byte token still gets one page
    HANDLE mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, NULL, PAGE_READWRITE, 0, size ? size : 1, NULL);
    if (!mapping)
        return E_OUTOFMEMORY;
    void *view = MapViewOfFile(mapping, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0);
    if (!view) {
        CloseHandle(mapping);
        return E_OUTOFMEMORY;
    }
    token->hMapping = (UINT64)(ULONG_PTR)mapping;
    token->qwBase = (UINT64)(ULONG_PTR)view;
    token->cbData = size;
    token->cbMapping = size;
    token->dwKind = ZVMEMTOKEN_KIND_MAPPING;
    token->dwProcessId = GetCurrentProcessId();
    return S_OK;
}

HRESULT ZvMemoryToken_ReleaseMapping(_zvmemorytoken *token)
{
    if (!token)
        return E_POINTER;
    HRESULT hr = E_INVALIDARG;
    if (token->dwKind == ZVMEMTOKEN_KIND_MAPPING) {
        if (token->qwBase)
            UnmapViewOfFile(tokenBase(*token));
        if (token->hMapping && token->hMapping != kNoHandle)
            CloseHandle(tokenHandle(*token));
        hr = S_OK;
    }
    ZeroMemory(token, sizeof *token);
    return hr;
}

void ZvMemoryToken_InitLocal(_zvmemorytoken *token, void *data, DWORD size, DWORD kind)
{
    ZeroMemory(token, sizeof *token);
    token->hMapping = kNoHandle;
    token->qwBase = (UINT64)(ULONG_PTR)data;
    token->cbData = size;
    token->cbMapping = size;
    token->dwKind = kind;
    token->dwProcessId = GetCurrentProcessId();
}
