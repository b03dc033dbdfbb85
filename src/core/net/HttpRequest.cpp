#include "net/HttpRequest.h"

#include <QEventLoop>
#include <mutex>
#include <optional>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslConfiguration>
#include <QStringDecoder>

using namespace Qt::Literals::StringLiterals;

const QString HttpRequest::kConnectionFailure = u"A connection failure occurred"_s;
const QString HttpRequest::kTimedOut = u"The request timed out"_s;
const QString HttpRequest::kAnswerTooLarge = u"The server's answer is too large."_s;
const QString HttpRequest::kTlsFailure = u"The TLS handshake failed"_s;

namespace {

bool isConnectionFailure(QNetworkReply::NetworkError error) {
    switch (error) {
        case QNetworkReply::ConnectionRefusedError:
        case QNetworkReply::RemoteHostClosedError:
        case QNetworkReply::HostNotFoundError:
        case QNetworkReply::TemporaryNetworkFailureError:
        case QNetworkReply::NetworkSessionFailedError:
        case QNetworkReply::UnknownNetworkError:
        case QNetworkReply::ProxyConnectionRefusedError:
        case QNetworkReply::ProxyConnectionClosedError:
        case QNetworkReply::ProxyNotFoundError:
        case QNetworkReply::ProxyTimeoutError:
            return true;
        default:
            return false;
    }
}

// Failures of the exchange itself, even when a status line came before them.
bool isProtocolFailure(QNetworkReply::NetworkError error) {
    return error == QNetworkReply::ProtocolUnknownError ||
           error == QNetworkReply::ProtocolInvalidOperationError ||
           error == QNetworkReply::ProtocolFailure || error == QNetworkReply::ContentReSendError;
}

}  // namespace

QByteArray HttpRequest::encodeForm(const Fields& fields) {
    QByteArray body;
    for (const auto& [name, value] : fields) {
        if (!body.isEmpty()) {
            body += '&';
        }
        body += QUrl::toPercentEncoding(name) + '=' + QUrl::toPercentEncoding(value);
    }
    return body;
}

QString HttpRequest::decodeBody(const QByteArray& body, const QByteArray& contentType) {
    QByteArray charset;
    for (const QByteArray& parameter : contentType.split(';')) {
        const QByteArray trimmed = parameter.trimmed();
        if (trimmed.toLower().startsWith("charset=")) {
            charset = trimmed.mid(8).trimmed();
            if (charset.size() >= 2 && charset.startsWith('"') && charset.endsWith('"')) {
                charset = charset.mid(1, charset.size() - 2);
            }
        }
    }
    QString text;
    QStringDecoder decoder(charset.isEmpty() ? "ISO-8859-1" : charset.constData(),
                           QStringConverter::Flag::Stateless);
    if (decoder.isValid()) {
        text = decoder.decode(body);
        if (decoder.hasError()) {
            return {};
        }
    } else {
        // A charset nobody knows: read the bytes as ISO 8859-1 rather than lose the answer.
        text = QString::fromLatin1(body);
    }
    // An empty answer is still an answer, not a missing one.
    return text.isNull() ? u""_s : text;
}

QList<QSslCertificate> HttpRequest::systemCaCertificates() {
    // The variables OpenSSL itself reads, for a store somewhere else than the system's.
    const QString file = qEnvironmentVariable("SSL_CERT_FILE");
    const QString folder = qEnvironmentVariable("SSL_CERT_DIR");
    static std::mutex mutex;
    static QString loadedFile;
    static QString loadedFolder;
    static std::optional<QList<QSslCertificate>> loaded;
    const std::lock_guard lock(mutex);
    if (loaded && loadedFile == file && loadedFolder == folder) {
        return *loaded;
    }
    QList<QSslCertificate> found;
    if (file.isEmpty() && folder.isEmpty()) {
        found = QSslConfiguration::systemCaCertificates();
    }
    if (!file.isEmpty()) {
        found += QSslCertificate::fromPath(file, QSsl::Pem);
    }
    for (const QString& entry : folder.split(u':', Qt::SkipEmptyParts)) {
        found += QSslCertificate::fromPath(entry + u"/*"_s, QSsl::Pem,
                                           QSslCertificate::PatternSyntax::Wildcard);
    }
    loadedFile = file;
    loadedFolder = folder;
    loaded = found;
    return found;
}

HttpRequest::Result HttpRequest::postForm(const QUrl& url, const Fields& fields,
                                          const Options& options) {
    QNetworkAccessManager manager;
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader,
                      u"application/x-www-form-urlencoded; charset=utf-8"_s);
    request.setTransferTimeout(options.timeoutMs);
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    // Adding to the default list would replace the system's store, which Qt otherwise loads only
    // on demand: the extra CAs join it instead.
    tls.setCaCertificates(systemCaCertificates() + options.extraCaCertificates);
    tls.setPeerVerifyMode(QSslSocket::VerifyPeer);
    request.setSslConfiguration(tls);

    QNetworkReply* reply = manager.post(request, encodeForm(fields));
    bool tooLarge = false;
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::downloadProgress, &loop,
                     [reply, &tooLarge](qint64 received, qint64 total) {
                         if (received > kMaxAnswerBytes || total > kMaxAnswerBytes) {
                             tooLarge = true;
                             reply->abort();
                         }
                     });
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    if (!reply->isFinished()) {
        loop.exec();
    }

    Result result;
    const QNetworkReply::NetworkError error = reply->error();
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (tooLarge) {
        result.error = kAnswerTooLarge;
    } else if (error == QNetworkReply::OperationCanceledError ||
               error == QNetworkReply::TimeoutError) {
        result.error = kTimedOut;
    } else if (error == QNetworkReply::SslHandshakeFailedError) {
        result.error = kTlsFailure;
        result.unreachable = true;
    } else if (isConnectionFailure(error)) {
        result.error = kConnectionFailure;
        result.unreachable = true;
    } else if (isProtocolFailure(error) || (error != QNetworkReply::NoError && !status.isValid())) {
        result.error = reply->errorString();
    } else {
        result.status = status.toInt();
        result.statusReason =
            QString::fromLatin1(reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute)
                                    .toByteArray())
                .trimmed();
        result.body = decodeBody(reply->readAll(),
                                 reply->rawHeader("Content-Type"));
    }
    delete reply;
    return result;
}
