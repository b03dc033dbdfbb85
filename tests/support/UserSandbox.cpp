#include "UserSandbox.h"

#include <QDir>
#include <QSettings>

#include "MemorySecretStore.h"
#include "platform/QKKeychain.h"
#include "session/NivoGXUtil.h"

namespace {

std::optional<QByteArray> saved(const char* name) {
    return qEnvironmentVariableIsSet(name) ? std::optional(qgetenv(name)) : std::nullopt;
}

void restore(const char* name, const std::optional<QByteArray>& value) {
    if (value) {
        qputenv(name, *value);
    } else {
        qunsetenv(name);
    }
}

}  // namespace

UserSandbox::UserSandbox()
    : m_savedDataHome(saved("XDG_DATA_HOME")), m_savedConfigHome(saved("XDG_CONFIG_HOME")) {
    QDir(root()).mkpath(QStringLiteral("data"));
    QDir(root()).mkpath(QStringLiteral("config"));
    qputenv("XDG_DATA_HOME", QFile::encodeName(dataHome()));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(configHome()));
    // QSettings keeps the first user path it saw; point it here explicitly.
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, configHome());
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, configHome());
    auto store = std::make_unique<MemorySecretStore>();
    m_keychain = store.get();
    setDefaultKeychain(std::move(store));
    NivoGXUtil::resetState();
}

UserSandbox::~UserSandbox() {
    NivoGXUtil::resetState();
    setDefaultKeychain(nullptr);
    restore("XDG_DATA_HOME", m_savedDataHome);
    restore("XDG_CONFIG_HOME", m_savedConfigHome);
}

QString UserSandbox::dataHome() const {
    return QDir(root()).filePath(QStringLiteral("data"));
}

QString UserSandbox::configHome() const {
    return QDir(root()).filePath(QStringLiteral("config"));
}

void UserSandbox::setUpUser(const QString& name) const {
    (void)NivoGXUtil::generateRequiredDirectory();
    NivoGXUtil::saveNivoCredentials(name, QStringLiteral("pw"));
    NivoGXUtil::generateUserContactDB(name);
}
