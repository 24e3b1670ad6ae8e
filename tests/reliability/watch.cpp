// See watch.h.
#include "watch.h"

#include "imports.h"
#include "tools/qeli2c/board_file.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

namespace watch
{

namespace
{

const bool hooked = (imports::install(imports::Hooks::traps), true);

// -1 while nobody has created it.
int semaphore_of(uint32_t bus)
{
    return semget(static_cast<key_t>(bus == kEeproms ? 0x3001 : 0x3060 + bus), 0, 0);
}

} // namespace

Device device(const simboard::testing::Board &board, const std::string &name, uint32_t window)
{
    for (const simboard::DeviceDescription &described : board.description().devices) {
        if (described.name != name)
            continue;
        Device device{bench::work_on(described.type), {}};
        device.job.client = to_client(tool::path_of(board.description(), described));
        device.job.window = {static_cast<uint8_t>(8 * window), 8};
        device.job.number = window;
        return device;
    }
    std::abort();
}

bool do_rounds(const Device &device, uint64_t first, uint64_t last, uint64_t *calls)
{
    const auto result = std::make_unique<bench::Worker>();
    for (uint64_t sequence = first; sequence <= last; sequence++) {
        device.work(device.job, sequence, *result);
        if (result->errors == 0 && result->wrong_bytes == 0)
            continue;
        std::printf("device %u/0x%x, round %llu: result %d, %s; wrong byte %x\n",
                    device.job.client.bus, device.job.client.addr,
                    static_cast<unsigned long long>(sequence), result->first_result.load(),
                    std::strerror(result->first_errno), result->first_wrong.load());
        std::fflush(stdout);
        return false;
    }
    if (calls != nullptr)
        *calls += result->transfers;
    return true;
}

pid_t start(const std::function<bool()> &work, unsigned limit)
{
    return start_child([&] {
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(nowhere, STDERR_FILENO);
        close(nowhere);
        alarm(limit);
        return work();
    });
}

int end_of(pid_t child)
{
    int status = -1;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

bool succeeds(const std::function<bool()> &work)
{
    return end_of(start(work)) == 0;
}

int semaphore_value(uint32_t bus)
{
    const int set = semaphore_of(bus);
    return set < 0 ? 0 : semctl(set, 0, GETVAL);
}

int waiters(uint32_t bus)
{
    const int set = semaphore_of(bus);
    return set < 0 ? 0 : semctl(set, 0, GETZCNT);
}

std::string held_locks()
{
    std::string held;
    for (uint32_t bus = 0; bus <= kEeproms; bus++) {
        if (semaphore_value(bus) != 0)
            held += "semaphore " + std::to_string(bus) + "\n";
    }
    for (uint32_t bus = 0; bus < kEeproms; bus++) {
        const int fd = open(("/dev/i2c-" + std::to_string(bus)).c_str(), O_RDWR | O_CLOEXEC);
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        if (fcntl(fd, F_GETLK, &lock) != 0 || lock.l_type != F_UNLCK)
            held += "file lock " + std::to_string(bus) + "\n";
        close(fd);
    }
    return held;
}

bool holds_nothing()
{
    return succeeds([] {
        const std::string held = held_locks();
        std::fputs(held.c_str(), stdout);
        std::fflush(stdout);
        return held.empty();
    });
}

bool is_cancelled(pthread_t thread)
{
    void *result = nullptr;
    pthread_join(thread, &result);
    return result == PTHREAD_CANCELED;
}

void signal_after(int signal, long nanoseconds, bool repeat)
{
    sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = signal;
    timer_t timer;
    timer_create(CLOCK_MONOTONIC, &event, &timer);
    const itimerspec when = {{0, repeat ? nanoseconds : 0}, {0, nanoseconds}};
    timer_settime(timer, 0, &when, nullptr);
}

} // namespace watch
