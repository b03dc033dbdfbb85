// Files that a later launch hands to the running instance over its local socket.
#include <QDir>
#include <QSignalSpy>
#include <QStatusBar>
#include <QtConcurrent>

#include "GuiTestKit.h"
#include "TestFiles.h"
#include "filelist/FileController.h"
#include "session/NivoGXUtil.h"
#include "shell/AppDelegate.h"
#include "shell/NIVOGXService.h"

namespace {

class ServiceTest : public GuiTest {
protected:
    void SetUp() override {
        GuiTest::SetUp();
        name = QDir(sandbox.root()).filePath(QStringLiteral("nivogx.socket"));
        ASSERT_TRUE(service.listen(name));
    }

    // The later launch runs in its own process; a worker thread stands in for it.
    bool handOver(const QStringList& paths) {
        QFuture<bool> sent = QtConcurrent::run(&NIVOGXService::handOver, name, paths);
        return eventually([&] { return sent.isFinished(); }) && sent.result();
    }

    QString name;
    NIVOGXService service{hub};
    QSignalSpy queued{&hub, &NotificationHub::addToExternalFile};
    QSignalSpy delivered{&hub, &NotificationHub::handleExternalFileArray};
};

TEST_F(ServiceTest, BeforeSignInOnlyExistingFilesAreQueued) {
    const QString file = makeFile(QStringLiteral("a.txt"));
    ASSERT_TRUE(handOver({file, sandbox.root(), QStringLiteral("/no/such/file"), file}));
    ASSERT_TRUE(eventually([&] { return queued.count() == 1; }));
    EXPECT_EQ(queued.at(0).at(0).toStringList(), (QStringList{file, file}));
    EXPECT_EQ(delivered.count(), 0);

    // A folder alone passes nothing on: the next hand-over is the next notification.
    const QString next = makeFile(QStringLiteral("next.txt"));
    ASSERT_TRUE(handOver({sandbox.root()}));
    ASSERT_TRUE(handOver({next}));
    ASSERT_TRUE(eventually([&] { return queued.count() == 2; }));
    EXPECT_EQ(queued.at(1).at(0).toStringList(), QStringList{next});
}

TEST_F(ServiceTest, AfterSignInFilesGoToTheMainWindow) {
    leaveCompleteSignIn(QStringLiteral("erin"));
    AppDelegate app{hub, prompter};
    app.applicationDidFinishLaunching();
    ASSERT_NE(app.fileController(), nullptr);

    const QString file = makeFile(QStringLiteral("b.txt"));
    ASSERT_TRUE(handOver({file}));
    ASSERT_TRUE(eventually([&] { return delivered.count() == 1; }));
    EXPECT_EQ(app.fileController()->fileList(), QStringList{file});
    EXPECT_EQ(queued.count(), 0);
    EXPECT_TRUE(app.fileController()->statusBar()->currentMessage().isEmpty());

    // A folder is left out, and the window says how folders are added.
    ASSERT_TRUE(handOver({sandbox.root()}));
    ASSERT_TRUE(eventually([&] {
        return app.fileController()->statusBar()->currentMessage() ==
               QStringLiteral("Folders are added with Add Folder\u2026");
    }));
    EXPECT_EQ(app.fileController()->fileList(), QStringList{file});
}

TEST_F(ServiceTest, NobodyListeningMeansTheLaunchStartsItsOwnInstance) {
    const QString elsewhere = QDir(sandbox.root()).filePath(QStringLiteral("other.socket"));
    EXPECT_FALSE(NIVOGXService::handOver(elsewhere, {makeFile(QStringLiteral("c.txt"))}));
    // A name left behind by an instance that has gone is taken over.
    NIVOGXService next{hub};
    ASSERT_TRUE(putFile(elsewhere));
    EXPECT_TRUE(next.listen(elsewhere));
}

}  // namespace
