#include "platform/QKKeychain.h"

#include <QJsonDocument>
#include <QJsonObject>

#include "platform/QtKeychainStore.h"

using namespace Qt::Literals::StringLiterals;

Q_LOGGING_CATEGORY(lcKeychain, "nivogx.keychain")

namespace {

// Status and text for a record that exists but cannot be decoded, or an add over an existing one.
constexpr long kBadRecordCode = -1;
constexpr long kDuplicateItemCode = -2;

std::unique_ptr<SecretStore>& defaultStoreSlot() {
    static std::unique_ptr<SecretStore> store;
    return store;
}

SecretStore& resolve(SecretStore* keychain) {
    return keychain != nullptr ? *keychain : defaultKeychain();
}

void logFailure(const char* function, long code, const QString& message) {
    qCWarning(lcKeychain).noquote()
        << QString::asprintf("Error: %s failed with error code: %ld msg: ", function, code) +
               message;
}

void logFailure(const char* function, const SecretStore::Reply& reply) {
    logFailure(function, reply.code, reply.message);
}

// The stored form of a record: every attribute and the data as base64 inside a JSON object.
QByteArray encode(const KeychainItem& item) {
    QJsonObject attributes;
    for (auto it = item.attributes.cbegin(); it != item.attributes.cend(); ++it) {
        attributes.insert(QString::fromLatin1(it.key()), QString::fromLatin1(it.value().toBase64()));
    }
    const QJsonObject record{{u"attributes"_s, attributes},
                             {u"data"_s, QString::fromLatin1(item.data.toBase64())}};
    return QJsonDocument(record).toJson(QJsonDocument::Compact);
}

std::optional<KeychainItem> decode(SecretStore& store, const QString& service,
                                   const QByteArray& stored) {
    const QJsonDocument doc = QJsonDocument::fromJson(stored);
    if (!doc.isObject()) {
        return std::nullopt;
    }
    KeychainItem item;
    item.store = &store;
    item.service = service;
    const QJsonObject attributes = doc.object().value(u"attributes"_s).toObject();
    for (auto it = attributes.begin(); it != attributes.end(); ++it) {
        item.attributes.insert(it.key().toLatin1(),
                               QByteArray::fromBase64(it.value().toString().toLatin1()));
    }
    item.attributes.insert(KeychainTag::Service, service.toUtf8());
    item.data = QByteArray::fromBase64(doc.object().value(u"data"_s).toString().toLatin1());
    return item;
}

bool store(const char* function, KeychainItem& item) {
    const SecretStore::Reply reply = item.store->write(item.service, encode(item));
    if (reply.status != SecretStore::Status::Ok) {
        logFailure(function, reply);
        return false;
    }
    return true;
}

QString toString(const QByteArray& bytes) {
    return bytes.isEmpty() ? QString() : QString::fromUtf8(bytes);
}

QString getAttribute(SecretStore* keychain, const QString& service, const QByteArray& tag) {
    const auto item = QKKeychainGetKeychainItemRefWithServiceName(keychain, service);
    return item ? toString(QKKeychainGetItemAttributeTagForKeychainItemRef(*item, tag)) : QString();
}

bool setAttribute(SecretStore* keychain, const QString& service, const QByteArray& tag,
                  const QString& value) {
    auto item = QKKeychainGetKeychainItemRefWithServiceName(keychain, service);
    return item && QKKeychainSetItemAttributeTagForKeychainItemRef(*item, tag, value.toUtf8());
}

}  // namespace

void setDefaultKeychain(std::unique_ptr<SecretStore> store) {
    defaultStoreSlot() = std::move(store);
}

SecretStore& defaultKeychain() {
    auto& slot = defaultStoreSlot();
    if (!slot) {
        slot = std::make_unique<QtKeychainStore>();
    }
    return *slot;
}

bool QKKeychainDoesGenericEntryExist(SecretStore* keychain, const QString& service) {
    const SecretStore::Reply reply = resolve(keychain).read(service);
    switch (reply.status) {
        case SecretStore::Status::Ok:
            return true;
        case SecretStore::Status::NotFound:
            return false;
        case SecretStore::Status::Failed:
            break;
    }
    logFailure("QKKeychainDoesGenericEntryExist", reply);
    return false;
}

bool QKKeychainAddGenericEntry(SecretStore* keychain, const QString& service) {
    SecretStore& target = resolve(keychain);
    const SecretStore::Reply existing = target.read(service);
    if (existing.status == SecretStore::Status::Ok) {
        logFailure("QKKeychainAddGenericEntry", kDuplicateItemCode,
                   u"The specified item already exists in the keychain."_s);
        return false;
    }
    if (existing.status == SecretStore::Status::Failed) {
        logFailure("QKKeychainAddGenericEntry", existing);
        return false;
    }
    KeychainItem item;
    item.store = &target;
    item.service = service;
    item.attributes.insert(KeychainTag::Service, service.toUtf8());
    item.attributes.insert(KeychainTag::Label, service.toUtf8());
    return store("QKKeychainAddGenericEntry", item);
}

bool QKKeychainRemoveGenericEntry(SecretStore* keychain, const QString& service) {
    const SecretStore::Reply reply = resolve(keychain).remove(service);
    if (reply.status == SecretStore::Status::Failed) {
        logFailure("QKKeychainRemoveGenericEntry", reply);
        return false;
    }
    return true;
}

std::optional<KeychainItem> QKKeychainGetKeychainItemRefWithServiceName(SecretStore* keychain,
                                                                        const QString& service) {
    SecretStore& source = resolve(keychain);
    const SecretStore::Reply reply = source.read(service);
    if (reply.status != SecretStore::Status::Ok) {
        logFailure("QKKeychainGetKeychainItemRefWithServiceName", reply);
        return std::nullopt;
    }
    auto item = decode(source, service, reply.data);
    if (!item) {
        logFailure("QKKeychainGetKeychainItemRefWithServiceName", kBadRecordCode,
                   u"The stored record is not readable."_s);
    }
    return item;
}

QByteArray QKKeychainGetPasswordForKeychainItemRef(const KeychainItem& item) {
    return item.data.isEmpty() ? QByteArray() : item.data;
}

bool QKKeychainSetPasswordForKeychainItemRef(KeychainItem& item, const QByteArray& data) {
    KeychainItem changed = item;
    changed.data = data;
    if (!store("QKKeychainSetPasswordForKeychainItemRef", changed)) {
        return false;
    }
    item = std::move(changed);
    return true;
}

QByteArray QKKeychainGetItemAttributeTagForKeychainItemRef(const KeychainItem& item,
                                                           const QByteArray& tag) {
    const QByteArray value = item.attributes.value(tag);
    return value.isEmpty() ? QByteArray() : value;
}

bool QKKeychainSetItemAttributeTagForKeychainItemRef(KeychainItem& item, const QByteArray& tag,
                                                     const QByteArray& data) {
    static constexpr const char* kFunction = "QKKeychainSetItemAttributeTagForKeychainItemRef";
    KeychainItem changed = item;
    changed.attributes.insert(tag, data);
    if (tag != KeychainTag::Service) {
        if (!store(kFunction, changed)) {
            return false;
        }
        item = std::move(changed);
        return true;
    }
    // The service name is the record's address: write under the new name, then drop the old one.
    changed.service = QString::fromUtf8(data);
    if (changed.service == item.service) {
        return true;
    }
    if (!store(kFunction, changed)) {
        return false;
    }
    const SecretStore::Reply removed = item.store->remove(item.service);
    if (removed.status == SecretStore::Status::Failed) {
        logFailure(kFunction, removed);
        return false;
    }
    item = std::move(changed);
    return true;
}

QString QKKeychainGetUserName(SecretStore* keychain, const QString& service) {
    return getAttribute(keychain, service, KeychainTag::Account);
}

bool QKKeychainSetUserName(SecretStore* keychain, const QString& service, const QString& name) {
    return setAttribute(keychain, service, KeychainTag::Account, name);
}

QString QKKeychainGetPassword(SecretStore* keychain, const QString& service) {
    const auto item = QKKeychainGetKeychainItemRefWithServiceName(keychain, service);
    return item ? toString(QKKeychainGetPasswordForKeychainItemRef(*item)) : QString();
}

bool QKKeychainSetPassword(SecretStore* keychain, const QString& service,
                           const QString& password) {
    auto item = QKKeychainGetKeychainItemRefWithServiceName(keychain, service);
    return item && QKKeychainSetPasswordForKeychainItemRef(*item, password.toUtf8());
}

QString QKKeychainGetComment(SecretStore* keychain, const QString& service) {
    return getAttribute(keychain, service, KeychainTag::Comment);
}

bool QKKeychainSetComment(SecretStore* keychain, const QString& service,
                          const QString& comment) {
    return setAttribute(keychain, service, KeychainTag::Comment, comment);
}

bool QKKeychainRenameGenericEntry(SecretStore* keychain, const QString& service,
                                  const QString& newName) {
    auto item = QKKeychainGetKeychainItemRefWithServiceName(keychain, service);
    if (!item) {
        return false;
    }
    return QKKeychainSetItemAttributeTagForKeychainItemRef(*item, KeychainTag::Service,
                                                           newName.toUtf8()) &&
           QKKeychainSetItemAttributeTagForKeychainItemRef(*item, KeychainTag::Label,
                                                           newName.toUtf8());
}
