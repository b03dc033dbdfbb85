#include "ServerThread.h"

#include <QDir>

#include "server/AccountAuthority.h"
#include "server/AccountHttpServer.h"
#include "server/AccountService.h"
#include "server/AccountStore.h"

struct ServerThread::Parts {
    Parts(const QString& dir, const AccountService::Policy& policy,
          const AccountHttpServer::Options& options)
        : store(AccountStore::sqliteUrl(QDir(dir).filePath(QStringLiteral("accounts.db")))),
          authority(QStringLiteral(NIVOGX_DEV_CERTS_DIR "/service-root.cer"),
                    QStringLiteral(NIVOGX_DEV_CERTS_DIR "/service-root.key")),
          service(store, authority, policy),
          http(service, store, options) {}

    AccountStore store;
    AccountAuthority authority;
    AccountService service;
    AccountHttpServer http;
};

ServerThread::ServerThread(AccountService::Policy policy, AccountHttpServer::Options options)
    : m_anchor(new QObject) {
    m_anchor->moveToThread(&m_thread);
    QObject::connect(&m_thread, &QThread::finished, m_anchor, &QObject::deleteLater);
    m_thread.start();
    const QString dir = m_dir.path();
    QMetaObject::invokeMethod(
        m_anchor,
        [this, dir, policy, options] {
            m_parts = new Parts(dir, policy, options);
            if (!m_parts->store.open() || !m_parts->authority.isValid() ||
                !m_parts->http.setTls(QStringLiteral(NIVOGX_DEV_CERTS_DIR "/server-tls-chain.pem"),
                                      QStringLiteral(NIVOGX_DEV_CERTS_DIR "/server-tls.key"))) {
                return quint16{0};
            }
            return m_parts->http.listen(QHostAddress::LocalHost, 0);
        },
        Qt::BlockingQueuedConnection, &m_port);
}

ServerThread::~ServerThread() {
    QMetaObject::invokeMethod(m_anchor, [this] { delete m_parts; }, Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
}

QString ServerThread::baseUrl() const {
    return m_port == 0 ? QString() : QStringLiteral("https://127.0.0.1:%1").arg(m_port);
}
