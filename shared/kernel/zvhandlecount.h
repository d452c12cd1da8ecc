// The number of handles a process holds, from the system's handle list. A
// process's own handle count isn't kept everywhere (Wine answers 0 to
// GetProcessHandleCount), so leak checks count the list's entries instead.
#pragma once
#include <windows.h>
#include <vector>

inline DWORD ZvProcessHandleCount(DWORD pid = GetCurrentProcessId())
{
    struct Entry {
        PVOID object;
        ULONG_PTR pid, handle;
        ULONG access;
        USHORT trace, type;
        ULONG attributes, reserved;
    };
    struct List {
        ULONG_PTR count, reserved;
        Entry entries[1];
    };
    typedef LONG(WINAPI * QueryFn)(int, void *, ULONG, ULONG *);
    static auto query = (QueryFn)(void *)GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation");
    const int kExtendedHandleInformation = 64;
    const LONG kInfoLengthMismatch = (LONG)0xC0000004;
    std::vector<BYTE> buffer(1 << 20);
    ULONG length = 0;
    LONG status = -1;
    while (query && (status = query(kExtendedHandleInformation, buffer.data(), (ULONG)buffer.size(), &length)) ==
                        kInfoLengthMismatch && buffer.size() < (256u << 20))
        buffer.resize(buffer.size() * 2);
    if (!query || status < 0)
        return 0;
    const List *list = (const List *)buffer.data();
    DWORD n = 0;
    for (ULONG_PTR i = 0; i < list->count; ++i)
        n += list->entries[i].pid == pid;
    return n;
}
