// Figures for the two long lists of the app, on the code the windows use: the log viewer over a
// 100,000-line activity log (read, search one column, sort) and the main window's file list with
// 10,000 rows (add, mark, show every cell, delete). It leaves the log and the list of paths in
// the folder given, so that other tools can be timed on the same data.
//
//   bench_lists FOLDER [--lines N] [--rows N] [--runs N]
//
// One line per figure, tab-separated: name, median ms, best ms, items. Lines starting with '#'
// are comments. Exits non-zero when an operation answers something other than expected.
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTextStream>
#include <cstdio>
#include <memory>

#include "BenchClock.h"
#include "BenchData.h"
#include "log/ActivityLog.h"
#include "log/LogQuery.h"
#include "processing/FileListModel.h"
#include "session/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

QTextStream& out() {
    static QTextStream stream(stdout);
    return stream;
}

void print(const char* name, const BenchClock::Timing& timing) {
    out() << name << '\t' << QString::number(timing.medianMs, 'f', 2) << '\t'
          << QString::number(timing.bestMs, 'f', 2) << '\t' << timing.items << Qt::endl;
}

[[noreturn]] void fail(const QString& what) {
    std::fprintf(stderr, "bench_lists: %s\n", qPrintable(what));
    std::exit(1);
}

void expect(bool holds, const QString& what) {
    if (!holds) {
        fail(what);
    }
}

// No entry that the comparator puts before its predecessor. (A descending comparator never
// answers "equal", so ties cannot be told from order the other way round.)
bool sortedBy(const QList<LogEntry>& entries, LogQuery::Column column, bool ascending) {
    for (qsizetype i = 1; i < entries.size(); ++i) {
        if (LogQuery::compare(entries.at(i), entries.at(i - 1), column, ascending) < 0) {
            return false;
        }
    }
    return true;
}

void benchLog(const QString& folder, int lines, int runs) {
    const QString path = QDir(folder).filePath(u"activity.log"_s);
    expect(BenchData::writeActivityLog(path, lines), u"cannot write %1"_s.arg(path));
    const ActivityLog log(path);

    QList<LogEntry> entries;
    const auto load = BenchClock::time(runs, [&] {
        entries = log.getLogEntries();
        return entries.size();
    });
    expect(entries.size() == lines, u"the log reads back %1 entries"_s.arg(entries.size()));
    print("log.load", load);

    const auto search = BenchClock::time(runs, [&] {
        return LogQuery::search(entries, LogQuery::kFile, BenchData::kLogSearchText).size();
    });
    expect(search.items == BenchData::activityLogHits(lines),
           u"the search finds %1 entries"_s.arg(search.items));
    print("log.search", search);

    // Every sort starts from the file's order, as after opening the viewer.
    QList<LogEntry> sorted;
    const auto sortRun = [&](LogQuery::Column column, bool ascending) {
        const auto timing = BenchClock::time(
            runs,
            [&] {
                LogQuery::sort(sorted, column, ascending);
                return sorted.size();
            },
            [&] { sorted = entries; });
        expect(sortedBy(sorted, column, ascending), u"a sort left entries out of order"_s);
        return timing;
    };
    print("log.sort.date.asc", sortRun(LogQuery::Column::Date, true));
    print("log.sort.date.desc", sortRun(LogQuery::Column::Date, false));
    print("log.sort.file.asc", sortRun(LogQuery::Column::File, true));
}

void benchFileList(const QString& folder, int rows, int runs) {
    const QStringList paths = BenchData::filePaths(rows);
    {
        QFile list(QDir(folder).filePath(u"paths.txt"_s));
        expect(list.open(QIODevice::WriteOnly), u"cannot write %1"_s.arg(list.fileName()));
        list.write(paths.join(u'\n').toUtf8() + '\n');
    }
    std::unique_ptr<FileListModel> model;
    const auto fresh = [&] { model = std::make_unique<FileListModel>(NivoGXUtil::runEnvironment()); };
    const auto filled = [&] {
        fresh();
        (void)model->addFiles(paths);
    };

    print("list.add", BenchClock::time(runs, [&] { return model->addFiles(paths); }, fresh));
    expect(model->rowCount() == rows, u"the list holds %1 rows"_s.arg(model->rowCount()));

    const auto again = BenchClock::time(runs, [&] { return model->addFiles(paths); });
    expect(again.items == 0, u"%1 paths were listed twice"_s.arg(again.items));
    print("list.add.listed", again);

    const auto mark = BenchClock::time(
        runs,
        [&] {
            model->setEncryptStatus();
            return model->getEncryptStatusNumbers();
        },
        filled);
    expect(mark.items == rows, u"%1 rows marked"_s.arg(mark.items));
    print("list.mark", mark);

    print("list.cells", BenchClock::time(runs, [&] {
              qsizetype shown = 0;
              for (int row = 0; row < model->rowCount(); ++row) {
                  for (int column = 0; column < model->columnCount(); ++column) {
                      shown += model->data(model->index(row, column)).toString().isEmpty() ? 0 : 1;
                  }
              }
              return shown;
          }));

    const int deletions = rows / 10;
    const auto remove = BenchClock::time(
        runs,
        [&] {
            qsizetype removed = 0;
            for (int i = 0; i < deletions; ++i) {
                removed += model->deleteKeyPressedForTableView(0) ? 1 : 0;
            }
            return removed;
        },
        filled);
    expect(remove.items == deletions, u"%1 rows deleted"_s.arg(remove.items));
    print("list.delete", remove);
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addPositionalArgument(u"folder"_s, u"Where the log and the list of paths go."_s);
    const QCommandLineOption lines(u"lines"_s, u"Lines of the log."_s, u"n"_s, u"100000"_s);
    const QCommandLineOption rows(u"rows"_s, u"Rows of the file list."_s, u"n"_s, u"10000"_s);
    const QCommandLineOption runs(u"runs"_s, u"Timed runs of each operation."_s, u"n"_s, u"5"_s);
    parser.addOptions({lines, rows, runs});
    parser.addHelpOption();
    parser.process(app);
    const int lineCount = parser.value(lines).toInt();
    const int rowCount = parser.value(rows).toInt();
    const int runCount = parser.value(runs).toInt();
    if (parser.positionalArguments().size() != 1 || lineCount < 1 || rowCount < 10 ||
        runCount < 1) {
        parser.showHelp(2);
    }
    const QString folder = parser.positionalArguments().constFirst();
    expect(QDir(folder).exists(), u"no folder %1"_s.arg(folder));

    out() << "# name\tmedian ms\tbest ms\titems" << Qt::endl;
    benchLog(folder, lineCount, runCount);
    benchFileList(folder, rowCount, runCount);
    return 0;
}
