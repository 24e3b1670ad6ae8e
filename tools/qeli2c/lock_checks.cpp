// The checks of the semaphores and file locks.
#include "check_aids.h"
#include "platform/qelplatform.h"

#include <sys/mman.h>

namespace tool
{

namespace
{

constexpr uint32_t kWithoutLimit = 65535;

bool take(uint32_t key)
{
    return OAL_SemLockBySemId(OAL_SemCreate(key), kWithoutLimit) == 0;
}

bool release(uint32_t key)
{
    return OAL_SemUnLockBySemId(OAL_SemCreate(key), kWithoutLimit) == 0;
}

auto taking(uint32_t key)
{
    return [key] { return take(key); };
}

Finding semaphore_is_free_when_new(const CheckSettings &settings)
{
    if (OAL_SemCreate(settings.key) < 0)
        return broken_by_errno("OAL_SemCreate");
    const Other first(taking(settings.key));
    return first.says_yes_within(kAtLast) ? kept() : broken("a new one could not be taken");
}

Finding semaphore_has_one_holder(const CheckSettings &settings)
{
    const Other first(taking(settings.key));
    if (!first.says_yes_within(kAtLast))
        return broken("it could not be taken");
    const Other second(taking(settings.key));
    return second.says_yes_within(kShortly) ? broken("two processes hold it at once") : kept();
}

Finding semaphore_excludes_threads(const CheckSettings &settings)
{
    const Other twice([&] { return take(settings.key) && take(settings.key); });
    return twice.says_yes_within(kShortly) ? broken("one process took it twice") : kept();
}

Finding semaphore_is_handed_on(const CheckSettings &settings)
{
    if (!take(settings.key))
        return broken_by_errno("taking it");
    const Other next(taking(settings.key));
    if (next.says_yes_within(kShortly))
        return broken("two processes hold it at once");
    if (!release(settings.key))
        return broken_by_errno("releasing it");
    return next.says_yes_within(kAtLast) ? kept() : broken("who waited did not get it");
}

Finding semaphore_survives_its_holder(const CheckSettings &settings)
{
    Other first(taking(settings.key));
    if (!first.says_yes_within(kAtLast))
        return broken("it could not be taken");
    const Other waiting(taking(settings.key));
    if (waiting.says_yes_within(kShortly))
        return broken("two processes hold it at once");
    first.end();
    return waiting.says_yes_within(kAtLast) ? kept() : broken("a killed holder still holds it");
}

Finding semaphore_is_not_freed_by_a_child(const CheckSettings &settings)
{
    const Other parent([&] {
        const bool taken = take(settings.key);
        Other child([] { return true; });
        return child.says_yes_within(kAtLast) && taken;
    });
    if (!parent.says_yes_within(kAtLast))
        return broken("it could not be taken");
    const Other second(taking(settings.key));
    return second.says_yes_within(kShortly) ? broken("the end of a child has freed it") : kept();
}

Finding semaphore_is_released_by_its_holder(const CheckSettings &settings)
{
    if (release(settings.key))
        return broken("what nobody held was released");
    const Other holder(taking(settings.key));
    if (!holder.says_yes_within(kAtLast))
        return broken("it could not be taken after a wrong release");
    if (release(settings.key))
        return broken("what another process held was released");
    const Other second(taking(settings.key));
    return second.says_yes_within(kShortly) ? broken("a wrong release let a second one in")
                                            : kept();
}

Finding semaphore_wait_outlasts_signals(const CheckSettings &settings)
{
    Other holder(taking(settings.key));
    if (!holder.says_yes_within(kAtLast))
        return broken("it could not be taken");
    const Other waiting([&] {
        const Signals signals;
        return take(settings.key);
    });
    if (waiting.says_yes_within(kShortly))
        return broken("a signal ended the wait as if it were held");
    holder.end();
    return waiting.says_yes_within(kAtLast) ? kept() : broken("a signal ended the wait");
}

Finding semaphore_wait_has_a_limit(const CheckSettings &settings)
{
    const Other holder(taking(settings.key));
    if (!holder.says_yes_within(kAtLast))
        return broken("it could not be taken");
    int32_t result = 0;
    const milliseconds took = time_of([&] {
        result = OAL_SemLockBySemId(OAL_SemCreate(settings.key),
                                    static_cast<uint32_t>(kShortly.count()));
    });
    if (result == 0)
        return broken("it was given to a second holder when the time was over");
    const std::string wrong = wrong_time(took, kShortly);
    return wrong.empty() ? kept() : broken(wrong);
}

Finding semaphore_starves_nobody(const CheckSettings &settings)
{
    const Other greedy([&] {
        while (take(settings.key) && release(settings.key)) {
        }
        return false;
    });
    usleep(20'000);
    const Other waiting(taking(settings.key));
    return waiting.says_yes_within(kAtLast)
               ? kept()
               : broken("who takes it again and again keeps others out");
}

// A file without a name, and other ways to open it.
int new_file()
{
    const int fd = memfd_create("qeli2c-selftest", MFD_CLOEXEC);
    if (fd < 0)
        throw operation_failed(std::string("no file for a check: ") + std::strerror(errno));
    return fd;
}

bool lock_file(int file)
{
    const int fd = sigwrap_open(("/proc/self/fd/" + std::to_string(file)).c_str(), O_RDWR);
    return fd >= 0 && file_lock_write(fd) >= 0;
}

Finding file_lock_has_one_holder(const CheckSettings &)
{
    const int file = new_file();
    Other first([file] { return lock_file(file); });
    if (!first.says_yes_within(kAtLast))
        return broken("the file could not be locked");
    const Other second([file] { return lock_file(file); });
    if (second.says_yes_within(kShortly))
        return broken("two processes have the lock at once");
    first.end();
    return second.says_yes_within(kAtLast) ? kept() : broken("a killed holder still has it");
}

Finding file_lock_is_given_back(const CheckSettings &)
{
    const int file = new_file();
    if (file_lock_write(file) < 0)
        return broken_by_errno("file_lock_write");
    const Other second([file] { return lock_file(file); });
    if (second.says_yes_within(kShortly))
        return broken("two processes have the lock at once");
    if (file_unlock(file) < 0)
        return broken_by_errno("file_unlock");
    return second.says_yes_within(kAtLast) ? kept() : broken("who waited did not get it");
}

Finding file_lock_is_not_inherited(const CheckSettings &)
{
    const int file = new_file();
    Other parent([file] {
        const bool locked = lock_file(file);
        if (fork() == 0)
            for (;;)
                pause(); // ended with the check's process group
        return locked;
    });
    if (!parent.says_yes_within(kAtLast))
        return broken("the file could not be locked");
    parent.end();
    const Other next([file] { return lock_file(file); });
    return next.says_yes_within(kAtLast) ? kept() : broken("a child keeps its dead parent's lock");
}

} // namespace

const std::vector<PlatformCheck> &lock_checks()
{
    static const std::vector<PlatformCheck> checks = {
        {"semaphores", "a new one is free", semaphore_is_free_when_new},
        {"semaphores", "one process holds it at a time", semaphore_has_one_holder},
        {"semaphores", "its holder cannot take it again", semaphore_excludes_threads},
        {"semaphores", "a release lets in who waits", semaphore_is_handed_on},
        {"semaphores", "a killed holder frees it", semaphore_survives_its_holder},
        {"semaphores", "a child's end does not free it", semaphore_is_not_freed_by_a_child},
        {"semaphores", "only its holder releases it", semaphore_is_released_by_its_holder},
        {"semaphores", "a wait outlasts signals", semaphore_wait_outlasts_signals},
        {"semaphores", "a limited wait ends in time", semaphore_wait_has_a_limit},
        {"semaphores", "nobody starves", semaphore_starves_nobody},
        {"file locks", "one process has it until it dies", file_lock_has_one_holder},
        {"file locks", "it is given back", file_lock_is_given_back},
        {"file locks", "a child does not inherit it", file_lock_is_not_inherited},
    };
    return checks;
}

} // namespace tool
