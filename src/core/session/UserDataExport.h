#pragma once

#include <QCoreApplication>
#include <QString>

// Writing the user's exports to a chosen path, for every front end: the path gets the file
// type's extension unless it already has it, and a refusal or a failed copy comes back as the
// text to show, the latter naming the file and the system's reason.
class UserDataExport {
    Q_DECLARE_TR_FUNCTIONS(UserDataExport)

public:
    UserDataExport() = delete;

    [[nodiscard]] static QString unableToExportContacts();
    [[nodiscard]] static QString unableToExportProfile();
    [[nodiscard]] static QString unableToExportLog();

    struct Result {
        QString path;     // where the export went, extension included
        QString failure;  // "" on success, else the text to show
    };
    // A contact backup at `chosenPath` (".cbkm" added when missing).
    [[nodiscard]] static Result exportContacts(const QString& chosenPath);
    // The signed-in profile with the contacts, at `chosenPath` (".vts" added when missing).
    [[nodiscard]] static Result exportProfile(const QString& chosenPath);
    // A copy of the signed-in user's activity log at `chosenPath` (".log" added when missing).
    [[nodiscard]] static Result exportLog(const QString& chosenPath);
};
