#pragma once

#include <QPointer>
#include <QWidget>

#include "model/NivoProfile.h"

class NotificationHub;
class Prompter;
class QLabel;
class QLineEdit;
class QMenuBar;
class QProgressBar;
class RegisterController;

// The sign-in window. Signs in at the account server, or from a profile file when the server
// cannot be reached, and announces "loginCompleted" on success. Closing it by hand quits the
// application.
class LoginController final : public QWidget {
    Q_OBJECT

public:
    LoginController(NotificationHub& hub, Prompter& prompter, QWidget* parent = nullptr);

    void LoginButtonTapped();
    void RegisterButtonTapped();
    void login();
    // `register` of the window, a reserved word in C++: opens a fresh sign-up window.
    void registerAccount();
    void handleRegistrationComplete(const QString& username, const QString& password);

    [[nodiscard]] bool isProcessing() const noexcept { return m_isProcessing; }
    [[nodiscard]] RegisterController* registerController() const;
    [[nodiscard]] QMenuBar* menuBar() const noexcept { return m_menuBar; }

Q_SIGNALS:
    // The user closed the window: the application should quit.
    void terminateRequested();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void windowDidLoad();
    void loginProcess(const QString& loginName, const QString& password);
    void loginFinished(const QString& loginName, const QString& password,
                       const NivoProfile& profile);
    void loginProcessUsingFile(const QString& loginName, const QString& password);
    void finishSignIn();
    void startProgress();
    void stopProgress();

    NotificationHub& m_hub;
    Prompter& m_prompter;
    QMenuBar* m_menuBar;
    QLineEdit* m_fieldUsername;
    QLineEdit* m_fieldPassword;
    QLabel* m_labelStatus;
    QProgressBar* m_progressIndicator;
    QPointer<RegisterController> m_registerController;
    bool m_isProcessing = false;
    bool m_signedIn = false;  // the close that follows a sign-in must not quit
};
