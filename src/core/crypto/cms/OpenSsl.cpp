#include "crypto/cms/OpenSsl.h"

#include <ctime>

#include <QIODevice>
#include <QStringList>
#include <limits>

#include "crypto/toolkit/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// An OpenSSL BIO over a QIODevice, so that the CMS engine reads and writes through Qt's devices
// (files with Unicode paths and atomic replacement, growing byte arrays).
int deviceWrite(BIO* bio, const char* data, int length) {
    auto* device = static_cast<QIODevice*>(BIO_get_data(bio));
    return device->write(data, length) == length ? length : -1;
}

int deviceRead(BIO* bio, char* data, int length) {
    auto* device = static_cast<QIODevice*>(BIO_get_data(bio));
    const qint64 read = device->read(data, length);
    return read < 0 ? -1 : static_cast<int>(read);
}

long deviceCtrl(BIO* bio, int command, long /*number*/, void* /*pointer*/) {
    auto* device = static_cast<QIODevice*>(BIO_get_data(bio));
    switch (command) {
    case BIO_CTRL_FLUSH:
        return 1;
    case BIO_CTRL_EOF:
        return device->atEnd() ? 1 : 0;
    default:
        return 0;
    }
}

int readyOnCreation(BIO* bio) {
    BIO_set_init(bio, 1);
    return 1;
}

const BIO_METHOD* deviceMethod() {
    static const nivossl::BioMethodPtr method =
        nivossl::sourceSinkMethod("Qt device", deviceRead, deviceWrite, deviceCtrl);
    return method.get();
}

}  // namespace

namespace nivossl {

std::shared_ptr<X509> shareCert(X509Ptr cert) {
    return {cert.release(), Free<X509_free>{}};
}

std::shared_ptr<EVP_PKEY> shareKey(PkeyPtr key) {
    return {key.release(), Free<EVP_PKEY_free>{}};
}

X509Ptr upRef(X509* cert) {
    if (cert != nullptr && X509_up_ref(cert) != 1) {
        return nullptr;
    }
    return X509Ptr(cert);
}

Errors Errors::drain() {
    Errors errors;
    QStringList parts;
    const char* data = nullptr;
    int flags = 0;
    unsigned long code = 0;
    while ((code = ERR_get_error_all(nullptr, nullptr, nullptr, &data, &flags)) != 0) {
        errors.m_codes.append(code);
        char buffer[256];
        ERR_error_string_n(code, buffer, sizeof buffer);
        QString part = QString::fromUtf8(buffer);
        if ((flags & ERR_TXT_STRING) != 0 && data != nullptr && *data != '\0') {
            part += u" ("_s + QString::fromUtf8(data) + u')';
        }
        parts.append(part);
    }
    errors.m_text = parts.join(u"; "_s);
    return errors;
}

bool Errors::has(int library, int reason) const noexcept {
    for (const unsigned long code : m_codes) {
        if (ERR_GET_LIB(code) == library && ERR_GET_REASON(code) == reason) {
            return true;
        }
    }
    return false;
}

bool Errors::mentionsUnsupported() const {
    for (const unsigned long code : m_codes) {
        const char* reason = ERR_reason_error_string(code);
        if (reason != nullptr &&
            QString::fromUtf8(reason).contains(u"unsupported"_s, Qt::CaseInsensitive)) {
            return true;
        }
    }
    return false;
}

void fail(const QString& exceptionName, const QString& what, std::source_location where) {
    fail(exceptionName, what, Errors::drain(), where);
}

void fail(const QString& exceptionName, const QString& what, const Errors& errors,
          std::source_location where) {
    const QString description = errors.isEmpty() ? what : what + u" ("_s + errors.text() + u')';
    throw comTruvexUtil_ExceptionUtil::exceptionWithExceptionName(
        exceptionName, description, QString::fromUtf8(where.file_name()),
        QString::fromUtf8(where.function_name()), static_cast<int>(where.line()));
}

QByteArray memBioBytes(BIO* bio) {
    BUF_MEM* buffer = nullptr;
    if (BIO_ctrl(bio, BIO_C_GET_BUF_MEM_PTR, 0, &buffer) <= 0 || buffer == nullptr) {
        return {};
    }
    return QByteArray(buffer->data, static_cast<qsizetype>(buffer->length));
}

BioPtr deviceBio(QIODevice* device) {
    BioPtr bio(BIO_new(deviceMethod()));
    if (bio) {
        BIO_set_data(bio.get(), device);
    }
    return bio;
}

BioMethodPtr sourceSinkMethod(const char* name, int (*read)(BIO*, char*, int),
                              int (*write)(BIO*, const char*, int),
                              long (*ctrl)(BIO*, int, long, void*)) {
    BioMethodPtr method(BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, name));
    if (method && ((read != nullptr && BIO_meth_set_read(method.get(), read) != 1) ||
                   (write != nullptr && BIO_meth_set_write(method.get(), write) != 1) ||
                   (ctrl != nullptr && BIO_meth_set_ctrl(method.get(), ctrl) != 1) ||
                   BIO_meth_set_create(method.get(), readyOnCreation) != 1)) {
        method.reset();
    }
    return method;
}

QDateTime dateTimeOf(const ASN1_TIME* time) {
    std::tm parts{};
    if (time == nullptr || ASN1_TIME_to_tm(time, &parts) != 1) {
        ERR_clear_error();
        return {};
    }
    return QDateTime(QDate(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday),
                     QTime(parts.tm_hour, parts.tm_min, parts.tm_sec), Qt::UTC);
}

BioPtr readOnlyBio(const QByteArray& bytes) {
    if (bytes.size() > std::numeric_limits<int>::max()) {
        return nullptr;
    }
    return BioPtr(BIO_new_mem_buf(bytes.constData(), static_cast<int>(bytes.size())));
}

}  // namespace nivossl
