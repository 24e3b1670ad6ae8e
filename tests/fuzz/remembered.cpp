// The two files of the library that remember something from call to call, so that it can be
// forgotten.
#include "tests/fuzz/doubled_platform.h"

#include "bus/ui2c_ioctls/registry.cpp"
#define kLogTag kEepromLogTag
#include "drivers/ee_at24c512.cpp"
#undef kLogTag

#include <type_traits>
#include <utility>

extern "C" void __real_free(void *block);

namespace
{

template <typename Record>
int count(const Record *record)
{
    int records = 0;
    for (; record != nullptr; record = record->next)
        records++;
    return records;
}

template <typename Record>
void forget(Record *&first)
{
    while (first != nullptr) {
        Record *next = first->next;
        if constexpr (std::is_same_v<Record, ui2c_adapter>)
            __real_free(first->data);
        __real_free(first);
        first = next;
    }
}

} // namespace

int fuzz::registry_blocks()
{
    int blocks = count(adapters.next) + count(switches.next) + count(clients.next);
    // The head of the list stands for bus 0xffffffff.
    for (const ui2c_adapter *adapter = &adapters; adapter != nullptr; adapter = adapter->next)
        blocks += adapter->data != nullptr ? 1 : 0;
    return blocks;
}

void fuzz::forget_calls()
{
    forget(adapters.next);
    __real_free(std::exchange(adapters.data, nullptr));
    forget(switches.next);
    forget(clients.next);
    found_last = &clients;
    cached_semid = -1;
}
