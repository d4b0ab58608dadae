#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace corvina {

// Decides whether a server's certificate chain may be trusted, before anything (least of all the
// password) is sent to it. Checked with GnuTLS, the TLS library the IMAP library itself uses.
class CertificateCheck {
public:
    // Empty when `chain` (DER, the server's own certificate first) is valid for `host` and issued
    // by a trusted authority: one of the system's trusted certificates, or, when `caFile` names a
    // PEM file, one of the certificates in it (and only those). Otherwise one line saying which
    // certificate and what is wrong with it.
    static QString problem(const QList<QByteArray>& chain, const QString& host, const QString& caFile);
};

} // namespace corvina
