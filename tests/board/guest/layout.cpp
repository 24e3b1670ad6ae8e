// What callers compile against on this processor.
#include "qeli2c.h"

#include <cstddef>
#include <ctime>
#include <sys/types.h>

static_assert(sizeof(ei2c_client) == 32);
static_assert(offsetof(ei2c_client, swi_addr) == 8 && offsetof(ei2c_client, pcie_name) == 16);
static_assert(sizeof(tpa626_info) == 60);
static_assert(offsetof(tpa626_info, wConfig) == 32 && offsetof(tpa626_info, fVoltCoef2) == 56);
static_assert(sizeof(tpidMap) == 4 && sizeof(mapFlag) == 4 && sizeof(pid) == 4);
static_assert(sizeof(g_dwEi2cLog) == 4 && sizeof(void *) == 4);
static_assert(sizeof(off_t) == 8 && sizeof(time_t) == 8); // with the library's options
