#pragma once

#include <QList>

#include "crypto/toolkit/TVXCmsSignedBy.h"

// The settings of a signed layer, filled in by the generator's sign callback.
class TVXSignTransform {
public:
    void setSigner(QList<TVXCmsSignedBy> signers) { m_signers = std::move(signers); }
    // Whether the content travels inside the signed layer (the only form we write).
    void setIncludePlaintext(bool include) noexcept { m_includePlaintext = include; }
    void setIncludeSignerCert(bool include) noexcept { m_includeSignerCert = include; }

    [[nodiscard]] const QList<TVXCmsSignedBy>& signers() const noexcept { return m_signers; }
    [[nodiscard]] bool includePlaintext() const noexcept { return m_includePlaintext; }
    [[nodiscard]] bool includeSignerCert() const noexcept { return m_includeSignerCert; }

private:
    QList<TVXCmsSignedBy> m_signers;
    bool m_includePlaintext = false;
    bool m_includeSignerCert = false;
};
