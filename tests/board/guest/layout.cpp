// What callers compile against on this processor.
#include "layout.h"
#include "qeli2c.h"

#include <cstddef>
#include <ctime>
#include <sys/types.h>

namespace board
{

std::string layout()
{
    const struct {
        const char *name;
        size_t value;
    } rows[] = {
        {"ei2c_client", sizeof(ei2c_client)},
        {"  swi_addr at", offsetof(ei2c_client, swi_addr)},
        {"  pcie_name at", offsetof(ei2c_client, pcie_name)},
        {"tpa626_info", sizeof(tpa626_info)},
        {"  wConfig at", offsetof(tpa626_info, wConfig)},
        {"  fVoltCoef2 at", offsetof(tpa626_info, fVoltCoef2)},
        {"tpidMap", sizeof(tpidMap)},
        {"mapFlag", sizeof(mapFlag)},
        {"pid", sizeof(pid)},
        {"g_dwEi2cLog", sizeof(g_dwEi2cLog)},
        {"a pointer", sizeof(void *)},
        {"a file offset", sizeof(off_t)}, // this program is built with the library's options
        {"a time", sizeof(time_t)},
    };
    std::string text;
    for (const auto &row : rows)
        text += std::string(row.name) + " " + std::to_string(row.value) + "\n";
    return text;
}

} // namespace board
