// The repair of zvfio on damaged, good, foreign and mutated files: sizes
// mended in place with every other chunk kept, destroyed headers rebuilt in
// the format the file or the user states, and never a byte of audio written.
#include "../media/mediatest.h"
#include "repair/repairplan.h"
#include "media/waveheader.h"
#include "zvbase.h"
#include <random>

using namespace mediatest;
using namespace zvfio;

namespace {

// An extensible record: container bits, valid bits, PCM or float sub-format.
Bytes Extensible(unsigned channels, unsigned rate, unsigned bits, bool isFloat)
{
    Bytes f;
    unsigned align = channels * (bits / 8);
    Le16(f, 0xFFFE); Le16(f, channels); Le32(f, rate); Le32(f, rate * align); Le16(f, align); Le16(f, bits);
    Le16(f, 22); Le16(f, bits); Le32(f, (1u << channels) - 1);
    Le32(f, isFloat ? 3 : 1);
    BYTE tail[12] = {0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
    Put(f, tail, 12);
    return f;
}

struct Sample {
    Bytes file;
    size_t dataOffset, dataSize;
    bool wave64;
};

// A file with chunks before and behind the audio.
Sample WithMetadata(const Bytes &fmt, size_t audioBytes)
{
    Bytes before = Cat({Chunk("fmt ", fmt), Chunk("bext", Filled(602, 3)), List("INFO", Chunk("INAM", Filled(5)))});
    Bytes after = Cat({Chunk("iXML", Filled(77, 9)), List("INFO", Chunk("ICMT", Filled(8)))});
    Bytes file = Riff("WAVE", Cat({before, Chunk("data", Filled(audioBytes, 5)), after}));
    return {file, 12 + before.size() + 8, audioBytes, false};
}

Sample Canonical(const Bytes &fmt, size_t audioBytes)
{
    Bytes file = Riff("WAVE", Cat({Chunk("fmt ", fmt), Chunk("data", Filled(audioBytes, 11))}));
    return {file, 12 + 8 + fmt.size() + (fmt.size() & 1) + 8, audioBytes, false};
}

Sample Wave64(const Bytes &fmt, size_t audioBytes)
{
    Bytes file = W64(Cat({Chunk64(ZVW64_FMT, fmt), Chunk64(ZVW64_DATA, Filled(audioBytes, 13))}));
    return {file, 40 + ((24 + fmt.size() + 7) & ~7u) + 24, audioBytes, true};
}

Bytes Fmt16(unsigned tag, unsigned channels, unsigned rate, unsigned bits)
{
    Bytes f = Fmt(tag, channels, rate, bits);
    f.resize(16);
    return f;
}

void Store32(Bytes &b, size_t at, unsigned v) { memcpy(&b[at], &v, 4); }
void Store64(Bytes &b, size_t at, unsigned long long v) { memcpy(&b[at], &v, 8); }

RepairPlan Plan(TestFile &t, const GivenFormat &given = GivenFormat())
{
    return PlanRepair(t.h(), given);
}

HRESULT PlanAndApply(TestFile &t, RepairPlan *plan, const GivenFormat &given = GivenFormat())
{
    *plan = Plan(t, given);
    if (plan->action != RepairAction::Mend && plan->action != RepairAction::Rebuild)
        return S_FALSE;
    SavedBytes saved;
    return ApplyRepair(t.h(), *plan, L"", &saved);
}

} // namespace

TEST(Repair, MendsSizesInPlaceAndKeepsEveryOtherChunk)
{
    const std::vector<Sample> samples = {
        WithMetadata(Fmt16(1, 2, 44100, 16), 4000),
        WithMetadata(Fmt(1, 1, 8000, 8), 999),
        WithMetadata(Extensible(8, 48000, 24, false), 24 * 50),
        Canonical(Fmt16(3, 2, 48000, 32), 8 * 100),
        Canonical(Extensible(6, 96000, 32, true), 24 * 33),
        Wave64(Fmt16(1, 2, 44100, 16), 4 * 301),
        Wave64(Extensible(8, 48000, 24, false), 24 * 17),
    };
    for (size_t s = 0; s < samples.size(); s++) {
        const Sample &good = samples[s];
        const size_t sizeAt = good.dataOffset - (good.wave64 ? 8 : 4);
        for (int damage = 0; damage < 5; damage++) {
            SCOPED_TRACE(testing::Message() << "sample " << s << " damage " << damage);
            Bytes img = good.file;
            const bool trailing = good.dataOffset + good.dataSize + 8 < img.size();
            size_t expectSize = good.dataSize;
            if (damage == 0 || damage == 2)
                good.wave64 ? Store64(img, 16, 0) : Store32(img, 4, 0);
            if (damage == 1 || damage == 2)
                good.wave64 ? Store64(img, sizeAt, 0) : Store32(img, sizeAt, 0);
            if (damage == 3)
                good.wave64 ? Store64(img, sizeAt, ~0ull) : Store32(img, sizeAt, ~0u);
            if (damage == 4) // a recording cut short: no chunks behind it, a partial last frame
                img.resize(good.dataOffset + good.dataSize / 2 + 1);
            TestFile t(img);
            RepairPlan plan;
            ASSERT_EQ(S_OK, PlanAndApply(t, &plan));
            EXPECT_EQ(RepairAction::Mend, plan.action);
            Bytes out = t.bytes();
            ASSERT_EQ(img.size(), out.size());
            if (damage == 4) {
                size_t avail = img.size() - good.dataOffset;
                expectSize = avail - avail % plan.format.nBlockAlign;
            }
            EXPECT_EQ(expectSize, plan.dataSize);
            EXPECT_EQ(good.dataOffset, plan.dataOffset);
            // the sizes of an intact file, every other byte as it was
            Bytes expect = damage == 4 ? img : good.file;
            if (damage == 4) {
                if (good.wave64) {
                    Store64(expect, 16, img.size());
                    Store64(expect, sizeAt, expectSize + 24);
                } else {
                    Store32(expect, 4, (unsigned)img.size() - 8);
                    Store32(expect, sizeAt, (unsigned)expectSize);
                }
            }
            EXPECT_EQ(expect, out) << (trailing ? "with chunks behind the audio" : "");
            EXPECT_EQ(RepairAction::Nothing, Plan(t).action);
        }
    }
}

TEST(Repair, LeavesGoodForeignAndHopelessFilesAlone)
{
    std::mt19937 rng(7);
    Bytes noise(5000);
    for (BYTE &b : noise)
        b = (BYTE)rng();
    Sample good = WithMetadata(Fmt16(1, 2, 44100, 16), 4000);
    Bytes dataIdGone = good.file;
    memcpy(&dataIdGone[good.dataOffset - 8], "d\0ta", 4);
    Store32(dataIdGone, 4, 0);
    Bytes zeroHeader = Canonical(Fmt16(1, 2, 44100, 16), 400).file;
    std::fill(zeroHeader.begin(), zeroHeader.begin() + 44, 0);
    Bytes aiff = Form("AIFF", Cat({IffChunk("COMM", CommBody(2, 100, 16, 44100)), IffChunk("SSND", Filled(408))}));
    struct Case {
        const char *name;
        Bytes img;
        RepairAction action;
        HRESULT result;
    } cases[] = {
        {"good", good.file, RepairAction::Nothing, S_OK},
        {"good w64", Wave64(Extensible(8, 48000, 24, false), 24 * 17).file, RepairAction::Nothing, S_OK},
        {"odd data, pad kept", WithMetadata(Fmt(1, 1, 8000, 8), 999).file, RepairAction::Nothing, S_OK},
        {"aiff", aiff, RepairAction::Refuse, ZVERR_NO_RIFF_HEADER},
        {"noise", noise, RepairAction::Refuse, ZVERR_NO_RIFF_HEADER},
        {"short", Bytes(10, 'R'), RepairAction::Refuse, ZVERR_NO_RIFF_HEADER},
        {"data id damaged", dataIdGone, RepairAction::Refuse, ZVERR_NOT_FOUND},
        {"header zeroed", zeroHeader, RepairAction::Refuse, ZVERR_NO_RIFF_HEADER},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        TestFile t(c.img);
        RepairPlan plan;
        PlanAndApply(t, &plan);
        EXPECT_EQ(c.action, plan.action) << plan.reason;
        if (c.action == RepairAction::Refuse) {
            EXPECT_EQ(c.result, plan.result);
        }
        EXPECT_EQ(c.img, t.bytes());
    }
    // A format the file states is never replaced by a default: 8 channels of
    // 24 bits with zeroed sizes stay 8 channels.
    Sample multi = Canonical(Extensible(8, 48000, 24, false), 24 * 40);
    Store32(multi.file, 4, 0);
    Store32(multi.file, multi.dataOffset - 4, 0);
    TestFile t(multi.file);
    RepairPlan plan;
    ASSERT_EQ(S_OK, PlanAndApply(t, &plan));
    EXPECT_EQ(8, plan.format.nChannels);
    EXPECT_EQ(24u * 40, plan.dataSize);
}

TEST(Repair, RebuildsDestroyedHeadersInTheStatedFormat)
{
    struct Case {
        const char *name;
        Sample s;
        size_t destroyFrom, destroyTo; // zeroed range
        bool give;                     // the user gives the format
        WORD channels, bits, tag;
    } cases[] = {
        {"44-byte header, ids gone", Canonical(Fmt16(1, 2, 44100, 16), 400), 0, 20, false, 2, 16, 1},
        {"44-byte header, all gone", Canonical(Fmt16(1, 2, 44100, 16), 400), 0, 36, true, 2, 16, 1},
        {"46-byte header", Canonical(Fmt(1, 1, 22050, 8), 301), 0, 20, false, 1, 8, 1},
        {"extensible, 8 channels", Canonical(Extensible(8, 48000, 24, false), 24 * 20), 0, 20, false, 8, 24, 1},
        {"float, all gone", Canonical(Fmt(3, 2, 48000, 32), 8 * 20), 0, 38, true, 2, 32, 3},
        {"broken fmt size", Canonical(Fmt(1, 2, 44100, 24), 6 * 20), 16, 17, false, 2, 24, 1},
        {"w64 plain", Wave64(Fmt16(1, 2, 44100, 16), 400), 0, 64, false, 2, 16, 1},
        {"w64 extensible", Wave64(Extensible(6, 48000, 32, true), 24 * 10), 0, 64, false, 6, 32, 3},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Bytes img = c.s.file;
        std::fill(img.begin() + c.destroyFrom, img.begin() + c.destroyTo, 0);
        if (c.destroyTo == c.destroyFrom + 1)
            img[c.destroyFrom] = 0x7F; // a size far past the end
        GivenFormat given;
        given.given = c.give;
        if (c.give) {
            given.rate = 44100;
            given.channels = c.channels;
            given.bits = c.bits;
            given.isFloat = c.tag == 3;
        }
        TestFile t(img);
        if (c.give) {
            EXPECT_EQ(ZVERR_NO_RIFF_HEADER, Plan(t).result) << "a destroyed format needs the user's";
        }
        RepairPlan plan;
        ASSERT_EQ(S_OK, PlanAndApply(t, &plan, given)) << plan.reason;
        Bytes out = t.bytes();
        ASSERT_EQ(img.size(), out.size());
        EXPECT_TRUE(std::equal(out.begin() + c.s.dataOffset, out.end(), img.begin() + c.s.dataOffset));
        t.close();
        ULONGLONG frames = 0, offset = 0;
        WAVEFORMATEX *f = ZvGetFileWfx(t.path().c_str(), &frames, &offset);
        ASSERT_TRUE(f != nullptr);
        EXPECT_EQ(c.channels, f->nChannels);
        EXPECT_EQ(c.bits, f->wBitsPerSample);
        EXPECT_EQ(c.tag, f->wFormatTag);
        EXPECT_EQ(c.s.dataOffset, offset);
        EXPECT_EQ(c.s.dataSize / f->nBlockAlign, frames) << plan.dataSize << " " << plan.dataOffset << " "
                                                         << (int)plan.action;
        free(f);
        t.open();
        EXPECT_EQ(RepairAction::Nothing, Plan(t).action);
    }
}

// Thousands of mutations of good files: whatever a repair does, every byte
// of audio that the mutated file still had at its offset is there after it,
// the length is kept, a refused file is not touched, and the saved bytes
// put the mutated file back.
TEST(Repair, MutatedFilesNeverLoseAudio)
{
    const std::vector<Sample> samples = {
        Canonical(Fmt16(1, 2, 44100, 16), 4 * 500),
        Canonical(Fmt(3, 1, 48000, 32), 4 * 300),
        WithMetadata(Fmt16(1, 2, 44100, 16), 4000),
        Canonical(Extensible(8, 48000, 24, false), 24 * 60),
        Wave64(Fmt16(1, 2, 44100, 16), 4 * 200),
        Wave64(Extensible(4, 48000, 24, false), 12 * 70),
    };
    std::mt19937 rng(1234);
    zvtest::TempDir dir;
    const std::wstring undo = dir.file(L"m.repair-undo");
    int runs = 0, repaired = 0;
    TestFile t(Bytes(1));
    for (int i = 0; i < 2400; i++) {
        const Sample &s = samples[i % samples.size()];
        Bytes img = s.file;
        const size_t head = s.dataOffset;
        for (int n = 1 + rng() % 4; n > 0; n--) {
            switch (rng() % 6) {
            case 0: img[rng() % head] = (BYTE)rng(); break;                          // a header byte
            case 1: std::fill(img.begin() + rng() % head, img.begin() + head, 0); break; // header zeroed from
            case 2: img.resize(head + rng() % (img.size() - head + 1)); break;       // truncated
            case 3: img[rng() % img.size()] ^= (BYTE)(1 + rng() % 255); break;       // anywhere
            case 4: { size_t at = (rng() % (head / 4)) * 4; Store32(img, at, (unsigned)rng()); break; }
            default: img.push_back((BYTE)rng()); break;                                // trailing byte
            }
        }
        SCOPED_TRACE(testing::Message() << "mutation " << i);
        t.rewrite(img);
        RepairPlan plan = Plan(t);
        SavedBytes saved;
        DeleteFileW(undo.c_str());
        HRESULT hr = S_FALSE;
        if (plan.action == RepairAction::Mend || plan.action == RepairAction::Rebuild)
            hr = ApplyRepair(t.h(), plan, i % 10 ? L"" : undo, &saved);
        runs++;
        Bytes out = t.bytes();
        ASSERT_EQ(img.size(), out.size());
        if (hr == S_FALSE || FAILED(hr)) {
            ASSERT_EQ(img, out) << "refused or failed, yet written";
            continue;
        }
        repaired++;
        const size_t end = std::min(img.size(), s.dataOffset + s.dataSize);
        for (size_t k = s.dataOffset; k < end; k++)
            if (img[k] == s.file[k]) {
                ASSERT_EQ(s.file[k], out[k]) << "audio byte " << k << " lost";
            }
        if (i % 10 == 0) {
            SavedBytes back;
            ASSERT_EQ(S_OK, ReadUndo(undo, &back));
            ASSERT_EQ(S_OK, Restore(t.h(), back));
            ASSERT_EQ(img, t.bytes()) << "the undo does not put the file back";
        }
    }
    EXPECT_GE(runs, 2000);
    EXPECT_GT(repaired, 500);
}
