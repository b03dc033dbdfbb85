#pragma once

// The keychain operation set: one generic record per service name, holding four-character
// attributes ("acct", "icmt", "svce", "labl") and the secret data. Every function takes the
// store first; nullptr selects the process-wide default store (the desktop's Secret Service
// unless replaced with setDefaultKeychain). Each failing call leaves exactly one line in the
// "nivogx.keychain" log category:
//     Error: <function> failed with error code: <code> msg: <backend text>
// A missing record at the existence test is normal (first start) and is not logged.

#include <QByteArray>
#include <QLoggingCategory>
#include <QMap>
#include <QString>
#include <memory>
#include <optional>

#include "platform/SecretStore.h"

Q_DECLARE_LOGGING_CATEGORY(lcKeychain)

namespace KeychainTag {
inline const QByteArray Account = QByteArrayLiteral("acct");
inline const QByteArray Comment = QByteArrayLiteral("icmt");
inline const QByteArray Service = QByteArrayLiteral("svce");
inline const QByteArray Label = QByteArrayLiteral("labl");
}  // namespace KeychainTag

// A record as read from a store; writes through the Set...ForKeychainItemRef functions go back
// to the same store.
struct KeychainItem {
    SecretStore* store = nullptr;
    QString service;
    QMap<QByteArray, QByteArray> attributes;
    QByteArray data;
};

// Replaces the process-wide default store (tests, other platforms). nullptr restores the
// desktop's Secret Service.
void setDefaultKeychain(std::unique_ptr<SecretStore> store);
[[nodiscard]] SecretStore& defaultKeychain();

bool QKKeychainDoesGenericEntryExist(SecretStore* keychain, const QString& service);
bool QKKeychainAddGenericEntry(SecretStore* keychain, const QString& service);
bool QKKeychainRemoveGenericEntry(SecretStore* keychain, const QString& service);

std::optional<KeychainItem> QKKeychainGetKeychainItemRefWithServiceName(SecretStore* keychain,
                                                                        const QString& service);
// Null when the data is empty.
QByteArray QKKeychainGetPasswordForKeychainItemRef(const KeychainItem& item);
bool QKKeychainSetPasswordForKeychainItemRef(KeychainItem& item, const QByteArray& data);
// Null when the attribute is missing or empty.
QByteArray QKKeychainGetItemAttributeTagForKeychainItemRef(const KeychainItem& item,
                                                           const QByteArray& tag);
bool QKKeychainSetItemAttributeTagForKeychainItemRef(KeychainItem& item, const QByteArray& tag,
                                                     const QByteArray& data);

// By service name; strings travel as UTF-8, a null QString means none.
QString QKKeychainGetUserName(SecretStore* keychain, const QString& service);
bool QKKeychainSetUserName(SecretStore* keychain, const QString& service, const QString& name);
QString QKKeychainGetPassword(SecretStore* keychain, const QString& service);
bool QKKeychainSetPassword(SecretStore* keychain, const QString& service, const QString& password);
QString QKKeychainGetComment(SecretStore* keychain, const QString& service);
bool QKKeychainSetComment(SecretStore* keychain, const QString& service, const QString& comment);
// Moves the record to the new service name and relabels it; true only when both succeed.
bool QKKeychainRenameGenericEntry(SecretStore* keychain, const QString& service,
                                  const QString& newName);
