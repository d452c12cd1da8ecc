#include <gtest/gtest.h>
#include <string>
#include <vector>
#include <limits.h>
#include <math.h>
#include "testutil.h"
#include "zvtime.h"

namespace {

ZVSMPTEVAL Tc(LONG format, LONG h, LONG m, LONG s, LONG f)
{
    ZVSMPTEVAL v = {format, h, m, s, f, 0};
    return v;
}

std::wstring Text(const ZVSMPTEVAL &v)
{
    WCHAR buf[32];
    EXPECT_GT(ZVSMPTE_SMPTEToText(&v, buf, 32), 0);
    return buf;
}

ZVSMPTEVAL FromFrames(LONG format, LONG frames)
{
    ZVSMPTEVAL v = Tc(format, 0, 0, 0, 0);
    ZVSMPTE_FrameCountToSMPTE(&v, frames);
    return v;
}

} // namespace

TEST(Timecode, DropFrameLabels)
{
    // every label of the day is checked against a reference library in
    // TimecodeReference (tc_reference.sh); here the drop itself and the ends
    EXPECT_EQ(Text(FromFrames(ZVSMPTE_30DROP, 1800)), L"00:01:00,02");
    // 24 hours wrap, and negative counts come from the end of the day.
    EXPECT_EQ(Text(FromFrames(ZVSMPTE_30DROP, 2589408)), L"00:00:00,00");
    EXPECT_EQ(Text(FromFrames(ZVSMPTE_30DROP, -1)), L"23:59:59,29");

    // Labels that do not exist count as the first one that does.
    ZVSMPTEVAL missing = Tc(ZVSMPTE_30DROP, 0, 1, 0, 0);
    EXPECT_EQ(ZVSMPTE_SMPTEToFrameCount(&missing), 1800);
    missing.frames = 1;
    EXPECT_EQ(ZVSMPTE_SMPTEToFrameCount(&missing), 1800);
    ZVSMPTEVAL tenth = Tc(ZVSMPTE_30DROP, 0, 10, 0, 0);
    EXPECT_EQ(ZVSMPTE_SMPTEToFrameCount(&tenth), 17982);
}

TEST(Timecode, NonDropKindsAndBadKinds)
{
    struct Case { LONG format; LONG day; LONG frames; const wchar_t *text; } cases[] = {
        {ZVSMPTE_30, 2592000, 30 * 3661 + 7, L"01:01:01.07"},
        {ZVSMPTE_25, 2160000, 25 * 59 + 24, L"00:00:59.24"},
        {ZVSMPTE_24, 2073600, 24 * 3600 * 23, L"23:00:00.00"},
        {ZVSMPTE_30NONDROP, 2592000, 1800, L"00:01:00.00"},
        {ZVSMPTE_2398, 2073600, 2073599, L"23:59:59.23"},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(ZVSMPTE_FramesPerDay(c.format), c.day);
        ZVSMPTEVAL v = FromFrames(c.format, c.frames);
        EXPECT_EQ(Text(v), c.text) << c.format;
        EXPECT_EQ(ZVSMPTE_SMPTEToFrameCount(&v), c.frames);
    }
    ZVSMPTEVAL bad = Tc(7, 1, 2, 3, 4);
    EXPECT_EQ(ZVSMPTE_SMPTEToFrameCount(&bad), 0);
    EXPECT_EQ(ZVSMPTE_SMPTEToFrameCount(nullptr), 0);
    ZVSMPTE_FrameCountToSMPTE(&bad, 100);  // left alone
    EXPECT_EQ(bad.hours, 1);
    EXPECT_EQ(ZVSMPTE_SMPTEToNanos(&bad), 0);
    EXPECT_EQ(ZVSMPTE_AddSMPTE(&bad, &bad), E_INVALIDARG);
    EXPECT_EQ(ZVSMPTE_AddSMPTE(nullptr, &bad), E_INVALIDARG);
    ZVSMPTE_IncrementByFrame(nullptr, 0);
    ZVSMPTE_NanoToSMPTE(0, nullptr);
    EXPECT_EQ(ZVSMPTE_FramesPerDay(0), 0);
}

TEST(Timecode, ArithmeticCompareAndStepping)
{
    ZVSMPTEVAL a = Tc(ZVSMPTE_25, 23, 30, 0, 0);
    ZVSMPTEVAL hour = Tc(ZVSMPTE_25, 1, 0, 0, 0);
    ASSERT_EQ(ZVSMPTE_AddSMPTE(&a, &hour), S_OK);
    EXPECT_EQ(Text(a), L"00:30:00.00");
    ASSERT_EQ(ZVSMPTE_SubtractSMPTE(&a, &hour), S_OK);
    EXPECT_EQ(Text(a), L"23:30:00.00");

    // Comparison looks at the fields only.
    ZVSMPTEVAL x = Tc(ZVSMPTE_30, 1, 2, 3, 4), y = Tc(ZVSMPTE_25, 1, 2, 3, 4);
    EXPECT_EQ(ZVSMPTE_SMPTECompare(&x, &y), 0);
    y.frames = 5;
    EXPECT_EQ(ZVSMPTE_SMPTECompare(&x, &y), -1);
    y = Tc(ZVSMPTE_30, 1, 1, 59, 29);
    EXPECT_EQ(ZVSMPTE_SMPTECompare(&x, &y), 1);

    // Stepping frame by frame agrees with counting, across a whole day of
    // drop frame and of 24 frames.
    for (LONG format : {ZVSMPTE_30DROP, ZVSMPTE_24}) {
        ZVSMPTEVAL up = Tc(format, 0, 0, 0, 0), down = Tc(format, 0, 0, 0, 0);
        LONG day = ZVSMPTE_FramesPerDay(format);
        for (LONG f = 1; f <= day; f++) {
            ZVSMPTE_IncrementByFrame(&up, 0);
            ZVSMPTE_DeccrementByFrame(&down, 0);
            ASSERT_EQ(ZVSMPTE_SMPTEToFrameCount(&up), f % day) << format;
            ASSERT_EQ(ZVSMPTE_SMPTEToFrameCount(&down), (day - f) % day) << format;
        }
    }
}

TEST(Timecode, TextParsing)
{
    ZVSMPTEVAL v = Tc(ZVSMPTE_30DROP, 9, 9, 9, 9);
    v.reserved = 5;
    ASSERT_EQ(ZVSMPTE_TextToSMPTE(L"00:01:00;02", &v), S_OK);
    EXPECT_EQ(v.format, ZVSMPTE_30DROP);
    EXPECT_EQ(v.reserved, 0);
    EXPECT_EQ(ZVSMPTE_SMPTEToFrameCount(&v), 1800);

    struct Case { const wchar_t *text; LONG h, m, s, f; } cases[] = {
        {L"1:2:3:4", 1, 2, 3, 4},
        {L"1000", 0, 0, 10, 0},            // pairs from the right
        {L"12345678", 12, 34, 56, 78},
        {L"12345", 0, 1, 23, 45},
        {L"10:", 0, 0, 10, 0},             // a trailing separator counts a zero field
        {L"  7  ", 0, 0, 0, 7},
        {L"01h02m03s04", 1, 2, 3, 4},
        {L"01h02m03s04f", 2, 3, 4, 0},
        {L"1;2.3,4", 1, 2, 3, 4},
    };
    for (const Case &c : cases) {
        ZVSMPTEVAL r = Tc(ZVSMPTE_25, 0, 0, 0, 0);
        ASSERT_EQ(ZVSMPTE_TextToSMPTE(c.text, &r), S_OK) << c.text;
        EXPECT_EQ(r.hours, c.h) << c.text;
        EXPECT_EQ(r.minutes, c.m) << c.text;
        EXPECT_EQ(r.seconds, c.s) << c.text;
        EXPECT_EQ(r.frames, c.f) << c.text;
    }
    EXPECT_EQ(ZVSMPTE_TextToSMPTE(L"", &v), ZVERR_MALFORMED);
    EXPECT_EQ(ZVSMPTE_TextToSMPTE(L"abc", &v), ZVERR_MALFORMED);
    EXPECT_EQ(v.hours, 0);
    EXPECT_EQ(ZVSMPTE_TextToSMPTE(nullptr, &v), E_INVALIDARG);
    EXPECT_EQ(ZVSMPTE_TextToSMPTE(L"1", nullptr), E_INVALIDARG);
    // Very long text is read in part, never past its end.
    std::wstring huge(5000, L'9');
    EXPECT_EQ(ZVSMPTE_TextToSMPTE(huge.c_str(), &v), S_OK);
}

TEST(Timecode, NanotimeRoundTripsEveryKind)
{
    for (LONG format = 1; format <= 6; format++) {
        LONG day = ZVSMPTE_FramesPerDay(format);
        for (LONG f = 0; f < day; f += (f < 5000 ? 1 : 997)) {
            ZVSMPTEVAL v = FromFrames(format, f);
            LONGLONG nanos = ZVSMPTE_SMPTEToNanos(&v);
            ZVSMPTEVAL back = Tc(format, 0, 0, 0, 0);
            ZVSMPTE_NanoToSMPTE(nanos, &back);
            ASSERT_EQ(ZVSMPTE_SMPTEToFrameCount(&back), f) << format;
        }
    }
    // Drop frame runs at 30000/1001: an hour of labels is 3600.0036 s less
    // 108 frames, i.e. exactly 107892 frames of real time.
    ZVSMPTEVAL hour = Tc(ZVSMPTE_30DROP, 1, 0, 0, 0);
    EXPECT_EQ(ZVSMPTE_SMPTEToNanos(&hour), (LONGLONG)(107892.0 / (30000.0 / 1001.0) * 1e7));
    ZVSMPTEVAL like = Tc(0, 1, 0, 1, 15);
    EXPECT_EQ(ZVSMPTE_SmpteLikeToNanos(30.0, &like), 36015000000LL);
}

TEST(TimeText, HmsfAtFreeRates)
{
    ZVSMPTEVAL v = {};
    // 1:02:03 and half a second at 50 fps is frame 25.
    LONGLONG t = (3723LL * 10 + 5) * 1000000;
    ZvNanoTimeToHMSF(t, &v, 50.0, FALSE);
    EXPECT_EQ(v.hours, 1);
    EXPECT_EQ(v.minutes, 2);
    EXPECT_EQ(v.seconds, 3);
    EXPECT_EQ(v.frames, 25);
    EXPECT_EQ(ZvHMSFToNanoTime(&v, 50.0), t);
    // Hours wrap at 24 unless asked not to.
    ZvNanoTimeToHMSF(25LL * 3600 * ZV_NANOS_PER_SECOND, &v, 30.0, FALSE);
    EXPECT_EQ(v.hours, 1);
    ZvNanoTimeToHMSF(25LL * 3600 * ZV_NANOS_PER_SECOND, &v, 30.0, TRUE);
    EXPECT_EQ(v.hours, 25);
    // A time just short of a frame boundary rounds to it.
    ZvNanoTimeToHMSF(333333, &v, 30.0, FALSE);
    EXPECT_EQ(v.frames, 1);
    // A record of a timecode kind goes by its kind.
    v = Tc(ZVSMPTE_30DROP, 0, 0, 0, 0);
    ZVSMPTEVAL ten = Tc(ZVSMPTE_30DROP, 0, 10, 0, 0);
    ZvNanoTimeToHMSF(ZVSMPTE_SMPTEToNanos(&ten), &v, 0, FALSE);
    EXPECT_EQ(v.minutes, 10);
    EXPECT_EQ(v.frames, 0);
    ZvNanoTimeToHMSF(0, nullptr, 30.0, FALSE);
}

TEST(TimeText, MusicTime)
{
    ZVPOSFMT fmt = {};
    fmt.kind = ZVPOSFMT_MEASURES;
    fmt.tempo = 120.0;
    fmt.beatsPerMeasure = 4;
    fmt.ticksPerBeat = 960;
    LONG m, b, t;
    // At 120 bpm a beat is half a second: 5.25 s is 10.5 beats.
    EXPECT_EQ(ZvNanoTimeToMeasures(52500000, &fmt, &m, &b, &t), 10 * 960 + 480);
    EXPECT_EQ(m, 2);
    EXPECT_EQ(b, 2);
    EXPECT_EQ(t, 480);
    WCHAR buf[64];
    EXPECT_GT(ZvNanoTimeToText(52500000, &fmt, buf), 0);
    EXPECT_STREQ(buf, L"3.3.480");
    EXPECT_EQ(ZvTextToNanoTimeToken(L"3.3.480", &fmt, nullptr), 52500000);
    EXPECT_EQ(ZvTextToTicks(L"3.3.480", &fmt), 10 * 960 + 480);
    EXPECT_EQ(ZvTextToTicks(L"0.1", &fmt), -1);
    EXPECT_EQ(ZvTextToMeasuresBeatsTicks(L"x", &m, &b, &t), ZVERR_MALFORMED);
    EXPECT_EQ(ZvTextToMeasuresBeatsTicks(L"7", &m, &b, &t), S_OK);
    EXPECT_EQ(m, 6);
    EXPECT_EQ(b, 0);
    EXPECT_EQ(ZvTextToBeatsTicks(L"12.045", &b, &t), S_OK);
    EXPECT_EQ(b, 12);
    EXPECT_EQ(t, 45);
    EXPECT_EQ(ZvMeasuresAndTicksToText(11, 2, 45, TRUE, buf, 64), 8);
    EXPECT_STREQ(buf, L"12.3.045");
    EXPECT_EQ(ZvTicksToText(960 * 3 + 7, 960, TRUE, buf, 64), 5);
    EXPECT_STREQ(buf, L"3.007");
    EXPECT_EQ(ZvTicksToText(5, 0, TRUE, buf, 64), 0);
    // No tempo: nothing to count.
    fmt.tempo = 0;
    EXPECT_EQ(ZvNanoTimeToMeasures(52500000, &fmt, &m, &b, &t), 0);
    EXPECT_EQ(ZvNanoTimeToMeasures(1, nullptr, nullptr, nullptr, nullptr), 0);
}

TEST(TimeText, PositionTextRoundTripsEveryKind)
{
    ZVPOSFMT fmt = {};
    fmt.smpte = ZVSMPTE_30DROP;
    fmt.fps = 25.0;
    fmt.tempo = 90.0;
    fmt.beatsPerMeasure = 3;
    fmt.ticksPerBeat = 480;
    fmt.sampleRate = 44100;
    struct Case { DWORD kind; LONGLONG t; const wchar_t *text; } cases[] = {
        {ZVPOSFMT_TIME, 37230120000LL, L"1:02:03.012"},
        {ZVPOSFMT_TIME, -15000000LL, L"-0:00:01.500"},
        {ZVPOSFMT_SECONDS, 37230120000LL, L"3723.012"},
        {ZVPOSFMT_HMSF, 37232000000LL, L"01:02:03.05"},
        {ZVPOSFMT_FEETFRAMES, 400000000LL, L"62+08"},
        {ZVPOSFMT_SAMPLES, 10000000LL, L"44100"},
    };
    WCHAR buf[64];
    for (const Case &c : cases) {
        ASSERT_GT(ZvNanoTimeToTextEx(c.t, &fmt, c.kind, buf), 0) << c.kind;
        EXPECT_STREQ(buf, c.text) << c.kind;
        LPCWSTR end = nullptr;
        EXPECT_EQ(ZvTextToNanoTimeTokenEx(buf, &fmt, c.kind, &end), c.t) << c.kind;
        EXPECT_EQ(*end, 0) << c.kind;
    }
    // Timecode goes through frames: text and back land on the frame.
    ZVSMPTEVAL f = Tc(ZVSMPTE_30DROP, 0, 10, 0, 0);
    LONGLONG t = ZVSMPTE_SMPTEToNanos(&f);
    fmt.kind = ZVPOSFMT_SMPTE;
    ASSERT_GT(ZvNanoTimeToText(t, &fmt, buf), 0);
    EXPECT_STREQ(buf, L"00:10:00,00");
    EXPECT_EQ(ZvTextToNanoTimeToken(buf, &fmt, nullptr), t);
    ASSERT_GT(ZvNanoTimeToTextFormat(t, &fmt, buf), 0);
    EXPECT_STREQ(buf, L"00:10:00,00 fr");

    // Parsers step over what they read and stop at the rest.
    LPCWSTR end = nullptr;
    EXPECT_EQ(ZvTextToTimeToken(L"  1:30 rest", &end), 900000000LL);
    EXPECT_STREQ(end, L" rest");
    EXPECT_EQ(ZvTextToFeetAndFramesToken(L"1+00", 24.0, nullptr), 6666666LL);

    // Bad input: no text, no room, unknown kind.
    LONGLONG out = 5;
    EXPECT_EQ(ZvTextToNanoTimeToken2(L"x", &fmt, &out, &end), ZVERR_MALFORMED);
    EXPECT_STREQ(end, L"x");
    EXPECT_EQ(ZvTextToNanoTimeToken2(nullptr, &fmt, &out, nullptr), E_INVALIDARG);
    EXPECT_EQ(ZvTextToNanoTimeToken2(L"12:00:00:00", &fmt, &out, nullptr), S_OK);
    EXPECT_EQ(ZvTextToNanoTimeToken(nullptr, &fmt, nullptr), 0);
    EXPECT_EQ(ZvNanoTimeToTextExN(t, &fmt, 99, buf, 64), 0);
    EXPECT_EQ(ZvNanoTimeToTextN(t, nullptr, buf, 64), 0);
    EXPECT_EQ(ZvNanoTimeToTextN(t, &fmt, buf, 5), 0);
    EXPECT_STREQ(buf, L"");
    EXPECT_EQ(ZvNanoTimeToTextN(LLONG_MIN, &fmt, buf, 64) >= 0, true);
    fmt.kind = ZVPOSFMT_TIME;
    EXPECT_GT(ZvNanoTimeToTextN(LLONG_MIN, &fmt, buf, 64), 0);
}

TEST(TimeText, LabeledValues)
{
    WCHAR buf[32];
    EXPECT_EQ(ZvGetLabeledStringFixed(25, 1, L"GB", buf, 32), 6);
    EXPECT_STREQ(buf, L"2.5 GB");
    ZvGetLabeledStringFixed(-5, 2, L"s", buf, 32);
    EXPECT_STREQ(buf, L"-0.05 s");
    ZvGetLabeledStringFixed(LONG_MIN, 2, L"Hz", buf, 32);
    EXPECT_STREQ(buf, L"-Inf. Hz");
    ZvGetLabeledStringFixed(LONG_MAX, 2, nullptr, buf, 32);
    EXPECT_STREQ(buf, L"+Inf.");
    ZvGetLabeledStringFloat(HUGE_VAL, 1, L"x", buf, 32);
    EXPECT_STREQ(buf, L"+Inf. x");
    ZvGetdBStringFloat(-3.0103, 1, buf, 32);
    EXPECT_STREQ(buf, L"-3.0 dB");
    ZvGetdBStringFloat(-250.0, 1, buf, 32);
    EXPECT_STREQ(buf, L"-Inf. dB");
    ZvGetdBStringFixed(-20000, 2, buf, 32);
    EXPECT_STREQ(buf, L"-Inf. dB");
    ZvGetdBStringFixed(-600, 2, buf, 32);
    EXPECT_STREQ(buf, L"-6.00 dB");
    EXPECT_EQ(ZvGetdBStringFloat(1.0, 1, buf, 3), 0);
    EXPECT_EQ(ZvGetdBStringFloat(1.0, 1, nullptr, 3), 0);
}

// Every frame of 24 hours at 29.97 drop frame against the text of an
// independent library, written by tc_reference.sh. Skipped without it.
TEST(TimecodeReference, EveryDropFrameOfADay)
{
    char path[MAX_PATH];
    DWORD n = GetEnvironmentVariableA("ZV_TC_REFERENCE", path, MAX_PATH);
    if (n == 0 || n >= MAX_PATH)
        GTEST_SKIP() << "ZV_TC_REFERENCE not set";
    std::vector<unsigned char> data;
    ASSERT_TRUE(zvtest::ReadFileBytes(std::wstring(path, path + n), data)) << path;
    const LONG day = 2589408;
    size_t pos = 0;
    LONG checked = 0;
    for (LONG frame = 0; frame < day; frame++) {
        size_t eol = pos;
        while (eol < data.size() && data[eol] != '\n')
            eol++;
        ASSERT_LT(eol, data.size()) << "reference ends at frame " << frame;
        std::wstring ref(data.begin() + pos, data.begin() + eol);
        pos = eol + 1;
        // The reference writes ";" before drop frames; this system its own
        // drop separator.
        std::wstring expected = ref;
        size_t semi = expected.rfind(L';');
        ASSERT_NE(semi, std::wstring::npos) << frame;
        ZVSMPTEVAL v = FromFrames(ZVSMPTE_30DROP, frame);
        WCHAR mine[32];
        ASSERT_GT(ZVSMPTE_SMPTEToText(&v, mine, 32), 0);
        ASSERT_EQ(std::wstring(mine).substr(0, 8), expected.substr(0, 8)) << frame;
        ASSERT_EQ(std::wstring(mine).substr(9), expected.substr(9)) << frame;
        // frame -> text -> frame, through this system's text and the reference's
        ZVSMPTEVAL back = Tc(ZVSMPTE_30DROP, 0, 0, 0, 0);
        ASSERT_EQ(ZVSMPTE_TextToSMPTE(mine, &back), S_OK);
        ASSERT_EQ(ZVSMPTE_SMPTEToFrameCount(&back), frame);
        ASSERT_EQ(ZVSMPTE_TextToSMPTE(ref.c_str(), &back), S_OK);
        ASSERT_EQ(ZVSMPTE_SMPTEToFrameCount(&back), frame);
        checked++;
    }
    EXPECT_EQ(checked, day);
    EXPECT_EQ(pos, data.size());
}
