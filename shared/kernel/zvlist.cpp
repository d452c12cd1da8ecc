// The list container. The slot area lives on the process heap (zeroed
// allocation, resizing, in-place shrink); heap items come from the C run-time
// allocator or from a private heap that can be dropped whole.
#include "zvlist.h"
#include <malloc.h>
#include <stdlib.h>
#include <string.h>

namespace {

const DWORD kHeapAllocFlags = HEAP_NO_SERIALIZE | HEAP_ZERO_MEMORY; // 9
const DWORD kHeapFreeFlags = HEAP_NO_SERIALIZE;                     // 1
const int kMaxGrowBy = 0x10400;
const int kDefaultSlots = 16;
// Slot counts and byte sizes stay well inside what a signed 32-bit count and
// the address space can hold, so no size computation can wrap.
const long long kMaxSlots = 0x7FFFFFFF;
const unsigned long long kMaxBytes = (sizeof(void *) == 4) ? 0x7FFFFFFFull : 0x3FFFFFFFFFFull;

inline bool isValid(const tZVLIST *list)
{
    return list && list->magic == ZVLIST_MAGIC;
}

inline bool isHeapList(DWORD options) { return (options & ZVLIST_HEAPITEMS) != 0; }
inline bool isInPlace(DWORD options) { return (options & ZVLIST_INPLACEITEMS) != 0; }

// Holds the list's lock for the scope when the list is thread-safe. The
// options word is read once so that the same value decides enter and leave.
class Scope {
public:
    explicit Scope(tZVLIST *list) : list_(list), options_(list->options)
    {
        if ((LONG)options_ < 0)
            EnterCriticalSection(&list_->lock);
    }
    ~Scope()
    {
        if ((LONG)options_ < 0)
            LeaveCriticalSection(&list_->lock);
    }
    Scope(const Scope &) = delete;
    Scope &operator=(const Scope &) = delete;
    DWORD options() const { return options_; }
    // A list bound to one thread refuses calls from others.
    bool ownerOk() const
    {
        return (options_ & (ZVLIST_THREADSAFE | ZVLIST_ANYTHREAD)) ||
               GetCurrentThreadId() == list_->threadOwner;
    }
private:
    tZVLIST *list_;
    DWORD options_;
};

inline BYTE *slotAt(const tZVLIST *list, long long index)
{
    return list->data + (size_t)list->itemSize * (size_t)index;
}

// What comparisons and matches receive: the slot's address on an in-place
// list, the slot's value otherwise.
inline const void *itemArg(const tZVLIST *list, long long index)
{
    BYTE *slot = slotAt(list, index);
    return isInPlace(list->options) ? (const void *)slot : *(void *const *)slot;
}

inline long long roundUp(long long value, long long step)
{
    return (value + step - 1) / step * step;
}

bool slotBytes(const tZVLIST *list, long long slots, size_t *bytes)
{
    if (slots < 0 || slots > kMaxSlots)
        return false;
    unsigned long long b = (unsigned long long)slots * list->itemSize;
    if (b > kMaxBytes)
        return false;
    *bytes = (size_t)(b ? b : 1);
    return true;
}

void *itemAlloc(tZVLIST *list, size_t size)
{
    if (list->heap)
        return HeapAlloc(list->heap, list->heapAllocFlags, size ? size : 1);
    return calloc(1, size ? size : 1);
}

void itemFree(tZVLIST *list, void *item)
{
    if (!item)
        return;
    if (list->heap)
        HeapFree(list->heap, list->heapFreeFlags, item);
    else
        free(item);
}

size_t itemSizeOf(tZVLIST *list, void *item)
{
    if (!item)
        return 0;
    if (list->heap) {
        SIZE_T s = HeapSize(list->heap, list->heapFreeFlags, item);
        return s == (SIZE_T)-1 ? 0 : s;
    }
    return _msize(item);
}

HRESULT growLocked(tZVLIST *list, long long extra)
{
    if (extra < 1)
        extra = list->growBy;
    long long total = (long long)list->allocated + roundUp(extra, list->growBy);
    size_t bytes;
    if (!slotBytes(list, total, &bytes))
        return E_OUTOFMEMORY;
    void *grown = HeapReAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, list->data, bytes);
    if (!grown)
        return E_OUTOFMEMORY;
    list->data = (BYTE *)grown;
    list->allocated = (LONG)total;
    return S_OK;
}

HRESULT shrinkLocked(tZVLIST *list, long long drop)
{
    long long spare = (long long)list->allocated - list->count;
    if (drop < 0)
        drop = spare;
    long long rounded = roundUp(drop, list->growBy);
    // Never give up more than the spare slots, in whole steps.
    if (rounded > spare)
        rounded = spare / list->growBy * list->growBy;
    if (rounded <= 0)
        return S_OK;
    long long keep = (long long)list->allocated - rounded;
    size_t bytes = (size_t)(keep > 0 ? keep : 1) * list->itemSize;
    if (bytes < list->itemSize)
        bytes = list->itemSize;
    HANDLE heap = GetProcessHeap();
    void *shrunk = HeapReAlloc(heap, HEAP_REALLOC_IN_PLACE_ONLY, list->data, bytes);
    if (!shrunk)
        shrunk = HeapReAlloc(heap, 0, list->data, bytes);
    if (!shrunk)
        return E_OUTOFMEMORY;
    list->data = (BYTE *)shrunk;
    list->allocated = (LONG)keep;
    return S_OK;
}

// Inserts n slots copied from items at index (already clamped by the caller
// or clamped here). The source may lie inside the list itself.
HRESULT insertSlotsLocked(tZVLIST *list, int index, const void *items, long long n)
{
    if (index < 0 || index > list->count)
        index = list->count;
    if (n == 0) {
        list->pending = nullptr;
        return S_OK;
    }
    size_t isz = list->itemSize;
    size_t copyBytes;
    if (!slotBytes(list, n, &copyBytes) || (long long)list->count + n > kMaxSlots)
        return E_OUTOFMEMORY;
    copyBytes = (size_t)n * isz;

    // A source inside the slot area would move with growth and the tail shift.
    void *temp = nullptr;
    const BYTE *src = (const BYTE *)items;
    const BYTE *areaEnd = list->data + (size_t)list->allocated * isz;
    if (src < areaEnd && src + copyBytes > list->data) {
        temp = HeapAlloc(GetProcessHeap(), 0, copyBytes);
        if (!temp)
            return E_OUTOFMEMORY;
        memcpy(temp, src, copyBytes);
        src = (const BYTE *)temp;
    }
    HRESULT hr = S_OK;
    if ((long long)list->allocated < (long long)list->count + n)
        hr = growLocked(list, n);
    if (SUCCEEDED(hr)) {
        BYTE *at = slotAt(list, index);
        memmove(at + copyBytes, at, (size_t)(list->count - index) * isz);
        memcpy(at, src, copyBytes);
        list->count += (LONG)n;
        list->pending = nullptr;
    }
    if (temp)
        HeapFree(GetProcessHeap(), 0, temp);
    return hr;
}

HRESULT insertLocked(tZVLIST *list, DWORD options, int index, const void *items, int count)
{
    if (!items) {
        if (count != -1 || !list->pending)
            return E_FAIL;
        void *pending = list->pending;
        return insertSlotsLocked(list, index, &pending, 1);
    }
    if (count >= 0 && isHeapList(options))
        return E_FAIL; // a heap list owns its items: raw slots only with a negative count
    long long n = count < 0 ? -(long long)count : count;
    return insertSlotsLocked(list, index, items, n);
}

HRESULT deleteLocked(tZVLIST *list, DWORD options, int index, int count, BOOL shrink)
{
    if (count < 0) {
        if (index < 0) {
            if (!list->pending)
                return E_FAIL;
            itemFree(list, list->pending);
            list->pending = nullptr;
            return S_OK;
        }
        count = index < list->count ? list->count - index : 0;
    }
    if (count < 1)
        return S_OK;
    if (index < 0 || index > list->count - 1)
        return E_FAIL;
    if (count > list->count - index)
        count = list->count - index;

    size_t isz = list->itemSize;
    if (isHeapList(options)) {
        for (int i = index; i < index + count; i++)
            itemFree(list, *(void **)slotAt(list, i));
    }
    BYTE *at = slotAt(list, index);
    size_t tail = (size_t)(list->count - index - count) * isz;
    memmove(at, at + (size_t)count * isz, tail);
    memset(slotAt(list, list->count - count), 0, (size_t)count * isz);
    list->count -= count;

    if (shrink && list->allocated - list->count > list->growBy)
        shrinkLocked(list, (long long)list->allocated - list->count);
    return S_OK;
}

HRESULT allocItemLocked(tZVLIST *list, DWORD options, int size, void **item)
{
    if (!isHeapList(options) || list->pending)
        return E_FAIL;
    if (size < 0)
        return E_INVALIDARG;
    void *p = itemAlloc(list, (size_t)size);
    if (!p)
        return E_OUTOFMEMORY;
    list->pending = p;
    *item = p;
    return S_OK;
}

void swapSlots(tZVLIST *list, long long a, long long b)
{
    if (a == b)
        return;
    // Slots are whole 32-bit words.
    DWORD *x = (DWORD *)slotAt(list, a);
    DWORD *y = (DWORD *)slotAt(list, b);
    for (ULONG w = list->itemSize / 4; w; w--, x++, y++) {
        DWORD t = *x;
        *x = *y;
        *y = t;
    }
}

// Clamps a find range. Returns false when start lies past the items.
bool clampRange(const tZVLIST *list, int *start, int *count)
{
    if (*start < 0)
        *start = 0;
    if (*start > list->count)
        return false;
    int left = list->count - *start;
    if (*count < 0 || *count > left)
        *count = left;
    return true;
}

// Halving search over [start, start + count). Returns the index of a match,
// or -1 and the insert position through insertAt.
int searchSorted(tZVLIST *list, const void *key, int start, int count, ZVLIST_COMPAREPROC compare,
                 int *insertAt)
{
    ULONG_PTR criteria = list->sortCriteria;
    long long lo = start;
    long long hi = (long long)start + count - 1;
    long long num = count;
    long long last = lo;
    while (lo <= hi) {
        long long half = num / 2;
        if (half == 0) {
            if (num == 0)
                break;
            int r = compare(criteria, key, itemArg(list, lo));
            if (r == 0)
                return (int)lo;
            last = r > 0 ? lo + 1 : lo;
            break;
        }
        long long mid = lo + ((num & 1) ? half : half - 1);
        int r = compare(criteria, key, itemArg(list, mid));
        if (r == 0)
            return (int)mid;
        if (r < 0) {
            hi = mid - 1;
            num = (num & 1) ? half : half - 1;
            last = mid;
        } else {
            lo = mid + 1;
            num = half;
            last = mid + 1;
        }
    }
    *insertAt = (int)last;
    return -1;
}

// Sift of position i within n, 1-based.
void heapSift(tZVLIST *list, ULONG_PTR criteria, ZVLIST_COMPAREPROC compare, long long i, long long n)
{
    long long c = 2 * i;
    do {
        if (c < n && compare(criteria, itemArg(list, c), itemArg(list, c - 1)) > 0)
            c++;
        if (compare(criteria, itemArg(list, c - 1), itemArg(list, i - 1)) > 0)
            swapSlots(list, c - 1, i - 1);
        else
            break; // the subtree below is already a heap
        i = c;
        c = 2 * c;
    } while (c < n);
}

// The same on pointer slots, which are compared and swapped whole; slots is
// the slot array shifted down by one for 1-based positions.
void heapSiftPointers(void **slots, ULONG_PTR criteria, ZVLIST_COMPAREPROC compare, long long i, long long n)
{
    void *moving = slots[i];
    long long c = 2 * i;
    do {
        if (c < n && compare(criteria, slots[c + 1], slots[c]) > 0)
            c++;
        if (compare(criteria, slots[c], moving) <= 0)
            break;
        slots[i] = slots[c];
        i = c;
        c = 2 * c;
    } while (c < n);
    slots[i] = moving;
}

// The common entry of the editing calls: a live list, its lock, the owner
// test, then the body with the options word read on entry.
template <typename Body>
HRESULT withList(tZVLIST *list, Body body)
{
    if (!isValid(list))
        return E_INVALIDARG;
    Scope scope(list);
    if (!scope.ownerOk())
        return E_FAIL;
    return body(scope.options());
}

void destroyLock(tZVLIST *list, DWORD options)
{
    if ((LONG)options < 0)
        DeleteCriticalSection(&list->lock);
}

} // namespace

HRESULT ZvList_CreateExZ(tZVLIST **handle, int itemSize, int initialSlots, int growBy, DWORD options,
                         const char *, int, ULONG_PTR)
{
    if (!handle)
        return E_INVALIDARG;
    options |= ZVLIST_ANYTHREAD;
    bool callerBlock = (options & ZVLIST_CALLERBLOCK) != 0;
    tZVLIST *list = nullptr;
    if (callerBlock) {
        list = *handle;
        if (!list)
            return E_FAIL;
        memset(list, 0, sizeof(*list));
    } else {
        *handle = nullptr;
    }
    if (isHeapList(options) && isInPlace(options))
        return E_FAIL;
    if (isInPlace(options) && itemSize < 1)
        return E_INVALIDARG;
    if (!callerBlock) {
        list = (tZVLIST *)calloc(1, sizeof(tZVLIST));
        if (!list)
            return E_OUTOFMEMORY;
    }
    list->magic = ZVLIST_MAGIC;
    list->itemSize = isInPlace(options) ? (ULONG)(((long long)itemSize + 3) & ~3ll) : (ULONG)sizeof(void *);

    long long initial = initialSlots > 0 ? initialSlots : kDefaultSlots;
    if (initial < 4)
        initial = 4;
    long long step = growBy > 0 ? growBy : kDefaultSlots;
    if (step < 4)
        step = 4;
    if (step > kMaxGrowBy)
        step = kMaxGrowBy;
    initial = roundUp(initial, step);

    size_t bytes;
    BYTE *data = nullptr;
    if (slotBytes(list, initial, &bytes))
        data = (BYTE *)HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, bytes);
    if (!data) {
        list->magic = 0;
        if (!callerBlock)
            free(list);
        return E_OUTOFMEMORY;
    }
    list->data = data;
    if ((LONG)options < 0)
        InitializeCriticalSection(&list->lock);
    list->threadOwner = GetCurrentThreadId();
    list->options = options;
    list->allocated = (LONG)initial;
    list->growBy = (LONG)step;

    if (isHeapList(options)) {
        if (options & ZVLIST_PRIVATEHEAP) {
            list->heap = HeapCreate(HEAP_NO_SERIALIZE, 4096, 0);
            if (!list->heap) {
                destroyLock(list, options);
                HeapFree(GetProcessHeap(), 0, data);
                if (callerBlock)
                    memset(list, 0, sizeof(*list));
                else
                    free(list);
                return E_OUTOFMEMORY;
            }
        }
        list->heapAllocFlags = kHeapAllocFlags;
        list->heapFreeFlags = kHeapFreeFlags;
    }
    *handle = list;
    return S_OK;
}

HRESULT ZvList_Destroy(tZVLIST *list)
{
    if (!list)
        return S_OK;
    if (!isValid(list))
        return E_INVALIDARG;
    DWORD options = list->options;
    if ((LONG)options < 0)
        EnterCriticalSection(&list->lock);
    if (isHeapList(options)) {
        if (list->heap) {
            // The private heap goes in one stroke, pending item included.
            HeapDestroy(list->heap);
            list->heap = nullptr;
            list->pending = nullptr;
            memset(list->data, 0, (size_t)list->count * list->itemSize);
        } else {
            for (LONG i = 0; i < list->count; i++)
                free(*(void **)slotAt(list, i));
        }
    }
    HeapFree(GetProcessHeap(), 0, list->data);
    list->data = nullptr;
    list->count = 0;
    list->allocated = 0;
    list->magic = 0;
    if ((LONG)options < 0) {
        LeaveCriticalSection(&list->lock);
        DeleteCriticalSection(&list->lock);
    }
    if (!(options & ZVLIST_CALLERBLOCK))
        free(list);
    return S_OK;
}

BOOL ZvList_IsList(const void *block, int size)
{
    if (!block || size != (int)sizeof(tZVLIST) || IsBadReadPtr(block, sizeof(tZVLIST)))
        return FALSE;
    return ((const tZVLIST *)block)->magic == ZVLIST_MAGIC;
}

BOOL ZvList_IsListFast(const tZVLIST *list)
{
    return isValid(list);
}

int ZvList_IsValidIndexSlow(tZVLIST *list, int index)
{
    if (!isValid(list))
        return 0;
    Scope scope(list);
    if (!scope.ownerOk())
        return 0;
    return index >= 0 && index <= list->count - 1;
}

ULONG_PTR ZvList_SetUserData(tZVLIST *list, ULONG_PTR value)
{
    if (!isValid(list))
        return (ULONG_PTR)-1;
    Scope scope(list);
    if (!scope.ownerOk())
        return (ULONG_PTR)-1;
    return (ULONG_PTR)InterlockedExchangePointer((void *volatile *)&list->userData, (void *)value);
}

ULONG_PTR ZvList_GetUserData(tZVLIST *list)
{
    if (!isValid(list))
        return (ULONG_PTR)-1;
    Scope scope(list);
    if (!scope.ownerOk())
        return (ULONG_PTR)-1;
    return list->userData;
}

DWORD ZvList_GetCreateOptions(tZVLIST *list)
{
    return isValid(list) ? list->options : 0;
}

ULONG_PTR ZvList_GetSortCriteria(tZVLIST *list)
{
    return isValid(list) ? list->sortCriteria : 0;
}

DWORD ZvList_GetThreadOwner(tZVLIST *list)
{
    return isValid(list) ? list->threadOwner : 0;
}

HRESULT ZvList_SetThreadOwner(tZVLIST *list, DWORD threadId)
{
    if (!isValid(list))
        return E_INVALIDARG;
    Scope scope(list);
    list->threadOwner = threadId ? threadId : GetCurrentThreadId();
    return S_OK;
}

HRESULT ZvList_GrowAllocated(tZVLIST *list, int extraSlots)
{
    return withList(list, [&](DWORD) { return growLocked(list, extraSlots); });
}

HRESULT ZvList_ShrinkAllocated(tZVLIST *list, int slotsToDrop)
{
    return withList(list, [&](DWORD) { return shrinkLocked(list, slotsToDrop); });
}

HRESULT ZvList_InsertList(tZVLIST *list, int index, const void *items, int count)
{
    return withList(list, [&](DWORD options) { return insertLocked(list, options, index, items, count); });
}

HRESULT ZvList_DeleteList(tZVLIST *list, int index, int count, BOOL shrink)
{
    return withList(list, [&](DWORD options) { return deleteLocked(list, options, index, count, shrink); });
}

HRESULT ZvList_MoveRange(tZVLIST *list, int from, int to, int count)
{
    if (!isValid(list))
        return E_INVALIDARG;
    Scope scope(list);
    if (!scope.ownerOk())
        return E_FAIL;
    if (from < 0)
        return E_INVALIDARG;
    if (to < 0)
        to = 0;
    long long n = count;
    if (n < 0)
        n = (long long)list->count - (from > to ? from : to);
    if ((long long)from + n > list->count || (long long)to + n > list->count)
        return E_FAIL;
    if (n < 1 || from == to)
        return S_OK;

    size_t isz = list->itemSize;
    size_t blockBytes = (size_t)n * isz;
    BYTE stackBuffer[512];
    BYTE *saved = stackBuffer;
    if (blockBytes > sizeof(stackBuffer)) {
        saved = (BYTE *)HeapAlloc(GetProcessHeap(), 0, blockBytes);
        if (!saved)
            return E_OUTOFMEMORY;
    }
    memcpy(saved, slotAt(list, from), blockBytes);
    if (from < to)
        memmove(slotAt(list, from), slotAt(list, from + n), (size_t)(to - from) * isz);
    else
        memmove(slotAt(list, to + n), slotAt(list, to), (size_t)(from - to) * isz);
    memcpy(slotAt(list, to), saved, blockBytes);
    if (saved != stackBuffer)
        HeapFree(GetProcessHeap(), 0, saved);
    return S_OK;
}

HRESULT ZvList_ArrayForceItemCount(tZVLIST *list, int count, BOOL shrink)
{
    if (!isValid(list))
        return E_INVALIDARG;
    if (!isInPlace(list->options))
        return E_FAIL;
    if (count < 0)
        return E_INVALIDARG;
    Scope scope(list);
    if (!scope.ownerOk())
        return E_FAIL;
    if (count > list->count) {
        if (count > list->allocated) {
            HRESULT hr = growLocked(list, (long long)count - list->allocated);
            if (FAILED(hr))
                return hr;
        }
        list->count = count;
        return S_OK;
    }
    // Shrinking only moves count; the delete of zero items that follows
    // returns before its shrink step, so allocated stays.
    list->count = count;
    return deleteLocked(list, scope.options(), count, 0, shrink);
}

HRESULT ZvList_AllocItem(tZVLIST *list, int size, void **item)
{
    if (!isValid(list) || !item)
        return E_INVALIDARG;
    *item = nullptr;
    if (!isHeapList(list->options))
        return E_FAIL;
    Scope scope(list);
    if (!scope.ownerOk())
        return E_FAIL;
    return allocItemLocked(list, scope.options(), size, item);
}

HRESULT ZvList_AllocAndInsertItem(tZVLIST *list, const void *source, int size, int index, int *indexOut)
{
    if (indexOut)
        *indexOut = -1;
    if (!isValid(list))
        return E_INVALIDARG;
    Scope scope(list);
    if (!scope.ownerOk())
        return E_FAIL;
    if (index < 0 || index > list->count)
        index = list->count;
    void *item = nullptr;
    HRESULT hr = allocItemLocked(list, scope.options(), size, &item);
    if (FAILED(hr))
        return hr;
    if (source && size > 0)
        memcpy(item, source, (size_t)size);
    hr = insertLocked(list, scope.options(), index, nullptr, -1);
    if (FAILED(hr)) {
        itemFree(list, item);
        list->pending = nullptr;
        return hr;
    }
    if (indexOut)
        *indexOut = index;
    return S_OK;
}

HRESULT ZvList_ReAllocItem(tZVLIST *list, int index, int size)
{
    if (!isValid(list))
        return E_INVALIDARG;
    if (!isHeapList(list->options))
        return E_FAIL;
    Scope scope(list);
    if (!scope.ownerOk())
        return E_FAIL;
    if (index < 0 || index > list->count - 1 || size < 1)
        return E_INVALIDARG;
    void **slot = (void **)slotAt(list, index);
    void *grown;
    if (list->heap) {
        grown = *slot ? HeapReAlloc(list->heap, list->heapAllocFlags, *slot, (size_t)size)
                      : HeapAlloc(list->heap, list->heapAllocFlags, (size_t)size);
    } else {
        // Items start zeroed; keep that true for the part a resize adds.
        size_t old = itemSizeOf(list, *slot);
        grown = realloc(*slot, (size_t)size);
        if (grown && (size_t)size > old)
            memset((BYTE *)grown + old, 0, (size_t)size - old);
    }
    if (!grown)
        return E_OUTOFMEMORY;
    *slot = grown;
    return S_OK;
}

INT_PTR ZvList_AllocSize(tZVLIST *list, int index)
{
    if (!isValid(list))
        return -1;
    Scope scope(list);
    if (!scope.ownerOk())
        return -1;
    bool heapItems = isHeapList(scope.options());
    if (index < 0) {
        // Only a heap list's slots point at blocks the list can measure.
        size_t total = 0;
        if (heapItems) {
            for (LONG i = 0; i < list->count; i++)
                total += itemSizeOf(list, *(void **)slotAt(list, i));
        }
        total += sizeof(tZVLIST) + (size_t)list->allocated * list->itemSize;
        return (INT_PTR)total;
    }
    if (index > list->count - 1)
        return -1;
    if (!heapItems)
        return (INT_PTR)list->itemSize;
    return (INT_PTR)itemSizeOf(list, *(void **)slotAt(list, index));
}

int ZvList_FindSpecificItemRange(tZVLIST *list, int start, int count, const void *item)
{
    if (!isValid(list))
        return -1;
    Scope scope(list);
    if (!scope.ownerOk() || !clampRange(list, &start, &count) || count == 0)
        return -1;
    int end = start + count;
    if (isInPlace(scope.options())) {
        if (!item)
            return -1;
        for (int i = start; i < end; i++) {
            if (memcmp(slotAt(list, i), item, list->itemSize) == 0)
                return i;
        }
        return -1;
    }
    void *const *slots = (void *const *)list->data;
    for (int i = start; i < end; i++) {
        if (slots[i] == item)
            return i;
    }
    return -1;
}

int ZvList_FindItemRange(tZVLIST *list, int start, int count, const void *key, ZVLIST_MATCHPROC match)
{
    if (!isValid(list) || !match)
        return -1;
    Scope scope(list);
    if (!scope.ownerOk() || !clampRange(list, &start, &count))
        return -1;
    for (int i = start; i < start + count; i++) {
        if (match(key, itemArg(list, i)) == 0)
            return i;
    }
    return -1;
}

int ZvList_FindSortedItemRange(tZVLIST *list, const void *key, int start, int count,
                               ZVLIST_COMPAREPROC compare)
{
    if (!isValid(list) || !compare)
        return -1;
    Scope scope(list);
    if (!scope.ownerOk() || !clampRange(list, &start, &count) || count == 0)
        return -1;
    int insertAt;
    return searchSorted(list, key, start, count, compare, &insertAt);
}

int ZvList_FindSortedInsertIndexRange(tZVLIST *list, const void *key, int start, int count,
                                      ZVLIST_COMPAREPROC compare)
{
    if (!isValid(list) || !compare)
        return -1;
    Scope scope(list);
    if (!scope.ownerOk() || !clampRange(list, &start, &count))
        return -1;
    if (count == 0)
        return 0;
    int insertAt = start;
    int found = searchSorted(list, key, start, count, compare, &insertAt);
    return found >= 0 ? found : insertAt;
}

HRESULT ZvList_Sort(tZVLIST *list, ULONG_PTR criteria, ZVLIST_COMPAREPROC compare)
{
    if (!isValid(list))
        return E_INVALIDARG;
    Scope scope(list);
    if (!scope.ownerOk())
        return E_FAIL;
    list->sortCriteria = criteria;
    if (!compare || list->count < 2)
        return S_OK;
    // Selection sort: quadratic by design; HeapSort is for long lists.
    for (long long last = list->count - 1; last >= 1; last--) {
        long long best = 0;
        for (long long j = 1; j <= last; j++) {
            if (compare(criteria, itemArg(list, j), itemArg(list, best)) > 0)
                best = j;
        }
        swapSlots(list, best, last);
    }
    return S_OK;
}

HRESULT ZvList_HeapSort(tZVLIST *list, ULONG_PTR criteria, ZVLIST_COMPAREPROC compare)
{
    if (!isValid(list))
        return E_INVALIDARG;
    Scope scope(list);
    if (!scope.ownerOk())
        return E_FAIL;
    list->sortCriteria = criteria;
    long long n = list->count;
    if (!compare || n < 2)
        return S_OK;
    if (!isInPlace(scope.options())) {
        void **slots = (void **)list->data - 1;
        for (long long i = n / 2; i >= 2; i--)
            heapSiftPointers(slots, criteria, compare, i, n);
        for (long long m = n; m >= 2; m--) {
            heapSiftPointers(slots, criteria, compare, 1, m);
            void *top = slots[1];
            slots[1] = slots[m];
            slots[m] = top;
        }
        return S_OK;
    }
    for (long long i = n / 2; i >= 2; i--)
        heapSift(list, criteria, compare, i, n);
    for (long long m = n; m >= 2; m--) {
        heapSift(list, criteria, compare, 1, m);
        swapSlots(list, 0, m - 1);
    }
    return S_OK;
}

HRESULT ZvList_SortTo(tZVLIST *destination, tZVLIST *source, ULONG_PTR criteria,
                      ZVLIST_COMPAREPROC compare)
{
    if (!isValid(destination) || !isValid(source) || destination == source)
        return E_INVALIDARG;
    // A copy takes the destination's slot size from the source slot.
    if (source->itemSize < destination->itemSize)
        return E_INVALIDARG;
    destination->sortCriteria = criteria;
    Scope scope(source);
    if (!scope.ownerOk())
        return E_FAIL;
    if (!compare)
        return S_OK;
    for (LONG i = 0; i < source->count; i++) {
        const void *key = itemArg(source, i);
        int at = ZvList_FindSortedInsertIndexRange(destination, key, 0, -1, compare);
        ZvList_InsertList(destination, at, slotAt(source, i), 1);
    }
    return S_OK;
}

HRESULT ZvList_MoveItemsBetweenHeapLists(tZVLIST *destination, int destinationIndex, tZVLIST *source,
                                         int sourceIndex, int count)
{
    if (!isValid(destination) || !isValid(source) || destination == source)
        return E_INVALIDARG;
    Scope destinationScope(destination);
    Scope sourceScope(source);
    if (!destinationScope.ownerOk() || !sourceScope.ownerOk())
        return E_FAIL;
    if (!isHeapList(destination->options) || !isHeapList(source->options) || destination->pending)
        return E_FAIL;
    if (sourceIndex < 0)
        return E_INVALIDARG;
    if (destinationIndex < 0 || destinationIndex > destination->count)
        destinationIndex = destination->count;
    if (count < 0)
        count = source->count;
    if (count == 0)
        return S_OK;
    if ((long long)sourceIndex + count > source->count)
        return E_FAIL;

    // Without the bit, deleting from the source leaves the moved items alive.
    source->options &= ~ZVLIST_HEAPITEMS;
    HRESULT hr = S_OK;
    for (int k = count - 1; k >= 0; k--) {
        destination->pending = *(void **)slotAt(source, sourceIndex + k);
        hr = insertLocked(destination, destination->options, destinationIndex, nullptr, -1);
        if (FAILED(hr))
            break;
        hr = deleteLocked(source, source->options, sourceIndex + k, 1, FALSE);
        if (FAILED(hr))
            break;
    }
    source->options |= ZVLIST_HEAPITEMS;
    destination->pending = nullptr;
    return hr;
}

HRESULT ZvList_ConvertToInPlace(tZVLIST **handle, tZVLIST *callerBlock)
{
    if (!handle || !callerBlock || !isValid(*handle))
        return E_INVALIDARG;
    tZVLIST *old = *handle;
    if (old->options & ZVLIST_CALLERBLOCK)
        return E_FAIL;
    if (old == callerBlock)
        return E_INVALIDARG;
    memcpy(callerBlock, old, sizeof(tZVLIST));
    // A critical section is tied to its address: the copy gets a fresh one.
    if ((LONG)old->options < 0) {
        DeleteCriticalSection(&old->lock);
        InitializeCriticalSection(&callerBlock->lock);
    }
    callerBlock->options |= ZVLIST_CALLERBLOCK;
    old->magic = 0;
    free(old);
    *handle = nullptr; // from now on the list is addressed through callerBlock
    return S_OK;
}

int ZvList_GetFileAndLine(tZVLIST *, char *text, int length)
{
    if (text && length > 0)
        text[0] = 0;
    return -1;
}
