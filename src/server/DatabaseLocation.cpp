#include "server/DatabaseLocation.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QStringList>
#include <QUrl>
#include <QUrlQuery>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kSqliteScheme = "sqlite:"_L1;
// The command-line administration may work on the same file at the same moment; a short wait
// turns its brief lock into a delay instead of a failed statement.
const QString kSqliteOptions = u"QSQLITE_BUSY_TIMEOUT=2000"_s;

}  // namespace

QString DatabaseLocation::display() const {
    if (engine == Engine::Sqlite) {
        return database;
    }
    return u"postgresql://%1%2%3/%4"_s.arg(user.isEmpty() ? QString() : user + u'@', host,
                                           port < 0 ? QString() : u':' + QString::number(port),
                                           database);
}

DatabaseLocation DatabaseLocation::parse(const QString& url) {
    DatabaseLocation location;
    if (const QString path = sqlitePath(url); !path.isEmpty()) {
        location.engine = Engine::Sqlite;
        location.database = path;
        location.options = kSqliteOptions;
        return location;
    }
    const QUrl parsed(url, QUrl::StrictMode);
    const QString database = parsed.path().mid(1);
    if (!parsed.isValid() ||
        (parsed.scheme() != "postgresql"_L1 && parsed.scheme() != "postgres"_L1) ||
        database.isEmpty() || database.contains(u'/') || parsed.hasFragment()) {
        return location;
    }
    location.database = database;
    location.host = parsed.host();
    location.port = parsed.port();
    location.user = parsed.userName();
    location.password = parsed.password();
    // libpq's own settings (sslmode, sslrootcert, connect_timeout, host=/socket/dir ...); a value
    // holding a blank or a ';' would be split.
    QStringList options;
    bool timeout = false;
    for (const auto& [key, value] : QUrlQuery(parsed).queryItems(QUrl::FullyDecoded)) {
        if (key.isEmpty() || value.isEmpty() ||
            (key + value).contains(QRegularExpression(u"[\\s;=']"_s))) {
            return {};
        }
        if (key == "host"_L1) {
            location.host = value;
            continue;
        }
        timeout |= key == "connect_timeout"_L1;
        options << key + u'=' + value;
    }
    if (!timeout) {
        options << u"connect_timeout=10"_s;
    }
    location.options = options.join(u';');
    location.engine = Engine::Postgres;
    return location;
}

QString DatabaseLocation::sqliteUrl(const QString& path) {
    return QString(kSqliteScheme) + path;
}

QString DatabaseLocation::sqlitePath(const QString& url) {
    if (!url.startsWith(kSqliteScheme)) {
        return {};
    }
    QString path = url.mid(kSqliteScheme.size());
    if (path.startsWith("//"_L1)) {  // sqlite:///var/lib/... as well as sqlite:/var/lib/...
        path = path.mid(2);
    }
    return path.isEmpty() ? QString() : QFileInfo(path).absoluteFilePath();
}
