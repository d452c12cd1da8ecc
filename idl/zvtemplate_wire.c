/* Marshalling of template records (PZVTEMPLATE, PCZVTEMPLATE): the whole
   flat record crosses as its size and its bytes, and the receiving side
   allocates it with malloc, so that every holder of a record frees it with
   free(), whichever process made it. Wire form, 4-aligned: a 32-bit size
   (0 for a null record), then that many bytes. */
#include <stdlib.h>
#include <string.h>
#include <objbase.h>
#include "zvplugin.h"

/* Records are small; anything claiming more than this is damaged. */
#define ZV_TEMPLATE_WIRE_MAX (64u * 1024u * 1024u)

static DWORD zv_template_size(const tagZVTEMPLATExV2 *t)
{
    if (!t || t->dwSize < sizeof(DWORD) || t->dwSize > ZV_TEMPLATE_WIRE_MAX)
        return 0;
    return t->dwSize;
}

static ULONG zv_size(ULONG start, const tagZVTEMPLATExV2 *t)
{
    start = (start + 3) & ~3u;
    return start + sizeof(DWORD) + zv_template_size(t);
}

static unsigned char *zv_align(unsigned char *p)
{
    return (unsigned char *)(((ULONG_PTR)p + 3) & ~(ULONG_PTR)3);
}

static unsigned char *zv_marshal(unsigned char *buffer, const tagZVTEMPLATExV2 *t)
{
    DWORD size = zv_template_size(t);
    buffer = zv_align(buffer);
    memcpy(buffer, &size, sizeof(size));
    buffer += sizeof(size);
    if (size) {
        memcpy(buffer, t, size);
        buffer += size;
    }
    return buffer;
}

static unsigned char *zv_unmarshal(unsigned char *buffer, tagZVTEMPLATExV2 **out)
{
    DWORD size;
    tagZVTEMPLATExV2 *t = NULL;
    buffer = zv_align(buffer);
    memcpy(&size, buffer, sizeof(size));
    buffer += sizeof(size);
    if (size > ZV_TEMPLATE_WIRE_MAX)
        RpcRaiseException(RPC_X_BAD_STUB_DATA);
    if (size) {
        /* at least a whole head, zero-filled, so readers of the fixed
           fields never run past a short record */
        size_t alloc = size < sizeof(tagZVTEMPLATExV2) ? sizeof(tagZVTEMPLATExV2) : size;
        t = (tagZVTEMPLATExV2 *)calloc(1, alloc);
        if (!t)
            RpcRaiseException(E_OUTOFMEMORY);
        memcpy(t, buffer, size);
        t->dwSize = size;
        buffer += size;
    }
    *out = t;
    return buffer;
}

ULONG __RPC_USER PZVTEMPLATE_UserSize(ULONG *flags, ULONG start, PZVTEMPLATE *t)
{
    (void)flags;
    return zv_size(start, *t);
}

unsigned char *__RPC_USER PZVTEMPLATE_UserMarshal(ULONG *flags, unsigned char *buffer, PZVTEMPLATE *t)
{
    (void)flags;
    return zv_marshal(buffer, *t);
}

unsigned char *__RPC_USER PZVTEMPLATE_UserUnmarshal(ULONG *flags, unsigned char *buffer, PZVTEMPLATE *t)
{
    (void)flags;
    return zv_unmarshal(buffer, t);
}

void __RPC_USER PZVTEMPLATE_UserFree(ULONG *flags, PZVTEMPLATE *t)
{
    (void)flags;
    free(*t);
    *t = NULL;
}

ULONG __RPC_USER PCZVTEMPLATE_UserSize(ULONG *flags, ULONG start, PCZVTEMPLATE *t)
{
    (void)flags;
    return zv_size(start, *t);
}

unsigned char *__RPC_USER PCZVTEMPLATE_UserMarshal(ULONG *flags, unsigned char *buffer, PCZVTEMPLATE *t)
{
    (void)flags;
    return zv_marshal(buffer, *t);
}

unsigned char *__RPC_USER PCZVTEMPLATE_UserUnmarshal(ULONG *flags, unsigned char *buffer, PCZVTEMPLATE *t)
{
    tagZVTEMPLATExV2 *copy = NULL;
    (void)flags;
    buffer = zv_unmarshal(buffer, &copy);
    *t = copy;
    return buffer;
}

void __RPC_USER PCZVTEMPLATE_UserFree(ULONG *flags, PCZVTEMPLATE *t)
{
    (void)flags;
    free((void *)*t);
    *t = NULL;
}
