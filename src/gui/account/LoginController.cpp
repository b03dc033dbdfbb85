#include "account/LoginController.h"

#include <QCloseEvent>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include "account/RegisterController.h"
#include "session/NivoGXUtil.h"
#include "session/SignIn.h"
#include "shell/Background.h"
#include "shell/NotificationHub.h"
#include "shell/Prompter.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const char* const kTitle = QT_TRANSLATE_NOOP("LoginController", "NIVO-GX Sign In");
const char* const kHeading = QT_TRANSLATE_NOOP("LoginController", "Sign in with your NIVO ID");
const char* const kUsername = QT_TRANSLATE_NOOP("LoginController", "NIVO ID:");
const char* const kPassword = QT_TRANSLATE_NOOP("LoginController", "Password:");
const char* const kSignIn = QT_TRANSLATE_NOOP("LoginController", "Sign In");
const char* const kSignUp = QT_TRANSLATE_NOOP("LoginController", "Sign Up...");

}  // namespace

LoginController::LoginController(NotificationHub& hub, Prompter& prompter, QWidget* parent)
    : QWidget(parent, Qt::Window),
      m_hub(hub),
      m_prompter(prompter),
      m_menuBar(new QMenuBar(this)),
      m_fieldUsername(new QLineEdit(this)),
      m_fieldPassword(new QLineEdit(this)),
      m_labelStatus(new QLabel(this)),
      m_progressIndicator(new QProgressBar(this)) {
    setObjectName(u"LoginController"_s);
    setWindowTitle(tr(kTitle));
    m_fieldUsername->setObjectName(u"fieldUsername"_s);
    m_fieldPassword->setObjectName(u"fieldPassword"_s);
    m_labelStatus->setObjectName(u"labelStatus"_s);
    m_progressIndicator->setObjectName(u"progressIndicator"_s);
    m_fieldPassword->setEchoMode(QLineEdit::Password);

    auto* heading = new QLabel(tr(kHeading), this);
    QFont headingFont = heading->font();
    headingFont.setPointSizeF(headingFont.pointSizeF() * 1.3);
    headingFont.setBold(true);
    heading->setFont(headingFont);

    auto* form = new QFormLayout;
    form->addRow(tr(kUsername), m_fieldUsername);
    form->addRow(tr(kPassword), m_fieldPassword);

    m_progressIndicator->setRange(0, 0);
    m_progressIndicator->setTextVisible(false);
    m_progressIndicator->setMaximumHeight(10);
    m_progressIndicator->setFixedWidth(120);
    QSizePolicy keepSpace = m_progressIndicator->sizePolicy();
    keepSpace.setRetainSizeWhenHidden(true);
    m_progressIndicator->setSizePolicy(keepSpace);

    auto* signUp = new QPushButton(tr(kSignUp), this);
    auto* signIn = new QPushButton(tr(kSignIn), this);
    signUp->setObjectName(u"registerButton"_s);
    signIn->setObjectName(u"loginButton"_s);
    connect(signUp, &QPushButton::clicked, this, &LoginController::RegisterButtonTapped);
    connect(signIn, &QPushButton::clicked, this, &LoginController::LoginButtonTapped);
    // Return or Enter in either field signs in, like the button.
    connect(m_fieldUsername, &QLineEdit::returnPressed, this, &LoginController::login);
    connect(m_fieldPassword, &QLineEdit::returnPressed, this, &LoginController::login);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(signUp);
    buttons->addStretch();
    buttons->addWidget(signIn);

    auto* layout = new QVBoxLayout(this);
    layout->setMenuBar(m_menuBar);
    layout->addWidget(heading);
    layout->addSpacing(6);
    layout->addLayout(form);
    auto* status = new QHBoxLayout;
    status->addWidget(m_labelStatus, 1);
    status->addWidget(m_progressIndicator);
    layout->addLayout(status);
    layout->addLayout(buttons);
    setMinimumWidth(380);
    windowDidLoad();
}

void LoginController::windowDidLoad() {
    m_labelStatus->setText(QString());
    m_progressIndicator->hide();
    connect(&m_hub, &NotificationHub::registrationCompleted, this,
            &LoginController::handleRegistrationComplete);
    const QString username = NivoGXUtil::getNivoUsername();
    const QString password = NivoGXUtil::getNivoPassword();
    if (!username.isEmpty()) {
        m_fieldUsername->setText(username);
    }
    if (!password.isEmpty()) {
        m_fieldPassword->setText(password);
    }
    m_isProcessing = false;
}

RegisterController* LoginController::registerController() const {
    return m_registerController;
}

void LoginController::LoginButtonTapped() {
    login();
}

void LoginController::RegisterButtonTapped() {
    registerAccount();
}

void LoginController::registerAccount() {
    if (m_registerController) {
        m_registerController->release();
    }
    m_registerController = new RegisterController(m_hub, m_prompter, this);
    // Opens over the sign-in window, which it belongs to.
    m_registerController->adjustSize();
    m_registerController->move(frameGeometry().center() - m_registerController->rect().center());
    m_registerController->show();
    m_registerController->raise();
    m_registerController->activateWindow();
}

void LoginController::handleRegistrationComplete(const QString& username, const QString& password) {
    m_fieldUsername->setText(username);
    m_fieldPassword->setText(password);
    login();
}

void LoginController::login() {
    const QString loginName = SignIn::trimmed(m_fieldUsername->text());
    const QString password = SignIn::trimmed(m_fieldPassword->text());
    if (const auto problem = SignIn::checkFields(loginName, password)) {
        m_prompter.alert(this, problem->message, problem->informativeText);
        return;
    }
    if (m_isProcessing) {
        return;
    }
    startProgress();
    loginProcess(loginName, password);
}

void LoginController::loginProcess(const QString& loginName, const QString& password) {
    m_isProcessing = true;
    runInBackground(
        this, [loginName, password] { return SignIn::requestProfile(loginName, password); },
        [this, loginName, password](const NivoProfile& profile) {
            loginFinished(loginName, password, profile);
        });
}

void LoginController::loginFinished(const QString& loginName, const QString& password,
                                    const NivoProfile& profile) {
    stopProgress();
    m_isProcessing = false;
    if (SignIn::succeeded(profile)) {
        if (const auto alert = SignIn::keep(loginName, password, profile)) {
            m_labelStatus->setText(SignIn::signInFailed());
            m_prompter.alert(this, alert->message, alert->informativeText);
            return;
        }
        finishSignIn();
        return;
    }
    m_labelStatus->setText(SignIn::signInFailed());
    if (SignIn::offersProfileFile(profile)) {
        if (m_prompter.ask(this, SignIn::unableToConnect(), SignIn::offerProfileFile()) &&
            !m_isProcessing) {
            startProgress();
            loginProcessUsingFile(loginName, password);
        }
        return;
    }
    m_prompter.alert(this, SignIn::signInFailed(), profile.StatusText);
}

void LoginController::loginProcessUsingFile(const QString& loginName, const QString& password) {
    m_isProcessing = true;
    Prompter::OpenPanel panel;
    panel.message = SignIn::selectProfileFile();
    panel.allowedTypes = {SignIn::profileFileType()};
    const QStringList chosen = m_prompter.open(this, panel);
    if (chosen.isEmpty()) {
        // Deliberately left busy: this window takes no further sign-in until it is closed.
        return;
    }
    const QString path = chosen.constFirst();
    const NivoProfile profile = SignIn::readProfileFile(path, loginName, password);
    stopProgress();
    m_isProcessing = false;
    if (!profile.StatusText.isEmpty()) {
        m_labelStatus->setText(SignIn::signInFailed());
        m_prompter.alert(this, SignIn::signInFailed(), profile.StatusText);
        return;
    }
    QString skipped;
    if (const auto alert =
            SignIn::keepFromProfileFile(path, loginName, password, profile, &skipped)) {
        m_labelStatus->setText(SignIn::signInFailed());
        m_prompter.alert(this, alert->message, alert->informativeText);
        return;
    }
    if (!skipped.isEmpty()) {
        m_prompter.alert(this, skipped, QString());
    }
    finishSignIn();
}

void LoginController::finishSignIn() {
    m_hub.postLoginCompleted();
    m_signedIn = true;
    close();
}

void LoginController::closeEvent(QCloseEvent* event) {
    if (!m_signedIn) {
        Q_EMIT terminateRequested();
    }
    event->accept();
}

void LoginController::startProgress() {
    m_progressIndicator->show();
    m_labelStatus->setText(SignIn::signingIn());
}

void LoginController::stopProgress() {
    m_progressIndicator->hide();
    m_labelStatus->setText(QString());
}
