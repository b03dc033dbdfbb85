#pragma once

#include <QWidget>

class NotificationHub;
class Prompter;
class QLabel;
class QLineEdit;
class QProgressBar;

// The sign-up window: a name and a password typed twice. A created account is handed to the
// sign-in window through the hub, which signs in with it at once.
class RegisterController final : public QWidget {
    Q_OBJECT

public:
    RegisterController(NotificationHub& hub, Prompter& prompter, QWidget* parent = nullptr);

    void registerButtonTapped();
    // Closes the window; a request under way still completes and is still announced.
    void cancelButtonTapped();
    // `register` of the window, a reserved word in C++: checks the fields and sends the request.
    void registerAccount();

    [[nodiscard]] bool isProcessing() const noexcept { return m_isProcessing; }
    // Lets the window go: at once when idle, else once its request has answered.
    void release();

private:
    void windowDidLoad();
    void registerProcess(const QString& loginName, const QString& password);
    void registrationFinished(const QString& loginName, const QString& password,
                              const QString& statusText);
    void startProgress(const QString& status);
    void stopProgress();

    NotificationHub& m_hub;
    Prompter& m_prompter;
    QLineEdit* m_textFieldNivoAccount;
    QLineEdit* m_textFieldNivoPassword;
    QLineEdit* m_textFieldRetypePassword;
    QLabel* m_textFieldStatus;
    QProgressBar* m_progressIndicator;
    bool m_isProcessing = false;
    bool m_releaseWhenDone = false;
};
