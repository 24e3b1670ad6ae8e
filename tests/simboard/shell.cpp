// Running shell commands in tests.
#include "shell.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace files = std::filesystem;

namespace
{

std::string read_file(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

} // namespace

Shell::Shell()
{
    char path[] = "/dev/shm/qeli2c-test-XXXXXX";
    directory_ = mkdtemp(path);
    files::create_directory(directory_ + "/boards");
    files::permissions(directory_ + "/boards", files::perms::owner_all);
    files::create_directory(directory_ + "/bin");
    files::create_symlink(SIMBOARD_PROBE, directory_ + "/bin/probe");
    for (const char *name : {"LD_PRELOAD", "QELI2C_SIM", "QELI2C_BOARD"}) {
        unsetenv(name);
    }
    setenv("QELI2C_SIM_DIR", (directory_ + "/boards").c_str(), 1);
    const std::string programs = files::path(QELI2C_SIM_PROGRAM).parent_path();
    setenv("PATH",
           (directory_ + "/bin:" + programs + ":" I2C_TOOLS_DIRECTORY ":/usr/bin:/bin").c_str(), 1);
}

Shell::~Shell()
{
    EXPECT_FALSE(has_boards());
    files::remove_all(directory_);
}

Finished Shell::run(const std::string &command) const
{
    const std::string out = directory_ + "/out";
    const std::string err = directory_ + "/err";
    const std::string script = write_file("script", command);
    const int status =
        std::system(("/bin/sh " + script + " </dev/null >" + out + " 2>" + err).c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), read_file(out),
            read_file(err)};
}

std::string Shell::write_file(const std::string &name, const std::string &text) const
{
    const std::string path = directory_ + "/" + name;
    std::ofstream(path) << text;
    return path;
}

bool Shell::has_boards() const
{
    return !files::is_empty(directory_ + "/boards");
}
