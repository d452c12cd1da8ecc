// The kernel's allocation: movable-free global blocks, zero-filled, so every
// object made with the kernel's new starts as zeros.
#pragma once
#include "zvbase.h"
#include <new>

ZVAPI void *ZvMem_Alloc(size_t size);
ZVAPI void ZvMem_Free(void *block);
ZVAPI size_t ZvMem_Size(const void *block);

#ifdef __cplusplus
// Base for kernel objects: operator new and delete go to the global allocator.
struct ZvGlobalObject {
    static void *operator new(size_t size) noexcept { return ZvMem_Alloc(size); }
    static void *operator new[](size_t size) noexcept { return ZvMem_Alloc(size); }
    static void operator delete(void *p) noexcept { ZvMem_Free(p); }
    static void operator delete[](void *p) noexcept { ZvMem_Free(p); }
};
#endif
