#include "BenchClock.h"

#include <QElapsedTimer>
#include <algorithm>
#include <vector>

using namespace Qt::Literals::StringLiterals;

BenchClock::Timing BenchClock::time(int runs, const std::function<qsizetype()>& run,
                                    const std::function<void()>& prepare) {
    std::vector<double> times;
    Timing timing;
    double spentMs = 0;
    while (times.empty() || (std::ssize(times) < runs && spentMs < kBudgetMs)) {
        if (prepare) {
            prepare();
        }
        QElapsedTimer timer;
        timer.start();
        timing.items = run();
        times.push_back(static_cast<double>(timer.nsecsElapsed()) / 1e6);
        spentMs += times.back();
    }
    timing.runs = static_cast<int>(times.size());
    std::sort(times.begin(), times.end());
    timing.medianMs = times[times.size() / 2];
    timing.bestMs = times.front();
    return timing;
}

QString BenchClock::describe(const Timing& timing) {
    return u"median %1 ms, best %2 ms (%3 items, %4 runs)"_s
        .arg(QString::number(timing.medianMs, 'f', 1), QString::number(timing.bestMs, 'f', 1))
        .arg(timing.items)
        .arg(timing.runs);
}
