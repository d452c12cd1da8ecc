#include "mediatest.h"
#include "media/riff64.h"

using namespace mediatest;

namespace {

const GUID kOther = {0x12345678, 0x1, 0x2, {1, 2, 3, 4, 5, 6, 7, 8}};

} // namespace

TEST(Riff64Walk, SizesCountTheirHeaderAndRoundToEight)
{
    // Stored 10 reads as 0 and skips nothing; stored 30 reads as 6, skips 8.
    Bytes img = W64(Cat({Chunk64(kOther, {}, 10), Chunk64(ZVW64_JUNK, Filled(6), 30), Chunk64(ZVW64_DATA, Filled(16))}));
    ASSERT_EQ(40u + 24 + 32 + 40, img.size());
    TestFile f(img);
    ULONGLONG size = 99;
    LONGLONG remaining = 0;
    ASSERT_EQ(S_OK, riff64_FindChunkHeaderInRIFF(f.h(), kOther, &size, &remaining));
    EXPECT_EQ(0u, size);
    EXPECT_EQ(64u, f.pos());
    f.seek(64);
    remaining = 1000;
    ASSERT_EQ(S_OK, riff64_FindChunkHeader(f.h(), ZVW64_DATA, &size, &remaining));
    EXPECT_EQ(16u, size);
    EXPECT_EQ(1000 - 32 - 24, remaining);
    EXPECT_EQ(img.size() - 16, f.pos());

    f.seek(40);
    remaining = 23;
    EXPECT_EQ(ZVERR_NOT_FOUND, riff64_FindChunkHeader(f.h(), ZVW64_DATA, &size, &remaining));
    EXPECT_EQ(40u, f.pos());
    EXPECT_EQ(23, remaining);
    f.seek(40);
    EXPECT_EQ(ZVERR_FILE_READ, riff64_FindChunkHeader(f.h(), ZVW64_FMT, &size, nullptr));

    DWORD count = 0;
    remaining = (LONGLONG)img.size() - 40;
    f.seek(40);
    EXPECT_EQ(S_OK, riff64_GetNumListEntries(f.h(), &count, &remaining));
    EXPECT_EQ(3u, count);
    EXPECT_EQ(40u, f.pos());
    remaining = (LONGLONG)img.size() - 40;
    ASSERT_EQ(S_OK, riff64_SeekListEntry(f.h(), 2, &remaining));
    EXPECT_EQ(40u + 24 + 32, f.pos());

    f.seek(0);
    GUID form = {};
    ASSERT_EQ(S_OK, riff64_ReadFileID(f.h(), &size, &form));
    EXPECT_EQ(img.size() - 40, size);
    EXPECT_TRUE(IsEqualGUID(form, ZVW64_WAVE));
}

TEST(Riff64Walk, ListsAndShortFiles)
{
    Bytes list = Chunk64(ZVW64_LIST, Cat({Bytes((const BYTE *)&kOther, (const BYTE *)&kOther + 16), Chunk64(ZVW64_DATA, Filled(3))}));
    Bytes img = W64(Cat({Chunk64(ZVW64_JUNK, Filled(5)), list}));
    TestFile f(img);
    ULONGLONG size = 0;
    ASSERT_EQ(S_OK, riff64_FindListChunkFromStart(f.h(), kOther, &size));
    EXPECT_EQ(32u, size); // 24 + 3 + 5 pad of the sub-chunk
    EXPECT_EQ(40u + 32 + 40, f.pos());
    f.seek(72);
    GUID type = {};
    ASSERT_EQ(S_OK, riff64_ReadListHeader(f.h(), &type, &size));
    EXPECT_TRUE(IsEqualGUID(type, kOther));
    EXPECT_EQ(32u, size); // stored 72 less 40
    f.seek(40);
    EXPECT_EQ(ZVERR_NO_LIST_HEADER, riff64_ReadListHeader(f.h(), &type, &size));

    // A counter of 8 reads the 16-byte type and goes negative; then stop.
    f.seek(72);
    LONGLONG remaining = 24 + 8;
    EXPECT_EQ(ZVERR_NOT_FOUND, riff64_FindListChunk(f.h(), ZVW64_WAVE, &size, &remaining));
    EXPECT_LT(remaining, 0);

    // Too short for a header: the label test decides, not the read.
    f.rewrite(Bytes(10, 0));
    EXPECT_EQ(ZVERR_NO_RIFF_HEADER, riff64_ReadFileID(f.h(), &size, nullptr));
    f.rewrite(Bytes{});
    EXPECT_EQ(ZVERR_NO_RIFF_HEADER, riff64_FindChunkHeaderInRIFF(f.h(), ZVW64_DATA, &size, nullptr));

    EXPECT_EQ(ZVERR_NEWER_FORMAT, riff64_ValidateChunkHeader(kOther, 12));
    EXPECT_EQ(ZVERR_NEWER_FORMAT, riff64_ValidateChunkHeader(kOther, 8ull << 32));
    EXPECT_EQ(S_OK, riff64_ValidateChunkHeader(kOther, 4ull << 32));
    EXPECT_EQ(ZVERR_ZERO_CHUNK, riff64_ValidateChunkHeader(kOther, 0));
}

TEST(Riff64Write, PaddingAndBothSizeConventions)
{
    TestFile f(Bytes{});
    ASSERT_EQ(S_OK, riff64_WriteFileID(f.h(), ZVW64_WAVE, 0));
    ULONGLONG written = 0;
    ASSERT_EQ(S_OK, riff64_WriteData(f.h(), "0123456789abcdef", 16, &written));
    EXPECT_EQ(16u, written);
    Bytes eighteen = Filled(18);
    // Same 18 bytes: the header functions store 42, completion stores 48.
    ASSERT_EQ(S_OK, riff64_WriteChunk(f.h(), kOther, eighteen.data(), 18, &written));
    EXPECT_EQ(24u + 24, written);
    ULONGLONG start = 0;
    ASSERT_EQ(S_OK, riff64_PrepareChunk(f.h(), kOther, &start));
    ASSERT_EQ(S_OK, riff64_WriteToFile(f.h(), eighteen.data(), 18));
    EXPECT_EQ(42u, riff64_AmountWritten(f.h(), start));
    ASSERT_EQ(S_OK, riff64_CompleteChunk(f.h(), start));
    ASSERT_EQ(S_OK, riff64_WriteChunkToFile(f.h(), ZVW64_DATA, "abc", 3));
    Bytes b = f.bytes();
    ASSERT_EQ(56u + 48 + 48 + 32, b.size());
    EXPECT_EQ(f.pos(), b.size());
    EXPECT_EQ(42u, GetLe32(b, 56 + 16));
    EXPECT_EQ(48u, GetLe32(b, 104 + 16));
    EXPECT_EQ(32u, GetLe32(b, 152 + 16));
    EXPECT_EQ(24u, GetLe32(b, 16));
    ASSERT_EQ(S_OK, riff64_SetRIFFSize(f.h(), b.size() - 24));
    ASSERT_EQ(S_OK, riff64_UpdateRIFFSize(f.h(), -16));
    EXPECT_EQ(b.size() - 16, GetLe32(f.bytes(), 16));
    EXPECT_EQ(f.pos(), b.size());

    ASSERT_EQ(S_OK, riff64_PrepareList(f.h(), kOther, &start));
    EXPECT_EQ(b.size(), start);
    EXPECT_EQ(b.size() + 40, f.pos());
}

TEST(Riff64Edit, DeleteMovesTheTailAndCutsAtTheLastChunk)
{
    Bytes junk = Chunk64(ZVW64_JUNK, Filled(5000, 3));
    Bytes data = Chunk64(ZVW64_DATA, Filled(9001, 7));
    Bytes img = W64(Cat({Chunk64(kOther, Filled(4)), junk, data}));
    TestFile f(img);
    ULONGLONG removed = 0;
    ASSERT_EQ(S_OK, riff64_DeleteChunk(f.h(), ZVW64_JUNK, &removed));
    EXPECT_EQ(junk.size(), removed);
    Bytes after = f.bytes();
    ASSERT_EQ(img.size() - junk.size(), after.size());
    EXPECT_TRUE(std::equal(after.begin() + 24, after.begin() + 72, img.begin() + 24));
    EXPECT_TRUE(std::equal(after.begin() + 72, after.end(), img.begin() + 72 + junk.size()));
    EXPECT_EQ(after.size(), GetLe32(after, 16));
    ASSERT_EQ(S_OK, riff64_DeleteChunk(f.h(), ZVW64_DATA, &removed));
    EXPECT_EQ(W64(Chunk64(kOther, Filled(4))), f.bytes());
    EXPECT_EQ(ZVERR_NOT_FOUND, riff64_DeleteChunk(f.h(), ZVW64_DATA, &removed));
    EXPECT_EQ(0u, removed);
}

TEST(Riff64Large, FilesPassFourGigabytes)
{
    // A sparse data chunk of 5 GiB, then a chunk behind it.
    const ULONGLONG big = 5ull << 30;
    TestFile f(Bytes{});
    ASSERT_EQ(S_OK, riff64_WriteFileID(f.h(), ZVW64_WAVE, 0));
    ASSERT_EQ(S_OK, riff64_WriteChunkHeader(f.h(), ZVW64_DATA, big));
    f.seek((long long)(64 + big));
    ASSERT_TRUE(SetEndOfFile(f.h()));
    ASSERT_EQ(S_OK, riff64_WriteChunk(f.h(), kOther, "tail", 4, nullptr));
    ASSERT_EQ(S_OK, riff64_SetRIFFSize(f.h(), 64 + big + 32 - 24));
    ULONGLONG size = 0;
    LONGLONG remaining = 0;
    ASSERT_EQ(S_OK, riff64_FindChunkHeaderInRIFF(f.h(), kOther, &size, &remaining));
    EXPECT_EQ(4u, size);
    EXPECT_EQ(64 + big + 24, f.pos());
    EXPECT_EQ(8, remaining);
    ULONGLONG saved = 0;
    riff64_SaveLocation(f.h(), &saved);
    EXPECT_EQ(64 + big + 24, saved);
    char tail[4];
    ASSERT_EQ(S_OK, riff64_ReadData(f.h(), tail, 4));
    EXPECT_EQ(0, memcmp(tail, "tail", 4));
    riff64_RestoreLocation(f.h(), saved);
    EXPECT_EQ(saved, f.pos());
    f.seek(0);
    ASSERT_EQ(S_OK, riff64_ReadFileID(f.h(), &size, nullptr));
    EXPECT_EQ(big + 24 + 32, size);
}
