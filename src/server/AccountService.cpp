#include "server/AccountService.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "model/AccountName.h"

using namespace Qt::Literals::StringLiterals;

const QString AccountService::kLoginInfoKey = u"LogInInfo"_s;

namespace {

AccountService::Answer text(const QString& message) {
    return {message.toUtf8(), "text/plain; charset=utf-8"};
}

AccountService::Answer json(const QJsonObject& object) {
    return {QJsonDocument(object).toJson(QJsonDocument::Compact),
            "application/json; charset=utf-8"};
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

AccountService::AccountService(AccountStore& store, const AccountAuthority& authority)
    : AccountService(store, authority, Policy{}) {}

AccountService::AccountService(AccountStore& store, const AccountAuthority& authority,
                               Policy policy, Clock clock)
    : m_store(store),
      m_authority(authority),
      m_policy(policy),
      m_clock(std::move(clock)),
      m_throttle(store, policy.throttle) {}

QDateTime AccountService::now() const {
    return m_clock ? m_clock() : QDateTime::currentDateTimeUtc();
}

AccountService::Answer AccountService::serviceNotAvailable() {
    return text(u"Service not available"_s);
}

AccountService::Answer AccountService::tooManyAttempts() {
    return text(
        u"Service not available: too many password attempts for this account, try again "
        u"later."_s);
}

std::optional<qint64> AccountService::reservePasswordCheck(const Form& form,
                                                           const QHostAddress& client) {
    return m_throttle.reserveCheck(form.value(u"logInName"_s).toLower(), client, now());
}

std::variant<AccountStore::Account, AccountService::Answer> AccountService::authenticate(
    const QString& loginName, const QString& password, const QHostAddress& client) {
    if (const qint64 wait = m_throttle.lockedSeconds(loginName, client, now()); wait > 0) {
        return text(
            u"Service not available: too many wrong passwords for %1 from your address, "
            u"try again in %2 seconds."_s.arg(loginName)
                .arg(wait));
    }
    auto [account, failed] = m_store.find(loginName);
    if (failed) {
        return serviceNotAvailable();
    }
    if (!account || account->disabled) {
        return text(notRegistered(loginName));
    }
    if (!AccountAuthority::verifyPassword(password, account->password)) {
        m_throttle.recordFailure(loginName, client, now());
        return text(wrongPassword(loginName));
    }
    m_throttle.recordSuccess(loginName, client);
    return *std::move(account);
}

AccountService::Answer AccountService::getProfile(const Form& form, const QHostAddress& client) {
    const QString name = form.value(u"logInName"_s).toLower();
    auto checked = authenticate(name, form.value(u"logInPassword"_s), client);
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
    const auto [account, failed] = m_store.find(wanted);
    if (failed) {
        return serviceNotAvailable();
    }
    if (!account || account->disabled) {
        return text(notRegistered(wanted));
    }
    return json({{u"Pfx"_s, byteValues(account->certificate)}});
}

AccountService::Answer AccountService::createProfile(const Form& form, const QHostAddress& client) {
    const QString name = form.value(u"logInName"_s).toLower();
    const QString password = form.value(u"logInPassword"_s);
    if (!AccountName::isValidAccount(name)) {
        return text(
            u"Invalid Account Entry: a login name holds only letters, digits, '.', '_' "
            u"and '''."_s);
    }
    if (password.isEmpty()) {
        return text(kPasswordRequired);
    }
    if (password.toUcs4().size() < m_policy.minPasswordLength) {
        return text(u"Invalid Account Entry: a password has at least %1 characters."_s.arg(
            m_policy.minPasswordLength));
    }
    const auto allowed = m_throttle.takeSignUp(client, now());
    if (!allowed) {
        return serviceNotAvailable();
    }
    if (!*allowed) {
        return text(
            u"Service not available: too many sign-ups from your address, try again "
            u"later."_s);
    }
    const auto taken = m_store.exists(name);
    if (!taken) {
        return serviceNotAvailable();
    }
    if (*taken) {
        return text(notAvailable(name));
    }
    const auto number = m_store.nextCertificateNumber();
    const auto issued = number ? m_authority.issue(name, password, *number) : std::nullopt;
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
        return m_store.exists(name).value_or(false) ? text(notAvailable(name))
                                                    : serviceNotAvailable();
    }
    return text(u"Profile created for %1."_s.arg(name));
}

AccountService::Answer AccountService::changePassword(const Form& form,
                                                      const QHostAddress& client) {
    const QString name = form.value(u"logInName"_s).toLower();
    const QString oldPassword = form.value(u"oldLogInPassword"_s);
    const QString newPassword = form.value(u"newLogInPassword"_s);
    auto checked = authenticate(name, oldPassword, client);
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
    if (!AccountName::isValidAccount(name)) {
        return text(notAvailable(name));
    }
    const auto taken = m_store.exists(name);
    if (!taken) {
        return serviceNotAvailable();
    }
    if (*taken) {
        return text(notAvailable(name));
    }
    return text(u"The login name %1 can be registered."_s.arg(name));
}
