// Whole exchanges with one device as scripts, and guarded buffers, for the tests of the calls above
// the transfer engine.
#ifndef TESTS_UNIT_DEVICE_CALLS_H
#define TESTS_UNIT_DEVICE_CALLS_H

#include "tests/unit/transfer_model.h"

#include <gtest/gtest.h>

namespace calls
{

using scripted::Bytes;
using scripted::Event;
using scripted::Script;

constexpr uint32_t bus = 10;

/** A device on a bus in use: its records, the descriptor and the semaphore exist. */
ei2c_client device(int switches = 2);

/** A message as data: the bytes to send, or how many to read. */
struct Message {
    Bytes sent;
    int read = -1;
};
using Messages = std::vector<Message>;
Message sends(Bytes bytes);
Message reads(size_t count);

/** A locked exchange, its result and the errno that goes with it. */
struct Exchange {
    Script script;
    int result;
    int error;
    operator const Script &() const { return script; }
};

/** One try. The result is the number of messages, unless told otherwise. */
Exchange transferred(const ei2c_client &device, const Messages &messages, const Bytes &reply = {},
                     int result = -1);
/** Four tries, failing in four ways; the last leaves the reply in the read messages all the same.
 */
Exchange refused(const ei2c_client &device, const Messages &messages, const Bytes &reply = {});
/** Two transfers under one hold; the one numbered failing (1 or 2) is refused in all four tries. */
Exchange paired(const ei2c_client &device, const Messages &first, const Messages &second,
                int failing, const Bytes &reply = {});
/** An SMBus access: done at once with that result, or, when it is negative, refused four times. */
Exchange smbus(const ei2c_client &device, unsigned read_write, unsigned command, unsigned size,
               const Bytes &data, int result);

/** A log line: where it goes and under which name, then its text. */
Event said(const std::string &where, const char *format, ...) __attribute__((format(printf, 2, 3)));
/** The two kinds of level 180. */
std::string err(const std::string &function);
std::string success(const std::string &function);
Event on_stdout(const std::string &text);
/** The last line of a failed call of the retimer and the EPLD access. */
Event io_error(const std::string &function, const ei2c_client &device, unsigned reg,
               const char *what);
/** The trace of a register read. */
Script read_trace(const Bytes &bytes);

Script operator+(Script script, const Event &event);
Script operator+(Script script, const Script &more);

/** play(), and the call must have freed what it allocated. */
template <class Call>
auto run(const Script &script, Call &&call,
         const std::source_location &where = std::source_location::current())
{
    const auto result = scripted::play(script, call, where);
    const int error = errno;
    if (scripted::unreleased() != 0)
        ADD_FAILURE_AT(where.file_name(), static_cast<int>(where.line()))
            << "blocks not freed: " << scripted::unreleased();
    errno = error;
    return result;
}
#define EXPECT_RUN(expected, call, ...)                                                            \
    EXPECT_EQ(calls::run(scripted::Script(__VA_ARGS__), [&] { return call; }), expected)

/** The same while one allocation fails, the nth. */
#define EXPECT_RUN_WITHOUT_MEMORY(nth, expected, call, ...)                                        \
    scripted::fail_allocation(nth);                                                                \
    EXPECT_RUN(expected, call, __VA_ARGS__)

/** A caller's buffer. Nothing around it may ever be written. */
class Buffer
{
public:
    explicit Buffer(size_t size);
    Buffer(const Buffer &) = delete;
    ~Buffer();
    uint8_t *data() { return all_.data() + margin; }
    Bytes bytes() const { return {all_.begin() + margin, all_.end() - margin}; }
    bool untouched() const { return all_ == fresh(all_.size()); }

private:
    static constexpr int margin = 16;
    static Bytes fresh(size_t size);
    Bytes all_;
};

/** Some bytes, none of them alike within 251. */
Bytes pattern(size_t size);
Bytes joined(Bytes front, const Bytes &back);

} // namespace calls

#endif
