#pragma once

#include <QByteArray>
#include <QString>

// Byte buffers as upper-case hexadecimal, for logs and diagnostics.
class Hex {
public:
    Hex() = delete;

    // Two digits per byte. With `withSpaces`, a space after every fourth byte and a line break
    // instead after every sixteenth, the last byte included.
    [[nodiscard]] static QString hexRepresentationWithSpaces_AS(const QByteArray& bytes,
                                                                bool withSpaces);
};
