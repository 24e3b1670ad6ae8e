// qeli2c selftest: whether the platform services keep what the library counts on.
#include "command_line.h"
#include "failure.h"
#include "interrupt.h"
#include "number.h"
#include "output.h"
#include "platform_checks.h"
#include "tool.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <iomanip>
#include <iostream>
#include <optional>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tool
{

namespace
{

constexpr std::chrono::seconds kLongest{12};

struct SelftestArguments {
    std::string address;
};

// A key under which there is no semaphore: no running program is disturbed.
uint32_t free_key()
{
    static uint32_t next = 0x53000000U | (static_cast<uint32_t>(getpid()) << 8 & 0xFFFFFFU);
    for (;;) {
        next++;
        if (semget(static_cast<key_t>(next), 0, 0) < 0 && errno == ENOENT)
            return next;
    }
}

void remove_semaphore(uint32_t key)
{
    const int set = semget(static_cast<key_t>(key), 0, 0);
    if (set >= 0)
        semctl(set, 0, IPC_RMID);
}

[[noreturn]] void check_here(const PlatformCheck &check, const CheckSettings &settings, int answers)
{
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    std::string answer;
    try {
        const Finding finding = check.run(settings);
        answer = static_cast<char>(finding.verdict) + finding.reason;
    } catch (const Failure &failure) {
        answer = static_cast<char>(Verdict::failed) + failure.message;
    }
    _exit(write(answers, answer.data(), answer.size()) < 0 ? EXIT_FAILED : EXIT_DONE);
}

// What the check's process says: empty when it ended without a word, nothing when it goes on for
// too long.
std::optional<std::string> read_answer(int answers)
{
    const auto end = std::chrono::steady_clock::now() + kLongest;
    char text[512];
    pollfd answer{answers, POLLIN, 0};
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return std::nullopt;
        if (poll(&answer, 1, static_cast<int>(left.count())) <= 0)
            continue;
        const ssize_t size = read(answers, text, sizeof text);
        return std::string(text, size > 0 ? static_cast<size_t>(size) : 0);
    }
}

// In a process of its own, which may hang, crash or be left with what it holds.
Finding run_apart(const PlatformCheck &check, const CheckSettings &settings)
{
    int ends[2];
    std::cout.flush();
    if (pipe2(ends, O_CLOEXEC) < 0)
        throw operation_failed(std::string("no process for a check: ") + std::strerror(errno));
    const pid_t process = fork();
    if (process < 0) {
        const int error = errno;
        close(ends[0]);
        close(ends[1]);
        throw operation_failed(std::string("no process for a check: ") + std::strerror(error));
    }
    if (process == 0)
        check_here(check, settings, ends[1]);
    setpgid(process, process);
    close(ends[1]);
    const std::optional<std::string> answer = read_answer(ends[0]);
    close(ends[0]);
    int status = 0;
    if (!answer)
        kill(process, SIGKILL);
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    kill(-process, SIGKILL); // whom it started
    if (!answer)
        return {Verdict::failed,
                "it did not end within " + std::to_string(kLongest.count()) + " seconds"};
    if (answer->empty())
        return {Verdict::failed, WIFSIGNALED(status)
                                     ? std::string("it crashed: ") + strsignal(WTERMSIG(status))
                                     : "it ended the process"};
    return {static_cast<Verdict>(answer->front()), answer->substr(1)};
}

const char *word_of(Verdict verdict)
{
    return verdict == Verdict::ok ? "ok" : verdict == Verdict::failed ? "FAILED" : "skipped";
}

void print_line(const PlatformCheck &check, const Finding &finding)
{
    std::cout << std::left << std::setw(9) << word_of(finding.verdict) << std::setw(15)
              << check.service << check.promise;
    if (!finding.reason.empty())
        std::cout << ": " << finding.reason;
    std::cout << "\n";
    flush_results();
}

Json::Value json_of_check(const PlatformCheck &check, const Finding &finding)
{
    Json::Value json;
    json["service"] = check.service;
    json["promise"] = check.promise;
    json["result"] = finding.verdict == Verdict::failed ? "failed" : word_of(finding.verdict);
    if (!finding.reason.empty())
        json["reason"] = finding.reason;
    return json;
}

void selftest(const SelftestArguments &arguments, const Options &options)
{
    CheckSettings settings{};
    if (!arguments.address.empty()) {
        settings.address = number_in(arguments.address, 0, UINT32_MAX, "the address");
        if (*settings.address % 4 != 0)
            throw usage_error("the address of a 32-bit register is a multiple of 4");
    }
    Json::Value json;
    json["failed"] = 0;
    std::vector<PlatformCheck> checks = lock_checks();
    checks.insert(checks.end(), call_checks().begin(), call_checks().end());
    defer_interrupts(); // a semaphore is to be removed
    for (const PlatformCheck &check : checks) {
        if (interrupted())
            return;
        settings.key = free_key();
        const Finding finding = run_apart(check, settings);
        remove_semaphore(settings.key);
        if (finding.verdict == Verdict::failed)
            json["failed"] = json["failed"].asUInt() + 1;
        if (options.json)
            json["checks"].append(json_of_check(check, finding));
        else
            print_line(check, finding);
    }
    if (options.json)
        print_json(json);
    if (json["failed"].asUInt() > 0)
        throw operation_failed("the platform services fail " + json["failed"].asString() +
                               " of the checks");
}

} // namespace

void add_selftest(CLI::App &app, Tool &tool)
{
    const auto [command, arguments] =
        add_command(app, tool, "selftest", "Check the platform services this program runs with",
                    "Checks what the library counts on of the semaphores, file locks, system\n"
                    "calls, logging and memory functions it was linked with. It takes some ten\n"
                    "seconds, uses semaphores of its own, which it removes, and writes to no\n"
                    "device; it may run on a working board. Its log lines go where the platform\n"
                    "sends them. Exit status 1 when a promise is not kept.",
                    selftest);
    add_option(command, "--address", arguments.address, "ADDR",
               "Also read this register (physical address) by mmap_read32");
}

} // namespace tool
