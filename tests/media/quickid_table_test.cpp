// Every row of the identification table from its own byte pattern, the rows
// whose order decides between two matches, and files made by sox.
#include "mediatest.h"
#include "media/quickid.h"

using namespace mediatest;

namespace {

Bytes B(std::initializer_list<int> bytes)
{
    Bytes b;
    for (int v : bytes)
        b.push_back((BYTE)v);
    return b;
}
// bytes, then filler up to `size`
Bytes Pad(Bytes b, size_t size, BYTE fill = 0x55)
{
    if (b.size() < size)
        b.resize(size, fill);
    return b;
}
Bytes Text(const char *s, size_t size = 64) { Bytes b; PutStr(b, s); return Pad(b, size); }
Bytes At(size_t offset, const char *s, size_t size = 64)
{
    Bytes b(offset, 0x55);
    PutStr(b, s);
    return Pad(b, size);
}

DWORD Identify(const Bytes &b, const wchar_t *path = nullptr, DWORD flags = 0)
{
    ZVFILEIDINFO info = {flags, INVALID_HANDLE_VALUE, path, b.data(), (DWORD)b.size(), nullptr, 0};
    BOOL found = FALSE;
    EXPECT_EQ(ZvIsQuicklyIdentifiableMediaFileFormat(&info, &found), S_OK);
    return info.identifiedType;
}

// An AC-3 sync frame: 48 kHz, frame size code 16, stream id 8.
Bytes Ac3Frame() { return Pad(B({0x0B, 0x77, 0x12, 0x34, 0x10, 0x40, 0xE1}), 64); }

Bytes Ftyp(const char *major, std::initializer_list<const char *> compatible)
{
    Bytes body;
    PutStr(body, major);
    Be32(body, 0);
    for (const char *c : compatible)
        PutStr(body, c);
    return Pad(Atom("ftyp", body), 64, 0);
}

// Transport packets: a program table (PID 0) naming the map at PID 0x1000
// and the map itself, or plain null packets; `lead` bytes before each.
Bytes Transport(bool programs, size_t lead, int count = 4)
{
    Bytes all;
    for (int i = 0; i < count; i++) {
        Bytes pk(lead, 0);
        if (programs && i == 0) {
            Put(pk, "\x47\x40\x00\x10\x00", 5);                        // PID 0, unit start, pointer 0
            Put(pk, "\x00\xB0\x0D\x00\x01\xC1\x00\x00", 8);            // table 0, length 13
            Put(pk, "\x00\x01\xF0\x00", 4);                            // program 1 at PID 0x1000
            Put(pk, "\xDE\xAD\xBE\xEF", 4);                            // CRC
        } else if (programs && i == 1) {
            Put(pk, "\x47\x50\x00\x10\x00", 5);                        // PID 0x1000
            Put(pk, "\x02\xB0\x12\x00\x01\xC1\x00\x00\xE1\x00\xF0\x00", 12);
        } else {
            Put(pk, "\x47\x1F\xFF\x10", 4);                            // null packets
        }
        pk.resize(lead + 188, 0xFF);
        Put(all, pk.data(), pk.size());
    }
    return all;
}

// A stream of 80-byte blocks with the section headers the test looks at.
Bytes BlockStream80()
{
    Bytes b(640, 0x11);
    auto set = [&b](size_t at, std::initializer_list<int> v) {
        for (int x : v)
            b[at++] = (BYTE)x;
    };
    set(0, {0x1F, 0x07, 0x00, 0x3F});
    set(80, {0x3F, 0x07, 0x00});
    set(160, {0x3F, 0x07, 0x01});
    set(240, {0x50, 0x07, 0x00});
    set(320, {0x51, 0x07, 0x01});
    set(400, {0x52, 0x07, 0x02});
    set(480, {0x70, 0x07, 0x00});
    set(560, {0x90, 0x07, 0x00});
    return b;
}

Bytes Wave64()
{
    Bytes b = B({0x72, 0x69, 0x66, 0x66, 0x2E, 0x91, 0xCF, 0x11, 0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00});
    Le64(b, 64);
    Put(b, "\x77\x61\x76\x65\xF3\xAC\xD3\x11\x8C\xD1\x00\xC0\x4F\x8E\xDB\x8A", 16);
    return Pad(b, 64, 0);
}

// Targa header: true colour, 24 bits, 640 x 480.
Bytes Targa(const char *start = "\0\0")
{
    Bytes b = Pad(Bytes(), 64, 0);
    b[0] = (BYTE)start[0];
    b[1] = (BYTE)start[1];
    b[2] = 2;
    b[12] = 0x80; b[13] = 0x02;
    b[14] = 0xE0; b[15] = 0x01;
    b[16] = 24;
    return b;
}

struct Case {
    DWORD type;
    const char *what;
    Bytes bytes;
    const wchar_t *path;
};

} // namespace

TEST(QuickIdTable, EveryRowFromItsPattern)
{
    Bytes id3Flac = B({'I', 'D', '3', 3, 0, 0, 0, 0, 0, 6});
    id3Flac.resize(16, 0);
    PutStr(id3Flac, "fLaC");
    Bytes swappedAc3 = Ac3Frame();
    for (size_t i = 0; i < 8; i += 2)
        std::swap(swappedAc3[i], swappedAc3[i + 1]);
    Bytes headedAc3 = Cat({Pad(B({0x01, 0x00}), 16, 0), Ac3Frame()});
    Bytes ea3 = Pad(B({'e', 'a', '3', 3, 0, 0, 0, 0, 0, 0x10}), 26, 0);
    PutStr(ea3, "EA3");
    ea3 = Pad(ea3, 64, 0);
    Bytes mxfAfterRunIn = Cat({Bytes(300, 0x20), B({0x06, 0x0E, 0x2B, 0x34, 0x02, 0x05, 0x01, 0x01, 0x0D, 0x01,
                                                     0x02, 0x01, 0x01, 0x02, 0x04, 0x00})});
    Bytes skipAtom = Cat({B({0, 0, 0, 16}), Text("skip", 12), B({0, 0, 0, 8}), Text("moov", 4)});
    Bytes qtFtyp = Ftyp("qt  ", {"qt  "});

    const Case cases[] = {
        {0x9, "AC-3 sync frame", Ac3Frame(), nullptr},
        {0x9, "AC-3 byte-swapped", swappedAc3, L"x.ac3"},
        {0x9, "AC-3 behind a 16-byte header", headedAc3, nullptr},
        {0x2004, "GIF89a", Text("GIF89a"), nullptr},
        {0x2004, "GIF87a", Text("GIF87a"), nullptr},
        {0x2005, "TIFF little-endian", Pad(B({'I', 'I', '*', 0, 8, 0, 0, 0}), 64), nullptr},
        {0x2005, "TIFF big-endian", Pad(B({'M', 'M', 0, '*', 0, 0, 0, 8}), 64), nullptr},
        {0x2009, "II BC 01", Pad(B({0x49, 0x49, 0xBC, 0x01}), 64), nullptr},
        {0x2006, "Targa", Targa(), nullptr},
        {0xA, "AIFF", Cat({Text("FORM", 4), B({0, 0, 1, 0}), Text("AIFF", 56)}), nullptr},
        {0xA, "AIFC", Cat({Text("FORM", 4), B({0, 0, 1, 0}), Text("AIFC", 56)}), nullptr},
        {0x1000, "AVI", Cat({Text("RIFF", 4), B({0, 0, 1, 0}), Text("AVI LIST", 56)}), nullptr},
        {0x1013, "80-byte blocks", BlockStream80(), nullptr},
        {0x15, "ftyp with M4VH", Ftyp("mp42", {"isom", "M4VH"}), nullptr},
        {0x1017, "RED1", At(4, "RED1"), nullptr},
        {0x1017, "RED2", At(4, "RED2"), nullptr},
        {0x19, "DLS", Riff("DLS ", Bytes(40, 0)), nullptr},
        {0x19, "sfbk", Riff("sfbk", Bytes(40, 0)), nullptr},
        {0x101A, "transport 188 with programs", Transport(true, 0), nullptr},
        {0x101B, "transport 192 with programs", Transport(true, 4), nullptr},
        {0x1014, "transport sync only", Transport(false, 0), nullptr},
        {0x1014, "transport sync, 192 with time codes", Transport(false, 4), nullptr},
        {0x1002, "MPEG-2 pack", Pad(B({0, 0, 1, 0xBA, 0x44, 0, 4, 0, 4, 1}), 64, 0), nullptr},
        {0x1002, "MPEG-2 sequence with extension",
         Pad(B({0, 0, 1, 0xB3, 0x2D, 0x02, 0x40, 0x33, 0x24, 0x9F, 0x23, 0x81, 0, 0, 1, 0xB5, 0x14}), 64, 0), nullptr},
        {0x1001, "MPEG-1 pack", Pad(B({0, 0, 1, 0xBA, 0x21, 0, 1, 0, 1, 0x80}), 64, 0), nullptr},
        {0x1001, "MPEG-1 sequence", Pad(B({0, 0, 1, 0xB3, 0x16, 0x00, 0xF0, 0x13, 0xFF, 0xFF, 0xE0, 0x18}), 64, 0),
         nullptr},
        {0x17, "fLaC", Text("fLaC\0\0\0\x22", 64), nullptr},
        {0x17, "fLaC behind ID3", Pad(id3Flac, 64, 0), nullptr},
        {0x2007, "BMP", Pad(Text("BM", 2), 64, 0), nullptr},
        {0x2000, "JPEG", Pad(B({0xFF, 0xD8, 0xFF, 0xE0, 0, 0x10, 'J', 'F', 'I', 'F'}), 64, 0), nullptr},
        {0x2008, "SDPX", Text("SDPX"), nullptr},
        {0x2001, "PNG", Pad(B({0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'}), 64, 0), nullptr},
        {0x2002, "76 2F 31 01", Pad(B({0x76, 0x2F, 0x31, 0x01}), 64, 0), nullptr},
        {0x2003, "8BPS", Text("8BPS", 26), nullptr},
        {0x100A, "FWS", Text("FWS", 9), nullptr},
        {0x100B, "PAL", Text("PAL", 9), nullptr},
        {0x100B, "NTC in UTF-16", Pad(B({'N', 0, 'T', 0, 'C', 0}), 12, 0), nullptr},
        {0xF, "ZVA form", Riff("ZVA ", Chunk("fmt ", Fmt(1, 2, 44100, 16))), nullptr},
        {0x12, "CSW form", Riff("CSW ", Chunk("fmt ", Fmt(1, 2, 44100, 16))), nullptr},
        {0x3, "Wave64", Wave64(), nullptr},
        {0x1007, "TiVo", Text("TiVo"), nullptr},
        {0x11, "ea3 with its EA3 behind", ea3, nullptr},
        {0x11, "ea3 in a short buffer", Pad(B({'e', 'a', '3', 3, 0, 0, 0, 0, 0x7F, 0x7F}), 14, 0), nullptr},
        {0x18, "MS_VOICE", Text("MS_VOICE"), nullptr},
        {0x100F, "AAF", At(8, "AAF"), nullptr},
        {0x1012, "3GP brands", Ftyp("3gp4", {"isom", "3gp4"}), nullptr},
        {0x1012, "3G2 brands", Ftyp("3g2a", {"3g2a"}), nullptr},
        {0x1015, "extension .avc", Text("xxxx"), L"C:\\v\\clip.avc"},
        {0x1015, "extension .bsf", Text("xxxx"), L"clip.BSF"},
        {0x16, "extension .aac", Text("xxxx"), L"song.aac"},
        {0x100D, "MXF partition key", mxfAfterRunIn, nullptr},
        {0x100D, "extension .mxf", Text("xxxx"), L"clip.mxf"},
        {0x8, "OggS", Pad(B({'O', 'g', 'g', 'S', 0, 2}), 64, 0), nullptr},
        {0xB, "word pair 1, 5", Pad(B({0x01, 0x00, 0x05, 0x00}), 64, 0), nullptr},
        {0xB, "word pair FFFF, 19", Pad(B({0xFF, 0xFF, 19, 0x00}), 64, 0), nullptr},
        {0xC, ".snd", Text(".snd"), nullptr},
        {0xD, "word 14341", Pad(B({0x05, 0x38}), 64, 0), nullptr},
        {0x101E, "ftyp of the M4V family too short for brand lists",
         Pad(Cat({B({0, 0, 0, 12}), Text("ftypM4VP", 8)}), 64, 0), nullptr},
        {0x1009, "mdat", At(4, "mdat"), nullptr},
        {0x1009, "wide", At(4, "wide"), nullptr},
        {0x1009, "pnot", Pad(Cat({B({0, 0, 0, 20}), Text("pnot", 4), B({0, 0, 0, 0, 0, 0})}), 64, 0), nullptr},
        {0x1009, "moov with cmov", Cat({B({0, 0, 0, 64}), Text("moov", 4), B({0, 0, 0, 8}), Text("cmov", 52)}),
         nullptr},
        {0x1009, "ftyp qt", qtFtyp, nullptr},
        {0x1009, "free with mvhd", Cat({B({0, 0, 0, 8}), Text("free", 4), B({0, 0, 0, 8}), Text("mvhd", 52)}),
         nullptr},
        {0x1009, "skip then moov", Pad(skipAtom, 64, 0), nullptr},
        {0xE, "extension .vox", Text("xxxx"), L"a.vox"},
        {0x10, "extension .raw", Text("xxxx"), L"a.raw"},
        {0x1008, "extension .rm", Text("xxxx"), L"a.rm"},
        {0x1008, "extension .rmvb", Text("xxxx"), L"a.rmvb"},
        {0x101C, "Matroska", Pad(B({0x1A, 0x45, 0xDF, 0xA3, 0x9F, 0x42, 0x86, 0x81, 0x01}), 64, 0), nullptr},
    };
    for (const Case &c : cases)
        EXPECT_EQ(Identify(c.bytes, c.path), c.type) << c.what;
}

// Where two rows would match, the earlier one decides.
TEST(QuickIdTable, RowOrderDecidesBetweenMatches)
{
    // sync bytes at 0, 188 and 376 match the MPEG-2 row too; the transport
    // rows stand before it, and the program tables before the sync test
    EXPECT_EQ(Identify(Transport(false, 0)), 0x1014u);
    EXPECT_EQ(Identify(Transport(true, 0)), 0x101Au);
    // a Targa header whose first bytes read "BM"
    EXPECT_EQ(Identify(Targa("BM")), 0x2006u);
    // ID3 then fLaC is FLAC, never MPEG audio
    Bytes id3Flac = B({'I', 'D', '3', 3, 0, 0, 0, 0, 0, 6});
    id3Flac.resize(16, 0);
    PutStr(id3Flac, "fLaC");
    EXPECT_EQ(Identify(Pad(id3Flac, 64, 0)), 0x17u);
    // both the M4VH and a 3GP brand: the M4VH row is earlier
    EXPECT_EQ(Identify(Ftyp("3gp4", {"3gp4", "M4VH"})), 0x15u);
    // a 3GP brand under the major brand mp42 is not 3GP
    EXPECT_NE(Identify(Ftyp("mp42", {"3gp4"})), 0x1012u);
    // an M4V brand in a full ftyp is the MP4 inspection's before the M4V row
    EXPECT_EQ(Identify(Ftyp("M4VP", {"M4VP"})), 0x1011u);
    // ftyp qt: the MP4 inspection knows no such brand and QuickTime takes it
    EXPECT_EQ(Identify(Ftyp("qt  ", {"qt  "}), L"a.mov"), 0x1009u);
    // an extension row never beats an earlier content row
    EXPECT_EQ(Identify(Riff("WAVE", Chunk("fmt ", Fmt(1, 2, 44100, 16))), L"take.aac"), 0x2u);
    EXPECT_EQ(Identify(Text("fLaC\0\0\0\x22"), L"a.raw"), 0x17u);
    // a JPEG start also looks like an MPEG audio sync; JPEG is earlier
    Bytes jpeg = Pad(B({0xFF, 0xD8, 0xFF, 0xE0}), 4096, 0);
    for (size_t i = 64; i + 4 < jpeg.size(); i += 417) {
        jpeg[i] = 0xFF; jpeg[i + 1] = 0xFB; jpeg[i + 2] = 0x90;
    }
    EXPECT_EQ(Identify(jpeg), 0x2000u);
    // AC-3 takes ".ac3" or no extension; another one rules it out
    EXPECT_EQ(Identify(Ac3Frame(), L"a.ac3"), 0x9u);
    EXPECT_NE(Identify(Ac3Frame(), L"a.wav"), 0x9u);
    EXPECT_EQ(Identify(Ac3Frame(), L"a.wav", ZVFILEID_NOEXTENSION), 0x9u);
    // the compressed SWF start is compared and dropped on purpose
    EXPECT_EQ(Identify(Text("FWC", 9)), ZVFILEID_UNKNOWN);
    // an AVI form too small for a movie matches nothing
    EXPECT_EQ(Identify(Riff("AVI ", Bytes(40, 0))), ZVFILEID_UNKNOWN);
    // extensions are not consulted with the flag
    EXPECT_EQ(Identify(Text("xxxx"), L"a.vox", ZVFILEID_NOEXTENSION), ZVFILEID_UNKNOWN);
}

// One row in each group answers only when its group is asked.
TEST(QuickIdTable, GroupsSelectRowsByTypeRange)
{
    EXPECT_EQ(Identify(Transport(false, 0), nullptr, ZVFILEID_GROUP_VIDEO), 0x1014u);
    EXPECT_EQ(Identify(Transport(false, 0), nullptr, ZVFILEID_GROUP_AUDIO | ZVFILEID_GROUP_IMAGE), ZVFILEID_UNKNOWN);
    EXPECT_EQ(Identify(Text("GIF89a"), nullptr, ZVFILEID_GROUP_IMAGE), 0x2004u);
    EXPECT_EQ(Identify(Text("GIF89a"), nullptr, ZVFILEID_GROUP_VIDEO), ZVFILEID_UNKNOWN);
    EXPECT_EQ(Identify(Text("fLaC"), nullptr, ZVFILEID_GROUP_AUDIO), 0x17u);
}

// Files sox writes, identified by path.
TEST(QuickIdTable, FilesMadeBySox)
{
    NEED_FIXTURES();
    const struct {
        const wchar_t *name;
        DWORD type;
    } files[] = {
        {L"tone16.wav", 0x2}, {L"quickid\\tone16.w64", 0x3}, {L"quickid\\tone16.aiff", 0xA},
        {L"tone16.aifc", 0xA}, {L"quickid\\tone16.flac", 0x17}, {L"quickid\\tone16.au", 0xC},
        {L"quickid\\tone16.ogg", 0x8},
    };
    for (const auto &f : files) {
        ZVFILEID_IDENTIFIED_TYPE t = 0;
        std::wstring path = FixtureDir() + f.name;
        EXPECT_TRUE(ZvIsQuicklyIdentifiableMediaFileFormat(path.c_str(), 0, &t)) << std::string(path.begin(), path.end());
        EXPECT_EQ(t, f.type) << std::string(path.begin(), path.end());
    }
}
