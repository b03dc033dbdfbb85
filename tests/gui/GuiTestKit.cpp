#include "GuiTestKit.h"

#include <QAction>
#include <QDir>
#include <QLabel>
#include <QLayout>
#include <QMessageBox>
#include <QProgressBar>
#include <QToolBar>

#include "TestFiles.h"
#include "account/AccountServer.h"
#include "contacts/ContactDB.h"
#include "platform/QKKeychain.h"
#include "platform/QtKeychainStore.h"
#include "session/NivoGXUtil.h"
#include "session/SignIn.h"
#include "session/SignUp.h"
#include "shell/DialogPrompter.h"

void PrintTo(const QString& text, std::ostream* os) {
    *os << '"' << text.toStdString() << '"';
}

bool eventually(const std::function<bool()>& condition) {
    // Generous: every wait here ends on an answer from the local server.
    return QTest::qWaitFor(condition, 30000);
}

void typeInto(QWidget* window, const char* field, const QString& text) {
    auto* edit = window->findChild<QLineEdit*>(QString::fromLatin1(field));
    ASSERT_NE(edit, nullptr) << field;
    edit->clear();
    QTest::keyClicks(edit, text);
}

void clickButton(QWidget* window, const char* button) {
    auto* push = window->findChild<QPushButton*>(QString::fromLatin1(button));
    ASSERT_NE(push, nullptr) << button;
    QTest::mouseClick(push, Qt::LeftButton);
}

void clickToolBar(QWidget* window, const char* action) {
    auto* item = window->findChild<QAction*>(QString::fromLatin1(action));
    ASSERT_NE(item, nullptr) << action;
    QWidget* button = window->findChild<QToolBar*>()->widgetForAction(item);
    ASSERT_NE(button, nullptr) << action;
    QTest::mouseClick(button, Qt::LeftButton);
}

QString fieldText(QWidget* window, const char* field) {
    const QString name = QString::fromLatin1(field);
    if (auto* edit = window->findChild<QLineEdit*>(name)) {
        return edit->text();
    }
    auto* label = window->findChild<QLabel*>(name);
    return label != nullptr ? label->text() : QStringLiteral("<no such field>");
}

bool busy(QWidget* window) {
    auto* indicator = window->findChild<QProgressBar*>(QStringLiteral("progressIndicator"));
    return indicator != nullptr && !indicator->isHidden();
}

QString clippedText(QWidget& window) {
    window.setAttribute(Qt::WA_DontShowOnScreen);
    window.show();
    QCoreApplication::sendPostedEvents();
    if (window.layout() != nullptr) {
        window.layout()->activate();
    }
    for (const QLabel* label : window.findChildren<QLabel*>()) {
        if (!label->isVisible() || label->text().isEmpty()) {
            continue;
        }
        const QRect room = label->contentsRect().adjusted(label->margin(), label->margin(),
                                                          -label->margin(), -label->margin());
        const int flags = int(label->alignment()) | (label->wordWrap() ? Qt::TextWordWrap : 0);
        const QRect needed = label->fontMetrics().boundingRect(room, flags, label->text());
        if (needed.width() > room.width() || needed.height() > room.height()) {
            return QStringLiteral("%1 (needs %2x%3, has %4x%5)")
                .arg(label->text())
                .arg(needed.width())
                .arg(needed.height())
                .arg(room.width())
                .arg(room.height());
        }
    }
    return {};
}

void expectReadable(const ScriptedPrompter::Prompt& prompt) {
    const std::unique_ptr<QMessageBox> box =
        prompt.kind == ScriptedPrompter::Kind::Ask
            ? DialogPrompter::questionBox(nullptr, prompt.message, prompt.informativeText)
            : DialogPrompter::alertBox(nullptr, prompt.message, prompt.informativeText);
    EXPECT_EQ(clippedText(*box), QString()) << "in the box " << prompt.message.toStdString();
}

void GuiTest::SetUp() {
    ASSERT_FALSE(server->baseUrl().isEmpty());
    AccountServer::setBaseUrl(server->baseUrl());
    // What the launch does before any window comes up.
    (void)NivoGXUtil::generateRequiredDirectory();
}

void GuiTest::TearDown() {
    AccountServer::setBaseUrl(QString());
}

bool GuiTest::useRealSecretService() {
    if (qEnvironmentVariable("NIVOGX_TEST_SECRET_SERVICE") != QLatin1String("1")) {
        return false;
    }
    setDefaultKeychain(std::make_unique<QtKeychainStore>());
    return QKKeychainRemoveGenericEntry(nullptr, NivoGXUtil::kKeychainService);
}

void GuiTest::createAccount(const QString& name, const QString& password) {
    ASSERT_EQ(SignUp::createAccount(name, password), QString());
}

QString GuiTest::writeProfileFile(const QString& name, const QString& password) {
    const NivoProfile profile = SignIn::requestProfile(name, password);
    EXPECT_TRUE(profile.isUsable()) << profile.StatusText.toStdString();
    const QString path = QDir(sandbox.root()).filePath(QStringLiteral("profile_%1.vts").arg(name));
    ContactDB file;
    file.initDB(path);
    file.addNivoProfile(profile);
    return path;
}

void GuiTest::leaveCompleteSignIn(const QString& name) {
    NivoGXUtil::saveNivoCredentials(name, QStringLiteral("pw"));
    ASSERT_FALSE(NivoGXUtil::generateRequiredDirectory());
    for (const QString& path : {NivoGXUtil::pfxPath(), NivoGXUtil::certificatePath()}) {
        ASSERT_TRUE(putFile(path, "key material"));
    }
}

QString GuiTest::makeFile(const QString& name) const {
    const QString path = QDir(sandbox.root()).filePath(name);
    EXPECT_TRUE(putFile(path, "content"));
    return path;
}
