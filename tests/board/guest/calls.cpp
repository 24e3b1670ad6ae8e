// Calls of the library as lines of a case.
#include "calls.h"
#include "functions.h"
#include "trace.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace board
{

namespace
{

constexpr size_t line_width = 100;

std::string in_hex(unsigned value, int digits)
{
    char text[16];
    (void)std::snprintf(text, sizeof text, "0x%0*x", digits, value);
    return text;
}

// What the call gave, apart from its result: whatever is not as it was before.
std::string given(const Request &request, const std::deque<Message> &before,
                  const std::deque<Message> &messages)
{
    std::string text;
    Bytes out = request.out;
    out.erase(
        std::find_if(out.rbegin(), out.rend(), [](uint8_t byte) { return byte != kFiller; }).base(),
        out.end());
    if (!out.empty())
        text += ", " + shown(out);
    if (!same_bytes(before, messages))
        text += ", " + shown(what_was_read(messages));
    const Request unused = {};
    if (request.count != unused.count)
        text += ", " + in_hex(request.count, 2);
    if (request.word != unused.word)
        text += ", " + in_hex(request.word, 4);
    if (request.level != unused.level)
        text += ", " + std::to_string(request.level);
    if (request.value >= 0)
        text += ", " + std::to_string(request.value);
    return text;
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

ei2c_client client_at(const std::string &path)
{
    ei2c_client client = {};
    unsigned a[2] = {};
    unsigned channel[2] = {};
    unsigned address = 0;
    const char *text = path.c_str();
    if (std::sscanf(text, "%u/%x.%u/%x.%u/%x", &client.bus, &a[0], &channel[0], &a[1], &channel[1],
                    &address) == 6) {
        client.swi_addr = a[0] << 16 | a[1];
        client.swi_chnl = channel[0] << 16 | channel[1];
    } else if (std::sscanf(text, "%u/%x.%u/%x", &client.bus, &a[0], &channel[0], &address) == 4) {
        client.swi_addr = a[0];
        client.swi_chnl = channel[0];
    } else if (std::sscanf(text, "%u/%x", &client.bus, &address) != 2) {
        throw std::runtime_error("no such path: " + path);
    }
    client.addr = static_cast<uint16_t>(address);
    client.flags = path.ends_with("+pec") ? QELI2C_CLIENT_PEC : 0;
    return client;
}

std::string call_line(const std::string &line)
{
    static Request request; // what a taking call gave is there for the releasing one
    const auto held = std::pair{request.fd, request.semaphore};
    request = {};
    std::tie(request.fd, request.semaphore) = held;
    const size_t equals = line.find(" =");
    std::istringstream words(line.substr(1, equals - 1));
    std::istringstream rest(equals == std::string::npos ? "" : line.substr(equals + 2));
    std::string name;
    std::string path;
    words >> name >> path;
    const auto found = functions().find(name);
    if (found == functions().end())
        throw std::runtime_error("no such call: " + line);
    request.device = client_at(path);
    for (std::string word; words >> word;)
        request.n.push_back(static_cast<uint32_t>(std::stoul(word, nullptr, 0)));
    std::deque<Message> messages = parse_messages(rest, request.device.addr);
    const std::deque<Message> before = messages;
    request.list = as_list(messages);
    request.bytes = messages[0].bytes.data();
    request.size = static_cast<uint32_t>(messages[0].bytes.size());
    trace::start();
    errno = 0;
    const int32_t result = found->second(request);
    const int error = errno;
    std::string text = std::to_string(result);
    if (result < 0 && error != 0)
        text += std::string(" ") + strerrorname_np(error);
    if (result < 0 && held != std::pair{request.fd, request.semaphore})
        text += ", something handed out";
    return text + given(request, before, messages) + wrapped(trace::transfers(request.device.bus));
}

std::string another_process(const ei2c_client &client, int64_t milliseconds)
{
    const pid_t child = fork();
    if (child == 0) {
        uint8_t value = 0;
        _exit(ei2c_smbus_read_byte_data(&client, 0, &value) == 0 ? 0 : 1);
    }
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

std::string killed_holder(const ei2c_client &client)
{
    const pid_t child = fork();
    if (child == 0) {
        int32_t fd = -1;
        int32_t semaphore = -1;
        if (ei2c_smbus_select_switch(&client, &fd, &semaphore) >= 0)
            (void)raise(SIGKILL);
        _exit(1);
    }
    int status = 0;
    (void)waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? "killed while it held" : "did not hold";
}

} // namespace board
