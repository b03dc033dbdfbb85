#pragma once

#include <QList>
#include <optional>

#include "crypto/cms/CmsAlgorithms.h"
#include "crypto/toolkit/TVXCmsEncryptedFor.h"

// The settings of an enveloped layer, filled in by the generator's envelope callback.
class TVXEnvelopeTransform {
public:
    void setAlgorithmForEncryptionOfContent(const TVXAlgorithmDescriptor& algorithm) noexcept {
        m_algorithm = algorithm;
    }
    void setRecipient(QList<TVXCmsEncryptedFor> recipients) { m_recipients = std::move(recipients); }

    [[nodiscard]] const std::optional<TVXAlgorithmDescriptor>& algorithm() const noexcept {
        return m_algorithm;
    }
    [[nodiscard]] const QList<TVXCmsEncryptedFor>& recipients() const noexcept {
        return m_recipients;
    }

private:
    std::optional<TVXAlgorithmDescriptor> m_algorithm;
    QList<TVXCmsEncryptedFor> m_recipients;
};
