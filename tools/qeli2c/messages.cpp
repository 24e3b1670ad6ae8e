// Reads the notation of raw messages.
#include "messages.h"

#include "failure.h"
#include "number.h"

namespace tool
{

namespace
{

struct OpenWrite { // the write message whose bytes are being read
    std::string word;
    size_t expected = 0;
    bool counted = false;
};

uint32_t length_in(const std::string &word)
{
    return number_in(std::string_view(word).substr(1), 1, kMostBytes,
                     "length of message '" + word + "':");
}

void check_complete(const std::vector<Message> &messages, const OpenWrite &open)
{
    if (messages.empty() || messages.back().read)
        return;
    const size_t bytes = messages.back().bytes.size();
    if (bytes == 0)
        throw usage_error("message '" + open.word + "' has no bytes to write");
    if (bytes > kMostBytes)
        throw usage_error("message '" + open.word + "' is longer than " +
                          std::to_string(kMostBytes) + " bytes");
    if (open.counted && bytes != open.expected)
        throw usage_error("message '" + open.word + "' is followed by " + std::to_string(bytes) +
                          (bytes == 1 ? " byte" : " bytes"));
}

} // namespace

std::vector<Message> parse_messages(const std::vector<std::string> &words)
{
    std::vector<Message> messages;
    OpenWrite open;
    for (const std::string &word : words) {
        const char kind = word.empty() ? ' ' : word[0];
        if (kind == 'r' || kind == 'w') {
            check_complete(messages, open);
            messages.emplace_back();
        }
        if (kind == 'r') {
            if (word.size() == 1)
                throw usage_error("message 'r' needs a length, as in r4");
            messages.back().read = true;
            messages.back().bytes.resize(length_in(word));
        } else if (kind == 'w') {
            open = OpenWrite{word, 0, word.size() > 1};
            if (open.counted)
                open.expected = length_in(word);
        } else if (messages.empty() || messages.back().read) {
            throw usage_error("'" + word + "' is no message: write rN, or w followed by bytes");
        } else {
            messages.back().bytes.push_back(static_cast<uint8_t>(number_in(word, 0, 0xff, "byte")));
        }
    }
    check_complete(messages, open);
    if (messages.empty())
        throw usage_error("no message: write rN, or w followed by bytes");
    if (messages.size() > kMostMessages)
        throw usage_error(std::to_string(messages.size()) + " messages; one transfer takes " +
                          std::to_string(kMostMessages));
    return messages;
}

} // namespace tool
