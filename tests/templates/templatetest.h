// Helpers of the template tests: records built the way template_vectors.py
// builds them, an old-form stream writer and a renderer class stand-in.
#pragma once
#include <gtest/gtest.h>
#include <windows.h>
#include <string>
#include <vector>
#include "testutil.h"
#include "templates/zvtemplate.h"
#include "templates/zvtemplatestream.h"

namespace templatetest {

typedef std::vector<unsigned char> Bytes;

// MakeTemplate, then the fixed pattern of template_vectors.py in the hashed
// head and the data.
tagZVTEMPLATExV2 *MakeVectorRecord(DWORD dataSize, const wchar_t *name, const wchar_t *notes);
Bytes RecordBytes(const tagZVTEMPLATExV2 *t);

// Old-form stream pieces.
struct V1Spec {
    std::wstring name, notes;
    bool audio = true;
    WAVEFORMATEXTENSIBLE wfx = {};
    DWORD audioStreams = 1;
    Bytes encoded;
    Bytes audioData;
    bool video = false;
    Bytes format1, format2, videoData;
};
Bytes WriteV1(const V1Spec &spec);
IStream *StreamOf(const Bytes &bytes);
// ZvFio_LoadTemplateData from a stream of the bytes.
HRESULT LoadStream(const Bytes &bytes, tagZVTEMPLATExV2 **t, DWORD version = ZVTEMPLATE_VERSION_V2,
                   IZvRenderFileClass *cls = nullptr);

// Renderer class with one GUID that answers GetTemplateInfo(23) with a
// chosen value and optionally transforms lifted templates.
class FakeRenderer : public IZvRenderFileClass {
public:
    GUID guid = {0x1234ABCD, 0x1111, 0x2222, {1, 2, 3, 4, 5, 6, 7, 8}};
    DWORD writable = 1;
    HRESULT transformResult = E_NOTIMPL;
    int transformCalls = 0;
    IZvFileIOManager *manager = nullptr;          // not counted
    std::vector<tagZVTEMPLATExV2 *> presets;      // not owned
    const wchar_t *shortName = L"Fake Renderer";

    STDMETHODIMP QueryInterface(REFIID, void **out) override { *out = nullptr; return E_NOINTERFACE; }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP SetClassId(DWORD) override { return S_OK; }
    STDMETHODIMP GetClassId(DWORD *id) override { *id = 1; return S_OK; }
    STDMETHODIMP SetManager(IZvFileIOManager *) override { return S_OK; }
    STDMETHODIMP GetManager(IZvFileIOManager **m) override
    {
        *m = manager;
        if (!manager)
            return E_FAIL;
        manager->AddRef();
        return S_OK;
    }
    STDMETHODIMP GetClassGuid(GUID *g) override { *g = guid; return S_OK; }
    STDMETHODIMP GetStreamTypes(DWORD *m) override { *m = 1; return S_OK; }
    STDMETHODIMP GetClassFlags(DWORD *f) override { *f = 0; return S_OK; }
    STDMETHODIMP GetReadClass(IZvReadFileClass **r) override { *r = nullptr; return E_NOINTERFACE; }
    STDMETHODIMP GetInfoText(const ZVFIO_FILECLASS_INFO_TEXT *ids, LONG count, BSTR *texts) override
    {
        for (LONG i = 0; i < count; i++)
            texts[i] = ids[i] == ZVFIO_INFOTEXT_SHORTNAME ? SysAllocString(shortName) : nullptr;
        return S_OK;
    }
    STDMETHODIMP GetInfoValue(DWORD, BYTE *, DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP CreateFile(IZvRenderFile **, LPCWSTR, PCZVTEMPLATE, DWORD, DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP GetTemplateCount(LONG *c) override { *c = (LONG)presets.size(); return S_OK; }
    STDMETHODIMP GetTemplate(PZVTEMPLATE *t, LONG i) override
    {
        *t = i >= 0 && i < (LONG)presets.size() ? ZvFio_CopyTemplate(presets[i]) : nullptr;
        return *t ? S_OK : E_INVALIDARG;
    }
    STDMETHODIMP FindTemplate(REFGUID, PZVTEMPLATE *) override { return E_NOTIMPL; }
    STDMETHODIMP CheckTemplate(PCZVTEMPLATE) override { return S_OK; }
    STDMETHODIMP TransformTemplate(PZVTEMPLATE *result, PCZVTEMPLATE source, DWORD mode) override;
    STDMETHODIMP MakeEditTemplate(PZVTEMPLATE *, PCZVTEMPLATE, PCZVTEMPLATE, DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP GetTemplateInfo(PCZVTEMPLATE, BYTE *buffer, DWORD size, DWORD id) override
    {
        if (id != 23 || size < 4)
            return E_NOTIMPL;
        memcpy(buffer, &writable, 4);
        return S_OK;
    }
    STDMETHODIMP GetTemplateInfoText(PCZVTEMPLATE, WCHAR *, DWORD, DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP GetEditPageCounts(LONG *, LONG *, DWORD *) override { return E_NOTIMPL; }
    STDMETHODIMP CreateEditPage(DWORD, IUnknown **) override { return E_NOTIMPL; }
    STDMETHODIMP PrepareEdit(ZVFIO_EDITPREPARE *) override { return E_NOTIMPL; }
    STDMETHODIMP EndEdit(HRESULT) override { return S_OK; }
    STDMETHODIMP GetDefaultTemplateIndex(LONG *i) override { *i = -1; return S_OK; }
    STDMETHODIMP GetPluginStatus(HRESULT *s, BSTR *) override { *s = S_OK; return S_OK; }
};

} // namespace templatetest
