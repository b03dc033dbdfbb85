#include "crypto/toolkit/TVXRandom.h"

#include <QRandomGenerator>

QByteArray TVXRandom::randomDataWithLength(qsizetype length) {
    QByteArray bytes;
    if (length <= 0) {
        return bytes;
    }
    bytes.reserve(length);
    QRandomGenerator* generator = QRandomGenerator::system();
    for (qsizetype i = 0; i < length; ++i) {
        bytes.append(static_cast<char>(generator->generate() & 0xFFU));
    }
    return bytes;
}
