// bext and iXML chunks at chunk level: in-place updates, JUNK and append,
// deletes, the size limit; and a file for the outside tools to read back.
#include "mediatest.h"
#include "media/bwf.h"
#include "media/riff.h"

using namespace mediatest;

namespace {

Bytes Fmt16(unsigned channels, unsigned rate, unsigned bits)
{
    Bytes f;
    Le16(f, 1);
    Le16(f, channels);
    Le32(f, rate);
    Le32(f, rate * channels * bits / 8);
    Le16(f, channels * bits / 8);
    Le16(f, bits);
    return f;
}

Bytes Text(const char *s)
{
    return Bytes(s, s + strlen(s));
}

// The body of the first chunk id, or empty; at returns where the body starts.
Bytes Body(const Bytes &f, const char *id, size_t *at = nullptr)
{
    for (size_t o = 12; o + 8 <= f.size();) {
        unsigned size = GetLe32(f, o + 4);
        if (!memcmp(&f[o], id, 4)) {
            if (at)
                *at = o + 8;
            return Bytes(f.begin() + (long)o + 8, f.begin() + (long)std::min(f.size(), o + 8 + size));
        }
        o += 8 + size + (size & 1);
    }
    return {};
}

// A bext body: description, originator, reference, date, time, time
// reference, version 1, then a coding history.
Bytes Bext(const char *description, const char *originator, unsigned long long timeReference, const char *history)
{
    Bytes b(602, 0);
    memcpy(&b[0], description, strlen(description));
    memcpy(&b[256], originator, strlen(originator));
    memcpy(&b[288], "ZV0000000001", 12);
    memcpy(&b[320], "2026-11-25", 10);
    memcpy(&b[330], "01:02:03", 8);
    for (int i = 0; i < 8; i++)
        b[338 + i] = (BYTE)(timeReference >> (8 * i));
    b[346] = 1;
    Put(b, history, strlen(history));
    return b;
}

} // namespace

TEST(BwfChunks, UpdateInPlaceJunkAndAppend)
{
    const Bytes audio = Filled(1000, 3);
    Bytes img = Riff("WAVE", Cat({Chunk("fmt ", Fmt16(2, 48000, 16)), Chunk("iXML", Text("<BWFXML>old old old</BWFXML>")),
                                  Chunk("data", audio)}));
    TestFile t(img, L"bwf.wav");
    DWORD written = 99;
    // Shorter: in place, the tail zeroed, nothing else moves.
    const char *shorter = "<BWFXML/>";
    ASSERT_EQ(S_OK, bwfriff_UpdateStreamChunk(BWF_CHUNK_IXML, t.h(), shorter, (DWORD)strlen(shorter), &written));
    EXPECT_EQ(0u, written);
    Bytes now = FileBytes(t.path());
    ASSERT_EQ(img.size(), now.size());
    Bytes x = Body(now, "iXML");
    Bytes expect = Text(shorter);
    expect.resize(x.size(), 0);
    EXPECT_EQ(expect, x);
    EXPECT_EQ(audio, Body(now, "data"));

    // Larger, odd sized: the old chunk turns to JUNK, the new one is appended
    // with an even size and a zero pad, the RIFF size grows by written.
    const char *larger = "<BWFXML><PROJECT>Night Shoot</PROJECT><SCENE>12A</SCENE></BWFXML>";
    DWORD n = (DWORD)strlen(larger);
    ASSERT_EQ(1u, n & 1);
    ASSERT_EQ(S_OK, bwfriff_UpdateStreamChunk(BWF_CHUNK_IXML, t.h(), larger, n, &written));
    EXPECT_EQ(8 + n + 1, written);
    now = FileBytes(t.path());
    ASSERT_EQ(img.size() + written, now.size());
    EXPECT_EQ(now.size() - 8, GetLe32(now, 4));
    EXPECT_EQ(expect.size(), Body(now, "JUNK").size());
    size_t at = 0;
    x = Body(now, "iXML", &at);
    EXPECT_EQ(img.size() + 8, at);
    ASSERT_EQ(n + 1, x.size());
    EXPECT_EQ(0, memcmp(x.data(), larger, n));
    EXPECT_EQ(0, x[n]);
    EXPECT_EQ(audio, Body(now, "data"));

    // Missing: appended. Then deletes add their sizes to the caller's count.
    ASSERT_EQ(S_OK, bwfriff_UpdateStreamChunk(BWF_CHUNK_BEXT, t.h(), "abcd", 4, &written));
    EXPECT_EQ(12u, written);
    EXPECT_EQ(Text("abcd"), Body(FileBytes(t.path()), "bext"));
    DWORD removed = 5;
    EXPECT_EQ(S_OK, bwfriff_DeleteAllChunks(t.h(), &removed));
    EXPECT_EQ(5u + 12 + (8 + n + 1), removed); // both, added to what was there
    now = FileBytes(t.path());
    EXPECT_TRUE(Body(now, "bext").empty());
    EXPECT_TRUE(Body(now, "iXML").empty());
    EXPECT_EQ(audio, Body(now, "data"));
    EXPECT_EQ(now.size() - 8, GetLe32(now, 4));
    removed = 0;
    EXPECT_EQ(S_OK, bwfriff_DeleteChunk(BWF_CHUNK_BEXT, t.h(), &removed)); // missing: no fault
    EXPECT_EQ(0u, removed);
    EXPECT_EQ(S_OK, bwfriff_DeleteChunk(2, t.h(), &removed));
    EXPECT_EQ(E_INVALIDARG, bwfriff_UpdateStreamChunk(2, t.h(), "a", 1, &written));
}

TEST(BwfChunks, SizeLimitLeavesTheFileAsItWas)
{
    Bytes img = Riff("WAVE", Cat({Chunk("fmt ", Fmt16(1, 8000, 8)), Chunk("iXML", Text("<a/>")), Chunk("data", Filled(10))}));
    img[4] = 0xF0, img[5] = 0xFF, img[6] = 0xFF, img[7] = 0xFF; // a RIFF size near the limit
    TestFile t(img, L"limit.wav");
    DWORD written = 0;
    EXPECT_EQ(ZVERR_SIZE_LIMIT, bwfriff_UpdateStreamChunk(BWF_CHUNK_IXML, t.h(), "<BWFXML></BWFXML>", 17, &written));
    EXPECT_EQ(img, FileBytes(t.path()));
    // Without a fmt chunk there is nothing to describe.
    TestFile bare(Riff("WAVE", Chunk("data", Filled(10))), L"bare.wav");
    EXPECT_EQ(ZVERR_NOT_FOUND, bwfriff_UpdateStreamChunk(BWF_CHUNK_BEXT, bare.h(), "x", 1, &written));
}

// A sox-made wave gets a bext and an iXML (grown once, so also a JUNK);
// sndfile-info, sndfile-cmp and xmllint read it back after the run.
TEST(BwfChunks, WritesAFileForTheOutsideTools)
{
    NEED_FIXTURES();
    std::wstring path = OutDir() + L"bwf.wav";
    ASSERT_TRUE(CopyFileW((FixtureDir() + L"tone16.wav").c_str(), path.c_str(), FALSE));
    HANDLE h = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, h);
    Bytes bext = Bext("Scene 12 take 3", "zvtest", 123456789ull, "A=PCM,F=44100,W=16,M=stereo,T=zvtest,\r\n");
    DWORD written = 0;
    EXPECT_EQ(S_OK, bwfriff_UpdateStreamChunk(BWF_CHUNK_BEXT, h, bext.data(), (DWORD)bext.size(), &written));
    const char *small = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<BWFXML><SCENE>1</SCENE></BWFXML>";
    const char *big = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<BWFXML><IXML_VERSION>1.61</IXML_VERSION>"
                      "<SCENE>12A</SCENE><TAKE>3</TAKE><NOTE>Plane &amp; wind</NOTE></BWFXML>";
    EXPECT_EQ(S_OK, bwfriff_UpdateStreamChunk(BWF_CHUNK_IXML, h, small, (DWORD)strlen(small), &written));
    EXPECT_EQ(S_OK, bwfriff_UpdateStreamChunk(BWF_CHUNK_IXML, h, big, (DWORD)strlen(big), &written));
    DWORD rate = 0, bits = 0, channels = 0;
    EXPECT_EQ(S_OK, ReadFilePropsFromFormatChunk(h, &rate, &bits, &channels));
    CloseHandle(h);

    // The same fields through the record and its writers.
    std::wstring second = OutDir() + L"bwf_record.wav";
    ASSERT_TRUE(CopyFileW((FixtureDir() + L"tone16.wav").c_str(), second.c_str(), FALSE));
    h = CreateFileW(second.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, h);
    _tagZVBWF_Chunk r = {};
    ASSERT_EQ(S_OK, ExtractIxmlContent(big, (DWORD)strlen(big), &r));
    ZvBWF_SetValue(&r, ZVBWF_DESCRIPTION, L"Scene 12 take 3");
    ZvBWF_SetValue(&r, ZVBWF_ORIGINATOR, L"zvtest");
    ZvBWF_SetValue(&r, ZVBWF_ORIGINATOR_REFERENCE, L"ZV0000000001");
    ZvBWF_SetValue(&r, ZVBWF_ORIGINATION_DATE, L"2026-11-25");
    ZvBWF_SetValue(&r, ZVBWF_ORIGINATION_TIME, L"01:02:03");
    ZvBWF_SetValue(&r, ZVBWF_TIME_REFERENCE_LOW, L"123456789");
    ZvBWF_SetValue(&r, ZVBWF_CODING_HISTORY, L"A=PCM,F=44100,W=16,M=stereo,T=zvtest,\r\n");
    EXPECT_EQ(S_OK, bwfriff_SaveBext(h, &r));
    EXPECT_EQ(S_OK, BuildAndWriteRawIxmlChunk(h, &r, FALSE));
    ZvBWF_Clear(&r);
    EXPECT_EQ(44100u, rate);
    EXPECT_EQ(16u, bits);
    EXPECT_EQ(2u, channels);
    CloseHandle(h);
}

namespace {

struct Record : _tagZVBWF_Chunk {
    Record() { memset((_tagZVBWF_Chunk *)this, 0, sizeof(_tagZVBWF_Chunk)); }
    ~Record() { ZvBWF_Clear(this); }
    std::wstring at(int i) const { return values[i] ? values[i] : L"(unset)"; }
};

const char kIxmlDoc[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<BWFXML><IXML_VERSION>1.61</IXML_VERSION>"
    "<PROJECT>R&amp;D</PROJECT><SCENE>12A</SCENE><MYTAG>kept</MYTAG>"
    "<SPEED><TIMECODE_RATE>25/1</TIMECODE_RATE><TIMECODE_FLAG>NDF</TIMECODE_FLAG></SPEED>"
    "<TRACK_LIST><TRACK_COUNT>2</TRACK_COUNT><TRACK><CHANNEL_INDEX>1</CHANNEL_INDEX><NAME>Boom</NAME></TRACK>"
    "</TRACK_LIST></BWFXML>";

} // namespace

TEST(BwfRecord, LoadsBextAndIxmlWithBothViewsInStep)
{
    Bytes bext = Bext("Scene 12 take 3", "zvtest", 0x100000005ull, "A=PCM,F=48000,W=24,T=zv,\r\n");
    Bytes img = Riff("WAVE", Cat({Chunk("fmt ", Fmt16(2, 48000, 16)), Chunk("bext", bext),
                                  Chunk("iXML", Text(kIxmlDoc)), Chunk("data", Filled(64))}));
    TestFile t(img, L"load.wav");
    Record r;
    BOOL found = FALSE;
    ASSERT_EQ(S_OK, bwfriff_LoadInfo(t.h(), &r, &found));
    EXPECT_TRUE(found);
    EXPECT_EQ(1u, r.filled);
    EXPECT_EQ(L"Scene 12 take 3", r.at(ZVBWF_DESCRIPTION));
    EXPECT_EQ(L"Scene 12 take 3", r.at(ZVIXML_BEXT_DESCRIPTION));
    EXPECT_EQ(L"ZV0000000001", r.at(ZVBWF_ORIGINATOR_REFERENCE));
    EXPECT_EQ(L"2026-11-25", r.at(ZVBWF_ORIGINATION_DATE));
    EXPECT_EQ(L"01:02:03", r.at(ZVBWF_ORIGINATION_TIME));
    EXPECT_EQ(L"5", r.at(ZVBWF_TIME_REFERENCE_LOW));
    EXPECT_EQ(L"1", r.at(ZVBWF_TIME_REFERENCE_HIGH));
    EXPECT_EQ(L"1.00", r.at(ZVBWF_VERSION));
    EXPECT_EQ(L"A=PCM,F=48000,W=24,T=zv,\r\n", r.at(ZVBWF_CODING_HISTORY));
    EXPECT_STREQ(r.values[ZVBWF_CODING_HISTORY], r.codingHistory);
    EXPECT_EQ(L"R&D", r.at(ZVIXML_PROJECT)); // escapes removed
    EXPECT_EQ(L"12A", r.at(ZVIXML_SCENE));
    EXPECT_EQ(L"25/1", r.at(36));
    EXPECT_EQ(L"2", r.at(65));
    EXPECT_EQ(L"Boom", r.at(69));

    // One view set, the other follows; cleared together.
    ASSERT_EQ(S_OK, ZvBWF_SetValue(&r, ZVIXML_BEXT_DESCRIPTION, L"new"));
    EXPECT_EQ(L"new", r.at(ZVBWF_DESCRIPTION));
    ASSERT_EQ(S_OK, ZvBWF_SetValue(&r, ZVBWF_DESCRIPTION, nullptr));
    EXPECT_EQ(nullptr, r.values[ZVIXML_BEXT_DESCRIPTION]);
    EXPECT_EQ(E_INVALIDARG, ZvBWF_SetValue(&r, 81, L"x"));

    // BEXT in capitals stands in; a file with neither chunk is no fault.
    Bytes upper = img;
    memcpy(&upper[12 + 8 + 16], "BEXT", 4);
    TestFile u(upper, L"upper.wav");
    Record r2;
    ASSERT_EQ(S_OK, bwfriff_LoadInfo(u.h(), &r2, &found));
    EXPECT_EQ(L"zvtest", r2.at(ZVBWF_ORIGINATOR));
    TestFile none(Riff("WAVE", Cat({Chunk("fmt ", Fmt16(1, 8000, 8)), Chunk("data", Filled(8))})), L"none.wav");
    Record r3;
    EXPECT_EQ(S_OK, bwfriff_LoadInfo(none.h(), &r3, &found));
    EXPECT_FALSE(found);
    EXPECT_EQ(0u, r3.filled);
    // XML without a root fails, the bext values stay.
    Record r4;
    EXPECT_EQ(E_FAIL, ExtractIxmlContent("just text", 9, &r4));
}

TEST(BwfRecord, ElementTable)
{
    int count = 0;
    const _tagIxml_Info *t = GetTblIxmlInfo(&count);
    EXPECT_EQ(66, count);
    EXPECT_STREQ(L"BWFXML", t[0].name);
    EXPECT_EQ(80, t[64].index);
    EXPECT_EQ(nullptr, GetIxmlInfoIndexForMetaIdxGlobal(nullptr, 81));
    EXPECT_EQ(nullptr, GetIxmlInfoIndexForMetaIdxGlobal(nullptr, 15));
    const _tagIxml_Info *row = GetIxmlInfoIndexForMetaIdxGlobal(nullptr, 23);
    ASSERT_NE(nullptr, row);
    EXPECT_STREQ(L"NO_GOOD", row->name);
    EXPECT_EQ(1u | (52u << 16), row->version);
    EXPECT_TRUE(IsKnownIxmlNodeGlobal(L"sync_point_low"));
    int n = 0;
    const _tagIxml_Value *f = GetTblIxmlTrackFuncts(&n);
    EXPECT_EQ(48, n);
    EXPECT_EQ(-1, f[47].value);
    EXPECT_STREQ(L"Invalid IXML Value", f[47].text);
    EXPECT_EQ(46, ZvBWF_ValueOfText(f, L"VIDEO"));
    EXPECT_EQ(1, ZvBWF_ValueOfText(GetTblIxmlSpeedTimeCode(nullptr), L"Drop Frame"));
    EXPECT_EQ(0, ZvBWF_ValueOfText(GetTblIxmlSpeedTimeCode(nullptr), L"Non-Drop Frame"));

    // Table values read in the table's spelling; unknown ones as -1.
    const char *doc = "<BWFXML><CIRCLED>true</CIRCLED><SPEED><TIMECODE_FLAG>Non Drop Frame</TIMECODE_FLAG>"
                      "</SPEED><TRACK_LIST><TRACK><FUNCTION>BOGUS</FUNCTION></TRACK></TRACK_LIST></BWFXML>";
    Record r;
    ASSERT_EQ(S_OK, ExtractIxmlContent(doc, (DWORD)strlen(doc), &r));
    EXPECT_EQ(L"TRUE", r.at(22));
    EXPECT_EQ(L"NDF", r.at(35));
    EXPECT_EQ(L"-1", r.at(70));
    EXPECT_FALSE(IsKnownIxmlNodeGlobal(L"MYTAG"));
}

TEST(BwfRecord, ReadsWhatSndfileMetadataSetWrote)
{
    NEED_FIXTURES();
    HANDLE h = CreateFileW((FixtureDir() + L"meta_set.wav").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                           OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, h);
    Record r;
    BOOL found = FALSE;
    EXPECT_EQ(S_OK, bwfriff_LoadInfo(h, &r, &found));
    CloseHandle(h);
    EXPECT_TRUE(found);
    EXPECT_EQ(L"Interview, take 2", r.at(ZVBWF_DESCRIPTION));
    EXPECT_EQ(L"Field rec", r.at(ZVBWF_ORIGINATOR));
    EXPECT_EQ(L"REF-77", r.at(ZVBWF_ORIGINATOR_REFERENCE));
    EXPECT_EQ(L"2025-03-04", r.at(ZVBWF_ORIGINATION_DATE));
    EXPECT_EQ(L"10:20:30", r.at(ZVBWF_ORIGINATION_TIME));
    EXPECT_EQ(L"987654321", r.at(ZVBWF_TIME_REFERENCE_LOW));
    EXPECT_EQ(L"0", r.at(ZVBWF_TIME_REFERENCE_HIGH));
    EXPECT_EQ(0u, r.at(ZVBWF_CODING_HISTORY).find(L"A=PCM,F=44100,W=16,M=stereo,T=field,"));
}

// iXML is UTF-8 unless a mark says UTF-16: all three forms give one text,
// and the writer's UTF-8 reads back the same.
TEST(BwfRecord, IxmlEncodingsGiveTheSameText)
{
    NEED_FIXTURES();
    const std::wstring scene = L"Sz\u00e8ne \u00c4\u00f8 \u2013 \u65e5\u672c";
    for (const wchar_t *name : {L"ixml_utf8.wav", L"ixml_utf8bom.wav", L"ixml_utf16.wav"}) {
        HANDLE h = CreateFileW((FixtureDir() + name).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                               OPEN_EXISTING, 0, nullptr);
        ASSERT_NE(INVALID_HANDLE_VALUE, h) << name;
        Record r;
        BOOL found = FALSE;
        EXPECT_EQ(S_OK, bwfriff_LoadInfo(h, &r, &found)) << name;
        EXPECT_EQ(scene, r.at(ZVIXML_SCENE)) << name;
        EXPECT_EQ(L"7", r.at(ZVIXML_TAKE)) << name;
        CloseHandle(h);
    }
    Record r;
    ASSERT_EQ(S_OK, ZvBWF_SetValue(&r, ZVIXML_SCENE, scene.c_str()));
    DWORD size = 0;
    ASSERT_EQ(S_OK, BuildRawBwfIxmlChunkGlobal(&r, nullptr, &size, 16, 79, 0));
    Bytes x(size);
    ASSERT_EQ(S_OK, BuildRawBwfIxmlChunkGlobal(&r, x.data(), &size, 16, 79, 0));
    EXPECT_NE(std::string::npos, std::string(x.begin(), x.end()).find("Sz\xc3\xa8ne \xc3\x84\xc3\xb8 \xe2\x80\x93"));
    Record back;
    ASSERT_EQ(S_OK, ExtractIxmlContent(x.data(), size, &back));
    EXPECT_EQ(scene, back.at(ZVIXML_SCENE));
    // Bytes that are no UTF-8 stay in the ANSI code page, as older files have them.
    const char latin[] = "<BWFXML><SCENE>caf\xe9</SCENE></BWFXML>";
    Record old;
    ASSERT_EQ(S_OK, ExtractIxmlContent(latin, (DWORD)strlen(latin), &old));
    EXPECT_EQ(4u, old.at(ZVIXML_SCENE).size());
}

// Mutated bext and iXML chunks through the reader: codes of the tables only,
// nothing left allocated.
TEST(BwfRecord, MutatedChunks)
{
    Bytes bext = Bext("Scene", "zv", 77, "A=PCM,F=48000,W=24,T=zv,\r\n");
    const Bytes base = Riff("WAVE", Cat({Chunk("fmt ", Fmt16(2, 48000, 16)), Chunk("bext", bext),
                                         Chunk("iXML", Text(kIxmlDoc)), Chunk("data", Filled(64))}));
    const size_t sizeWords[] = {4, 16, 40, 40 + 8 + bext.size() + 4};
    TestFile t(base, L"fuzz.wav");
    unsigned long long s = 77;
    auto next = [&s](unsigned n) {
        s = s * 6364136223846793005ull + 1442695040888963407ull;
        return n ? (unsigned)(s >> 33) % n : 0u;
    };
    long long heapBefore = 0;
    for (int variant = 0; variant < 5200; variant++) {
        if (variant == 200)
            heapBefore = HeapBusyBlocks();
        Bytes b = base;
        switch (next(3)) {
        case 0:
            for (unsigned k = 0, n = 1 + next(8); k < n; k++)
                b[next((unsigned)b.size())] ^= (BYTE)(1u << next(8));
            break;
        case 1:
            b.resize(next((unsigned)b.size()));
            break;
        default: {
            static const DWORD bad[] = {0, 1, 3, 347, 601, 603, 0x7FFFFFFF, 0xFFFFFFFF, 0xFFFFFFF0};
            size_t at = sizeWords[next(4)];
            DWORD v = bad[next(9)];
            if (at + 4 <= b.size())
                memcpy(&b[at], &v, 4);
            break;
        }
        }
        t.rewrite(b);
        Record r;
        BOOL found = FALSE;
        HRESULT hr = bwfriff_LoadInfo(t.h(), &r, &found);
        EXPECT_TRUE(hr == S_OK || hr == E_FAIL || hr == ZVERR_MALFORMED || hr == ZVERR_FILE_READ ||
                    hr == ZVERR_NO_RIFF_HEADER || hr == ZVERR_NOT_FOUND || hr == ZVERR_WRONG_CHUNK_SIZE ||
                    hr == ZVERR_NEWER_FORMAT || hr == ZVERR_ZERO_CHUNK || hr == ZVERR_SIZE_LIMIT ||
                    hr == E_OUTOFMEMORY)
            << std::hex << hr << " variant " << std::dec << variant;
    }
    EXPECT_LE(HeapBusyBlocks(), heapBefore);
}

// Record to file and back: the bext fields and the known iXML values return
// as they were set, escapes and all; a shorter iXML is written in place.
TEST(BwfRecord, SavedRecordReadsBack)
{
    Record r;
    ASSERT_EQ(S_OK, ExtractIxmlContent(kIxmlDoc, (DWORD)strlen(kIxmlDoc), &r));
    ASSERT_EQ(S_OK, ZvBWF_SetValue(&r, ZVBWF_DESCRIPTION, L"Take <3> & more"));
    ASSERT_EQ(S_OK, ZvBWF_SetValue(&r, ZVBWF_ORIGINATOR, L"zvtest"));
    ASSERT_EQ(S_OK, ZvBWF_SetValue(&r, ZVBWF_TIME_REFERENCE_LOW, L"48000"));
    ASSERT_EQ(S_OK, ZvBWF_SetValue(&r, ZVBWF_CODING_HISTORY, L"A=PCM,F=48000,W=16,T=zv,\r\n"));
    ASSERT_EQ(S_OK, ZvBWF_SetValue(&r, ZVIXML_NOTE, L"a > b"));
    ASSERT_EQ(S_OK, ZvBWF_SetValue(&r, 23, L"TRUE")); // NO_GOOD, an iXML 1.52 element
    const Bytes audio = Filled(300, 9);
    TestFile t(Riff("WAVE", Cat({Chunk("fmt ", Fmt16(2, 48000, 16)), Chunk("data", audio)})), L"save.wav");
    ASSERT_EQ(S_OK, bwfriff_SaveBext(t.h(), &r));
    ASSERT_EQ(S_OK, BuildAndWriteRawIxmlChunk(t.h(), &r, FALSE));
    EXPECT_EQ(E_NOTIMPL, BuildAndWriteRawIxmlChunk(t.h(), &r, TRUE));
    Bytes img = FileBytes(t.path());
    EXPECT_EQ(audio, Body(img, "data"));
    Bytes x = Body(img, "iXML");
    std::string text(x.begin(), x.end());
    EXPECT_EQ(0u, text.find("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<BWFXML>"));
    EXPECT_NE(std::string::npos, text.find("<NOTE>a &gt; b</NOTE>"));
    EXPECT_NE(std::string::npos, text.find("<BWF_DESCRIPTION>Take &lt;3&gt; &amp; more</BWF_DESCRIPTION>"));
    EXPECT_NE(std::string::npos, text.find("<NO_GOOD>TRUE</NO_GOOD>")); // version 1.61 >= 1.52

    Record back;
    BOOL found = FALSE;
    ASSERT_EQ(S_OK, bwfriff_LoadInfo(t.h(), &back, &found));
    for (int i : {0, 1, 5, 10, 18, 19, 23, 28, 36, 53, 65, 69})
        EXPECT_EQ(r.at(i), back.at(i)) << "value " << i;

    // An older iXML version leaves out the newer elements, and the shorter
    // text goes in place.
    ASSERT_EQ(S_OK, ZvBWF_SetValue(&r, 17, L"1.40"));
    ASSERT_EQ(S_OK, BuildAndWriteRawIxmlChunk(t.h(), &r, FALSE));
    Bytes again = FileBytes(t.path());
    EXPECT_EQ(img.size(), again.size());
    x = Body(again, "iXML");
    EXPECT_EQ(std::string::npos, std::string(x.begin(), x.end()).find("NO_GOOD"));
    EXPECT_EQ(0, x.back()); // the tail zero-filled

    // Nothing to write: the chunk goes.
    Record empty;
    ASSERT_EQ(S_OK, BuildAndWriteRawIxmlChunk(t.h(), &empty, FALSE));
    EXPECT_TRUE(Body(FileBytes(t.path()), "iXML").empty());
    DWORD size = 5;
    BYTE small[5];
    EXPECT_EQ(ZVERR_BUFFER_TOO_SMALL, BuildRawBwfIxmlChunkGlobal(&r, small, &size, 16, 79, 0));
    EXPECT_GT(size, 5u);
}
