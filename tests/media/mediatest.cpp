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
    return zvtest::HeapBusyBlocks();
}

} // namespace mediatest
