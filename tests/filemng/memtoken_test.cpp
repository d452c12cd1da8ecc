#include <gtest/gtest.h>
#include <windows.h>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>
#include "filemng/zvmemtoken.h"
#include "testutil.h"

namespace {

BYTE pattern(DWORD seed, size_t i) { return (BYTE)((seed * 31 + i * 7 + (i >> 8)) & 0xFF); }

void fill(void *p, size_t n, DWORD seed)
{
    for (size_t i = 0; i < n; i++)
        ((BYTE *)p)[i] = pattern(seed, i);
}

bool holds(const void *p, size_t n, DWORD seed)
{
    for (size_t i = 0; i < n; i++)
        if (((const BYTE *)p)[i] != pattern(seed, i))
            return false;
    return true;
}

// Runs the test executable as a second process working on `token`.
// Exit codes of the child: 0 done, 1 wrong bytes, 2 the token was invalid.
DWORD runChild(const char *op, const _zvmemorytoken &t, DWORD access, DWORD seed)
{
    wchar_t args[512];
    swprintf(args, 512, L"memtoken %hs %llx %llx %lx %lx %lx %lx %lx %lx", op, (unsigned long long)t.hMapping,
             (unsigned long long)t.qwBase, (unsigned long)t.cbData, (unsigned long)t.dwOffset, (unsigned long)t.dwKind,
             (unsigned long)t.dwProcessId, (unsigned long)access, (unsigned long)seed);
    return zvtest::RunChildProcess(args, nullptr, 30000);
}

} // namespace

ZVTEST_CHILD(memtoken)
{
    if (argc < 9)
        return 3;
    _zvmemorytoken t = {};
    t.hMapping = strtoull(argv[1], nullptr, 16);
    t.qwBase = strtoull(argv[2], nullptr, 16);
    t.cbData = strtoul(argv[3], nullptr, 16);
    t.cbMapping = t.cbData;
    t.dwOffset = strtoul(argv[4], nullptr, 16);
    t.dwKind = strtoul(argv[5], nullptr, 16);
    t.dwProcessId = strtoul(argv[6], nullptr, 16);
    DWORD access = strtoul(argv[7], nullptr, 16), seed = strtoul(argv[8], nullptr, 16);
    CMappingOfZvMemoryToken map(t, access);
    void *p = nullptr;
    if (FAILED(map.GetPointer(&p)) || (!p && t.cbData))
        return 2;
    if (std::string(argv[0]) == "check")
        return holds(p, t.cbData, seed) ? 0 : 1;
    fill(p, t.cbData, seed);   // "write": the bytes go back at dispose
    map.Dispose();
    return 0;
}

TEST(MemoryToken, SameProcessNeedsNoMapping)
{
    std::vector<BYTE> buffer(100);
    _zvmemorytoken t;
    ZvMemoryToken_InitLocal(&t, buffer.data(), 60, 7);
    t.dwOffset = 40;
    CMappingOfZvMemoryToken map(t, 0);
    EXPECT_EQ(map.Pointer(), buffer.data() + 40);
    EXPECT_EQ(map.DataSize(), 60);
    map.Dispose();
    EXPECT_EQ(map.Pointer(), nullptr);
}

TEST(MemoryToken, MappingCrossesProcessesBothWays)
{
    _zvmemorytoken t;
    ASSERT_EQ(ZvMemoryToken_CreateMapping(&t, 1 << 20), S_OK);
    EXPECT_EQ(t.dwKind, (DWORD)ZVMEMTOKEN_KIND_MAPPING);
    fill((void *)(ULONG_PTR)t.qwBase, t.cbData, 5);
    EXPECT_EQ(runChild("check", t, ZVMEMTOKEN_READ, 5), 0u);
    EXPECT_EQ(runChild("write", t, ZVMEMTOKEN_WRITE, 9), 0u);
    EXPECT_TRUE(holds((void *)(ULONG_PTR)t.qwBase, t.cbData, 9));

    // data behind an offset; a size of 0 maps the offset bytes alone
    _zvmemorytoken part = t;
    part.dwOffset = 4096;
    part.cbData = 100;
    fill((BYTE *)(ULONG_PTR)t.qwBase + 4096, 100, 11);
    EXPECT_EQ(runChild("check", part, 0, 11), 0u);
    part.cbData = 0;
    EXPECT_EQ(runChild("check", part, 0, 11), 0u);

    EXPECT_EQ(ZvMemoryToken_ReleaseMapping(&t), S_OK);
    EXPECT_EQ(t.qwBase, 0u);
    _zvmemorytoken local;
    ZvMemoryToken_InitLocal(&local, &part, 4, 0);
    EXPECT_EQ(ZvMemoryToken_ReleaseMapping(&local), E_INVALIDARG);
    EXPECT_EQ(local.dwProcessId, 0u);
}

TEST(MemoryToken, LocalMemoryIsReadAndWrittenThroughTheProcess)
{
    std::vector<BYTE> buffer(70001);
    fill(buffer.data(), buffer.size(), 3);
    _zvmemorytoken t;
    ZvMemoryToken_InitLocal(&t, buffer.data(), (DWORD)buffer.size(), ZVMEMTOKEN_KIND_LOCAL);
    EXPECT_EQ(runChild("check", t, ZVMEMTOKEN_READ, 3), 0u);
    // write-only: a zeroed block, written back at dispose
    EXPECT_EQ(runChild("write", t, ZVMEMTOKEN_WRITE, 4), 0u);
    EXPECT_TRUE(holds(buffer.data(), buffer.size(), 4));

    // a private buffer of another process can't be reached
    t.dwKind = ZVMEMTOKEN_KIND_SHADOW;
    EXPECT_EQ(runChild("check", t, ZVMEMTOKEN_READ, 4), 2u);
}

TEST(MemoryToken, GoneOwnerGivesInvalidMapping)
{
    std::vector<BYTE> buffer(64);
    _zvmemorytoken t;
    ZvMemoryToken_InitLocal(&t, buffer.data(), 64, ZVMEMTOKEN_KIND_LOCAL);
    t.dwProcessId = 0xFFFFFFF0u;   // no such process
    CMappingOfZvMemoryToken map(t, ZVMEMTOKEN_READ);
    void *p = &t;
    EXPECT_EQ(map.GetPointer(&p), E_FAIL);
    EXPECT_EQ(p, nullptr);
    EXPECT_EQ(map.DataSize(), -1);
    t.dwKind = ZVMEMTOKEN_KIND_MAPPING;
    CMappingOfZvMemoryToken mapped(t, 0);
    EXPECT_FALSE(mapped.IsValid());
}

TEST(OutOfProcessMemoryToken, ShadowCarriesPrivateBuffersAcross)
{
    for (DWORD size : {1u, 4095u, 65536u, 3u << 20}) {
        std::vector<BYTE> buffer(size);
        _zvmemorytoken caller;
        ZvMemoryToken_InitLocal(&caller, buffer.data(), size, ZVMEMTOKEN_KIND_SHADOW);
        {
            // write only: nothing is copied before the call, all of it after
            COutOfProcessMemoryToken shadow(caller, ZVMEMTOKEN_WRITE, TRUE);
            _zvmemorytoken wire;
            ASSERT_EQ(shadow.GetMemoryToken(wire), S_OK);
            EXPECT_TRUE(shadow.Shadowed());
            EXPECT_EQ(wire.dwKind, (DWORD)ZVMEMTOKEN_KIND_MAPPING);
            EXPECT_EQ(wire.cbData, size);
            EXPECT_EQ(runChild("write", wire, ZVMEMTOKEN_WRITE, size), 0u) << size;
            EXPECT_FALSE(holds(buffer.data(), size, size)) << "nothing copied back before the end";
        }
        EXPECT_TRUE(holds(buffer.data(), size, size)) << size;
    }

    // read: the caller's bytes are in the shadow before the call
    std::vector<BYTE> source(5000);
    fill(source.data(), source.size(), 21);
    _zvmemorytoken caller;
    ZvMemoryToken_InitLocal(&caller, source.data(), 5000, ZVMEMTOKEN_KIND_SHADOW);
    COutOfProcessMemoryToken both(caller, 0, FALSE);
    _zvmemorytoken wire;
    ASSERT_EQ(both.GetMemoryToken(wire), S_OK);
    EXPECT_EQ(runChild("check", wire, ZVMEMTOKEN_READ, 21), 0u);

    // kinds 0 and 1 travel as they are
    caller.dwKind = ZVMEMTOKEN_KIND_LOCAL;
    COutOfProcessMemoryToken direct(caller, ZVMEMTOKEN_WRITE, TRUE);
    ASSERT_EQ(direct.GetMemoryToken(wire), S_OK);
    EXPECT_FALSE(direct.Shadowed());
    EXPECT_EQ(memcmp(&wire, &caller, sizeof wire), 0);
}

TEST(OutOfProcessMemoryToken, FailedShadowGivesEFailAndCopiesNothing)
{
    std::vector<BYTE> buffer(64, 0xAB);
    _zvmemorytoken caller;
    ZvMemoryToken_InitLocal(&caller, buffer.data(), 64, ZVMEMTOKEN_KIND_SHADOW);
    caller.dwProcessId = 0xFFFFFFF0u;   // the source can't be read: the copy fails
    {
        COutOfProcessMemoryToken shadow(caller, ZVMEMTOKEN_READ | ZVMEMTOKEN_WRITE, TRUE);
        _zvmemorytoken wire;
        EXPECT_EQ(shadow.GetMemoryToken(wire), E_FAIL);
        EXPECT_TRUE(shadow.Failed());
    }
    EXPECT_EQ(buffer[0], 0xAB);
}
