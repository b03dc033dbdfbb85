#include "CliMessages.h"

#include <QJsonDocument>
#include <QStringList>

#include "CliConsole.h"

using namespace Qt::Literals::StringLiterals;

const QString CliMessages::kPrefix = u"nivogx-cli: "_s;

void CliMessages::alert(const QString& message, const QString& detail) {
    if (m_json) {
        QJsonObject failure{{u"error"_s, message}};
        if (!detail.isEmpty()) {
            failure.insert(u"detail"_s, detail);
        }
        m_console.out() << jsonLine(failure) << Qt::endl;
        return;
    }
    warn(message);
    warn(detail);
}

void CliMessages::done(const QString& text, const QJsonObject& object) {
    m_console.out() << (m_json ? jsonLine(object) : text) << Qt::endl;
}

void CliMessages::warn(const QString& message) {
    for (const QString& line : message.split(u'\n', Qt::SkipEmptyParts)) {
        m_console.err() << kPrefix << line << Qt::endl;
    }
}

void CliMessages::usageError(const QString& message, const QString& usage) {
    m_console.err() << kPrefix << message << Qt::endl;
    if (!usage.isEmpty()) {
        m_console.err() << usage << Qt::flush;
    }
}

QString CliMessages::jsonLine(const QJsonObject& object) {
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}
