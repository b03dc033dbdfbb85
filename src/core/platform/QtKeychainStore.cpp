#include "platform/QtKeychainStore.h"

#include <qt6keychain/keychain.h>

#include <QCoreApplication>
#include <QEventLoop>

using namespace Qt::Literals::StringLiterals;

namespace {

// QtKeychain addresses a secret by service and key; the application keeps one record per
// service, so the key is fixed.
const QString kRecordKey = u"record"_s;

template <typename Job>
SecretStore::Reply run(Job& job) {
    SecretStore::Reply reply;
    if (QCoreApplication::instance() == nullptr) {
        reply.code = QKeychain::OtherError;
        reply.message = u"No application instance to run the keychain job"_s;
        return reply;
    }
    job.setAutoDelete(false);
    job.setKey(kRecordKey);
    bool done = false;
    QEventLoop loop;
    QObject::connect(&job, &QKeychain::Job::finished, &loop, [&done, &loop] {
        done = true;
        loop.quit();
    });
    job.start();
    if (!done) {
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    }
    reply.code = job.error();
    reply.message = job.errorString();
    switch (job.error()) {
        case QKeychain::NoError:
            reply.status = SecretStore::Status::Ok;
            break;
        case QKeychain::EntryNotFound:
            reply.status = SecretStore::Status::NotFound;
            break;
        default:
            reply.status = SecretStore::Status::Failed;
            break;
    }
    return reply;
}

}  // namespace

SecretStore::Reply QtKeychainStore::read(const QString& service) {
    QKeychain::ReadPasswordJob job(service);
    Reply reply = run(job);
    if (reply.status == Status::Ok) {
        reply.data = job.binaryData();
    }
    return reply;
}

SecretStore::Reply QtKeychainStore::write(const QString& service, const QByteArray& record) {
    QKeychain::WritePasswordJob job(service);
    job.setBinaryData(record);
    return run(job);
}

SecretStore::Reply QtKeychainStore::remove(const QString& service) {
    QKeychain::DeletePasswordJob job(service);
    return run(job);
}
