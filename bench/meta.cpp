// Metadata update on a large file: markers replaced in a 1 GiB wave file.
//   bench_meta update FILE    prints the seconds of the second of two
//                             updates of 200 markers (the first adds them)
#include "media/metainternal.h"
#include "zvplugin.h"
#include <stdio.h>
#include <string.h>

namespace {

double Now()
{
    LARGE_INTEGER f, c;
    QueryPerformanceFrequency(&f);
    QueryPerformanceCounter(&c);
    return (double)c.QuadPart / (double)f.QuadPart;
}

HRESULT Update(const wchar_t *path, int round)
{
    zvmeta::Store store;
    for (DWORD i = 0; i < 200; i++) {
        wchar_t text[32];
        int n = swprintf(text, 32, L"Marker %d.%lu", round, (unsigned long)i);
        ZVMETA_MARKER m = {28, i + 1, (LONGLONG)i * 44100, i % 2 ? 4410 : -1, (DWORD)(n + 1) * 2};
        zvmeta::Bytes r((BYTE *)&m, (BYTE *)&m + sizeof m);
        r.insert(r.end(), (BYTE *)text, (BYTE *)(text + n + 1));
        store.add(ZVMETA_MARKERS, r.data(), (DWORD)r.size());
    }
    IZvReadMeta *meta = nullptr;
    HRESULT hr = zvmeta::CreateSource(&store, &meta);
    if (SUCCEEDED(hr)) {
        hr = ZvFMMeta_UpdateMetaStream2(path, 44100, meta, ZVMETA_MARKERS, 0);
        meta->Release();
    }
    return hr;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3 || strcmp(argv[1], "update") != 0)
        return 2;
    wchar_t path[MAX_PATH];
    MultiByteToWideChar(CP_ACP, 0, argv[2], -1, path, MAX_PATH);
    if (FAILED(Update(path, 0)))
        return 1;
    double s = Now();
    HRESULT hr = Update(path, 1);
    double e = Now();
    if (FAILED(hr))
        return 1;
    printf("%.6f\n", e - s);
    return 0;
}
