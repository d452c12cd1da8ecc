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

static Bytes Counted(unsigned count, size_t entry, BYTE first)
{
    Bytes b;
    Le32(b, count);
    for (unsigned i = 0; i < count; i++)
        Put(b, Filled(entry, (BYTE)(first + i)).data(), entry);
    return b;
}

Bytes MetaRichWave(const Bytes &audio)
{
    Bytes cue, adtl, smpl, plst, zv03, disp;
    Le32(cue, 2);
    for (unsigned name : {1u, 2u}) {
        Le32(cue, name); Le32(cue, name * 1000); PutStr(cue, "data"); Le32(cue, 0); Le32(cue, 0); Le32(cue, name * 44100);
    }
    Bytes labl1, labl2, ltxt;
    Le32(labl1, 1); PutStr(labl1, "Verse"); labl1.push_back(0);
    Le32(labl2, 2); PutStr(labl2, "Chorus A"); labl2.push_back(0);
    Le32(ltxt, 2); Le32(ltxt, 22050); PutStr(ltxt, "rgn "); Le32(ltxt, 0); Le32(ltxt, 0);
    Bytes smplBody = Filled(28, 3);
    Le32(smplBody, 1); Le32(smplBody, 4);
    Le32(smplBody, 7); Le32(smplBody, 0); Le32(smplBody, 100); Le32(smplBody, 199); Le32(smplBody, 0); Le32(smplBody, 2);
    PutStr(smplBody, "tail");
    plst = Counted(3, 24, 9);
    std::copy(plst.begin() + 4, plst.begin() + 28, plst.begin() + 28); // a repeat of the first entry
    Le32(zv03, 28); Le32(zv03, 3);
    Put(zv03, Filled(31, 5).data(), 31);
    Le32(disp, 1); PutStr(disp, "thumb text");
    Bytes zzz = Filled(5, 0x41), zv04;
    // CD tracks: one with two strings, one with flag bits above the three kept
    Le32(zv04, 2);
    for (unsigned track : {1u, 2u}) {
        Le32(zv04, track), Le32(zv04, track == 1 ? 4 : 0xF5), Le64(zv04, track * 588), Le64(zv04, 44100), Le32(zv04, 150);
        Put(zv04, L"USABC2600001\0", 28);
        Le32(zv04, track == 1 ? 10 : 0), Le32(zv04, track == 1 ? 6 : 0);
        if (track == 1)
            Put(zv04, L"Intro", 10), Put(zv04, L"Ann", 6);
    }
    return Riff("WAVE", Cat({Chunk("fmt ", Fmt(1, 2, 44100, 16)),
                             List("INFO", Cat({Chunk("INAM", Bytes{'T', 'o', 'n', 'e', 0}),
                                               Chunk("ICMT", Bytes{'h', 'i', '!', 0})})),
                             Chunk("bext", Filled(602, 0x20)), Chunk("data", audio), Chunk("cue ", cue),
                             List("adtl", Cat({Chunk("labl", labl1), Chunk("ltxt", ltxt), Chunk("labl", labl2)})),
                             Chunk("smpl", smplBody), Chunk("plst", plst), Chunk("tlst", Counted(1, 24, 40)),
                             Chunk("scot", Filled(430, 2)), Chunk("str2", Filled(20, 7)),
                             Chunk("bmrk", Counted(2, 52, 1)), Chunk("dtbt", Counted(2, 12, 8)),
                             Chunk("bmpi", Filled(48, 3)), Chunk("bmpm", Counted(1, 56, 4)),
                             Chunk("CDif", Filled(10, 6)), Chunk("DISP", disp), Chunk("zv03", zv03),
                             Chunk("zv04", zv04), Chunk("iXML", Bytes{'<', 'B', 'W', 'F', 'X', 'M', 'L', '/', '>'}),
                             Chunk("zzz ", zzz)}));
}

Bytes PlainWave(const Bytes &audio)
{
    return Riff("WAVE", Cat({Chunk("fmt ", Fmt(1, 2, 44100, 16)), Chunk("data", audio)}));
}

Bytes PlainWave64(const Bytes &audio)
{
    return W64(Cat({Chunk64(ZVW64_FMT, Fmt(1, 2, 44100, 16)), Chunk64(ZVW64_DATA, audio)}));
}

} // namespace mediatest
