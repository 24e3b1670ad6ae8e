// Requests to device files as lines of a transcript.
#include "requests.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <map>
#include <sstream>
#include <stdexcept>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

namespace
{

constexpr uint8_t kFiller = 0xee; // in buffers that a request is to fill

struct Device {
    int fd;
    explicit Device(const std::string &bus)
        : fd(open(("/dev/i2c-" + bus).c_str(), O_RDWR | O_CLOEXEC))
    {
    }
    ~Device() { close(fd); }
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;
};

unsigned long number(const std::string &text, int base = 0)
{
    return std::stoul(text, nullptr, base);
}

template <typename Value>
Value one_of(const std::map<std::string, Value> &words, const std::string &word)
{
    const auto found = words.find(word);
    return found != words.end() ? found->second : static_cast<Value>(number(word));
}

std::string failed(int error, bool untouched)
{
    return strerrorname_np(error) + std::string(untouched ? "" : ", but a buffer was written");
}

const std::map<std::string, int> kFlags = {
    {"/nostart", I2C_M_NOSTART}, {"/stop", I2C_M_STOP},     {"/ignore-nak", I2C_M_IGNORE_NAK},
    {"/ten", I2C_M_TEN},         {"/len0", I2C_M_RECV_LEN}, {"/len1", I2C_M_RECV_LEN},
    {"/len2", I2C_M_RECV_LEN}};

} // namespace

void add_bytes(Bytes &bytes, const std::string &word)
{
    const size_t mark = word.find_first_of("*+");
    const size_t count = mark == std::string::npos ? 1 : number(word.substr(mark + 1));
    const unsigned step = mark != std::string::npos && word[mark] == '+' ? 1 : 0;
    for (size_t i = 0; i < count; i++)
        bytes.push_back(static_cast<uint8_t>(number(word, 16) + step * i));
}

std::string shown(const Bytes &bytes)
{
    std::string text;
    for (auto at = bytes.begin(); at != bytes.end();) {
        auto end = at + 1;
        const int step = end != bytes.end() && *end == static_cast<uint8_t>(*at + 1) ? 1 : 0;
        while (end != bytes.end() && *end == static_cast<uint8_t>(end[-1] + step))
            end++;
        const bool many = end - at >= 8;
        char field[16];
        (void)snprintf(field, sizeof field, many ? " %02x%c%d" : " %02x", *at, step ? '+' : '*',
                       static_cast<int>(end - at));
        text += field;
        at = many ? end : at + 1;
    }
    return text.empty() ? "ok" : text.substr(1);
}

std::deque<Message> parse_messages(std::istringstream &words, uint16_t address)
{
    std::deque<Message> messages(1);
    messages[0].address = address;
    for (std::string word; words >> word;) {
        Message &last = messages.back();
        if (word == "+") {
            words >> word;
            address = static_cast<uint16_t>(number(word));
            messages.emplace_back().address = address;
        } else if (word[0] == 'x') {
            messages.insert(messages.end(), number(word.substr(1)), Message(last));
            messages.pop_front();
        } else if (word == "nowhere") {
            last.nowhere = true;
        } else if (word[0] == '/') {
            last.flags |= kFlags.at(word);
            if (word.starts_with("/len"))
                last.counted = static_cast<uint8_t>(number(word.substr(4)));
        } else if (word[0] == 'r') {
            const bool alone = last.bytes.empty() && last.flags == 0 && last.length == 0;
            Message &read = alone ? last : messages.emplace_back();
            read.address = address;
            read.flags = I2C_M_RD;
            read.length = number(word.substr(1));
            read.bytes.assign(std::max<size_t>(read.length, 64), kFiller);
        } else {
            add_bytes(last.bytes, word);
        }
    }
    return messages;
}

std::vector<i2c_msg> as_list(std::deque<Message> &messages)
{
    std::vector<i2c_msg> list;
    for (Message &message : messages) {
        const bool read = (message.flags & I2C_M_RD) != 0;
        if ((message.flags & I2C_M_RECV_LEN) != 0)
            message.bytes.at(0) = message.counted;
        list.push_back({message.address, static_cast<uint16_t>(message.flags),
                        static_cast<uint16_t>(read ? message.length : message.bytes.size()),
                        message.nowhere ? nullptr : message.bytes.data()});
    }
    return list;
}

bool same_bytes(const std::deque<Message> &before, const std::deque<Message> &after)
{
    return std::equal(before.begin(), before.end(), after.begin(),
                      [](const Message &a, const Message &b) { return a.bytes == b.bytes; });
}

Bytes what_was_read(const std::deque<Message> &messages)
{
    Bytes read;
    for (const Message &message : messages) {
        const bool counts = (message.flags & I2C_M_RECV_LEN) != 0;
        const size_t length = counts ? message.bytes[0] + size_t{message.counted} : message.length;
        if ((message.flags & I2C_M_RD) != 0)
            read.insert(read.end(), message.bytes.begin(),
                        message.bytes.begin() + static_cast<ptrdiff_t>(length));
    }
    return read;
}

std::string taken_line(const std::string &line)
{
    Bytes taken;
    for (unsigned byte = 0; byte < 256; byte++) {
        char text[4];
        (void)snprintf(text, sizeof text, " %02x", byte);
        if (transfer_line(":" + line.substr(line.find(' ') + 1) + text) == "ok")
            taken.push_back(static_cast<uint8_t>(byte));
    }
    return shown(taken);
}

std::string transfer_line(const std::string &line)
{
    const size_t slash = line.find('/');
    std::istringstream words(line.substr(slash + 1));
    std::string address;
    words >> address;
    std::deque<Message> messages = parse_messages(words, static_cast<uint16_t>(number(address)));
    std::vector<i2c_msg> list = as_list(messages);
    const std::deque<Message> before = messages;
    const Device device(line.substr(1, slash - 1));
    i2c_rdwr_ioctl_data data = {list.data(), static_cast<uint32_t>(list.size())};
    errno = 0;
    const int result = ioctl(device.fd, I2C_RDWR, &data);
    if (result < 0)
        return failed(errno, same_bytes(before, messages));
    if (result != static_cast<int>(list.size()) || errno != 0)
        return "result " + std::to_string(result) + ", errno " + std::to_string(errno);
    return shown(what_was_read(messages));
}

std::string smbus_line(const std::string &line)
{
    static const std::map<std::string, uint32_t> sizes = {
        {"quick", I2C_SMBUS_QUICK},
        {"send", I2C_SMBUS_BYTE},
        {"byte", I2C_SMBUS_BYTE_DATA},
        {"word", I2C_SMBUS_WORD_DATA},
        {"call", I2C_SMBUS_PROC_CALL},
        {"block", I2C_SMBUS_BLOCK_DATA},
        {"old-i2c-block", I2C_SMBUS_I2C_BLOCK_BROKEN},
        {"block-call", I2C_SMBUS_BLOCK_PROC_CALL},
        {"i2c-block", I2C_SMBUS_I2C_BLOCK_DATA}};
    std::istringstream words(line.substr(line.find(' ')));
    std::string bus, address, direction, size, command;
    std::getline(words >> std::ws, bus, '/');
    words >> address >> direction >> size >> command;
    const Device device(bus);
    ioctl(device.fd, I2C_SLAVE, number(address));
    bool nothing = false;
    Bytes bytes;
    for (std::string word; words >> word;) {
        if (word == "pec")
            ioctl(device.fd, I2C_PEC, 1UL);
        else if (word == "nothing")
            nothing = true;
        else
            add_bytes(bytes, word);
    }
    bytes.resize(sizeof(i2c_smbus_data), kFiller);
    i2c_smbus_data data = {};
    std::copy(bytes.begin(), bytes.end(), data.block);
    static const std::map<std::string, int> directions = {{"r", 1}, {"w", 0}};
    i2c_smbus_ioctl_data request = {static_cast<uint8_t>(one_of(directions, direction)),
                                    static_cast<uint8_t>(number(command, 16)), one_of(sizes, size),
                                    nothing ? nullptr : &data};
    const int result = ioctl(device.fd, I2C_SMBUS, &request);
    const bool untouched = std::equal(bytes.begin(), bytes.end(), data.block);
    if (result < 0)
        return failed(errno, untouched);
    const size_t words_of = size == "word" || size == "call" ? 2 : 1;
    const size_t count = size.find("block") != std::string::npos ? data.block[0] + 1U : words_of;
    return untouched ? "ok" : shown({data.block, data.block + count});
}

std::string ioctl_line(const std::string &line)
{
    static const std::map<std::string, unsigned long> requests = {
        {"slave", I2C_SLAVE}, {"force", I2C_SLAVE_FORCE}, {"ten", I2C_TENBIT},
        {"pec", I2C_PEC},     {"retries", I2C_RETRIES},   {"timeout", I2C_TIMEOUT},
        {"funcs", I2C_FUNCS}, {"rdwr", I2C_RDWR},         {"smbus", I2C_SMBUS}};
    std::istringstream words(line.substr(line.find(' ')));
    std::string bus, name, argument, text;
    words >> bus;
    const Device device(bus);
    while (words >> name >> argument) {
        const int result = ioctl(device.fd, one_of(requests, name), number(argument));
        text += (text.empty() ? "" : " ") +
                (result < 0 ? std::string(strerrorname_np(errno)) : std::to_string(result));
    }
    return text;
}
