#include "account/RegisterController.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include "session/SignIn.h"
#include "session/SignUp.h"
#include "shell/Background.h"
#include "shell/NotificationHub.h"
#include "shell/Prompter.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const char* const kTitle = QT_TRANSLATE_NOOP("RegisterController", "Sign up for a NIVO ID");
const char* const kIntro = QT_TRANSLATE_NOOP(
    "RegisterController",
    "Choose a NIVO ID and a password. Your NIVO ID may use letters, digits, full stops, "
    "underscores and apostrophes.");
const char* const kAccount = QT_TRANSLATE_NOOP("RegisterController", "NIVO ID:");
const char* const kPassword = QT_TRANSLATE_NOOP("RegisterController", "Password:");
const char* const kRetype = QT_TRANSLATE_NOOP("RegisterController", "Re-type password:");
const char* const kSignUp = QT_TRANSLATE_NOOP("RegisterController", "Sign Up");
const char* const kCancel = QT_TRANSLATE_NOOP("RegisterController", "Cancel");

}  // namespace

RegisterController::RegisterController(NotificationHub& hub, Prompter& prompter, QWidget* parent)
    : QWidget(parent, Qt::Window | Qt::WindowStaysOnTopHint),
      m_hub(hub),
      m_prompter(prompter),
      m_textFieldNivoAccount(new QLineEdit(this)),
      m_textFieldNivoPassword(new QLineEdit(this)),
      m_textFieldRetypePassword(new QLineEdit(this)),
      m_textFieldStatus(new QLabel(this)),
      m_progressIndicator(new QProgressBar(this)) {
    setObjectName(u"RegisterController"_s);
    setWindowTitle(tr(kTitle));
    m_textFieldNivoAccount->setObjectName(u"textFieldNivoAccount"_s);
    m_textFieldNivoPassword->setObjectName(u"textFieldNivoPassword"_s);
    m_textFieldRetypePassword->setObjectName(u"textFieldRetypePassword"_s);
    m_textFieldStatus->setObjectName(u"textFieldStatus"_s);
    m_progressIndicator->setObjectName(u"progressIndicator"_s);
    m_textFieldNivoPassword->setEchoMode(QLineEdit::Password);
    m_textFieldRetypePassword->setEchoMode(QLineEdit::Password);

    auto* heading = new QLabel(tr(kTitle), this);
    QFont headingFont = heading->font();
    headingFont.setPointSizeF(headingFont.pointSizeF() * 1.3);
    headingFont.setBold(true);
    heading->setFont(headingFont);
    auto* intro = new QLabel(tr(kIntro), this);
    intro->setWordWrap(true);
    auto* form = new QFormLayout;
    form->addRow(tr(kAccount), m_textFieldNivoAccount);
    form->addRow(tr(kPassword), m_textFieldNivoPassword);
    form->addRow(tr(kRetype), m_textFieldRetypePassword);

    m_progressIndicator->setRange(0, 0);
    m_progressIndicator->setTextVisible(false);
    m_progressIndicator->setMaximumHeight(10);
    m_progressIndicator->setFixedWidth(120);
    QSizePolicy keepSpace = m_progressIndicator->sizePolicy();
    keepSpace.setRetainSizeWhenHidden(true);
    m_progressIndicator->setSizePolicy(keepSpace);

    // The action that goes ahead sits on the right, as in the sign-in window.
    auto* cancel = new QPushButton(tr(kCancel), this);
    auto* signUp = new QPushButton(tr(kSignUp), this);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(cancel);
    buttons->addWidget(signUp);
    cancel->setObjectName(u"cancelButton"_s);
    signUp->setObjectName(u"registerButton"_s);
    cancel->setAutoDefault(false);
    signUp->setAutoDefault(false);
    connect(cancel, &QPushButton::clicked, this, &RegisterController::cancelButtonTapped);
    connect(signUp, &QPushButton::clicked, this, &RegisterController::registerButtonTapped);
    for (QLineEdit* field :
         {m_textFieldNivoAccount, m_textFieldNivoPassword, m_textFieldRetypePassword}) {
        connect(field, &QLineEdit::returnPressed, this, &RegisterController::registerAccount);
    }

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(heading);
    layout->addWidget(intro);
    layout->addLayout(form);
    auto* status = new QHBoxLayout;
    status->addWidget(m_textFieldStatus, 1);
    status->addWidget(m_progressIndicator);
    layout->addLayout(status);
    layout->addLayout(buttons);
    setMinimumWidth(380);
    windowDidLoad();
}

void RegisterController::windowDidLoad() {
    m_textFieldStatus->setText(QString());
    m_progressIndicator->hide();
    m_isProcessing = false;
}

void RegisterController::registerButtonTapped() {
    registerAccount();
}

void RegisterController::cancelButtonTapped() {
    close();
}

void RegisterController::registerAccount() {
    const QString loginName = SignIn::trimmed(m_textFieldNivoAccount->text());
    const QString password = SignIn::trimmed(m_textFieldNivoPassword->text());
    const QString retyped = SignIn::trimmed(m_textFieldRetypePassword->text());
    if (const auto problem = SignUp::checkFields(loginName, password, retyped)) {
        m_prompter.alert(this, problem->message, problem->informativeText);
        return;
    }
    // A second press while a request runs shows the progress again but sends nothing.
    startProgress(SignUp::registering());
    if (!m_isProcessing) {
        registerProcess(loginName, password);
    }
}

void RegisterController::registerProcess(const QString& loginName, const QString& password) {
    m_isProcessing = true;
    runInBackground(
        this, [loginName, password] { return SignUp::createAccount(loginName, password); },
        [this, loginName, password](const QString& statusText) {
            registrationFinished(loginName, password, statusText);
        });
}

void RegisterController::registrationFinished(const QString& loginName, const QString& password,
                                              const QString& statusText) {
    stopProgress();
    m_isProcessing = false;
    if (!statusText.isEmpty()) {
        m_textFieldStatus->setText(SignUp::registrationFailed());
        m_prompter.alert(this, SignUp::registrationFailed(), statusText);
    } else {
        m_hub.postRegistrationCompleted(loginName, password);
        close();
    }
    if (m_releaseWhenDone) {
        deleteLater();
    }
}

void RegisterController::release() {
    close();
    if (m_isProcessing) {
        m_releaseWhenDone = true;
    } else {
        deleteLater();
    }
}

void RegisterController::startProgress(const QString& status) {
    m_progressIndicator->show();
    m_textFieldStatus->setText(status);
}

void RegisterController::stopProgress() {
    m_progressIndicator->hide();
    m_textFieldStatus->setText(QString());
}
