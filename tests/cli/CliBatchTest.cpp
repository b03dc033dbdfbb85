// A batch works on two small files at once. What the user sees stays that of one file after the
// other: result lines in the order the files were given, however the runs overtake each other,
// and output names as if each file had waited for the ones before it, even for files of one name
// that are under way together and whose outputs exist only once complete.

#include "CliTestKit.h"
#include "TestFiles.h"

using namespace clitest;

namespace {

QList<QJsonObject> jsonLines(const QString& out) {
    QList<QJsonObject> lines;
    for (const QString& line : out.split(u'\n', Qt::SkipEmptyParts)) {
        lines.append(json(line));
    }
    return lines;
}

TEST_F(CliTest, ABatchPrintsInTheGivenOrderAndNeverGivesTwoFilesOneName) {
    ASSERT_NO_FATAL_FAILURE(signUp({"dora"}));
    const User& dora = *m_users[0];
    ASSERT_EQ(dora.signIn(m_url).exitCode, 0);
    const QDir files(dora.files());
    for (const char* folder : {"x", "y", "z", "w", "out", "back"}) {
        ASSERT_TRUE(files.mkdir(QString::fromLatin1(folder)));
    }
    dora.write(u"x/a.txt"_s, "from x");
    dora.write(u"y/a.txt"_s, "from y");
    dora.write(u"z/a.txt"_s, "from z");
    dora.write(u"w/b.txt"_s, "from w");
    // The missing file beside it reports at once, long before it is done.
    dora.write(u"mid.bin"_s, QByteArray(900 << 10, 'm'));
    // Large enough to run alone.
    QByteArray big(3 << 20, '\0');
    for (qsizetype i = 0; i < big.size(); i += 4096) {
        big[i] = static_cast<char>(i / 4096);
    }
    dora.write(u"big.bin"_s, big);

    // The two "a.txt" at the front start together.
    const QStringList inputs{u"x/a.txt"_s, u"y/a.txt"_s, u"mid.bin"_s, u"missing.txt"_s,
                             u"big.bin"_s, u"z/a.txt"_s, u"w/b.txt"_s};
    CliRun run = dora.cli(QStringList{u"encrypt"_s, u"--json"_s, u"-o"_s, u"out"_s} + inputs, m_url);
    EXPECT_EQ(run.exitCode, 1) << "one input is missing";
    const QString out = dora.files() + u"/out/"_s;
    const QStringList expected{out + u"a.txt.tvf"_s,    out + u"a(1).txt.tvf"_s,
                               out + u"mid.bin.tvf"_s,  QString(),
                               out + u"big.bin.tvf"_s,  out + u"a(2).txt.tvf"_s,
                               out + u"b.txt.tvf"_s};
    QList<QJsonObject> lines = jsonLines(run.out);
    ASSERT_EQ(lines.size(), inputs.size()) << run.out.toStdString();
    for (qsizetype i = 0; i < inputs.size(); ++i) {
        EXPECT_EQ(lines[i].value(u"input"_s).toString(), inputs[i]);
        EXPECT_EQ(lines[i].value(u"output"_s).toString(), expected[i]);
    }
    EXPECT_EQ(lines[3].value(u"outcome"_s).toString(),
              u"%1/missing.txt does not exists."_s.arg(dora.files()));

    // One log line for each file that got under way.
    run = dora.cli({u"log"_s, u"--json"_s, u"--type"_s, u"encrypt"_s}, m_url);
    lines = jsonLines(run.out);
    ASSERT_EQ(lines.size(), 6) << run.out.toStdString();
    QStringList logged;
    for (const QJsonObject& line : lines) {
        logged.append(line.value(u"file"_s).toString());
        EXPECT_EQ(line.value(u"status"_s).toString(), u"Success"_s);
    }
    logged.sort();
    EXPECT_EQ(logged, (QStringList{dora.files() + u"/big.bin"_s, dora.files() + u"/mid.bin"_s,
                                   dora.files() + u"/w/b.txt"_s, dora.files() + u"/x/a.txt"_s,
                                   dora.files() + u"/y/a.txt"_s, dora.files() + u"/z/a.txt"_s}));

    // Opened together, the three come back as three files, each with its own content.
    run = dora.cli({u"decrypt"_s, u"-o"_s, u"back"_s, out + u"a.txt.tvf"_s,
                    out + u"a(1).txt.tvf"_s, out + u"a(2).txt.tvf"_s, out + u"big.bin.tvf"_s},
                   m_url);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QString back = dora.files() + u"/back/"_s;
    EXPECT_EQ(run.out, u"%1a.txt.tvf -> %2a.txt (from dora)\n"
                       u"%1a(1).txt.tvf -> %2a(1).txt (from dora)\n"
                       u"%1a(2).txt.tvf -> %2a(2).txt (from dora)\n"
                       u"%1big.bin.tvf -> %2big.bin (from dora)\n"_s.arg(out, back));
    EXPECT_EQ(fileBytes(back + u"a.txt"_s), "from x");
    EXPECT_EQ(fileBytes(back + u"a(1).txt"_s), "from y");
    EXPECT_EQ(fileBytes(back + u"a(2).txt"_s), "from z");
    EXPECT_TRUE(fileBytes(back + u"big.bin"_s) == big);
}

}  // namespace

// A folder with -R: each output in the same place below the folder's name, both ways. Which
// files a folder gives is FileListModelTest's.
TEST_F(CliTest, AFolderGoesBothWaysInItsLayout) {
    ASSERT_NO_FATAL_FAILURE(signUp({"rita"}));
    const User& rita = *m_users[0];
    ASSERT_EQ(rita.signIn(m_url).exitCode, 0);
    const QDir files(rita.files());
    ASSERT_TRUE(files.mkpath(u"photos/2024/june"_s));
    const QStringList tree{u"photos/a.jpg"_s, u"photos/2024/b.jpg"_s, u"photos/2024/june/c.bin"_s};
    for (const QString& path : tree) {
        rita.write(path, path.toUtf8().repeated(1000));
    }

    CliRun run = rita.cli({u"encrypt"_s, u"photos"_s}, m_url);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err, u"nivogx-cli: photos is a folder; -R takes the files under it.\n"_s);

    ASSERT_TRUE(files.mkdir(u"out"_s));
    run = rita.cli({u"encrypt"_s, u"-R"_s, u"-o"_s, u"out"_s, u"photos"_s}, m_url);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    for (const QString& path : tree) {
        EXPECT_TRUE(QFileInfo::exists(files.filePath(u"out/"_s + path + u".tvf"_s)))
            << path.toStdString();
    }

    ASSERT_TRUE(files.mkdir(u"back"_s));
    run = rita.cli({u"decrypt"_s, u"--recursive"_s, u"-o"_s, u"back"_s, u"out/photos"_s}, m_url);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    for (const QString& path : tree) {
        EXPECT_TRUE(fileBytes(files.filePath(u"back/"_s + path)) == path.toUtf8().repeated(1000))
            << path.toStdString();
    }
}
