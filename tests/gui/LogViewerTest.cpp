// The log viewer over a real log file of a signed-in user: the type filters, the search in each
// column, header sorting in both directions, export, clear, and the menu action that opens it.
#include <QAction>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QHeaderView>
#include <QRegularExpression>
#include <QTableWidget>
#include <QToolBar>

#include "GuiTestKit.h"
#include "TestFiles.h"
#include "log/ActivityLog.h"
#include "log/LogQuery.h"
#include "log/LogViewerController.h"
#include "session/NivoGXUtil.h"
#include "shell/AppDelegate.h"

namespace {

using Kind = ScriptedPrompter::Kind;

constexpr int kFileColumn = 3;
constexpr int kStatusColumn = 5;

class LogViewerTest : public GuiTest {
protected:
    void SetUp() override {
        GuiTest::SetUp();
        NivoGXUtil::saveNivoCredentials(QStringLiteral("alice"), QStringLiteral("pw"));
        ASSERT_FALSE(NivoGXUtil::generateRequiredDirectory());
        writeLog();
    }

    void TearDown() override {
        window.reset();
        GuiTest::TearDown();
    }

    // 30 events over two years, both operations, a recipient with accents and a few failures;
    // every path differs so no two entries tie. The rules of matching and ordering are the
    // core's (LogQueryTest): here each control must reach them.
    static void writeLog() {
        const QStringList recipients[] = {
            {QStringLiteral("bob")}, {QStringLiteral("Zoë Müller"), QStringLiteral("bob")}, {}};
        QString text;
        for (int i = 0; i < 30; ++i) {
            const QDateTime when(QDate(2023 + i % 2, 1 + (i * 5) % 12, 1 + (i * 7) % 28),
                                 QTime((i * 3) % 24, (i * 11) % 60, i % 60));
            const bool encrypt = i % 3 != 1;
            text += ActivityLog::formatLine(
                when, encrypt ? QStringLiteral("Encrypt") : QStringLiteral("Decrypt"),
                QStringLiteral("/home/alice/%1/report-%2.pdf")
                    .arg(i % 2 != 0 ? QStringLiteral("work") : QStringLiteral("private"))
                    .arg(i, 2, 10, QLatin1Char('0')),
                recipients[i % 3],
                i % 7 == 0 ? QStringLiteral("Failed") : QStringLiteral("Success"));
        }
        ASSERT_TRUE(putFile(NivoGXUtil::logPath(), text.toUtf8()));
    }

    void openWindow() {
        window = std::make_unique<LogViewerController>(prompter);
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    }

    [[nodiscard]] QTableWidget* table() const {
        return window->findChild<QTableWidget*>(QStringLiteral("logTableView"));
    }

    [[nodiscard]] QStringList shownPaths() const {
        QStringList paths;
        for (int row = 0; row < table()->rowCount(); ++row) {
            paths.append(table()->item(row, kFileColumn)->text());
        }
        return paths;
    }

    [[nodiscard]] static QStringList pathsOf(const QList<LogEntry>& entries) {
        QStringList paths;
        for (const LogEntry& entry : entries) {
            paths.append(entry.filePath);
        }
        return paths;
    }

    [[nodiscard]] QAction* item(const char* name) const {
        return window->findChild<QAction*>(QString::fromLatin1(name));
    }

    void clickHeader(int section) const {
        QHeaderView* header = table()->horizontalHeader();
        const QPoint centre(
            header->sectionViewportPosition(section) + header->sectionSize(section) / 2,
            header->height() / 2);
        QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, centre);
    }

    void search(const QString& column, const QString& text) const {
        auto* combo = window->findChild<QComboBox*>(QStringLiteral("comboBox"));
        combo->setCurrentIndex(combo->findData(column));
        typeInto(window.get(), "searchField", text);
        QTest::keyClick(window->findChild<QLineEdit*>(QStringLiteral("searchField")),
                        Qt::Key_Return);
    }

    void emptySearchField() const {
        auto* field = window->findChild<QLineEdit*>(QStringLiteral("searchField"));
        field->selectAll();
        QTest::keyClick(field, Qt::Key_Backspace);
    }

    std::unique_ptr<LogViewerController> window;
};

TEST_F(LogViewerTest, ShowsTheLogAndFiltersItByOperation) {
    openWindow();
    const QList<LogEntry> all = NivoGXUtil::getLogEntries();
    ASSERT_EQ(all.size(), 30);
    EXPECT_EQ(shownPaths(), pathsOf(all));
    EXPECT_EQ(table()->item(0, 2)->data(Qt::UserRole).toString(), QStringLiteral("encrypt"));
    EXPECT_EQ(table()->item(1, 2)->data(Qt::UserRole).toString(), QStringLiteral("decrypt"));
    EXPECT_EQ(window->findChild<QComboBox*>(QStringLiteral("comboBox"))->currentData(),
              LogQuery::kFile);
    EXPECT_EQ(item("encryptItem")->data().toString(), QStringLiteral("encrypt_grey"));
    EXPECT_EQ(item("decryptItem")->data().toString(), QStringLiteral("decrypt_grey"));

    clickToolBar(window.get(), "encryptItem");
    EXPECT_EQ(shownPaths(), pathsOf(LogQuery::ofOperation(all, LogQuery::Operation::Encrypt)));
    EXPECT_EQ(item("encryptItem")->data().toString(), QStringLiteral("encrypt"));

    // Decryptions replace encryptions rather than adding to them.
    clickToolBar(window.get(), "decryptItem");
    EXPECT_EQ(shownPaths(), pathsOf(LogQuery::ofOperation(all, LogQuery::Operation::Decrypt)));
    EXPECT_EQ(item("encryptItem")->data().toString(), QStringLiteral("encrypt_grey"));
    EXPECT_EQ(item("decryptItem")->data().toString(), QStringLiteral("decrypt"));

    clickToolBar(window.get(), "decryptItem");
    EXPECT_EQ(shownPaths(), pathsOf(all));
    EXPECT_EQ(item("decryptItem")->data().toString(), QStringLiteral("decrypt_grey"));

    // The status, often a failure's sentence, takes the width the window gains.
    QHeaderView* header = table()->horizontalHeader();
    const int statusWidth = header->sectionSize(kStatusColumn);
    window->resize(window->width() + 200, window->height());
    EXPECT_TRUE(eventually([&] { return header->sectionSize(kStatusColumn) == statusWidth + 200; }))
        << header->sectionSize(kStatusColumn);
}

TEST_F(LogViewerTest, SearchesTheChosenColumnOnEnterWithinTheFilter) {
    openWindow();
    const QList<LogEntry> all = NivoGXUtil::getLogEntries();
    // Each choice reaches its column, with the field's text trimmed and lower-cased.
    for (const auto& [column, text] :
         {std::pair{LogQuery::kFile, QStringLiteral(" WORK/report ")},
          std::pair{LogQuery::kTime, all.at(4).time.left(5)},
          std::pair{LogQuery::kRecipient, QStringLiteral("zoe muller")},
          std::pair{LogQuery::kStatus, QStringLiteral("failed")}}) {
        search(column, text);
        const QStringList expected =
            pathsOf(LogQuery::search(all, column, text.trimmed().toLower()));
        EXPECT_EQ(shownPaths(), expected) << column.toStdString();
        EXPECT_TRUE(!expected.isEmpty() && expected.size() < all.size()) << column.toStdString();
    }

    // Typing alone waits for Enter.
    const int failures = table()->rowCount();
    typeInto(window.get(), "searchField", QStringLiteral("nothing like this"));
    EXPECT_EQ(table()->rowCount(), failures);
    QTest::keyClick(window->findChild<QLineEdit*>(QStringLiteral("searchField")), Qt::Key_Return);
    EXPECT_EQ(table()->rowCount(), 0);

    // A filter toggle searches again with the field's text, and emptying the field brings back
    // the filtered list.
    search(LogQuery::kFile, QStringLiteral("private"));
    clickToolBar(window.get(), "encryptItem");
    const QList<LogEntry> encryptions = LogQuery::ofOperation(all, LogQuery::Operation::Encrypt);
    EXPECT_EQ(shownPaths(),
              pathsOf(LogQuery::search(encryptions, LogQuery::kFile, QStringLiteral("private"))));
    emptySearchField();
    EXPECT_EQ(shownPaths(), pathsOf(encryptions));
}

TEST_F(LogViewerTest, HeaderClicksSortAscendingThenDescendingAsTheCoreCompares) {
    openWindow();
    QHeaderView* header = table()->horizontalHeader();
    for (const auto& [section, column] :
         {std::pair{0, LogQuery::Column::Date}, std::pair{1, LogQuery::Column::Time},
          std::pair{3, LogQuery::Column::File}, std::pair{5, LogQuery::Column::Status}}) {
        for (const bool ascending : {true, false}) {
            QList<LogEntry> expected = window->displayList();
            LogQuery::sort(expected, column, ascending);
            clickHeader(section);
            EXPECT_EQ(window->currentOrderingState(), column);
            EXPECT_EQ(shownPaths(), pathsOf(expected)) << section << ascending;
            EXPECT_EQ(header->sortIndicatorSection(), section);
            EXPECT_EQ(header->sortIndicatorOrder(),
                      ascending ? Qt::AscendingOrder : Qt::DescendingOrder);
        }
    }

    // A search shows file order again; the next click continues each column's own direction.
    search(LogQuery::kFile, QStringLiteral("report"));
    EXPECT_EQ(shownPaths(), pathsOf(NivoGXUtil::getLogEntries()));
    QList<LogEntry> expected = window->displayList();
    LogQuery::sort(expected, LogQuery::Column::Date, true);
    clickHeader(0);
    EXPECT_EQ(shownPaths(), pathsOf(expected));

    // An empty table sorts and searches without harm.
    search(LogQuery::kFile, QStringLiteral("no such file"));
    clickHeader(4);
    EXPECT_EQ(table()->rowCount(), 0);
}

TEST_F(LogViewerTest, ExportsUnderTheLogTypeAndSaysWhenThereIsNoLog) {
    openWindow();
    const QString chosen = QDir(sandbox.root()).filePath(QStringLiteral("copy"));
    prompter.answerSave(chosen);
    clickButton(window.get(), "exportButton");
    ASSERT_EQ(prompter.count(), 1);
    const Prompter::SavePanel& panel = prompter.last().savePanel;
    EXPECT_EQ(panel.message, QStringLiteral("Export Log file to"));
    EXPECT_EQ(panel.allowedType, QStringLiteral("log"));
    EXPECT_TRUE(panel.canCreateFolders);
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^alice_\\d{14}\\.log$"))
                    .match(panel.defaultName)
                    .hasMatch())
        << panel.defaultName.toStdString();
    ASSERT_TRUE(QFile::exists(chosen + QStringLiteral(".log")));
    EXPECT_EQ(fileBytes(chosen + QStringLiteral(".log")), fileBytes(NivoGXUtil::logPath()));

    NivoGXUtil::clearLogFile();
    prompter.answerSave(QDir(sandbox.root()).filePath(QStringLiteral("other.log")));
    clickButton(window.get(), "exportButton");
    EXPECT_EQ(prompter.last().kind, Kind::Alert);
    EXPECT_EQ(prompter.last().message,
              QStringLiteral("Unable to export Log file. Log file does not exist."));
    EXPECT_EQ(prompter.last().informativeText, QString());
}

TEST_F(LogViewerTest, ClearAsksFirstAndLeavesTheReadEntriesUntilReload) {
    openWindow();
    clickButton(window.get(), "clearButton");  // unscripted: "No"
    ASSERT_EQ(prompter.count(), 1);
    EXPECT_EQ(prompter.last().kind, Kind::Ask);
    EXPECT_EQ(prompter.last().message, QStringLiteral("Do you wish to clear log file?"));
    EXPECT_TRUE(QFile::exists(NivoGXUtil::logPath()));
    EXPECT_EQ(table()->rowCount(), 30);

    prompter.answerAsk(true);
    clickButton(window.get(), "clearButton");
    EXPECT_FALSE(QFile::exists(NivoGXUtil::logPath()));
    EXPECT_EQ(table()->rowCount(), 0);

    // The entries read before the clearing come back with a filter until the log is read again.
    clickToolBar(window.get(), "encryptItem");
    EXPECT_EQ(table()->rowCount(), 20);
    clickButton(window.get(), "reloadButton");
    EXPECT_EQ(table()->rowCount(), 0);
    clickToolBar(window.get(), "encryptItem");
    EXPECT_EQ(table()->rowCount(), 0);
}

TEST_F(LogViewerTest, ViewLogOpensOneViewerAndReadsTheLogAgainOnEveryOpening) {
    AppDelegate app{hub, prompter};
    app.viewLog();
    LogViewerController* viewer = app.logViewerController();
    ASSERT_NE(viewer, nullptr);
    EXPECT_TRUE(viewer->isVisible());
    EXPECT_EQ(viewer->displayList().size(), 30);

    viewer->EncryptButtonTapped();
    viewer->close();
    NivoGXUtil::writeToLog(QStringLiteral("Encrypt"), QStringLiteral("/tmp/new.pdf"),
                           {QStringLiteral("bob")}, QStringLiteral("Success"));
    app.viewLog();
    EXPECT_EQ(app.logViewerController(), viewer);
    EXPECT_TRUE(viewer->isVisible());
    // Read again, still filtered to encryptions.
    EXPECT_EQ(viewer->displayList().size(), 21);
    EXPECT_EQ(viewer->displayList().constLast().filePath, QStringLiteral("/tmp/new.pdf"));
}

}  // namespace
