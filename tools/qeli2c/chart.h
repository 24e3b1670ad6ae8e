// Values over time, drawn with characters.
#ifndef QELI2C_CHART_H
#define QELI2C_CHART_H

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

namespace tool
{

// The newest values at the right, `rows` lines of `columns` columns; scaled from `low` to `high`.
// Eighths of a line where `utf8` says that the terminal can show them.
std::vector<std::string> draw_chart(const std::deque<double> &values, double low, double high,
                                    size_t columns, size_t rows, bool utf8);

} // namespace tool

#endif
