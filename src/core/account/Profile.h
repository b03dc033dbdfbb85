#pragma once

#include <QJsonValue>

// One account server answer as it came from the JSON codec: only its "Pfx" member, unconverted.
struct Profile {
    QJsonValue Pfx;
};
