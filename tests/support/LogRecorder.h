#pragma once

#include <QString>
#include <QStringList>
#include <QtGlobal>

// Records every Qt log message of one category while alive.
class LogRecorder {
public:
    explicit LogRecorder(QString category);
    ~LogRecorder();
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    [[nodiscard]] const QStringList& lines() const { return m_lines; }
    void clear() { m_lines.clear(); }

private:
    static void handler(QtMsgType type, const QMessageLogContext& context, const QString& message);

    QString m_category;
    QStringList m_lines;
    QtMessageHandler m_previous = nullptr;
};
