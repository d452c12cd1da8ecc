#include <gtest/gtest.h>
#include <atomic>
#include <thread>
#include <vector>
#include "video/yuvrows.h"
#include <tlhelp32.h>

namespace {

struct Coverage {
    std::vector<std::atomic<int>> rows;
    std::atomic<int> calls{0};
    int nested = 0;   // rows of a fork started from inside each range
    explicit Coverage(int n) : rows(n) {}
    bool EachOnce()
    {
        bool ok = true;
        for (auto &r : rows)
            ok &= r.exchange(0) == 1;
        return ok;
    }
};

void Mark(void *ctx, int first, int end)
{
    Coverage &c = *(Coverage *)ctx;
    c.calls++;
    for (int i = first; i < end; ++i)
        c.rows[i]++;
    if (c.nested) {
        Coverage inner(c.nested);
        zvyuv::ForRanges(c.nested, 2, 1, Mark, &inner);
        if (!inner.EachOnce())
            c.rows[first] += 100;
    }
}

int ThreadsOfThisProcess()
{
    HANDLE snap = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 t;
    t.dwSize = sizeof(t);
    int n = 0;
    for (BOOL more = Thread32First(snap, &t); more; more = Thread32Next(snap, &t))
        n += t.th32OwnerProcessID == GetCurrentProcessId();
    CloseHandle(snap);
    return n;
}

} // namespace

// Team sizes that change from call to call leave some workers out of some
// forks; each row must still be run exactly once, in as many ranges as asked.
TEST(RowFork, EveryRowRunsOnceWhateverTheTeam)
{
    const int parts[] = {2, 5, 3, 8, 2, 4, 7};
    for (int count : {1, 2, 7, 1000}) {
        Coverage c(count);
        for (int round = 0; round < 300; ++round) {
            int p = parts[round % 7];
            c.calls = 0;
            zvyuv::ForRanges(count, p, 1, Mark, &c);
            ASSERT_TRUE(c.EachOnce()) << count << " rows on " << p;
            ASSERT_EQ(c.calls.load(), std::min(count, p));
        }
    }
}

// Forks from two threads at once, each range forking again: one fork holds
// the team, the others run on their callers, and all finish.
TEST(RowFork, ConcurrentAndNestedForksComplete)
{
    auto work = [] {
        Coverage c(64);
        c.nested = 9;
        for (int i = 0; i < 400; ++i) {
            zvyuv::ForRanges(64, 2 + i % 3, 1, Mark, &c);
            if (!c.EachOnce())
                return false;
        }
        return true;
    };
    bool a = false, b = false;
    std::thread t([&] { a = work(); });
    b = work();
    t.join();
    EXPECT_TRUE(a);
    EXPECT_TRUE(b);
}

// Workers end after a few idle seconds, and a later fork starts new ones.
TEST(RowFork, IdleWorkersEndAndComeBack)
{
    Coverage c(100);
    zvyuv::ForRanges(100, 4, 1, Mark, &c);
    ASSERT_TRUE(c.EachOnce());
    int busy = ThreadsOfThisProcess();
    Sleep(6000);
    EXPECT_LE(ThreadsOfThisProcess(), busy - 3);
    zvyuv::ForRanges(100, 4, 1, Mark, &c);
    EXPECT_TRUE(c.EachOnce());
}
