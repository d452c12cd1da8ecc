// Records of the contract: sizes, handle conversion and the template
// record's own marshalling, which must hand out blocks that free() takes.
#include <gtest/gtest.h>
#include <cstdlib>
#include <cstring>
#include <vector>
#include "../../plugins/sdk/zvplugin_sdk.h"

static_assert(offsetof(_zvmemorytoken, cbData) == 16, "token layout");
static_assert(offsetof(_zvmemorytoken, dwKind) == 32, "token layout");
static_assert(offsetof(_ZVFILESTREAMFORMATINFOv2, extension) == 24, "format record layout");
static_assert(offsetof(_ZVFILESTREAMFORMATINFOv2, format) == 88, "format record layout");

TEST(ContractRecords, HandlesCrossAsSignExtended64BitValues)
{
    EXPECT_EQ(ZvSdk_HandleToWire(INVALID_HANDLE_VALUE), ~(UINT64)0);
    EXPECT_EQ(ZvSdk_WireToHandle(~(UINT64)0), INVALID_HANDLE_VALUE);
    HANDLE h = (HANDLE)(ULONG_PTR)0x1234;
    EXPECT_EQ(ZvSdk_WireToHandle(ZvSdk_HandleToWire(h)), h);
    EXPECT_EQ(ZvSdk_HandleToWire(NULL), 0u);
}

TEST(ContractRecords, KernelProcsAreFoundInTheHostExecutable)
{
    // the test executable links the kernel whole, as the hosts do
    EXPECT_NE(ZvSdk_KernelProc("ZvMem_Free"), nullptr);
    EXPECT_EQ(ZvSdk_KernelProc("ZvNoSuchFunction"), nullptr);
    auto size = ZvSdk_KernelFunction<size_t (*)(const void *)>("ZvMem_Size");
    ASSERT_NE(size, nullptr);
    EXPECT_EQ(size(nullptr), 0u);
}

namespace {
// One round of the template marshalling as the proxy and stub run it.
PZVTEMPLATE RoundTrip(PZVTEMPLATE in, ULONG *wireSize = nullptr)
{
    ULONG flags = MSHCTX_LOCAL;
    ULONG size = PZVTEMPLATE_UserSize(&flags, 0, &in);
    if (wireSize)
        *wireSize = size;
    std::vector<unsigned char> buffer(size + 8);
    unsigned char *base = buffer.data();
    unsigned char *end = PZVTEMPLATE_UserMarshal(&flags, base, &in);
    EXPECT_EQ((ULONG)(end - base), size);
    PZVTEMPLATE out = (PZVTEMPLATE)(ULONG_PTR)0xdeadbeef; // stale value is overwritten
    unsigned char *after = PZVTEMPLATE_UserUnmarshal(&flags, base, &out);
    EXPECT_EQ(after, end);
    return out;
}
} // namespace

TEST(ContractRecords, TemplateRecordsCrossWholeAndAreFreedWithFree)
{
    // a record with plug-in data and text behind the head
    const DWORD size = ZVTEMPLATE_HEADER_SIZE + 12 + 2 * 8;
    tagZVTEMPLATExV2 *t = ZvSdk_AllocTemplate(size);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->dwVersion, (DWORD)ZVTEMPLATE_VERSION_V2);
    t->dwDataSize = 12;
    t->dwTextCapacity = 8;
    unsigned char *tail = (unsigned char *)t + ZVTEMPLATE_HEADER_SIZE;
    for (DWORD i = 0; i < size - ZVTEMPLATE_HEADER_SIZE; i++)
        tail[i] = (unsigned char)(i + 1);
    ULONG wire = 0;
    PZVTEMPLATE copy = RoundTrip(t, &wire);
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, t);
    EXPECT_EQ(wire, sizeof(DWORD) + size);
    EXPECT_EQ(memcmp(copy, t, size), 0);
    free(copy);

    ULONG flags = 0;
    PZVTEMPLATE_UserFree(&flags, &t); // the stub's way of dropping a record
    EXPECT_EQ(t, nullptr);
}

TEST(ContractRecords, NullAndDamagedTemplatesCrossAsNullOrPaddedHead)
{
    EXPECT_EQ(RoundTrip(nullptr), nullptr);

    // a size field that can't be right: nothing of it crosses
    tagZVTEMPLATExV2 bad = {};
    bad.dwSize = 2;
    EXPECT_EQ(RoundTrip(&bad), nullptr);

    // a short record arrives padded to a whole zeroed head
    struct { DWORD size, version, word; } tiny = {12, ZVTEMPLATE_VERSION_V2, 7};
    PZVTEMPLATE copy = RoundTrip((PZVTEMPLATE)&tiny);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->dwSize, 12u);
    EXPECT_EQ(copy->dwCopied, 7u);
    EXPECT_EQ(copy->dwDataSize, 0u);
    free(copy);
}
