#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <algorithm>

#include "TestFiles.h"
#include "UserSandbox.h"
#include "platform/AtomicFile.h"
#include "session/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

QStringList entries(const QString& folder) {
    return QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System, QDir::Name);
}

// Both ways of keeping the temporary file: without a name where the system allows it, and with
// one of our own names where it does not.
class AtomicFileTest : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        if (GetParam()) {
            qputenv("NIVOGX_NAMED_TEMPORARY_FILES", "1");
        }
    }
    void TearDown() override { qunsetenv("NIVOGX_NAMED_TEMPORARY_FILES"); }

    QTemporaryDir dir;
};

TEST_P(AtomicFileTest, WritesPrivatelyAndReplacesWithoutLeftovers) {
    const QString path = dir.filePath(QStringLiteral("key.pfx"));
    ASSERT_TRUE(AtomicFile::write(path, QByteArray(100000, 'a')));
    ASSERT_TRUE(AtomicFile::write(path, "short"));
    EXPECT_EQ(fileBytes(path), QByteArray("short"));
    EXPECT_EQ(QFileInfo(path).permissions(), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                 QFileDevice::ReadUser | QFileDevice::WriteUser);
    EXPECT_EQ(entries(dir.path()), QStringList{QStringLiteral("key.pfx")});
}

TEST_P(AtomicFileTest, NothingAppearsBeforeCommitAndAFailureLeavesNothing) {
    QString error;
    EXPECT_FALSE(AtomicFile::write(dir.filePath(QStringLiteral("missing/key.pfx")), "x", &error));
    EXPECT_EQ(error,
              QStringLiteral("The folder %1 does not exist.").arg(dir.filePath(u"missing"_s)));
    EXPECT_FALSE(AtomicFile::copy(dir.filePath(u"absent"_s), dir.filePath(u"copy"_s), &error));
    EXPECT_TRUE(error.startsWith(u"Cannot read %1: "_s.arg(dir.filePath(u"absent"_s))));
    EXPECT_TRUE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden).isEmpty());

    const QString path = dir.filePath(QStringLiteral("report.pdf"));
    ASSERT_TRUE(AtomicFile::write(path, "old"));
    {
        AtomicFile file(path);
        ASSERT_TRUE(file.open());
        ASSERT_EQ(file.device()->write("half of the new"), 15);
        EXPECT_EQ(fileBytes(path), QByteArray("old"));
        // Dropped without commit, as when the work fails.
    }
    EXPECT_EQ(fileBytes(path), QByteArray("old"));
    EXPECT_EQ(entries(dir.path()), QStringList{QStringLiteral("report.pdf")});

    AtomicFile file(path);
    ASSERT_TRUE(file.open());
    file.discard();
    EXPECT_FALSE(file.commit());
    EXPECT_EQ(fileBytes(path), QByteArray("old"));
}

TEST_P(AtomicFileTest, AFileOfManyMiBInPiecesOfAnySizeAppearsWholeOnlyOnCommit) {
    // Pieces small enough for the file's own buffer and large ones, past several hand-overs to
    // the disk, ending off any block boundary.
    QByteArray content;
    for (qsizetype piece = 1; content.size() < (qsizetype{20} << 20); piece = piece * 7 % 1000003) {
        content.append(QByteArray(piece, static_cast<char>('a' + content.size() % 26)));
    }
    const QString path = dir.filePath(QStringLiteral("video.mkv"));
    AtomicFile file(path);
    ASSERT_TRUE(file.open());
    for (qsizetype at = 0, piece = 1; at < content.size(); at += piece, piece = piece * 3 % 600011) {
        piece = std::min(piece, content.size() - at);
        ASSERT_EQ(file.device()->write(content.constData() + at, piece), piece);
    }
    EXPECT_FALSE(QFileInfo::exists(path));
    ASSERT_TRUE(file.commit()) << file.errorString().toStdString();
    EXPECT_TRUE(fileBytes(path) == content);
    EXPECT_EQ(entries(dir.path()), QStringList{QStringLiteral("video.mkv")});
}

TEST_P(AtomicFileTest, CommitAsNewNeverReplacesAndTakesTheNameItIsGiven) {
    const QString path = dir.filePath(QStringLiteral("r.bin"));
    const QString second = dir.filePath(QStringLiteral("r(1).bin"));
    const QString third = dir.filePath(QStringLiteral("r(2).bin"));
    AtomicFile file(path);
    ASSERT_TRUE(file.open());
    ASSERT_EQ(file.device()->write("ours"), 4);
    // Files appear under the chosen name and the next one while this one is written.
    ASSERT_TRUE(AtomicFile::write(path, "theirs"));
    ASSERT_TRUE(AtomicFile::write(second, "also theirs"));
    QStringList asked;
    ASSERT_TRUE(file.commitAsNew([&](const QString& taken) {
        asked << taken;
        return taken == path ? second : third;
    })) << file.errorString().toStdString();
    EXPECT_EQ(asked, (QStringList{path, second}));
    EXPECT_EQ(file.path(), third);
    EXPECT_EQ(fileBytes(third), QByteArray("ours"));
    EXPECT_EQ(fileBytes(path), QByteArray("theirs"));
    EXPECT_EQ(fileBytes(second), QByteArray("also theirs"));

    // With no other name to take it gives up, and everything stays as it was.
    AtomicFile late(path);
    ASSERT_TRUE(late.open());
    ASSERT_EQ(late.device()->write("late"), 4);
    EXPECT_FALSE(late.commitAsNew({}));
    EXPECT_EQ(fileBytes(path), QByteArray("theirs"));
    EXPECT_EQ(entries(dir.path()), (QStringList{QStringLiteral("r(1).bin"),
                                                QStringLiteral("r(2).bin"),
                                                QStringLiteral("r.bin")}));
}

std::string temporaryKind(const ::testing::TestParamInfo<bool>& named) {
    return named.param ? "Named" : "Unnamed";
}

INSTANTIATE_TEST_SUITE_P(Temporaries, AtomicFileTest, ::testing::Values(false, true),
                         temporaryKind);

TEST(AtomicFileCleanup, RemovesOnlyTemporariesWhoseWriterIsGone) {
    QTemporaryDir dir;
    qputenv("NIVOGX_NAMED_TEMPORARY_FILES", "1");
    // A writer at work in this process: its temporary has a name and is locked.
    AtomicFile live(dir.filePath(QStringLiteral("live.bin")));
    ASSERT_TRUE(live.open());
    qunsetenv("NIVOGX_NAMED_TEMPORARY_FILES");
    ASSERT_EQ(live.device()->write("still writing"), 13);

    // What a killed writer leaves: the same kind of name, nobody holding it.
    const QStringList stale{QStringLiteral(".report.pdf.tvf.nivogx-Ab3dE6gH.part"),
                            QStringLiteral(".a | b\nc.nivogx-00000000.part")};
    // Names that only look alike belong to someone else.
    const QStringList foreign{QStringLiteral("report.pdf"), QStringLiteral("x.part"),
                              QStringLiteral(".x.nivogx-short.part"),
                              QStringLiteral("report.pdf.nivogx-Ab3dE6gH.part"),
                              QStringLiteral(".x.nivogx-Ab3dE6gH.part.bak"),
                              QStringLiteral(".x.nivogx-Ab3dE6gH.PART")};
    for (const QString& name : stale + foreign) {
        ASSERT_TRUE(putFile(dir.filePath(name))) << name.toStdString();
    }
    ASSERT_TRUE(QDir(dir.path()).mkdir(QStringLiteral(".sub.nivogx-Ab3dE6gH.part")));

    EXPECT_EQ(AtomicFile::removeStaleTemporaries(dir.path()), 2);
    // The foreign files and the live writer's temporary.
    const QStringList left = entries(dir.path());
    ASSERT_EQ(left.size(), foreign.size() + 1) << left.join(u',').toStdString();
    for (const QString& name : foreign) {
        EXPECT_TRUE(left.contains(name)) << name.toStdString();
    }
    EXPECT_TRUE(QFileInfo(dir.filePath(QStringLiteral(".sub.nivogx-Ab3dE6gH.part"))).isDir());

    ASSERT_TRUE(live.commit());
    EXPECT_EQ(fileBytes(dir.filePath(QStringLiteral("live.bin"))), QByteArray("still writing"));
    EXPECT_EQ(AtomicFile::removeStaleTemporaries(dir.path()), 0);
    EXPECT_EQ(AtomicFile::removeStaleTemporaries(QString()), 0);
}

TEST(AtomicFileCleanup, StartUpClearsTheApplicationAndRememberedOutputFoldersOnly) {
    UserSandbox sandbox;
    (void)NivoGXUtil::generateRequiredDirectory();
    const QDir root(sandbox.root());
    const QString sent = root.filePath(QStringLiteral("sent"));
    const QString received = root.filePath(QStringLiteral("received"));
    const QString elsewhere = root.filePath(QStringLiteral("elsewhere"));
    for (const QString& folder : {sent, received, elsewhere}) {
        ASSERT_TRUE(QDir().mkpath(folder));
    }
    NivoGXUtil::saveSettings(QString(), QString(), QString(), sent, received);

    const QString stale = QStringLiteral(".x.tvf.nivogx-Ab3dE6gH.part");
    const QStringList folders{NivoGXUtil::pfxFolder(), NivoGXUtil::contactsFolder(), sent,
                              received, elsewhere};
    for (const QString& folder : folders) {
        for (const QString& name : {stale, QStringLiteral("x.tvf")}) {
            ASSERT_TRUE(putFile(QDir(folder).filePath(name)));
        }
    }
    NivoGXUtil::removeStaleTemporaries();
    for (const QString& folder : folders) {
        const QStringList expected =
            folder == elsewhere ? QStringList{stale, QStringLiteral("x.tvf")}
                                : QStringList{QStringLiteral("x.tvf")};
        EXPECT_EQ(entries(folder), expected) << folder.toStdString();
    }
}

}  // namespace
