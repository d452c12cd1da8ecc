#include "mediatest.h"
#include "media/quickid.h"

using namespace mediatest;

namespace {

Bytes wave(unsigned tag, bool listFirst = false, bool scot = false)
{
    Bytes fmt;
    Le16(fmt, tag); Le16(fmt, 2); Le32(fmt, 48000); Le32(fmt, 192000);
    Le16(fmt, 4); Le16(fmt, 16);
    Bytes body;
    PutStr(body, "WAVE");
    if (listFirst) {
        PutStr(body, "LIST"); Le32(body, 5); PutStr(body, "INFOx"); body.push_back(0);   // odd size, padded
    }
    PutStr(body, "fmt "); Le32(body, (unsigned)fmt.size()); Put(body, fmt.data(), fmt.size());
    if (scot) {
        while (body.size() < 52) body.push_back(0);   // "scot" at file offset 60
        PutStr(body, "scot"); Le32(body, 16); body.resize(body.size() + 16);
    }
    PutStr(body, "data"); Le32(body, 8); body.resize(body.size() + 8);
    Bytes file;
    PutStr(file, "RIFF"); Le32(file, (unsigned)body.size()); Put(file, body.data(), body.size());
    return file;
}

DWORD idBuffer(const Bytes &b, DWORD flags = 0)
{
    ZVFILEID_IDENTIFIED_TYPE t = 99;
    ZvIsQuicklyIdentifiableMediaFileFormat(b.data(), (DWORD)b.size(), flags, &t);
    return t;
}

DWORD idNamed(const Bytes &b, const wchar_t *path, DWORD flags = 0)
{
    ZVFILEIDINFO info = {flags, INVALID_HANDLE_VALUE, path, b.data(), (DWORD)b.size(), nullptr, 0};
    BOOL found;
    EXPECT_EQ(ZvIsQuicklyIdentifiableMediaFileFormat(&info, &found), S_OK);
    return info.identifiedType;
}

// MPEG audio frames of one layer (MPEG-1, 128 kbit/s, 44.1 kHz).
Bytes mpegFrames(int layer, size_t total)
{
    BYTE header[4] = {0xFF, (BYTE)(0xF8 | ((4 - layer) << 1) | 1), 0x90, 0x00};
    Bytes b;
    while (b.size() < total) {
        Put(b, header, 4);
        b.resize(b.size() + 413, 0x11);
    }
    b.resize(total);
    return b;
}

Bytes asf()
{
    static const BYTE guid[16] = {0x30, 0x26, 0xB2, 0x75, 0x8E, 0x66, 0xCF, 0x11,
                                  0xA6, 0xD9, 0x00, 0xAA, 0x00, 0x62, 0xCE, 0x6C};
    Bytes b;
    Put(b, guid, 16); Le32(b, 4000); Le32(b, 0); b.resize(64);
    return b;
}

// An MP4 with one video track (sample entry `video`) and optionally one
// sound track (sample entry `sound`, AAC when "mp4a").
Bytes mp4(const char *major, const char *video, const char *sound)
{
    Bytes ftyp;
    PutStr(ftyp, major); Be32(ftyp, 0); PutStr(ftyp, major); PutStr(ftyp, "isom");
    auto track = [](const char *handler, const char *entryName) {
        Bytes hdlr(8, 0);
        PutStr(hdlr, handler); hdlr.resize(hdlr.size() + 12);
        Bytes entry(8, 0);
        if (!strcmp(entryName, "mp4a")) {
            entry.resize(28);
            Bytes esds(4, 0);
            const BYTE es[] = {0x03, 25, 0, 1, 0, 0x04, 17, 0x40, 0x15, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x05, 2, 0x12, 0x10};
            Put(esds, es, sizeof es);
            Bytes e = Atom("esds", esds);
            Put(entry, e.data(), e.size());
        } else
            entry.resize(78);
        Bytes stsdBody(4, 0);
        Be32(stsdBody, 1);
        Bytes se = Atom(entryName, entry);
        Put(stsdBody, se.data(), se.size());
        return Atom("trak", Atom("mdia", Cat({Atom("hdlr", hdlr),
            Atom("minf", Atom("stbl", Atom("stsd", stsdBody)))})));
    };
    Bytes moovBody = Atom("mvhd", Bytes(100, 0));
    if (video) { Bytes t = track("vide", video); Put(moovBody, t.data(), t.size()); }
    if (sound) { Bytes t = track("soun", sound); Put(moovBody, t.data(), t.size()); }
    return Cat({Atom("ftyp", ftyp), Atom("moov", moovBody), Atom("mdat", Bytes(64, 0))});
}

} // namespace

TEST(QuickIdWave, FormatTagsAndChunkOrder)
{
    EXPECT_EQ(idBuffer(wave(1)), 0x2u);
    EXPECT_EQ(idBuffer(wave(0xFFFE)), 0x2u);
    EXPECT_EQ(idBuffer(wave(1, true)), 0x2u) << "fmt behind a LIST chunk";
    EXPECT_EQ(idBuffer(wave(0x1971)), 0x6u) << "tag 0x1971 is its own type, never 7";
    EXPECT_EQ(idBuffer(wave(0x1971, false, true)), 0x6u);
    EXPECT_EQ(idBuffer(wave(1, false, true)), 0x7u);
    EXPECT_EQ(idBuffer(wave(1, false, true), ZVFILEID_SCOTASWAVE), 0x2u);

    Bytes zeroSize = wave(1);
    memset(&zeroSize[4], 0, 4);
    EXPECT_EQ(idBuffer(zeroSize), ZVFILEID_UNKNOWN);
}

TEST(QuickIdAsf, ExtensionDecidesTheKind)
{
    Bytes b = asf();
    EXPECT_EQ(idNamed(b, L"C:\\media\\song.WMA"), 0x1005u);
    EXPECT_EQ(idNamed(b, L"clip.wmv"), 0x1004u);
    EXPECT_EQ(idNamed(b, L"rec.dvr-ms"), 0x1006u);
    EXPECT_EQ(idNamed(b, L"noext"), 0x1003u);
    EXPECT_EQ(idNamed(b, L"song.wma", ZVFILEID_NOEXTENSION), 0x1003u);
    b[16] = 0xFF; b[17] = 0xFF; b[18] = 0x3F;   // header size 0x3FFFFF: too large
    EXPECT_EQ(idNamed(b, L"song.wma"), ZVFILEID_UNKNOWN);
}

TEST(QuickIdMpegAudio, FrameScanNeedsEnoughBytesAndTheRightLayer)
{
    EXPECT_EQ(idBuffer(mpegFrames(3, 2047)), ZVFILEID_UNKNOWN) << "fewer than 2048 bytes is never MP3";
    EXPECT_EQ(idBuffer(mpegFrames(3, 4096)), 0x5u);
    EXPECT_EQ(idNamed(mpegFrames(3, 4096), L"a.mp3"), 0x5u);
    EXPECT_NE(idNamed(mpegFrames(3, 4096), L"a.ogg"), 0x5u) << "another extension rules MP3 out";
    EXPECT_EQ(idBuffer(mpegFrames(2, 4096)), 0x14u);
    EXPECT_EQ(idBuffer(mpegFrames(2, 2047)), ZVFILEID_UNKNOWN);

    // a layer-2 header met first stops the MP3 scan; the MP2 test then takes it
    Bytes mixed = mpegFrames(2, 1000);
    Bytes l3 = mpegFrames(3, 3000);
    Put(mixed, l3.data(), l3.size());
    EXPECT_EQ(idBuffer(mixed), 0x14u);

    // behind an ID3 tag, two consecutive frames are MPEG audio
    Bytes id3 = {'I', 'D', '3', 3, 0, 0, 0, 0, 0, 20};
    id3.resize(30, 0);
    Bytes frames = mpegFrames(3, 3000);
    Put(id3, frames.data(), frames.size());
    EXPECT_EQ(idBuffer(id3), 0x4u);
}

TEST(QuickIdQuickTime, BrawAndAtomNames)
{
    Bytes mov = Cat({Atom("mdat", Bytes(32, 0))});
    EXPECT_EQ(idNamed(mov, L"clip.mov"), 0x1009u);
    EXPECT_EQ(idNamed(mov, L"clip.braw"), 0x1021u);
    Bytes moov = Atom("moov", Atom("mvhd", Bytes(100, 0)));
    EXPECT_EQ(idBuffer(moov), 0x1009u);
}

TEST(QuickIdMp4, TracksDecideTheType)
{
    EXPECT_EQ(idBuffer(mp4("mp42", "avc1", "mp4a")), 0x1010u);
    EXPECT_EQ(idBuffer(mp4("mp42", "avc1", nullptr)), 0x1010u);
    EXPECT_EQ(idBuffer(mp4("mp42", "avc1", "sowt")), 0x1019u);
    EXPECT_EQ(idBuffer(mp4("M4A ", nullptr, "mp4a")), 0x16u);
    EXPECT_EQ(idBuffer(mp4("mp42", "hvc1", "mp4a")), 0x101Du);
    EXPECT_EQ(idBuffer(mp4("mp42", "av01", nullptr)), 0x101Fu);
    EXPECT_EQ(idBuffer(mp4("mp41", "xxxx", nullptr)), 0x1011u) << "a known brand alone";
}

TEST(QuickIdGroups, OnlySelectedGroupsAreTried)
{
    Bytes png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0, 0, 13};
    EXPECT_EQ(idBuffer(png), 0x2001u);
    EXPECT_EQ(idBuffer(png, ZVFILEID_GROUP_IMAGE), 0x2001u);
    EXPECT_EQ(idBuffer(png, ZVFILEID_GROUP_AUDIO | ZVFILEID_GROUP_VIDEO), ZVFILEID_UNKNOWN);
    EXPECT_EQ(idBuffer(wave(1), ZVFILEID_GROUP_IMAGE), ZVFILEID_UNKNOWN);
    Bytes ogg = {'O', 'g', 'g', 'S', 0, 2, 0, 0};
    EXPECT_EQ(idBuffer(ogg, ZVFILEID_GROUP_AUDIO), 0x8u);
}

TEST(QuickIdSources, FileStreamAndErrors)
{
    zvtest::TempDir dir;
    Bytes w = wave(1);
    std::wstring path = dir.file(L"take.wav");
    ASSERT_TRUE(zvtest::WriteFileBytes(path, w.data(), w.size()));
    ZVFILEID_IDENTIFIED_TYPE t = 0;
    EXPECT_TRUE(ZvIsQuicklyIdentifiableMediaFileFormat(path.c_str(), 0, &t));
    EXPECT_EQ(t, 0x2u);

    HANDLE h = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, NULL, OPEN_EXISTING, 0, NULL);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    SetFilePointer(h, 20, NULL, FILE_BEGIN);
    EXPECT_TRUE(ZvIsQuicklyIdentifiableMediaFileFormat(h, 0, &t)) << "reads from the start whatever the position";
    EXPECT_EQ(t, 0x2u);
    CloseHandle(h);

    IStream *stream = nullptr;
    ASSERT_EQ(CreateStreamOnHGlobal(NULL, TRUE, &stream), S_OK);
    stream->Write(w.data(), (ULONG)w.size(), NULL);
    LARGE_INTEGER pos;
    pos.QuadPart = 7;
    stream->Seek(pos, STREAM_SEEK_SET, NULL);
    EXPECT_TRUE(ZvIsQuicklyIdentifiableMediaFileFormat(stream, 0, &t));
    EXPECT_EQ(t, 0x2u);
    ULARGE_INTEGER now;
    LARGE_INTEGER zero = {};
    stream->Seek(zero, STREAM_SEEK_CUR, &now);
    EXPECT_EQ(now.QuadPart, 7u) << "the stream keeps its position";
    stream->Release();

    ZVFILEIDINFO missing = {0, INVALID_HANDLE_VALUE, L"C:\\no\\such\\file.wav", nullptr, 0, nullptr, 0};
    BOOL found = TRUE;
    EXPECT_EQ(ZvIsQuicklyIdentifiableMediaFileFormat(&missing, &found), HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND));
    EXPECT_FALSE(found);
    EXPECT_EQ(missing.identifiedType, ZVFILEID_NOTASKED);

    ZVFILEIDINFO nothing = {0, INVALID_HANDLE_VALUE, nullptr, nullptr, 0, nullptr, 0};
    EXPECT_EQ(ZvIsQuicklyIdentifiableMediaFileFormat(&nothing, &found), S_OK);
    EXPECT_EQ(nothing.identifiedType, ZVFILEID_NOTASKED);
    EXPECT_EQ(ZvIsQuicklyIdentifiableMediaFileFormat(nullptr, &found), E_POINTER);
    BYTE one = 0;
    EXPECT_FALSE(ZvIsQuicklyIdentifiableMediaFileFormat(&one, 0, 0, &t));
    EXPECT_EQ(t, ZVFILEID_UNKNOWN) << "an empty buffer was asked and matched nothing";
}

TEST(QuickIdAtoms, FindAtomWalksOnlyAtoms)
{
    zvtest::TempDir dir;
    Bytes file = mp4("mp42", "avc1", nullptr);
    std::wstring path = dir.file(L"a.mp4");
    ASSERT_TRUE(zvtest::WriteFileBytes(path, file.data(), file.size()));
    const char text[] = "This is a text file and not made of atoms at all.\r\n";
    std::wstring textPath = dir.file(L"a.txt");
    ASSERT_TRUE(zvtest::WriteFileBytes(textPath, text, sizeof text - 1));

    HANDLE h = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, NULL, OPEN_EXISTING, 0, NULL);
    ULONGLONG off = 0, size = 0;
    EXPECT_TRUE(ZvFindAtom(h, "moov", 0, file.size(), &off, &size));
    EXPECT_EQ(off, 24u);   // behind the 24-byte ftyp
    EXPECT_TRUE(ZvFindAtom(h, "mdat", 0, file.size(), &off, &size));
    EXPECT_EQ(off + size, (ULONGLONG)file.size());
    EXPECT_FALSE(ZvFindAtom(h, "free", 0, file.size(), &off, &size));
    EXPECT_FALSE(ZvFindAtom(h, "moov", 0, 0, &off, &size));
    EXPECT_EQ(FindMP4FileType(h, file.data(), (DWORD)file.size()), 0x1010u);
    CloseHandle(h);

    h = CreateFileW(textPath.c_str(), GENERIC_READ, FILE_SHARE_READ, NULL, OPEN_EXISTING, 0, NULL);
    EXPECT_FALSE(ZvFindAtom(h, "moov", 0, sizeof text - 1, &off, &size));
    CloseHandle(h);
}

TEST(QuickIdRobustness, RandomAndMutatedInputNeverCrash)
{
    unsigned seed = 12345;
    auto rnd = [&seed]() { seed = seed * 1103515245 + 12345; return (seed >> 16) & 0x7FFF; };
    std::vector<Bytes> bases = {wave(1), asf(), mp4("mp42", "avc1", "mp4a"), mpegFrames(3, 4096)};
    for (int i = 0; i < 3000; i++) {
        Bytes b = bases[i % bases.size()];
        int edits = 1 + rnd() % 8;
        for (int e = 0; e < edits; e++) {
            switch (rnd() % 3) {
            case 0: b[rnd() % b.size()] ^= (BYTE)(1 << (rnd() % 8)); break;
            case 1: b.resize(1 + rnd() % b.size()); break;
            default: {
                size_t at = rnd() % b.size();
                for (size_t k = at; k < at + 4 && k < b.size(); k++) b[k] = (rnd() & 1) ? 0xFF : 0x00;
            }
            }
        }
        DWORD t = idBuffer(b);
        EXPECT_NE(t, 0u);
        EXPECT_NE(t, 99u);
    }
}
