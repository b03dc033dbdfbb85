#pragma once

#include <QString>
#include <QStringView>

// Text from outside (file names, certificate names, outcome texts) made safe to put in a line
// of the activity log or on a terminal: every control character is written as a visible escape,
// so that such text can neither end a line nor steer a terminal.
class VisibleText {
public:
    VisibleText() = delete;

    // `text` with a backslash doubled, line feed, carriage return and tab as \n, \r and \t, the
    // other C0 controls and DEL as \xNN, and the C1 controls, the line and paragraph separators
    // and the bidirectional overrides as \uNNNN. Text without any of them comes back unchanged.
    [[nodiscard]] static QString of(QStringView text);
    // The same for text escaped before, such as a field read from the log: its backslashes
    // stay as they are, only controls left in it are escaped.
    [[nodiscard]] static QString ofEscaped(QStringView text);
};
