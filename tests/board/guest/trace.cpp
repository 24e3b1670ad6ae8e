// What the kernel itself saw on a bus.
#include "trace.h"
#include "tool/requests.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <stdexcept>
#include <unistd.h>

namespace board::trace
{

namespace
{

const std::string directory = "/sys/kernel/tracing/";

// What is there is consumed. To switch the events off and on, or to empty the buffer, would take
// the kernel a good part of a second each time.
std::string pipe_contents()
{
    static const int pipe =
        open((directory + "trace_pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    std::string text;
    char buffer[4096];
    for (ssize_t count; (count = read(pipe, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<size_t>(count));
    if (errno != EAGAIN)
        throw std::runtime_error(std::string("kernel trace: ") + std::strerror(errno));
    return text;
}

// " l=3 [2f-10-d0]"
std::string data_of(const std::string &event)
{
    const size_t start = event.find('[');
    std::istringstream words(
        start == std::string::npos ? "" : event.substr(start + 1, event.find(']') - start - 1));
    Bytes bytes;
    for (std::string word; std::getline(words, word, '-');)
        add_bytes(bytes, word);
    return bytes.empty() ? "" : " " + shown(bytes);
}

// "i2c_write: i2c-3 #0 a=070 f=0000 l=1 [20]", likewise i2c_read and i2c_reply;
// "i2c_result: i2c-3 n=2 ret=2" ends a transfer.
void add(std::string &all, const std::string &event)
{
    unsigned address = 0;
    unsigned length = 0;
    int result = 0;
    char head[24];
    const auto field = [&event](const char *name) {
        return event.c_str() + std::min(event.size(), event.find(name));
    };
    (void)std::sscanf(field(" a="), " a=%x f=%*x l=%u", &address, &length);
    if (event.starts_with("i2c_write")) {
        (void)std::snprintf(head, sizeof head, "%02x w", address);
        all += (all.ends_with(';') ? " " : all.empty() ? "" : ", ") + (head + data_of(event));
        all += length > 64 ? " of " + std::to_string(length) : "";
    } else if (event.starts_with("i2c_read")) {
        (void)std::snprintf(head, sizeof head, "%02x r%u", address, length);
        all += (all.ends_with(';') ? " " : all.empty() ? "" : ", ") + std::string(head);
    } else if (event.starts_with("i2c_reply")) {
        all += " =" + data_of(event);
    } else if (std::sscanf(field(" ret="), " ret=%d", &result) == 1) {
        all += (result < 0 ? std::string(" ") + strerrorname_np(-result) : "") + ";";
    }
}

} // namespace

void start()
{
    static const bool enabled = [] {
        std::ofstream file(directory + "events/i2c/enable");
        return static_cast<bool>(file << "1" << std::flush);
    }();
    if (!enabled)
        throw std::runtime_error("kernel trace: no events of I2C");
    (void)pipe_contents();
}

std::string transfers(uint32_t bus)
{
    const std::string name = ": i2c-" + std::to_string(bus) + " ";
    std::istringstream lines(pipe_contents());
    std::string all;
    for (std::string line; std::getline(lines, line);)
        if (const size_t event = line.find(": i2c_");
            event != std::string::npos && line.find(name) != std::string::npos)
            add(all, line.substr(event + 2));
    return all;
}

} // namespace board::trace
