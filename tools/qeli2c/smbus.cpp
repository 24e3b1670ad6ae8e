// qeli2c smbus: one SMBus transaction of any kind.
#include "command_line.h"
#include "failure.h"
#include "interrupt.h"
#include "number.h"
#include "output.h"
#include "tool.h"
#include "transfer.h"

#include <algorithm>
#include <cerrno>
#include <iostream>

namespace tool
{

namespace
{

struct SmbusArguments {
    std::string device, transaction;
    std::vector<std::string> numbers;
    bool pec = false;
};

enum class Data { none, byte, word, block, length }; // length: of an I2C block to be read

struct Transaction {
    const char *name;
    int32_t size;
    char read_write;
    bool command; // whether a command code is sent
    Data sent, received;
};

// As the System Management Bus Specification names them, chapter 6.5, and i2c-dev's I2C blocks.
constexpr Transaction kTransactions[] = {
    {"quick-read", I2C_SMBUS_QUICK, I2C_SMBUS_READ, false, Data::none, Data::none},
    {"quick-write", I2C_SMBUS_QUICK, I2C_SMBUS_WRITE, false, Data::none, Data::none},
    {"receive-byte", I2C_SMBUS_BYTE, I2C_SMBUS_READ, false, Data::none, Data::byte},
    {"send-byte", I2C_SMBUS_BYTE, I2C_SMBUS_WRITE, true, Data::none, Data::none},
    {"read-byte", I2C_SMBUS_BYTE_DATA, I2C_SMBUS_READ, true, Data::none, Data::byte},
    {"write-byte", I2C_SMBUS_BYTE_DATA, I2C_SMBUS_WRITE, true, Data::byte, Data::none},
    {"read-word", I2C_SMBUS_WORD_DATA, I2C_SMBUS_READ, true, Data::none, Data::word},
    {"write-word", I2C_SMBUS_WORD_DATA, I2C_SMBUS_WRITE, true, Data::word, Data::none},
    {"call", I2C_SMBUS_PROC_CALL, I2C_SMBUS_WRITE, true, Data::word, Data::word},
    {"read-block", I2C_SMBUS_BLOCK_DATA, I2C_SMBUS_READ, true, Data::none, Data::block},
    {"write-block", I2C_SMBUS_BLOCK_DATA, I2C_SMBUS_WRITE, true, Data::block, Data::none},
    {"block-call", I2C_SMBUS_BLOCK_PROC_CALL, I2C_SMBUS_WRITE, true, Data::block, Data::block},
    {"read-i2c-block", I2C_SMBUS_I2C_BLOCK_DATA, I2C_SMBUS_READ, true, Data::length, Data::block},
    {"write-i2c-block", I2C_SMBUS_I2C_BLOCK_DATA, I2C_SMBUS_WRITE, true, Data::block, Data::none},
};

std::vector<std::string> names()
{
    std::vector<std::string> all;
    for (const Transaction &transaction : kTransactions)
        all.emplace_back(transaction.name);
    return all;
}

const Transaction &find(const std::string &name)
{
    for (const Transaction &transaction : kTransactions)
        if (transaction.name == name)
            return transaction;
    throw usage_error("no SMBus transaction '" + name +
                      "'; 'qeli2c smbus --help' shows those there are");
}

struct Request {
    uint8_t command = 0;
    uint8_t area[QELI2C_SMBUS_AREA] = {}; // laid out as union i2c_smbus_data
};

size_t values_wanted(Data data, size_t given)
{
    if (data == Data::block)
        return std::clamp<size_t>(given, 1, I2C_SMBUS_BLOCK_MAX);
    return data == Data::none ? 0 : 1;
}

Request parse_request(const Transaction &transaction, const std::vector<std::string> &numbers)
{
    Request request;
    const size_t before = transaction.command ? 1 : 0;
    const size_t given = numbers.size() < before ? 0 : numbers.size() - before;
    const size_t wanted = values_wanted(transaction.sent, given);
    if (numbers.size() != before + wanted)
        throw usage_error(std::string(transaction.name) + " takes " +
                          (before ? "a command code" : "no number") +
                          (transaction.sent == Data::block    ? " and 1 to 32 bytes"
                           : transaction.sent == Data::length ? " and a length"
                           : wanted                           ? " and a value"
                                                              : ""));
    if (before)
        request.command = static_cast<uint8_t>(number_in(numbers[0], 0, 0xff, "command code"));
    if (transaction.sent == Data::word) {
        const uint32_t word = number_in(numbers[before], 0, 0xffff, "value");
        request.area[0] = static_cast<uint8_t>(word);
        request.area[1] = static_cast<uint8_t>(word >> 8);
    } else if (transaction.sent == Data::byte) {
        request.area[0] = static_cast<uint8_t>(number_in(numbers[before], 0, 0xff, "value"));
    } else if (transaction.sent == Data::length) {
        request.area[0] =
            static_cast<uint8_t>(number_in(numbers[before], 1, I2C_SMBUS_BLOCK_MAX, "length"));
    } else if (transaction.sent == Data::block) {
        request.area[0] = static_cast<uint8_t>(wanted);
        for (size_t i = 0; i < wanted; i++)
            request.area[i + 1] =
                static_cast<uint8_t>(number_in(numbers[before + i], 0, 0xff, "value"));
    }
    return request;
}

// What the library's SMBus calls do not carry: the length of an I2C block to be read, and what a
// process call answers. As messages they are the same on the wire.
bool is_messages(const Transaction &transaction)
{
    return transaction.sent == Data::length || transaction.size == I2C_SMBUS_PROC_CALL;
}

void do_messages(const Target &target, const Transaction &transaction, Request &request,
                 const std::string &doing)
{
    const bool call = transaction.size == I2C_SMBUS_PROC_CALL;
    std::vector<Message> messages = {{false, {request.command}},
                                     {true, std::vector<uint8_t>(call ? 2 : request.area[0])}};
    if (call)
        messages[0].bytes.insert(messages[0].bytes.end(), request.area, request.area + 2);
    transfer(target, messages, doing);
    std::copy(messages[1].bytes.begin(), messages[1].bytes.end(), request.area + (call ? 0 : 1));
}

void do_transaction(const Target &target, const Transaction &transaction, Request &request,
                    bool pec, const std::string &doing)
{
    ei2c_client client = to_client(target.path);
    client.flags = pec ? QELI2C_CLIENT_PEC : 0;
    const bool data = transaction.sent != Data::none || transaction.received != Data::none;
    errno = 0;
    const int32_t result =
        ei2c_smbus_xfer(&client, static_cast<uint32_t>(transaction.read_write), request.command,
                        static_cast<uint32_t>(transaction.size), data ? request.area : nullptr);
    if (result < 0)
        fail_transfer(target, doing, result, errno);
}

void print_result(const Options &options, const Target &target, const Transaction &transaction,
                  const Request &request)
{
    const uint8_t *area = request.area;
    Json::Value json = json_of(target);
    json["transaction"] = transaction.name;
    if (transaction.command)
        json["command"] = request.command;
    const size_t count = std::min<size_t>(area[0], I2C_SMBUS_BLOCK_MAX);
    const std::vector<uint8_t> block(area + 1, area + 1 + count);
    const bool word = transaction.received == Data::word;
    const uint32_t value = word ? area[0] | static_cast<uint32_t>(area[1]) << 8 : area[0];
    if (transaction.received == Data::block)
        json["block"] = json_array(block);
    else if (transaction.received != Data::none)
        json["value"] = value;
    if (options.json)
        print_json(json);
    else if (transaction.received == Data::block)
        print_bytes(block);
    else if (transaction.received != Data::none)
        std::cout << hex(value, word ? 4 : 2) << "\n";
}

void smbus(const SmbusArguments &arguments, const Options &options)
{
    const Transaction &transaction = find(arguments.transaction);
    const Target target = resolve(load_board(options.board_file), arguments.device);
    Request request = parse_request(transaction, arguments.numbers);
    if (arguments.pec && (transaction.size == I2C_SMBUS_QUICK || is_messages(transaction) ||
                          transaction.size == I2C_SMBUS_I2C_BLOCK_DATA))
        throw usage_error(std::string(transaction.name) + " is sent without a packet error code");
    if (!delicate(target).empty() && transaction.read_write == I2C_SMBUS_WRITE &&
        transaction.command)
        announce(options, "write to " + delicate(target) + " " + to_string(target));
    defer_interrupts();
    const std::string doing = std::string("cannot ") + transaction.name;
    if (is_messages(transaction))
        do_messages(target, transaction, request, doing);
    else
        do_transaction(target, transaction, request, arguments.pec, doing);
    print_result(options, target, transaction, request);
}

} // namespace

void add_smbus(CLI::App &app, Tool &tool)
{
    static const std::string footer = [] {
        std::string text = "Transactions:";
        size_t column = text.size();
        for (const std::string &name : names()) {
            const bool fits = column + 1 + name.size() <= 76;
            text += (fits ? " " : "\n ") + name;
            column = (fits ? column : 0) + 1 + name.size();
        }
        return text + "\nread-i2c-block is followed by a length, quick-read, quick-write and\n"
                      "receive-byte by nothing, the others by a command code and what is sent.\n"
                      "Example: qeli2c smbus 4/0x60 write-block 0x10 1 2 3 --pec";
    }();
    const auto [command, arguments] = add_command(
        app, tool, "smbus", "Do one SMBus transaction of any kind", footer.c_str(), smbus);
    add_device(command, arguments.device);
    add_argument(command, "TRANSACTION", arguments.transaction, "What to do, see below");
    add_arguments(command, "[COMMAND] [VALUE...]", arguments.numbers,
                  "Command code, then what is sent", Number::any);
    add_flag(command, "--pec", arguments.pec, "SMBus packet error checking");
}

} // namespace tool
