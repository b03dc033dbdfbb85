// The recipient window over a real contact database: choosing, looking a person up at a scripted
// account server, deleting contacts, the question before Next, and the choice remembered for the
// next opening.
#include <QDir>
#include <QPointer>
#include <QTableView>
#include <QUrlQuery>

#include "GuiTestKit.h"
#include "ScriptedHttpsServer.h"
#include "TestPki.h"
#include "account/AccountServer.h"
#include "contacts/ContactController.h"
#include "contacts/ContactTableModel.h"
#include "crypto/CertificateTrust.h"
#include "session/NivoGXUtil.h"
#include "session/RecipientChoice.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// A lookup answer carrying `certificate`, as the account server sends it.
QByteArray pfxAnswer(const QByteArray& certificate) {
    QByteArray numbers;
    for (const char byte : certificate) {
        numbers += QByteArray::number(static_cast<quint8>(byte)) + ',';
    }
    numbers.chop(1);
    return "{\"Pfx\":[" + numbers + "]}";
}

using Kind = ScriptedPrompter::Kind;

class ContactWindowTest : public GuiTest {
protected:
    void SetUp() override {
        GuiTest::SetUp();
        AccountServer::setBaseUrl(accountServer.baseUrl());
        sandbox.setUpUser(QStringLiteral("alice"));
    }

    void TearDown() override {
        delete window;
        GuiTest::TearDown();
    }

    static qint64 storeContact(const QString& name) {
        return NivoGXUtil::addContact({0, name, name, name.toUtf8() + " certificate"});
    }

    void openWindow() {
        delete window;
        window = new ContactController(hub, prompter);
        window->show();
    }

    [[nodiscard]] QTableView* table(const char* name) const {
        return window->findChild<QTableView*>(QString::fromLatin1(name));
    }

    // The NIVO IDs a table shows, top to bottom.
    [[nodiscard]] QStringList shown(const char* name) const {
        QStringList ids;
        const QAbstractItemModel* model = table(name)->model();
        for (int row = 0; row < model->rowCount(); ++row) {
            ids << model->index(row, 0).data().toString();
        }
        return ids;
    }

    static QStringList ids(const QList<Contact>& contacts) {
        QStringList result;
        for (const Contact& contact : contacts) {
            result << contact.NivoID;
        }
        return result;
    }

    void clickRow(const char* tableName, int row) const {
        QTableView* view = table(tableName);
        const QRect cell = view->visualRect(view->model()->index(row, 0));
        ASSERT_TRUE(cell.isValid()) << tableName << " row " << row;
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, cell.center());
    }

    // Remove acts a moment after the button, as the window's tables do.
    void remove(const char* button, const char* tableName, qsizetype rowsAfter) {
        clickButton(window, button);
        EXPECT_TRUE(eventually([&] { return table(tableName)->model()->rowCount() == rowsAfter; }))
            << button;
    }

    void search(const QString& typed) const {
        auto* field = window->findChild<QLineEdit*>(QStringLiteral("searchField"));
        field->clear();
        QTest::keyClicks(field, typed);
        QTest::keyClick(field, Qt::Key_Return);
    }

    [[nodiscard]] static QList<qint64> presetMembers(const QString& name) {
        for (const ContactPreset& preset : NivoGXUtil::GetContactPreset()) {
            if (preset.name == name.toLower()) {
                return preset.contactThreadList;
            }
        }
        return {};
    }

    // The recipient lists announced as "selectionCompleted", one per announcement.
    [[nodiscard]] std::shared_ptr<QList<QStringList>> listenForSelections() {
        auto announced = std::make_shared<QList<QStringList>>();
        QObject::connect(
            &hub, &NotificationHub::selectionCompleted, &hub,
            [announced](const QList<Contact>& result) { announced->append(ids(result)); });
        return announced;
    }

    ScriptedHttpsServer accountServer;
    QPointer<ContactController> window;
};

TEST_F(ContactWindowTest, FoundPersonIsChosenAndTheChoiceComesBackNextTime) {
    storeContact(QStringLiteral("carol"));
    storeContact(QStringLiteral("Bob"));
    storeContact(QStringLiteral("dave"));
    openWindow();
    EXPECT_EQ(table("tableViewAvailable")
                  ->model()
                  ->headerData(0, Qt::Horizontal, ContactTableModel::IdentifierRole),
              QStringLiteral("NIVOID_A"));
    EXPECT_EQ(table("tableViewSelected")
                  ->model()
                  ->headerData(0, Qt::Horizontal, ContactTableModel::IdentifierRole),
              QStringLiteral("NIVOID_S"));
    EXPECT_EQ(
        shown("tableViewAvailable"),
        (QStringList{QStringLiteral("bob"), QStringLiteral("carol"), QStringLiteral("dave")}));
    EXPECT_TRUE(shown("tableViewSelected").isEmpty()) << "no choice made before";

    // A stored name typed with capitals is found here, without asking the server.
    search(QStringLiteral("  DAVE "));
    const QModelIndexList found = table("tableViewAvailable")->selectionModel()->selectedRows();
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(found.constFirst().row(), 2);
    EXPECT_TRUE(accountServer.requests().isEmpty());

    accountServer.answer(pfxAnswer(TestPki::serviceCertificate(QStringLiteral("anna"))));
    search(QStringLiteral("Anna"));
    EXPECT_TRUE(busy(window));
    ASSERT_TRUE(eventually([&] { return window->contactList().size() == 4; }));
    EXPECT_FALSE(busy(window));
    ASSERT_EQ(accountServer.requests().size(), 1);
    const QUrlQuery sent(QString::fromUtf8(accountServer.requests().constFirst().body));
    EXPECT_EQ(sent.queryItemValue(QStringLiteral("logInName")), QStringLiteral("anna"))
        << "the searched name is also the requester";
    EXPECT_EQ(sent.queryItemValue(QStringLiteral("logInNameToRetrieve")), QStringLiteral("anna"));
    const Contact anna = window->contactList().constFirst();
    EXPECT_EQ(anna.NivoID, QStringLiteral("anna"));
    EXPECT_EQ(anna.DisplayName, QStringLiteral("anna"));
    EXPECT_EQ(anna.CertData, TestPki::serviceCertificate(QStringLiteral("anna")));
    EXPECT_GT(anna.ID, 0);
    EXPECT_TRUE(window->selectedList().isEmpty()) << "a found person is offered, not chosen";
    EXPECT_EQ(prompter.count(), 0);

    // A clicked contact shows its certificate, to compare out of band; stored keys the service
    // did not issue are marked.
    clickRow("tableViewAvailable", 0);
    const QString details = fieldText(window, "contactDetails");
    EXPECT_TRUE(details.startsWith(u"anna: certificate issued by the account service\n"_s))
        << details.toStdString();
    EXPECT_TRUE(details.endsWith(u"SHA-256: "_s + CertificateTrust::fingerprint(anna.CertData)))
        << details.toStdString();
    EXPECT_EQ(clippedText(*window), QString()) << "at the window's first size";
    const QAbstractItemModel* available = table("tableViewAvailable")->model();
    EXPECT_FALSE(available->data(available->index(0, 0), Qt::ForegroundRole).isValid());
    EXPECT_EQ(available->data(available->index(0, 0), Qt::ToolTipRole), u"anna"_s)
        << "the whole name, however narrow the column";
    EXPECT_TRUE(available->data(available->index(1, 0), Qt::ForegroundRole).isValid());
    EXPECT_TRUE(available->data(available->index(1, 0), Qt::ToolTipRole)
                    .toString()
                    .endsWith(u"\nCertificate not verified: unreadable certificate"_s));

    // Anna and Carol, Carol twice: each is chosen once.
    clickRow("tableViewAvailable", 2);
    clickButton(window, "addButton");
    clickButton(window, "addButton");
    clickRow("tableViewAvailable", 0);
    clickButton(window, "addButton");
    EXPECT_EQ(shown("tableViewSelected"),
              (QStringList{QStringLiteral("anna"), QStringLiteral("carol")}));
    EXPECT_EQ(window->contactList().size(), 4) << "a chosen contact stays available";

    const auto completed = listenForSelections();
    const QString out = QDir(sandbox.root()).filePath(QStringLiteral("out"));
    NivoGXUtil::saveSettings(QString(), QString(), QString(), sandbox.root(), QString());
    prompter.answerOpen({out});
    clickButton(window, "nextButton");
    ASSERT_EQ(prompter.count(), 1) << "nothing to ask with recipients chosen";
    EXPECT_EQ(prompter.last().message, QStringLiteral("Select folder to store encrypted files"));
    EXPECT_EQ(prompter.last().openPanel.startFolder, sandbox.root());
    EXPECT_TRUE(prompter.last().openPanel.chooseFolders);
    EXPECT_FALSE(prompter.last().openPanel.multipleSelection);
    EXPECT_EQ(NivoGXUtil::getLastOutputEncryptFolder(), out);
    ASSERT_EQ(completed->size(), 1);
    EXPECT_EQ(completed->constFirst(),
              (QStringList{QStringLiteral("anna"), QStringLiteral("carol")}));
    EXPECT_TRUE(eventually([&] { return window.isNull(); })) << "the window closes";

    openWindow();
    EXPECT_EQ(shown("tableViewSelected"),
              (QStringList{QStringLiteral("anna"), QStringLiteral("carol")}));
    EXPECT_EQ(presetMembers(RecipientChoice::kLastUsedContacts).size(), 2);
}

TEST_F(ContactWindowTest, RemoveDeletesTheLastClickedContactEverywhereAndStartsAtTheTop) {
    const qint64 bob = storeContact(QStringLiteral("bob"));
    const qint64 anna = storeContact(QStringLiteral("anna"));
    const qint64 carol = storeContact(QStringLiteral("carol"));
    ContactPreset team{QStringLiteral("team"), {carol, bob, anna}};
    NivoGXUtil::saveContactPreset({RecipientChoice::kLastUsedContacts, {bob, carol}});
    NivoGXUtil::saveContactPreset(team);
    openWindow();
    ASSERT_EQ(shown("tableViewSelected"),
              (QStringList{QStringLiteral("bob"), QStringLiteral("carol")}));

    // Leaving a recipient out keeps the contact, and the preset until Next.
    clickRow("tableViewSelected", 1);
    remove("removeSelectedButton", "tableViewSelected", 1);
    EXPECT_EQ(NivoGXUtil::getContactList().size(), 3);
    EXPECT_EQ(presetMembers(RecipientChoice::kLastUsedContacts), (QList<qint64>{bob, carol}));
    openWindow();

    clickRow("tableViewAvailable", 1);
    remove("removeAvailableButton", "tableViewAvailable", 2);
    EXPECT_EQ(shown("tableViewAvailable"),
              (QStringList{QStringLiteral("anna"), QStringLiteral("carol")}));
    EXPECT_EQ(shown("tableViewSelected"), QStringList{QStringLiteral("carol")});
    EXPECT_EQ(presetMembers(RecipientChoice::kLastUsedContacts), QList<qint64>{carol});
    EXPECT_EQ(presetMembers(QStringLiteral("team")), (QList<qint64>{carol, anna}));
    EXPECT_EQ(NivoGXUtil::getContactList().size(), 2);
    EXPECT_EQ(prompter.count(), 0) << "no confirmation";

    // The row stays as it was clicked: the next Remove takes whoever moved into it.
    remove("removeAvailableButton", "tableViewAvailable", 1);
    EXPECT_EQ(shown("tableViewAvailable"), QStringList{QStringLiteral("anna")});
    EXPECT_TRUE(shown("tableViewSelected").isEmpty());
    // Past the end now: nothing happens.
    clickButton(window, "removeAvailableButton");
    QTest::qWait(250);
    EXPECT_EQ(shown("tableViewAvailable"), QStringList{QStringLiteral("anna")});

    // A fresh window has clicked nothing, and Remove takes the first contact.
    storeContact(QStringLiteral("zoe"));
    openWindow();
    remove("removeAvailableButton", "tableViewAvailable", 1);
    EXPECT_EQ(ids(NivoGXUtil::getContactList()), QStringList{QStringLiteral("zoe")});
}

TEST_F(ContactWindowTest, SearchRefusesTheUserAndReportsWhatTheServerSays) {
    openWindow();
    search(QStringLiteral(" ALICE"));
    ASSERT_EQ(prompter.count(), 1);
    EXPECT_EQ(prompter.last().kind, Kind::Alert);
    EXPECT_EQ(prompter.last().message, QStringLiteral("Unable to add self."));
    EXPECT_TRUE(accountServer.requests().isEmpty());

    accountServer.answer("Login name nobody is not registered", "text/plain");
    search(QStringLiteral("nobody"));
    ASSERT_TRUE(eventually([&] { return prompter.count() == 2; }));
    EXPECT_EQ(prompter.last().message, QStringLiteral("User does not exists"));
    EXPECT_EQ(prompter.last().informativeText, QStringLiteral("Invalid NIVO ID name"));

    // An answer without a certificate names nobody either.
    accountServer.answer("{}");
    search(QStringLiteral("someone"));
    ASSERT_TRUE(eventually([&] { return prompter.count() == 3; }));
    EXPECT_EQ(prompter.last().message, QStringLiteral("User does not exists"));

    // Nor does a certificate the service did not issue to that very name.
    accountServer.answer(pfxAnswer(TestPki::serviceCertificate(QStringLiteral("mallory"))));
    search(QStringLiteral("someone"));
    ASSERT_TRUE(eventually([&] { return prompter.count() == 4; }));
    EXPECT_EQ(prompter.last().message, QStringLiteral("User does not exists"));
    EXPECT_EQ(prompter.last().informativeText,
              QStringLiteral("The certificate the server gave for someone cannot be trusted: "
                             "certificate made out to \"mallory\"."));
    EXPECT_FALSE(busy(window));
    EXPECT_TRUE(window->contactList().isEmpty());
    EXPECT_TRUE(NivoGXUtil::getContactList().isEmpty());
}

TEST_F(ContactWindowTest, NextWithoutRecipientsAsksFirst) {
    storeContact(QStringLiteral("bob"));
    openWindow();
    const auto completed = listenForSelections();
    clickButton(window, "nextButton");  // answered "No"
    ASSERT_EQ(prompter.count(), 1);
    EXPECT_EQ(prompter.last().kind, Kind::Ask);
    EXPECT_EQ(prompter.last().message,
              QStringLiteral("Do you wish to proceed without other recipients?"));
    EXPECT_EQ(prompter.last().informativeText, QStringLiteral("No recipients selected"));
    EXPECT_TRUE(window->isVisible());

    prompter.answerAsk(true);  // then the folder panel is cancelled
    clickButton(window, "nextButton");
    EXPECT_EQ(prompter.last().kind, Kind::Open);
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(completed->isEmpty());
    EXPECT_TRUE(NivoGXUtil::GetContactPreset().isEmpty());

    prompter.answerAsk(true);
    prompter.answerOpen({sandbox.root()});
    clickButton(window, "nextButton");
    ASSERT_EQ(completed->size(), 1);
    EXPECT_TRUE(completed->constFirst().isEmpty());
    ASSERT_EQ(NivoGXUtil::GetContactPreset().size(), 1) << "an empty choice is remembered too";
    EXPECT_TRUE(presetMembers(RecipientChoice::kLastUsedContacts).isEmpty());
}

TEST_F(ContactWindowTest, ImportedContactsAppearAndTheChoiceStays) {
    const qint64 bob = storeContact(QStringLiteral("bob"));
    NivoGXUtil::saveContactPreset({RecipientChoice::kLastUsedContacts, {bob}});
    openWindow();
    storeContact(QStringLiteral("anna"));
    storeContact(QStringLiteral("zoe"));
    EXPECT_EQ(shown("tableViewAvailable"), QStringList{QStringLiteral("bob")});
    hub.postContactImportCompleted();
    EXPECT_EQ(shown("tableViewAvailable"),
              (QStringList{QStringLiteral("anna"), QStringLiteral("bob"), QStringLiteral("zoe")}));
    EXPECT_EQ(shown("tableViewSelected"), QStringList{QStringLiteral("bob")});
}

}  // namespace
