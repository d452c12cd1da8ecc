#include <gtest/gtest.h>
#include <windows.h>
#include <thread>
#include <vector>
#include <atomic>
#include "filemng/zvgitholder.h"

namespace {

// A free-threaded object that counts its references.
struct Counted : IUnknown {
    std::atomic<LONG> refs{1};
    std::atomic<LONG> queries{0};
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **out) override
    {
        queries++;
        if (iid == IID_IUnknown || iid == IID_IAgileObject) {
            *out = static_cast<IUnknown *>(this);
            AddRef();
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
    ULONG STDMETHODCALLTYPE Release() override { return --refs; }
};

struct ComMta {
    ComMta() { CoInitializeEx(NULL, COINIT_MULTITHREADED); }
    ~ComMta() { CoUninitialize(); }
};

template <typename F> void onThread(F f, DWORD model = COINIT_MULTITHREADED)
{
    std::thread t([&] {
        CoInitializeEx(NULL, model);
        f();
        CoUninitialize();
    });
    t.join();
}

} // namespace

TEST(ThreadInterfaceHolder, CreatorUsesItsOwnPointerOthersGetEntries)
{
    ComMta com;
    Counted obj;
    {
        CZvThreadInterfaceHolder holder(IID_IUnknown, &obj);
        ASSERT_NE(holder.Cookie(), 0u);
        LONG afterAttach = obj.refs;
        EXPECT_EQ(holder.GetThreadInterface(), &obj);
        EXPECT_EQ(holder.GetThreadInterface(), &obj);
        EXPECT_EQ(holder.EntryCount(), 0u) << "the creating thread needs no table entry";
        EXPECT_EQ(obj.refs, afterAttach) << "no reference per call";

        IUnknown *fromOther = nullptr;
        onThread([&] {
            fromOther = holder.GetThreadInterface();
            EXPECT_EQ(holder.GetThreadInterface(), fromOther);
        });
        EXPECT_NE(fromOther, nullptr);
        EXPECT_EQ(holder.EntryCount(), 1u);

        // the last-used pair now names the other thread: the creator goes
        // through the table and gets an entry of its own
        EXPECT_NE(holder.GetThreadInterface(), nullptr);
        EXPECT_EQ(holder.EntryCount(), 2u);
        EXPECT_EQ(obj.refs, afterAttach + 2);
    }
    EXPECT_EQ(obj.refs, 1) << "detach released every entry and the table's reference";
}

TEST(ThreadInterfaceHolder, ManyThreadsCallConcurrently)
{
    ComMta com;
    Counted obj;
    {
        CZvThreadInterfaceHolder holder(IID_IUnknown, &obj);
        std::vector<std::thread> threads;
        std::atomic<int> failures{0};
        for (int i = 0; i < 8; i++)
            threads.emplace_back([&, i] {
                CoInitializeEx(NULL, (i & 1) ? COINIT_APARTMENTTHREADED : COINIT_MULTITHREADED);
                for (int n = 0; n < 200; n++) {
                    IUnknown *p = holder.GetThreadInterface();
                    IUnknown *q = nullptr;
                    if (!p || FAILED(p->QueryInterface(IID_IUnknown, (void **)&q)) || !q)
                        failures++;
                    else
                        q->Release();
                }
                CoUninitialize();
            });
        for (auto &t : threads)
            t.join();
        EXPECT_EQ(failures, 0);
        EXPECT_EQ(holder.EntryCount(), 8u);
    }
    EXPECT_EQ(obj.refs, 1);
}

TEST(ThreadInterfaceHolder, EmptyHolderGivesNull)
{
    ComMta com;
    CZvThreadInterfaceHolder holder(IID_IUnknown, nullptr);
    EXPECT_EQ(holder.Cookie(), 0u);
    EXPECT_EQ(holder.GetThreadInterface(), nullptr);
    holder.Detach();
}

TEST(FioGitPointer, PerThreadPointersReleasedAtReset)
{
    ComMta com;
    Counted obj;
    ZvFioGitPointer git;
    EXPECT_TRUE(git.Empty());
    EXPECT_EQ(git.Get(), nullptr);
    ASSERT_EQ(git.Set(&obj, IID_IUnknown), S_OK);
    LONG base = obj.refs;
    EXPECT_NE(git.Get(), nullptr);
    EXPECT_NE(git.Get(), nullptr);
    EXPECT_EQ(obj.refs, base + 1) << "one entry for this thread, kept";
    onThread([&] { EXPECT_NE(git.Get(), nullptr); });
    EXPECT_EQ(obj.refs, base + 2);
    git.Reset();
    EXPECT_TRUE(git.Empty());
    EXPECT_EQ(obj.refs, 1);
}
