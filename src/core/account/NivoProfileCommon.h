#pragma once

#include <QByteArray>

// The CA certificates (DER) compiled into the program; each getter returns a new buffer.
class NivoProfileCommon {
public:
    NivoProfileCommon() = delete;
    // Root of the user certificates that the account service issues.
    [[nodiscard]] static QByteArray getNivoRootCer();
    // Root and intermediate of the account server's TLS certificate chain.
    [[nodiscard]] static QByteArray getNivoCommRootCer();
    [[nodiscard]] static QByteArray getNivoCommIntermediateCer();
};
