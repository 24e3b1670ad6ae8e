// Every transcript shows what it shows, its JSON has the documented shape, and the board's judge
// has nothing to say. QELI2C_RECORD=1 writes the transcripts anew instead of comparing them.
#include "command.h"
#include "transcript.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <unistd.h>

namespace
{

std::vector<std::string> transcripts()
{
    std::vector<std::string> names;
    for (const char *const of : {"/tool", "/simboard"})
        for (const auto &entry :
             std::filesystem::directory_iterator(QELI2C_TESTS + std::string(of) + "/transcripts"))
            if (entry.path().extension() == ".txt")
                names.push_back(of + ("/transcripts/" + entry.path().stem().string()));
    std::sort(names.begin(), names.end());
    return names;
}

std::string content_of(const std::string &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// What the script finds wrong with the shape of the results; empty when they are as documented.
std::string check_shapes(const Played &played)
{
    const std::string path = "/tmp/qeli2c-shapes-" + std::to_string(getpid());
    std::ofstream file(path);
    for (const auto &[line, json] : played.json)
        file << "$ " << line << "\n" << json << "\n";
    file.close();
    const Ended ended =
        run("env -u LD_PRELOAD python3 " QELI2C_TESTS "/tool/check_shapes.py " QELI2C_SCHEMA " " +
            path);
    unlink(path.c_str());
    return ended.status == 0 ? "" : ended.out + ended.err + "(status not 0)";
}

class Transcript : public testing::TestWithParam<std::string>
{
};

TEST_P(Transcript, ShowsTheSameAgain)
{
    const std::string path = QELI2C_TESTS + GetParam() + ".txt";
    const std::string kept = content_of(path);
    // Only the programs under test are linked with the board; others find it by the preloaded shim.
    for (const char *const others : {"i2c-tools", "$ :shell"})
        if (!*QELI2C_TEST_PRELOAD && kept.find(others) != std::string::npos)
            GTEST_SKIP() << "needs programs of others on the board";
    const Played played = play(kept, path.substr(0, path.rfind('/')));
    EXPECT_EQ(played.wrongs, "");
    EXPECT_EQ(played.json.empty() ? "" : check_shapes(played), "");
    if (std::getenv("QELI2C_RECORD"))
        std::ofstream(path) << played.text;
    else
        EXPECT_EQ(played.text, kept);
}

INSTANTIATE_TEST_SUITE_P(Tool, Transcript, testing::ValuesIn(transcripts()), [](const auto &test) {
    const std::string &name = test.param;
    return name.substr(name.rfind('/') + 1);
});

} // namespace
