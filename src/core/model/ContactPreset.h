#pragma once

#include <QList>
#include <QString>
#include <QtGlobal>

// A named group of recipients, as contact row numbers in the order they were chosen.
struct ContactPreset {
    QString name;
    QList<qint64> contactThreadList;

    friend bool operator==(const ContactPreset&, const ContactPreset&) = default;
};
