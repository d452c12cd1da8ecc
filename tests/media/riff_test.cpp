#include "mediatest.h"
#include "media/riff.h"

using namespace mediatest;

namespace {

// fmt (18), an odd chunk, LIST INFO with two entries, data (10).
Bytes SampleWave()
{
    return Riff("WAVE", Cat({Chunk("fmt ", Fmt(1, 2, 44100, 16)), Chunk("odd ", Filled(3)),
                             List("INFO", Cat({Chunk("INAM", Bytes{'a', 'b', 'c', 0}), Chunk("ICMT", Filled(5, 'A'))})),
                             Chunk("data", Filled(10, 100))}));
}

} // namespace

TEST(RiffWalk, FindsChunksListsAndEntriesWithTheirPositions)
{
    Bytes img = SampleWave();
    TestFile f(img);
    DWORD size = 0, remaining = 0;
    ASSERT_EQ(S_OK, riff_FindChunkHeaderInRIFF(f.h(), ZVRIFF_DATA, &size, &remaining));
    EXPECT_EQ(10u, size);
    EXPECT_EQ(img.size() - 10, f.pos());
    EXPECT_EQ(10u, remaining); // the data itself is left in the bound

    // The odd chunk's pad byte is skipped, not read as data.
    f.seek(12);
    remaining = (DWORD)img.size() - 12;
    ASSERT_EQ(S_OK, riff_FindListChunk(f.h(), ZVRIFF_INFO, &size, &remaining));
    EXPECT_EQ(4u + 12 + 14u, size + 4);
    DWORD listPos = (DWORD)f.pos();
    EXPECT_EQ(12u + 26 + 12 + 12u, listPos);

    DWORD count = 0, bound = size;
    EXPECT_EQ(S_OK, riff_GetNumListEntries(f.h(), &count, &bound));
    EXPECT_EQ(2u, count);
    EXPECT_EQ(listPos, f.pos()); // position restored
    bound = size;
    ASSERT_EQ(S_OK, riff_SeekListEntry(f.h(), 1, &bound));
    DWORD id = 0;
    ASSERT_EQ(S_OK, riff_ReadChunkHeader(f.h(), &id, &size));
    EXPECT_EQ(ZVRIFF_ID('I', 'C', 'M', 'T'), id);
    EXPECT_EQ(5u, size);
    bound = 26;
    f.seek(listPos);
    EXPECT_EQ(ZVERR_NOT_FOUND, riff_SeekListEntry(f.h(), 3, &bound));
    f.seek(listPos);
    EXPECT_EQ(S_OK, riff_SeekListEntry(f.h(), 0, nullptr));
    EXPECT_EQ(listPos, f.pos());

    ASSERT_EQ(S_OK, riff_FindListChunkFromStart(f.h(), ZVRIFF_INFO, &size));
    EXPECT_EQ(listPos, f.pos());
    EXPECT_EQ(ZVERR_NOT_FOUND, riff_FindListChunkFromStart(f.h(), ZVRIFF_ID('a', 'd', 't', 'l'), &size));

    // Headers read in place.
    f.seek(0);
    DWORD form = 0;
    ASSERT_EQ(S_OK, riff_ReadFileID(f.h(), &size, &form));
    EXPECT_EQ(img.size() - 8 - 4, size);
    EXPECT_EQ(ZVRIFF_WAVE, form);
    EXPECT_EQ(12u, f.pos());
    EXPECT_EQ(ZVERR_NO_LIST_HEADER, riff_ReadListHeader(f.h(), &form, &size));
    EXPECT_EQ(S_OK, riff_GetFileSize(f.h(), &size));
    EXPECT_EQ(img.size() - 4, size);
    EXPECT_EQ(12u, f.pos());
}

TEST(RiffWalk, BoundsEndSearchesWithNotFoundAndFileEndWithReadError)
{
    TestFile f(Riff("WAVE", {}));
    DWORD size = 0, remaining = 77;
    EXPECT_EQ(ZVERR_NOT_FOUND, riff_FindChunkHeaderInRIFF(f.h(), ZVRIFF_DATA, &size, &remaining));
    EXPECT_EQ(0u, remaining);
    f.seek(12);
    EXPECT_EQ(ZVERR_FILE_READ, riff_FindChunkHeader(f.h(), ZVRIFF_DATA, &size, nullptr));

    // A chunk running past the counter leaves it at 0: the next round stops.
    Bytes img = Riff("WAVE", Chunk("big ", Filled(4)));
    img[16] = 200;
    f.rewrite(img);
    EXPECT_EQ(ZVERR_NOT_FOUND, riff_FindChunkHeaderInRIFF(f.h(), ZVRIFF_DATA, &size, &remaining));
    EXPECT_EQ(0u, remaining);

    // Not RIFF, and a truncated header.
    f.rewrite(Bytes{'R', 'I', 'F', 'X', 4, 0, 0, 0, 'W', 'A', 'V', 'E'});
    EXPECT_EQ(ZVERR_NO_RIFF_HEADER, riff_FindChunkHeaderInRIFF(f.h(), ZVRIFF_DATA, &size, &remaining));
    EXPECT_EQ(ZVERR_NO_RIFF_HEADER, riff_FindListChunkFromStart(f.h(), ZVRIFF_INFO, &size));
    f.rewrite(Bytes{'R', 'I', 'F'});
    EXPECT_EQ(ZVERR_FILE_READ, riff_GetFileSize(f.h(), &size));
    EXPECT_EQ(0u, size);
}

TEST(RiffWalk, ListsWithTinySizesStillEnd)
{
    // LIST sizes 0..3 seek back into the type; the walk must still finish.
    for (unsigned s = 0; s < 4; s++) {
        Bytes body = Cat({Chunk("LIST", Filled(4)), Chunk("data", Filled(2))});
        body[4] = (BYTE)s;
        TestFile f(Riff("WAVE", body));
        DWORD size = 0;
        HRESULT hr = riff_FindListChunkFromStart(f.h(), ZVRIFF_INFO, &size);
        EXPECT_TRUE(hr == ZVERR_NOT_FOUND || hr == ZVERR_FILE_READ) << s;
        f.seek(12);
        EXPECT_EQ(ZVERR_FILE_READ, riff_FindListChunk(f.h(), ZVRIFF_INFO, &size, nullptr));
    }
}

TEST(RiffData, ReadsSkipPadsByTheirOwnRules)
{
    Bytes img = Cat({Filled(16), Filled(16, 50)});
    TestFile f(img);
    BYTE buf[16] = {};
    ASSERT_EQ(S_OK, riff_ReadData(f.h(), buf, 3));
    EXPECT_EQ(4u, f.pos());
    EXPECT_EQ(0, memcmp(buf, img.data(), 3));
    // Parity of the limit decides the extra byte, not that of the size.
    f.seek(0);
    ASSERT_EQ(S_OK, riff_ReadDataBounded(f.h(), buf, 10, 3));
    EXPECT_EQ(11u, f.pos());
    f.seek(0);
    ASSERT_EQ(S_OK, riff_ReadDataBounded(f.h(), buf, 9, 4));
    EXPECT_EQ(9u, f.pos());
    f.seek(30);
    EXPECT_EQ(ZVERR_FILE_READ, riff_ReadData(f.h(), buf, 4));

    tZVRIFFBLOCK block = {0, (void *)1};
    EXPECT_EQ(S_OK, riff_ReadDataAlloc(f.h(), &block));
    EXPECT_EQ(nullptr, block.data);
    f.seek(2);
    block.size = 5;
    ASSERT_EQ(S_OK, riff_ReadDataAlloc(f.h(), &block));
    ASSERT_NE(nullptr, block.data);
    EXPECT_EQ(0, memcmp(block.data, img.data() + 2, 5));
    EXPECT_EQ(8u, f.pos());
    HGLOBAL h = GlobalHandle(block.data);
    GlobalUnlock(h);
    GlobalFree(h);
    f.seek(28);
    block.size = 8;
    EXPECT_EQ(ZVERR_FILE_READ, riff_ReadDataAlloc(f.h(), &block));
    EXPECT_EQ(nullptr, block.data);

    EXPECT_EQ(ZVERR_NEWER_FORMAT, riff_ValidateChunkHeader(0, -1));
    EXPECT_EQ(ZVERR_ZERO_CHUNK, riff_ValidateChunkHeader(0, 0));
    EXPECT_EQ(S_OK, riff_ValidateChunkHeader(0, 1));
}

TEST(RiffWrite, ChunksListsAndSizeLimit)
{
    TestFile f(Bytes{});
    ASSERT_EQ(S_OK, riff_WriteFileID(f.h(), ZVRIFF_WAVE, 4));
    DWORD written = 0;
    ASSERT_EQ(S_OK, riff_WriteChunk(f.h(), ZVRIFF_ID('o', 'd', 'd', ' '), "abc", 3, &written));
    EXPECT_EQ(12u, written);
    ASSERT_EQ(S_OK, riff_WriteListHeader(f.h(), ZVRIFF_INFO, 4));
    ASSERT_EQ(S_OK, riff_UpdateRIFFSize(f.h(), 12 + 12));
    EXPECT_EQ(36u, f.pos()); // kept
    Bytes expect = Riff("WAVE", Cat({Chunk("odd ", Bytes{'a', 'b', 'c'}), List("INFO", {})}));
    EXPECT_EQ(expect, f.bytes());

    // Exactly the largest size is written; one byte more rolls the file back.
    ASSERT_EQ(S_OK, riff_SetRIFFSize(f.h(), 28));
    ASSERT_EQ(S_OK, riff_UpdateRIFFSize(f.h(), (LONGLONG)ZVRIFF_MAX_SIZE - 28));
    EXPECT_EQ(ZVRIFF_MAX_SIZE, GetLe32(f.bytes(), 4));
    ASSERT_EQ(S_OK, riff_SetRIFFSize(f.h(), 28));
    f.seek(36);
    ASSERT_EQ(S_OK, riff_WriteChunk(f.h(), ZVRIFF_JUNK, "12345678", 8, nullptr));
    EXPECT_EQ(ZVERR_SIZE_LIMIT, riff_UpdateRIFFSize(f.h(), (LONGLONG)ZVRIFF_MAX_SIZE - 28 + 1));
    EXPECT_EQ(expect, f.bytes());
}

TEST(RiffWrite, FileNeverPassesTheSizeLimit)
{
    // A sparse file just below 4 GiB: appending past the limit is undone and
    // an insertion is refused before anything moves.
    Bytes head = Riff("WAVE", Chunk("data", Bytes{}));
    TestFile f(head);
    const DWORD dataSize = ZVRIFF_MAX_SIZE - 4 - 8 - 16;
    f.seek(40);
    ASSERT_EQ(S_OK, riff_SetRIFFSize(f.h(), dataSize + 12));
    f.seek(16);
    DWORD v = dataSize;
    DWORD put;
    WriteFile(f.h(), &v, 4, &put, nullptr);
    f.seek((long long)dataSize + 20);
    ASSERT_TRUE(SetEndOfFile(f.h()));
    EXPECT_EQ(S_OK, riff_WriteChunk(f.h(), ZVRIFF_JUNK, "0123456789", 10, nullptr));
    EXPECT_EQ(ZVERR_SIZE_LIMIT, riff_UpdateRIFFSize(f.h(), 18));
    LARGE_INTEGER len;
    GetFileSizeEx(f.h(), &len);
    EXPECT_EQ((long long)dataSize + 20, len.QuadPart);
    f.seek(12);
    EXPECT_EQ(ZVERR_SIZE_LIMIT, riff_InsertChunk(f.h(), ZVRIFF_JUNK, "0123456789", 10, nullptr));
    GetFileSizeEx(f.h(), &len);
    EXPECT_EQ((long long)dataSize + 20, len.QuadPart);
    // Still room for 16 bytes: a chunk of 8 fits exactly.
    f.seek((long long)dataSize + 20);
    EXPECT_EQ(S_OK, riff_WriteChunk(f.h(), ZVRIFF_JUNK, "01234567", 8, nullptr));
    EXPECT_EQ(S_OK, riff_UpdateRIFFSize(f.h(), 16));
    DWORD total = 0;
    EXPECT_EQ(S_OK, riff_GetFileSize(f.h(), &total));
    EXPECT_EQ(ZVRIFF_MAX_SIZE + 4, total);
}

TEST(RiffEdit, DeleteAndInsertKeepEveryOtherByte)
{
    Bytes img = SampleWave();
    TestFile f(img);
    // Delete the odd chunk in the middle: 8 + 3 + pad bytes.
    DWORD removed = 0;
    ASSERT_EQ(S_OK, riff_DeleteChunk(f.h(), ZVRIFF_ID('o', 'd', 'd', ' '), &removed, FALSE));
    EXPECT_EQ(12u, removed);
    Bytes after = f.bytes();
    ASSERT_EQ(img.size() - 12, after.size());
    EXPECT_EQ(after.size(), f.pos());
    EXPECT_TRUE(std::equal(after.begin() + 8, after.begin() + 38, img.begin() + 8));
    EXPECT_TRUE(std::equal(after.begin() + 38, after.end(), img.begin() + 50));
    EXPECT_EQ(GetLe32(img, 4) - 12, GetLe32(after, 4));

    // Insert it back where it was: the original file again.
    f.seek(38);
    DWORD written = 0;
    ASSERT_EQ(S_OK, riff_InsertChunk(f.h(), ZVRIFF_ID('o', 'd', 'd', ' '), img.data() + 46, 3, &written));
    EXPECT_EQ(12u, written);
    EXPECT_EQ(50u, f.pos());
    EXPECT_EQ(img, f.bytes());

    // A list goes with its header and type.
    ASSERT_EQ(S_OK, riff_DeleteChunk(f.h(), ZVRIFF_INFO, &removed, TRUE));
    EXPECT_EQ(8u + 4 + 12 + 14, removed);
    EXPECT_EQ(SampleWave().size() - removed, f.bytes().size());
    // The last chunk: the file is cut where it began.
    ASSERT_EQ(S_OK, riff_DeleteChunk(f.h(), ZVRIFF_DATA, &removed, FALSE));
    EXPECT_EQ(18u, removed);
    Bytes left = f.bytes();
    EXPECT_EQ(Riff("WAVE", Cat({Chunk("fmt ", Fmt(1, 2, 44100, 16)), Chunk("odd ", Filled(3))})), left);
    EXPECT_EQ(ZVERR_NOT_FOUND, riff_DeleteChunk(f.h(), ZVRIFF_DATA, &removed, FALSE));
    EXPECT_EQ(0u, removed);
    EXPECT_EQ(left, f.bytes());
}

TEST(RiffEdit, DeleteAndInsertMoveLargeTails)
{
    // Tails longer than one block, at odd offsets.
    Bytes img = Riff("WAVE", Cat({Chunk("a   ", Filled(5)), Chunk("b   ", Filled(10001, 3)), Chunk("c   ", Filled(9000, 9))}));
    TestFile f(img);
    DWORD removed = 0;
    ASSERT_EQ(S_OK, riff_DeleteChunk(f.h(), ZVRIFF_ID('a', ' ', ' ', ' '), &removed, FALSE));
    Bytes after = f.bytes();
    EXPECT_TRUE(std::equal(after.begin() + 12, after.end(), img.begin() + 26));
    f.seek(12);
    ASSERT_EQ(S_OK, riff_InsertChunk(f.h(), ZVRIFF_ID('a', ' ', ' ', ' '), img.data() + 20, 5, nullptr));
    EXPECT_EQ(img, f.bytes());
    f.seek(2);
    EXPECT_EQ(E_INVALIDARG, riff_InsertChunk(f.h(), ZVRIFF_JUNK, "x", 1, nullptr));
}

TEST(RiffStrings, AnsiStringsRoundTripWithTheirPads)
{
    TestFile f(Bytes{});
    DWORD written = 0;
    ASSERT_EQ(S_OK, riff_WriteANSIString(f.h(), L"Hello", &written));
    EXPECT_EQ(6u, written);
    ASSERT_EQ(S_OK, riff_WriteANSIString(f.h(), L"abc", &written));
    EXPECT_EQ(4u, written);
    ASSERT_EQ(10u, f.bytes().size());

    wchar_t buf[260];
    f.seek(0);
    DWORD size = 5;
    ASSERT_EQ(S_OK, riff_ReadANSIString(f.h(), buf, 260, &size));
    EXPECT_EQ(6u, size);
    EXPECT_EQ(6u, f.pos()); // pad skipped
    EXPECT_STREQ(L"Hell", buf); // the last byte read is forced to zero
    size = 4;
    ASSERT_EQ(S_OK, riff_ReadANSIString(f.h(), buf, 260, &size));
    EXPECT_EQ(5u, size);
    EXPECT_EQ(10u, f.pos());
    EXPECT_STREQ(L"abc", buf);
    f.seek(0);
    size = 6;
    ASSERT_EQ(S_OK, riff_ReadANSIString(f.h(), buf, 3, &size));
    EXPECT_STREQ(L"He", buf);
    EXPECT_EQ(6u, f.pos());
    size = 100;
    EXPECT_EQ(ZVERR_FILE_READ, riff_ReadANSIString(f.h(), buf, 260, &size));
    EXPECT_EQ(E_INVALIDARG, riff_ReadANSIString(f.h(), nullptr, 260, &size));
}

TEST(RiffCdAudio, IndexFilesAreReadAndBadOnesRefused)
{
    Bytes fmt;
    Le16(fmt, 1); Le16(fmt, 7); Le32(fmt, 0xCAFE); Le32(fmt, 1000); Le32(fmt, 2000);
    Bytes start = {10, 20, 3, 0}, length = {1, 2, 0, 0};
    Put(fmt, start.data(), 4);
    Put(fmt, length.data(), 4);
    TestFile f(Riff("CDDA", Chunk("fmt ", fmt)), L"track07.cda");
    f.close();
    DWORD track = 9, sector = 9, frame = 9, count = 9, serial = 9;
    ASSERT_EQ(S_OK, riff_ReadCDAFile(f.path().c_str(), &track, &sector, &frame, &count, &serial));
    EXPECT_EQ(7u, track);
    EXPECT_EQ(1000u, sector);
    EXPECT_EQ(2000u, count);
    EXPECT_EQ(0xCAFEu, serial);
    EXPECT_EQ((20u + 3 * 60) * 75 + 10, frame);

    f.open();
    Bytes bad = fmt;
    bad.resize(22);
    f.rewrite(Riff("CDDA", Chunk("fmt ", bad)));
    f.close();
    EXPECT_EQ(ZVERR_WRONG_CHUNK_SIZE, riff_ReadCDAFile(f.path().c_str(), &track, &sector, &frame, &count, &serial));
    EXPECT_EQ(0u, track);
    EXPECT_EQ(0u, frame);
    f.open();
    f.rewrite(Riff("WAVE", Chunk("fmt ", fmt)));
    f.close();
    EXPECT_EQ(ZVERR_MALFORMED, riff_ReadCDAFile(f.path().c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(ZVERR_FILE_OPEN, riff_ReadCDAFile(L"Z:\\no\\such\\file.cda", &track, &sector, &frame, &count, &serial));
    EXPECT_EQ(0u, serial);
}
