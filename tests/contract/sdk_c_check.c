/* The plug-in SDK header stands alone in C as well: a plug-in written in C
   gets the same records, sizes and helpers. */
#include "../../plugins/sdk/zvplugin_sdk.h"

int contract_sdk_c_is_type(IZvReadFileClass *cls, const void *chunk, DWORD size)
{
    return ZvSdk_IsType(cls, ZvSdk_HandleToWire(INVALID_HANDLE_VALUE), chunk, size, 0) == S_OK;
}
