#include "shell/ExportFolder.h"

#include <QFileInfo>
#include <QStandardPaths>

QString ExportFolder::start() const {
    if (!m_last.isEmpty()) {
        return m_last;
    }
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    return QFileInfo(documents).isDir() ? documents : QString();
}

void ExportFolder::remember(const QString& chosenPath) {
    m_last = QFileInfo(chosenPath).path();
}
