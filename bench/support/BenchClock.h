#pragma once

#include <QString>
#include <QtGlobal>
#include <functional>

// Times one operation over several runs. Each run is timed on its own; the median says what a
// user typically waits, the fastest what the code costs when nothing else gets in the way.
class BenchClock {
public:
    struct Timing {
        double medianMs = 0;
        double bestMs = 0;
        qsizetype items = 0;  // what the last run answered (rows, entries, matches)
        int runs = 0;
    };

    // Runs that together take longer than this end the series early: one slow operation must
    // not hold up the rest for minutes.
    static constexpr double kBudgetMs = 5'000;

    // Up to `runs` runs, at least one. `prepare` runs before every timed run, outside the timing
    // (to rebuild what a run uses up).
    [[nodiscard]] static Timing time(int runs, const std::function<qsizetype()>& run,
                                     const std::function<void()>& prepare = {});

    // "median 12.3 ms, best 11.9 ms (100000 items, 5 runs)".
    [[nodiscard]] static QString describe(const Timing& timing);
};
