// Chunk layer timings on a large file: finding the last of 10,000 chunks and
// deleting the first chunk (a move of everything behind it).
//   bench_riff make FILE      writes a 1 GiB RIFF file of 10,000 chunks
//   bench_riff find FILE      prints the seconds riff_FindChunkHeaderInRIFF takes
//   bench_riff delete FILE    prints the seconds riff_DeleteChunk takes
#include "media/riff.h"
#include <stdio.h>
#include <string.h>
#include <vector>

namespace {

const DWORD kChunks = 10000;
const DWORD kBody = (DWORD)((1ull << 30) / kChunks) & ~1u; // about 107 KB each

double Now()
{
    LARGE_INTEGER f, c;
    QueryPerformanceFrequency(&f);
    QueryPerformanceCounter(&c);
    return (double)c.QuadPart / (double)f.QuadPart;
}

HANDLE Open(const char *path)
{
    return CreateFileA(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

int Make(const char *path)
{
    HANDLE h = CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return 1;
    std::vector<BYTE> body(kBody);
    for (DWORD i = 0; i < kBody; i++)
        body[i] = (BYTE)(i * 31);
    riff_WriteFileID(h, ZVRIFF_WAVE, 4);
    DWORD total = 4;
    for (DWORD i = 0; i < kChunks; i++) {
        DWORD id = i + 1 == kChunks ? ZVRIFF_ID('l', 'a', 's', 't') : ZVRIFF_ID('c', 'h', 'n', 'k');
        DWORD written = 0;
        if (FAILED(riff_WriteChunk(h, id, body.data(), kBody, &written)))
            return 1;
        total += written;
    }
    riff_SetRIFFSize(h, total);
    CloseHandle(h);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3)
        return 2;
    if (!strcmp(argv[1], "make"))
        return Make(argv[2]);
    HANDLE h = Open(argv[2]);
    if (h == INVALID_HANDLE_VALUE)
        return 1;
    double t0 = Now();
    HRESULT hr = E_INVALIDARG;
    if (!strcmp(argv[1], "find")) {
        DWORD size = 0, remaining = 0;
        hr = riff_FindChunkHeaderInRIFF(h, ZVRIFF_ID('l', 'a', 's', 't'), &size, &remaining);
    } else if (!strcmp(argv[1], "delete")) {
        DWORD removed = 0;
        hr = riff_DeleteChunk(h, ZVRIFF_ID('c', 'h', 'n', 'k'), &removed, FALSE);
    }
    double t1 = Now();
    CloseHandle(h);
    if (FAILED(hr)) {
        fprintf(stderr, "bench_riff %s failed: %08lx\n", argv[1], (unsigned long)hr);
        return 1;
    }
    printf("%.6f\n", t1 - t0);
    return 0;
}
