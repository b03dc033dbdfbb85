// nivogx-cli killed outright (SIGKILL) while it protects or opens a large file: nothing may
// appear under the output's name, and whatever a killed run left half written is gone after
// the next run of the tool. Interrupted (Ctrl-C), it cancels the file under way as the Cancel
// button does and leaves nothing at all. A run through pipes leaves nothing wherever it is
// killed.
#include <QDirIterator>
#include <QRandomGenerator>
#include <csignal>
#include <functional>

#include "CliTestKit.h"
#include "platform/AtomicFile.h"

using namespace clitest;

namespace {

constexpr qint64 kLargeFile = qint64{256} << 20;

// Everything in a folder, hidden files included.
QStringList entries(const QString& folder) {
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                                  QDir::NoDotAndDotDot, QDir::Name);
}

// The same at any depth, as paths below `folder`.
QStringList tree(const QString& folder) {
    QStringList paths;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        paths.append(QDir(folder).relativeFilePath(it.next()));
    }
    paths.sort();
    return paths;
}

QString writeLarge(const QString& path) {
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    QByteArray block(1 << 20, '\0');
    QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(block.data()),
                                          block.size() / 4);
    for (qint64 written = 0; written < kLargeFile; written += block.size()) {
        EXPECT_EQ(file.write(block), block.size());
    }
    return path;
}

class CliKillTest : public CliTest {
protected:
    // Starts `arguments` and kills the tool after growing waits while it still runs. Returns the
    // number of kills; after each, `outputFolder` must hold nothing under a final name but a
    // complete output (`complete` says whether it is one): a run may put its output in place and
    // be killed while it winds up. Stops when a run got that far or outlived its wait, or after a
    // bounded number of tries.
    int killWhileRunning(const User& user, const QStringList& arguments,
                         const QString& outputFolder,
                         const std::function<bool(const QFileInfo&)>& complete) {
        // Our temporary files get names, so that a kill can leave one for the next run to find.
        QProcessEnvironment named;
        named.insert(u"NIVOGX_NAMED_TEMPORARY_FILES"_s, u"1"_s);
        int kills = 0;
        for (int waitMs = 150; waitMs <= 20'000; waitMs *= 2) {
            QProcess process;
            user.start(process, arguments, m_url, named);
            process.closeWriteChannel();
            if (process.waitForFinished(waitMs)) {
                EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
                break;
            }
            process.kill();
            EXPECT_TRUE(process.waitForFinished(kRunBoundMs));
            bool outputInPlace = false;
            for (const QString& name : entries(outputFolder)) {
                if (!AtomicFile::isTemporaryName(name)) {
                    outputInPlace = true;
                    EXPECT_TRUE(complete(QFileInfo(outputFolder + u'/' + name)))
                        << "after a kill at " << waitMs << " ms: " << name.toStdString();
                }
            }
            if (outputInPlace || process.exitStatus() == QProcess::NormalExit) {
                break;
            }
            ++kills;
        }
        return kills;
    }
};

TEST_F(CliKillTest, AKilledRunLeavesNoOutputAndTheNextRunClearsItsTemporaries) {
    ASSERT_NO_FATAL_FAILURE(signUp({"kate"}));
    const User& kate = *m_users[0];
    ASSERT_EQ(kate.signIn(m_url).exitCode, 0);
    const QString big = writeLarge(kate.files() + u"/big.bin"_s);
    const QString sealed = kate.files() + u"/sealed"_s;
    const QString opened = kate.files() + u"/opened"_s;
    ASSERT_TRUE(QDir().mkpath(sealed));
    ASSERT_TRUE(QDir().mkpath(opened));

    EXPECT_GE(killWhileRunning(kate, {u"encrypt"_s, u"-o"_s, sealed, big}, sealed,
                               [](const QFileInfo& file) { return file.size() > kLargeFile; }),
              2);
    if (!QFileInfo::exists(sealed + u"/big.bin.tvf"_s)) {
        const CliRun run = kate.cli({u"encrypt"_s, u"-o"_s, sealed, big}, m_url);
        ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    }
    // That run, the next after the kills, cleared what they left, and only that.
    EXPECT_EQ(entries(sealed), QStringList{u"big.bin.tvf"_s});
    EXPECT_GT(QFileInfo(sealed + u"/big.bin.tvf"_s).size(), kLargeFile);

    EXPECT_GE(killWhileRunning(kate, {u"decrypt"_s, u"-o"_s, opened, sealed + u"/big.bin.tvf"_s},
                               opened,
                               [](const QFileInfo& file) { return file.size() == kLargeFile; }),
              2);
    // Any run of the tool clears the remembered output folders at start.
    ASSERT_EQ(kate.cli({u"whoami"_s}, m_url).exitCode, 0);
    const QStringList left = entries(opened);
    EXPECT_TRUE(left.isEmpty() || left == QStringList{u"big.bin"_s})
        << left.join(u", "_s).toStdString();
    if (!left.isEmpty()) {
        // A run outlived every wait: its output must then be whole.
        EXPECT_EQ(QFileInfo(opened + u"/big.bin"_s).size(), kLargeFile);
    }
    EXPECT_EQ(entries(sealed), QStringList{u"big.bin.tvf"_s});
}

TEST_F(CliKillTest, APipeRunKilledAnywhereLeavesNothing) {
    ASSERT_NO_FATAL_FAILURE(signUp({"pia"}));
    const User& pia = *m_users[0];
    ASSERT_EQ(pia.signIn(m_url).exitCode, 0);
    const QString big = writeLarge(pia.files() + u"/big.bin"_s);
    ASSERT_EQ(pia.cli({u"encrypt"_s, big}, m_url).exitCode, 0);
    ASSERT_TRUE(QFile::remove(big));
    const QString result = m_root.path() + u"/result"_s;
    const QStringList before = tree(pia.dataHome()) + tree(pia.files());

    // Kills while standard input is taken, the file opened and the result copied out, until a
    // run ends by itself; the last kill goes to a run with named temporaries, which the next
    // run clears.
    int kills = 0;
    int lastKillMs = 0;
    bool finished = false;
    for (int waitMs = 25; waitMs <= 20'000 && !finished; waitMs *= 2) {
        QProcess process;
        process.setStandardInputFile(pia.files() + u"/big.bin.tvf"_s);
        process.setStandardOutputFile(result);
        pia.start(process, {u"decrypt"_s, u"-"_s}, m_url);
        finished = process.waitForFinished(waitMs);
        if (!finished) {
            process.kill();
            ASSERT_TRUE(process.waitForFinished(kRunBoundMs));
            ++kills;
            lastKillMs = waitMs;
        }
        EXPECT_EQ(tree(pia.dataHome()) + tree(pia.files()), before) << "killed at " << waitMs;
    }
    EXPECT_TRUE(finished);
    EXPECT_GE(kills, 3);
    EXPECT_EQ(QFileInfo(result).size(), kLargeFile);

    QProcessEnvironment named;
    named.insert(u"NIVOGX_NAMED_TEMPORARY_FILES"_s, u"1"_s);
    QProcess process;
    process.setStandardInputFile(pia.files() + u"/big.bin.tvf"_s);
    process.setStandardOutputFile(result);
    pia.start(process, {u"decrypt"_s, u"-"_s}, m_url, named);
    if (!process.waitForFinished(lastKillMs)) {
        process.kill();
        ASSERT_TRUE(process.waitForFinished(kRunBoundMs));
    }
    ASSERT_EQ(pia.cli({u"whoami"_s}, m_url).exitCode, 0);
    EXPECT_EQ(tree(pia.dataHome()) + tree(pia.files()), before);
}

TEST_F(CliKillTest, AnInterruptCancelsTheFileUnderWayAndLeavesNothing) {
    ASSERT_NO_FATAL_FAILURE(signUp({"ivan"}));
    const User& ivan = *m_users[0];
    ASSERT_EQ(ivan.signIn(m_url).exitCode, 0);
    // Several GiB that take no room: the run goes on long after the interrupt if not stopped.
    const QString huge = ivan.write(u"huge.bin"_s, {});
    ASSERT_TRUE(QFile::resize(huge, qint64{4} << 30));
    const QString sealed = ivan.files() + u"/sealed"_s;
    ASSERT_TRUE(QDir().mkpath(sealed));
    QProcessEnvironment named;
    named.insert(u"NIVOGX_NAMED_TEMPORARY_FILES"_s, u"1"_s);

    // An interrupt before the run has begun ends the tool as usual; the waits grow until one
    // lands while the file is under way.
    CliRun log;
    for (int waitMs = 200; waitMs <= 20'000 && !log.out.contains(u"Cancelled"_s); waitMs *= 2) {
        QProcess process;
        ivan.start(process, {u"encrypt"_s, u"-o"_s, sealed, huge}, m_url, named);
        process.closeWriteChannel();
        ASSERT_FALSE(process.waitForFinished(waitMs)) << "finished before the interrupt";
        ::kill(static_cast<pid_t>(process.processId()), SIGINT);
        ASSERT_TRUE(process.waitForFinished(kRunBoundMs));
        EXPECT_EQ(entries(sealed), QStringList{});
        log = ivan.cli({u"log"_s}, m_url);
        if (process.exitStatus() == QProcess::NormalExit) {
            EXPECT_EQ(process.exitCode(), 130);
            EXPECT_EQ(firstLine(QString::fromUtf8(process.readAllStandardError())),
                      u"nivogx-cli: %1: Encryption cancelled"_s.arg(huge));
        }
    }
    // The cancel's own line, then that of the stopped work.
    const QStringList lines = log.out.split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 2) << log.out.toStdString();
    EXPECT_TRUE(lines[0].endsWith(u" | Encrypt | %1 | ivan | Cancelled"_s.arg(huge)));
    EXPECT_TRUE(lines[1].endsWith(u" | Encrypt | %1 | ivan | Failed"_s.arg(huge)));
}

}  // namespace
