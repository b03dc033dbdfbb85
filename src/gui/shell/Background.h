#pragma once

#include <QFutureWatcher>
#include <QObject>
#include <QtConcurrent>
#include <type_traits>
#include <utility>

// Runs blocking work (a server request) on the global thread pool and hands its result to
// `done` on the thread of `context`, the window that asked. Nothing arrives after the window is
// gone: the watcher is its child.
template <typename Work, typename Done>
void runInBackground(QObject* context, Work work, Done done) {
    using Result = std::invoke_result_t<Work>;
    auto* watcher = new QFutureWatcher<Result>(context);
    QObject::connect(watcher, &QFutureWatcher<Result>::finished, context,
                     [watcher, done = std::move(done)] {
                         watcher->deleteLater();
                         done(watcher->result());
                     });
    watcher->setFuture(QtConcurrent::run(std::move(work)));
}
