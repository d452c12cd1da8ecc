// Media time: positions are 64-bit counts of 100-nanosecond units
// ("nanotime"). SMPTE timecode on exact frame counts, hours-minutes-
// seconds-frames at any rate, musical measures, and their text forms.
#pragma once
#include "zvbase.h"

#define ZV_NANOS_PER_SECOND 10000000LL

// Frame rate kinds of a timecode record.
#define ZVSMPTE_30          1   // 30 frames, time at 30
#define ZVSMPTE_30DROP      2   // 30 drop frame, time at 30000/1001
#define ZVSMPTE_25          3
#define ZVSMPTE_24          4
#define ZVSMPTE_30NONDROP   5   // 30 non-drop, time at 30000/1001
#define ZVSMPTE_2398        6   // 24 frames, time at 24000/1001

typedef struct _zvsmpteval {
    LONG format;    // ZVSMPTE_*; 0 in an HMSF record: free frames at a rate
    LONG hours;
    LONG minutes;
    LONG seconds;
    LONG frames;
    LONG reserved;  // kept zero by the parser
} ZVSMPTEVAL;

// Text forms of a position.
#define ZVPOSFMT_TIME        0  // h:mm:ss.mmm
#define ZVPOSFMT_SECONDS     1  // s.mmm
#define ZVPOSFMT_SMPTE       2  // timecode of the record's kind (smpte)
#define ZVPOSFMT_HMSF        3  // hh:mm:ss.ff at fps
#define ZVPOSFMT_MEASURES    4  // measure.beat.tick, counted from 1.1.000
#define ZVPOSFMT_BEATS       5  // beat.tick, counted from 0
#define ZVPOSFMT_FEETFRAMES  6  // feet+frames of 35 mm film (16 frames a foot) at fps
#define ZVPOSFMT_SAMPLES     7  // sample count at sampleRate
#define ZVPOSFMT_KINDS       8

typedef struct _zvposfmt {
    DWORD kind;             // ZVPOSFMT_*
    DWORD smpte;            // ZVSMPTE_* for ZVPOSFMT_SMPTE; 0 means HMSF at fps
    double fps;             // frame rate of HMSF and feet and frames
    double tempo;           // beats per minute
    WORD beatsPerMeasure;
    WORD reserved;
    DWORD ticksPerBeat;
    DWORD sampleRate;       // samples per second for ZVPOSFMT_SAMPLES
} ZVPOSFMT;

// Room that the text functions without a length assume.
#define ZVTIME_TEXT_CHARS 64

// ---- timecode on frame counts

ZVAPI void ZVSMPTE_FrameCountToSMPTE(ZVSMPTEVAL *smpte, LONG frames);
// Frames of the record; 0 for a kind outside 1 to 6 or a null record.
ZVAPI LONG ZVSMPTE_SMPTEToFrameCount(const ZVSMPTEVAL *smpte);
// Frames in 24 hours for a kind, 0 outside 1 to 6.
ZVAPI LONG ZVSMPTE_FramesPerDay(LONG format);
// The sum or difference in the first record's kind, wrapped at 24 hours.
// E_INVALIDARG for a null record or a kind outside 1 to 6.
ZVAPI HRESULT ZVSMPTE_AddSMPTE(ZVSMPTEVAL *smpte, const ZVSMPTEVAL *other);
ZVAPI HRESULT ZVSMPTE_SubtractSMPTE(ZVSMPTEVAL *smpte, const ZVSMPTEVAL *other);
ZVAPI void ZVSMPTE_NanoToSMPTE(LONGLONG nanotime, ZVSMPTEVAL *smpte);
ZVAPI LONGLONG ZVSMPTE_SMPTEToNanos(const ZVSMPTEVAL *smpte);
ZVAPI LONGLONG ZVSMPTE_SmpteLikeToNanos(double rate, const ZVSMPTEVAL *smpte);
// Parses "hh:mm:ss:ff" and looser forms: every non-digit separates, runs of
// more than two digits split in pairs from the right, the last number is the
// frames. The kind stays. ZVERR_MALFORMED when the text holds no digit.
ZVAPI HRESULT ZVSMPTE_TextToSMPTE(LPCWSTR text, ZVSMPTEVAL *smpte);
// -1, 0 or 1 by hours, minutes, seconds, frames; kinds are ignored.
ZVAPI int ZVSMPTE_SMPTECompare(const ZVSMPTEVAL *a, const ZVSMPTEVAL *b);
ZVAPI void ZVSMPTE_IncrementByFrame(ZVSMPTEVAL *smpte, LONG unused);
ZVAPI void ZVSMPTE_DeccrementByFrame(ZVSMPTEVAL *smpte, LONG unused);
// "hh:mm:ss.ff", with the drop separator before the frames of kind 2.
// Returns the length, or 0 when the buffer is too small or missing.
ZVAPI int ZVSMPTE_SMPTEToText(const ZVSMPTEVAL *smpte, LPWSTR buffer, int cch);

// ---- hours, minutes, seconds, frames at any rate

ZVAPI void ZvNanoTimeToHMSF(LONGLONG nanotime, ZVSMPTEVAL *hmsf, double rate, BOOL noWrap);
ZVAPI LONGLONG ZvHMSFToNanoTime(const ZVSMPTEVAL *hmsf, double rate);

// ---- music time

// Measures, beats and ticks (each out may be null), all counted from 0;
// returns the whole count of ticks. 0 without tempo or beats per measure.
ZVAPI LONGLONG ZvNanoTimeToMeasures(LONGLONG nanotime, const ZVPOSFMT *format, LONG *measures,
                                    LONG *beats, LONG *ticks);
// Nanotime of a count of ticks under the format's tempo.
ZVAPI LONGLONG ZvTicksToNanoTime(LONGLONG ticks, const ZVPOSFMT *format);

// ---- text

// Text of a position in the format's kind. The plain forms assume
// ZVTIME_TEXT_CHARS of room; N forms take the length. Ex forms name the kind
// instead of the format's. Format forms add the kind's unit (" s", " fr",
// " smp" ...). All return the length written, 0 for bad arguments or room.
ZVAPI int ZvNanoTimeToText(LONGLONG nanotime, const ZVPOSFMT *format, LPWSTR buffer);
ZVAPI int ZvNanoTimeToTextN(LONGLONG nanotime, const ZVPOSFMT *format, LPWSTR buffer, int cch);
ZVAPI int ZvNanoTimeToTextEx(LONGLONG nanotime, const ZVPOSFMT *format, DWORD kind, LPWSTR buffer);
ZVAPI int ZvNanoTimeToTextExN(LONGLONG nanotime, const ZVPOSFMT *format, DWORD kind, LPWSTR buffer,
                              int cch);
ZVAPI int ZvNanoTimeToTextFormat(LONGLONG nanotime, const ZVPOSFMT *format, LPWSTR buffer);
ZVAPI int ZvNanoTimeToTextFormatN(LONGLONG nanotime, const ZVPOSFMT *format, LPWSTR buffer, int cch);

// Tolerant parsers: leading blanks are skipped, what was read is stepped
// over and *end (if given) points behind it. They return the nanotime, 0
// when nothing could be read (then *end is the text itself).
ZVAPI LONGLONG ZvTextToNanoTimeToken(LPCWSTR text, const ZVPOSFMT *format, LPCWSTR *end);
ZVAPI LONGLONG ZvTextToNanoTimeTokenEx(LPCWSTR text, const ZVPOSFMT *format, DWORD kind, LPCWSTR *end);
// The same with a result: S_OK, ZVERR_MALFORMED when no position was
// read, E_INVALIDARG for null arguments.
ZVAPI HRESULT ZvTextToNanoTimeToken2(LPCWSTR text, const ZVPOSFMT *format, LONGLONG *nanotime,
                                     LPCWSTR *end);
// "[-][[h:]m:]s[.fraction]"
ZVAPI LONGLONG ZvTextToTimeToken(LPCWSTR text, LPCWSTR *end);
// "h:m:s:f" (any separators) at the rate, or the record's kind when hmsf
// names one; the fields read go to hmsf if given.
ZVAPI LONGLONG ZvTextToHMSFToken(LPCWSTR text, double rate, ZVSMPTEVAL *hmsf, LPCWSTR *end);
// "measure.beat.tick" counted from 1.1.000
ZVAPI LONGLONG ZvTextToMusicTimeToken(LPCWSTR text, const ZVPOSFMT *format, LPCWSTR *end);
// "feet+frames", 16 frames a foot, at the rate
ZVAPI LONGLONG ZvTextToFeetAndFramesToken(LPCWSTR text, double rate, LPCWSTR *end);

// Music time text. Measures and beats show counted from 1.
ZVAPI int ZvMeasuresAndTicksToText(LONG measures, LONG beats, LONG ticks, BOOL withTicks, LPWSTR buffer,
                                   int cch);
// beat.tick of a count of ticks
ZVAPI int ZvTicksToText(LONGLONG ticks, DWORD ticksPerBeat, BOOL withTicks, LPWSTR buffer, int cch);
// Parse "m.b[.t]" (from 1) into counts from 0; "b[.t]" into beats and
// ticks; S_OK or ZVERR_MALFORMED.
ZVAPI HRESULT ZvTextToMeasuresBeatsTicks(LPCWSTR text, LONG *measures, LONG *beats, LONG *ticks);
ZVAPI HRESULT ZvTextToBeatsTicks(LPCWSTR text, LONG *beats, LONG *ticks);
// The whole count of ticks of "m.b.t" under the format; -1 for bad text.
ZVAPI LONGLONG ZvTextToTicks(LPCWSTR text, const ZVPOSFMT *format);

// A value with its unit. Fixed forms take an integer in units of
// 10^-decimals; the ends of the range (LONG_MIN, LONG_MAX or infinities)
// read "-Inf." and "+Inf.". The dB forms use " dB" and show values at or
// below -200 dB as "-Inf.". They return the length, 0 for bad arguments.
ZVAPI int ZvGetLabeledStringFixed(LONG value, int decimals, LPCWSTR unit, LPWSTR buffer, int cch);
ZVAPI int ZvGetLabeledStringFloat(double value, int decimals, LPCWSTR unit, LPWSTR buffer, int cch);
ZVAPI int ZvGetdBStringFixed(LONG value, int decimals, LPWSTR buffer, int cch);
ZVAPI int ZvGetdBStringFloat(double value, int decimals, LPWSTR buffer, int cch);
