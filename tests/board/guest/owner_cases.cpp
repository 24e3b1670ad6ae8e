// The access-owner table: sixteen process ids at physical 0xB8210000, read from outside the
// machine.
#include <sys/wait.h>
#include <unistd.h>

#include "cases.h"
#include "link.h"
#include "wire.h"

namespace board
{

namespace
{

constexpr uint32_t owner_table = 0xB8210000;
constexpr uint32_t buses = 16;

using Table = std::vector<uint32_t>;

Table table_from_outside()
{
    Table table(buses);
    for (uint32_t bus = 0; bus < buses; bus++)
        table[bus] = link::read_memory(owner_table + 4 * bus);
    return table;
}

// Words that are no process's id, so that a slot which was not written shows.
Table marked_table()
{
    Table table(buses);
    for (uint32_t bus = 0; bus < buses; bus++) {
        table[bus] = 0xF00D0000 + bus;
        link::write_memory(owner_table + 4 * bus, table[bus]);
    }
    return table;
}

std::string in_words(const Table &table)
{
    std::string text;
    for (const uint32_t word : table)
        text += (text.empty() ? "" : " ") + std::to_string(word);
    return text;
}

// Any transfer takes the bus, also one that nobody acknowledges.
void use(uint32_t bus)
{
    ei2c_client client = {};
    uint8_t value = 0;
    client.bus = bus;
    client.addr = 0x6D;
    (void)ei2c_smbus_read_byte_data(&client, 0, &value);
}

uint32_t used_by_a_child(const std::vector<uint32_t> &numbers)
{
    const pid_t child = fork();
    if (child == 0) {
        for (const uint32_t bus : numbers)
            use(bus);
        _exit(0);
    }
    (void)waitpid(child, nullptr, 0);
    return static_cast<uint32_t>(child);
}

void one_bus(Check &check, uint32_t bus)
{
    Table wanted = marked_table();
    use(bus);
    wanted[bus] = static_cast<uint32_t>(getpid());
    equal(check, "owner table", in_words(table_from_outside()), in_words(wanted));
    is_true(check, "the table is mapped", mapFlag == 1 && tpidMap != 0);
    equal(check, "the exported process id", pid, getpid());
}

void two_processes(Check &check)
{
    Table wanted = marked_table();
    wanted[2] = wanted[14] = used_by_a_child({2, 14, 6});
    wanted[6] = used_by_a_child({6});
    equal(check, "owner table", in_words(table_from_outside()), in_words(wanted));
}

void held_bus(Check &check)
{
    const ei2c_client pins = device(Chip::pins, Level::far);
    Table wanted = marked_table();
    int32_t fd = -1;
    int32_t semaphore = -1;
    equal(check, "result of the taking",
          ei2c_smbus_select_switch(&pins, &fd, &semaphore) >= 0 ? 0 : -1, 0);
    wanted[bench_bus] = static_cast<uint32_t>(getpid());
    equal(check, "owner table while held", in_words(table_from_outside()), in_words(wanted));
    equal(check, "result of the release", ei2c_smbus_deselect_switch(&pins, fd, semaphore), 0);
    equal(check, "owner table after the release", in_words(table_from_outside()), in_words(wanted));
}

void bridge(Check &check)
{
    const ei2c_client pins = device(Chip::pins, Level::near);
    const Table wanted = marked_table();
    int32_t fd = -1;
    int32_t semaphore = -1;
    equal(check, "result of the taking", lockAndSelectBridge_Ridgeback(&pins, &semaphore, &fd), 0);
    equal(check, "result of the release", unlockAndDeselectBridge_Ridgeback(&pins, &semaphore, &fd),
          0);
    equal(check, "owner table", in_words(table_from_outside()), in_words(wanted));
}

} // namespace

void add_owner_cases(Cases &cases)
{
    for (const uint32_t bus : {0U, 7U, 15U})
        cases.push_back(
            {"owners/bus-" + std::to_string(bus), [bus](Check &check) { one_bus(check, bus); }});
    cases.push_back({"owners/two-processes", two_processes});
    cases.push_back({"owners/held-bus", held_bus});
    cases.push_back({"owners/not-by-the-bridge", bridge});
}

} // namespace board
