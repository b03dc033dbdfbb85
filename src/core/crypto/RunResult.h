#pragma once

#include <QString>

#include "crypto/SenderVerdict.h"

// How a run over one file ended: whatever went wrong on the way is told here, never thrown.
struct RunResult {
    enum class Status {
        Success,
        Failed,
        Cancelled,  // its progress callback asked it to stop
    };

    Status status = Status::Success;
    // Who signed an opened file, on success; no name otherwise and for encryption.
    SenderVerdict sender;
    // The text to show for the file; "" on success.
    QString detail;
    // Where the output went, on success; "" when it went nowhere (handed over, or a failure).
    QString placedPath;

    [[nodiscard]] bool succeeded() const noexcept { return status == Status::Success; }
};
