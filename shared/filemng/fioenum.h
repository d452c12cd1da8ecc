// The reader, renderer and plug-in enumerators over the manager's list.
#pragma once
#include "filemng/filemng.h"

class CZvFileIOTypeEnum : public IZvFileIOTypeEnum, public ZvGlobalObject {
public:
    // renderers: the renderer fields of the records, else the reader fields
    explicit CZvFileIOTypeEnum(BOOL renderers);

    STDMETHODIMP QueryInterface(REFIID riid, void **out) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP Next(ULONG count, IUnknown **classes, ULONG *fetched) override;
    STDMETHODIMP Skip(ULONG count) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Reserved6() override;
    STDMETHODIMP Reserved7() override;
    STDMETHODIMP GetCount(LONG *count) override;

    virtual ~CZvFileIOTypeEnum();
    // Builds the list from the plug-in list, filtered by class ids, ranked.
    HRESULT Build(CZvFileIOManager *manager, DWORD filterFlags, LONG idCount, const GUID *ids, tZVLIST *plugins);
    tZVLIST *List() const { return m_pList; }
    BOOL IsRenderers() const { return m_bRenderers; }

private:
    tZVLIST *m_pList;
    CZvFileIOManager *m_pManager;
    LONG m_nPosition;
    volatile LONG m_cRef;
    BOOL m_bRenderers;
};

class CZvFIOPluginEnum : public IZvFIOPluginEnum, public ZvGlobalObject {
public:
    CZvFIOPluginEnum(tZVLIST *list, CZvFileIOManager *manager);

    STDMETHODIMP QueryInterface(REFIID riid, void **out) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP Next(ULONG count, ZVFIO_PLUGINDESC *descs, ULONG *fetched) override;
    STDMETHODIMP Skip(ULONG count) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Reserved6() override;
    STDMETHODIMP GetInfo(REFGUID pluginClassId, ZVFIO_PLUGINDESC *desc) override;
    STDMETHODIMP Reserved8() override;
    STDMETHODIMP Reserved9() override;
    virtual ~CZvFIOPluginEnum() {}

private:
    tZVLIST *m_pList;
    LONG m_nPosition;
    volatile LONG m_cRef;
    CZvFileIOManager *m_pManager;
};
