#pragma once

#include <QString>
#include <QStringView>

// The temporary files that AtomicFile writes into while they have a name:
// ".<name>.nivogx-XXXXXXXX.part", hidden, and unlike anything a person or another program names a
// file, so that clearing stale ones can never take a file that is not ours. Their writer holds an
// advisory lock on them for as long as it lives.
class TemporaryFiles {
public:
    // A new name for a temporary file beside `path` (random, so it may need trying again).
    [[nodiscard]] static QString nameBeside(const QString& path);
    // Whether `fileName` (no folder) has the form of these names.
    [[nodiscard]] static bool isTemporaryName(QStringView fileName);
    // Removes the temporary files in `folder` (not below it) whose writer is gone: those left by
    // a process that was killed or crashed. Files of other names and temporaries still being
    // written are never touched. Returns how many were removed.
    static int removeStale(const QString& folder);
};
