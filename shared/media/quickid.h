// Quick identification of media files from their first 64 KiB: a fixed list
// of signature tests that tells the manager what a file most likely is before
// any plug-in is asked.
#pragma once
#include "zvbase.h"
#include <objidl.h>

// ZVFILEID_IDENTIFIED_TYPE: the numbers are the contract. 0 means nothing was
// asked, 1 that no test recognised the file.
typedef DWORD ZVFILEID_IDENTIFIED_TYPE;
#define ZVFILEID_NOTASKED      0u
#define ZVFILEID_UNKNOWN       1u

// Flags of the identification.
#define ZVFILEID_NOEXTENSION   0x01u  // don't look at the file's extension
#define ZVFILEID_SCOTASWAVE    0x02u  // report type 2 where type 7 was found
#define ZVFILEID_GROUP_AUDIO   0x04u  // types 2 to 0xFFF
#define ZVFILEID_GROUP_VIDEO   0x08u  // types 0x1000 to 0x1FFF
#define ZVFILEID_GROUP_IMAGE   0x10u  // types from 0x2000
#define ZVFILEID_BUFFER_SIZE   65536u

typedef struct ZVFILEIDINFO {
    DWORD flags;
    HANDLE file;            // INVALID_HANDLE_VALUE when none
    LPCWSTR path;           // may be null
    const BYTE *buffer;     // bytes the caller already read, or null
    DWORD bufferSize;
    IStream *stream;        // alternative source, or null
    ZVFILEID_IDENTIFIED_TYPE identifiedType;
} ZVFILEIDINFO;

// The record form; the others below are fronts for it. *identified is TRUE
// when a type other than 0 and 1 was found.
ZVAPI HRESULT ZvIsQuicklyIdentifiableMediaFileFormat(ZVFILEIDINFO *info, BOOL *identified);

// Finds the atom `name` (four characters, e.g. "moov") in [offset, offset +
// length) of a file made of size-prefixed atoms.
ZVAPI BOOL ZvFindAtom(HANDLE file, const char *name, ULONGLONG offset, ULONGLONG length,
                      ULONGLONG *atomOffset, ULONGLONG *atomSize);
// Inspects an MP4/QuickTime file (the buffer holds its first bytes; file may
// be INVALID_HANDLE_VALUE, then only the buffer is searched).
ZVAPI DWORD FindMP4FileType(HANDLE file, const BYTE *buffer, DWORD size);
ZVAPI BOOL IsTypeMP2FindSyncByte(const BYTE *buffer, DWORD size, LPCWSTR extension);

#ifdef __cplusplus
BOOL ZvIsQuicklyIdentifiableMediaFileFormat(HANDLE file, DWORD flags, ZVFILEID_IDENTIFIED_TYPE *type);
BOOL ZvIsQuicklyIdentifiableMediaFileFormat(LPCWSTR path, DWORD flags, ZVFILEID_IDENTIFIED_TYPE *type);
BOOL ZvIsQuicklyIdentifiableMediaFileFormat(HANDLE file, LPCWSTR path, DWORD flags, ZVFILEID_IDENTIFIED_TYPE *type);
BOOL ZvIsQuicklyIdentifiableMediaFileFormat(const BYTE *buffer, DWORD size, DWORD flags, ZVFILEID_IDENTIFIED_TYPE *type);
BOOL ZvIsQuicklyIdentifiableMediaFileFormat(IStream *stream, DWORD flags, ZVFILEID_IDENTIFIED_TYPE *type);
#endif
