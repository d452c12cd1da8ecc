// Per-thread pointers to one registered object. A proxy is bound to the
// apartment that received it; these holders let any thread of the process
// call the object by giving each thread a pointer of its own, made on first
// use and kept until the holder goes.
#pragma once
#include "zvbase.h"
#include <objidl.h>

// One (thread, pointer) pair of a holder's list. The entry owns one
// reference, which goes back in the apartment it was got in.
struct ZvGitEntry {
    DWORD threadId;
    IUnknown *pointer;
    ZvGitEntry *next;
    DWORD apartment;       // ZvGit_ApartmentTag() of the thread that got it
};

// The list both holders keep: two bucket heads of which only the first is
// used, so in effect one singly linked list with move-to-front.
struct ZvGitTable {
    DWORD cookie;          // global interface table cookie; 0 when empty
    BYTE valid;            // the bucket array exists
    DWORD entryCount;
    DWORD bucketCount;     // 2 once the array exists, 0 if it could not be made
    ZvGitEntry **buckets;
    CRITICAL_SECTION lock;

    // Moves the entry of `threadId` to the front and returns its pointer.
    IUnknown *find(DWORD threadId);
    // Adds an entry at the front: E_FAIL without a table, E_INVALIDARG
    // without buckets, 0x8004E0A9 when the thread has one, E_OUTOFMEMORY.
    HRESULT insert(DWORD threadId, IUnknown *pointer);
    // Releases every entry's pointer, each where its apartment allows
    // (ZvGit_ReleaseInApartments), together with `extra` (may be null).
    void releaseAll(IUnknown *extra = nullptr, DWORD extraApartment = 0);
    bool createBuckets();
    void freeBuckets();
};

#define ZVERR_THREAD_ENTRY_EXISTS ((HRESULT)0x8004E0A9)

// The process's table of registered interfaces. The platform's global
// interface table can't be used for proxies: it marshals them table-strong,
// which takes one reference in the object's process, and its revoke looks
// for the object among this process's own apartments only, so that
// reference is never given back and the other process never ends. Here an
// object is marshalled twice: normally, holding the references that keep
// it alive outside any apartment until the revoke unmarshals and releases
// them, and table-weak, which each thread unmarshals for a pointer of its
// own.
HRESULT ZvGit_Register(IUnknown *object, REFIID iid, DWORD *cookie);
HRESULT ZvGit_Get(DWORD cookie, REFIID iid, IUnknown **out);
void ZvGit_Revoke(DWORD cookie);

// 0 for the multithreaded apartment (also a thread without COM), else the
// id of the thread whose single-threaded apartment the caller is in.
DWORD ZvGit_ApartmentTag();
// Releases pointers got in the apartments `apartments[i]`. A proxy only
// gives its references back from its own apartment: those of this one go
// at once, those of the multithreaded apartment on a thread of it, those of
// a single-threaded apartment whose thread ended at once (its proxies were
// disconnected with it); one of a live single-threaded apartment is left to
// that apartment, which gives its proxies' references back when it ends.
void ZvGit_ReleaseInApartments(IUnknown **pointers, const DWORD *apartments, DWORD count);

// The holder inside every blanket: one interface, a last-used (thread,
// pointer) pair for the fast path, the list for the other threads.
class CZvThreadInterfaceHolder {
public:
    // With `keep`, the holder takes over the caller's reference on `pointer`
    // and gives it back at detach, in the apartment it belongs to.
    CZvThreadInterfaceHolder(REFIID iid, IUnknown *pointer, bool keep = false) : iid_(&iid)
    {
        Attach(pointer, keep);
    }
    ~CZvThreadInterfaceHolder() { Detach(); }
    CZvThreadInterfaceHolder(const CZvThreadInterfaceHolder &) = delete;
    CZvThreadInterfaceHolder &operator=(const CZvThreadInterfaceHolder &) = delete;

    // The pointer for the calling thread, borrowed: no reference is added.
    IUnknown *GetThreadInterface();
    void Detach();

    DWORD Cookie() const { return table_.cookie; }
    DWORD EntryCount() const { return table_.entryCount; }

private:
    void Attach(IUnknown *pointer, bool keep);

    const IID *iid_;
    ZvGitTable table_;
    DWORD lastThreadId_;
    IUnknown *lastPointer_;
    IUnknown *kept_;          // the attaching thread's pointer when kept
    DWORD keptApartment_;
};

// The surrogate table's pointer to a surrogate's control interface: like the
// holder, without the last-used pair.
class ZvFioGitPointer {
public:
    ZvFioGitPointer() { ZeroMemory(&table_, sizeof table_); }
    ~ZvFioGitPointer() { Reset(); }
    ZvFioGitPointer(const ZvFioGitPointer &) = delete;
    ZvFioGitPointer &operator=(const ZvFioGitPointer &) = delete;

    // Registers `pointer` (the caller keeps its own reference).
    HRESULT Set(IUnknown *pointer, REFIID iid);
    // The pointer for the calling thread, borrowed; null when empty.
    IUnknown *Get();
    // Releases every thread's pointer from the calling thread and revokes.
    void Reset();
    bool Empty() const { return table_.cookie == 0; }

private:
    const IID *iid_ = nullptr;
    ZvGitTable table_;
};
