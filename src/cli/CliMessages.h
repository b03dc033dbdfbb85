#pragma once

#include <QJsonObject>
#include <QString>

class CliConsole;

// What the tool tells on top of its results: messages on standard error, each line after the
// program's name, and with --json a failure object ({"error", "detail"}) on standard output
// instead.
class CliMessages {
public:
    // What every message on standard error starts with.
    static const QString kPrefix;

    explicit CliMessages(CliConsole& console) : m_console(console) {}

    [[nodiscard]] CliConsole& console() noexcept { return m_console; }

    // Whether the command being run has --json set.
    void setJson(bool json) noexcept { m_json = json; }
    [[nodiscard]] bool json() const noexcept { return m_json; }

    // A failure: its message and detail on standard error, or one JSON object with --json.
    void alert(const QString& message, const QString& detail);
    void say(const QString& message) { alert(message, QString()); }
    // A success: `text` on standard output, or `object` as one line of JSON with --json.
    void done(const QString& text, const QJsonObject& object);
    // A warning: on standard error after the program's name, also with --json.
    void warn(const QString& message);
    // A usage error on standard error, followed by the help when there is one.
    void usageError(const QString& message, const QString& usage);

    // `object` as one line of compact JSON.
    [[nodiscard]] static QString jsonLine(const QJsonObject& object);

private:
    CliConsole& m_console;
    bool m_json = false;
};
