// A queue of byte blocks between two threads that never holds much memory: what is too much goes
// to a temporary file.
#ifndef QELI2C_SIM_SPOOL_H
#define QELI2C_SIM_SPOOL_H

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <sys/types.h>
#include <vector>

namespace runner
{

class Spool
{
public:
    using Block = std::vector<uint8_t>;

    Spool() = default;
    ~Spool();
    Spool(const Spool &) = delete;
    Spool &operator=(const Spool &) = delete;

    // Waits only when the file cannot take the block either.
    void put(Block block);
    void close(); // nothing more is put

    // Waits for the next block; false when all of them have been got.
    bool get(Block &block);
    bool is_empty();

    void abandon(); // forgets everything, now and to come
    bool is_abandoned();
    bool is_broken(); // abandoned because the file could not be read

private:
    bool store(Block &block);
    bool spill(const Block &block);
    bool unspill(Block &block);

    std::mutex mutex_;
    std::condition_variable changed_;
    bool closed_ = false;
    bool abandoned_ = false;
    bool broken_ = false;
    std::deque<Block> blocks_; // older than all in the file
    size_t in_memory_ = 0;     // their bytes
    int file_ = -1;
    std::deque<size_t> filed_; // sizes of the blocks in the file
    off_t start_ = 0;          // of them
    off_t end_ = 0;
};

} // namespace runner

#endif
