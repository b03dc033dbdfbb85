#pragma once

#include <QByteArray>
#include <QTextStream>

// A certificate as the tool shows it.
class CliCertificate {
public:
    // Subject, issuer, validity and fingerprint of a DER certificate, a line each.
    static void print(QTextStream& out, const QByteArray& der);
};
