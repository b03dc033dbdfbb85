#pragma once

#include <QString>

// Where the save panel of one kind of export starts: the folder the last export of that kind
// went to in this session, at first the user's documents folder. Each panel keeps its own.
class ExportFolder {
public:
    [[nodiscard]] QString start() const;
    // The path chosen in the panel; its folder is where the next panel starts.
    void remember(const QString& chosenPath);

private:
    QString m_last;
};
