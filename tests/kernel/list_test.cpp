#include <gtest/gtest.h>
#include "zvlist.h"
#include <algorithm>
#include <atomic>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

namespace {

struct Rec {
    int key;
    int tag;
    char pad[4];
};

int WINAPI compareInts(ULONG_PTR criteria, const void *a, const void *b)
{
    int x = (int)(INT_PTR)a, y = (int)(INT_PTR)b;
    int r = x < y ? -1 : x > y ? 1 : 0;
    return criteria ? -r : r; // criteria 1: descending
}

int WINAPI compareRecs(ULONG_PTR, const void *a, const void *b)
{
    int x = ((const Rec *)a)->key, y = ((const Rec *)b)->key;
    return x < y ? -1 : x > y ? 1 : 0;
}

int WINAPI compareHeapInts(ULONG_PTR, const void *a, const void *b)
{
    int x = *(const int *)a, y = *(const int *)b;
    return x < y ? -1 : x > y ? 1 : 0;
}

int WINAPI matchTag(const void *key, const void *item)
{
    return ((const Rec *)item)->tag == (int)(INT_PTR)key ? 0 : 1;
}

tZVLIST *make(int itemSize, int initial, int grow, DWORD options)
{
    tZVLIST *list = nullptr;
    EXPECT_EQ(ZvList_CreateExZ(&list, itemSize, initial, grow, options, 0, 0, 0), S_OK);
    return list;
}

void appendInt(tZVLIST *list, int v)
{
    void *p = (void *)(INT_PTR)v;
    ASSERT_EQ(ZvList_InsertList(list, -1, &p, 1), S_OK);
}

std::vector<int> ints(tZVLIST *list)
{
    std::vector<int> out;
    for (int i = 0; i < list->count; i++)
        out.push_back((int)(INT_PTR)ZvList_GetItem(list, i));
    return out;
}

int appendHeapInt(tZVLIST *list, int v)
{
    int at = -2;
    EXPECT_EQ(ZvList_AllocAndInsertItem(list, &v, sizeof v, -1, &at), S_OK);
    return at;
}

std::vector<int> heapInts(tZVLIST *list)
{
    std::vector<int> out;
    for (int i = 0; i < list->count; i++)
        out.push_back(*(int *)ZvList_GetItem(list, i));
    return out;
}

} // namespace

TEST(ZvListCreate, SizesAndGrowthSteps)
{
    tZVLIST *l = make(0, -1, -1, 0);
    EXPECT_EQ(l->allocated, 16);
    EXPECT_EQ(l->growBy, 16);
    EXPECT_EQ(l->itemSize, sizeof(void *));
    EXPECT_EQ(ZvList_GetCreateOptions(l), ZVLIST_ANYTHREAD);
    EXPECT_EQ(ZvList_Destroy(l), S_OK);

    l = make(0, 5, 4, 0);
    EXPECT_EQ(l->allocated, 8);
    ZvList_Destroy(l);
    l = make(0, 2, 1, 0); // both raised to 4
    EXPECT_EQ(l->allocated, 4);
    EXPECT_EQ(l->growBy, 4);
    ZvList_Destroy(l);
    l = make(0, 10, 100000, 0);
    EXPECT_EQ(l->growBy, 0x10400);
    EXPECT_EQ(l->allocated, 0x10400);
    ZvList_Destroy(l);

    l = make(10, 0, 0, ZVLIST_INPLACEITEMS);
    EXPECT_EQ(l->itemSize, 12u);
    ZvList_Destroy(l);


    // Growth is linear, one step of grow-by at a time.
    l = make(0, 16, 16, 0);
    for (int i = 0; i < 17; i++)
        appendInt(l, i);
    EXPECT_EQ(l->allocated, 32);
    EXPECT_EQ(ZvList_GrowAllocated(l, 0), S_OK);
    EXPECT_EQ(l->allocated, 48);
    EXPECT_EQ(ZvList_GrowAllocated(l, 5), S_OK);
    EXPECT_EQ(l->allocated, 64);
    EXPECT_EQ(ints(l)[16], 16);
    ZvList_Destroy(l);
}

TEST(ZvListCreate, RejectsBadOptionsAndArguments)
{
    tZVLIST *l = (tZVLIST *)1;
    EXPECT_EQ(ZvList_CreateExZ(&l, 8, 0, 0, ZVLIST_HEAPITEMS | ZVLIST_INPLACEITEMS, 0, 0, 0), E_FAIL);
    EXPECT_EQ(l, nullptr);

    // Through a caller block the block is zeroed before the options are judged.
    tZVLIST block;
    memset(&block, 0xAB, sizeof block);
    l = &block;
    EXPECT_EQ(ZvList_CreateExZ(&l, 8, 0, 0, 6 | ZVLIST_CALLERBLOCK, 0, 0, 0), E_FAIL);
    EXPECT_EQ(block.magic, 0u);
    EXPECT_EQ(block.count, 0);
    l = nullptr;
    EXPECT_EQ(ZvList_CreateExZ(&l, 8, 0, 0, ZVLIST_CALLERBLOCK, 0, 0, 0), E_FAIL);

    EXPECT_EQ(ZvList_CreateExZ(nullptr, 0, 0, 0, 0), E_INVALIDARG);
    EXPECT_EQ(ZvList_CreateExZ(&l, 0, 0, 0, ZVLIST_INPLACEITEMS), E_INVALIDARG);
    EXPECT_EQ(ZvList_CreateExZ(&l, 0x10000, 0x7FFFFFFF, 0, ZVLIST_INPLACEITEMS), E_OUTOFMEMORY);
    EXPECT_EQ(l, nullptr);
    EXPECT_EQ(ZvList_Destroy(nullptr), S_OK);
}

TEST(ZvListCreate, CallerBlockAndConversion)
{
    tZVLIST block;
    tZVLIST *l = &block;
    ASSERT_EQ(ZvList_CreateExZ(&l, 0, 0, 0, ZVLIST_CALLERBLOCK | ZVLIST_THREADSAFE), S_OK);
    EXPECT_EQ(l, &block);
    EXPECT_TRUE(ZvList_IsList(l, sizeof(tZVLIST)));
    EXPECT_FALSE(ZvList_IsList(l, sizeof(tZVLIST) - 4));
    appendInt(l, 7);
    EXPECT_EQ(ZvList_Destroy(l), S_OK);
    EXPECT_FALSE(ZvList_IsListFast(&block));
    EXPECT_FALSE(ZvList_IsList(&block, sizeof(tZVLIST)));

    tZVLIST *h = make(0, 0, 0, ZVLIST_THREADSAFE);
    appendInt(h, 1);
    appendInt(h, 2);
    tZVLIST mine;
    EXPECT_EQ(ZvList_ConvertToInPlace(nullptr, &mine), E_INVALIDARG);
    EXPECT_EQ(ZvList_ConvertToInPlace(&h, nullptr), E_INVALIDARG);
    ASSERT_EQ(ZvList_ConvertToInPlace(&h, &mine), S_OK);
    EXPECT_EQ(h, nullptr);
    EXPECT_TRUE(ZvList_GetCreateOptions(&mine) & ZVLIST_CALLERBLOCK);
    appendInt(&mine, 3); // the lock of the copy works
    EXPECT_EQ(ints(&mine), (std::vector<int>{1, 2, 3}));
    tZVLIST *again = &mine;
    tZVLIST other;
    EXPECT_EQ(ZvList_ConvertToInPlace(&again, &other), E_FAIL);
    EXPECT_EQ(ZvList_Destroy(&mine), S_OK);
    EXPECT_EQ(ZvList_ConvertToInPlace(&again, &other), E_INVALIDARG);
}

TEST(ZvListEdit, InsertModesOnEachLayout)
{
    tZVLIST *l = make(0, 0, 0, 0);
    for (int i = 0; i < 3; i++)
        appendInt(l, i);
    void *v = (void *)(INT_PTR)9;
    EXPECT_EQ(ZvList_InsertList(l, 1000, &v, 1), S_OK); // clamped: appends
    EXPECT_EQ(ZvList_InsertList(l, 0, &v, -1), S_OK);   // raw slot, also fine here
    void *two[2] = {(void *)(INT_PTR)5, (void *)(INT_PTR)6};
    EXPECT_EQ(ZvList_InsertList(l, 2, two, 2), S_OK);
    EXPECT_EQ(ints(l), (std::vector<int>{9, 0, 5, 6, 1, 2, 9}));
    EXPECT_EQ(ZvList_InsertList(l, 0, nullptr, 1), E_FAIL);
    EXPECT_EQ(ZvList_InsertList(l, 0, nullptr, -1), E_FAIL); // nothing pending
    // A source inside the list itself survives growth and the tail shift.
    std::vector<int> model = ints(l);
    for (int i = 0; i < 20; i++) {
        EXPECT_EQ(ZvList_InsertList(l, 0, l->data + sizeof(void *), 3), S_OK);
        std::vector<int> three(model.begin() + 1, model.begin() + 4);
        model.insert(model.begin(), three.begin(), three.end());
    }
    EXPECT_EQ(ints(l), model);
    EXPECT_EQ(ZvList_GetItem(l, 67), nullptr);
    EXPECT_EQ(ZvList_GetItem(l, -1), nullptr);
    ZvList_Destroy(l);

    Rec recs[3] = {{1, 10, {}}, {2, 20, {}}, {3, 30, {}}};
    l = make(sizeof(Rec), 0, 0, ZVLIST_INPLACEITEMS);
    EXPECT_EQ(ZvList_InsertList(l, 0, recs, 3), S_OK);
    EXPECT_EQ(ZvList_InsertList(l, 1, &recs[2], 1), S_OK);
    EXPECT_EQ(((Rec *)ZvList_GetItem(l, 1))->tag, 30);
    EXPECT_EQ(((Rec *)ZvList_GetItem(l, 3))->tag, 30);
    EXPECT_EQ(ZvList_GetItem(l, 2), l->data + 2 * sizeof(Rec));
    ZvList_Destroy(l);

    // A heap list takes records only through its own allocation, raw slots
    // only knowingly with a negative count.
    l = make(0, 0, 0, ZVLIST_HEAPITEMS);
    int *raw = (int *)calloc(1, sizeof(int));
    *raw = 4;
    EXPECT_EQ(ZvList_InsertList(l, 0, &raw, 1), E_FAIL);
    EXPECT_EQ(ZvList_InsertList(l, 0, &raw, -1), S_OK);
    EXPECT_EQ(appendHeapInt(l, 8), 1);
    EXPECT_EQ(heapInts(l), (std::vector<int>{4, 8}));
    ZvList_Destroy(l); // frees both items
}

TEST(ZvListEdit, PendingItem)
{
    tZVLIST *ptrs = make(0, 0, 0, 0);
    void *item = (void *)1;
    EXPECT_EQ(ZvList_AllocItem(ptrs, 8, &item), E_FAIL);
    EXPECT_EQ(item, nullptr);
    int at = 5;
    EXPECT_EQ(ZvList_AllocAndInsertItem(ptrs, nullptr, 8, 0, &at), E_FAIL);
    EXPECT_EQ(at, -1);
    ZvList_Destroy(ptrs);

    for (DWORD extra : {(DWORD)0, (DWORD)ZVLIST_PRIVATEHEAP}) {
        tZVLIST *l = make(0, 0, 0, ZVLIST_HEAPITEMS | extra);
        void *first = nullptr, *second = nullptr;
        ASSERT_EQ(ZvList_AllocItem(l, 16, &first), S_OK);
        EXPECT_EQ(((int *)first)[3], 0);
        EXPECT_EQ(ZvList_AllocItem(l, 16, &second), E_FAIL);
        EXPECT_EQ(l->pending, first);
        EXPECT_EQ(ZvList_AllocAndInsertItem(l, nullptr, 4, 0, &at), E_FAIL);
        EXPECT_EQ(l->pending, first);
        EXPECT_EQ(l->count, 0);
        *(int *)first = 42;
        EXPECT_EQ(ZvList_InsertList(l, -1, nullptr, -1), S_OK);
        EXPECT_EQ(l->pending, nullptr);
        EXPECT_EQ(ZvList_GetItem(l, 0), first);

        // Delete with -1, -1 drops a pending item that never got in.
        ASSERT_EQ(ZvList_AllocItem(l, 16, &second), S_OK);
        EXPECT_EQ(ZvList_DeleteList(l, -1, -1, FALSE), S_OK);
        EXPECT_EQ(l->pending, nullptr);
        EXPECT_EQ(ZvList_DeleteList(l, -1, -1, FALSE), E_FAIL);
        EXPECT_EQ(l->count, 1);

        int v = 7;
        EXPECT_EQ(ZvList_AllocAndInsertItem(l, &v, sizeof v, 0, &at), S_OK);
        EXPECT_EQ(at, 0);
        EXPECT_EQ(ZvList_AllocAndInsertItem(l, &v, sizeof v, 99, &at), S_OK);
        EXPECT_EQ(at, 2);
        EXPECT_EQ(heapInts(l), (std::vector<int>{7, 42, 7}));

        // Resizing keeps the contents and zeroes what it adds.
        EXPECT_EQ(ZvList_ReAllocItem(l, 1, 4096), S_OK);
        int *grown = (int *)ZvList_GetItem(l, 1);
        EXPECT_EQ(grown[0], 42);
        EXPECT_EQ(grown[1023], 0);
        EXPECT_GE(ZvList_AllocSize(l, 1), 4096);
        EXPECT_GE(ZvList_AllocSize(l, -1), 4096 + (INT_PTR)sizeof(tZVLIST) + 8);
        EXPECT_EQ(ZvList_AllocSize(l, 3), -1);
        EXPECT_EQ(ZvList_ReAllocItem(l, 3, 8), E_INVALIDARG);
        EXPECT_EQ(ZvList_ReAllocItem(l, 0, 0), E_INVALIDARG);
        EXPECT_EQ(ZvList_DeleteList(l, 0, 1, FALSE), S_OK);
        EXPECT_EQ(ZvList_Destroy(l), S_OK);
    }
}

TEST(ZvListEdit, DeleteAndShrink)
{
    tZVLIST *l = make(0, 0, 0, 0);
    EXPECT_EQ(ZvList_DeleteList(l, 99, 0, FALSE), S_OK);
    EXPECT_EQ(ZvList_DeleteList(l, 99, 1, FALSE), E_FAIL);
    EXPECT_EQ(ZvList_DeleteList(l, -3, 1, FALSE), E_FAIL);
    for (int i = 0; i < 40; i++)
        appendInt(l, i);
    EXPECT_EQ(l->allocated, 48);
    EXPECT_EQ(ZvList_DeleteList(l, 2, 3, FALSE), S_OK);
    EXPECT_EQ(l->count, 37);
    EXPECT_EQ(ints(l)[2], 5);
    EXPECT_EQ(((void **)l->data)[37], nullptr); // freed slots at the end are zero
    EXPECT_EQ(ZvList_DeleteList(l, 30, 100, FALSE), S_OK); // clamped
    EXPECT_EQ(l->count, 30);
    EXPECT_EQ(ZvList_DeleteList(l, 10, -1, TRUE), S_OK); // to the end, then shrink
    EXPECT_EQ(l->count, 10);
    EXPECT_EQ(l->allocated, 16); // 38 spare: 32 go, keeping less than a step
    EXPECT_EQ(ints(l).back(), 12);

    EXPECT_EQ(ZvList_GrowAllocated(l, 40), S_OK);
    EXPECT_EQ(l->allocated, 64);
    EXPECT_EQ(ZvList_ShrinkAllocated(l, 5), S_OK); // rounded up to one step
    EXPECT_EQ(l->allocated, 48);
    EXPECT_EQ(ZvList_ShrinkAllocated(l, 1000), S_OK); // never more than spare
    EXPECT_EQ(l->allocated, 16);
    EXPECT_EQ(ZvList_ShrinkAllocated(l, -1), S_OK); // 6 spare: less than a step
    EXPECT_EQ(l->allocated, 16);
    EXPECT_EQ(ZvList_DeleteList(l, 0, -1, FALSE), S_OK);
    EXPECT_EQ(ZvList_ShrinkAllocated(l, -1), S_OK);
    EXPECT_EQ(l->allocated, 0);
    appendInt(l, 5); // grows again from nothing
    EXPECT_EQ(l->allocated, 16);
    EXPECT_EQ(ints(l), std::vector<int>{5});
    ZvList_Destroy(l);
}

TEST(ZvListEdit, MoveRange)
{
    tZVLIST *l = make(0, 0, 0, 0);
    for (int i = 0; i < 8; i++)
        appendInt(l, i);
    EXPECT_EQ(ZvList_MoveRange(l, 1, 4, 2), S_OK);
    EXPECT_EQ(ints(l), (std::vector<int>{0, 3, 4, 5, 1, 2, 6, 7}));
    EXPECT_EQ(ZvList_MoveRange(l, 4, 1, 2), S_OK);
    EXPECT_EQ(ints(l), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(ZvList_MoveRange(l, 5, -3, -1), S_OK); // to 0, count 8 - 5
    EXPECT_EQ(ints(l), (std::vector<int>{5, 6, 7, 0, 1, 2, 3, 4}));
    EXPECT_EQ(ZvList_MoveRange(l, -1, 0, 1), E_INVALIDARG);
    EXPECT_EQ(ZvList_MoveRange(l, 6, 0, 3), E_FAIL);
    EXPECT_EQ(ZvList_MoveRange(l, 0, 7, 2), E_FAIL);
    EXPECT_EQ(ZvList_MoveRange(l, 3, 3, 2), S_OK);
    EXPECT_EQ(ZvList_MoveRange(l, 0, 3, 0), S_OK);
    EXPECT_EQ(ints(l), (std::vector<int>{5, 6, 7, 0, 1, 2, 3, 4}));
    ZvList_Destroy(l);

    // Blocks above the stack buffer take the allocator.
    struct Big {
        int v[32];
    };
    l = make(sizeof(Big), 0, 0, ZVLIST_INPLACEITEMS);
    for (int i = 0; i < 20; i++) {
        Big b = {};
        b.v[0] = b.v[31] = i;
        ASSERT_EQ(ZvList_InsertList(l, -1, &b, 1), S_OK);
    }
    EXPECT_EQ(ZvList_MoveRange(l, 0, 10, 10), S_OK);
    for (int i = 0; i < 20; i++) {
        Big *b = (Big *)ZvList_GetItem(l, i);
        EXPECT_EQ(b->v[0], (i + 10) % 20);
        EXPECT_EQ(b->v[31], (i + 10) % 20);
    }
    ZvList_Destroy(l);
}

TEST(ZvListEdit, ForceItemCount)
{
    tZVLIST *p = make(0, 0, 0, 0);
    EXPECT_EQ(ZvList_ArrayForceItemCount(p, 3, FALSE), E_FAIL);
    ZvList_Destroy(p);

    tZVLIST *l = make(sizeof(Rec), 4, 4, ZVLIST_INPLACEITEMS);
    EXPECT_EQ(ZvList_ArrayForceItemCount(l, 30, FALSE), S_OK);
    EXPECT_EQ(l->count, 30);
    EXPECT_GE(l->allocated, 30);
    EXPECT_EQ(((Rec *)ZvList_GetItem(l, 29))->key, 0);
    ((Rec *)ZvList_GetItem(l, 20))->key = 5;
    LONG allocated = l->allocated;
    EXPECT_EQ(ZvList_ArrayForceItemCount(l, 2, TRUE), S_OK);
    EXPECT_EQ(l->count, 2);
    EXPECT_EQ(l->allocated, allocated);
    // The slots behind were not cleared: growing again shows them.
    EXPECT_EQ(ZvList_ArrayForceItemCount(l, 21, FALSE), S_OK);
    EXPECT_EQ(((Rec *)ZvList_GetItem(l, 20))->key, 5);
    EXPECT_EQ(ZvList_ArrayForceItemCount(l, -1, FALSE), E_INVALIDARG);
    ZvList_Destroy(l);
}

TEST(ZvListFind, LinearFinds)
{
    tZVLIST *l = make(0, 0, 0, 0);
    for (int i : {4, 8, 4, 2})
        appendInt(l, i);
    EXPECT_EQ(ZvList_FindSpecificItemRange(l, 0, -1, (void *)4), 0);
    EXPECT_EQ(ZvList_FindSpecificItemRange(l, 1, -1, (void *)4), 2);
    EXPECT_EQ(ZvList_FindSpecificItemRange(l, -5, 2, (void *)2), -1);
    EXPECT_EQ(ZvList_FindSpecificItemRange(l, 3, 99, (void *)2), 3);
    EXPECT_EQ(ZvList_FindSpecificItemRange(l, 4, -1, (void *)2), -1);
    EXPECT_EQ(ZvList_FindSpecificItemRange(l, 1, 0, (void *)8), -1);
    ZvList_Destroy(l);

    l = make(sizeof(Rec), 0, 0, ZVLIST_INPLACEITEMS);
    Rec recs[4] = {{1, 10, {}}, {2, 20, {}}, {3, 30, {}}, {2, 20, {}}};
    ZvList_InsertList(l, 0, recs, 4);
    Rec probe = {2, 20, {}};
    EXPECT_EQ(ZvList_FindSpecificItemRange(l, 0, -1, &probe), 1);
    EXPECT_EQ(ZvList_FindSpecificItemRange(l, 2, -1, &probe), 3);
    EXPECT_EQ(ZvList_FindSpecificItemRange(l, 0, -1, nullptr), -1);
    EXPECT_EQ(ZvList_FindItemRange(l, 0, -1, (void *)30, matchTag), 2);
    EXPECT_EQ(ZvList_FindItemRange(l, 0, 2, (void *)30, matchTag), -1);
    EXPECT_EQ(ZvList_FindItemRange(l, 0, -1, (void *)30, nullptr), -1);
    ZvList_Destroy(l);
}

TEST(ZvListFind, SortedFindsAndInsertIndex)
{
    tZVLIST *l = make(0, 0, 0, 0);
    EXPECT_EQ(ZvList_FindSortedInsertIndexRange(l, (void *)5, 0, -1, compareInts), 0);
    EXPECT_EQ(ZvList_FindSortedItemRange(l, (void *)5, 0, -1, compareInts), -1);
    for (int i = 0; i < 10; i++)
        appendInt(l, i * 10); // 0..90
    for (int n = 1; n <= 10; n++) {
        for (int k = -5; k <= n * 10 + 5; k++) {
            int expectInsert = k <= 0 ? 0 : std::min(n, (k + 9) / 10);
            int expectFind = (k >= 0 && k % 10 == 0 && k / 10 < n) ? k / 10 : -1;
            EXPECT_EQ(ZvList_FindSortedInsertIndexRange(l, (void *)(INT_PTR)k, 0, n, compareInts),
                      expectInsert) << n << " " << k;
            EXPECT_EQ(ZvList_FindSortedItemRange(l, (void *)(INT_PTR)k, 0, n, compareInts), expectFind)
                << n << " " << k;
        }
    }
    // Windows in the middle; degenerate starts.
    EXPECT_EQ(ZvList_FindSortedItemRange(l, (void *)70, 5, 3, compareInts), 7);
    EXPECT_EQ(ZvList_FindSortedItemRange(l, (void *)20, 5, 3, compareInts), -1);
    EXPECT_EQ(ZvList_FindSortedInsertIndexRange(l, (void *)20, 5, 3, compareInts), 5);
    EXPECT_EQ(ZvList_FindSortedInsertIndexRange(l, (void *)99, 5, 3, compareInts), 8);
    EXPECT_EQ(ZvList_FindSortedInsertIndexRange(l, (void *)5, 11, -1, compareInts), -1);
    EXPECT_EQ(ZvList_FindSortedItemRange(l, (void *)5, 11, -1, compareInts), -1);
    EXPECT_EQ(ZvList_FindSortedInsertIndexRange(l, (void *)5, 10, -1, compareInts), 0);
    EXPECT_EQ(ZvList_FindSortedInsertIndexRange(l, (void *)5, 0, -1, nullptr), -1);
    ZvList_Destroy(l);

    // Inserting at the found index keeps the list sorted, even with repeats.
    l = make(0, 0, 0, 0);
    std::mt19937 rng(7);
    std::vector<int> want;
    for (int i = 0; i < 300; i++) {
        int v = (int)(rng() % 50);
        void *p = (void *)(INT_PTR)v;
        int at = ZvList_FindSortedInsertIndexRange(l, p, 0, -1, compareInts);
        ASSERT_EQ(ZvList_InsertList(l, at, &p, 1), S_OK);
        want.push_back(v);
    }
    std::sort(want.begin(), want.end());
    EXPECT_EQ(ints(l), want);
    ZvList_Destroy(l);
}

TEST(ZvListSort, BothSortsOnEveryLayout)
{
    std::mt19937 rng(11);
    for (int n : {0, 1, 2, 3, 7, 16, 33, 200}) {
        std::vector<int> values(n);
        for (int &v : values)
            v = (int)(rng() % 40) - 20;
        std::vector<int> sorted = values;
        std::sort(sorted.begin(), sorted.end());
        for (int heap = 0; heap < 2; heap++) {
            auto sortFn = heap ? ZvList_HeapSort : ZvList_Sort;

            tZVLIST *p = make(0, 0, 0, 0);
            for (int v : values)
                appendInt(p, v);
            EXPECT_EQ(sortFn(p, 0, compareInts), S_OK);
            EXPECT_EQ(ints(p), sorted) << n << " heap " << heap;
            EXPECT_EQ(sortFn(p, 1, compareInts), S_OK);
            EXPECT_EQ(ZvList_GetSortCriteria(p), 1u);
            std::vector<int> desc(sorted.rbegin(), sorted.rend());
            EXPECT_EQ(ints(p), desc);
            ZvList_Destroy(p);

            tZVLIST *r = make(sizeof(Rec), 0, 0, ZVLIST_INPLACEITEMS);
            for (int i = 0; i < n; i++) {
                Rec rec = {values[i], values[i] * 3, {}};
                ZvList_InsertList(r, -1, &rec, 1);
            }
            EXPECT_EQ(sortFn(r, 0, compareRecs), S_OK);
            for (int i = 0; i < n; i++) {
                Rec *rec = (Rec *)ZvList_GetItem(r, i);
                EXPECT_EQ(rec->key, sorted[i]);
                EXPECT_EQ(rec->tag, sorted[i] * 3); // records move whole
            }
            ZvList_Destroy(r);

            tZVLIST *h = make(0, 0, 0, ZVLIST_HEAPITEMS | ZVLIST_PRIVATEHEAP);
            for (int v : values)
                appendHeapInt(h, v);
            EXPECT_EQ(sortFn(h, 0, compareHeapInts), S_OK);
            EXPECT_EQ(heapInts(h), sorted);
            ZvList_Destroy(h);
        }
    }
    // A null comparison sorts nothing but keeps the criteria.
    tZVLIST *p = make(0, 0, 0, 0);
    appendInt(p, 2);
    appendInt(p, 1);
    EXPECT_EQ(ZvList_Sort(p, 77, nullptr), S_OK);
    EXPECT_EQ(ZvList_GetSortCriteria(p), 77u);
    EXPECT_EQ(ZvList_HeapSort(p, 78, nullptr), S_OK);
    EXPECT_EQ(ZvList_GetSortCriteria(p), 78u);
    EXPECT_EQ(ints(p), (std::vector<int>{2, 1}));
    ZvList_Destroy(p);
}

TEST(ZvListSort, SortTo)
{
    tZVLIST *src = make(0, 0, 0, 0);
    tZVLIST *dst = make(0, 0, 0, 0);
    for (int v : {5, 1, 4, 1, 3})
        appendInt(src, v);
    appendInt(dst, 2);
    EXPECT_EQ(ZvList_SortTo(dst, src, 0, compareInts), S_OK);
    EXPECT_EQ(ints(dst), (std::vector<int>{1, 1, 2, 3, 4, 5}));
    EXPECT_EQ(ints(src), (std::vector<int>{5, 1, 4, 1, 3}));
    EXPECT_EQ(ZvList_SortTo(dst, src, 9, nullptr), S_OK);
    EXPECT_EQ(dst->count, 6);
    EXPECT_EQ(ZvList_GetSortCriteria(dst), 9u);
    EXPECT_EQ(ZvList_SortTo(dst, dst, 0, compareInts), E_INVALIDARG);

    // A heap list destination receives nothing: it only takes its own items.
    tZVLIST *heap = make(0, 0, 0, ZVLIST_HEAPITEMS);
    EXPECT_EQ(ZvList_SortTo(heap, src, 0, compareInts), S_OK);
    EXPECT_EQ(heap->count, 0);
    // In-place records do not fit a pointer-sized source slot.
    tZVLIST *recs = make(sizeof(Rec), 0, 0, ZVLIST_INPLACEITEMS);
    if (sizeof(Rec) > sizeof(void *)) {
        EXPECT_EQ(ZvList_SortTo(recs, src, 0, compareRecs), E_INVALIDARG);
    }
    ZvList_Destroy(recs);
    ZvList_Destroy(heap);
    ZvList_Destroy(src);
    ZvList_Destroy(dst);
}

TEST(ZvListMove, BetweenHeapLists)
{
    tZVLIST *a = make(0, 0, 0, ZVLIST_HEAPITEMS);
    tZVLIST *b = make(0, 0, 0, ZVLIST_HEAPITEMS);
    for (int i = 0; i < 6; i++)
        appendHeapInt(a, i);
    appendHeapInt(b, 100);
    appendHeapInt(b, 101);
    EXPECT_EQ(ZvList_MoveItemsBetweenHeapLists(b, 1, a, 2, 3), S_OK);
    EXPECT_EQ(heapInts(b), (std::vector<int>{100, 2, 3, 4, 101}));
    EXPECT_EQ(heapInts(a), (std::vector<int>{0, 1, 5}));
    EXPECT_TRUE(ZvList_GetCreateOptions(a) & ZVLIST_HEAPITEMS);
    EXPECT_EQ(b->pending, nullptr);

    EXPECT_EQ(ZvList_MoveItemsBetweenHeapLists(b, 0, a, 1, 5), E_FAIL);
    EXPECT_EQ(ZvList_MoveItemsBetweenHeapLists(b, 0, a, 1, 0), S_OK);
    EXPECT_EQ(ZvList_MoveItemsBetweenHeapLists(b, 0, a, -1, 1), E_INVALIDARG);
    EXPECT_EQ(ZvList_MoveItemsBetweenHeapLists(b, 0, b, 0, 1), E_INVALIDARG);
    // Negative count means all of the source, from index 0 here.
    EXPECT_EQ(ZvList_MoveItemsBetweenHeapLists(b, -1, a, 0, -1), S_OK);
    EXPECT_EQ(heapInts(b), (std::vector<int>{100, 2, 3, 4, 101, 0, 1, 5}));
    EXPECT_EQ(a->count, 0);

    void *pending;
    ASSERT_EQ(ZvList_AllocItem(b, 4, &pending), S_OK);
    appendHeapInt(a, 9);
    EXPECT_EQ(ZvList_MoveItemsBetweenHeapLists(b, 0, a, 0, 1), E_FAIL);
    EXPECT_EQ(ZvList_DeleteList(b, -1, -1, FALSE), S_OK);
    tZVLIST *p = make(0, 0, 0, 0);
    EXPECT_EQ(ZvList_MoveItemsBetweenHeapLists(p, 0, a, 0, 1), E_FAIL);
    EXPECT_EQ(ZvList_MoveItemsBetweenHeapLists(a, 0, p, 0, 0), E_FAIL);
    ZvList_Destroy(p);
    ZvList_Destroy(a);
    ZvList_Destroy(b);
}

TEST(ZvListMisc, OwnerUserDataAndBadHandles)
{
    tZVLIST *l = make(0, 0, 0, 0);
    EXPECT_EQ(ZvList_SetUserData(l, 5), 0u);
    EXPECT_EQ(ZvList_SetUserData(l, 6), 5u); // the old value back
    EXPECT_EQ(ZvList_SetThreadOwner(l, 0), S_OK); // 0: the calling thread
    EXPECT_EQ(ZvList_GetThreadOwner(l), GetCurrentThreadId());
    char text[8] = "x";
    EXPECT_EQ(ZvList_GetFileAndLine(l, text, sizeof text), -1);
    EXPECT_EQ(text[0], 0);

    // A list bound to a thread refuses every other thread.
    appendInt(l, 3);
    l->options &= ~ZVLIST_ANYTHREAD;
    EXPECT_EQ(ZvList_SetThreadOwner(l, GetCurrentThreadId() + 1), S_OK);
    void *v = nullptr;
    EXPECT_EQ(ZvList_InsertList(l, 0, &v, 1), E_FAIL);
    EXPECT_EQ(ZvList_FindSpecificItemRange(l, 0, -1, (void *)3), -1);
    EXPECT_EQ(ZvList_GetUserData(l), (ULONG_PTR)-1);
    EXPECT_EQ(ZvList_AllocSize(l, -1), -1);
    EXPECT_EQ(ZvList_IsValidIndexSlow(l, 0), 0);
    EXPECT_EQ(ZvList_SetThreadOwner(l, 0), S_OK);
    EXPECT_EQ(ZvList_IsValidIndexSlow(l, 0), 1);
    EXPECT_EQ(ZvList_IsValidIndexSlow(l, 1), 0);
    EXPECT_EQ(ZvList_Destroy(l), S_OK);

    // Null and destroyed handles give errors, never a crash.
    tZVLIST dead = {};
    for (tZVLIST *bad : {(tZVLIST *)nullptr, &dead}) {
        EXPECT_EQ(ZvList_InsertList(bad, 0, &v, 1), E_INVALIDARG);
        EXPECT_EQ(ZvList_DeleteList(bad, 0, 1, FALSE), E_INVALIDARG);
        EXPECT_EQ(ZvList_MoveRange(bad, 0, 1, 1), E_INVALIDARG);
        EXPECT_EQ(ZvList_GrowAllocated(bad, 1), E_INVALIDARG);
        EXPECT_EQ(ZvList_ShrinkAllocated(bad, 1), E_INVALIDARG);
        EXPECT_EQ(ZvList_Sort(bad, 0, compareInts), E_INVALIDARG);
        EXPECT_EQ(ZvList_HeapSort(bad, 0, compareInts), E_INVALIDARG);
        EXPECT_EQ(ZvList_AllocItem(bad, 4, &v), E_INVALIDARG);
        EXPECT_EQ(ZvList_ArrayForceItemCount(bad, 1, FALSE), E_INVALIDARG);
        EXPECT_EQ(ZvList_FindItemRange(bad, 0, -1, nullptr, matchTag), -1);
        EXPECT_EQ(ZvList_FindSortedInsertIndexRange(bad, nullptr, 0, -1, compareInts), -1);
        EXPECT_EQ(ZvList_AllocSize(bad, -1), -1);
        EXPECT_EQ(ZvList_SetUserData(bad, 1), (ULONG_PTR)-1);
        EXPECT_FALSE(ZvList_IsListFast(bad));
        EXPECT_FALSE(ZvList_IsList(bad, sizeof(tZVLIST)));
        EXPECT_EQ(ZvList_GetCount(bad), 0);
    }
    EXPECT_EQ(ZvList_Destroy(&dead), E_INVALIDARG);
    EXPECT_FALSE(ZvList_IsList((void *)16, sizeof(tZVLIST)));
}

TEST(ZvListMisc, ThreadSafeListUnderContention)
{
    tZVLIST *l = make(0, 0, 0, ZVLIST_HEAPITEMS | ZVLIST_THREADSAFE);
    std::atomic<int> failed{0};
    auto hammer = [&] {
        for (int i = 0; i < 2000; i++) {
            int at;
            failed += FAILED(ZvList_AllocAndInsertItem(l, &i, sizeof i, 0, &at));
            failed += i % 3 == 0 && FAILED(ZvList_DeleteList(l, 0, 1, TRUE));
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++)
        threads.emplace_back(hammer);
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(failed.load(), 0);
    EXPECT_EQ(l->count, 4 * (2000 - 667));
    EXPECT_EQ(ZvList_Destroy(l), S_OK);
}
