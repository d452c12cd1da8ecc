#include "zvmemory.h"

void *ZvMem_Alloc(size_t size)
{
    HGLOBAL h = GlobalAlloc(GPTR, size ? size : 1);
    return h ? GlobalLock(h) : nullptr;
}

void ZvMem_Free(void *block)
{
    if (!block)
        return;
    HGLOBAL h = GlobalHandle(block);
    if (h) {
        GlobalUnlock(h);
        GlobalFree(h);
    }
}

size_t ZvMem_Size(const void *block)
{
    HGLOBAL h = block ? GlobalHandle(block) : nullptr;
    return h ? GlobalSize(h) : 0;
}
