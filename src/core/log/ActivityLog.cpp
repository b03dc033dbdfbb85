#include "log/ActivityLog.h"

#include <QDesktopServices>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QUrl>
#include <array>

#include "log/VisibleText.h"
#include "log/XRFileReader.h"
#include "platform/AtomicFile.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kFieldSeparator = u" | "_s;
const QString kRecipientSeparator = u","_s;
const QString kDateFormat = u"yyyy-MMM-dd"_s;
const QString kTimeFormat = u"HH:mm:ss"_s;
constexpr qsizetype kFieldCount = 6;

constexpr QFileDevice::Permissions kLogPermissions =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner;

}  // namespace

QString ActivityLog::formatLine(const QDateTime& when, const QString& operationType,
                                const QString& filePath, const QStringList& recipients,
                                const QString& status) {
    const QLocale locale;
    const QString date = locale.toString(when, kDateFormat);
    const QString time = locale.toString(when, kTimeFormat);
    // One event is one line, whatever its fields hold.
    QStringList names;
    names.reserve(recipients.size());
    for (const QString& name : recipients) {
        names.append(VisibleText::of(name));
    }
    return date + kFieldSeparator + time + kFieldSeparator + VisibleText::of(operationType) +
           kFieldSeparator + VisibleText::of(filePath) + kFieldSeparator +
           names.join(kRecipientSeparator) + kFieldSeparator + VisibleText::of(status) + u'\n';
}

void ActivityLog::writeToLog(const QString& operationType, const QString& filePath,
                             const QStringList& recipients, const QString& status) const {
    const QByteArray line =
        formatLine(QDateTime::currentDateTime(), operationType, filePath, recipients, status)
            .toUtf8();
    QFile file(m_path);
    // Append mode keeps lines of concurrent writers whole; a file that cannot be opened loses
    // this one line and nothing else.
    if (file.open(QIODevice::WriteOnly | QIODevice::Append, kLogPermissions)) {
        file.write(line);
    }
}

QList<LogEntry> ActivityLog::getLogEntries() const {
    QList<LogEntry> entries;
    if (!QFileInfo::exists(m_path)) {
        return entries;
    }
    const std::unique_ptr<XRFileReader> reader = XRFileReader::initWithFilePath(m_path);
    if (!reader) {
        return entries;
    }
    reader->enumerateLinesUsingBlock([&entries](const QString& line, bool&) {
        // The pieces between the separators, as splitting at each would give; a line with more
        // or fewer than six is skipped.
        std::array<QStringView, kFieldCount> fields;
        qsizetype count = 0;
        qsizetype from = 0;
        while (count < kFieldCount) {
            const qsizetype at = line.indexOf(kFieldSeparator, from);
            fields[static_cast<std::size_t>(count++)] =
                QStringView(line).sliced(from, (at < 0 ? line.size() : at) - from);
            if (at < 0) {
                break;
            }
            from = at + kFieldSeparator.size();
            if (count == kFieldCount) {
                return;  // a seventh piece follows
            }
        }
        if (count == kFieldCount) {
            entries.append({fields[0].toString(), fields[1].toString(), fields[2].toString(),
                            fields[3].toString(), fields[4].toString(), fields[5].toString()});
        }
    });
    return entries;
}

void ActivityLog::viewLog() const {
    if (QFileInfo::exists(m_path)) {
        QDesktopServices::openUrl(QUrl::fromLocalFile(m_path));
    }
}

bool ActivityLog::exportLogFile(const QString& destination, QString* error) const {
    // A failed copy keeps whatever the user had under that name.
    return QFileInfo::exists(m_path) && AtomicFile::copy(m_path, destination, error);
}

void ActivityLog::clearLogFile() const {
    QFile::remove(m_path);
}
