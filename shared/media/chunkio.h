// Internal to the chunk layers: the byte sources the walkers run on. A file
// handle and a memory image offer the same four primitives, so the search,
// count and string algorithms of the RIFF layer are written once and run on
// both. Not exported.
#pragma once
#include "zvbase.h"

namespace zvmedia {

// A Win32 file handle; every operation works at the handle's own position.
struct FileIO {
    HANDLE h;

    // Exactly n bytes, else false (a failed read and a short one are alike).
    bool read(void *buf, DWORD n) const
    {
        DWORD got = 0;
        return ReadFile(h, buf, n, &got, nullptr) && got == n;
    }
    // Reads up to n bytes; false only when the system call fails.
    bool readSome(void *buf, DWORD n, DWORD *got) const
    {
        *got = 0;
        return ReadFile(h, buf, n, got, nullptr) != FALSE;
    }
    bool write(const void *buf, DWORD n) const
    {
        DWORD put = 0;
        return WriteFile(h, buf, n, &put, nullptr) != FALSE;
    }
    bool seek(LONGLONG dist, DWORD method) const
    {
        LARGE_INTEGER d;
        d.QuadPart = dist;
        return SetFilePointerEx(h, d, nullptr, method) != FALSE;
    }
    ULONGLONG tell() const
    {
        LARGE_INTEGER d, pos;
        d.QuadPart = 0;
        pos.QuadPart = 0;
        SetFilePointerEx(h, d, &pos, FILE_CURRENT);
        return (ULONGLONG)pos.QuadPart;
    }
    // Length of the file; the position is kept.
    ULONGLONG length() const
    {
        LARGE_INTEGER size;
        return GetFileSizeEx(h, &size) ? (ULONGLONG)size.QuadPart : 0;
    }
    // Bytes from the position to the end of the file.
    ULONGLONG left() const
    {
        ULONGLONG len = length(), pos = tell();
        return len > pos ? len - pos : 0;
    }
    bool truncateHere() const { return SetEndOfFile(h) != FALSE; }
};

// Little- and big-endian field access on raw bytes.
inline DWORD LoadLE32(const BYTE *p) { return p[0] | (p[1] << 8) | (p[2] << 16) | ((DWORD)p[3] << 24); }
inline DWORD LoadBE32(const BYTE *p) { return ((DWORD)p[0] << 24) | (p[1] << 16) | (p[2] << 8) | p[3]; }
inline WORD LoadBE16(const BYTE *p) { return (WORD)((p[0] << 8) | p[1]); }
inline void StoreLE32(BYTE *p, DWORD v) { p[0] = (BYTE)v; p[1] = (BYTE)(v >> 8); p[2] = (BYTE)(v >> 16); p[3] = (BYTE)(v >> 24); }
inline void StoreBE32(BYTE *p, DWORD v) { p[0] = (BYTE)(v >> 24); p[1] = (BYTE)(v >> 16); p[2] = (BYTE)(v >> 8); p[3] = (BYTE)v; }
inline void StoreBE16(BYTE *p, WORD v) { p[0] = (BYTE)(v >> 8); p[1] = (BYTE)v; }

// Moves the bytes from src to the end of the file down to dst (dst < src) in
// blocks of the given buffer; the handle ends behind the last byte written.
// Returns 0, ZVERR_FILE_READ or ZVERR_FILE_WRITE.
HRESULT MoveTailDown(HANDLE h, ULONGLONG dst, ULONGLONG src, BYTE *buf, DWORD bufSize);
// Moves the bytes from pos to the end of the file up by distance, starting at
// the end so nothing is overwritten before it was read.
HRESULT MoveTailUp(HANDLE h, ULONGLONG pos, ULONGLONG distance, BYTE *buf, DWORD bufSize);

} // namespace zvmedia
