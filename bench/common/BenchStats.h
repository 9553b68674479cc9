// Figures of the benchmarks: each is measured in several interleaved rounds
// and reported as the median with its range, so that one disturbance of a
// shared machine moves neither the figure nor the verdict. Memory is the
// peak resident size (VmHWM), which can be reset between figures.
//
// Lines starting with "TABLE|" are collected by bench/run.sh into the
// summary table: "TABLE|figure|median|low|high|unit|peak|goal".
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace bench {

const int kRounds = 5;

struct Figure {
    std::vector<double> values;
    long peak = 0; // KiB: the largest peak resident size its own code reached, 0 if none

    void add(double value) { values.push_back(value); }
    void notePeak(long kib) { peak = std::max(peak, kib); }
    double median() const
    {
        if (values.empty())
            return 0;
        std::vector<double> sorted = values;
        std::sort(sorted.begin(), sorted.end());
        const size_t n = sorted.size();
        return n % 2 ? sorted[n / 2] : (sorted[n / 2 - 1] + sorted[n / 2]) / 2;
    }
    double low() const
    {
        return values.empty() ? 0 : *std::min_element(values.begin(), values.end());
    }
    double high() const
    {
        return values.empty() ? 0 : *std::max_element(values.begin(), values.end());
    }
};

// A field of /proc/self/status in KiB ("VmHWM", "VmRSS"); 0 where there is none.
inline long statusKiB(const char *field)
{
    std::ifstream status("/proc/self/status");
    std::string line;
    const size_t length = std::strlen(field);
    while (std::getline(status, line))
        if (line.compare(0, length, field) == 0 && line.size() > length && line[length] == ':')
            return std::stol(line.substr(length + 1));
    return 0;
}

inline long peakKiB() { return statusKiB("VmHWM"); }
inline long residentKiB() { return statusKiB("VmRSS"); }

// Starts a new peak at the present resident size.
inline void resetPeak()
{
    std::ofstream clear("/proc/self/clear_refs");
    clear << "5";
}

// "name: median unit (range low .. high) peak goal"; with summary also the
// line for the summary table.
inline void report(const char *name, const Figure &f, const char *unit, const char *goal,
                   int decimals = 3, bool summary = false)
{
    char peak[32] = "";
    if (f.peak > 0)
        std::snprintf(peak, sizeof peak, "%.1f MiB", double(f.peak) / 1024.0);
    std::printf("  %-46s %9.*f %-7s (range %.*f .. %.*f, %zu rounds)%s%s%s%s\n", name, decimals,
                f.median(), unit, decimals, f.low(), decimals, f.high(), f.values.size(),
                *peak ? "  peak " : "", peak, *goal ? "  goal " : "", goal);
    if (summary)
        std::printf("TABLE|%s|%.*f|%.*f|%.*f|%s|%s|%s\n", name, decimals, f.median(), decimals,
                    f.low(), decimals, f.high(), unit, peak, goal);
}

} // namespace bench
