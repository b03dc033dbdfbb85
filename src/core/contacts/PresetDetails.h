#pragma once

#include <QString>

// One stored preset without its members.
struct PresetDetails {
    int presetID = 0;
    QString name;

    friend bool operator==(const PresetDetails&, const PresetDetails&) = default;
};
