// Transcripts: command lines with all they show, kept as text.
//
//     # A comment, kept as it is.
//     $ qeli2c get main-registers 0x10      a command line for the shell; "> " continues it
//       0xde                                what it wrote to standard output
//     ! qeli2c: cannot read ...             and to standard error
//     ? 1                                   its exit status, unless 0
//
// Lines for the board begin with a colon; "  # " and what follows is a comment:
//
//     $ :board FILE [SPEED]                 another board; the reference board otherwise
//     $ :board TEXT                         one whose description stands here
//     $ :chip TEXT                          one with only this device, on bus 0
//     $ :shell                              no board of this test: a directory with room for some,
//                                           "env" of which is read before each command
//     $ :poke DEVICE OFFSET BYTE...         :peek DEVICE OFFSET COUNT
//     $ :stimulus DEVICE NAME [VALUE]       :pin DEVICE PIN LEVEL
//     $ :4/0x50 12 34 r2                    a request of this process (requests.h)
//     $ :wire BUS                           every message since the last :reset, which
//                                           puts the board back to power-on
//     $ :transfers                          how many since the last :reset
//     $ :wrongs                             what the judge has found, then :reset
//     $ :shape COMMAND...                   JSON is checked against its schema, but not shown
//     $ :answer ANSWER COMMAND...           on a terminal, ANSWER typed at "[y/N]"
#ifndef TESTS_TOOL_TRANSCRIPT_H
#define TESTS_TOOL_TRANSCRIPT_H

#include <string>
#include <utility>
#include <vector>

struct Played {
    std::string text;                                      // the transcript as it is now
    std::vector<std::pair<std::string, std::string>> json; // command lines and their JSON
    std::string wrongs;                                    // what the judge found
};

Played play(const std::string &transcript, const std::string &directory);

#endif
