// Timecode, HMSF, music time and their text forms.
#include "zvtime.h"
#include "zvlang.h"
#include <math.h>
#include <stdarg.h>
#include <wchar.h>
#include <limits.h>

namespace {

const LONGLONG kDropFramesPerDay = 2589408;

// Frame count rate of a kind (what the labels count), 0 outside 1 to 6.
LONG LabelRate(LONG format)
{
    switch (format) {
    case ZVSMPTE_30:
    case ZVSMPTE_30DROP:
    case ZVSMPTE_30NONDROP: return 30;
    case ZVSMPTE_25: return 25;
    case ZVSMPTE_24:
    case ZVSMPTE_2398: return 24;
    default: return 0;
    }
}

// Real frame rate of a kind, for conversions to and from time.
double TimeRate(LONG format)
{
    switch (format) {
    case ZVSMPTE_30: return 30.0;
    case ZVSMPTE_30DROP:
    case ZVSMPTE_30NONDROP: return 30000.0 / 1001.0;
    case ZVSMPTE_25: return 25.0;
    case ZVSMPTE_24: return 24.0;
    case ZVSMPTE_2398: return 24000.0 / 1001.0;
    default: return 0.0;
    }
}

LONGLONG PositiveMod(LONGLONG value, LONGLONG modulus)
{
    LONGLONG r = value % modulus;
    return r < 0 ? r + modulus : r;
}

// Separators of timecode and music time text: whole, non-drop, drop,
// measure-beat, beat-tick.
struct Separators {
    WCHAR whole[8], nonDrop[8], drop[8], measureBeat[8], beatTick[8];
};

// The user's separators; a locale record without them keeps the defaults.
void GetSeparator(int selector, WCHAR *out, const WCHAR *fallback)
{
    if (ZvGetInatN(selector, out, 8) <= 0)
        wcscpy(out, fallback);
}

void GetSeparators(Separators *s)
{
    GetSeparator(ZVINAT_TC_WHOLE, s->whole, L":");
    GetSeparator(ZVINAT_TC_NONDROP, s->nonDrop, L".");
    GetSeparator(ZVINAT_TC_DROP, s->drop, L",");
    GetSeparator(ZVINAT_MEASUREBEAT, s->measureBeat, L".");
    GetSeparator(ZVINAT_BEATTICK, s->beatTick, L".");
}

// Appends formatted text at *pos; false when it does not fit.
bool Append(LPWSTR buffer, int cch, int *pos, const WCHAR *format, ...)
{
    if (*pos >= cch)
        return false;
    va_list args;
    va_start(args, format);
    int n = _vsnwprintf(buffer + *pos, (size_t)(cch - *pos), format, args);
    va_end(args);
    if (n < 0 || n >= cch - *pos) {
        buffer[*pos] = 0;
        return false;
    }
    *pos += n;
    return true;
}

inline bool IsDigit(WCHAR c) { return c >= L'0' && c <= L'9'; }
inline bool IsBlank(WCHAR c) { return c == L' ' || c == L'\t'; }

} // namespace

// ---------------------------------------------------------------- frame counts

ZVAPI LONG ZVSMPTE_FramesPerDay(LONG format)
{
    if (format == ZVSMPTE_30DROP)
        return (LONG)kDropFramesPerDay;
    return LabelRate(format) * 86400;
}

ZVAPI void ZVSMPTE_FrameCountToSMPTE(ZVSMPTEVAL *smpte, LONG frames)
{
    if (!smpte)
        return;
    LONG rate = LabelRate(smpte->format);
    if (!rate)
        return;
    LONGLONG f = PositiveMod(frames, ZVSMPTE_FramesPerDay(smpte->format));
    if (smpte->format == ZVSMPTE_30DROP) {
        // Find the dropped labels before this frame: two at each minute
        // that is not a multiple of ten, 108 an hour.
        LONGLONG dropped = 0;
        for (int round = 0; round < 8; round++) {
            LONGLONG value = f + dropped;
            LONGLONG minutes = (value % 108000) / 1800;
            LONGLONG next = 108 * (value / 108000) + (minutes - minutes / 10) * 2;
            if (next == dropped)
                break;
            dropped = next;
        }
        f += dropped;
    }
    smpte->frames = (LONG)(f % rate);
    LONGLONG s = f / rate;
    smpte->seconds = (LONG)(s % 60);
    smpte->minutes = (LONG)((s / 60) % 60);
    smpte->hours = (LONG)(s / 3600);
    if (smpte->format == ZVSMPTE_30DROP && smpte->seconds == 0 && smpte->frames < 2 &&
        smpte->minutes % 10 != 0)
        smpte->frames = 2;  // those labels do not exist
}

ZVAPI LONG ZVSMPTE_SMPTEToFrameCount(const ZVSMPTEVAL *smpte)
{
    if (!smpte)
        return 0;
    LONG rate = LabelRate(smpte->format);
    if (!rate)
        return 0;
    LONGLONG frames = smpte->frames;
    if (smpte->format == ZVSMPTE_30DROP && frames < 2 && smpte->seconds == 0 && smpte->minutes % 10 != 0)
        frames = 2;
    LONGLONG count = ((LONGLONG)smpte->seconds + 60 * ((LONGLONG)smpte->minutes + 60 * (LONGLONG)smpte->hours)) * rate +
                     frames;
    if (smpte->format == ZVSMPTE_30DROP)
        count -= 108 * (LONGLONG)smpte->hours + ((LONGLONG)smpte->minutes - smpte->minutes / 10) * 2;
    if (count > LONG_MAX || count < LONG_MIN)
        return 0;
    return (LONG)count;
}

namespace {
HRESULT AddFrames(ZVSMPTEVAL *smpte, const ZVSMPTEVAL *other, int sign)
{
    if (!smpte || !other || !LabelRate(smpte->format))
        return E_INVALIDARG;
    // The other record's fields count in the first one's kind.
    ZVSMPTEVAL o = *other;
    o.format = smpte->format;
    LONGLONG day = ZVSMPTE_FramesPerDay(smpte->format);
    LONGLONG sum = (LONGLONG)ZVSMPTE_SMPTEToFrameCount(smpte) + sign * (LONGLONG)ZVSMPTE_SMPTEToFrameCount(&o);
    ZVSMPTE_FrameCountToSMPTE(smpte, (LONG)PositiveMod(sum, day));
    return S_OK;
}
} // namespace

ZVAPI HRESULT ZVSMPTE_AddSMPTE(ZVSMPTEVAL *smpte, const ZVSMPTEVAL *other)
{
    return AddFrames(smpte, other, 1);
}

ZVAPI HRESULT ZVSMPTE_SubtractSMPTE(ZVSMPTEVAL *smpte, const ZVSMPTEVAL *other)
{
    return AddFrames(smpte, other, -1);
}

ZVAPI void ZVSMPTE_NanoToSMPTE(LONGLONG nanotime, ZVSMPTEVAL *smpte)
{
    if (!smpte)
        return;
    double rate = TimeRate(smpte->format);
    if (rate <= 0.0)
        return;
    // The small addend keeps a frame boundary from falling one frame short
    // after a round trip through time.
    double frames = floor((double)nanotime * rate / (double)ZV_NANOS_PER_SECOND + 0.000005);
    LONGLONG day = ZVSMPTE_FramesPerDay(smpte->format);
    LONGLONG f = (LONGLONG)fmod(frames, (double)day);
    ZVSMPTE_FrameCountToSMPTE(smpte, (LONG)PositiveMod(f, day));
}

ZVAPI LONGLONG ZVSMPTE_SMPTEToNanos(const ZVSMPTEVAL *smpte)
{
    if (!smpte)
        return 0;
    double rate = TimeRate(smpte->format);
    if (rate <= 0.0)
        return 0;
    return (LONGLONG)((double)ZVSMPTE_SMPTEToFrameCount(smpte) / rate * (double)ZV_NANOS_PER_SECOND);
}

ZVAPI LONGLONG ZVSMPTE_SmpteLikeToNanos(double rate, const ZVSMPTEVAL *smpte)
{
    if (!smpte)
        return 0;
    // Whole seconds exactly, the frames through the rate.
    LONGLONG seconds = (LONGLONG)smpte->hours * 3600 + (LONGLONG)smpte->minutes * 60 + smpte->seconds;
    LONGLONG nanos = seconds * ZV_NANOS_PER_SECOND;
    if (rate > 0.0)
        nanos += (LONGLONG)((double)smpte->frames * (double)ZV_NANOS_PER_SECOND / rate);
    return nanos;
}

ZVAPI HRESULT ZVSMPTE_TextToSMPTE(LPCWSTR text, ZVSMPTEVAL *smpte)
{
    if (!text || !smpte)
        return E_INVALIDARG;
    smpte->hours = smpte->minutes = smpte->seconds = smpte->frames = smpte->reserved = 0;

    // Work on a cleaned copy: twice the room, since long digit runs gain a
    // blank for every pair.
    const int kMax = 128;
    WCHAR copy[2 * kMax + 4];
    int n = 0;
    while (text[n] && n < kMax) {
        copy[n] = text[n];
        n++;
    }
    while (n > 0 && IsBlank(copy[n - 1]))
        n--;
    bool digits = false;
    for (int i = 0; i < n && !digits; i++)
        digits = IsDigit(copy[i]);
    if (!digits)
        return ZVERR_MALFORMED;
    // A text ending in a separator counts a zero field behind it.
    if (n > 0 && !IsDigit(copy[n - 1])) {
        copy[n - 1] = L' ';
        copy[n++] = L'0';
    }
    for (int i = 0; i < n; i++)
        if (!IsDigit(copy[i]))
            copy[i] = L' ';

    int i = 0;
    while (i < n) {
        if (!IsDigit(copy[i])) {
            i++;
            continue;
        }
        int start = i;
        while (i < n && IsDigit(copy[i]))
            i++;
        // A run of more than two digits is pairs read from the right: the
        // first number takes the odd digit, if any.
        int len = i - start;
        int first = len % 2 ? 1 : 2;
        if (len <= 2)
            first = len;
        for (int p = start; p < i;) {
            int take = p == start ? first : 2;
            LONG v = 0;
            for (int k = 0; k < take; k++)
                v = v * 10 + (copy[p + k] - L'0');
            p += take;
            smpte->hours = smpte->minutes;
            smpte->minutes = smpte->seconds;
            smpte->seconds = smpte->frames;
            smpte->frames = v;
        }
    }
    return S_OK;
}

ZVAPI int ZVSMPTE_SMPTECompare(const ZVSMPTEVAL *a, const ZVSMPTEVAL *b)
{
    if (!a || !b)
        return a == b ? 0 : (a ? 1 : -1);
    const LONG av[4] = {a->hours, a->minutes, a->seconds, a->frames};
    const LONG bv[4] = {b->hours, b->minutes, b->seconds, b->frames};
    for (int i = 0; i < 4; i++) {
        if (av[i] < bv[i])
            return -1;
        if (av[i] > bv[i])
            return 1;
    }
    return 0;
}

ZVAPI void ZVSMPTE_IncrementByFrame(ZVSMPTEVAL *smpte, LONG)
{
    if (!smpte)
        return;
    LONG rate = LabelRate(smpte->format);
    if (!rate)
        return;
    if (++smpte->frames < rate)
        return;
    smpte->frames = 0;
    if (++smpte->seconds < 60)
        return;
    smpte->seconds = 0;
    if (++smpte->minutes >= 60) {
        smpte->minutes = 0;
        if (++smpte->hours > 23)
            smpte->hours = 0;
    }
    if (smpte->format == ZVSMPTE_30DROP && smpte->minutes % 10 != 0)
        smpte->frames = 2;
}

ZVAPI void ZVSMPTE_DeccrementByFrame(ZVSMPTEVAL *smpte, LONG)
{
    if (!smpte)
        return;
    LONG rate = LabelRate(smpte->format);
    if (!rate)
        return;
    LONG lowest = (smpte->format == ZVSMPTE_30DROP && smpte->seconds == 0 && smpte->minutes % 10 != 0) ? 2 : 0;
    if (--smpte->frames >= lowest)
        return;
    smpte->frames = rate - 1;
    if (--smpte->seconds >= 0)
        return;
    smpte->seconds = 59;
    if (--smpte->minutes < 0) {
        smpte->minutes = 59;
        if (--smpte->hours < 0)
            smpte->hours = 23;
    }
}

ZVAPI int ZVSMPTE_SMPTEToText(const ZVSMPTEVAL *smpte, LPWSTR buffer, int cch)
{
    if (!smpte || !buffer || cch < 1)
        return 0;
    Separators sep;
    GetSeparators(&sep);
    int pos = 0;
    const WCHAR *last = smpte->format == ZVSMPTE_30DROP ? sep.drop : sep.nonDrop;
    if (!Append(buffer, cch, &pos, L"%02ld%ls%02ld%ls%02ld%ls%02ld", (long)smpte->hours, sep.whole,
                (long)smpte->minutes, sep.whole, (long)smpte->seconds, last,
                (long)smpte->frames)) {
        buffer[0] = 0;
        return 0;
    }
    return pos;
}

// ---------------------------------------------------------------- HMSF

ZVAPI void ZvNanoTimeToHMSF(LONGLONG nanotime, ZVSMPTEVAL *hmsf, double rate, BOOL noWrap)
{
    if (!hmsf)
        return;
    if (LabelRate(hmsf->format)) {
        ZVSMPTE_NanoToSMPTE(nanotime, hmsf);
        return;
    }
    const double kMinimumRate = 0.001;
    double seconds = (double)nanotime / (double)ZV_NANOS_PER_SECOND;
    bool negative = seconds < 0;
    if (negative)
        seconds = -seconds;
    if (rate > kMinimumRate)
        seconds += 0.5 / rate;  // round to the nearest frame
    double hours = floor(seconds / 3600.0);
    seconds -= hours * 3600.0;
    double minutes = floor(seconds / 60.0);
    seconds -= minutes * 60.0;
    double whole = floor(seconds);
    double frames = rate > kMinimumRate ? floor((seconds - whole) * rate) : 0.0;
    if (!noWrap)
        hours = fmod(hours, 24.0);
    if (hours > (double)LONG_MAX)
        hours = (double)LONG_MAX;
    hmsf->hours = negative ? -(LONG)hours : (LONG)hours;
    hmsf->minutes = (LONG)minutes;
    hmsf->seconds = (LONG)whole;
    hmsf->frames = (LONG)frames;
}

ZVAPI LONGLONG ZvHMSFToNanoTime(const ZVSMPTEVAL *hmsf, double rate)
{
    if (!hmsf)
        return 0;
    if (LabelRate(hmsf->format))
        return ZVSMPTE_SMPTEToNanos(hmsf);
    bool negative = hmsf->hours < 0;
    ZVSMPTEVAL v = *hmsf;
    if (negative)
        v.hours = -v.hours;
    LONGLONG n = ZVSMPTE_SmpteLikeToNanos(rate, &v);
    return negative ? -n : n;
}

// ---------------------------------------------------------------- music time

ZVAPI LONGLONG ZvNanoTimeToMeasures(LONGLONG nanotime, const ZVPOSFMT *format, LONG *measures,
                                    LONG *beats, LONG *ticks)
{
    LONG m = 0, b = 0, t = 0;
    LONGLONG total = 0;
    if (format && format->tempo > 0.0 && format->beatsPerMeasure > 0) {
        double bpm = format->beatsPerMeasure;
        double tpb = format->ticksPerBeat;
        double x = (double)nanotime * format->tempo / bpm / 600000000.0 + 0.00005;
        double whole = floor(x);
        double beatsIn = (x - whole) * bpm;
        double beatWhole = floor(beatsIn);
        double tickWhole = floor((beatsIn - beatWhole) * tpb);
        if (fabs(whole) < 2e9) {
            m = (LONG)whole;
            b = (LONG)beatWhole;
            t = (LONG)tickWhole;
            total = ((LONGLONG)m * format->beatsPerMeasure + b) * (LONGLONG)format->ticksPerBeat + t;
        }
    }
    if (measures)
        *measures = m;
    if (beats)
        *beats = b;
    if (ticks)
        *ticks = t;
    return total;
}

ZVAPI LONGLONG ZvTicksToNanoTime(LONGLONG ticks, const ZVPOSFMT *format)
{
    if (!format || !(format->tempo > 0.0) || !format->ticksPerBeat)
        return 0;
    double beats = (double)ticks / (double)format->ticksPerBeat;
    return (LONGLONG)floor(beats * 600000000.0 / format->tempo + 0.5);
}

ZVAPI int ZvMeasuresAndTicksToText(LONG measures, LONG beats, LONG ticks, BOOL withTicks, LPWSTR buffer,
                                   int cch)
{
    if (!buffer || cch < 1)
        return 0;
    Separators sep;
    GetSeparators(&sep);
    int pos = 0;
    bool ok = withTicks ? Append(buffer, cch, &pos, L"%ld%ls%lu%ls%03lu", (long)measures + 1, sep.measureBeat,
                                 (unsigned long)beats + 1, sep.beatTick, (unsigned long)ticks)
                        : Append(buffer, cch, &pos, L"%ld%ls%lu", (long)measures + 1, sep.measureBeat,
                                 (unsigned long)beats + 1);
    if (!ok) {
        buffer[0] = 0;
        return 0;
    }
    return pos;
}

ZVAPI int ZvTicksToText(LONGLONG ticks, DWORD ticksPerBeat, BOOL withTicks, LPWSTR buffer, int cch)
{
    if (!buffer || cch < 1 || !ticksPerBeat)
        return 0;
    Separators sep;
    GetSeparators(&sep);
    bool negative = ticks < 0;
    ULONGLONG t = negative ? (ULONGLONG)(-ticks) : (ULONGLONG)ticks;
    int pos = 0;
    bool ok = withTicks ? Append(buffer, cch, &pos, L"%ls%I64u%ls%03lu", negative ? L"-" : L"", t / ticksPerBeat,
                                 sep.beatTick, (unsigned long)(t % ticksPerBeat))
                        : Append(buffer, cch, &pos, L"%ls%I64u", negative ? L"-" : L"", t / ticksPerBeat);
    if (!ok) {
        buffer[0] = 0;
        return 0;
    }
    return pos;
}

namespace {
// Reads up to max unsigned numbers separated by single non-digit, non-blank
// characters; returns how many and where it stopped.
int ReadNumbers(LPCWSTR text, double *values, int max, LPCWSTR *end, bool fractionLast = false,
                double *fraction = nullptr, bool *negative = nullptr)
{
    LPCWSTR p = text;
    while (IsBlank(*p))
        p++;
    if (negative) {
        *negative = false;
        if (*p == L'-') {
            *negative = true;
            p++;
        } else if (*p == L'+')
            p++;
    }
    int count = 0;
    if (fraction)
        *fraction = 0.0;
    while (count < max && IsDigit(*p)) {
        double v = 0;
        while (IsDigit(*p))
            v = v * 10 + (*p++ - L'0');
        values[count++] = v;
        if (fractionLast && fraction && (*p == L'.' || *p == L',') && IsDigit(p[1])) {
            p++;
            double scale = 0.1, f = 0;
            while (IsDigit(*p)) {
                f += (*p++ - L'0') * scale;
                scale /= 10;
            }
            *fraction = f;
            break;
        }
        if (count < max && *p && !IsDigit(*p) && !IsBlank(*p) && IsDigit(p[1]))
            p++;
        else
            break;
    }
    if (end)
        *end = count ? p : text;
    return count;
}
} // namespace

ZVAPI HRESULT ZvTextToMeasuresBeatsTicks(LPCWSTR text, LONG *measures, LONG *beats, LONG *ticks)
{
    if (!text)
        return E_INVALIDARG;
    double v[3] = {1, 1, 0};
    int n = ReadNumbers(text, v, 3, nullptr);
    if (n == 0 || v[0] < 1 || v[0] > 2e9 || v[1] < 1 || v[1] > 65536 || v[2] > 2e9)
        return ZVERR_MALFORMED;
    if (measures)
        *measures = (LONG)v[0] - 1;
    if (beats)
        *beats = (LONG)v[1] - 1;
    if (ticks)
        *ticks = (LONG)v[2];
    return S_OK;
}

ZVAPI HRESULT ZvTextToBeatsTicks(LPCWSTR text, LONG *beats, LONG *ticks)
{
    if (!text)
        return E_INVALIDARG;
    double v[2] = {0, 0};
    int n = ReadNumbers(text, v, 2, nullptr);
    if (n == 0 || v[0] > 2e9 || v[1] > 2e9)
        return ZVERR_MALFORMED;
    if (beats)
        *beats = (LONG)v[0];
    if (ticks)
        *ticks = (LONG)v[1];
    return S_OK;
}

ZVAPI LONGLONG ZvTextToTicks(LPCWSTR text, const ZVPOSFMT *format)
{
    LONG m, b, t;
    if (!format || FAILED(ZvTextToMeasuresBeatsTicks(text, &m, &b, &t)))
        return -1;
    return ((LONGLONG)m * format->beatsPerMeasure + b) * (LONGLONG)format->ticksPerBeat + t;
}

// ---------------------------------------------------------------- position text

namespace {

double FpsOf(const ZVPOSFMT *format)
{
    return format && format->fps > 0.0 ? format->fps : 30.0;
}

int PositionText(LONGLONG nanotime, const ZVPOSFMT *format, DWORD kind, LPWSTR buffer, int cch, bool unit)
{
    if (!buffer || cch < 1)
        return 0;
    buffer[0] = 0;
    if (!format || kind >= ZVPOSFMT_KINDS)
        return 0;
    Separators sep;
    GetSeparators(&sep);
    const WCHAR *sign = nanotime < 0 ? L"-" : L"";
    ULONGLONG mag = nanotime < 0 ? (ULONGLONG)0 - (ULONGLONG)nanotime : (ULONGLONG)nanotime;
    int pos = 0;
    bool ok = false;
    const WCHAR *label = L"";
    switch (kind) {
    case ZVPOSFMT_TIME: {
        ULONGLONG ms = mag / 10000;
        ok = Append(buffer, cch, &pos, L"%ls%I64u:%02I64u:%02I64u.%03I64u", sign, ms / 3600000, (ms / 60000) % 60,
                    (ms / 1000) % 60, ms % 1000);
        break;
    }
    case ZVPOSFMT_SECONDS: {
        ULONGLONG ms = mag / 10000;
        ok = Append(buffer, cch, &pos, L"%ls%I64u.%03I64u", sign, ms / 1000, ms % 1000);
        label = L" s";
        break;
    }
    case ZVPOSFMT_SMPTE:
    case ZVPOSFMT_HMSF: {
        ZVSMPTEVAL v = {};
        v.format = kind == ZVPOSFMT_SMPTE ? (LONG)format->smpte : 0;
        if (!LabelRate(v.format))
            v.format = 0;
        ZvNanoTimeToHMSF(nanotime, &v, FpsOf(format), FALSE);
        if (v.format)
            ok = ZVSMPTE_SMPTEToText(&v, buffer, cch) > 0;
        else
            ok = Append(buffer, cch, &pos, L"%02ld%ls%02ld%ls%02ld%ls%02ld", (long)v.hours, sep.whole,
                        (long)v.minutes, sep.whole, (long)v.seconds, sep.nonDrop, (long)v.frames);
        pos = (int)wcslen(buffer);
        label = L" fr";
        break;
    }
    case ZVPOSFMT_MEASURES: {
        LONG m, b, t;
        ZvNanoTimeToMeasures(nanotime, format, &m, &b, &t);
        ok = ZvMeasuresAndTicksToText(m, b, t, TRUE, buffer, cch) > 0;
        pos = (int)wcslen(buffer);
        break;
    }
    case ZVPOSFMT_BEATS: {
        LONGLONG ticks = 0;
        if (format->tempo > 0.0 && format->ticksPerBeat)
            ticks = (LONGLONG)floor((double)nanotime * format->tempo / 600000000.0 * format->ticksPerBeat +
                                    0.00005);
        ok = ZvTicksToText(ticks, format->ticksPerBeat ? format->ticksPerBeat : 1, TRUE, buffer, cch) > 0;
        pos = (int)wcslen(buffer);
        break;
    }
    case ZVPOSFMT_FEETFRAMES: {
        ULONGLONG frames = (ULONGLONG)((double)mag * FpsOf(format) / (double)ZV_NANOS_PER_SECOND + 0.000005);
        ok = Append(buffer, cch, &pos, L"%ls%I64u+%02I64u", sign, frames / 16, frames % 16);
        label = L" ft";
        break;
    }
    case ZVPOSFMT_SAMPLES: {
        ULONGLONG rate = format->sampleRate ? format->sampleRate : 48000;
        ULONGLONG samples = (mag / ZV_NANOS_PER_SECOND) * rate +
                            ((mag % ZV_NANOS_PER_SECOND) * rate) / ZV_NANOS_PER_SECOND;
        ok = Append(buffer, cch, &pos, L"%ls%I64u", sign, samples);
        label = L" smp";
        break;
    }
    }
    if (ok && unit && *label)
        ok = Append(buffer, cch, &pos, L"%ls", label);
    if (!ok) {
        buffer[0] = 0;
        return 0;
    }
    return pos;
}

} // namespace

ZVAPI int ZvNanoTimeToText(LONGLONG nanotime, const ZVPOSFMT *format, LPWSTR buffer)
{
    return PositionText(nanotime, format, format ? format->kind : 0, buffer, ZVTIME_TEXT_CHARS, false);
}

ZVAPI int ZvNanoTimeToTextN(LONGLONG nanotime, const ZVPOSFMT *format, LPWSTR buffer, int cch)
{
    return PositionText(nanotime, format, format ? format->kind : 0, buffer, cch, false);
}

ZVAPI int ZvNanoTimeToTextEx(LONGLONG nanotime, const ZVPOSFMT *format, DWORD kind, LPWSTR buffer)
{
    return PositionText(nanotime, format, kind, buffer, ZVTIME_TEXT_CHARS, false);
}

ZVAPI int ZvNanoTimeToTextExN(LONGLONG nanotime, const ZVPOSFMT *format, DWORD kind, LPWSTR buffer, int cch)
{
    return PositionText(nanotime, format, kind, buffer, cch, false);
}

ZVAPI int ZvNanoTimeToTextFormat(LONGLONG nanotime, const ZVPOSFMT *format, LPWSTR buffer)
{
    return PositionText(nanotime, format, format ? format->kind : 0, buffer, ZVTIME_TEXT_CHARS, true);
}

ZVAPI int ZvNanoTimeToTextFormatN(LONGLONG nanotime, const ZVPOSFMT *format, LPWSTR buffer, int cch)
{
    return PositionText(nanotime, format, format ? format->kind : 0, buffer, cch, true);
}

// ---------------------------------------------------------------- position parsers

ZVAPI LONGLONG ZvTextToTimeToken(LPCWSTR text, LPCWSTR *end)
{
    if (end)
        *end = text;
    if (!text)
        return 0;
    double v[3];
    double fraction;
    bool negative;
    int n = ReadNumbers(text, v, 3, end, true, &fraction, &negative);
    if (!n)
        return 0;
    double seconds = 0;
    for (int i = 0; i < n; i++)
        seconds = seconds * 60 + v[i];
    seconds += fraction;
    if (seconds > 9.2e11)
        seconds = 9.2e11;
    LONGLONG nanos = (LONGLONG)floor(seconds * (double)ZV_NANOS_PER_SECOND + 0.5);
    return negative ? -nanos : nanos;
}

ZVAPI LONGLONG ZvTextToHMSFToken(LPCWSTR text, double rate, ZVSMPTEVAL *hmsf, LPCWSTR *end)
{
    if (end)
        *end = text;
    if (!text)
        return 0;
    double v[4];
    bool negative;
    int n = ReadNumbers(text, v, 4, end, false, nullptr, &negative);
    if (!n)
        return 0;
    ZVSMPTEVAL r = {};
    if (hmsf)
        r.format = LabelRate(hmsf->format) ? hmsf->format : 0;
    LONG *fields[4] = {&r.hours, &r.minutes, &r.seconds, &r.frames};
    for (int i = 0; i < n; i++)
        *fields[4 - n + i] = v[i] > 2e9 ? 2000000000 : (LONG)v[i];
    if (negative)
        r.hours = -r.hours;
    if (hmsf)
        *hmsf = r;
    if (negative && r.hours == 0)
        return -ZvHMSFToNanoTime(&r, rate);
    return ZvHMSFToNanoTime(&r, rate);
}

ZVAPI LONGLONG ZvTextToMusicTimeToken(LPCWSTR text, const ZVPOSFMT *format, LPCWSTR *end)
{
    if (end)
        *end = text;
    if (!text || !format)
        return 0;
    double v[3] = {1, 1, 0};
    int n = ReadNumbers(text, v, 3, end);
    if (!n)
        return 0;
    if (v[0] < 1)
        v[0] = 1;
    if (v[1] < 1)
        v[1] = 1;
    double beats = (v[0] - 1) * format->beatsPerMeasure + (v[1] - 1);
    if (format->ticksPerBeat)
        beats += v[2] / format->ticksPerBeat;
    if (!(format->tempo > 0.0))
        return 0;
    return (LONGLONG)floor(beats * 600000000.0 / format->tempo + 0.5);
}

ZVAPI LONGLONG ZvTextToFeetAndFramesToken(LPCWSTR text, double rate, LPCWSTR *end)
{
    if (end)
        *end = text;
    if (!text || !(rate > 0.0))
        return 0;
    double v[2] = {0, 0};
    bool negative;
    int n = ReadNumbers(text, v, 2, end, false, nullptr, &negative);
    if (!n)
        return 0;
    double frames = n == 2 ? v[0] * 16 + v[1] : v[0] * 16;
    LONGLONG nanos = (LONGLONG)(frames / rate * (double)ZV_NANOS_PER_SECOND);
    return negative ? -nanos : nanos;
}

ZVAPI LONGLONG ZvTextToNanoTimeTokenEx(LPCWSTR text, const ZVPOSFMT *format, DWORD kind, LPCWSTR *end)
{
    if (end)
        *end = text;
    if (!text || !format)
        return 0;
    switch (kind) {
    case ZVPOSFMT_TIME:
    case ZVPOSFMT_SECONDS:
        return ZvTextToTimeToken(text, end);
    case ZVPOSFMT_SMPTE:
    case ZVPOSFMT_HMSF: {
        ZVSMPTEVAL v = {};
        v.format = kind == ZVPOSFMT_SMPTE ? (LONG)format->smpte : 0;
        return ZvTextToHMSFToken(text, FpsOf(format), &v, end);
    }
    case ZVPOSFMT_MEASURES:
        return ZvTextToMusicTimeToken(text, format, end);
    case ZVPOSFMT_BEATS: {
        double v[2] = {0, 0};
        int n = ReadNumbers(text, v, 2, end);
        if (!n || !(format->tempo > 0.0))
            return 0;
        double beats = v[0] + (format->ticksPerBeat ? v[1] / format->ticksPerBeat : 0);
        return (LONGLONG)floor(beats * 600000000.0 / format->tempo + 0.5);
    }
    case ZVPOSFMT_FEETFRAMES:
        return ZvTextToFeetAndFramesToken(text, FpsOf(format), end);
    case ZVPOSFMT_SAMPLES: {
        double v[1] = {0};
        bool negative;
        int n = ReadNumbers(text, v, 1, end, false, nullptr, &negative);
        if (!n)
            return 0;
        double rate = format->sampleRate ? format->sampleRate : 48000;
        LONGLONG nanos = (LONGLONG)ceil(v[0] * (double)ZV_NANOS_PER_SECOND / rate - 1e-6);
        return negative ? -nanos : nanos;
    }
    default:
        return 0;
    }
}

ZVAPI LONGLONG ZvTextToNanoTimeToken(LPCWSTR text, const ZVPOSFMT *format, LPCWSTR *end)
{
    return ZvTextToNanoTimeTokenEx(text, format, format ? format->kind : 0, end);
}

ZVAPI HRESULT ZvTextToNanoTimeToken2(LPCWSTR text, const ZVPOSFMT *format, LONGLONG *nanotime, LPCWSTR *end)
{
    if (end)
        *end = text;
    if (!text || !format || !nanotime)
        return E_INVALIDARG;
    LPCWSTR stop = text;
    *nanotime = ZvTextToNanoTimeToken(text, format, &stop);
    if (end)
        *end = stop;
    return stop == text ? ZVERR_MALFORMED : S_OK;
}

// ---------------------------------------------------------------- labelled values

ZVAPI int ZvGetLabeledStringFloat(double value, int decimals, LPCWSTR unit, LPWSTR buffer, int cch)
{
    if (!buffer || cch < 1)
        return 0;
    if (decimals < 0)
        decimals = 0;
    if (decimals > 15)
        decimals = 15;
    int pos = 0;
    bool ok;
    if (isnan(value))
        ok = Append(buffer, cch, &pos, L"NaN");
    else if (value == -HUGE_VAL || value <= -1e300)
        ok = Append(buffer, cch, &pos, L"-Inf.");
    else if (value == HUGE_VAL || value >= 1e300)
        ok = Append(buffer, cch, &pos, L"+Inf.");
    else
        ok = Append(buffer, cch, &pos, L"%.*f", decimals, value);
    if (ok && unit && *unit)
        ok = Append(buffer, cch, &pos, L" %ls", unit);
    if (!ok) {
        buffer[0] = 0;
        return 0;
    }
    return pos;
}

ZVAPI int ZvGetLabeledStringFixed(LONG value, int decimals, LPCWSTR unit, LPWSTR buffer, int cch)
{
    if (decimals < 0)
        decimals = 0;
    if (decimals > 9)
        decimals = 9;
    if (value == LONG_MIN)
        return ZvGetLabeledStringFloat(-HUGE_VAL, 0, unit, buffer, cch);
    if (value == LONG_MAX)
        return ZvGetLabeledStringFloat(HUGE_VAL, 0, unit, buffer, cch);
    if (!buffer || cch < 1)
        return 0;
    // Exact digits: the integer split at its decimal point.
    LONGLONG scale = 1;
    for (int i = 0; i < decimals; i++)
        scale *= 10;
    LONGLONG mag = value < 0 ? -(LONGLONG)value : (LONGLONG)value;
    int pos = 0;
    bool ok = decimals ? Append(buffer, cch, &pos, L"%ls%I64d.%0*I64d", value < 0 ? L"-" : L"", mag / scale, decimals,
                                mag % scale)
                       : Append(buffer, cch, &pos, L"%ld", (long)value);
    if (ok && unit && *unit)
        ok = Append(buffer, cch, &pos, L" %ls", unit);
    if (!ok) {
        buffer[0] = 0;
        return 0;
    }
    return pos;
}

ZVAPI int ZvGetdBStringFloat(double value, int decimals, LPWSTR buffer, int cch)
{
    if (!isnan(value) && value <= -200.0)
        value = -HUGE_VAL;
    return ZvGetLabeledStringFloat(value, decimals, L"dB", buffer, cch);
}

ZVAPI int ZvGetdBStringFixed(LONG value, int decimals, LPWSTR buffer, int cch)
{
    LONGLONG scale = 1;
    for (int i = 0; i < decimals && i < 9; i++)
        scale *= 10;
    if (value != LONG_MAX && (LONGLONG)value <= -200 * scale)
        value = LONG_MIN;
    return ZvGetLabeledStringFixed(value, decimals, L"dB", buffer, cch);
}
