// The access-owner table: which process took each bus last.
#ifndef QELI2C_OWNERS_H
#define QELI2C_OWNERS_H

#include <cstdint>
#include <string>

namespace tool
{

struct Owner {
    uint32_t pid = 0; // 0: nobody took the bus yet
    std::string name; // empty when it has ended
    bool alive = false;
};

// Maps the table; fails when it cannot be had. Writes nothing to it.
void map_owners();
uint32_t owner_pid(uint32_t bus);
Owner owner_of_pid(uint32_t pid);

} // namespace tool

#endif
