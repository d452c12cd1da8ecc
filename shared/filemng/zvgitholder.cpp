#include "filemng/zvgitholder.h"
#include "zvmemory.h"
#include "zvproxy.h"
#include <new>

#include <process.h>
#include <vector>

// --- registrations ---------------------------------------------------------------

namespace {

struct ZvGitRecord {
    IID iid;
    HGLOBAL strong;   // normal marshal: the references that keep the object alive
    HGLOBAL weak;     // table-weak marshal: what each thread unmarshals
};

// Cookies are indexes + 1 into a list of records that never move while
// registered; the lock covers the list only, never an (un)marshal, which
// may call into another apartment.
CRITICAL_SECTION g_recordLock;
INIT_ONCE g_recordOnce = INIT_ONCE_STATIC_INIT;
std::vector<ZvGitRecord *> *g_records;

BOOL CALLBACK InitRecords(INIT_ONCE *, void *, void **)
{
    InitializeCriticalSection(&g_recordLock);
    g_records = new std::vector<ZvGitRecord *>();
    return TRUE;
}

struct RecordLock {
    RecordLock()
    {
        InitOnceExecuteOnce(&g_recordOnce, InitRecords, NULL, NULL);
        EnterCriticalSection(&g_recordLock);
    }
    ~RecordLock() { LeaveCriticalSection(&g_recordLock); }
};

HRESULT MarshalInto(IUnknown *object, REFIID iid, DWORD flags, HGLOBAL *out)
{
    *out = NULL;
    IStream *stream = nullptr;
    HRESULT hr = CreateStreamOnHGlobal(NULL, FALSE, &stream);
    if (FAILED(hr))
        return hr;
    hr = CoMarshalInterface(stream, iid, object, MSHCTX_INPROC, NULL, flags);
    HGLOBAL h = NULL;
    GetHGlobalFromStream(stream, &h);
    stream->Release();
    if (FAILED(hr)) {
        if (h)
            GlobalFree(h);
        return hr;
    }
    *out = h;
    return S_OK;
}

// A stream of its own over marshalled data, so that threads may read it at once.
HRESULT StreamOver(HGLOBAL data, IStream **stream)
{
    return CreateStreamOnHGlobal(data, FALSE, stream);
}

void DropWeak(HGLOBAL weak)
{
    IStream *stream = nullptr;
    if (SUCCEEDED(StreamOver(weak, &stream))) {
        CoReleaseMarshalData(stream);
        stream->Release();
    }
    GlobalFree(weak);
}

// The normal marshal's references come back through a pointer of this
// apartment, which gives them back from the right place when released.
void DropStrong(HGLOBAL strong, REFIID iid)
{
    IStream *stream = nullptr;
    if (SUCCEEDED(StreamOver(strong, &stream))) {
        IUnknown *object = nullptr;
        if (SUCCEEDED(CoUnmarshalInterface(stream, iid, (void **)&object)) && object) {
            IUnknown *list[1] = {object};
            DWORD here[1] = {ZvGit_ApartmentTag()};
            ZvGit_ReleaseInApartments(list, here, 1);
        } else {
            LARGE_INTEGER zero = {};
            stream->Seek(zero, STREAM_SEEK_SET, NULL);
            CoReleaseMarshalData(stream);
        }
        stream->Release();
    }
    GlobalFree(strong);
}

unsigned __stdcall ReleaseOnMtaThread(void *param)
{
    std::vector<IUnknown *> *pointers = (std::vector<IUnknown *> *)param;
    HRESULT com = CoInitializeEx(NULL, COINIT_MULTITHREADED);
    for (IUnknown *p : *pointers)
        p->Release();
    if (SUCCEEDED(com))
        CoUninitialize();
    return 0;
}

bool ThreadEnded(DWORD threadId)
{
    HANDLE h = OpenThread(SYNCHRONIZE, FALSE, threadId);
    if (!h)
        return true;
    bool ended = WaitForSingleObject(h, 0) == WAIT_OBJECT_0;
    CloseHandle(h);
    return ended;
}

} // namespace

DWORD ZvGit_ApartmentTag()
{
    APTTYPE type;
    APTTYPEQUALIFIER qualifier;
    if (FAILED(CoGetApartmentType(&type, &qualifier)))
        return 0;
    return type == APTTYPE_STA || type == APTTYPE_MAINSTA ? GetCurrentThreadId() : 0;
}

void ZvGit_ReleaseInApartments(IUnknown **pointers, const DWORD *apartments, DWORD count)
{
    const DWORD here = ZvGit_ApartmentTag();
    std::vector<IUnknown *> mta;
    for (DWORD i = 0; i < count; ++i) {
        IUnknown *p = pointers[i];
        if (!p)
            continue;
        if (apartments[i] == here || (apartments[i] != 0 && ThreadEnded(apartments[i])))
            p->Release();
        else if (apartments[i] == 0)
            mta.push_back(p);
    }
    if (mta.empty())
        return;
    HANDLE thread = (HANDLE)_beginthreadex(NULL, 0, ReleaseOnMtaThread, &mta, 0, NULL);
    if (!thread)
        return;
    // a single-threaded apartment keeps its messages flowing meanwhile
    DWORD index = 0;
    if (here)
        CoWaitForMultipleHandles(0, INFINITE, 1, &thread, &index);
    else
        WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
}

HRESULT ZvGit_Register(IUnknown *object, REFIID iid, DWORD *cookie)
{
    *cookie = 0;
    if (!object)
        return E_INVALIDARG;
    // the contract's interfaces need their stubs in this apartment
    ZvProxy_Register();
    ZvGitRecord *record = new (std::nothrow) ZvGitRecord();
    if (!record)
        return E_OUTOFMEMORY;
    record->iid = iid;
    HRESULT hr = MarshalInto(object, iid, MSHLFLAGS_NORMAL, &record->strong);
    if (SUCCEEDED(hr))
        hr = MarshalInto(object, iid, MSHLFLAGS_TABLEWEAK, &record->weak);
    if (SUCCEEDED(hr)) {
        RecordLock lock;
        std::vector<ZvGitRecord *> &records = *g_records;
        size_t at = 0;
        while (at < records.size() && records[at])
            ++at;
        if (at == records.size())
            records.push_back(record);
        else
            records[at] = record;
        *cookie = (DWORD)at + 1;
        return S_OK;
    }
    if (record->strong)
        DropStrong(record->strong, iid);
    delete record;
    return hr;
}

HRESULT ZvGit_Get(DWORD cookie, REFIID iid, IUnknown **out)
{
    *out = nullptr;
    // a thread of a new apartment needs the contract's proxies there first
    ZvProxy_Register();
    HGLOBAL weak = NULL;
    {
        RecordLock lock;
        if (cookie && cookie <= g_records->size() && (*g_records)[cookie - 1])
            weak = (*g_records)[cookie - 1]->weak;
    }
    if (!weak)
        return E_INVALIDARG;
    IStream *stream = nullptr;
    HRESULT hr = StreamOver(weak, &stream);
    if (FAILED(hr))
        return hr;
    hr = CoUnmarshalInterface(stream, iid, (void **)out);
    stream->Release();
    return hr;
}

void ZvGit_Revoke(DWORD cookie)
{
    ZvGitRecord *record = nullptr;
    {
        RecordLock lock;
        if (cookie && cookie <= g_records->size()) {
            record = (*g_records)[cookie - 1];
            (*g_records)[cookie - 1] = nullptr;
        }
    }
    if (!record)
        return;
    DropWeak(record->weak);
    DropStrong(record->strong, record->iid);
    delete record;
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
    e->apartment = ZvGit_ApartmentTag();
    e->next = buckets[0];
    buckets[0] = e;
    entryCount++;
    return S_OK;
}

void ZvGitTable::releaseAll(IUnknown *extra, DWORD extraApartment)
{
    std::vector<IUnknown *> pointers;
    std::vector<DWORD> apartments;
    for (DWORD b = 0; buckets && b < bucketCount; b++)
        for (ZvGitEntry *e = buckets[b]; e; e = e->next)
            if (e->pointer) {
                pointers.push_back(e->pointer);
                apartments.push_back(e->apartment);
            }
    if (extra) {
        pointers.push_back(extra);
        apartments.push_back(extraApartment);
    }
    if (!pointers.empty())
        ZvGit_ReleaseInApartments(pointers.data(), apartments.data(), (DWORD)pointers.size());
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

void CZvThreadInterfaceHolder::Attach(IUnknown *pointer, bool keep)
{
    ZeroMemory(&table_, sizeof table_);
    lastThreadId_ = 0;
    lastPointer_ = nullptr;
    kept_ = nullptr;
    keptApartment_ = 0;
    if (!pointer)
        return;
    if (keep) {
        kept_ = pointer;
        keptApartment_ = ZvGit_ApartmentTag();
    }
    ZvGit_Register(pointer, *iid_, &table_.cookie);
    table_.createBuckets();
    InitializeCriticalSection(&table_.lock);
    // The attaching thread keeps using the pointer it passed in; the
    // registration's references keep the object alive.
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
    if (!table_.cookie) {
        if (kept_)
            table_.releaseAll(kept_, keptApartment_);
        kept_ = nullptr;
        return;
    }
    table_.releaseAll(kept_, keptApartment_);
    kept_ = nullptr;
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
