// What a case asks to be done to the machine from outside, and what is seen there:
//
//     :pins pins-near a5                       levels at the pins of an expander
//     :property monitor-near temperature 25500 a property of a device
//     :machine readl 0xb8210000                a command of QEMU's qtest protocol
//     :mark-owners                             fills the owner table with words of no process
//     :user 2 14                               a process of its own reads on these buses
//     :owners                                  the buses whose owner has changed since, each with
//                                              "me" or the number of that process
#ifndef QELI2C_BOARD_OUTSIDE_H
#define QELI2C_BOARD_OUTSIDE_H

#include <optional>
#include <string>

namespace board
{

// What such a line gives; nothing for other lines.
std::optional<std::string> outside_line(const std::string &line);

} // namespace board

#endif
