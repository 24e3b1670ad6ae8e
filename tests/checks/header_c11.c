/* The public header alone, as strict C11, with the record layouts that callers are compiled
 * against. */
#include "qeli2c.h"

#include <stddef.h>

_Static_assert(sizeof(ei2c_client) == 32, "ei2c_client");
_Static_assert(offsetof(ei2c_client, bus) == 0 && offsetof(ei2c_client, addr) == 4 &&
                   offsetof(ei2c_client, flags) == 6 && offsetof(ei2c_client, swi_addr) == 8 &&
                   offsetof(ei2c_client, swi_chnl) == 12 && offsetof(ei2c_client, pcie_name) == 16,
               "ei2c_client fields");
_Static_assert(sizeof(tpidMap) == sizeof(void *) && sizeof(mapFlag) == 4 && sizeof(pid) == 4 &&
                   sizeof(g_dwEi2cLog) == 4,
               "globals");
_Static_assert(sizeof(tpa626_info) == 60 && offsetof(tpa626_info, wConfig) == 32 &&
                   offsetof(tpa626_info, fPowerCoef1) == 40 &&
                   offsetof(tpa626_info, dwRsv2) == 48 && offsetof(tpa626_info, fVoltCoef2) == 56,
               "tpa626_info");
_Static_assert(sizeof(retimer_i2c_dev) == 11 && offsetof(retimer_i2c_dev, ucSwiValid) == 6 &&
                   offsetof(retimer_i2c_dev, ucUpSwiChnl) == 10,
               "retimer_i2c_dev");
