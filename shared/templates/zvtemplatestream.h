// A list of templates as a read-only IStream: a 12-byte header (size 12,
// version 100, count), then the records back to back. The stream reads the
// caller's list in place, so the list must outlive it.
#pragma once
#include "templates/zvtemplate.h"
#include "zvlist.h"

#define ZVTEMPLATE_LIST_HEADER   12u
#define ZVTEMPLATE_LIST_VERSION  100u
#define ZVERR_LIST_STREAM_END    ((HRESULT)0x800A0026)

#ifdef __cplusplus
class CZvListStream : public IStream {
public:
    explicit CZvListStream(tZVLIST *list) : list_(list) {}
    virtual ~CZvListStream() {}

    STDMETHODIMP QueryInterface(REFIID riid, void **out) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP Read(void *buffer, ULONG count, ULONG *read) override;
    STDMETHODIMP Write(const void *, ULONG, ULONG *) override { return E_NOTIMPL; }
    STDMETHODIMP Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER *position) override;
    STDMETHODIMP SetSize(ULARGE_INTEGER) override { return E_NOTIMPL; }
    STDMETHODIMP CopyTo(IStream *, ULARGE_INTEGER, ULARGE_INTEGER *, ULARGE_INTEGER *) override { return E_NOTIMPL; }
    STDMETHODIMP Commit(DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP Revert() override { return E_NOTIMPL; }
    STDMETHODIMP LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP Stat(STATSTG *, DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP Clone(IStream **) override { return E_NOTIMPL; }

protected:
    // The bytes of one list item.
    virtual HRESULT GetItemBytes(const void *item, const BYTE **bytes, DWORD *size) = 0;

private:
    tZVLIST *list_;
    LONG ref_ = 0;
    int index_ = -1;    // -1: the header
    DWORD offset_ = 0;  // inside the current item
};

class CZvTemplateStream : public CZvListStream {
public:
    explicit CZvTemplateStream(tZVLIST *list) : CZvListStream(list) {}

protected:
    HRESULT GetItemBytes(const void *item, const BYTE **bytes, DWORD *size) override;
};
#endif

ZVAPI HRESULT ZvFio_MakeTemplateListIStream(tZVLIST *list, IStream **out);
ZVAPI HRESULT ZvFio_AddTemplatesToListFromIStream(tZVLIST *list, IStream *stream);
// A pointer list for template records, and its release with every record.
ZVAPI HRESULT ZvFio_CreateTemplateList(tZVLIST **list, int slots);
ZVAPI void ZvFio_FreeTemplateList(tZVLIST *list);
