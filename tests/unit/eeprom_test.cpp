// EEPROM access: how reads and writes are cut into pages, the pauses, the semaphore around it all,
// and the retries.
#include "tests/unit/device_calls.h"

#include <climits>

using namespace calls;
using scripted::printed;

namespace
{

constexpr int semaphore = 105; // the double's id for key 0x3001
const Event no_semaphore = on_stdout("line: #, func: ee_eeprom_semid(), ipc sem creat fail\n");

Event create(int result, int error = 0)
{
    return {"OAL_SemCreate 12289", result, error};
}
Event lock(int id = semaphore, int result = 0)
{
    return {printed("OAL_SemLockBySemId %d 65535", id), result};
}
Event unlock(int id = semaphore, int result = 0)
{
    return {printed("OAL_SemUnLockBySemId %d 65535", id), result};
}
ei2c_client eeprom()
{
    scripted::observe({}, ee_eeprom_semid);
    return device(1);
}

// How a page transfer ends.
enum End { done, refusal, nothing_done };

// One of the two directions: its calls, and the exchange of a page.
struct Direction {
    bool writing;
    const char *page_name, *name;

    int32_t page(const ei2c_client *target, int32_t offset, uint8_t *data, int32_t len) const
    {
        return (writing ? ee_eeprom_page_write(target, offset, data, len)
                        : ee_eeprom_page_read(target, offset, data, len));
    }
    int32_t whole(const ei2c_client *target, int32_t offset, uint8_t *data, int32_t len) const
    {
        return (writing ? eeprom_write(target, offset, data, len)
                        : eeprom_read(target, offset, data, len));
    }
    int32_t retried(const ei2c_client *target, int32_t offset, uint8_t *data, int32_t len) const
    {
        return (writing ? ei2c_eeprom_write_retry(target, offset, data, len)
                        : ei2c_eeprom_read_retry(target, offset, data, len));
    }
    Messages messages(const Bytes &address, const Bytes &data) const
    {
        return writing ? Messages{sends(joined(address, data))}
                       : Messages{sends(address), reads(data.size())};
    }
    Exchange exchange(const ei2c_client &target, const Bytes &address, const Bytes &data, End end,
                      int other_result = -1) const
    {
        const Messages sent = messages(address, data);
        const Bytes reply = writing ? Bytes{} : data;
        Exchange page = end == refusal
                            ? refused(target, sent, reply)
                            : transferred(target, sent, reply, end == done ? other_result : 0);
        page.script += Event{writing ? "select_sleep 0 25000" : "select_sleep 0 5000"};
        return page;
    }
};
constexpr Direction directions[] = {{true, "ee_eeprom_page_write", "ei2c_eeprom_write"},
                                    {false, "ee_eeprom_page_read", "ei2c_eeprom_read"}};

TEST(EepromPage, EndsWhereThePageEnds)
{
    const ei2c_client target = eeprom();
    const struct {
        int32_t offset, len;
        Bytes address;
        int32_t done;
    } rows[] = {
        {0, 40, {0, 0}, 32},
        {0, 32, {0, 0}, 32},
        {0, 31, {0, 0}, 31},
        {30, 10, {0, 30}, 2},
        {0x105, 100, {1, 5}, 27},
        {31, 2, {0, 31}, 1},
        {32, INT_MAX, {0, 32}, 32},
        {0x10010, 5, {0, 0x10}, 5},
        {7, 0, {0, 7}, 0},
        {0xffff, 9, {0xff, 0xff}, 1},
        {0x7fffffdf, INT_MAX, {0xff, 0xdf}, 1},
    };
    for (const Direction &way : directions)
        for (const auto &row : rows)
            for (const End end : {done, refusal}) {
                SCOPED_TRACE(printed("%s %x %d", way.page_name, row.offset, row.len));
                const auto size = static_cast<size_t>(row.done);
                Buffer buffer(size);
                const Bytes data = way.writing ? buffer.bytes() : pattern(size);
                const Exchange page = way.exchange(target, row.address, data, end);
                EXPECT_RUN(end == done ? row.done : page.result,
                           way.page(&target, row.offset, buffer.data(), row.len), page);
                if (end == refusal) {
                    EXPECT_EQ(errno, page.error);
                }
                EXPECT_EQ(buffer.bytes(), data);
            }
}

TEST(EepromPage, PassesAnUnexpectedCountOfMessagesOn)
{
    const ei2c_client target = eeprom();
    for (const Direction &way : directions)
        for (const int result : {0, way.writing ? 2 : 1, 3}) {
            Buffer buffer(4);
            EXPECT_RUN(result, way.page(&target, 0, buffer.data(), 4),
                       way.exchange(target, {0, 0}, buffer.bytes(), done, result));
        }
}

TEST(EepromAccess, RefusesOffsetsAndLengthsOutOfRange)
{
    const ei2c_client target = eeprom();
    constexpr std::pair<int32_t, int32_t> rows[] = {{0x7fffffe0, 1}, {INT_MAX, 4}, {-1, 4},
                                                    {INT_MIN, 4},    {0, -1},      {64, INT_MIN}};
    for (const Direction &way : directions) {
        Buffer buffer(8);
        for (const auto &[offset, len] : rows) {
            SCOPED_TRACE(printed("%s %x %d", way.page_name, offset, len));
            EXPECT_RUN(-1, way.page(&target, offset, buffer.data(), len));
            EXPECT_RUN(-1, way.whole(&target, offset, buffer.data(), len), {lock(), unlock()});
        }
        const Script check = scripted::argument_check("ee_at24c512", way.page_name, "eclient");
        EXPECT_RUN(-1, way.page(nullptr, -1, buffer.data(), 4), check);
        EXPECT_RUN(-1, way.whole(nullptr, 0, buffer.data(), 4), Script{lock()} + check + unlock());
        EXPECT_TRUE(buffer.untouched());
        // Reached only after a page that was good.
        const Bytes data = way.writing ? Bytes(buffer.data(), buffer.data() + 1) : pattern(1);
        EXPECT_RUN(1, way.whole(&target, 0x7fffffdf, buffer.data(), 8),
                   Script{lock()} + way.exchange(target, {0xff, 0xdf}, data, done) + unlock());
    }
}

TEST(EepromAccess, CoversThePagesInOrderAndStopsAtTheFirstFailure)
{
    const ei2c_client target = eeprom();
    const struct {
        int32_t offset;
        std::vector<std::pair<Bytes, size_t>> pages; // address bytes and length
    } rows[] = {{30, {{{0, 0x1e}, 2}, {{0, 0x20}, 8}}},
                {0xf5, {{{0, 0xf5}, 11}, {{1, 0}, 32}, {{1, 0x20}, 32}, {{1, 0x40}, 25}}},
                {0xffe0, {{{0xff, 0xe0}, 32}, {{0, 0}, 1}}},
                {64, {{{0, 64}, 32}}}};
    for (const Direction &way : directions)
        for (const auto &row : rows)
            for (size_t ending = 0; ending < row.pages.size(); ++ending)
                for (const End end : {done, refusal, nothing_done}) {
                    SCOPED_TRACE(printed("%s %x: page %zu", way.name, row.offset, ending));
                    size_t length = 0;
                    for (const auto &page : row.pages)
                        length += page.second;
                    Buffer buffer(length);
                    const Bytes data = way.writing ? buffer.bytes() : pattern(length);
                    Script script = {lock()};
                    auto from = data.begin();
                    int expected = 0, error = 0;
                    for (size_t i = 0; i < row.pages.size(); ++i) {
                        const auto to = from + static_cast<long>(row.pages[i].second);
                        const Exchange page = way.exchange(target, row.pages[i].first, {from, to},
                                                           i == ending ? end : done);
                        script += page.script;
                        error = page.error;
                        if (i == ending && end != done) {
                            expected = i == 0 ? page.result : expected;
                            break;
                        }
                        expected += static_cast<int>(to - from);
                        from = to;
                    }
                    EXPECT_RUN(
                        expected,
                        way.whole(&target, row.offset, buffer.data(), static_cast<int32_t>(length)),
                        script + unlock());
                    if (expected < 0) {
                        EXPECT_EQ(errno, error);
                    }
                    EXPECT_TRUE(std::equal(data.begin(), from, buffer.data()));
                }
}

TEST(EepromAccess, OfNoBytesTakesAndReleasesTheSemaphore)
{
    const ei2c_client target = eeprom();
    for (const Direction &way : directions)
        EXPECT_RUN(0, way.whole(&target, 5, nullptr, 0), {lock(), unlock()});
}

TEST(EepromAccess, GoesOnWhateverTakingAndReleasingTheSemaphoreGives)
{
    const ei2c_client target = eeprom();
    Buffer buffer(3);
    for (const Direction &way : directions)
        EXPECT_RUN(3, way.whole(&target, 5, buffer.data(), 3),
                   Script{lock(semaphore, -1)} +
                       way.exchange(target, {0, 5}, buffer.bytes(), done) + unlock(semaphore, -3) +
                       on_stdout("unlock eeprom failed\n"));
    EXPECT_RUN(semaphore, ee_lock_eeprom(), {lock(semaphore, -4)});
    EXPECT_RUN(7, ee_unlock_eeprom(), {unlock(semaphore, 7)});
    EXPECT_RUN(-7, ee_unlock_eeprom(), {unlock(semaphore, -7)});
}

Script retry(const char *name, unsigned loop, int result)
{
    return {said("DbgOut 130 [libi2c_qelifc]", "%s_retry, %s error loop %u, result:%d\n", name,
                 name, loop, result),
            {"sleep 1"}};
}

TEST(EepromRetry, EndsWithTheFirstPositiveResultOrTheThirdAttempt)
{
    const ei2c_client target = eeprom();
    const std::vector<End> sequences[] = {{done},
                                          {nothing_done, done},
                                          {refusal, done},
                                          {refusal, nothing_done, done},
                                          {refusal, refusal, refusal},
                                          {refusal, refusal, nothing_done},
                                          {nothing_done, nothing_done, refusal}};
    for (const Direction &way : directions)
        for (const auto &ends : sequences) {
            Buffer buffer(6);
            Script script;
            int last = 0, error = 0;
            for (unsigned loop = 0; const End end : ends) {
                const Exchange page = way.exchange(target, {2, 0}, buffer.bytes(), end);
                last = end == done ? 6 : page.result;
                error = page.error;
                script = script + lock() + page + unlock();
                if (end != done)
                    script += retry(way.name, loop++, last);
            }
            EXPECT_RUN(last, way.retried(&target, 0x200, buffer.data(), 6), script);
            if (last < 0) {
                EXPECT_EQ(errno, error);
            }
        }
}

// The semaphore is created once in a process, so this needs one of its own.
TEST(EepromSemaphore, IsCreatedAtFirstUseAndAgainAfterAFailure)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto body = [] {
        const ei2c_client target = device(0);
        const Script failed = {create(-6, ENOSPC), no_semaphore};
        EXPECT_RUN(-6, ee_eeprom_semid(), failed);
        EXPECT_RUN(-6, ee_lock_eeprom(), failed);
        EXPECT_RUN(-9, ee_unlock_eeprom(), {create(-1), no_semaphore, unlock(-1, -9)});
        for (const Direction &way : directions) {
            Buffer buffer(4);
            const Script attempt = failed + on_stdout("lock eeprom failed\n");
            EXPECT_RUN(0, way.whole(&target, 0, buffer.data(), 4), attempt);
            EXPECT_RUN(0, way.retried(&target, 0, buffer.data(), 4),
                       attempt + retry(way.name, 0, 0) + attempt + retry(way.name, 1, 0) + attempt +
                           retry(way.name, 2, 0));
            EXPECT_TRUE(buffer.untouched());
        }
        EXPECT_RUN(0, ee_lock_eeprom(), {create(0), lock(0)}); // 0 is an id
        EXPECT_RUN(0, ee_eeprom_semid());
        EXPECT_RUN(0, ee_unlock_eeprom(), {unlock(0)});
        exit(testing::Test::HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST(EepromNames, OfTheLibraryAreTheDriversEntries)
{
    decltype(&eeprom_read) volatile reading[] = {eeprom_read, ei2c_eeprom_read};
    decltype(&eeprom_write) volatile writing[] = {eeprom_write, ei2c_eeprom_write};
    EXPECT_EQ(reading[0], reading[1]);
    EXPECT_EQ(writing[0], writing[1]);
}

} // namespace
