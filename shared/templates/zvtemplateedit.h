// Template editing as the manager answers it.
#pragma once
#include "templates/zvtemplate.h"
#include "zvlist.h"
#include "zvmanager.h"

// What the editor is given and leaves its result in (templ).
struct _FIOEDITTEMPLATE {
    UINT64 parentWindow;
    IZvRenderFileClass *renderClass;
    DWORD flags;                 // bit 0: show even without pages; 0x20: templ is handed over
    tZVLIST *templates;          // further templates to offer, owned by the caller
    PCZVTEMPLATE source;
    PCZVTEMPLATE further;
    LPCWSTR title;
    tagZVTEMPLATExV2 *templ;
};

ZVAPI HRESULT ZvFioMgr_EditTemplate(IZvFileIOMgrForApp *manager, _FIOEDITTEMPLATE *edit);
HRESULT ZvFio_ManagerEditTemplate(IZvFileIOMgrForApp *manager, tZVLIST *pluginList, UINT64 parentWindow,
                                  IZvRenderFileClass *cls, DWORD flags, IStream *templates, PCZVTEMPLATE source,
                                  PCZVTEMPLATE further, LPCWSTR title, PZVTEMPLATE *edited);
