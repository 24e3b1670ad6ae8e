// The queue, and its file.
#include "spool.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <utility>

namespace runner
{

namespace
{

constexpr size_t kMemory = size_t{32} << 20;

// It has no name from the start on, so that nothing is left of it.
int open_temporary()
{
    const char *const directory = secure_getenv("TMPDIR");
    std::string name = directory != nullptr && *directory == '/' ? directory : "/var/tmp";
    name += "/qeli2c-sim-XXXXXX";
    const int file = mkostemp(name.data(), O_CLOEXEC);
    if (file >= 0) {
        unlink(name.c_str());
    }
    return file;
}

// Calls pread or pwrite until all bytes have gone.
template <typename Call, typename Bytes>
bool move_all(Call call, int file, Bytes *bytes, size_t size, off_t at)
{
    while (size > 0) {
        const ssize_t moved = call(file, bytes, size, at);
        if (moved < 0 && errno == EINTR) {
            continue;
        }
        if (moved <= 0) {
            return false;
        }
        bytes += moved;
        size -= static_cast<size_t>(moved);
        at += moved;
    }
    return true;
}

} // namespace

Spool::~Spool()
{
    if (file_ >= 0) {
        ::close(file_);
    }
}

bool Spool::spill(const Block &block)
{
    if (file_ < 0) {
        file_ = open_temporary();
    }
    if (file_ < 0 || !move_all(pwrite, file_, block.data(), block.size(), end_)) {
        return false;
    }
    end_ += static_cast<off_t>(block.size());
    filed_.push_back(block.size());
    return true;
}

bool Spool::unspill(Block &block)
{
    block.resize(filed_.front());
    bool good = move_all(pread, file_, block.data(), block.size(), start_);
    const off_t size = static_cast<off_t>(block.size());
    // The file needs no more room than what is left in it.
    fallocate(file_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, start_, size);
    start_ += size;
    filed_.pop_front();
    if (filed_.empty()) {
        start_ = end_ = 0;
        good = ftruncate(file_, 0) == 0 && good;
    }
    return good;
}

bool Spool::store(Block &block)
{
    const bool fits = blocks_.empty() || in_memory_ + block.size() <= kMemory;
    if (!filed_.empty() || !fits) {
        return spill(block);
    }
    in_memory_ += block.size();
    blocks_.push_back(std::move(block));
    return true;
}

void Spool::put(Block block)
{
    std::unique_lock<std::mutex> lock(mutex_);
    while (!abandoned_ && !store(block)) {
        changed_.wait(lock);
    }
    changed_.notify_all();
}

void Spool::close()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
    changed_.notify_all();
}

bool Spool::get(Block &block)
{
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock,
                  [this] { return abandoned_ || closed_ || !blocks_.empty() || !filed_.empty(); });
    if (abandoned_ || (blocks_.empty() && filed_.empty())) {
        return false;
    }
    if (blocks_.empty()) {
        broken_ = !unspill(block);
        abandoned_ = broken_;
    } else {
        block = std::move(blocks_.front());
        blocks_.pop_front();
        in_memory_ -= block.size();
    }
    changed_.notify_all();
    return !broken_;
}

bool Spool::is_empty()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return blocks_.empty() && filed_.empty();
}

void Spool::abandon()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    abandoned_ = true;
    changed_.notify_all();
}

bool Spool::is_broken()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return broken_;
}

bool Spool::is_abandoned()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return abandoned_;
}

} // namespace runner
