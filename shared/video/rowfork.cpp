// The fork of the pixel kernels: static row ranges across worker threads.
#include "video/yuvrows.h"
#include <atomic>
#include <omp.h>

namespace zvyuv {

namespace {

int g_threadOverride;

// A fork and join of the runtime's team costs about 65 us under Wine (its
// barrier goes through the server), so a call forks only above about half a
// million samples, where each half saves more than that.
const LONGLONG kForkWork = 1 << 19;

ULONGLONG Ticks(const FILETIME &t)
{
    return (ULONGLONG)t.dwHighDateTime << 32 | t.dwLowDateTime;
}

// omp_set_dynamic(1) asks the runtime to shrink a team to the processors
// the machine has free; its Windows build never does, and a worker that
// waits for a processor held by another process holds up the whole call (a
// 1080p conversion on two threads took longer than on one while two
// compilers ran). So the team is cut to the processors that other processes
// left idle over the last sample: system idle time plus our own, taken at
// most every 50 ms.
struct LoadSample {
    SRWLOCK lock = SRWLOCK_INIT;
    std::atomic<DWORD> at{0};   // tick of the last sample (32 bits: differences survive the wrap)
    ULONGLONG idle = 0, total = 0, own = 0;
    std::atomic<int> freeTenths{-1};   // -1 until two samples exist
};
LoadSample g_load;

int FreeProcessors(int procs)
{
    DWORD now = GetTickCount();
    if (now - g_load.at.load() >= 50u && TryAcquireSRWLockExclusive(&g_load.lock)) {
        FILETIME idle, kernel, user, created, ended, pk, pu;
        if (GetSystemTimes(&idle, &kernel, &user) &&
            GetProcessTimes(GetCurrentProcess(), &created, &ended, &pk, &pu)) {
            // the system's kernel time includes its idle time
            ULONGLONG i = Ticks(idle), t = Ticks(kernel) + Ticks(user), o = Ticks(pk) + Ticks(pu);
            if (g_load.at.load() && t > g_load.total) {
                double f = procs * (double)(i - g_load.idle + (o - g_load.own)) / (double)(t - g_load.total);
                int tenths = (int)(f * 10 + 0.5);
                g_load.freeTenths = tenths < 0 ? 0 : tenths > 10 * procs ? 10 * procs : tenths;
            }
            g_load.idle = i;
            g_load.total = t;
            g_load.own = o;
            g_load.at = now ? now : 1;
        }
        ReleaseSRWLockExclusive(&g_load.lock);
    }
    int tenths = g_load.freeTenths.load();
    // a processor three quarters free still takes a worker
    return tenths < 0 ? procs : (tenths + 2) / 10;
}

} // namespace

void SetThreadOverride(int threads)
{
    g_threadOverride = threads;
}

void ForRanges(int count, int threads, LONGLONG workPerItem, void (*body)(void *ctx, int first, int end),
               void *ctx)
{
    if (count <= 0)
        return;
    if (threads == 0)
        threads = g_threadOverride;
    // a number of threads asked for is given; the runtime's choice depends
    // on the work and on the processors free
    int want = threads;
    if (threads == 0) {
        want = (LONGLONG)count * workPerItem < kForkWork ? 1 : omp_get_max_threads();
        if (want > 1) {
            int free = FreeProcessors(omp_get_num_procs());
            want = want < free ? want : free;
        }
    }
    if (want > count)
        want = count;
    if (want <= 1) {
        body(ctx, 0, count);
        return;
    }
#pragma omp parallel num_threads(want)
    {
        int id = omp_get_thread_num(), nt = omp_get_num_threads();
        int first = (int)((LONGLONG)count * id / nt), end = (int)((LONGLONG)count * (id + 1) / nt);
        if (first < end)
            body(ctx, first, end);
    }
}

} // namespace zvyuv
