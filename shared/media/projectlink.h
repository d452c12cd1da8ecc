// Project link: the way back from a rendered file to the project that made
// it (path, command line, renderer, template, creator, application data),
// held by CZvLinkProjectInfo and stored as a set of chunks in the media file
// or its sidecar.
#pragma once
#include "zvbase.h"
#include <objidl.h>

#define ZVERR_LINK_INVALID   ((HRESULT)0x8004E05D)
#define ZVERR_LINK_VERSION   ((HRESULT)0x8004E01C)
#define ZVERR_LINK_STREAM    ((HRESULT)0x8004E038)
#define ZVERR_DUPLICATE_ITEM ((HRESULT)0x8004E0A9)

enum ZVLINK_FLAGS {
    ZVLINK_PROJECTPATH = 0x1,
    ZVLINK_COMMANDLINE = 0x2,
    ZVLINK_RENDERERGUID = 0x4,
    ZVLINK_TEMPLATENAME = 0x8,
    ZVLINK_TEMPLATEDATA = 0x10,
    ZVLINK_APPTEMPLATEDATA = 0x20,
    ZVLINK_CREATORAPPINFO = 0x40,
    ZVLINK_PROJECTDATA = 0x80,
    ZVLINK_CREATORWINDOWCLASS = 0x100,
};

// A renderer's SetMeta takes a link under this type: the stream holds the
// link's chunks as a file would (ProjectLink_SaveToStream).
#define ZVMETA_PROJECTLINK_STREAM 0x80000000u

// Same slot layout as IZvReadProjectLinkMeta; a source that has no Ex is
// asked through the plain one.
extern "C" const IID IID_IZvReadProjectLinkMetaEx;

struct tagZVLINKBLOCK {
    void *data;
    DWORD size; // bytes; a string's with its terminator
};

#define ZVLINK_FIELD(Name, Type, Flag)                                                                              \
    HRESULT Set##Name##ToBuffer(void *buffer, DWORD size) { return SetToBuffer(Flag, buffer, size); }               \
    Type *Alloc##Name(DWORD size) { return (Type *)AllocField(Flag, size); }                                        \
    Type *Get##Name() const { return (Type *)Block(Flag)->data; }                                                   \
    Type **Get##Name##Ptr() { return (Type **)&Block(Flag)->data; }                                                 \
    DWORD Get##Name##Size() const { return Block(Flag)->size; }                                                     \
    DWORD *Get##Name##SizePtr() { return &Block(Flag)->size; }                                                      \
    HRESULT Write##Name##ToStream(IStream *stream) const { return WriteToStream(Flag, stream); }                    \
    void _Free##Name() { FreeField(Flag); }
#define ZVLINK_STRING(Name, Flag)                                                                                   \
    ZVLINK_FIELD(Name, WCHAR, Flag)                                                                                 \
    HRESULT Set##Name(const WCHAR *text) { return SetString(Flag, text); }                                          \
    int Get##Name(WCHAR *buffer, int capacity) const { return GetString(Flag, buffer, capacity); }
#define ZVLINK_DATA(Name, Flag)                                                                                     \
    ZVLINK_FIELD(Name, BYTE, Flag)                                                                                  \
    HRESULT Set##Name(const void *data, DWORD size) { return SetBlock(Flag, data, size); }

class CZvLinkProjectInfo {
public:
    CZvLinkProjectInfo() : m_reserved(0) { Init(); }
    ~CZvLinkProjectInfo() {} // the owner calls FreeMemory

    void Init();
    void FreeMemory();

    ZVLINK_STRING(ProjectPath, ZVLINK_PROJECTPATH)
    ZVLINK_STRING(CommandLine, ZVLINK_COMMANDLINE)
    ZVLINK_STRING(TemplateName, ZVLINK_TEMPLATENAME)
    ZVLINK_STRING(CreatorAppInfo, ZVLINK_CREATORAPPINFO)
    ZVLINK_STRING(CreatorAppWindowClassName, ZVLINK_CREATORWINDOWCLASS)
    ZVLINK_DATA(TemplateData, ZVLINK_TEMPLATEDATA)
    ZVLINK_DATA(AppTemplateData, ZVLINK_APPTEMPLATEDATA)
    ZVLINK_DATA(ProjectData, ZVLINK_PROJECTDATA)

    void SetRendererGuid(const GUID &guid) { m_rendererGuid = guid, m_flags |= ZVLINK_RENDERERGUID; }
    GUID GetRendererGuid() const { return m_rendererGuid; }
    void SetVersion(DWORD version) { m_version = version; }
    DWORD GetVersion() const { return m_version; }
    DWORD GetFlags() const { return m_flags; }

    // One chunk of the spel block under a caller's id.
    HRESULT SetProjectData(DWORD id, const void *data, DWORD size);
    HRESULT GetProjectData(DWORD id, void *buffer, DWORD *size) const;

    HRESULT Validate() const;
    HRESULT ValidateProjectData() const;
    HRESULT ValidateProjectLink() const;

    // By flag, for the loaders and writers.
    tagZVLINKBLOCK *Block(DWORD flag) const;
    void *AllocField(DWORD flag, DWORD size);
    void FreeField(DWORD flag);
    void MarkSet(DWORD flag) { m_flags |= flag; }

private:
    HRESULT SetString(DWORD flag, const WCHAR *text);
    HRESULT SetBlock(DWORD flag, const void *data, DWORD size);
    HRESULT SetToBuffer(DWORD flag, void *buffer, DWORD size);
    int GetString(DWORD flag, WCHAR *buffer, int capacity) const;
    HRESULT WriteToStream(DWORD flag, IStream *stream) const;

    DWORD m_flags;
    DWORD m_reserved;
    DWORD m_version;
    tagZVLINKBLOCK m_projectPath;
    tagZVLINKBLOCK m_commandLine;
    GUID m_rendererGuid;
    tagZVLINKBLOCK m_templateName;
    tagZVLINKBLOCK m_templateData;
    tagZVLINKBLOCK m_appTemplateData;
    tagZVLINKBLOCK m_creatorAppInfo;
    tagZVLINKBLOCK m_creatorWindowClass;
    tagZVLINKBLOCK m_projectData;
};

#undef ZVLINK_FIELD
#undef ZVLINK_STRING
#undef ZVLINK_DATA

ZVAPI HRESULT ProjectLinkRiff_LoadInfo(HANDLE file, CZvLinkProjectInfo *info, BOOL *found);
ZVAPI HRESULT ProjectLinkRiff64_LoadInfo(HANDLE file, CZvLinkProjectInfo *info, BOOL *found);
ZVAPI HRESULT ProjectLinkRiff_openAndWriteInfo(const WCHAR *path, IUnknown *meta, BOOL useSidecar);
ZVAPI HRESULT ProjectLinkRiff64_openAndWriteInfo(const WCHAR *path, IUnknown *meta);
ZVAPI HRESULT ProjectLinkReadMeta_LoadInfo(IUnknown *meta, CZvLinkProjectInfo *info, BOOL *found);
// Writes a filled link into an open RIFF (Wave64) file: the old link's
// chunks go first, the version chunk comes last.
ZVAPI HRESULT ProjectLinkRiff_WriteInfo(HANDLE file, const CZvLinkProjectInfo *info);
ZVAPI HRESULT ProjectLinkRiff64_WriteInfo(HANDLE file, const CZvLinkProjectInfo *info);
// The link's chunks as a RIFF file holds them, in write order, and back.
ZVAPI HRESULT ProjectLink_SaveToStream(const CZvLinkProjectInfo *info, IStream *stream);
ZVAPI HRESULT ProjectLink_LoadFromMemory(const void *data, DWORD size, CZvLinkProjectInfo *info, BOOL *found);
