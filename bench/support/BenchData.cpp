#include "BenchData.h"

#include <QDateTime>
#include <QFile>
#include <QRandomGenerator>
#include <algorithm>

#include "log/ActivityLog.h"

using namespace Qt::Literals::StringLiterals;

const QString BenchData::kLogSearchText = u"report 4"_s;

namespace {

constexpr quint32 kLogSeed = 20261122;
constexpr quint32 kPathSeed = 7;
constexpr int kFolders = 40;
constexpr qint64 kLogSpanSeconds = qint64{2} * 365 * 24 * 3600;

const QStringList kPeople{u"bob.smith"_s, u"carol.jones"_s, u"dave"_s, u"erin.w"_s,
                          u"frank"_s,     u"grace.lee"_s,   u"heidi"_s};
const QStringList kExtensions{u"pdf"_s, u"docx"_s, u"xlsx"_s, u"png"_s, u"csv"_s};

}  // namespace

bool BenchData::writeActivityLog(const QString& path, int lines) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        return false;
    }
    QRandomGenerator random(kLogSeed);
    const QDateTime start(QDate(2024, 11, 22), QTime(0, 0));
    QByteArray buffer;
    for (int i = 0; i < lines; ++i) {
        const QDateTime when = start.addSecs(static_cast<qint64>(
            random.bounded(static_cast<double>(kLogSpanSeconds))));
        const bool encrypt = random.bounded(3) != 0;
        QStringList recipients;
        const int count = encrypt ? 1 + static_cast<int>(random.bounded(3)) : 1;
        for (int r = 0; r < count; ++r) {
            recipients << kPeople.at(random.bounded(static_cast<int>(kPeople.size())));
        }
        const quint32 roll = random.bounded(100);
        const QString status =
            roll < 90 ? u"Success"_s : (roll < 97 ? u"Failed"_s : u"Cancelled"_s);
        const QString document = u"/home/user/Documents/team %1/quarterly report %2.%3"_s
                                     .arg(i % kFolders)
                                     .arg(i)
                                     .arg(kExtensions.at(i % kExtensions.size()));
        buffer += ActivityLog::formatLine(when, encrypt ? u"Encrypt"_s : u"Decrypt"_s,
                                          encrypt ? document : document + u".tvf"_s, recipients,
                                          status)
                      .toUtf8();
        if (buffer.size() > (1 << 20)) {
            if (file.write(buffer) != buffer.size()) {
                return false;
            }
            buffer.clear();
        }
    }
    return file.write(buffer) == buffer.size() && file.flush();
}

int BenchData::activityLogHits(int lines) {
    // Line i's path holds "report i": the numbers that start with 4.
    int hits = 0;
    for (int i = 0; i < lines; ++i) {
        int n = i;
        while (n >= 10) {
            n /= 10;
        }
        hits += n == 4 ? 1 : 0;
    }
    return hits;
}

QStringList BenchData::filePaths(int count) {
    QStringList paths;
    paths.reserve(count);
    for (int i = 0; i < count; ++i) {
        paths << u"/home/user/Documents/project %1/Scan %2.%3"_s.arg(i % kFolders)
                     .arg(i, 5, 10, QChar(u'0'))
                     .arg(kExtensions.at(i % kExtensions.size()));
    }
    QRandomGenerator random(kPathSeed);
    std::shuffle(paths.begin(), paths.end(), random);
    return paths;
}
