#include "mediatest.h"
#include "media/mriff.h"
#include "media/iff.h"

using namespace mediatest;

TEST(MemRiff, ClampsWritesAtCapacityAndReadsAtDataEnd)
{
    BYTE buf[16] = {};
    _tMRIFF mr;
    EXPECT_EQ(E_POINTER, mriff_Init(nullptr, buf, 0, 16));
    EXPECT_EQ(E_INVALIDARG, mriff_Init(&mr, buf, 17, 16));
    ASSERT_EQ(S_OK, mriff_Init(&mr, buf, 16, 16));
    ASSERT_EQ(S_OK, mriff_Init(&mr, buf, 0, 16));

    ASSERT_EQ(S_OK, mriff_WriteFileID(&mr, ZVRIFF_WAVE, 4));
    EXPECT_EQ(12u, mriff_GetFilePointer(&mr));
    // Only the id of this header fits: the cursor moves by the part that fit.
    EXPECT_EQ(ZVERR_FILE_WRITE, mriff_WriteChunkHeader(&mr, ZVRIFF_DATA, 0));
    EXPECT_EQ(16u, mriff_GetFilePointer(&mr));
    EXPECT_EQ(0u, mr.dataSize); // only UpdateDataSize changes it
    EXPECT_EQ(5, mriff_UpdateDataSize(&mr, 5));
    EXPECT_EQ(5u, mr.dataSize);

    EXPECT_EQ(0u, mriff_ZvSetFilePointer(&mr, -3, FILE_BEGIN));
    EXPECT_EQ(16u, mriff_ZvSetFilePointer(&mr, 100, FILE_CURRENT));
    EXPECT_EQ(14u, mriff_ZvSetFilePointer(&mr, -2, FILE_END));
    BYTE out[4];
    DWORD n = 0;
    EXPECT_FALSE(mriff_ReadFile(&mr, out, 4, &n));
    EXPECT_EQ(2u, n);
    EXPECT_EQ(0, memcmp(out, "ta", 2));
    LONG high = 0;
    EXPECT_EQ(4u, mriff_SetFilePointer(&mr, 4, &high, FILE_BEGIN));
    n = 0;
    EXPECT_TRUE(mriff_WriteFile(&mr, "abc", 3, &n));
    EXPECT_EQ(3u, n);
}

TEST(MemRiff, WalksAnImageLikeAFile)
{
    Bytes img = Riff("WAVE", Cat({Chunk("fmt ", Fmt(1, 2, 44100, 16)),
                                  List("INFO", Cat({Chunk("INAM", Bytes{'T', 'i', 't', 'l', 'e', 0}), Chunk("IART", Bytes{'x', 0})})),
                                  Chunk("data", Filled(7))}));
    _tMRIFF mr;
    ASSERT_EQ(S_OK, mriff_Init(&mr, img.data(), (DWORD)img.size(), (DWORD)img.size()));
    DWORD size = 0, remaining = 0;
    ASSERT_EQ(S_OK, mriff_FindChunkHeaderInRIFF(&mr, ZVRIFF_DATA, &size, &remaining));
    EXPECT_EQ(7u, size);
    EXPECT_EQ(img.size() - 8, mriff_GetFilePointer(&mr));
    tZVRIFFBLOCK block = {7, nullptr};
    ASSERT_EQ(S_OK, mriff_ReadDataAlloc(&mr, &block));
    EXPECT_EQ(0, memcmp(block.data, img.data() + img.size() - 8, 7));
    GlobalUnlock(GlobalHandle(block.data));
    GlobalFree(GlobalHandle(block.data));
    // Past the end: the seek over the pad clamps, the next read comes up short.
    EXPECT_EQ(img.size(), mriff_GetFilePointer(&mr));
    EXPECT_EQ(ZVERR_FILE_READ, mriff_ReadChunkHeader(&mr, nullptr, nullptr));

    mriff_SeekDataStart(&mr);
    EXPECT_EQ(ZVERR_NO_LIST_HEADER, mriff_ReadListHeader(&mr, nullptr, &size));
    ASSERT_EQ(S_OK, mriff_FindListChunkFromStart(&mr, ZVRIFF_INFO, &size));
    DWORD count = 0, bound = size;
    EXPECT_EQ(S_OK, mriff_GetNumListEntries(&mr, &count, &bound));
    EXPECT_EQ(2u, count);

    mriff_RestoreLocation(&mr, 20);
    char text[16] = {};
    ASSERT_EQ(S_OK, mriff_GetInfoString(&mr, ZVRIFF_ID('I', 'N', 'A', 'M'), text, sizeof text, &size));
    EXPECT_STREQ("Title", text);
    EXPECT_EQ(6u, size);
    EXPECT_EQ(20u, mriff_GetFilePointer(&mr));
    EXPECT_EQ(S_OK, mriff_GetInfoString(&mr, ZVRIFF_ID('I', 'N', 'A', 'M'), text, 3, &size));
    EXPECT_EQ(3u, size);
    EXPECT_EQ(ZVERR_NOT_FOUND, mriff_GetInfoString(&mr, ZVRIFF_ID('I', 'C', 'O', 'P'), text, 16, &size));

    // A short image: the search ends at its data end with a read error.
    ASSERT_EQ(S_OK, mriff_Init(&mr, img.data(), 30, (DWORD)img.size()));
    mriff_SeekDataStart(&mr);
    EXPECT_EQ(ZVERR_FILE_READ, mriff_FindChunkHeader(&mr, ZVRIFF_DATA, &size, nullptr));
}

namespace {

Bytes Aiff(const char *form, unsigned channels, unsigned frames, unsigned bits, unsigned rate, const char *compression,
           unsigned offset, const Bytes &audio, bool withMarkers = false)
{
    Bytes comm = CommBody(channels, frames, bits, rate);
    if (compression) {
        PutStr(comm, compression);
        comm.push_back(0);
        comm.push_back(0);
    }
    Bytes ssnd;
    Be32(ssnd, offset); Be32(ssnd, 0);
    ssnd.resize(ssnd.size() + offset);
    Put(ssnd, audio.data(), audio.size());
    Bytes body;
    PutStr(body, form);
    if (withMarkers) {
        Bytes mark;
        Be16(mark, 2);
        Be16(mark, 1); Be32(mark, 100); mark.push_back(2); PutStr(mark, "ab"); mark.push_back(0);
        Be16(mark, 7); Be32(mark, 555); mark.push_back(3); PutStr(mark, "xyz");
        Bytes c = IffChunk("MARK", mark);
        Put(body, c.data(), c.size());
    }
    Bytes c1 = IffChunk("COMM", comm), c2 = IffChunk("SSND", ssnd);
    Put(body, c1.data(), c1.size());
    Put(body, c2.data(), c2.size());
    Bytes f;
    PutStr(f, "FORM");
    Be32(f, (unsigned)body.size());
    Put(f, body.data(), body.size());
    return f;
}

} // namespace

TEST(Iff, SampleRatesRoundTrip)
{
    for (DWORD rate : {8000u, 22050u, 44100u, 48000u, 96000u, 11025u, 1u}) {
        WORD e = 0, m[4] = {};
        aiff_CreateRate(rate, &e, m);
        EXPECT_EQ(rate, aiff_ConvertRate(e, m)) << rate;
    }
    WORD e = 0, m[4] = {};
    aiff_CreateRate(44100, &e, m);
    EXPECT_EQ(0x400E, e);
    EXPECT_EQ(0xAC44, m[0]);
    EXPECT_EQ(44100u, aiff_ConvertRate(0x8000 | 0x4010, m)); // sign bit set
    // A huge exponent stops doubling above 96 kHz instead of overflowing.
    DWORD big = aiff_ConvertRate(0x7FFF, m);
    EXPECT_GT(big, 96000u);
    EXPECT_LE(big, 192000u);
}

TEST(Iff, FormatsFramesAndDataOffsets)
{
    Bytes audio = Filled(4 * 10);
    TestFile f(Aiff("AIFF", 2, 10, 16, 48000, nullptr, 4, audio));
    WAVEFORMATEX wfx = {};
    DWORD frames = 0, offset = 0, size = 0;
    EXPECT_TRUE(iff_IsAIFFFile(f.h(), &size));
    ASSERT_EQ(S_OK, iff_GetAIFFWfx(f.h(), &wfx, &frames, &offset));
    EXPECT_EQ(ZV_WAVE_FORMAT_BIGENDIAN, wfx.wFormatTag);
    EXPECT_EQ(2, wfx.nChannels);
    EXPECT_EQ(48000u, wfx.nSamplesPerSec);
    EXPECT_EQ(4, wfx.nBlockAlign);
    EXPECT_EQ(192000u, wfx.nAvgBytesPerSec);
    EXPECT_EQ(10u, frames);
    // COMM at 12 (8 + 18), SSND header at 38, offset and block size, then 4.
    EXPECT_EQ(38u + 8 + 8 + 4, offset);
    Bytes b = f.bytes();
    EXPECT_EQ(0, memcmp(b.data() + offset, audio.data(), audio.size()));

    // AIFC: sowt is little-endian PCM, NONE is big-endian, others are not AIFF.
    f.rewrite(Aiff("AIFC", 1, 99, 24, 44100, "sowt", 0, Filled(9)));
    BOOL aifc = FALSE, little = FALSE;
    EXPECT_TRUE(iff_IsAIFFFileEx(f.h(), &size, &aifc, &little));
    EXPECT_TRUE(aifc);
    EXPECT_TRUE(little);
    ASSERT_EQ(S_OK, iff_GetAIFFWfx(f.h(), &wfx, &frames, &offset));
    EXPECT_EQ(WAVE_FORMAT_PCM, wfx.wFormatTag);
    EXPECT_EQ(3u, frames); // fewer bytes than COMM claims
    f.rewrite(Aiff("AIFC", 1, 3, 8, 44100, "NONE", 0, Filled(3)));
    ASSERT_EQ(S_OK, iff_GetAIFFWfx(f.h(), &wfx, &frames, &offset));
    EXPECT_EQ(ZV_WAVE_FORMAT_SIGNED, wfx.wFormatTag);
    f.rewrite(Aiff("AIFC", 1, 3, 16, 44100, "ulaw", 0, Filled(6)));
    EXPECT_FALSE(iff_IsAIFFFileEx(f.h(), &size, &aifc, &little));
    EXPECT_EQ(ZVERR_MALFORMED, iff_GetAIFFWfx(f.h(), &wfx, &frames, &offset));
    f.rewrite(Riff("WAVE", {}));
    EXPECT_FALSE(iff_IsAIFFFile(f.h(), &size));
    tZVIFFCHUNKHDR hdr;
    EXPECT_EQ(ZVERR_NO_RIFF_HEADER, iff_FindChunkFromStart(f.h(), ZVIFF_COMM, &size));
    f.seek(0);
    EXPECT_EQ(ZVERR_MALFORMED, iff_ReadFormType(f.h(), &hdr, &size));
}

TEST(Iff, MarkersAndChunkDeletion)
{
    Bytes img = Aiff("AIFF", 1, 4, 16, 44100, nullptr, 0, Filled(8), true);
    TestFile f(img);
    tZVIFFMARKER m = {};
    ASSERT_EQ(S_OK, iff_FindMarker(f.h(), &m, 7));
    EXPECT_EQ(7, m.id);
    EXPECT_EQ(555u, m.position);
    EXPECT_EQ(3, m.nameLength);
    EXPECT_EQ(ZVERR_NOT_FOUND, iff_FindMarker(f.h(), &m, 2));

    DWORD removed = 0;
    ASSERT_EQ(S_OK, iff_DeleteChunk(f.h(), ZVIFF_MARK, &removed));
    EXPECT_EQ(8u + 22, removed);
    Bytes b = f.bytes();
    ASSERT_EQ(img.size() - removed, b.size());
    EXPECT_TRUE(std::equal(b.begin() + 12, b.end(), img.begin() + 12 + removed));
    EXPECT_EQ(Aiff("AIFF", 1, 4, 16, 44100, nullptr, 0, Filled(8)), b);
    EXPECT_EQ(ZVERR_NOT_FOUND, iff_FindMarker(f.h(), &m, 7));
    EXPECT_EQ(ZVERR_NOT_FOUND, iff_DeleteChunk(f.h(), ZVIFF_MARK, &removed));

    // Big-endian primitives and swaps.
    f.rewrite({});
    ASSERT_EQ(S_OK, iff_WriteFileID(f.h(), ZVIFF_AIFF, 4));
    tZVIFFCHUNKHDR hdr = {ZVIFF_COMM, 0x01020304};
    ASSERT_EQ(S_OK, iff_WriteChunk(f.h(), &hdr));
    ASSERT_EQ(S_OK, iff_WriteWORD(f.h(), 0xA1B2));
    b = f.bytes();
    EXPECT_EQ(0, memcmp(b.data(), "FORM\0\0\0\4AIFFCOMM\1\2\3\4\xA1\xB2", 22));
    f.seek(12);
    tZVIFFCHUNKHDR back = {};
    ASSERT_EQ(S_OK, iff_ReadChunkHdr(f.h(), &back));
    EXPECT_EQ(ZVIFF_COMM, back.id);
    EXPECT_EQ(0x01020304u, back.size);
    WORD w = 0;
    ASSERT_EQ(S_OK, iff_ReadWORD(f.h(), &w));
    EXPECT_EQ(0xA1B2, w);
    DWORD d = 0;
    EXPECT_EQ(ZVERR_FILE_READ, iff_ReadDWORD(f.h(), &d));
    DWORD v[2] = {0x11223344, 0xAABBCCDD};
    iff_ByteSwap32(v, 2);
    EXPECT_EQ(0x44332211u, v[0]);
    EXPECT_EQ(0xDDCCBBAAu, v[1]);
    WORD s[1] = {0x1234};
    iff_ByteSwap16(s, 0);
    EXPECT_EQ(0x1234, s[0]);
    aiff_WriteByteSwap16(s, 1);
    EXPECT_EQ(0x3412, s[0]);
}
