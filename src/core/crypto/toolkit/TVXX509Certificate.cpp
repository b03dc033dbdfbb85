#include "crypto/toolkit/TVXX509Certificate.h"

#include "crypto/cms/OpenSsl.h"

TVXX509Certificate::TVXX509Certificate(std::shared_ptr<x509_st> certificate)
    : m_certificate(std::move(certificate)) {}

QString TVXX509Certificate::subjectCN() const {
    const X509_NAME* subject = X509_get_subject_name(m_certificate.get());
    // With several common names the last one is the most specific.
    int index = -1;
    for (int next = X509_NAME_get_index_by_NID(subject, NID_commonName, -1); next >= 0;
         next = X509_NAME_get_index_by_NID(subject, NID_commonName, next)) {
        index = next;
    }
    if (index < 0) {
        return {};
    }
    const ASN1_STRING* value = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index));
    unsigned char* utf8 = nullptr;
    const int length = ASN1_STRING_to_UTF8(&utf8, value);
    if (length < 0) {
        ERR_clear_error();
        return {};
    }
    const std::unique_ptr<unsigned char, nivossl::Free<nivossl::opensslFree>> owned(utf8);
    return QString::fromUtf8(reinterpret_cast<const char*>(utf8), length);
}

QByteArray TVXX509Certificate::asRawData() const {
    const int length = i2d_X509(m_certificate.get(), nullptr);
    if (length <= 0) {
        ERR_clear_error();
        return {};
    }
    QByteArray der(length, Qt::Uninitialized);
    auto* out = reinterpret_cast<unsigned char*>(der.data());
    i2d_X509(m_certificate.get(), &out);
    return der;
}
