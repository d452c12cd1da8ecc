// tZVLIST: the one growable array of the system.
//
// A list is a control block handled through ZvList_* functions that return an
// HRESULT or an index; nothing throws. Three item layouts, chosen at creation:
//   pointer list   (no layout bit)          slot holds a pointer-sized value
//                                           the caller owns
//   heap list      (ZVLIST_HEAPITEMS)       slot holds a pointer to a zeroed
//                                           block the list allocated and frees
//   in-place list  (ZVLIST_INPLACEITEMS)    slot is the record itself
// Slots of pointer and heap lists hold a pointer, so their itemSize is
// sizeof(void*): 4 on the 32-bit build, 8 on x64. In-place slots are the
// requested size rounded up to a multiple of 4, which lets sorting swap slots
// a 32-bit word at a time.
//
// Callers read count and data directly (ZvList_GetCount, ZvList_GetItem):
// those reads take no lock.
#pragma once
#include "zvbase.h"

#define ZVLIST_HEAPITEMS     0x00000002u
#define ZVLIST_INPLACEITEMS  0x00000004u
#define ZVLIST_CALLERBLOCK   0x00000008u
#define ZVLIST_PRIVATEHEAP   0x10000000u
#define ZVLIST_ANYTHREAD     0x40000000u
#define ZVLIST_THREADSAFE    0x80000000u

// "CURT" in memory order.
#define ZVLIST_MAGIC         0x54525543u

typedef struct tZVLIST {
    LONG count;               // items in use; read directly
    ULONG itemSize;           // bytes per slot
    BYTE *data;               // first slot; read directly
    CRITICAL_SECTION lock;    // only with ZVLIST_THREADSAFE; recursive
    ULONG magic;              // ZVLIST_MAGIC while alive, 0 after destruction
    ULONG options;            // creation word, ZVLIST_ANYTHREAD always added
    ULONG_PTR userData;       // one word for the owner
    ULONG_PTR sortCriteria;   // first argument of every comparison
    DWORD threadOwner;        // creator's thread id unless set otherwise
    LONG allocated;           // slots available, never below count
    LONG growBy;              // allocation step in items
    HANDLE heap;              // private item heap, or null
    DWORD heapAllocFlags;     // HEAP_NO_SERIALIZE | HEAP_ZERO_MEMORY on heap lists
    DWORD heapFreeFlags;      // HEAP_NO_SERIALIZE on heap lists
    void *pending;            // allocated by ZvList_AllocItem, not yet inserted
    DWORD reserved;
} tZVLIST;

#if defined(_M_IX86) || defined(__i386__)
static_assert(sizeof(tZVLIST) == 84, "tZVLIST is a fixed 84-byte block on 32-bit");
#endif

// Sort comparison: positive if item1 sorts after item2, negative if before,
// zero if equal. Items are slot addresses on in-place lists, slot values
// otherwise.
typedef int (WINAPI *ZVLIST_COMPAREPROC)(ULONG_PTR criteria, const void *item1, const void *item2);
// Match callback of ZvList_FindItemRange: zero for a match.
typedef int (WINAPI *ZVLIST_MATCHPROC)(const void *key, const void *item);

#ifdef __cplusplus
#define ZVLIST_DEFAULT(v) = v
#else
#define ZVLIST_DEFAULT(v)
#endif

// The three trailing words belong to a tracing build and are ignored.
ZVAPI HRESULT ZvList_CreateExZ(tZVLIST **list, int itemSize, int initialSlots, int growBy,
                               DWORD options, const char *file ZVLIST_DEFAULT(0),
                               int line ZVLIST_DEFAULT(0), ULONG_PTR reserved ZVLIST_DEFAULT(0));
ZVAPI HRESULT ZvList_Destroy(tZVLIST *list);

ZVAPI BOOL ZvList_IsList(const void *block, int size);
ZVAPI BOOL ZvList_IsListFast(const tZVLIST *list);
ZVAPI int ZvList_IsValidIndexSlow(tZVLIST *list, int index);

ZVAPI ULONG_PTR ZvList_SetUserData(tZVLIST *list, ULONG_PTR value);
ZVAPI ULONG_PTR ZvList_GetUserData(tZVLIST *list);
ZVAPI DWORD ZvList_GetCreateOptions(tZVLIST *list);
ZVAPI ULONG_PTR ZvList_GetSortCriteria(tZVLIST *list);
ZVAPI DWORD ZvList_GetThreadOwner(tZVLIST *list);
ZVAPI HRESULT ZvList_SetThreadOwner(tZVLIST *list, DWORD threadId);

ZVAPI HRESULT ZvList_GrowAllocated(tZVLIST *list, int extraSlots);
ZVAPI HRESULT ZvList_ShrinkAllocated(tZVLIST *list, int slotsToDrop);

// count >= 0: that many records (pointer values on a pointer list) from items;
// not allowed on a heap list. count < 0 with items: -count raw slots.
// items null with count -1: the pending item.
ZVAPI HRESULT ZvList_InsertList(tZVLIST *list, int index, const void *items, int count);
// count < 0 with index < 0 frees the pending item.
ZVAPI HRESULT ZvList_DeleteList(tZVLIST *list, int index, int count, BOOL shrink);
ZVAPI HRESULT ZvList_MoveRange(tZVLIST *list, int from, int to, int count);
ZVAPI HRESULT ZvList_ArrayForceItemCount(tZVLIST *list, int count, BOOL shrink);

ZVAPI HRESULT ZvList_AllocItem(tZVLIST *list, int size, void **item);
ZVAPI HRESULT ZvList_AllocAndInsertItem(tZVLIST *list, const void *source, int size, int index,
                                        int *indexOut);
ZVAPI HRESULT ZvList_ReAllocItem(tZVLIST *list, int index, int size);
ZVAPI INT_PTR ZvList_AllocSize(tZVLIST *list, int index);

ZVAPI int ZvList_FindSpecificItemRange(tZVLIST *list, int start, int count, const void *item);
ZVAPI int ZvList_FindItemRange(tZVLIST *list, int start, int count, const void *key,
                               ZVLIST_MATCHPROC match);
ZVAPI int ZvList_FindSortedItemRange(tZVLIST *list, const void *key, int start, int count,
                                     ZVLIST_COMPAREPROC compare);
ZVAPI int ZvList_FindSortedInsertIndexRange(tZVLIST *list, const void *key, int start, int count,
                                            ZVLIST_COMPAREPROC compare);

ZVAPI HRESULT ZvList_Sort(tZVLIST *list, ULONG_PTR criteria, ZVLIST_COMPAREPROC compare);
ZVAPI HRESULT ZvList_HeapSort(tZVLIST *list, ULONG_PTR criteria, ZVLIST_COMPAREPROC compare);
ZVAPI HRESULT ZvList_SortTo(tZVLIST *destination, tZVLIST *source, ULONG_PTR criteria,
                            ZVLIST_COMPAREPROC compare);

ZVAPI HRESULT ZvList_MoveItemsBetweenHeapLists(tZVLIST *destination, int destinationIndex,
                                               tZVLIST *source, int sourceIndex, int count);
ZVAPI HRESULT ZvList_ConvertToInPlace(tZVLIST **list, tZVLIST *callerBlock);
ZVAPI int ZvList_GetFileAndLine(tZVLIST *list, char *text, int length);

// Inline reads, no lock.
static inline int ZvList_GetCount(const tZVLIST *list)
{
    return list ? list->count : 0;
}

// Address of slot index, or null when out of range.
static inline void *ZvList_GetItemAddress(const tZVLIST *list, int index)
{
    if (!list || index < 0 || index > list->count - 1)
        return 0;
    return list->data + (size_t)list->itemSize * (size_t)index;
}

// The item: the record's address on an in-place list, the slot value
// otherwise; null when out of range.
static inline void *ZvList_GetItem(const tZVLIST *list, int index)
{
    void *slot = ZvList_GetItemAddress(list, index);
    if (!slot || (list->options & ZVLIST_INPLACEITEMS))
        return slot;
    return *(void **)slot;
}
