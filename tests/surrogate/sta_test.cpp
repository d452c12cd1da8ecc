// An application's window thread, a single-threaded apartment with a message
// loop, drives the manager: it lists the plug-ins, opens a reader in a
// surrogate or in process, reads through it while another window thread and
// a thread of the multithreaded apartment read through the same stream, and
// releases everything; each surrogate then ends by itself.
#include "surrogate_world.h"
#include <atomic>
#include <process.h>
#include <functional>

using namespace tsworld;

namespace {

unsigned __stdcall WindowThreadMain(void *body)
{
    CoInitializeEx(NULL, COINIT_APARTMENTTHREADED);
    MSG msg;
    PeekMessageW(&msg, NULL, 0, 0, PM_NOREMOVE);
    PostThreadMessageW(GetCurrentThreadId(), WM_APP, 0, 0);
    while (GetMessageW(&msg, NULL, 0, 0) > 0) {
        if (!msg.hwnd && msg.message == WM_APP) {
            (*(const std::function<void()> *)body)();
            PostQuitMessage(0);
            continue;
        }
        DispatchMessageW(&msg);
    }
    CoUninitialize();
    return 0;
}

// Runs `body` as the first message of a new window thread's loop.
void OnWindowThread(const std::function<void()> &body)
{
    HANDLE thread = (HANDLE)_beginthreadex(NULL, 0, WindowThreadMain, (void *)&body, 0, NULL);
    ASSERT_TRUE(thread);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
}

// Waits for `thread` as a window thread does: its messages keep flowing.
void PumpUntilEnded(HANDLE thread)
{
    while (MsgWaitForMultipleObjects(1, &thread, FALSE, INFINITE, QS_ALLINPUT) != WAIT_OBJECT_0) {
        MSG msg;
        while (PeekMessageW(&msg, NULL, 0, 0, PM_REMOVE))
            DispatchMessageW(&msg);
    }
}

// Reads `rounds` blocks at places of their own, checks each, counts failures.
int ReadRounds(IZvReadAudioStream *audio, int seed, int rounds)
{
    int bad = 0;
    for (int i = 0; i < rounds; ++i) {
        DWORD frames = 700 + 211 * seed + 13 * i;
        LONGLONG position = 50000LL * seed + 977 * i;
        TokenBuffer b(frames * 4, (i & 1) ? ZVMEMTOKEN_KIND_MAPPING : ZVMEMTOKEN_KIND_SHADOW);
        DWORD got = 0;
        HRESULT hr = audio->ReadSamples((DWORD)position, 0, b.token, frames, &got);
        std::vector<BYTE> want = AudioPattern(position, frames);
        if (hr != S_OK || got != frames || memcmp(b.data(), want.data(), want.size()))
            ++bad;
    }
    return bad;
}

struct ReaderJob {
    IZvReadAudioStream *audio;
    DWORD apartment;
    int seed;
    std::atomic<int> *bad;
};

unsigned __stdcall ReaderMain(void *p)
{
    ReaderJob *j = (ReaderJob *)p;
    CoInitializeEx(NULL, j->apartment);
    MSG msg;
    PeekMessageW(&msg, NULL, 0, 0, PM_NOREMOVE);
    *j->bad += ReadRounds(j->audio, j->seed, 30);
    CoUninitialize();
    delete j;
    return 0;
}

// `apartment` thread reading through `audio`, counting into `bad`.
HANDLE Reader(IZvReadAudioStream *audio, DWORD apartment, int seed, std::atomic<int> *bad)
{
    return (HANDLE)_beginthreadex(NULL, 0, ReaderMain, new ReaderJob{audio, apartment, seed, bad}, 0, NULL);
}

void WindowThreadReads(int variant, bool routed)
{
    World w;
    ASSERT_EQ(S_OK, w.created);
    // the listing went through the surrogates from this thread
    ZVFIO_PLUGININFO *record = w.record(TsReaderClass(variant));
    ASSERT_TRUE(record);
    DWORD where = 0;
    EXPECT_EQ(routed ? TRUE : FALSE, ZvFioRecordProcess(record, &where));

    IZvReadFileClass *cls = w.reader(variant);
    ASSERT_TRUE(cls);
    IZvReadFile *file = nullptr;
    IZvReadStream *stream = OpenStream(cls, 0, &file);
    ASSERT_TRUE(stream);
    DWORD pid = ObjectProcess(file);
    if (routed)
        EXPECT_TRUE(pid && pid != GetCurrentProcessId() && pid == where) << "the reader runs in its surrogate";
    else
        EXPECT_EQ(GetCurrentProcessId(), pid);
    IZvReadAudioStream *audio = nullptr;
    ASSERT_EQ(S_OK, stream->QueryInterface(IID_IZvReadAudioStream, (void **)&audio));
    EXPECT_EQ(0, ReadRounds(audio, 0, 5));

    std::atomic<int> bad{0};
    HANDLE other[2] = {Reader(audio, COINIT_APARTMENTTHREADED, 1, &bad),
                       Reader(audio, COINIT_MULTITHREADED, 2, &bad)};
    // this thread reads too, meanwhile
    EXPECT_EQ(0, ReadRounds(audio, 3, 30));
    for (HANDLE h : other) {
        ASSERT_TRUE(h);
        PumpUntilEnded(h);
        CloseHandle(h);
    }
    EXPECT_EQ(0, bad.load());
    if (routed) {
        CZvOutOfProcObj *blanket = ZvBlanket_From(audio);
        ASSERT_TRUE(blanket);
        DWORD entries = blanket->ThreadEntries();
        EXPECT_TRUE(entries == 2 || entries == 3) << entries << ": one pointer for each other thread that called";
    }
    audio->Release();
    stream->Release();
    file->Release();
    cls->Release();
    w.cleanUp();
    EXPECT_TRUE(w.guard.waitAll(3000)) << "a surrogate outlived the last clean-up by 3 s";
}

} // namespace

TEST_F(SurrogateTest, WindowThreadReadsThroughASurrogate)
{
    OnWindowThread([] { WindowThreadReads(TS_G1A, true); });
}

TEST_F(SurrogateTest, WindowThreadReadsInProcess)
{
    OnWindowThread([] { WindowThreadReads(TS_G0, false); });
}
