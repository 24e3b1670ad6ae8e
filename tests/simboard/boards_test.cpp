// Boards beside each other, and what is left of them afterwards.
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/sem.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>

#include "child.h"
#include "device.h"
#include "simboard/board.h"
#include "simboard/testing.h"

namespace
{

using simboard::testing::Board;
using simboard::testing::reference_board;
namespace files = std::filesystem;

// A directory of this test's own for boards, as $QELI2C_SIM_DIR.
class BoardsDirectory
{
public:
    BoardsDirectory()
    {
        char path[] = "/dev/shm/qeli2c-test-XXXXXX";
        path_ = mkdtemp(path);
        setenv("QELI2C_SIM_DIR", path_.c_str(), 1);
    }
    ~BoardsDirectory()
    {
        unsetenv("QELI2C_SIM_DIR");
        files::remove_all(path_);
    }
    const std::string &path() const { return path_; }
    bool is_empty() const { return files::is_empty(path_); }

private:
    std::string path_;
};

uint32_t semaphore_base(Board &board)
{
    return board.view().state->header.semaphore_base;
}

TEST(TwoBoards, DoNotMeetInDevicesNorSemaphores)
{
    Board first(reference_board());
    const Device on_first(7);
    const int first_semaphore = semget(0x3067, 1, IPC_CREAT | 0600);
    {
        Board second(reference_board());
        const Device on_second(7);
        EXPECT_EQ(on_second.write(0x30, {0, 2}), 1);
        EXPECT_EQ(on_first.write(0x30, {0, 1}), 1); // the descriptor stays with its board
        EXPECT_EQ(first.peek("scratch-registers"), 1);
        EXPECT_EQ(second.peek("scratch-registers"), 2);
        EXPECT_EQ(second.totals().transfers, 1U);
        EXPECT_EQ(semget(0x3067, 0, 0), -1);
        const int second_semaphore = semget(0x3067, 1, IPC_CREAT | 0600);
        EXPECT_GE(second_semaphore, 0);
        EXPECT_NE(second_semaphore, first_semaphore);
    }
    EXPECT_EQ(semget(0x3067, 0, 0), first_semaphore);
    EXPECT_EQ(on_first.write(0x30, {0, 3}), 1);
}

TEST(DeletedBoard, LeavesNoFileAndNoSemaphore)
{
    const BoardsDirectory directory;
    auto board = std::make_unique<Board>(reference_board());
    const uint32_t base = semaphore_base(*board);
    for (const key_t key : {0x3060, 0x306f, 0x3001}) {
        ASSERT_GE(semget(key, 1, IPC_CREAT | 0600), 0);
    }
    EXPECT_GE(semget(static_cast<key_t>(base), 0, 0), 0);
    EXPECT_FALSE(directory.is_empty());
    board.reset();
    EXPECT_TRUE(directory.is_empty());
    for (uint32_t i = 0; i < simboard::kSemaphoreKeys; i++) {
        EXPECT_EQ(semget(static_cast<key_t>(base + i), 0, 0), -1);
    }
}

TEST(AbandonedBoard, IsSweptByTheNextOne)
{
    const BoardsDirectory directory;
    Child maker([] {
        new Board(reference_board()); // never deleted
        return semget(0x3060, 1, IPC_CREAT | 0600) >= 0;
    });
    ASSERT_TRUE(maker.wait_ready());
    const auto listed = simboard::list_boards();
    ASSERT_EQ(listed.size(), 1U);
    auto view = simboard::open_board(listed[0].directory);
    const key_t key = static_cast<key_t>(view.state->header.semaphore_base);
    simboard::close_board(view);

    simboard::sweep_boards();
    EXPECT_EQ(simboard::list_boards().size(), 1U); // its maker lives
    EXPECT_GE(semget(key, 0, 0), 0);
    maker.kill_and_reap();
    simboard::sweep_boards();
    EXPECT_TRUE(directory.is_empty());
    EXPECT_EQ(semget(key, 0, 0), -1);
}

TEST(NewBoard, NeedsAPrivateDirectory)
{
    const BoardsDirectory directory;
    chmod(directory.path().c_str(), 0750);
    EXPECT_THROW(Board{reference_board()}, std::runtime_error);
    chmod(directory.path().c_str(), 0700);
    {
        Board board(reference_board());
        struct stat status;
        ASSERT_EQ(stat(board.directory().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0700U);
        chmod(board.directory().c_str(), 0770);
        EXPECT_EQ(open("/dev/i2c-0", O_RDWR), -1);
        EXPECT_EQ(errno, ENODEV);
        chmod(board.directory().c_str(), 0700);
    }
    EXPECT_TRUE(directory.is_empty());
}

TEST(NewBoard, NamesAreUniqueAndPlain)
{
    const BoardsDirectory directory;
    std::string text;
    ASSERT_TRUE(simboard::read_text_file(reference_board(), text));
    std::vector<simboard::DescriptionError> errors;
    const auto description = simboard::parse_board_description(text, errors);
    simboard::BoardOptions options;
    options.name = "bench";
    const auto board = simboard::create_board(description, text, options);
    EXPECT_THROW(simboard::create_board(description, text, options), std::runtime_error);
    for (const char *name : {"../bench", "a b", "-x", "run-abc"}) {
        options.name = name;
        EXPECT_THROW(simboard::create_board(description, text, options), std::runtime_error)
            << name;
    }
    ASSERT_EQ(simboard::list_boards().size(), 1U);
    EXPECT_EQ(simboard::list_boards()[0].name, "bench");
    simboard::sweep_boards();
    EXPECT_FALSE(directory.is_empty());
    simboard::delete_board(board.directory);
    EXPECT_TRUE(directory.is_empty());
}

TEST(DamagedState, IsRefused)
{
    const BoardsDirectory directory;
    const Board board(reference_board());
    files::resize_file(board.directory() + "/state", 4096);
    EXPECT_EQ(open("/dev/i2c-0", O_RDWR), -1);
    EXPECT_EQ(errno, ENODEV);
}

} // namespace
