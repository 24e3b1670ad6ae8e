// Transcripts: calls of the library with every request, lock, check and log line that they cause.
//
//     == Title                       a case
//     # A comment, kept as it is.
//     $ ei2c_rdwr_xfer 3/50 50r2 1   a call (call.h) on a bus and a device in use
//     $$ ei2c_rdwr_xfer 16/50 ...    the same with nothing made ready
//     < I2C_RDWR#2 -5 EIO 12ab       the second such request of it gives -5, EIO and two bytes;
//                                    "#2-3", "#*": several, with results and errnos all different;
//                                    "ok": the usual result
//     < I2C_RDWR meanwhile CALL      what another thread does during the request
//     < memory#2                     the second allocation fails
//     < mutex                        the next mutex cannot be locked
//       ...                          what happened, in its shorter form (folds.txt)
//     = -5 EIO 12ab                  the result, errno when negative, and each output
//
// The bytes of outputs are 0xee before, unless the call says otherwise. QELI2C_RECORD=1 writes what
// happens into the files.
#include "tests/calls/call.h"
#include "tests/calls/notation.h"
#include "tests/unit/scripted_kernel.h"

#include <cctype>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>

namespace
{

using notation::number_of;

struct File {
    std::string name;
    const char *text;
};
const File files[] = {
#include "transcripts.inc"
};

const std::vector<notation::Fold> &folds()
{
    static const std::vector<notation::Fold> all = [] {
        for (const File &file : files)
            if (file.name == "folds")
                return notation::folds_of(file.text);
        throw std::logic_error("no folds");
    }();
    return all;
}

void nothing(const ei2c_client &) {}

void warm_up(const ei2c_client &client)
{
    scripted::warm_up(client.bus);
    if (client.addr != 0)
        ui2c_to_client(client.bus, client.addr, client.swi_addr, client.swi_chnl);
}

// Adds what a line that begins with "<" asks for.
void add_answer(std::vector<scripted::Answer> &answers, const std::string &line)
{
    std::istringstream words(line);
    std::string request, result, error, reply;
    words >> request >> result;
    scripted::Answer answer;
    const size_t number = request.find('#');
    answer.text = request.substr(0, number);
    if (number != std::string::npos && request.substr(number) == "#*") {
        answer.last = UINT32_MAX;
    } else if (number != std::string::npos) {
        const auto ends = notation::split(request.substr(number + 1), '-');
        answer.first = static_cast<unsigned>(number_of(ends.at(0)));
        answer.last = static_cast<unsigned>(number_of(ends.back()));
    }
    if (request == "mutex")
        return scripted::fail_next_mutex_lock();
    if (answer.text == "memory")
        return scripted::fail_allocation(answer.first);
    if (result == "meanwhile") {
        std::getline(words >> std::ws, reply);
        answer.meanwhile = [call = call_of(reply, nothing)] { call.run(); };
        answers.push_back(answer);
        return;
    }
    if (result != "ok")
        answer.result = static_cast<int>(number_of(result));
    words >> error;
    if (!error.empty() && isupper(error[0]) != 0) {
        answer.error = notation::error_of(error);
        error.clear();
        words >> error;
    }
    if (!error.empty())
        answer.reply = notation::bytes_of(error);
    if (words >> error)
        throw std::invalid_argument("too many words: " + line);
    answers.push_back(answer);
}

std::string made(const std::string &line, const std::vector<std::string> &given)
{
    const bool warm = line.starts_with("$ ");
    if (warm)
        scripted::observe({}, ee_eeprom_semid);
    const Call call = call_of(line.substr(line.find(' ') + 1), warm ? warm_up : nothing);
    std::vector<scripted::Answer> answers;
    for (const std::string &answer : given)
        add_answer(answers, answer.substr(2));
    scripted::begin(answers);
    errno = 0;
    const std::string result = call.run();
    const int error = errno;
    std::string text;
    for (const std::string &event : notation::folded(scripted::end(), folds()))
        text += "  " + event + "\n";
    text += "= " + result;
    if (result.starts_with('-') && error != 0)
        text += " " + notation::name_of(error);
    text += outputs_of(call);
    if (warm && scripted::allocations() != 0)
        text += notation::printed(" (allocates %u)", scripted::allocations());
    if (warm && scripted::unreleased() != 0)
        text += notation::printed(" %d blocks not freed", scripted::unreleased());
    return text + "\n";
}

// The case as it is now.
std::string played(const std::string &text)
{
    std::string now;
    const auto lines = notation::split(text, '\n');
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string &line = lines[i];
        if (line.starts_with("  ") || line.starts_with("= "))
            continue;
        now += line + "\n";
        if (!line.starts_with("$")) {
            if (!line.empty() && !line.starts_with("#") && !line.starts_with("== "))
                throw std::invalid_argument("no such line: " + line);
            continue;
        }
        std::vector<std::string> answers;
        for (; i + 1 < lines.size() && lines[i + 1].starts_with("< "); ++i)
            answers.push_back(lines[i + 1]);
        for (const std::string &answer : answers)
            now += answer + "\n";
        try {
            now += made(line, answers);
        } catch (const std::exception &error) {
            throw std::invalid_argument(line + ": " + error.what());
        }
    }
    return now;
}

void record(const File &file, const std::string &text, const std::string &now)
{
    const std::string path = std::string(QELI2C_TRANSCRIPTS "/") + file.name + ".txt";
    std::stringstream all;
    all << std::ifstream(path).rdbuf();
    std::string whole = all.str();
    whole.replace(whole.find(text), text.size(), now);
    std::ofstream(path) << whole;
}

class Case : public testing::Test
{
public:
    Case(const File &file, std::string text) : file_(file), text_(std::move(text)) {}
    void TestBody() override
    {
        // First uses happen once in a process, so each has one of its own.
        if (file_.name != "first_use_in_process")
            return play();
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        const auto alone = [this] {
            play();
            exit(HasFailure() ? 1 : 0);
        };
        EXPECT_EXIT(alone(), testing::ExitedWithCode(0), "");
    }

private:
    void play()
    {
        const std::string now = played(text_);
        if (getenv("QELI2C_RECORD") != nullptr)
            record(file_, text_, now);
        else
            EXPECT_EQ(text_, now);
    }
    File file_;
    std::string text_;
};

std::string as_name(const std::string &words)
{
    std::string name;
    bool starts = true;
    for (const char c : words) {
        if (isalnum(c) != 0)
            name += static_cast<char>(starts ? toupper(c) : c);
        starts = isalnum(c) == 0;
    }
    return name;
}

} // namespace

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    for (const File &file : files) {
        const std::string all = file.text;
        for (size_t from = all.find("== "); file.name != "folds" && from != std::string::npos;) {
            const size_t next = all.find("\n== ", from);
            const std::string text =
                all.substr(from, next == std::string::npos ? next : next + 1 - from);
            const std::string title = text.substr(3, text.find('\n') - 3);
            testing::RegisterTest(as_name(file.name).c_str(), as_name(title).c_str(), nullptr,
                                  nullptr, __FILE__, __LINE__,
                                  [=]() -> Case * { return new Case(file, text); });
            from = next == std::string::npos ? next : next + 1;
        }
    }
    return RUN_ALL_TESTS();
}
