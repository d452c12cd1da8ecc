// The fork of the pixel kernels: static row ranges across worker threads.
#include "video/yuvrows.h"
#include <atomic>
#include <immintrin.h>
#include <omp.h>

namespace zvyuv {

namespace {

int g_threadOverride;

// A fork only pays above about half a million samples: below that even a
// quick wake of the workers costs more than half the work saves.
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

// The team. The runtime's Windows build parks each worker on a semaphore at
// every join, so a fork and join cost about 65 us under Wine (server round
// trips), a sixth of a 1080p conversion. These workers instead watch a job
// counter for a couple of milliseconds after each job, as the runtime does
// on other systems, and only then sleep on their event: frames converted
// back to back fork in a few microseconds. A worker idle for some seconds
// ends, closing its event and letting its module go.
const int kMaxWorkers = 63;
const DWORD kSpinTicks = 2;          // ms of watching before sleeping
const DWORD kIdleExitMs = 5000;

struct Job {
    void (*body)(void *, int, int);
    void *ctx;
    int count, parts;
};

// Each worker watches a counter of its own, bumped only for forks it takes
// part in, so one left out of a small fork never mistakes a later job for
// the one it missed.
struct alignas(64) Worker {
    std::atomic<unsigned> ticket{0};
    std::atomic<int> asleep{0};
    unsigned firstTicket = 0;   // the ticket when started
    bool alive = false;         // changed only under the team's lock
    HANDLE wake = nullptr;
};

struct Team {
    SRWLOCK lock = SRWLOCK_INIT;   // held for a whole fork: one fork at a time
    Job job{};                     // written only while no worker runs
    alignas(64) std::atomic<int> pending{0};
    Worker workers[kMaxWorkers];
};
Team g_team;

void RunPart(const Job &j, int part)
{
    int first = (int)((LONGLONG)j.count * part / j.parts);
    int end = (int)((LONGLONG)j.count * (part + 1) / j.parts);
    if (first < end)
        j.body(j.ctx, first, end);
}

// Gives the worker's reference to this module back as its thread ends.
void EndWorker()
{
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       (LPCWSTR)&EndWorker, &self);
    FreeLibraryAndExitThread(self, 0);
}

DWORD WINAPI WorkerMain(void *arg)
{
    const int index = (int)(INT_PTR)arg;   // 1 .. kMaxWorkers; part 0 is the caller's
    Worker &w = g_team.workers[index - 1];
    unsigned seen = w.firstTicket;
    for (;;) {
        unsigned now = w.ticket.load(std::memory_order_acquire);
        for (DWORD start = GetTickCount(); now == seen && GetTickCount() - start <= kSpinTicks;) {
            for (int i = 0; i < 64 && now == seen; ++i) {
                _mm_pause();
                now = w.ticket.load(std::memory_order_acquire);
            }
        }
        if (now != seen) {
            seen = now;
            RunPart(g_team.job, index);
            g_team.pending.fetch_sub(1, std::memory_order_release);
            continue;
        }
        // announce the sleep, then look once more: a caller bumps the ticket
        // before reading the flag, so one of the two sees the other
        w.asleep.store(1);
        if (w.ticket.load() == seen && WaitForSingleObject(w.wake, kIdleExitMs) == WAIT_TIMEOUT &&
            TryAcquireSRWLockExclusive(&g_team.lock)) {
            // no fork runs while the lock is held, so none counts on us
            if (w.ticket.load() == seen) {
                w.alive = false;
                CloseHandle(w.wake);
                w.wake = nullptr;
                w.asleep.store(0);
                ReleaseSRWLockExclusive(&g_team.lock);
                EndWorker();
            }
            ReleaseSRWLockExclusive(&g_team.lock);
        }
        w.asleep.store(0);
    }
}

// Starts the workers a fork of parts needs; false if one cannot be started.
// Each holds a reference to this module until it ends.
bool EnsureWorkers(int parts)
{
    for (int i = 1; i < parts; ++i) {
        Worker &w = g_team.workers[i - 1];
        if (w.alive)
            continue;
        HMODULE self = nullptr;
        w.firstTicket = w.ticket.load();
        w.wake = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        if (w.wake && GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, (LPCWSTR)&EndWorker, &self)) {
            if (HANDLE t = CreateThread(nullptr, 64 * 1024, WorkerMain, (void *)(INT_PTR)i,
                                        STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr)) {
                CloseHandle(t);
                w.alive = true;
                continue;
            }
            FreeLibrary(self);
        }
        if (w.wake)
            CloseHandle(w.wake);
        w.wake = nullptr;
        return false;
    }
    return true;
}

// Runs the job in parts on the team; false if the team is busy (a fork from
// another thread, or from inside a body) or cannot grow.
bool Fork(const Job &job)
{
    if (!TryAcquireSRWLockExclusive(&g_team.lock))
        return false;
    if (!EnsureWorkers(job.parts)) {
        ReleaseSRWLockExclusive(&g_team.lock);
        return false;
    }
    g_team.job = job;
    g_team.pending.store(job.parts - 1);
    for (int i = 1; i < job.parts; ++i) {
        Worker &w = g_team.workers[i - 1];
        w.ticket.fetch_add(1);
        if (w.asleep.load())
            SetEvent(w.wake);
    }
    RunPart(job, 0);
    // a worker that another process keeps off its processor gets ours
    for (int spins = 0; g_team.pending.load(std::memory_order_acquire) > 0; ++spins) {
        if (spins < 20000)
            _mm_pause();
        else
            SwitchToThread();
    }
    ReleaseSRWLockExclusive(&g_team.lock);
    return true;
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
    if (want > kMaxWorkers + 1)
        want = kMaxWorkers + 1;
    if (want <= 1 || !Fork(Job{body, ctx, count, want}))
        body(ctx, 0, count);
}

} // namespace zvyuv
