// Standard output, standard error and questions at the terminal.
#include "output.h"

#include "failure.h"
#include "number.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <json/writer.h>
#include <langinfo.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tool
{

namespace
{

constexpr size_t kColumns = 80;

std::string one_line(const Json::Value &value)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    builder["precision"] = 6;
    return Json::writeString(builder, value);
}

bool is_plain(const Json::Value &value)
{
    return !value.isArray() && !value.isObject();
}

// "[ 1, 2 ]", over several lines where one is too short.
void add_plain_array(std::string &text, const Json::Value &array, size_t indent)
{
    text += "[";
    size_t column = text.size() - (text.rfind('\n') + 1);
    for (const Json::Value &value : array) {
        const std::string item = (&value == &array[0] ? "" : ",") + std::string(" ");
        const std::string shown = one_line(value);
        if (column + item.size() + shown.size() + 3 > kColumns) {
            text += item.substr(0, item.size() - 1) + "\n" + std::string(indent + 2, ' ') + shown;
            column = indent + 2 + shown.size();
        } else {
            text += item + shown;
            column += item.size() + shown.size();
        }
    }
    text += array.empty() ? "]" : " ]";
}

// The members of an object, and of an array of such, each on a line of its own.
void add_json(std::string &text, const Json::Value &value, size_t indent)
{
    const std::string line = "\n" + std::string(indent + 2, ' ');
    if (is_plain(value) || value.empty()) {
        text += one_line(value);
    } else if (value.isObject()) {
        const std::vector<std::string> names = value.getMemberNames();
        for (const std::string &name : names) {
            text += (name == names.front() ? "{" : ",") + line + one_line(name) + ": ";
            add_json(text, value[name], indent + 2);
        }
        text += line.substr(0, indent + 1) + "}";
    } else if (is_plain(value[0])) {
        add_plain_array(text, value, indent);
    } else {
        for (Json::ArrayIndex i = 0; i < value.size(); i++) {
            text += (i == 0 ? "[" : ",") + line;
            add_json(text, value[i], indent + 2);
        }
        text += line.substr(0, indent + 1) + "]";
    }
}

// Longer lines go on in further ones, indented. A word is never broken.
std::string folded(const std::string &text, size_t columns)
{
    constexpr size_t kIndent = 8;
    std::string folded;
    size_t column = 0;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find_first_of(" \n", at), text.size());
        if (column > kIndent && column + 1 + end - at > columns) {
            folded.back() = '\n';
            folded.append(kIndent, ' ');
            column = kIndent;
        }
        folded.append(text, at, end + 1 - at);
        column = end < text.size() && text[end] == '\n' ? 0 : column + end + 1 - at;
        at = end + 1;
    }
    return folded;
}

} // namespace

void print_json(const Json::Value &value)
{
    std::string text;
    add_json(text, value, 0);
    std::cout << text << "\n";
}

void print_json_line(const Json::Value &value)
{
    std::cout << one_line(value) << "\n";
    flush_results();
}

Json::Value json_of(const Target &target)
{
    Json::Value value(Json::objectValue);
    value["path"] = to_string(target.path);
    if (!target.name.empty()) {
        value["name"] = target.name;
        value["type"] = target.type;
    }
    return value;
}

void print_dump(uint32_t offset, int offset_digits, const std::vector<uint32_t> &values, int width)
{
    const size_t per_line = 16 / static_cast<size_t>(width);
    char field[16];
    for (size_t start = 0; start < values.size(); start += per_line) {
        std::string line = hex(offset + static_cast<uint32_t>(start) * static_cast<uint32_t>(width),
                               offset_digits) +
                           ":";
        std::string characters;
        for (size_t i = start; i < start + per_line; i++) {
            const bool present = i < values.size();
            if (present)
                std::snprintf(field, sizeof field, " %0*x", 2 * width, values[i]);
            else
                std::snprintf(field, sizeof field, " %*s", 2 * width, "");
            line += field;
            if (present && width == 1)
                characters +=
                    values[i] >= 0x20 && values[i] < 0x7f ? static_cast<char>(values[i]) : '.';
        }
        if (width == 1)
            line += "  " + characters;
        line.erase(line.find_last_not_of(' ') + 1);
        std::cout << line << "\n";
    }
}

void print_bytes(const std::vector<uint8_t> &bytes)
{
    for (size_t i = 0; i < bytes.size(); i++)
        std::cout << hex(bytes[i], 2) << (i % 16 == 15 || i + 1 == bytes.size() ? "\n" : " ");
}

void flush_results()
{
    errno = 0;
    std::cout.flush();
    std::fflush(stdout);
    if (std::cout && !std::ferror(stdout))
        return;
    const int error = errno; // 0 when an earlier write failed
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    const bool reader_gone = poll(&output, 1, 0) > 0 && (output.revents & POLLERR);
    throw operation_failed(reader_gone ? ""
                           : error
                               ? std::string("cannot write the results: ") + std::strerror(error)
                               : "cannot write the results");
}

void tell(const std::string &message)
{
    std::cout.flush();
    const std::string text = "qeli2c: " + message + "\n";
    std::cerr << (isatty(STDERR_FILENO) ? folded(text, terminal_columns(STDERR_FILENO)) : text);
}

void announce(const Options &options, const std::string &what)
{
    const bool ask = !options.yes && isatty(STDIN_FILENO) && isatty(STDERR_FILENO);
    if (ask || !options.quiet)
        tell("about to " + what);
    if (!ask)
        return;
    std::cerr << "Go on? [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes")
        throw operation_failed("not confirmed; nothing was written (-y goes on without asking)");
}

std::string delicate(const Target &target)
{
    const uint16_t address = target.path.address;
    if (target.type == "pca9548" || (target.type.empty() && address >= 0x70 && address <= 0x77))
        return "the switch";
    if (target.type == "at24c512" || (target.type.empty() && address >= 0x50 && address <= 0x57))
        return "the EEPROM";
    if (target.type.starts_with("epld"))
        return "the logic device";
    return "";
}

size_t terminal_columns(int fd)
{
    winsize size{};
    return ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kColumns;
}

bool wants_colour()
{
    const char *setting = std::getenv("NO_COLOR");
    return !setting || !*setting;
}

bool paints()
{
    return isatty(STDOUT_FILENO) && wants_colour();
}

std::string painted(const char *code, const std::string &text)
{
    return paints() ? "\033[" + std::string(code) + "m" + text + "\033[0m" : text;
}

bool writes_utf8()
{
    std::setlocale(LC_CTYPE, "");
    return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

void show_progress(const Options &options, const std::string &text)
{
    if (options.quiet || !isatty(STDERR_FILENO))
        return;
    std::cerr << "\r\033[K" << text << std::flush;
}

} // namespace tool
