// Finding duplicate keys.
#include "simboard/description_keys.h"

#include <set>

namespace simboard
{

namespace
{

// An object or a list that is open where the walk has come to.
struct Level {
    bool is_object;
    bool expects_key;
    size_t index;     // of the present element of a list
    std::string path; // of the object or list itself
    std::string key;  // of the present member of an object
    std::set<std::string> keys;
};

std::string path_here(const std::vector<Level> &levels)
{
    if (levels.empty()) {
        return "";
    }
    const Level &level = levels.back();
    if (!level.is_object) {
        return level.path + "[" + std::to_string(level.index) + "]";
    }
    return level.path.empty() ? level.key : level.path + "." + level.key;
}

// Where the string that starts at `start` ends: after its closing quote.
size_t end_of_string(const std::string &text, size_t start)
{
    size_t at = start + 1;
    while (at < text.size() && text[at] != '"') {
        at += text[at] == '\\' ? 2U : 1U;
    }
    return at + 1;
}

} // namespace

void find_duplicate_keys(const std::string &text, std::vector<DescriptionError> &errors)
{
    std::vector<Level> levels;
    unsigned line = 1;
    for (size_t at = 0; at < text.size(); at++) {
        const char c = text[at];
        Level *const level = levels.empty() ? nullptr : &levels.back();
        if (c == '\n') {
            line++;
        } else if (c == '{' || c == '[') {
            levels.push_back({c == '{', c == '{', 0, path_here(levels), {}, {}});
        } else if ((c == '}' || c == ']') && level != nullptr) {
            levels.pop_back();
        } else if (c == ',' && level != nullptr) {
            level->expects_key = level->is_object;
            level->index++;
        } else if (c == '"') {
            const size_t end = end_of_string(text, at);
            if (level != nullptr && level->expects_key) {
                level->expects_key = false;
                level->key = text.substr(at + 1, end - at - 2);
                if (!level->keys.insert(level->key).second) {
                    errors.push_back({line, path_here(levels), "is there twice"});
                }
            }
            at = end - 1;
        }
    }
}

} // namespace simboard
