#include "ServerThread.h"

#include <QDir>

#include "server/AccountAuthority.h"
#include "server/AccountHttpServer.h"
#include "server/AccountService.h"
#include "server/AccountStore.h"

struct ServerThread::Parts {
    explicit Parts(const QString& dir)
        : store(QDir(dir).filePath(QStringLiteral("accounts.db"))),
          authority(QStringLiteral(NIVOGX_DEV_CERTS_DIR "/service-root.cer"),
                    QStringLiteral(NIVOGX_DEV_CERTS_DIR "/service-root.key")),
          service(store, authority),
          http(service) {}

    AccountStore store;
    AccountAuthority authority;
    AccountService service;
    AccountHttpServer http;
};

ServerThread::ServerThread() : m_anchor(new QObject) {
    m_anchor->moveToThread(&m_thread);
    QObject::connect(&m_thread, &QThread::finished, m_anchor, &QObject::deleteLater);
    m_thread.start();
    const QString dir = m_dir.path();
    QMetaObject::invokeMethod(
        m_anchor,
        [this, dir] {
            m_parts = new Parts(dir);
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
