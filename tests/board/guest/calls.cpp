// Calls of the library as lines of a case.
#include "calls.h"
#include "link.h"
#include "tests/calls/call.h"
#include "tests/calls/notation.h"
#include "trace.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <map>
#include <sys/wait.h>
#include <unistd.h>

namespace board
{

namespace
{

constexpr size_t line_width = 100;

void nothing(const ei2c_client &) {}

// What the outputs with names were given.
std::map<std::string, std::string> held;

std::string with_held(std::string line)
{
    for (const auto &[name, value] : held)
        for (size_t at; (at = line.find("$" + name)) != std::string::npos;)
            line.replace(at, name.size() + 1, value);
    return line;
}

// Whether there are any.
bool hold_outputs(const Call &call)
{
    bool any = false;
    for (const Call::Output &output : call.outputs) {
        if (output.name.empty())
            continue;
        int32_t value = 0;
        memcpy(&value, output.bytes, sizeof value);
        held[output.name] = std::to_string(value);
        any = true;
    }
    return any;
}

// Lines of transfers, some on each.
std::string wrapped(const std::string &transfers)
{
    std::string text;
    size_t width = line_width;
    for (size_t at = 0; at < transfers.size();) {
        const size_t end = std::min(transfers.find("; ", at), transfers.size() - 1) + 1;
        if (width + end - at > line_width)
            text += "\n|", width = 1;
        text += (transfers[at] == ' ' ? "" : " ") + transfers.substr(at, end - at);
        width += end - at;
        at = end;
    }
    return text;
}

} // namespace

std::string call_line(const std::string &line)
{
    uint32_t bus = 0;
    const Call call =
        call_of(with_held(line), [&bus](const ei2c_client &device) { bus = device.bus; });
    trace::start();
    errno = 0;
    std::string result = call.run();
    const int error = errno;
    if (result.starts_with('-'))
        result += error != 0 ? " " + notation::name_of(error) : "";
    else if (hold_outputs(call))
        result = "0";
    return result + outputs_of(call) + wrapped(trace::transfers(bus));
}

std::string call_that_waits(const std::string &line)
{
    const auto start = std::chrono::steady_clock::now();
    std::string text = call_line(line);
    const auto took = std::chrono::steady_clock::now() - start;
    const bool waited = took > std::chrono::milliseconds(500) && took < std::chrono::seconds(5);
    return (waited ? "after a wait: " : "without a wait: ") + text;
}

std::string call_of_another(int64_t milliseconds, const std::string &line)
{
    const Call call = call_of(line, nothing);
    const pid_t child = fork();
    if (child == 0)
        _exit(call.run().starts_with('-') ? 1 : 0);
    say("pid " + std::to_string(child));
    int status = 0;
    for (int64_t waited = 0; waitpid(child, &status, WNOHANG) == 0; waited += 2) {
        if (waited >= milliseconds) {
            (void)kill(child, SIGKILL);
            (void)waitpid(child, &status, 0);
            return "waits";
        }
        (void)usleep(2000);
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? "gets it" : "fails";
}

std::string call_before_death(const std::string &line)
{
    const Call call = call_of(line, nothing);
    const pid_t child = fork();
    if (child == 0) {
        if (!call.run().starts_with('-'))
            (void)raise(SIGKILL);
        _exit(1);
    }
    int status = 0;
    (void)waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? "killed while it held" : "did not hold";
}

} // namespace board
