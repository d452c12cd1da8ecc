// Why a configured plug-in offers nothing: the manager keeps such a DLL as an
// unusable record (or, when the file is missing, as no record at all), so the
// reason is worked out here from the configuration and the DLL itself.
#include "zvfio.h"
#include "zvfio_failures.h"
#include "filemng/fioplugininfo.h"
#include "zvlist.h"
#include "zvpaths.h"
#include <shlwapi.h>
#include <stdio.h>

namespace zvfio {

namespace {

// Reads `size` bytes at `offset` of an open file; false when short.
bool ReadAt(HANDLE file, DWORD offset, void *out, DWORD size)
{
    DWORD got = 0;
    return SetFilePointer(file, (LONG)offset, nullptr, FILE_BEGIN) == offset &&
           ReadFile(file, out, size, &got, nullptr) && got == size;
}

// File offset of a relative virtual address, through the section table.
bool RvaToOffset(HANDLE file, DWORD sections, WORD count, DWORD rva, DWORD *offset)
{
    for (WORD i = 0; i < count; ++i) {
        IMAGE_SECTION_HEADER s;
        if (!ReadAt(file, sections + i * (DWORD)sizeof s, &s, sizeof s))
            return false;
        DWORD span = s.Misc.VirtualSize > s.SizeOfRawData ? s.Misc.VirtualSize : s.SizeOfRawData;
        if (rva >= s.VirtualAddress && rva - s.VirtualAddress < span) {
            *offset = s.PointerToRawData + (rva - s.VirtualAddress);
            return true;
        }
    }
    return false;
}

// Whether the image exports `wanted` by name. Read from the file, so that a
// DLL of the other architecture (one that runs in a surrogate) is looked at
// the same way, and nothing of it runs here.
bool ExportsName(const wchar_t *path, const char *wanted)
{
    HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                              nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    bool found = false;
    IMAGE_DOS_HEADER dos;
    DWORD sig = 0;
    IMAGE_FILE_HEADER fh;
    WORD magic = 0;
    if (ReadAt(file, 0, &dos, sizeof dos) && dos.e_magic == IMAGE_DOS_SIGNATURE &&
        ReadAt(file, (DWORD)dos.e_lfanew, &sig, 4) && sig == IMAGE_NT_SIGNATURE &&
        ReadAt(file, (DWORD)dos.e_lfanew + 4, &fh, sizeof fh) &&
        ReadAt(file, (DWORD)dos.e_lfanew + 4 + sizeof fh, &magic, 2)) {
        const DWORD optional = (DWORD)dos.e_lfanew + 4 + sizeof fh;
        // the data directories follow the fixed part of the optional header
        const DWORD dirs = optional + (magic == IMAGE_NT_OPTIONAL_HDR64_MAGIC ? 112 : 96);
        const DWORD sections = optional + fh.SizeOfOptionalHeader;
        IMAGE_DATA_DIRECTORY exp;
        IMAGE_EXPORT_DIRECTORY ed;
        DWORD at = 0;
        if (ReadAt(file, dirs, &exp, sizeof exp) && exp.VirtualAddress &&
            RvaToOffset(file, sections, fh.NumberOfSections, exp.VirtualAddress, &at) &&
            ReadAt(file, at, &ed, sizeof ed) && ed.NumberOfNames < 65536) {
            DWORD names = 0;
            const size_t len = strlen(wanted) + 1;
            char name[64];
            RvaToOffset(file, sections, fh.NumberOfSections, ed.AddressOfNames, &names);
            for (DWORD i = 0; names && i < ed.NumberOfNames && !found; ++i) {
                DWORD rva = 0, off = 0;
                found = ReadAt(file, names + 4 * i, &rva, 4) &&
                        RvaToOffset(file, sections, fh.NumberOfSections, rva, &off) &&
                        ReadAt(file, off, name, (DWORD)len) && memcmp(name, wanted, len) == 0;
            }
        }
    }
    CloseHandle(file);
    return found;
}

} // namespace

std::string PluginFailureReason(const wchar_t *path)
{
    if (GetFileAttributesW(path) == INVALID_FILE_ATTRIBUTES)
        return "missing DLL";
    WORD machine = 0;
    if (FAILED(ZvGetFileExecutableInfo(path, &machine, nullptr)))
        return "not a DLL";
    if (!ExportsName(path, "DllGetClassObject"))
        return "no entry point (DllGetClassObject)";
    return "bad class list (the DLL listed no usable class)";
}

std::vector<PluginFailure> ConfiguredPluginFailures(tZVLIST *list)
{
    std::vector<PluginFailure> out;
    // DLLs that have a record but no usable class
    for (int i = 0; list && i < list->count; ++i) {
        const ZVFIO_PLUGININFO *r = (const ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        if (!r || !(r->dwRecordFlags & ZVFIO_RF_UNUSABLE) || (r->dwRecordFlags & ZVFIO_RF_EXCLUDED) ||
            FAILED(r->hrSurrogate) || !(r->dwRecordFlags & ZVFIO_RF_FIRST))
            continue;
        char flags[16];
        snprintf(flags, sizeof flags, "0x%03lX", (unsigned long)r->dwRecordFlags);
        out.push_back({r->szPath, std::string("unusable, record flags ") + flags, PluginFailureReason(r->szPath)});
    }
    // DLLs that a configuration beside this program names but that are not there
    wchar_t folder[MAX_PATH], pattern[MAX_PATH];
    if (!GetModuleFileNameW(nullptr, folder, MAX_PATH) || !PathRemoveFileSpecW(folder))
        return out;
    _snwprintf(pattern, MAX_PATH, L"%s\\*.Fio2007-Config", folder);
    pattern[MAX_PATH - 1] = 0;
    WIN32_FIND_DATAW fd;
    HANDLE find = FindFirstFileW(pattern, &fd);
    if (find == INVALID_HANDLE_VALUE)
        return out;
    std::vector<wchar_t> keys(8320);
    do {
        wchar_t config[MAX_PATH];
        _snwprintf(config, MAX_PATH, L"%s\\%s", folder, fd.cFileName);
        config[MAX_PATH - 1] = 0;
        DWORD n = GetPrivateProfileStringW(L"FileIO Plug-Ins", nullptr, L"", keys.data(), (DWORD)keys.size(), config);
        for (const wchar_t *key = keys.data(); key < keys.data() + n && *key; key += wcslen(key) + 1) {
            wchar_t rel[MAX_PATH], dll[MAX_PATH];
            GetPrivateProfileStringW(L"FileIO Plug-Ins", key, L"", rel, MAX_PATH, config);
            if (!rel[0] || !PathCombineW(dll, folder, rel))
                continue;
            if (!*PathFindExtensionW(dll) && wcslen(dll) + 4 < MAX_PATH)
                wcscat(dll, L".dll");
            if (GetFileAttributesW(dll) == INVALID_FILE_ATTRIBUTES)
                out.push_back({dll, "no record (named by " + Utf8(fd.cFileName) + ")", "missing DLL"});
        }
    } while (FindNextFileW(find, &fd));
    FindClose(find);
    return out;
}

} // namespace zvfio
