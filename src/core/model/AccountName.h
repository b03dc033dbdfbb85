#pragma once

#include <QRegularExpression>
#include <QString>

// The forms of the names people sign up and sign in with, shared by the app and the account server.
namespace AccountName {

// Letters, digits, '.', '_' and '\''; at least one.
[[nodiscard]] inline bool isValidAccount(const QString& candidate) {
    if (candidate.isEmpty()) {
        return false;
    }
    static const QRegularExpression pattern(QStringLiteral("^[A-Z0-9a-z._']+$"),
                                            QRegularExpression::CaseInsensitiveOption);
    return pattern.match(candidate).hasMatch();
}

// Something before an '@', then dot-separated labels ending in one of two or more letters.
[[nodiscard]] inline bool isValidEmail(const QString& candidate) {
    static const QRegularExpression pattern(QRegularExpression::anchoredPattern(
        QStringLiteral("^.+@([A-Za-z0-9-]+\\.)+[A-Za-z]{2}[A-Za-z]*$")));
    return pattern.match(candidate).hasMatch();
}

}  // namespace AccountName
