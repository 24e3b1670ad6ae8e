// Cases: files of them in /cases, each a transcript of commands and of what they printed.
//
//     == transfer/byte/one-switch 30    a case, and its time limit in seconds unless that is 60
//     # why it is here
//     $ qeli2c get pins-near 2          a command of the board's shell
//       0xff                            standard output and standard error
//     ? 1                               exit status, when it is not 0
//     $ :i2cRead 3/0x50 2 0x10 4        what this program does itself: see calls.h, play.cpp and
//                                       tool/requests.h
//
// Lines before a file's first case are played before each of its cases.
#ifndef QELI2C_BOARD_PLAY_H
#define QELI2C_BOARD_PLAY_H

#include <string>
#include <vector>

namespace board
{

using Lines = std::vector<std::string>;

struct Case {
    std::string file; // without its ending
    std::string name;
    unsigned seconds;
    Lines before;
    Lines lines; // with the one that names it
};

// In the order of the files' names.
std::vector<Case> read_cases();

// The case as it went: the same lines when all is well.
std::string play(const Case &one);

} // namespace board

#endif
