#pragma once

#include <QByteArray>
#include <QString>
#include <memory>

struct x509_st;

// An X.509 certificate. Copies share the one underlying certificate.
class TVXX509Certificate {
public:
    // For the crypto layer: takes over one reference to `certificate`.
    explicit TVXX509Certificate(std::shared_ptr<x509_st> certificate);

    // The subject's common name; empty when the subject has none.
    [[nodiscard]] QString subjectCN() const;
    // The DER encoding.
    [[nodiscard]] QByteArray asRawData() const;

    // For the crypto layer: borrowed, valid while this object lives.
    [[nodiscard]] x509_st* handle() const noexcept { return m_certificate.get(); }

private:
    std::shared_ptr<x509_st> m_certificate;
};
