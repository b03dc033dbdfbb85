#include "account/AccountServer.h"

#include <QMutex>
#include <QSslCertificate>

#include "BuildConfig.h"
#include "account/NivoProfileCommon.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// Requests run on worker threads while the CLI may set the address on the main one.
QMutex g_mutex;
QString g_override;

QUrl withDefaultPort(QUrl url) {
    if (url.port() == -1) {
        url.setPort(443);
    }
    return url;
}

}  // namespace

QUrl AccountServer::baseUrl() {
    QString chosen;
    {
        const QMutexLocker lock(&g_mutex);
        chosen = g_override;
    }
    if (chosen.isEmpty()) {
        chosen = qEnvironmentVariable("NIVOGX_SERVER");
    }
    if (chosen.isEmpty()) {
        chosen = QString::fromUtf8(BuildConfig::kDefaultServer);
    }
    return withDefaultPort(QUrl(chosen, QUrl::StrictMode));
}

void AccountServer::setBaseUrl(const QString& url) {
    const QMutexLocker lock(&g_mutex);
    g_override = url.trimmed();
}

QUrl AccountServer::endpoint(const QString& path) {
    QUrl url = baseUrl();
    QString base = url.path();
    if (base.endsWith(u'/')) {
        base.chop(1);
    }
    url.setPath(base + path);
    return url;
}

HttpRequest::Options AccountServer::requestOptions() {
    HttpRequest::Options options;
    for (const QByteArray& der :
         {NivoProfileCommon::getNivoCommRootCer(), NivoProfileCommon::getNivoCommIntermediateCer()}) {
        options.extraCaCertificates.append(QSslCertificate(der, QSsl::Der));
    }
    return options;
}

HttpRequest::Result AccountServer::post(const QString& path, const HttpRequest::Fields& fields) {
    return HttpRequest::postForm(endpoint(path), fields, requestOptions());
}
