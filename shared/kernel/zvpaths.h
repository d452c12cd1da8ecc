// Paths and folders: small helpers on wide paths of at most MAX_PATH
// characters, the folders the system uses, and temporary files.
#pragma once
#include "zvbase.h"

// name parts
ZVAPI const char *ZvGetFileNamePtrA(const char *path);
ZVAPI const wchar_t *ZvGetFileNamePtrW(const wchar_t *path);
// Pointer to the extension's dot within the file name, or to the end of the
// string when the name has none.
ZVAPI const char *ZvGetFileNameExtensionPtrA(const char *path);
ZVAPI const wchar_t *ZvGetFileNameExtensionPtrW(const wchar_t *path);

// In-place edits; `length` is the buffer's size in characters. An extension
// may be given as "*.ext", ".ext" or "ext". They return S_OK, or
// ZVERR_BUFFER_TOO_SMALL with the path unchanged.
ZVAPI HRESULT ZvReplaceExtensionOnPathName(wchar_t *path, int length, const wchar_t *ext);
ZVAPI HRESULT ZvReplaceExtensionOnPathNameEx(wchar_t *path, int length, const wchar_t *ext, BOOL onlyIfMissing);
ZVAPI HRESULT ZvAddExtensionToPathName(wchar_t *path, int length, const wchar_t *ext);
ZVAPI HRESULT ZvAddSlashToPathName(wchar_t *path, int length);
ZVAPI void ZvRemoveSlashFromPathNameEnd(wchar_t *path);
ZVAPI HRESULT ZvAppendToPathName(wchar_t *path, int length, const wchar_t *more);

// Folder of a file path with its trailing slash; root ("C:\" or
// "\\server\share\"); the parent folder, in place (FALSE at the root).
ZVAPI HRESULT ZvGetPathNameFromFilePath(const wchar_t *path, wchar_t *out, int length);
ZVAPI HRESULT ZvGetRootPathFromFilePath(const wchar_t *path, wchar_t *out, int length);
ZVAPI BOOL ZvDirectoryUpOneLevel(wchar_t *path);
ZVAPI HRESULT ZvGetFileNameWithoutPathOrExtension(const wchar_t *path, wchar_t *out, int length);

// 1 when the name is valid. With `repair`, invalid characters become '_' and
// the result is 0 if any was replaced.
ZVAPI int ZvValidateFileName(wchar_t *name, BOOL repair);
ZVAPI BOOL ZvIsMatchWildCard(const wchar_t *pattern, const wchar_t *name);

ZVAPI HRESULT ZvGetLongPathName(const wchar_t *path, wchar_t *out, int length);
ZVAPI HRESULT ZvGetFullPathName(const wchar_t *path, wchar_t *out, int length);
// Full, then long form of a path, in place.
ZVAPI HRESULT ZvQualifyPath(wchar_t *path, int length);
ZVAPI HRESULT ZvGetTempPath(wchar_t *out, int length);
// Folder (with trailing slash) or full file name of a module, long form.
ZVAPI HRESULT ZvGetModulePath(HMODULE module, wchar_t *out, int length);
ZVAPI HRESULT ZvGetModuleFileName(HMODULE module, wchar_t *out, int length);

// Executable kind from the file's headers. ZVERR_FILE_OPEN if it can't be
// read, ZVERR_MALFORMED if it isn't a PE image.
ZVAPI HRESULT ZvGetFileExecutableInfo(const wchar_t *path, WORD *machine, WORD *subsystem);
ZVAPI BOOL ZvIsFileExecutable(const wchar_t *path);

// Relative paths: pointer behind `base` when `path` lies below it, else null.
ZVAPI const wchar_t *ZvGetFileNamePtrRelative(const wchar_t *path, const wchar_t *base);
ZVAPI HRESULT ZvGetBasePathRelative(const wchar_t *path, const wchar_t *base, wchar_t *out, int length);
ZVAPI HRESULT ZvReplaceBasePathRelative(const wchar_t *path, const wchar_t *oldBase, const wchar_t *newBase,
                                        wchar_t *out, int length);

// tests; directories and offline files don't count as files
ZVAPI BOOL ZvDoesFileExist(const wchar_t *path);
ZVAPI BOOL ZvIsFileWritable(const wchar_t *path);
ZVAPI LONGLONG ZvGetFileSizeByName(const wchar_t *path);
ZVAPI BOOL ZvIsDirectoryWritable(const wchar_t *folder);
ZVAPI BOOL ZvIsDirectoryEmpty(const wchar_t *folder);
ZVAPI BOOL ZvIsDirectoryEmptyRecursive(const wchar_t *folder);
ZVAPI LONGLONG ZvGetDirectorySize(const wchar_t *folder);
ZVAPI LONGLONG ZvGetDiskFreeSpace(const wchar_t *path);
ZVAPI LONGLONG ZvGetDiskTotalSpace(const wchar_t *path);
// The free space of the disk holding `path` as size text ("1.50 GB");
// the characters stored, 0 when the disk can't be asked.
ZVAPI int ZvFormatDiskFreeSpace(const wchar_t *path, wchar_t *buffer, int length);

// Creates the folders of `path` one at a time from its root; the result
// counts those made. A path with ".." is refused.
ZVAPI int ZvCreateDirectory(const wchar_t *path, void *unused);
// Deletes the files of `folder` that match `pattern`; the count deleted.
ZVAPI int ZvDeleteFiles(const wchar_t *folder, const wchar_t *pattern);
ZVAPI HRESULT ZvDeleteDirectoryTree(const wchar_t *folder);
// Moves a folder with all it holds to `to`, which must not exist; across
// disks by copy and delete. ZvCanMoveFolder tells without moving whether
// that can work: S_OK, or the reason the move would fail.
ZVAPI HRESULT ZvMoveFolder(const wchar_t *from, const wchar_t *to);
ZVAPI HRESULT ZvCanMoveFolder(const wchar_t *from, const wchar_t *to);
ZVAPI HRESULT ZvGetUniqueSubFolder(const wchar_t *folder, const wchar_t *prefix, wchar_t *out, int length);

ZVAPI HRESULT ZvCreateTempFileAndName(const wchar_t *prefix, const wchar_t *suffix, wchar_t *buffer, int length);
ZVAPI HRESULT ZvCreateTempFileAndNameEx(const wchar_t *folder, const wchar_t *prefix, const wchar_t *suffix,
                                        const wchar_t *numberFormat, wchar_t *buffer, int length);

// A path shortened for display by replacing whole folders in its middle
// with "...", keeping the root and the file name ("C:\...\b\name.wav"); when
// the name alone is too long, its end is cut and ends with "...". The limit
// is in characters, or for the Ex forms in pixels of text drawn in the DC's
// font or the control's font and client width. S_OK, ZVERR_BUFFER_TOO_SMALL
// when the result does not fit `length`, E_POINTER/E_INVALIDARG for bad
// arguments.
ZVAPI HRESULT ZvCalcPathEllipsis(const wchar_t *path, wchar_t *out, int length, int maxChars);
ZVAPI HRESULT ZvCalcPathEllipsisEx(HDC dc, const wchar_t *path, wchar_t *out, int length, int maxWidth);
ZVAPI HRESULT ZvCalcPathEllipsisExCtl(HWND control, const wchar_t *path, wchar_t *out, int length);
// The file name of a path for display, without its folder; a name beyond
// the limit keeps its start and its extension around "..." ("A long ta....wav").
// Limits as for ZvCalcPathEllipsis.
ZVAPI HRESULT ZvFilenameFormat(const wchar_t *path, wchar_t *out, int length, int maxChars);
ZVAPI HRESULT ZvFilenameFormatForWidth(HDC dc, const wchar_t *path, wchar_t *out, int length, int maxWidth);
ZVAPI HRESULT ZvFilenameFormatForCtl(HWND control, const wchar_t *path, wchar_t *out, int length);

ZVAPI int ZvFilenameLogicalCompare(const wchar_t *a, const wchar_t *b);

// Last write time of a file as DOS date (high word) and time (low word),
// local or UTC; 0 when there is no such file.
ZVAPI DWORD ZvDosGetDateTime(const wchar_t *path);
ZVAPI DWORD ZvDosGetDateTimeUTC(const wchar_t *path);
ZVAPI HRESULT ZvGetDateTime(const wchar_t *path, FILETIME *lastWrite);

// Reads that fail with ZVERR_FILE_READ unless the whole length came.
ZVAPI HRESULT ZvReadFile(HANDLE file, void *buffer, DWORD size);
ZVAPI HRESULT ZvReadIStream(struct IStream *stream, void *buffer, ULONG size);

// folders. A version word holds the major version in bits 24 to 31 and the
// minor in bits 16 to 23.
ZVAPI HRESULT ZvGetSpecialFolderVer(wchar_t *buffer, int length, int csidl, const wchar_t *name, int major, int minor);
ZVAPI HRESULT ZvGetSpecialFolderNoVer(wchar_t *buffer, int length, int csidl, const wchar_t *name);
ZVAPI HRESULT ZvGetPresetFolder(wchar_t *buffer, int length, DWORD version, const wchar_t *application);
ZVAPI HRESULT ZvGetSharedComponentsFolder(wchar_t *buffer, int length);
ZVAPI HRESULT ZvGetSpecialTolanFolder(wchar_t *buffer, int length, int index);
// Stores the preset folder that ZvGetPresetFolder reads; null or empty
// removes it.
ZVAPI HRESULT ZvSetPresetFolder(const wchar_t *folder, DWORD version, const wchar_t *application);
// The folder name below the shared components folder for index 0 or 1
// ("Hallin Themes", "Audio Transitions"); E_INVALIDARG for other indexes.
ZVAPI HRESULT ZvGetSpecialTolanDefaultFolderName(int index, wchar_t *buffer, int length);
// Stores the folder that ZvGetSpecialTolanFolder reads for the index; null
// or empty removes it.
ZVAPI HRESULT ZvSetSpecialTolanFolder(int index, const wchar_t *folder);
// TRUE for a path within a folder the shell hides by default: the user's
// and the common application data folders.
ZVAPI BOOL ZvIsHiddenFolderByDefault(const wchar_t *path);
