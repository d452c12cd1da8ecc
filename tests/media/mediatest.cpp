#include "mediatest.h"

namespace mediatest {

std::wstring FixtureDir()
{
    return zvtest::ExeDir() + L"..\\media-fixtures\\";
}

bool FixturesPresent()
{
    return GetFileAttributesW((FixtureDir() + L"manifest.txt").c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::wstring OutDir()
{
    std::wstring out = FixtureDir() + L"out\\";
    CreateDirectoryW(out.c_str(), nullptr);
    return out;
}

long long HeapBusyBlocks()
{
    HANDLE heaps[64];
    DWORD n = GetProcessHeaps(64, heaps);
    long long busy = 0;
    for (DWORD i = 0; i < n && i < 64; i++) {
        if (!HeapLock(heaps[i]))
            continue;
        PROCESS_HEAP_ENTRY e;
        e.lpData = nullptr;
        while (HeapWalk(heaps[i], &e))
            if (e.wFlags & PROCESS_HEAP_ENTRY_BUSY)
                busy++;
        HeapUnlock(heaps[i]);
    }
    return busy;
}

} // namespace mediatest
