#pragma once

#include <QByteArray>

// Random bytes from the system's cryptographic generator.
class TVXRandom {
public:
    TVXRandom() = delete;

    // `length` bytes, each the low 8 bits of its own draw; empty for 0 or less.
    [[nodiscard]] static QByteArray randomDataWithLength(qsizetype length);
};
