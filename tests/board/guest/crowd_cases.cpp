// Eight processes on all sixteen buses, some of them killed in the middle. Each writes records of
// its own into the EEPROMs of every bus, behind no, one and two switches, and into their twins of
// the same address on another channel; afterwards the witness reads what is there.
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include "cases.h"
#include "wire.h"

namespace board
{

namespace
{

constexpr uint32_t workers = 8;
constexpr uint32_t buses = 16;
constexpr uint32_t slots = 4; // of each worker in each EEPROM; used in turn
constexpr size_t record_size = 16;
constexpr uint16_t first_offset = 0x9000;
constexpr key_t first_semaphore_key = 0x3060;

// Channels as in board.json: of the switch at 0x72, of the one at 0x73 behind it, and the twin's.
struct Place {
    int fork_channel; // -1: the EEPROM stands on the bus itself
    int twig_channel; // -1: behind one switch
    int twin_channel;
};
constexpr Place places[buses] = {
    {-1, -1, -1}, {1, -1, 6}, {2, 5, 0}, {-1, -1, -1}, {4, -1, 7}, {5, 0, 3},
    {-1, -1, -1}, {7, -1, 0}, {0, 3, 1}, {-1, -1, -1}, {2, -1, 3}, {3, 6, 2},
    {-1, -1, -1}, {5, -1, 4}, {6, 1, 4}, {-1, -1, -1},
};

// What the processes know of each other.
struct Shared {
    uint32_t ended;                     // no new rounds from then on
    uint32_t rounds[workers][buses][2]; // last record that is known to be written, 0 for none
    char failure[256];                  // the first
    int failures;
};

ei2c_client eeprom(uint32_t bus, bool twin)
{
    const Place &place = places[bus];
    ei2c_client client = {};
    client.bus = bus;
    client.addr = 0x57;
    const auto channel = [twin, &place](int own) {
        return static_cast<uint32_t>(twin ? place.twin_channel : own);
    };
    if (place.twig_channel >= 0) {
        client.swi_addr = 0x00720073;
        client.swi_chnl =
            static_cast<uint32_t>(place.fork_channel) << 16 | channel(place.twig_channel);
    } else if (place.fork_channel >= 0) {
        client.swi_addr = 0x72;
        client.swi_chnl = channel(place.fork_channel);
    }
    return client;
}

uint16_t offset_of(uint32_t worker, uint32_t round)
{
    return static_cast<uint16_t>(first_offset + (worker * slots + round % slots) * record_size);
}

Bytes record_of(uint32_t worker, uint32_t bus, bool twin, uint32_t round)
{
    Bytes bytes(record_size);
    bytes[0] = static_cast<uint8_t>(worker);
    bytes[1] = static_cast<uint8_t>(bus << 1 | uint32_t{twin});
    bytes[2] = static_cast<uint8_t>(round & 0xFF);
    bytes[3] = static_cast<uint8_t>(round >> 8);
    for (size_t i = 4; i < record_size; i++)
        bytes[i] = static_cast<uint8_t>(bytes[i - 4] * 5U + bytes[i - 1] + i);
    return bytes;
}

void report(Shared &shared, const std::string &why)
{
    if (__atomic_fetch_add(&shared.failures, 1, __ATOMIC_ACQ_REL) == 0)
        (void)std::snprintf(shared.failure, sizeof shared.failure, "%s", why.c_str());
}

// Writes the next record, reads it back.
void step(Shared &shared, uint32_t worker, uint32_t bus, bool twin)
{
    const ei2c_client client = eeprom(bus, twin);
    uint32_t &last = shared.rounds[worker][bus][twin];
    const uint32_t round = last + 1;
    const Bytes record = record_of(worker, bus, twin, round);
    const std::string where = "worker " + std::to_string(worker) + ", bus " + std::to_string(bus) +
                              (twin ? ", twin" : "") + ", round " + std::to_string(round) + ": ";
    Bytes received(record_size);
    const int32_t written =
        i2cWrite(&client, record_size, record.data(), 2, offset_of(worker, round));
    if (written != 1)
        return report(shared, where + "write: " + std::strerror(errno));
    __atomic_store_n(&last, round, __ATOMIC_RELEASE);
    const int32_t read =
        i2cRead(&client, record_size, received.data(), 2, offset_of(worker, round));
    if (read != 2)
        return report(shared, where + "read: " + std::strerror(errno));
    if (received != record)
        report(shared, where + in_hex(received));
}

int64_t milliseconds()
{
    timespec time = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &time);
    return int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1000000;
}

// Each starts on another bus. One that takes a killed worker's place goes on with its records.
[[noreturn]] void work(Shared &shared, uint32_t worker, uint32_t first_bus)
{
    do {
        for (uint32_t i = 0; i < buses; i++) {
            const uint32_t bus = (first_bus + i) % buses;
            step(shared, worker, bus, false);
            if (places[bus].fork_channel >= 0)
                step(shared, worker, bus, true);
        }
    } while (__atomic_load_n(&shared.ended, __ATOMIC_ACQUIRE) == 0);
    _exit(0);
}

pid_t start(Shared &shared, uint32_t worker, uint32_t first_bus)
{
    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    if (child == 0)
        work(shared, worker, first_bus);
    return child;
}

constexpr uint32_t victims = 5;

// Kills one of the first workers now and then, at instants that have nothing to do with where
// it is, and starts another in its place.
void kill_some(Shared &shared, pid_t (&children)[workers], int64_t until)
{
    uint32_t killed = 0;
    uint32_t random = 12345;
    while (milliseconds() < until || killed < 10) { // a slow machine takes longer
        random = random * 1103515245 + 12345;
        (void)usleep(20000 + (random >> 16) % 60000);
        const uint32_t victim = (random >> 8) % victims;
        int status = 0;
        (void)kill(children[victim], SIGKILL);
        (void)waitpid(children[victim], &status, 0);
        killed += WIFSIGNALED(status);
        children[victim] = start(shared, victim, random >> 4);
    }
}

// What a worker left in the area of all workers: the record of each of its last rounds, or of the
// round after its last in the place of the oldest, when it was killed right after writing.
void check_records(Check &check, const Shared &shared, const Bytes &area, uint32_t worker,
                   uint32_t bus, bool twin)
{
    const uint32_t last = shared.rounds[worker][bus][twin];
    const std::string where = "worker " + std::to_string(worker) + ", bus " + std::to_string(bus);
    is_true(check, where + " was served", last > 0 || worker < victims);
    const uint32_t first = last > slots ? last - slots + 1 : 1;
    for (uint32_t round = first; round <= last && !check.failed(); round++) {
        const auto start = area.begin() + (offset_of(worker, round) - first_offset);
        const Bytes seen(start, start + record_size);
        if (round != first || seen != record_of(worker, bus, twin, round + slots))
            equal(check, where + ", record " + std::to_string(round), seen,
                  record_of(worker, bus, twin, round));
    }
}

void check_eeprom(Check &check, const Shared &shared, uint32_t bus, bool twin)
{
    const Bytes area = wire::memory(eeprom(bus, twin), first_offset, workers * slots * record_size);
    for (uint32_t worker = 0; worker < workers; worker++)
        check_records(check, shared, area, worker, bus, twin);
}

void check_semaphores(Check &check)
{
    for (uint32_t bus = 0; bus < buses; bus++) {
        const int set = semget(first_semaphore_key + static_cast<key_t>(bus), 1, 0);
        equal(check, "value of the semaphore of bus " + std::to_string(bus), semctl(set, 0, GETVAL),
              0);
    }
}

Shared &shared_memory()
{
    void *memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::runtime_error("no shared memory");
    return *static_cast<Shared *>(memory);
}

void crowd(Check &check)
{
    Shared &shared = shared_memory();
    const int64_t until = milliseconds() + 3000;
    pid_t children[workers];
    for (uint32_t worker = 0; worker < workers; worker++)
        children[worker] = start(shared, worker, worker * 2);
    kill_some(shared, children, until);
    __atomic_store_n(&shared.ended, 1U, __ATOMIC_RELEASE);
    for (const pid_t child : children) {
        int status = 0;
        (void)waitpid(child, &status, 0);
        is_true(check, "a worker came to its end", WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    equal(check, "first failure", std::string(shared.failure), std::string());
    check_semaphores(check);
    for (uint32_t bus = 0; bus < buses; bus++) {
        check_eeprom(check, shared, bus, false);
        if (places[bus].fork_channel >= 0)
            check_eeprom(check, shared, bus, true);
    }
}

} // namespace

void add_crowd_cases(Cases &cases)
{
    cases.push_back({"crowd/killed-in-the-middle", crowd, 100});
}

} // namespace board
