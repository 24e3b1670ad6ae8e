// Charts of columns.
#include "chart.h"

#include <algorithm>
#include <cmath>

namespace tool
{

namespace
{

constexpr int kSteps = 8; // of a line

constexpr const char *kBlocks[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr const char *kPlain[] = {" ", ".", ".", ".", ":", ":", ":", "#", "#"};

const char *filled(int steps, bool utf8)
{
    const int level = std::clamp<int>(steps, 0, kSteps);
    return utf8 ? kBlocks[level] : kPlain[level];
}

} // namespace

std::vector<std::string> draw_chart(const std::deque<double> &values, double low, double high,
                                    size_t columns, size_t rows, bool utf8)
{
    const double span = high > low ? high - low : 1;
    const auto whole = static_cast<double>(rows) * kSteps;
    const size_t shown = std::min(values.size(), columns);
    std::vector<std::string> lines(rows, std::string(columns - shown, ' '));
    for (size_t i = values.size() - shown; i < values.size(); i++) {
        // Never nothing, so that a low value differs from none.
        const double part = std::clamp((values[i] - low) / span, 0.0, 1.0);
        const int steps = std::max(1, static_cast<int>(std::lround(part * whole)));
        for (size_t row = 0; row < rows; row++)
            lines[row] += filled(steps - static_cast<int>(rows - 1 - row) * kSteps, utf8);
    }
    return lines;
}

} // namespace tool
