#pragma once

#include <QString>
#include <exception>
#include <string>

// The crypto layer's one exception type. It says what went wrong (name and description) and where
// it was raised (source file, method, line), so that the edge that catches it can show the
// description and log the rest.
class TVXException : public std::exception {
public:
    TVXException(QString name, QString description, QString file, QString method, int line);

    [[nodiscard]] const QString& name() const noexcept { return m_name; }
    [[nodiscard]] const QString& description() const noexcept { return m_description; }
    [[nodiscard]] const QString& file() const noexcept { return m_file; }
    [[nodiscard]] const QString& method() const noexcept { return m_method; }
    [[nodiscard]] int line() const noexcept { return m_line; }

    [[nodiscard]] const char* what() const noexcept override { return m_what.c_str(); }

private:
    QString m_name;
    QString m_description;
    QString m_file;
    QString m_method;
    int m_line = 0;
    std::string m_what;
};
