#include "server/AccountService.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "storage/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

const QString AccountService::kLoginInfoKey = u"LogInInfo"_s;

namespace {

AccountService::Answer text(const QString& message) {
    return {message.toUtf8(), "text/plain; charset=utf-8"};
}

AccountService::Answer json(const QJsonObject& object) {
    return {QJsonDocument(object).toJson(QJsonDocument::Compact), "application/json; charset=utf-8"};
}

QJsonArray byteValues(const QByteArray& bytes) {
    QJsonArray values;
    for (const char byte : bytes) {
        values.append(static_cast<int>(static_cast<unsigned char>(byte)));
    }
    return values;
}

QString notRegistered(const QString& name) {
    return u"The login name %1 is not registered."_s.arg(name);
}

QString wrongPassword(const QString& name) {
    return u"Wrong password for %1."_s.arg(name);
}

QString notAvailable(const QString& name) {
    return u"The login name %1 is not available."_s.arg(name);
}

const QString kPasswordRequired = u"Invalid Account Entry: a password is required."_s;

}  // namespace

AccountService::AccountService(AccountStore& store, const AccountAuthority& authority, Clock clock)
    : m_store(store), m_authority(authority), m_clock(std::move(clock)) {}

QDateTime AccountService::now() const {
    return m_clock ? m_clock() : QDateTime::currentDateTimeUtc();
}

AccountService::Answer AccountService::serviceNotAvailable() {
    return text(u"Service not available"_s);
}

std::optional<AccountService::Answer> AccountService::refuseWhileLocked(
    const QString& loginName) const {
    const auto it = m_attempts.constFind(loginName);
    if (it == m_attempts.cend() || !it->lockedUntil.isValid() || it->lockedUntil <= now()) {
        return std::nullopt;
    }
    return text(u"Service not available: too many wrong passwords for %1, try again in %2 seconds."_s
                    .arg(loginName)
                    .arg(now().secsTo(it->lockedUntil) + 1));
}

void AccountService::recordFailure(const QString& loginName) {
    Attempts& attempts = m_attempts[loginName];
    ++attempts.failures;
    if (attempts.failures >= kFreeAttempts) {
        // 1, 2, 4, ... seconds, up to the cap: slow for a guesser, short for a typo.
        const int exponent = std::min(attempts.failures - kFreeAttempts, 20);
        const qint64 seconds = std::min<qint64>(qint64{1} << exponent, kMaxLockSeconds);
        attempts.lockedUntil = now().addSecs(seconds);
    }
}

void AccountService::recordSuccess(const QString& loginName) {
    m_attempts.remove(loginName);
}

std::variant<AccountStore::Account, AccountService::Answer> AccountService::authenticate(
    const QString& loginName, const QString& password) {
    if (auto refusal = refuseWhileLocked(loginName)) {
        return *refusal;
    }
    auto account = m_store.find(loginName);
    if (!account) {
        return text(notRegistered(loginName));
    }
    if (!AccountAuthority::verifyPassword(password, account->password)) {
        recordFailure(loginName);
        return text(wrongPassword(loginName));
    }
    recordSuccess(loginName);
    return *std::move(account);
}

AccountService::Answer AccountService::getProfile(const Form& form) {
    const QString name = form.value(u"logInName"_s).toLower();
    auto checked = authenticate(name, form.value(u"logInPassword"_s));
    if (auto* refusal = std::get_if<Answer>(&checked)) {
        return *refusal;
    }
    const auto& account = std::get<AccountStore::Account>(checked);
    const QString info =
        QStringList{account.loginName, account.firstName, account.lastName, account.email}.join(
            u"||"_s);
    return json({{u"Pfx"_s, byteValues(account.pfx)}, {kLoginInfoKey, info}});
}

AccountService::Answer AccountService::getId(const Form& form) {
    const QString wanted = form.value(u"logInNameToRetrieve"_s).trimmed().toLower();
    const auto account = m_store.find(wanted);
    if (!account) {
        return text(notRegistered(wanted));
    }
    return json({{u"Pfx"_s, byteValues(account->certificate)}});
}

AccountService::Answer AccountService::createProfile(const Form& form) {
    const QString name = form.value(u"logInName"_s).toLower();
    const QString password = form.value(u"logInPassword"_s);
    if (!NivoGXUtil::IsValidAccount(name)) {
        return text(u"Invalid Account Entry: a login name holds only letters, digits, '.', '_' "
                    u"and '''."_s);
    }
    if (password.isEmpty()) {
        return text(kPasswordRequired);
    }
    if (m_store.exists(name)) {
        return text(notAvailable(name));
    }
    const auto issued = m_authority.issue(name, password);
    const auto hash = AccountAuthority::hashPassword(password);
    if (!issued || hash.hash.isEmpty()) {
        return serviceNotAvailable();
    }
    AccountStore::Account account;
    account.loginName = name;
    account.firstName = form.value(u"firstName"_s);
    account.lastName = form.value(u"lastName"_s);
    account.email = form.value(u"email"_s);
    account.password = hash;
    account.pfx = issued->pfx;
    account.certificate = issued->certificate;
    if (!m_store.insert(account)) {
        // Another request took the name in between, or the store failed.
        return m_store.exists(name) ? text(notAvailable(name))
                                    : serviceNotAvailable();
    }
    return text(u"Profile created for %1."_s.arg(name));
}

AccountService::Answer AccountService::changePassword(const Form& form) {
    const QString name = form.value(u"logInName"_s).toLower();
    const QString oldPassword = form.value(u"oldLogInPassword"_s);
    const QString newPassword = form.value(u"newLogInPassword"_s);
    auto checked = authenticate(name, oldPassword);
    if (auto* refusal = std::get_if<Answer>(&checked)) {
        return *refusal;
    }
    const auto& account = std::get<AccountStore::Account>(checked);
    if (newPassword.isEmpty()) {
        return text(kPasswordRequired);
    }
    const auto pfx = AccountAuthority::reprotect(account.pfx, oldPassword, newPassword);
    const auto hash = AccountAuthority::hashPassword(newPassword);
    if (!pfx || hash.hash.isEmpty() || !m_store.updateCredentials(name, hash, *pfx)) {
        return serviceNotAvailable();
    }
    return text(u"Password changed for %1."_s.arg(name));
}

AccountService::Answer AccountService::checkLoginName(const Form& form) {
    const QString name = form.value(u"logInName"_s).toLower();
    if (!NivoGXUtil::IsValidAccount(name) || m_store.exists(name)) {
        return text(notAvailable(name));
    }
    return text(u"The login name %1 can be registered."_s.arg(name));
}
