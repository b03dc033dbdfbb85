#pragma once

// The text of one SQL statement. Its constructor only runs at compile time, so every statement
// handed to the database is a literal of the program: values always travel as bound parameters
// and no statement can be pieced together from data at run time.
class SqlText {
public:
    // NOLINTNEXTLINE(google-explicit-constructor): literals are meant to convert silently.
    consteval SqlText(const char* text) noexcept : m_text(text) {}

    [[nodiscard]] constexpr const char* c_str() const noexcept { return m_text; }

private:
    const char* m_text;
};
