// Bytes per second of ReadSamples through a surrogate process against the
// same plug-in loaded in process, read into the caller's private buffer;
// and the surrogate's calls against their floor, the same calls on a bare
// COM local server.
#include "filemng/filemng.h"
#include "filemng/fiodiscovery.h"
#include "filemng/surrogatetable.h"
#include "filemng/zvmemtoken.h"
#include "zvproxy.h"
#include "../plugins/testsurrogate/tsurrogate.h"
#include "surrogate_bare.h"
#include <algorithm>
#include <cstring>
#include <cstdio>
#include <string>
#include <vector>

namespace {

double now()
{
    LARGE_INTEGER c, f;
    QueryPerformanceCounter(&c);
    QueryPerformanceFrequency(&f);
    return (double)c.QuadPart / (double)f.QuadPart;
}

template <typename F> double best(int rounds, F work)
{
    double t = 1e9;
    for (int i = 0; i < rounds; ++i) {
        double start = now();
        work();
        t = std::min(t, now() - start);
    }
    return t;
}

std::wstring ExeDir()
{
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(NULL, path, MAX_PATH);
    std::wstring s = path;
    return s.substr(0, s.find_last_of(L"\\/") + 1);
}

ZVFIO_PLUGININFO *Record(CZvFileIOManager *m, const GUID &clsid)
{
    tZVLIST *list = m->pluginList();
    for (int i = 0; list && i < list->count; ++i) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        if (r && IsEqualGUID(r->clsidPlugin, clsid))
            return r;
    }
    return nullptr;
}

// The audio stream of a file of a variant's reader.
struct Stream {
    IZvReadFileClass *cls = nullptr;
    IZvReadFile *file = nullptr;
    IZvReadAudioStream *audio = nullptr;
    Stream(CZvFileIOManager *m, int variant)
    {
        ZVFIO_PLUGININFO *r = Record(m, TsReaderClass(variant));
        if (!r || FAILED(m->getReader(r, &cls)) || !cls)
            return;
        IZvReadStream *s = nullptr;
        if (FAILED(cls->OpenFile(&file, ~(UINT64)0, 0, L"bench.tsm", TRUE)) || !file ||
            FAILED(file->OpenStream(&s, 0, 0, 0, 0)) || !s)
            return;
        s->QueryInterface(IID_IZvReadAudioStream, (void **)&audio);
        s->Release();
    }
    ~Stream()
    {
        if (audio)
            audio->Release();
        if (file)
            file->Release();
        if (cls)
            cls->Release();
    }
};

// Reads of `size` bytes into a private buffer (shadowed for each call by a
// fresh mapping) or, with `mapped`, into a mapping the caller made once.
double Rate(IZvReadAudioStream *s, DWORD size, std::vector<BYTE> &buffer, bool mapped)
{
    _zvmemorytoken t;
    if (mapped)
        ZvMemoryToken_CreateMapping(&t, size);
    else
        ZvMemoryToken_InitLocal(&t, buffer.data(), size, ZVMEMTOKEN_KIND_SHADOW);
    int calls = std::max(4, (int)((64u << 20) / size));
    calls = std::min(calls, 400);
    double secs = best(5, [&] {
        for (int i = 0; i < calls; ++i) {
            DWORD got = 0;
            s->ReadSamples((DWORD)i * 1000, 0, t, size / 4, &got);
        }
    });
    if (mapped)
        ZvMemoryToken_ReleaseMapping(&t);
    return (double)size * calls / secs;
}

// What a fresh shared mapping of `size` bytes costs here: make, map, write
// every page, unmap, close. A shadowed read pays this about twice (once on
// each side of the call), whatever the plug-in does.
double FreshMappingCost(DWORD size)
{
    return best(5, [&] {
        _zvmemorytoken t;
        if (SUCCEEDED(ZvMemoryToken_CreateMapping(&t, size))) {
            memset((void *)(ULONG_PTR)t.qwBase, 1, size);
            ZvMemoryToken_ReleaseMapping(&t);
        }
    });
}

// Seconds per call of `work`, best of three runs of `calls`.
template <typename F> double perCall(int calls, F work)
{
    return best(3, [&] {
        for (int i = 0; i < calls; ++i)
            work();
    }) / calls;
}

// The routed calls over the same calls on the bare server; a read's floor
// is the bare call plus one copy of its bytes in process. The routed read
// is one into the caller's shared buffer: a private one is shadowed by a
// fresh mapping on each side of every call, whose first touch of each page
// costs more than the copy (the fresh-mapping cost printed above).
int AgainstBareServer(IZvReadAudioStream *routed, double routedRead1MiB)
{
    bare::Client peer;
    if (!peer.stream) {
        fprintf(stderr, "bench surrogate: no bare COM server\n");
        return 1;
    }
    DWORD align = 0, got = 0;
    double empty = perCall(2000, [&] { routed->GetBlockAlign(&align); });
    double bareEmpty = perCall(2000, [&] { peer.stream->GetBlockAlign(&align); });
    printf("bench surrogate-empty-call-vs-bare-com: %.3f (target <= 1.2)\n", empty / bareEmpty);
    _zvmemorytoken token;
    std::vector<BYTE> from(1u << 20, 1), to(1u << 20);
    ZvMemoryToken_InitLocal(&token, to.data(), (DWORD)to.size(), ZVMEMTOKEN_KIND_SHADOW);
    double bareRecord = perCall(2000, [&] { peer.stream->ReadSamples(0, 0, token, (1u << 20) / 4, &got); });
    double copy = perCall(200, [&] { memcpy(to.data(), from.data(), from.size()); });
    printf("bench surrogate-read-1MiB-vs-bare-floor: %.3f (target <= 2.0)\n", routedRead1MiB / (bareRecord + copy));
    fprintf(stderr, "  bare COM: empty call %.1f us, 40-byte record %.1f us; surrogate empty call %.1f us; "
                    "1 MiB: copy %.0f us, surrogate read %.0f us\n",
            bareEmpty * 1e6, bareRecord * 1e6, empty * 1e6, copy * 1e6, routedRead1MiB * 1e6);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc > 1 && !strcmp(argv[1], "--bare-server"))
        return bare::Serve();
    CoInitializeEx(NULL, COINIT_MULTITHREADED);
    ZvProxy_Register();
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    std::wstring host = std::wstring(temp) + L"zvbench-host.exe";
    ZvFioResetDataPaths();
    ZvFioResolveDataPaths(ZVFIO_CREATE_BESIDEPROGRAM, host.c_str());
    const DWORD flags = ZVFIO_CREATE_MANAGERONLY | ZVFIO_CREATE_BESIDEPROGRAM | ZVFIO_CREATE_NOCACHE;
    IZvFileIOMgrForApp *mgr = nullptr;
    long reserved = 0;
    if (FAILED(ZVFileIO_CreateInstance(&mgr, nullptr, flags, nullptr, reserved)) || !mgr) {
        fprintf(stderr, "bench surrogate: no manager\n");
        return 1;
    }
    CZvFileIOManager *m = static_cast<CZvFileIOManager *>(mgr);
    tZVLIST *list = nullptr;
    std::wstring folder = ExeDir() + L"tsurrogate";
    if (FAILED(ZvFioCreateRecordList(&list)) || FAILED(ZvFioReadConfigFiles(list, folder.c_str(), nullptr, 0)) ||
        FAILED(m->GrovelSpecifiedPlugins(list, flags, nullptr)) || FAILED(m->SetPluginList(list, 0, 0, nullptr))) {
        fprintf(stderr, "bench surrogate: no plug-in list\n");
        return 1;
    }
    int status = 0;
    {
        Stream remote(m, TS_G1A), local(m, TS_G0);
        if (!remote.audio || !local.audio) {
            fprintf(stderr, "bench surrogate: no streams\n");
            status = 1;
        } else {
            std::vector<BYTE> buffer(16u << 20);
            const struct {
                DWORD size;
                const char *name;
            } sizes[] = {{64u << 10, "64KiB"}, {1u << 20, "1MiB"}, {16u << 20, "16MiB"}};
            double routedRead1MiB = 0;
            for (auto &s : sizes) {
                double remoteRate = Rate(remote.audio, s.size, buffer, false);
                double localRate = Rate(local.audio, s.size, buffer, false);
                double remoteMapped = Rate(remote.audio, s.size, buffer, true);
                double localMapped = Rate(local.audio, s.size, buffer, true);
                printf("bench surrogate-read-%s: %.3f (target >= 0.5)\n", s.name, remoteRate / localRate);
                // against the floor: a read into the caller's shared buffer,
                // where the plug-in's own fill is the one copy
                if (s.size == 1u << 20)
                    routedRead1MiB = s.size / remoteMapped;
                printf("bench surrogate-read-mapped-%s: %.3f (target >= 0.5)\n", s.name, remoteMapped / localMapped);
                fprintf(stderr, "  %s: private buffer: surrogate %.0f MB/s, in process %.0f MB/s; "
                                "caller's mapping: surrogate %.0f MB/s, in process %.0f MB/s; "
                                "a fresh mapping of this size costs %.0f us\n",
                        s.name, remoteRate / 1e6, localRate / 1e6, remoteMapped / 1e6, localMapped / 1e6,
                        FreshMappingCost(s.size) * 1e6);
            }
            const int calls = 2000;
            DWORD align = 0;
            double farCall = best(3, [&] {
                for (int i = 0; i < calls; ++i)
                    remote.audio->GetBlockAlign(&align);
            }) / calls;
            double nearCall = best(3, [&] {
                for (int i = 0; i < calls; ++i)
                    local.audio->GetBlockAlign(&align);
            }) / calls;
            printf("surrogate empty call: %.1f us (in process %.3f us)\n", farCall * 1e6, nearCall * 1e6);
            status = AgainstBareServer(remote.audio, routedRead1MiB);
        }
    }
    mgr->CleanUp();
    mgr->Release();
    Sleep(1500); // the children end on their own once released
    return status;
}
