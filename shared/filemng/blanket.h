// Blankets: calling-side objects that stand for plug-in objects living in a
// surrogate process. A blanket implements the plug-in's interface around the
// COM proxy, gives every calling thread a pointer of its own, wraps every
// interface of the family that the object hands out, moves sample and frame
// buffers through shared memory, and answers locally what must not cross
// the process border.
#pragma once
#include "zvbase.h"
#include "zvmemory.h"
#include "zvplugin.h"
#include "filemng/zvgitholder.h"

// What a blanket says about itself. Not remoted: it is answered by the
// blanket, never by the object behind it.
struct IZvOutOfProcObj : public IUnknown {
    // 0, or -1 when the object behind the blanket is out of process.
    virtual HRESULT STDMETHODCALLTYPE IsOutOfProc(LONG *outOfProc) = 0;
};
// {4B0F6A3E-2C1D-4E8A-9F57-6D2E81B3C4A9}
extern const IID IID_IZvOutOfProcObj;

class CZvOutOfProcObj : public IZvOutOfProcObj {
public:
    explicit CZvOutOfProcObj(DWORD flags) : flags_(flags) {}
    virtual ~CZvOutOfProcObj() {}
    STDMETHODIMP IsOutOfProc(LONG *outOfProc) override;

    DWORD Flags() const { return flags_; }
    // The blanket one level up (not counted), null when there is none.
    virtual IUnknown *BlanketOwner() const { return nullptr; }
    // Threads other than the creating one that have a pointer of their own.
    virtual DWORD ThreadEntries() const { return 0; }

protected:
    DWORD flags_; // bit 0: the object is out of process
};

// Wraps *pp, an interface of id *iid, in the blanket of that interface: on
// success *pp is the blanket and the blanket holds the inner pointer. An id
// outside the family leaves *pp as it is with S_OK. A null *pp, or no memory,
// gives E_OUTOFMEMORY (the inner pointer is released in either case).
// parent: the blanket whose QueryInterface made this one (identity of
// IUnknown and of a base interface), or null. owner: the object one level up
// (the manager for class objects). flags: bit 0, out of process.
ZVAPI HRESULT ZvBlanket_Wrap(const IID *iid, void **pp, IUnknown *parent, IUnknown *owner, DWORD flags);

// The blanket behind an interface pointer, or null if it is none.
CZvOutOfProcObj *ZvBlanket_From(IUnknown *object);
