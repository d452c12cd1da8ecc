// Times the list container against the standard vector doing the same work
// in the same run, and prints one ratio (list time / vector time) per task.
#include "zvlist.h"
#include "zvprintf.h"
#include <algorithm>
#include <cstdio>
#include <random>
#include <vector>

namespace {

double now()
{
    LARGE_INTEGER c, f;
    QueryPerformanceCounter(&c);
    QueryPerformanceFrequency(&f);
    return (double)c.QuadPart / (double)f.QuadPart;
}

int WINAPI compareValues(ULONG_PTR, const void *a, const void *b)
{
    INT_PTR x = (INT_PTR)a, y = (INT_PTR)b;
    return x < y ? -1 : x > y ? 1 : 0;
}

// The vector gets the same callback, called through a pointer as the list
// must, so that both pay for the comparison alike.
ZVLIST_COMPAREPROC volatile g_compare = compareValues;

bool lessValues(void *a, void *b)
{
    return g_compare(0, a, b) < 0;
}

// Best of a few rounds, to keep other processes' noise out.
template <typename F>
double best(F work)
{
    double t = 1e9;
    for (int round = 0; round < 5; round++) {
        double start = now();
        work();
        t = std::min(t, now() - start);
    }
    return t;
}

} // namespace

int main()
{
    std::mt19937 rng(3);
    std::vector<void *> values(20000);
    for (void *&v : values)
        v = (void *)(INT_PTR)(rng() % 1000000);
    volatile size_t sink = 0;

    // Sorted insertion: binary search for the place, then insert.
    double list = best([&] {
        tZVLIST *l = nullptr;
        ZvList_CreateExZ(&l, 0, 0, 1024, 0);
        for (void *v : values) {
            int at = ZvList_FindSortedInsertIndexRange(l, v, 0, -1, g_compare);
            ZvList_InsertList(l, at, &v, 1);
        }
        sink += l->count;
        ZvList_Destroy(l);
    });
    double vec = best([&] {
        std::vector<void *> s;
        for (void *v : values)
            s.insert(std::lower_bound(s.begin(), s.end(), v, lessValues), v);
        sink += s.size();
    });
    printf("bench list_sorted_insert: %.2f (target <= 2.0)\n", list / vec);

    // Sorting a long pointer list with the heap sort.
    std::vector<void *> big(200000);
    for (void *&v : big)
        v = (void *)(INT_PTR)rng();
    list = best([&] {
        tZVLIST *l = nullptr;
        ZvList_CreateExZ(&l, 0, (int)big.size(), 1024, 0);
        ZvList_InsertList(l, 0, big.data(), (int)big.size());
        ZvList_HeapSort(l, 0, g_compare);
        sink += (size_t)ZvList_GetItem(l, 0);
        ZvList_Destroy(l);
    });
    vec = best([&] {
        std::vector<void *> s(big);
        std::make_heap(s.begin(), s.end(), lessValues);
        std::sort_heap(s.begin(), s.end(), lessValues);
        sink += (size_t)s[0];
    });
    printf("bench list_heapsort: %.2f (target <= 2.0)\n", list / vec);

    // Grouped number text against the platform's number formatting.
    wchar_t text[64];
    double zv = best([&] {
        for (int i = 0; i < 100000; i++)
            sink += ZvPrintF(text, L"$d", i * 7919);
    });
    double platform = best([&] {
        for (int i = 0; i < 100000; i++) {
            wchar_t plain[16];
            _snwprintf(plain, 16, L"%d", i * 7919);
            sink += GetNumberFormatW(LOCALE_USER_DEFAULT, 0, plain, nullptr, text, 64);
        }
    });
    printf("bench printf_grouped: %.2f (target <= 1.5)\n", zv / platform);
    return sink == 0;
}
