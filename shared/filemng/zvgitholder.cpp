#include "filemng/zvgitholder.h"
#include "zvmemory.h"
#include "zvproxy.h"

// --- global interface table helpers ------------------------------------------

static HRESULT openGit(IGlobalInterfaceTable **git)
{
    return CoCreateInstance(CLSID_StdGlobalInterfaceTable, NULL, CLSCTX_INPROC_SERVER,
                            IID_IGlobalInterfaceTable, (void **)git);
}

HRESULT ZvGit_Register(IUnknown *object, REFIID iid, DWORD *cookie)
{
    *cookie = 0;
    IGlobalInterfaceTable *git = nullptr;
    HRESULT hr = openGit(&git);
    if (FAILED(hr))
        return hr;
    hr = git->RegisterInterfaceInGlobal(object, iid, cookie);
    git->Release();
    return hr;
}

HRESULT ZvGit_Get(DWORD cookie, REFIID iid, IUnknown **out)
{
    *out = nullptr;
    // a thread of a new apartment needs the contract's proxies there first
    ZvProxy_Register();
    IGlobalInterfaceTable *git = nullptr;
    HRESULT hr = openGit(&git);
    if (FAILED(hr))
        return hr;
    hr = git->GetInterfaceFromGlobal(cookie, iid, (void **)out);
    git->Release();
    return hr;
}

void ZvGit_Revoke(DWORD cookie)
{
    IGlobalInterfaceTable *git = nullptr;
    if (SUCCEEDED(openGit(&git))) {
        git->RevokeInterfaceFromGlobal(cookie);
        git->Release();
    }
}

// --- the entry list ----------------------------------------------------------

bool ZvGitTable::createBuckets()
{
    bucketCount = 2;
    buckets = (ZvGitEntry **)ZvMem_Alloc(2 * sizeof(ZvGitEntry *));
    if (!buckets) {
        bucketCount = 0;
        return false;
    }
    valid = 1;
    return true;
}

IUnknown *ZvGitTable::find(DWORD threadId)
{
    if (!valid || !bucketCount || !entryCount)
        return nullptr;
    ZvGitEntry **link = &buckets[0];
    for (ZvGitEntry *e = *link; e; link = &e->next, e = e->next) {
        if (e->threadId != threadId)
            continue;
        if (link != &buckets[0]) {   // move to front: a thread that calls again finds itself first
            *link = e->next;
            e->next = buckets[0];
            buckets[0] = e;
        }
        return e->pointer;
    }
    return nullptr;
}

HRESULT ZvGitTable::insert(DWORD threadId, IUnknown *pointer)
{
    if (!valid)
        return E_FAIL;
    if (!bucketCount)
        return E_INVALIDARG;
    for (ZvGitEntry *e = buckets[0]; e; e = e->next)
        if (e->threadId == threadId)
            return ZVERR_THREAD_ENTRY_EXISTS;
    ZvGitEntry *e = (ZvGitEntry *)ZvMem_Alloc(sizeof(ZvGitEntry));
    if (!e)
        return E_OUTOFMEMORY;
    e->threadId = threadId;
    e->pointer = pointer;
    e->next = buckets[0];
    buckets[0] = e;
    entryCount++;
    return S_OK;
}

void ZvGitTable::releaseAll()
{
    if (!buckets)
        return;
    for (DWORD b = 0; b < bucketCount; b++)
        for (ZvGitEntry *e = buckets[b]; e; e = e->next)
            if (e->pointer)
                e->pointer->Release();
}

void ZvGitTable::freeBuckets()
{
    if (buckets) {
        for (DWORD b = 0; b < bucketCount; b++) {
            ZvGitEntry *e = buckets[b];
            while (e) {
                ZvGitEntry *next = e->next;
                ZvMem_Free(e);
                e = next;
            }
        }
        ZvMem_Free(buckets);
    }
    buckets = nullptr;
    valid = 0;
    bucketCount = 0;
    entryCount = 0;
}

// --- CZvThreadInterfaceHolder --------------------------------------------------

void CZvThreadInterfaceHolder::Attach(IUnknown *pointer)
{
    ZeroMemory(&table_, sizeof table_);
    lastThreadId_ = 0;
    lastPointer_ = nullptr;
    if (!pointer)
        return;
    ZvGit_Register(pointer, *iid_, &table_.cookie);
    table_.createBuckets();
    InitializeCriticalSection(&table_.lock);
    // The attaching thread keeps using the pointer it passed in; the global
    // interface table's reference keeps the object alive.
    lastPointer_ = pointer;
    lastThreadId_ = GetCurrentThreadId();
}

IUnknown *CZvThreadInterfaceHolder::GetThreadInterface()
{
    if (!table_.cookie)
        return nullptr;
    DWORD thread = GetCurrentThreadId();
    EnterCriticalSection(&table_.lock);
    IUnknown *result = nullptr;
    if (thread == lastThreadId_) {
        result = lastPointer_;
        LeaveCriticalSection(&table_.lock);
        return result;
    }
    result = table_.find(thread);
    if (!result) {
        // held across the table call, which may itself cross apartments
        if (FAILED(ZvGit_Get(table_.cookie, *iid_, &result)) || !result) {
            LeaveCriticalSection(&table_.lock);
            return nullptr;
        }
        if (FAILED(table_.insert(thread, result))) {
            // the pointer is still handed out, its reference is never released
            LeaveCriticalSection(&table_.lock);
            return result;
        }
    }
    lastThreadId_ = thread;
    lastPointer_ = result;
    LeaveCriticalSection(&table_.lock);
    return result;
}

void CZvThreadInterfaceHolder::Detach()
{
    if (!table_.cookie)
        return;
    table_.releaseAll();
    DWORD cookie = table_.cookie;
    table_.cookie = 0;
    lastThreadId_ = 0;
    lastPointer_ = nullptr;
    ZvGit_Revoke(cookie);
    table_.freeBuckets();
    DeleteCriticalSection(&table_.lock);
}

// --- ZvFioGitPointer -----------------------------------------------------------

HRESULT ZvFioGitPointer::Set(IUnknown *pointer, REFIID iid)
{
    Reset();
    iid_ = &iid;
    DWORD cookie = 0;
    HRESULT hr = ZvGit_Register(pointer, iid, &cookie);
    if (FAILED(hr))
        return hr;
    table_.cookie = cookie;
    table_.createBuckets();
    InitializeCriticalSection(&table_.lock);
    return S_OK;
}

IUnknown *ZvFioGitPointer::Get()
{
    if (!table_.cookie)
        return nullptr;
    DWORD thread = GetCurrentThreadId();
    EnterCriticalSection(&table_.lock);
    IUnknown *result = table_.find(thread);
    if (!result && SUCCEEDED(ZvGit_Get(table_.cookie, *iid_, &result)) && result && table_.valid)
        table_.insert(thread, result);
    LeaveCriticalSection(&table_.lock);
    return result;
}

void ZvFioGitPointer::Reset()
{
    if (!table_.cookie)
        return;
    table_.releaseAll();
    ZvGit_Revoke(table_.cookie);
    table_.cookie = 0;
    table_.freeBuckets();
    DeleteCriticalSection(&table_.lock);
}
