#include "crypto/OpenSsl.h"

#include <QStringList>
#include <limits>

#include "crypto/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;

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

BioPtr readOnlyBio(const QByteArray& bytes) {
    if (bytes.size() > std::numeric_limits<int>::max()) {
        return nullptr;
    }
    return BioPtr(BIO_new_mem_buf(bytes.constData(), static_cast<int>(bytes.size())));
}

}  // namespace nivossl
