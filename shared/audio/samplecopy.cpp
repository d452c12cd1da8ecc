// The copy table, the choice of processor variant, the format-level copy and
// the self-check.
#if defined(__i386__)
// The rounding rule needs plain 64-bit arithmetic; x87 extended precision
// would round twice.
#pragma GCC target("sse2,fpmath=sse")
#endif
#include <stdio.h>
#include <atomic>
#include <vector>
#include <xmmintrin.h>
#include "audio/samplecopy_impl.h"
#include "zverror.h"
#include "zvkernel.h"
#define ZV_AUDIO_KERNEL_CPU 1

namespace zvsc {
namespace {

template <int D, int S> struct BaseFn {
    static void fn(void *d, const void *s, int c, float g) { CopyScalar<D, S, 1>(d, s, c, g); }
};
template <int D, int S> struct UnrolledFn {
    static void fn(void *d, const void *s, int c, float g) { CopyScalar<D, S, 4>(d, s, c, g); }
};

const CopyTable &UnrolledTable()
{
    static CopyTable table;
    static bool built = (BuildTable<UnrolledFn>(table), true);
    (void)built;
    return table;
}

enum : DWORD {
    kClassMask = 0xF, kMMX = 0x10, kSSE = 0x20, kSSE2 = 0x40, kSSE3 = 0x80, kSSSE3 = 0x100,
    kSSE41 = 0x200, kSSE42 = 0x400, kAVX = 0x800, kCMOV = 0x1000, kFPU = 0x2000, kTSC = 0x4000,
};

// What this processor can run, by the compiler's own detection.
DWORD HardwareWord()
{
    static DWORD word = [] {
        __builtin_cpu_init();
        DWORD w = kCMOV | kFPU | kTSC;
        if (__builtin_cpu_supports("mmx")) w |= kMMX;
        if (__builtin_cpu_supports("sse")) w |= kSSE;
        if (__builtin_cpu_supports("sse2")) w |= kSSE2;
        if (__builtin_cpu_supports("sse3")) w |= kSSE3;
        if (__builtin_cpu_supports("ssse3")) w |= kSSSE3;
        if (__builtin_cpu_supports("sse4.1")) w |= kSSE41;
        if (__builtin_cpu_supports("sse4.2")) w |= kSSE42;
        if (__builtin_cpu_supports("avx")) w |= kAVX;
        w |= (w & kSSE2) ? 6 : (w & kSSE) ? 5 : (w & kMMX) ? 4 : 3;
        return w;
    }();
    return word;
}

bool HardwareHasAvx2()
{
    static bool has = (__builtin_cpu_init(), __builtin_cpu_supports("avx2") != 0);
    return has;
}

// The 512-bit unit needs the byte/word, vector length and doubleword parts
// too (the compiler's check includes the system's saving of the registers).
bool HardwareHasAvx512()
{
    static bool has = (__builtin_cpu_init(),
                       __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                       __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq"));
    return has;
}

ZVAUDIOCOPYFUNC Lookup(int dest, int src, DWORD w)
{
    const int di = TypeIndex(dest), si = TypeIndex(src);
    if (di < 0 || si < 0 || !HasPair(dest, src))
        return nullptr;
    const DWORD hw = HardwareWord();
    int cls = (int)(w & kClassMask);
    if (cls > 6) cls = 6;
    if (cls > (int)(hw & kClassMask)) cls = (int)(hw & kClassMask);
    w &= hw | kClassMask | ZVAUDIOCOPY_NO512;

    const ZVAUDIOCOPYFUNC base = BaseTable()[di][si];
    const ZVAUDIOCOPYFUNC second = UnrolledTable()[di][si];
    ZVAUDIOCOPYFUNC vec = nullptr;
    if (w & kSSE2) {
        // The support word has one bit for the wide vector units; the widest
        // this processor has is taken, unless the caller asked for 256 bits.
        const CopyTable &t = !(w & kAVX) || !HardwareHasAvx2() ? Sse2Table()
                             : HardwareHasAvx512() && !(w & ZVAUDIOCOPY_NO512) ? Avx512Table()
                             : Avx2Table();
        vec = t[di][si];
    }
    // The vector variant always needs SSE2; a class that promises more
    // without the bit gets the scalar forms.
    auto byClass = [&](int secondFrom, int thirdFrom) {
        if (cls < secondFrom) return base;
        if (cls < thirdFrom || !vec) return second;
        return vec;
    };
    switch (dest << 8 | src) {
    case 17 << 8 | 32: return vec ? vec : base;
    case 17 << 8 | 33: return byClass(2, 6);
    case 18 << 8 | 32: return byClass(2, 5);
    case 18 << 8 | 33: return byClass(2, 6);
    case 32 << 8 | 17:
        if ((w & kSSE41) && vec) return vec;
        if (cls < 5) return base;
        return cls == 6 && vec ? vec : second;
    case 32 << 8 | 18: return (w & (kSSE2 | kSSE3 | kSSSE3)) == (kSSE2 | kSSE3 | kSSSE3) && vec ? vec : base;
    case 32 << 8 | 33:
    case 33 << 8 | 32: return (w & (kSSE | kSSE2)) == (kSSE | kSSE2) && vec ? vec : base;
    default: return vec ? vec : base;
    }
}

// ---------------------------------------------------------------------------
// Worker threads for long runs: up to three, started on the first long run.
// After a run a worker polls a little while for the next one, as runs of a
// stream come in quick succession, then sleeps on a semaphore. One run at a
// time is shared; a run that finds the workers busy is converted by its
// caller alone.

struct SharedRun {
    PieceFunc body;
    void *ctx;
    int count, piece;
    unsigned int mxcsr;
    // The caller takes pieces from the front, the workers from the back, so
    // each thread tends to get the same part of the buffers on every run and
    // finds it in its own cache; whoever is first takes the rest. Low word
    // the next front piece, high word one past the last back piece.
    std::atomic<uint64_t> ends{0};
    // Workers inside the run, plus kClosed once the caller has taken the
    // last piece: a worker that comes after that stays out.
    std::atomic<int> state{1 << 30};
    std::atomic<unsigned> generation{0};
};
const int kClosed = 1 << 30;

SharedRun g_run;
std::atomic<bool> g_runBusy{false};
std::atomic<int> g_sleeping{0};
HANDLE g_wake;
int g_workers;

// The next piece from the front or the back; -1 when none is left.
int ClaimPiece(SharedRun &r, bool back)
{
    uint64_t v = r.ends.load(std::memory_order_relaxed);
    for (;;) {
        const uint32_t front = (uint32_t)v, end = (uint32_t)(v >> 32);
        if (front >= end)
            return -1;
        const uint64_t next = back ? (uint64_t)(end - 1) << 32 | front : (uint64_t)end << 32 | (front + 1);
        if (r.ends.compare_exchange_weak(v, next, std::memory_order_relaxed))
            return (int)(back ? end - 1 : front);
    }
}

void TakePieces(SharedRun &r, bool back)
{
    for (int k; (k = ClaimPiece(r, back)) >= 0;) {
        const int begin = k * r.piece;
        r.body(r.ctx, begin, r.count - begin < r.piece ? r.count : begin + r.piece);
    }
    _mm_sfence();   // streaming stores are visible before the run is done
}

void JoinRun()
{
    int v = g_run.state.load(std::memory_order_acquire);
    bool joined = false;
    while (!(v & kClosed) && !joined)
        joined = g_run.state.compare_exchange_weak(v, v + 1, std::memory_order_acq_rel);
    if (!joined)
        return;
    const unsigned int saved = _mm_getcsr();
    _mm_setcsr(g_run.mxcsr);
    TakePieces(g_run, true);
    _mm_setcsr(saved);
    g_run.state.fetch_sub(1, std::memory_order_release);
}

DWORD WINAPI PieceWorker(LPVOID)
{
    unsigned seen = g_run.generation.load(std::memory_order_acquire);
    for (;;) {
        for (int spin = 0; spin < 2000 && g_run.generation.load(std::memory_order_acquire) == seen; spin++)
            YieldProcessor();
        if (g_run.generation.load(std::memory_order_acquire) == seen) {
            g_sleeping.fetch_add(1, std::memory_order_seq_cst);
            if (g_run.generation.load(std::memory_order_seq_cst) == seen)
                WaitForSingleObject(g_wake, INFINITE);
            g_sleeping.fetch_sub(1, std::memory_order_relaxed);
        }
        seen = g_run.generation.load(std::memory_order_acquire);
        JoinRun();
    }
}

bool StartWorkers()
{
    static const bool started = [] {
        SYSTEM_INFO si;
        GetSystemInfo(&si);
        int want = (int)si.dwNumberOfProcessors - 1;
        if (want > 3)
            want = 3;
        if (want <= 0 || !(g_wake = CreateSemaphoreW(nullptr, 0, 1 << 20, nullptr)))
            return false;
        for (int i = 0; i < want; i++) {
            HANDLE h = CreateThread(nullptr, 256 << 10, PieceWorker, nullptr, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
            if (h) {
                CloseHandle(h);
                g_workers++;
            }
        }
        return g_workers > 0;
    }();
    return started;
}

} // namespace

void RunPieces(int count, int piece, PieceFunc body, void *ctx)
{
    const int pieces = count / piece + (count % piece != 0);
    bool idle = false;
    if (pieces < 2 || !StartWorkers() ||
        !g_runBusy.compare_exchange_strong(idle, true, std::memory_order_acquire)) {
        for (int k = 0; k < pieces; k++)
            body(ctx, k * piece, count - k * piece < piece ? count : k * piece + piece);
        _mm_sfence();
        return;
    }
    SharedRun &r = g_run;
    r.body = body;
    r.ctx = ctx;
    r.count = count;
    r.piece = piece;
    r.mxcsr = _mm_getcsr();
    r.ends.store((uint64_t)pieces << 32, std::memory_order_relaxed);
    r.state.store(0, std::memory_order_release);
    r.generation.fetch_add(1, std::memory_order_seq_cst);
    // A sleeping worker is woken; a polling one has seen the new run. One
    // that falls asleep just now misses this run and wakes for the next.
    if (const int sleeping = g_sleeping.load(std::memory_order_seq_cst))
        ReleaseSemaphore(g_wake, sleeping, nullptr);
    TakePieces(r, false);
    r.state.fetch_or(kClosed, std::memory_order_acq_rel);
    // Only workers that joined are waited for, and they are running.
    for (int spins = 0; r.state.load(std::memory_order_acquire) != kClosed; spins++) {
        if (spins < 1000)
            YieldProcessor();
        else
            SwitchToThread();
    }
    g_runBusy.store(false, std::memory_order_release);
}

const CopyTable &BaseTable()
{
    static CopyTable table;
    static bool built = (BuildTable<BaseFn>(table), true);
    (void)built;
    return table;
}

} // namespace zvsc

using namespace zvsc;

ZVAPI DWORD ZvAudio_GetCopyCPUWord(void)
{
#ifdef ZV_AUDIO_KERNEL_CPU
    return ZvGetCPUSupport(0);
#else
    return HardwareWord();
#endif
}

ZVAPI ZVAUDIOCOPYFUNC ZvAudio_GetCopyFunctionForCPU(ZVSAMPLETYPE dest, ZVSAMPLETYPE src, DWORD cpuWord)
{
    return Lookup(dest, src, cpuWord);
}

ZVAPI ZVAUDIOCOPYFUNC ZvAudio_GetCopyFunction2(ZVSAMPLETYPE dest, ZVSAMPLETYPE src)
{
    return Lookup(dest, src, ZvAudio_GetCopyCPUWord());
}

static ZVSAMPLETYPE TypeOf(const WAVEFORMATEX *f) { return f ? ZvAudio_GetSampleType(f) : ZVSAMPLE_NONE; }
static ZVSAMPLETYPE TypeOf(const ZVWAVEFORMAT *f)
{
    return f && !f->IsCompressed() ? f->sampleType : ZVSAMPLE_NONE;
}

ZVAPI ZVAUDIOCOPYFUNC ZvAudio_GetCopyFunction(const WAVEFORMATEX *dest, const WAVEFORMATEX *src)
{
    return ZvAudio_GetCopyFunction2(TypeOf(dest), TypeOf(src));
}
ZVAPI_CXX ZVAUDIOCOPYFUNC ZvAudio_GetCopyFunction(const ZVWAVEFORMAT *dest, const ZVWAVEFORMAT *src)
{
    return ZvAudio_GetCopyFunction2(TypeOf(dest), TypeOf(src));
}
ZVAPI_CXX ZVAUDIOCOPYFUNC ZvAudio_GetCopyFunction(const WAVEFORMATEX *dest, const ZVWAVEFORMAT *src)
{
    return ZvAudio_GetCopyFunction2(TypeOf(dest), TypeOf(src));
}
ZVAPI_CXX ZVAUDIOCOPYFUNC ZvAudio_GetCopyFunction(const ZVWAVEFORMAT *dest, const WAVEFORMATEX *src)
{
    return ZvAudio_GetCopyFunction2(TypeOf(dest), TypeOf(src));
}

static UINT ChannelsOf(const WAVEFORMATEX *f) { return f->nChannels; }
static UINT ChannelsOf(const ZVWAVEFORMAT *f) { return f->channels; }

template <class DF, class SF>
static HRESULT CopyFormats(const DF *df, void *dest, const SF *sf, const void *src, int frames, float gain)
{
    if (!df || !sf)
        return E_POINTER;
    // Nothing to copy is never an error, even for a pair without a function.
    if (frames <= 0)
        return S_OK;
    ZVSAMPLETYPE dt = TypeOf(df), st = TypeOf(sf);
    ZVAUDIOCOPYFUNC fn = ZvAudio_GetCopyFunction2(dt, st);
    if (!fn)
        return E_NOTIMPL;
    if (!dest || !src)
        return E_POINTER;
    // Counts beyond the function's 32-bit argument go in pieces, the last
    // piece first when widening so that an in-place copy stays correct.
    const int64_t total = (int64_t)frames * ChannelsOf(sf);
    const int64_t piece = 1 << 30;
    const size_t db = ZvAudio_BytesFromSampleType(dt), sb = ZvAudio_BytesFromSampleType(st);
    const int64_t pieces = (total + piece - 1) / piece;
    for (int64_t k = 0; k < pieces; k++) {
        int64_t p = db > sb ? pieces - 1 - k : k;
        int64_t off = p * piece;
        int64_t n = total - off < piece ? total - off : piece;
        fn((uint8_t *)dest + off * db, (const uint8_t *)src + off * sb, (int)n, gain);
    }
    return S_OK;
}

ZVAPI HRESULT ZvAudio_Copy(const WAVEFORMATEX *df, void *dest, const WAVEFORMATEX *sf,
                           const void *src, int frames, float gain)
{
    return CopyFormats(df, dest, sf, src, frames, gain);
}
ZVAPI_CXX HRESULT ZvAudio_Copy(const ZVWAVEFORMAT *df, void *dest, const ZVWAVEFORMAT *sf,
                               const void *src, int frames, float gain)
{
    return CopyFormats(df, dest, sf, src, frames, gain);
}
ZVAPI_CXX HRESULT ZvAudio_Copy(const WAVEFORMATEX *df, void *dest, const ZVWAVEFORMAT *sf,
                               const void *src, int frames, float gain)
{
    return CopyFormats(df, dest, sf, src, frames, gain);
}
ZVAPI_CXX HRESULT ZvAudio_Copy(const ZVWAVEFORMAT *df, void *dest, const WAVEFORMATEX *sf,
                               const void *src, int frames, float gain)
{
    return CopyFormats(df, dest, sf, src, frames, gain);
}

// ---------------------------------------------------------------------------
// Self-check: every integer value goes to float and back unchanged, in each
// variant the processor class allows.

namespace {

struct CheckNode {
    int intType, floatType, cls;   // cls 0x200: only with SSE4.1 in the word
};

const CheckNode kNodes[] = {
    {16, 32, 0}, {16, 32, 2}, {16, 32, 5},
    {49, 32, 0},
    {17, 32, 0}, {17, 32, 2}, {17, 32, 5}, {17, 32, 6}, {17, 32, 0x200},
    {64, 32, 0},
    {18, 32, 0}, {18, 32, 2}, {18, 32, 5},
    {65, 32, 0},
    {48, 32, 0},
    {16, 33, 0}, {16, 33, 2}, {16, 33, 6},
    {49, 33, 0},
    {17, 33, 0}, {17, 33, 2}, {17, 33, 6},
    {64, 33, 0},
    {18, 33, 0}, {18, 33, 2}, {18, 33, 6},
    {65, 33, 0},
    {48, 33, 0},
};

// The word a row runs with: its class, and only the features that class has.
DWORD WordForClass(DWORD current, int cls)
{
    DWORD w = current & ~(DWORD)kClassMask;
    if (cls < 6) w &= ~(DWORD)(kSSE2 | kSSE3 | kSSSE3 | kSSE41 | kSSE42 | kAVX);
    if (cls < 5) w &= ~(DWORD)kSSE;
    if (cls < 4) w &= ~(DWORD)kMMX;
    return w | (DWORD)cls;
}

void WriteRampValue(int type, uint8_t *p, int32_t v)
{
    switch (type) {
    case 16: WriteInt<16>(p, v); break;
    case 49: WriteInt<49>(p, v); break;
    case 17: WriteInt<17>(p, v); break;
    case 64: WriteInt<64>(p, v); break;
    case 18: WriteInt<18>(p, v); break;
    case 65: WriteInt<65>(p, v); break;
    default: WriteInt<48>(p, v); break;
    }
}

bool CheckNodeRun(const CheckNode &node, DWORD word)
{
    ZVAUDIOCOPYFUNC toFloat = Lookup(node.floatType, node.intType, word);
    ZVAUDIOCOPYFUNC back = Lookup(node.intType, node.floatType, word);
    if (!toFloat || !back)
        return false;
    const int bits = Bits(node.intType);
    const int ib = Bytes(node.intType), fb = Bytes(node.floatType);
    const int64_t total = 1ll << bits;
    const int block = (int)(total < 0x10000 ? total : 0x10000);
    const double step = 1.0 / (double)(1ll << (bits - 1));
    std::vector<uint8_t> ramp((size_t)block * ib), flt((size_t)block * fb), out((size_t)block * ib);
    for (int64_t first = -(total / 2); first < total / 2; first += block) {
        for (int k = 0; k < block; k++)
            WriteRampValue(node.intType, &ramp[(size_t)k * ib], (int32_t)(first + k));
        toFloat(flt.data(), ramp.data(), block, 1.0f);
        for (int k = 0; k < block; k++) {
            double got;
            if (fb == 4) {
                float f;
                memcpy(&f, &flt[(size_t)k * 4], 4);
                got = f;
            } else {
                memcpy(&got, &flt[(size_t)k * 8], 8);
            }
            double exact = (double)(first + k) * step;
            double diff = got > exact ? got - exact : exact - got;
            if (!(diff <= 0.5 * step))
                return false;
        }
        back(out.data(), flt.data(), block, 1.0f);
        if (memcmp(out.data(), ramp.data(), out.size()) != 0)
            return false;
    }
    return true;
}

} // namespace

namespace zvsc {

HRESULT RunCopySelfCheck(HWND owner, DWORD current, DWORD forced, bool (*run)(int row, DWORD word))
{
    const int cls = (int)(current & kClassMask);
    HRESULT hr = S_OK;
    for (size_t i = 0; i < sizeof(kNodes) / sizeof(kNodes[0]); i++) {
        const CheckNode &node = kNodes[i];
        DWORD word;
        if (node.cls == 0x200) {
            // a row that only a forced SSE4.1 bit asks for
            if (!(forced & kSSE41))
                continue;
            word = current;
        } else {
            if (node.cls > cls)
                continue;
            word = WordForClass(current, node.cls);
        }
        if (!run((int)i, word)) {
            ZvErrorHandler_DetailsAddString(E_UNEXPECTED, L"ZvAudioCopy_UnitTest node[%d] failed.", (int)i);
            hr = E_UNEXPECTED;
        }
    }
    if (FAILED(hr) && owner)
        MessageBoxW(owner, L"INTERNAL: AudioCopy unit test failed!", L"Audio", MB_OK | MB_ICONERROR);
    return hr;
}

} // namespace zvsc

static bool RunNode(int row, DWORD word)
{
    const CheckNode &node = kNodes[row];
    // Where the word picks 512-bit vectors the 256-bit ones are a variant of
    // their own, checked in the same row.
    const bool wide = (word & kAVX) && HardwareHasAvx2() && HardwareHasAvx512();
    return CheckNodeRun(node, word) && (!wide || CheckNodeRun(node, word | ZVAUDIOCOPY_NO512));
}

ZVAPI HRESULT ZvAudioCopy_UnitTest(HWND owner)
{
    return RunCopySelfCheck(owner, ZvAudio_GetCopyCPUWord(), ZvGetCPUForcedSupport(), RunNode);
}
