// qeli2c-stress: load on a board through the library, from many threads of many processes, every
// byte checked.
#include "device_work.h"

#include "tools/qeli2c/failure.h"
#include "tools/qeli2c/manual.h"
#include "tools/standard_files.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <initializer_list>
#include <iostream>
#include <new>
#include <random>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

using bench::Plan;
using bench::Shared;

constexpr std::chrono::microseconds kPoll(200);

constexpr tool::Manual kManual = {
    "load on the I2C devices of a board, every byte checked",
    ".SH ENVIRONMENT\n"
    ".TP\n.B QELI2C_BOARD\nThe board file, where \\-\\-board is not given.\n"
    ".SH EXAMPLE\n.nf\n"
    "qeli2c\\-sim run \\-\\- qeli2c\\-stress \\-\\-device main\\-registers \\-\\-processes 4 "
    "\\-\\-transfers 10000\n"
    ".fi\n"
    ".SH SEE ALSO\n"
    "qeli2c(1), qeli2c\\-sim(1), qeli2c(3)\n"};

struct Arguments {
    Plan plan;
    std::vector<std::string> devices;
    std::string board_file;
    double most_deviation = -1;
    bool json = false;
};

Shared *g_shared = nullptr; // for the signal handler
volatile std::sig_atomic_t g_signal = 0;

void stop_on_signal(int number)
{
    g_signal = number;
    g_shared->stop.store(true);
}

void stop_on_signals()
{
    struct sigaction action {
    };
    action.sa_handler = stop_on_signal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaction(number, &action, nullptr);
}

Shared *map_shared(uint32_t workers)
{
    const size_t size = sizeof(Shared) + alignof(bench::Worker) + workers * sizeof(bench::Worker);
    void *memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw tool::operation_failed(std::string("no memory for the results: ") +
                                     std::strerror(errno));
    auto *shared = new (memory) Shared;
    void *after = shared + 1;
    size_t space = size - sizeof(Shared);
    std::align(alignof(bench::Worker), workers * sizeof(bench::Worker), after, space);
    shared->workers = static_cast<bench::Worker *>(after);
    for (uint32_t i = 0; i < workers; i++)
        new (shared->workers + i) bench::Worker;
    return shared;
}

[[noreturn]] void run_child(const Plan &plan, Shared &shared, uint32_t process)
{
    prctl(PR_SET_PDEATHSIG, SIGTERM); // nobody works on when the parent is gone
    // Standard output is the report's; the library tells some failures there.
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < plan.threads; i++)
        threads.emplace_back([&plan, &shared, worker = process * plan.threads + i] {
            shared.ready.fetch_add(1);
            while (!shared.go && !shared.stop)
                std::this_thread::sleep_for(kPoll);
            bench::work(plan, shared, worker);
        });
    for (std::thread &thread : threads)
        thread.join();
    _exit(0);
}

pid_t start_child(const Plan &plan, Shared &shared, uint32_t process)
{
    const pid_t child = fork();
    if (child == 0)
        run_child(plan, shared, process);
    if (child < 0) {
        shared.stop = true;
        std::cerr << "qeli2c-stress: cannot start process " << process << ": "
                  << std::strerror(errno) << "\n";
    }
    return child;
}

std::vector<pid_t> start_children(const Plan &plan, Shared &shared)
{
    std::vector<pid_t> children;
    for (uint32_t process = 0; process < plan.processes; process++) {
        const pid_t child = start_child(plan, shared, process);
        if (child < 0)
            break;
        children.push_back(child);
    }
    return children;
}

// Kills one process after the other, wherever it is, and puts another in its place. Ends early when
// one dies by itself.
void kill_and_replace(const Plan &plan, Shared &shared, std::vector<pid_t> &children,
                      bench::Outcome &outcome)
{
    std::mt19937 random(plan.seed);
    std::uniform_int_distribution<size_t> choose(0, children.size() - 1);
    std::exponential_distribution<double> pause(plan.kills / plan.seconds);
    double due = 0; // a kill that comes late does not put off the others
    const auto start = std::chrono::steady_clock::now();
    while (outcome.kills < plan.kills && !shared.stop) {
        due += pause(random);
        std::this_thread::sleep_until(start + std::chrono::duration<double>(due));
        const size_t process = choose(random);
        int status = 0;
        kill(children[process], SIGKILL);
        if (waitpid(children[process], &status, 0) != children[process] || !WIFSIGNALED(status) ||
            WTERMSIG(status) != SIGKILL) {
            outcome.dead.push_back(static_cast<uint32_t>(process));
            break;
        }
        outcome.kills++;
        children[process] = start_child(plan, shared, static_cast<uint32_t>(process));
    }
    shared.stop = true;
}

// Whether children still run. Those that did not end well are noted, and the others stopped then.
bool still_running(const std::vector<pid_t> &children, Shared &shared, bench::Outcome &outcome)
{
    int status = 0;
    pid_t child;
    while ((child = waitpid(-1, &status, WNOHANG)) > 0) {
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
            continue;
        shared.stop = true;
        for (uint32_t i = 0; i < children.size(); i++)
            if (children[i] == child)
                outcome.dead.push_back(i);
    }
    return child == 0;
}

bench::Outcome run(const Plan &plan, Shared &shared)
{
    bench::Outcome outcome;
    std::vector<pid_t> children = start_children(plan, shared);
    while (shared.ready < plan.processes * plan.threads && still_running(children, shared, outcome))
        std::this_thread::sleep_for(kPoll);
    const int64_t start = bench::monotonic_nanoseconds();
    shared.deadline = plan.kills > 0 ? INT64_MAX : start + static_cast<int64_t>(plan.seconds * 1e9);
    shared.go = true;
    if (plan.kills > 0 && children.size() == plan.processes)
        kill_and_replace(plan, shared, children, outcome);
    while (still_running(children, shared, outcome))
        std::this_thread::sleep_for(kPoll);
    outcome.seconds = static_cast<double>(bench::monotonic_nanoseconds() - start) / 1e9;
    outcome.interrupted = g_signal != 0;
    for (auto process = static_cast<uint32_t>(children.size()); process < plan.processes; process++)
        outcome.dead.push_back(process);
    return outcome;
}

void complete_plan(Arguments &arguments)
{
    Plan &plan = arguments.plan;
    if ((plan.transfers == 0) == (plan.seconds <= 0))
        throw tool::usage_error("give either --transfers or --seconds");
    if (plan.kills > 0 && plan.seconds <= 0)
        throw tool::usage_error("--kills are spread over --seconds");
    const tool::Board board = tool::load_board(arguments.board_file);
    for (const std::string &text : arguments.devices) {
        plan.devices.push_back(resolve(board, text));
        const tool::Target &target = plan.devices.back();
        if (!bench::work_on(target.type))
            throw tool::usage_error(to_string(target) + " is of type " + target.type +
                                    ", which nobody works on");
    }
    if (!bench::window_of(plan, 0))
        throw tool::usage_error("too many workers for " + std::to_string(plan.devices.size()) +
                                " devices: each needs " + std::to_string(bench::kSmallestWindow) +
                                " of 256 registers");
}

// What a range refuses, it tells by itself; --help has the word.
template <typename Number>
CLI::Option *add_number(CLI::App &app, const char *name, Number &value, const char *type,
                        const char *description, Number low, Number high)
{
    return app.add_option(name, value, description)
        ->type_name(type)
        ->check(CLI::Range(low, high).description(""));
}

void add_options(CLI::App &app, Arguments &arguments)
{
    Plan &plan = arguments.plan;
    add_number(app, "--processes", plan.processes, "N", "Processes, 1 to 1000", 1U, 1000U);
    add_number(app, "--threads", plan.threads, "N", "Threads of each, 1 to 1000", 1U, 1000U);
    app.add_option("--transfers", plan.transfers, "End after so many transfers in all")
        ->type_name("N");
    add_number(app, "--seconds", plan.seconds, "SECONDS", "End after so long", 0.001, 1e6);
    app.add_option("--kills", plan.kills,
                   "Kill so many processes within the seconds, and replace each at once")
        ->type_name("N");
    app.add_option("--seed", plan.seed, "Of the kills; 1 when absent")->type_name("N");
    app.add_flag("--mixed", plan.mixed, "Registers by SMBus commands, offsets and holds too");
    app.add_flag("--faulty", plan.faulty, "Accesses may fail; wrong bytes still may not");
    app.add_option("--device", arguments.devices, "Devices, by path or name, with commas between")
        ->type_name("DEVICE")
        ->required()
        ->delimiter(',');
    app.add_option("--board", arguments.board_file, "Board file; else $QELI2C_BOARD")
        ->type_name("FILE");
    add_number(app, "--max-share-deviation", arguments.most_deviation, "PERCENT",
               "Largest deviation from the mean share", 0.0, 1e6);
    app.add_flag("--json", arguments.json, "Print the report as JSON");
    app.set_version_flag("--version", "qeli2c-stress " QELI2C_VERSION);
    app.footer(
        "The devices are dealt out to the workers in turn; each writes patterns into\n"
        "registers, memory or pins of its own and reads them back, in the ways that\n"
        "go with the type in the board file, else as 256 registers with one-byte\n"
        "numbers. What was there is lost. Exit status: 0 clean, 1 errors, wrong bytes, shares\n"
        "that deviate too much or a process that died, 2 wrong usage.");
}

int stress(Arguments &arguments)
{
    complete_plan(arguments);
    g_shared = map_shared(arguments.plan.processes * arguments.plan.threads);
    stop_on_signals();
    const bench::Outcome outcome = run(arguments.plan, *g_shared);
    if (outcome.interrupted)
        std::cerr << "qeli2c-stress: interrupted; this is how far it got\n";
    const bool clean =
        report(arguments.plan, *g_shared, outcome, arguments.most_deviation, arguments.json);
    if (outcome.interrupted && clean) {
        std::signal(g_signal, SIG_DFL);
        std::raise(g_signal);
    }
    return clean ? tool::EXIT_DONE : tool::EXIT_FAILED;
}

int run(int argc, char **argv)
{
    Arguments arguments;
    CLI::App app("Puts load on the devices of a board and checks every byte.", "qeli2c-stress");
    add_options(app, arguments);
    if (argc == 2 && std::strcmp(argv[1], "--man") == 0) { // how the build makes the manual page
        std::cout << tool::manual_page(app, kManual);
        return tool::EXIT_DONE;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &success) {
        return app.exit(success);
    } catch (const CLI::ParseError &error) {
        std::cerr << "qeli2c-stress: " << error.what() << " (see 'qeli2c-stress --help')\n";
        return tool::EXIT_USAGE;
    }
    try {
        return stress(arguments);
    } catch (const tool::Failure &failure) {
        std::cerr << "qeli2c-stress: " << failure.message << "\n";
        return failure.status;
    }
}

} // namespace

int main(int argc, char **argv)
{
    fill_closed_standard_files();
    try {
        return run(argc, argv);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "qeli2c-stress: %s\n", error.what());
        return tool::EXIT_FAILED;
    }
}
