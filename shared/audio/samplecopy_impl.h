// Internal to the sample copy: sample forms, the per-sample rule, and the
// scalar loops that every processor variant must match bit for bit.
#pragma once
#include <stdint.h>
#include <string.h>
#include <utility>
#include "audio/samplecopy.h"

namespace zvsc {

// A table of function pointers over all pairs, null where no pair exists.
enum { kTypeCount = 11 };
typedef ZVAUDIOCOPYFUNC CopyTable[kTypeCount][kTypeCount];

// The plain scalar table, and those of the vector variants (built per
// instruction set in its own unit).
const CopyTable &BaseTable();
const CopyTable &Sse2Table();
const CopyTable &Avx2Table();
const CopyTable &Avx512Table();

// Long runs between separate buffers are cut into pieces that the caller
// takes from the front and the copy's worker threads from the back;
// body(ctx, begin, end) converts one piece. The workers run with the caller's floating point control word, so
// the rounding is the same on every thread. Returns once every piece is done
// and its stores are visible. With the workers busy on another run, or none
// to be had, the caller converts every piece itself.
typedef void (*PieceFunc)(void *ctx, int begin, int end);
void RunPieces(int count, int piece, PieceFunc body, void *ctx);

// From this many samples a run between separate buffers is shared out
// (a quarter of the second-level cache and more: the work outweighs the
// hand-over, and each thread's part stays in its own cache).
enum { kSharedRunFrom = 1 << 18, kSharedPiece = 1 << 16 };
// From this many output bytes stores bypass the caches: an output that
// large leaves them anyway, and the lines need not be read first.
enum { kStreamFromBytes = 8 << 20 };

// Everything below has internal linkage: each unit is compiled for its own
// instruction set, and the linker must not swap one unit's copy for another's.
namespace {

// The 11 linear types in table order.
constexpr int kTypes[kTypeCount] = {16, 17, 18, 19, 32, 33, 48, 49, 64, 65, 66};

inline int TypeIndex(int type)
{
    for (int i = 0; i < kTypeCount; i++)
        if (kTypes[i] == type)
            return i;
    return -1;
}

// The four pairs without a function: destination 64 or 65 from 48 or 66.
constexpr bool HasPair(int d, int s)
{
    return !((d == 64 || d == 65) && (s == 48 || s == 66));
}

constexpr bool IsFloat(int t) { return t == 32 || t == 33; }

constexpr int Bytes(int t)
{
    return t == 16 || t == 49 ? 1 : t == 17 || t == 64 ? 2 : t == 18 || t == 65 ? 3 : t == 33 ? 8 : 4;
}

// Bits of the integer value (24 for the unpacked type); 0 for floats.
constexpr int Bits(int t)
{
    return IsFloat(t) ? 0 : t == 48 ? 24 : Bytes(t) * 8;
}

// 2^-(n-1) and 2^(n-1); 1 for floats.
constexpr double Norm(int t)
{
    return IsFloat(t) ? 1.0 : 1.0 / (double)(1ull << (Bits(t) - 1));
}
constexpr double Denorm(int t)
{
    return IsFloat(t) ? 1.0 : (double)(1ull << (Bits(t) - 1));
}

const double kRoundMagic = 6755399441055744.0;   // 1.5 * 2^52

inline uint16_t Swap16(uint16_t v) { return (uint16_t)((v >> 8) | (v << 8)); }
inline uint32_t Swap32(uint32_t v)
{
    return (v >> 24) | ((v >> 8) & 0xFF00u) | ((v << 8) & 0xFF0000u) | (v << 24);
}

// Integer value of one sample.
template <int T> inline int32_t ReadInt(const uint8_t *p)
{
    if (T == 16) return (int32_t)(int8_t)(p[0] ^ 0x80);
    if (T == 49) return (int8_t)p[0];
    if (T == 17) { int16_t v; memcpy(&v, p, 2); return v; }
    if (T == 64) { uint16_t v; memcpy(&v, p, 2); return (int16_t)Swap16(v); }
    if (T == 18) return (int32_t)((uint32_t)p[0] | ((uint32_t)p[1] << 8) | ((uint32_t)(int8_t)p[2] << 16));
    if (T == 65) return (int32_t)((uint32_t)p[2] | ((uint32_t)p[1] << 8) | ((uint32_t)(int8_t)p[0] << 16));
    if (T == 66) { uint32_t v; memcpy(&v, p, 4); return (int32_t)Swap32(v); }
    int32_t v; memcpy(&v, p, 4); return v;   // 19, 48
}

template <int T> inline void WriteInt(uint8_t *p, int32_t v)
{
    if (T == 16) { p[0] = (uint8_t)(v ^ 0x80); return; }
    if (T == 49) { p[0] = (uint8_t)v; return; }
    if (T == 17) { int16_t w = (int16_t)v; memcpy(p, &w, 2); return; }
    if (T == 64) { uint16_t w = Swap16((uint16_t)v); memcpy(p, &w, 2); return; }
    if (T == 18) { p[0] = (uint8_t)v; p[1] = (uint8_t)(v >> 8); p[2] = (uint8_t)(v >> 16); return; }
    if (T == 65) { p[2] = (uint8_t)v; p[1] = (uint8_t)(v >> 8); p[0] = (uint8_t)(v >> 16); return; }
    if (T == 66) { uint32_t w = Swap32((uint32_t)v); memcpy(p, &w, 4); return; }
    memcpy(p, &v, 4);   // 19, 48 (already sign-extended by the clamp)
}

template <int T> inline double ReadNum(const uint8_t *p)
{
    if (T == 32) { float f; memcpy(&f, p, 4); return f; }
    if (T == 33) { double d; memcpy(&d, p, 8); return d; }
    return (double)ReadInt<T>(p);
}

// Clamp, then round to nearest-even through the 1.5 * 2^52 addition; the low
// 32 bits of the sum are the integer. NaN passes the clamp unchanged, as the
// vector forms must reproduce.
template <int T> inline int32_t RoundClamp(double v)
{
    const double lo = -Denorm(T), hi = Denorm(T) - 1.0;
    v = v < lo ? lo : v;
    v = v > hi ? hi : v;
    double t = v + kRoundMagic;
    uint64_t bits;
    memcpy(&bits, &t, 8);
    return (int32_t)(uint32_t)bits;
}

// One sample: v is the source value already multiplied by the scale.
template <int T> inline void WriteNum(uint8_t *p, double v)
{
    if (T == 32) { float f = (float)v; memcpy(p, &f, 4); return; }
    if (T == 33) { memcpy(p, &v, 8); return; }
    WriteInt<T>(p, RoundClamp<T>(v));
}

// Source normalisation, gain and destination scaling folded into one factor:
// the powers of two are exact, so the single product rounds as the three
// steps of the rule do.
template <int D, int S> inline double Scale(float gain, bool unity)
{
    return unity ? Norm(S) * Denorm(D) : (double)gain * (Norm(S) * Denorm(D));
}

// Integer to integer at unity in integers: shifts when widening, rounding
// to nearest-even when narrowing.
template <int D, int S> inline int32_t IntUnity(int32_t v)
{
    constexpr int n = Bits(S), m = Bits(D);
    int64_t r = v;
    if constexpr (m >= n) {
        r = r * (1ll << (m - n));
    } else {
        constexpr int k = n - m;
        r = (r + ((1ll << (k - 1)) - 1) + ((r >> k) & 1)) >> k;
    }
    // Only the unpacked type can hold a value beyond its 24 bits.
    const int64_t lo = -(1ll << (m - 1)), hi = (1ll << (m - 1)) - 1;
    return (int32_t)(r < lo ? lo : r > hi ? hi : r);
}

template <int D, int S> inline void ConvertOne(uint8_t *d, const uint8_t *s, double scale, bool unity)
{
    if constexpr (!IsFloat(D) && !IsFloat(S)) {
        if (unity) {
            WriteInt<D>(d, IntUnity<D, S>(ReadInt<S>(s)));
            return;
        }
    }
    WriteNum<D>(d, ReadNum<S>(s) * scale);
}

// Runs [begin, end) one sample at a time: upward, or downward when widening
// so that an in-place copy reads every sample before it is overwritten.
template <int D, int S, bool Unity>
inline void ScalarRun(uint8_t *d, const uint8_t *s, int begin, int end, double scale)
{
    if (Bytes(D) > Bytes(S)) {
        for (int i = end - 1; i >= begin; i--)
            ConvertOne<D, S>(d + (size_t)i * Bytes(D), s + (size_t)i * Bytes(S), scale, Unity);
    } else {
        for (int i = begin; i < end; i++)
            ConvertOne<D, S>(d + (size_t)i * Bytes(D), s + (size_t)i * Bytes(S), scale, Unity);
    }
}

// Blocks of 4, still in the safe order: all four read before any is written.
template <int D, int S, bool Unity>
inline void ScalarRun4(uint8_t *d, const uint8_t *s, int count, double scale)
{
    constexpr int db = Bytes(D), sb = Bytes(S);
    uint8_t tmp[4 * 8];
    int blocks = count / 4;
    if (db > sb) {
        ScalarRun<D, S, Unity>(d, s, blocks * 4, count, scale);
        for (int b = blocks - 1; b >= 0; b--) {
            memcpy(tmp, s + (size_t)b * 4 * sb, 4 * sb);
            for (int k = 0; k < 4; k++)
                ConvertOne<D, S>(d + ((size_t)b * 4 + k) * db, tmp + k * sb, scale, Unity);
        }
    } else {
        for (int b = 0; b < blocks; b++) {
            memcpy(tmp, s + (size_t)b * 4 * sb, 4 * sb);
            for (int k = 0; k < 4; k++)
                ConvertOne<D, S>(d + ((size_t)b * 4 + k) * db, tmp + k * sb, scale, Unity);
        }
        ScalarRun<D, S, Unity>(d, s, blocks * 4, count, scale);
    }
}

// The baseline (Unroll 1) and the unrolled scalar variant (Unroll 4).
template <int D, int S, int Unroll>
void CopyScalar(void *dest, const void *src, int count, float gain)
{
    if (count <= 0 || !dest || !src)
        return;
    uint8_t *d = (uint8_t *)dest;
    const uint8_t *s = (const uint8_t *)src;
    const bool unity = gain == 1.0f;   // a NaN gain takes the gain path
    if (unity && D == S) {
        if (d != s)
            memmove(d, s, (size_t)count * Bytes(D));
        return;
    }
    const double scale = Scale<D, S>(gain, unity);
    if (Unroll == 4 && gain == gain) {
        if (unity) ScalarRun4<D, S, true>(d, s, count, scale);
        else ScalarRun4<D, S, false>(d, s, count, scale);
    } else {
        if (unity) ScalarRun<D, S, true>(d, s, 0, count, scale);
        else ScalarRun<D, S, false>(d, s, 0, count, scale);
    }
}

template <template <int, int> class F, int DI, int SI>
inline ZVAUDIOCOPYFUNC Entry()
{
    if constexpr (HasPair(kTypes[DI], kTypes[SI]))
        return F<kTypes[DI], kTypes[SI]>::fn;
    else
        return nullptr;
}

template <template <int, int> class F, int DI, int... SI>
inline void FillRow(CopyTable &t, std::integer_sequence<int, SI...>)
{
    ((t[DI][SI] = Entry<F, DI, SI>()), ...);
}

template <template <int, int> class F, int... DI>
inline void FillTable(CopyTable &t, std::integer_sequence<int, DI...>)
{
    (FillRow<F, DI>(t, std::make_integer_sequence<int, kTypeCount>()), ...);
}

template <template <int, int> class F>
inline void BuildTable(CopyTable &t)
{
    FillTable<F>(t, std::make_integer_sequence<int, kTypeCount>());
}

} // namespace
} // namespace zvsc
