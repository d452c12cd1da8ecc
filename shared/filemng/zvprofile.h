// One section of one .ini file, through the platform's private profile
// functions. The cache and the metric file of the manager are kept this way.
#pragma once
#include "zvbase.h"
#include "zvmemory.h"

class CZvProfileLike : public ZvGlobalObject {
public:
    virtual ~CZvProfileLike() {}
    // A null default reads as "missing": the result is then false and the
    // buffer empty.
    virtual BOOL GetString(const WCHAR *key, const WCHAR *def, WCHAR *buffer, DWORD size) = 0;
    virtual int GetInt(const WCHAR *key, int def) = 0;
    // Class ids among the keys of the section (null key) or in one key's
    // value; the count found, at most `maximum`.
    virtual int GetClassIds(const WCHAR *key, GUID *ids, int maximum) = 0;
    virtual BOOL SetString(const WCHAR *key, const WCHAR *value) = 0;
    virtual BOOL SetInt(const WCHAR *key, int value) = 0;
    virtual BOOL SetClassId(const WCHAR *key, const GUID &id, const WCHAR *name) = 0;
    virtual BOOL ClearSection() = 0;
    virtual BOOL DeleteFile() = 0;
    virtual BOOL FileExists() = 0;
};

class CZvProfile : public CZvProfileLike {
public:
    // folder and base name; the extension "ini" is added
    CZvProfile(const WCHAR *folder, const WCHAR *baseName);
    // a whole file name, used as it stands
    explicit CZvProfile(const WCHAR *fileName);
    void SetSection(const WCHAR *section);
    const WCHAR *Path() const { return m_path; }
    const WCHAR *Section() const { return m_section; }
    // Writes cached changes of the platform through to the file.
    void Flush();

    BOOL GetString(const WCHAR *key, const WCHAR *def, WCHAR *buffer, DWORD size) override;
    int GetInt(const WCHAR *key, int def) override;
    int GetClassIds(const WCHAR *key, GUID *ids, int maximum) override;
    BOOL SetString(const WCHAR *key, const WCHAR *value) override;
    BOOL SetInt(const WCHAR *key, int value) override;
    BOOL SetClassId(const WCHAR *key, const GUID &id, const WCHAR *name) override;
    BOOL ClearSection() override;
    BOOL DeleteFile() override;
    BOOL FileExists() override;

private:
    WCHAR m_path[MAX_PATH];
    WCHAR m_section[130];
};

// "{xxxxxxxx-...}" of a class id, 39 characters with the terminator.
void ZvFioGuidText(const GUID &id, WCHAR text[40]);
