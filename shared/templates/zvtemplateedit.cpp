// The manager's template editing: routed to the surrogate where the
// renderer runs, else laid into an edit record for the editor. The editor's
// pages are not part of this build: a class without pages gives S_FALSE.
#include "templates/zvtemplateedit.h"
#include "templates/zvtemplatestream.h"
#include "filemng/surrogatetable.h"
#include "zvsurrogate.h"
#include <stdlib.h>

HRESULT ZvFioMgr_EditTemplate(IZvFileIOMgrForApp *, _FIOEDITTEMPLATE *edit)
{
    if (!edit)
        return E_POINTER;
    LONG audioPages = 0, videoPages = 0;
    if (edit->renderClass) {
        DWORD flags = 0;
        if (FAILED(edit->renderClass->GetEditPageCounts(&audioPages, &videoPages, &flags)))
            audioPages = videoPages = 0;
        if (!(flags & 1))
            videoPages = 0;
    }
    if (audioPages + videoPages < 1 && !(edit->flags & 1))
        return S_FALSE;
    // the dialog that would show the pages isn't part of this system's build
    return E_NOTIMPL;
}

static HRESULT EditRouted(ZVFIO_PLUGININFO *record, UINT64 parentWindow, IZvRenderFileClass *cls, DWORD flags,
                          IStream *templates, PCZVTEMPLATE source, LPCWSTR title, PZVTEMPLATE *edited)
{
    ZVFIO_SURROGATESLOT *slot = ZvFioSurrogateTable_FindSlot(record->Surrogate);
    IZvFileIOManagerSurrogate *surrogate = slot ? ZvFioSurrogateSlot_Get(slot) : NULL;
    if (!surrogate)
        return E_UNEXPECTED;
    BYTE_BLOB *blob = NULL;
    HRESULT hr = surrogate->EditTemplate(parentWindow, cls, flags, templates, source ? source->dwSize : 0,
                                         (const BYTE *)source, title, &blob);
    if (blob) {
        if (SUCCEEDED(hr) && blob->clSize >= ZVTEMPLATE_HEADER_SIZE) {
            *edited = (tagZVTEMPLATExV2 *)calloc(1, blob->clSize);
            if (*edited)
                memcpy(*edited, blob->abData, blob->clSize);
            else
                hr = E_OUTOFMEMORY;
        }
        CoTaskMemFree(blob);
    }
    return hr;
}

HRESULT ZvFio_ManagerEditTemplate(IZvFileIOMgrForApp *manager, tZVLIST *pluginList, UINT64 parentWindow,
                                  IZvRenderFileClass *cls, DWORD flags, IStream *templates, PCZVTEMPLATE source,
                                  PCZVTEMPLATE further, LPCWSTR title, PZVTEMPLATE *edited)
{
    if (!edited)
        return E_POINTER;
    *edited = NULL;
    DWORD id = (DWORD)-1;
    if (cls)
        cls->GetClassId(&id);
    for (int i = 0; cls && i < ZvList_GetCount(pluginList); i++) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(pluginList, i);
        if (r && r->nRendererIndex == (LONG)id && (r->dwRecordFlags & ZVFIO_RF_SURROGATE))
            return EditRouted(r, parentWindow, cls, flags, templates, source, title, edited);
    }
    _FIOEDITTEMPLATE edit = {};
    edit.parentWindow = parentWindow;
    edit.renderClass = cls;
    edit.flags = flags;
    edit.source = source;
    edit.further = further;
    edit.title = title;
    edit.templ = (tagZVTEMPLATExV2 *)source;
    HRESULT hr = ZvFio_CreateTemplateList(&edit.templates, 4);
    if (SUCCEEDED(hr) && templates)
        ZvFio_AddTemplatesToListFromIStream(edit.templates, templates);
    if (SUCCEEDED(hr))
        hr = ZvFioMgr_EditTemplate(manager, &edit);
    if (hr == S_OK && edit.templ == source)
        hr = S_FALSE;
    else if (SUCCEEDED(hr) && hr != S_FALSE && edit.templ)
        *edited = (edit.flags & 0x20) ? edit.templ : ZvFio_CopyTemplate(edit.templ);
    ZvFio_FreeTemplateList(edit.templates);
    return hr;
}
