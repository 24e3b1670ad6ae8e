// qeli2c power: power monitors, once or over time.
#include "chart.h"
#include "command_line.h"
#include "failure.h"
#include "interrupt.h"
#include "monitor.h"
#include "number.h"
#include "output.h"
#include "tool.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <unistd.h>

namespace tool
{

namespace
{

using Clock = std::chrono::steady_clock;

struct PowerArguments {
    std::vector<std::string> monitors;
    std::string preset, shunt, amperes;
    std::string interval = "1000", count;
    bool watch = false, csv = false;
};

struct Monitor {
    Target target;
    Calibration calibration;
    std::optional<Reading> last;
    std::string failure; // of the last reading
    std::deque<double> volts, amperes, watts;
};

constexpr size_t kHistory = 80;
constexpr size_t kTableColumns = 53; // left of the charts of several monitors

Calibration choose_calibration(const PowerArguments &arguments, const Board &board,
                               const DevicePath &path)
{
    if (!arguments.preset.empty()) {
        if (!arguments.shunt.empty() || !arguments.amperes.empty())
            throw usage_error("--preset and a description of the shunt contradict each other");
        Calibration calibration;
        if (arguments.preset != "default")
            calibration.preset =
                static_cast<uint8_t>(number_in(arguments.preset, 1, 3, "--preset"));
        return calibration;
    }
    double shunt = 0;
    if (!arguments.shunt.empty())
        shunt = number_in(arguments.shunt, 1, 100000000, "--shunt");
    else if (const simboard::DeviceDescription *known = device_at(board, path))
        if (const auto found = known->surroundings.find("shunt_uohm");
            found != known->surroundings.end())
            shunt = static_cast<double>(found->second);
    const double most =
        arguments.amperes.empty() ? 0 : number_in(arguments.amperes, 1, 100000, "--max-current");
    if (shunt == 0 && most > 0)
        throw usage_error("--max-current needs --shunt: the board file says nothing of it");
    return shunt > 0 ? calibration_for(shunt, most) : Calibration{};
}

std::vector<Monitor> choose_monitors(const PowerArguments &arguments, const Options &options)
{
    const Board &board = load_board(options.board_file);
    std::vector<Monitor> monitors;
    for (const std::string &text : arguments.monitors)
        monitors.emplace_back().target = resolve(board, text);
    if (monitors.empty())
        for (const simboard::DeviceDescription &device : board.description.devices)
            if (device.type == "tpa626")
                monitors.emplace_back().target = {path_of(board.description, device), device.name,
                                                  device.type};
    if (monitors.empty())
        throw usage_error("no monitor is named, and the board file describes none");
    for (Monitor &monitor : monitors) {
        if (!monitor.target.type.empty() && monitor.target.type != "tpa626")
            throw usage_error(to_string(monitor.target) + " is no power monitor but of type " +
                              monitor.target.type);
        monitor.calibration = choose_calibration(arguments, board, monitor.target.path);
    }
    return monitors;
}

std::string name_of(const Monitor &monitor)
{
    return monitor.target.name.empty() ? to_string(monitor.target.path) : monitor.target.name;
}

void push(std::deque<double> &history, double value)
{
    history.push_back(value);
    if (history.size() > kHistory)
        history.pop_front();
}

void read_all(std::vector<Monitor> &monitors)
{
    for (Monitor &monitor : monitors) {
        if (interrupted())
            return;
        monitor.failure.clear();
        try {
            monitor.last = read_monitor(monitor.target, monitor.calibration);
        } catch (const Failure &failure) {
            monitor.last.reset();
            monitor.failure = failure.message;
            continue;
        }
        push(monitor.volts, monitor.last->volts);
        push(monitor.amperes, monitor.last->amperes());
        push(monitor.watts, monitor.last->watts);
    }
}

std::string fixed(double value, int decimals)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

// Six digits are more than a monitor has.
double rounded(double value)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.6g", value);
    return std::strtod(text, nullptr);
}

std::string right(const std::string &text, size_t columns)
{
    return std::string(columns - std::min(columns, text.size()), ' ') + text;
}

Json::Value json_of(const std::vector<Monitor> &monitors)
{
    Json::Value json;
    json["monitors"] = Json::Value(Json::arrayValue);
    for (const Monitor &monitor : monitors) {
        Json::Value entry = json_of(monitor.target);
        if (monitor.last) {
            entry["volts"] = rounded(monitor.last->volts);
            entry["amperes"] = rounded(monitor.last->amperes());
            entry["watts"] = rounded(monitor.last->watts);
        } else {
            entry["error"] = monitor.failure;
        }
        json["monitors"].append(entry);
    }
    return json;
}

void print_table(const std::vector<Monitor> &monitors)
{
    std::printf("%-20s %10s %10s %10s\n", "monitor", "V", "A", "W");
    double sum = 0;
    for (const Monitor &monitor : monitors) {
        if (!monitor.last)
            continue;
        std::printf("%-20s %10.3f %10.3f %10.3f\n", name_of(monitor).c_str(), monitor.last->volts,
                    monitor.last->amperes(), monitor.last->watts);
        sum += monitor.last->watts;
    }
    if (monitors.size() > 1)
        std::printf("%-20s %10s %10s %10.3f\n", "all", "", "", sum);
}

void print_csv(const std::vector<Monitor> &monitors, double seconds, bool heading)
{
    if (heading)
        std::printf("seconds,monitor,volts,amperes,watts\n");
    for (const Monitor &monitor : monitors)
        if (monitor.last)
            std::printf("%.3f,%s,%.6g,%.6g,%.6g\n", seconds, name_of(monitor).c_str(),
                        monitor.last->volts, monitor.last->amperes(), monitor.last->watts);
    flush_results();
}

struct Screen {
    bool utf8 = writes_utf8();
    size_t columns = std::clamp<size_t>(terminal_columns(STDOUT_FILENO), 60, 80);
    std::string text;

    void line(const std::string &content) { text += content + "\033[K\n"; }
};

// From 0 on where the values vary much; else only where they are, so that small changes show.
void scale_of(const std::deque<double> &values, double &low, double &high)
{
    const auto [least, most] = std::minmax_element(values.begin(), values.end());
    const double span = std::max(*most - *least, *most > 0 ? 0.02 * *most : 1);
    const bool narrow = span < 0.25 * *most;
    low = narrow ? *least - span / 2 : 0;
    high = narrow ? *most + span / 2 : *most + 0.05 * span;
}

void draw_chart_of(Screen &screen, const std::deque<double> &values, const char *unit,
                   const char *code, size_t rows)
{
    if (values.empty())
        return;
    double low = 0;
    double high = 0;
    scale_of(values, low, high);
    const std::vector<std::string> lines =
        draw_chart(values, low, high, screen.columns - 12, rows, screen.utf8);
    for (size_t row = 0; row < rows; row++) {
        std::string axis(10, ' ');
        if (row == 0)
            axis = right(fixed(high, 2), 8) + " " + unit;
        else if (row + 1 == rows)
            axis = right(fixed(low, 2), 8) + " " + unit;
        screen.line(axis + (screen.utf8 ? "┤" : "|") + painted(code, lines[row]));
    }
}

void draw_one(Screen &screen, const Monitor &monitor)
{
    const struct {
        const char *what, *unit, *code;
        const std::deque<double> &values;
    } charts[] = {{"power", "W", "33", monitor.watts},
                  {"current", "A", "36", monitor.amperes},
                  {"voltage", "V", "32", monitor.volts}};
    for (const auto &chart : charts) {
        const std::string now =
            chart.values.empty() ? "-" : fixed(chart.values.back(), 3) + " " + chart.unit;
        screen.line(painted("1", chart.what) + "  " + now);
        draw_chart_of(screen, chart.values, chart.unit, chart.code, 5);
    }
}

void draw_several(Screen &screen, const std::vector<Monitor> &monitors)
{
    char text[96];
    const size_t columns = screen.columns - kTableColumns - 1;
    std::snprintf(text, sizeof text, "%-20s %9s %9s %9s   %s", "monitor", "V", "A", "W", "power");
    screen.line(painted("1", text));
    for (const Monitor &monitor : monitors) {
        if (!monitor.last) {
            std::snprintf(text, sizeof text, "%-20s %9s %9s %9s  ", name_of(monitor).c_str(), "-",
                          "-", "-");
            screen.line(text + painted("31", " no answer"));
            continue;
        }
        std::snprintf(text, sizeof text, "%-20s %9.3f %9.3f %9.3f   ", name_of(monitor).c_str(),
                      monitor.last->volts, monitor.last->amperes(), monitor.last->watts);
        double low = 0;
        double high = 0;
        scale_of(monitor.watts, low, high);
        const std::vector<std::string> chart =
            draw_chart(monitor.watts, low, high, columns, 2, screen.utf8);
        screen.line(std::string(kTableColumns, ' ') + painted("33", chart[0]));
        screen.line(text + painted("33", chart[1]));
    }
}

void draw(const std::vector<Monitor> &monitors, double seconds, uint32_t interval, bool first)
{
    Screen screen;
    screen.text = first ? "\033[2J\033[H" : "\033[H";
    const std::string title = monitors.size() == 1
                                  ? to_string(monitors[0].target)
                                  : std::to_string(monitors.size()) + " power monitors";
    screen.line(painted("1", title) + ", " + fixed(seconds, 0) + " s, every " +
                fixed(interval / 1e3, 1) + " s, Ctrl-C ends");
    screen.line("");
    if (monitors.size() == 1)
        draw_one(screen, monitors[0]);
    else
        draw_several(screen, monitors);
    for (const Monitor &monitor : monitors)
        if (!monitor.failure.empty() && monitors.size() == 1)
            screen.line(monitor.failure);
    std::cout << screen.text << "\033[J";
    flush_results();
}

// Long work shows charts to a person, and lines to a program.
void watch(std::vector<Monitor> &monitors, const PowerArguments &arguments, const Options &options)
{
    const uint32_t interval = number_in(arguments.interval, 10, 3600000, "--interval");
    const uint32_t count =
        arguments.count.empty() ? UINT32_MAX : number_in(arguments.count, 1, UINT32_MAX, "--count");
    const bool charts = !arguments.csv && !options.json && isatty(STDOUT_FILENO);
    const Clock::time_point start = Clock::now();
    for (uint32_t i = 0; i < count && !interrupted(); i++) {
        if (i > 0 && !pause_unless_interrupted(start + i * std::chrono::milliseconds(interval) -
                                               Clock::now()))
            break;
        read_all(monitors);
        const std::chrono::duration<double> passed = Clock::now() - start;
        if (charts)
            draw(monitors, passed.count(), interval, i == 0);
        else if (options.json)
            print_json_line(json_of(monitors));
        else
            print_csv(monitors, passed.count(), i == 0);
    }
}

void power(const PowerArguments &arguments, const Options &options)
{
    std::vector<Monitor> monitors = choose_monitors(arguments, options);
    if (arguments.csv && options.json)
        throw usage_error("--csv and --json contradict each other");
    defer_interrupts();
    if (arguments.watch) {
        watch(monitors, arguments, options);
        return;
    }
    read_all(monitors);
    if (options.json)
        print_json(json_of(monitors));
    else if (arguments.csv)
        print_csv(monitors, 0, true);
    else if (std::any_of(monitors.begin(), monitors.end(),
                         [](const Monitor &monitor) { return monitor.last.has_value(); }))
        print_table(monitors);
    flush_results();
    std::string failures;
    for (const Monitor &monitor : monitors)
        if (!monitor.failure.empty())
            failures += (failures.empty() ? "" : "\nqeli2c: ") + monitor.failure;
    if (!failures.empty())
        throw operation_failed(failures);
}

} // namespace

void add_power(CLI::App &app, Tool &tool)
{
    const auto [command, arguments] =
        add_command(app, tool, "power", "Show voltage, current and power of monitors",
                    "The current is power by voltage. The power register is calibrated by the\n"
                    "preset for the shunt the board file tells: default 500, 1 1000, 2 2000, 3\n"
                    "536 micro-ohms. For any other one, and with --shunt and --max-current, the\n"
                    "calibration is worked out. --watch draws charts on a terminal, and prints\n"
                    "lines of comma-separated values (or JSON) elsewhere.",
                    power);
    add_arguments(command, "MONITOR...", arguments.monitors,
                  "Paths or names; all of the board file if none", Number::any);
    add_option(command, "--preset", arguments.preset, "N", "Calibration 1, 2, 3 or default",
               {"1", "2", "3", "default"});
    add_option(command, "--shunt", arguments.shunt, "UOHM", "Shunt in micro-ohms");
    add_option(command, "--max-current", arguments.amperes, "A", "Highest current in amperes");
    add_flag(command, "--watch", arguments.watch, "Go on until Ctrl-C");
    add_option(command, "--interval", arguments.interval, "MS",
               "Milliseconds between two readings, else 1000");
    add_option(command, "--count", arguments.count, "N", "End after so many readings");
    add_flag(command, "--csv", arguments.csv, "Comma-separated values");
}

} // namespace tool
