#include "CertificateCheck.h"

#include <QFile>
#include <QStringList>
#include <gnutls/gnutls.h>
#include <gnutls/x509.h>
#include <vector>

namespace corvina {

namespace {

QString text(const gnutls_datum_t& datum) {
    QString value =
        QString::fromUtf8(reinterpret_cast<const char*>(datum.data), static_cast<qsizetype>(datum.size));
    gnutls_free(datum.data);
    return value;
}

QString subjectOf(gnutls_x509_crt_t certificate) {
    gnutls_datum_t dn{};
    if (gnutls_x509_crt_get_dn2(certificate, &dn) < 0)
        return QStringLiteral("(unreadable name)");
    return text(dn);
}

QString issuerOf(gnutls_x509_crt_t certificate) {
    gnutls_datum_t dn{};
    if (gnutls_x509_crt_get_issuer_dn2(certificate, &dn) < 0)
        return QStringLiteral("(unreadable name)");
    return text(dn);
}

// Owns what GnuTLS hands out, on every way out.
struct Certificates {
    std::vector<gnutls_x509_crt_t> list;
    Certificates() = default;
    Certificates(const Certificates&) = delete;
    Certificates& operator=(const Certificates&) = delete;
    ~Certificates() {
        for (gnutls_x509_crt_t c : list)
            gnutls_x509_crt_deinit(c);
    }
};

struct TrustList {
    gnutls_x509_trust_list_t list = nullptr;
    TrustList() { gnutls_x509_trust_list_init(&list, 0); }
    TrustList(const TrustList&) = delete;
    TrustList& operator=(const TrustList&) = delete;
    ~TrustList() {
        if (list != nullptr)
            gnutls_x509_trust_list_deinit(list, 1);
    }
};

} // namespace

QString CertificateCheck::problem(const QList<QByteArray>& chain, const QString& host,
                                  const QString& caFile) {
    if (chain.isEmpty())
        return QStringLiteral("the server sent no certificate");
    Certificates certificates;
    for (const QByteArray& der : chain) {
        gnutls_x509_crt_t certificate = nullptr;
        if (gnutls_x509_crt_init(&certificate) < 0)
            return QStringLiteral("out of memory");
        certificates.list.push_back(certificate);
        gnutls_datum_t datum{reinterpret_cast<unsigned char*>(const_cast<char*>(der.constData())),
                             static_cast<unsigned int>(der.size())};
        if (gnutls_x509_crt_import(certificate, &datum, GNUTLS_X509_FMT_DER) < 0)
            return QStringLiteral("the server sent a certificate that cannot be read");
    }

    TrustList trusted;
    if (trusted.list == nullptr)
        return QStringLiteral("out of memory");
    if (caFile.isEmpty()) {
        if (gnutls_x509_trust_list_add_system_trust(trusted.list, 0, 0) <= 0)
            return QStringLiteral(
                "this system has no trusted certificates to check it against (name a caFile)");
    } else {
        if (!QFile::exists(caFile))
            return QStringLiteral("caFile %1 does not exist").arg(caFile);
        const int added = gnutls_x509_trust_list_add_trust_file(
            trusted.list, QFile::encodeName(caFile).constData(), nullptr, GNUTLS_X509_FMT_PEM, 0, 0);
        if (added < 0)
            return QStringLiteral("caFile %1 cannot be read: %2")
                .arg(caFile, QString::fromUtf8(gnutls_strerror(added)));
        if (added == 0)
            return QStringLiteral("caFile %1 holds no PEM certificate").arg(caFile);
    }

    const QByteArray hostName = host.toUtf8();
    gnutls_typed_vdata_st checks[2]{};
    checks[0].type = GNUTLS_DT_DNS_HOSTNAME;
    checks[0].data = reinterpret_cast<unsigned char*>(const_cast<char*>(hostName.constData()));
    checks[1].type = GNUTLS_DT_KEY_PURPOSE_OID;
    checks[1].data = reinterpret_cast<unsigned char*>(const_cast<char*>(GNUTLS_KP_TLS_WWW_SERVER));
    unsigned int status = 0;
    const int result = gnutls_x509_trust_list_verify_crt2(trusted.list, certificates.list.data(),
                                                          static_cast<unsigned int>(certificates.list.size()),
                                                          checks, 2, 0, &status, nullptr);
    if (result < 0)
        return QStringLiteral("it could not be checked: %1").arg(QString::fromUtf8(gnutls_strerror(result)));
    if (status == 0)
        return QString();

    gnutls_x509_crt_t server = certificates.list.front();
    QStringList why;
    if (status & GNUTLS_CERT_SIGNER_NOT_FOUND)
        why << (caFile.isEmpty() ? QStringLiteral("issued by %1, which is not a trusted authority")
                                       .arg(issuerOf(certificates.list.back()))
                                 : QStringLiteral("issued by %1, which is not in caFile %2")
                                       .arg(issuerOf(certificates.list.back()), caFile));
    if (status & GNUTLS_CERT_UNEXPECTED_OWNER)
        why << QStringLiteral("made for another name than %1").arg(host);
    if (status & GNUTLS_CERT_EXPIRED)
        why << QStringLiteral("expired");
    if (status & GNUTLS_CERT_NOT_ACTIVATED)
        why << QStringLiteral("not valid yet");
    if (status & GNUTLS_CERT_REVOKED)
        why << QStringLiteral("revoked");
    if (status & GNUTLS_CERT_INSECURE_ALGORITHM)
        why << QStringLiteral("signed with an insecure algorithm");
    if (status & GNUTLS_CERT_SIGNATURE_FAILURE)
        why << QStringLiteral("its signature does not match");
    if (status & GNUTLS_CERT_PURPOSE_MISMATCH)
        why << QStringLiteral("not meant for a server");
    if (why.isEmpty()) {
        gnutls_datum_t printed{};
        if (gnutls_certificate_verification_status_print(status, GNUTLS_CRT_X509, &printed, 0) >= 0)
            why << text(printed).trimmed();
        else
            why << QStringLiteral("not valid (status %1)").arg(status);
    }
    return QStringLiteral("%1 %2").arg(subjectOf(server), why.join(QStringLiteral(", ")));
}

} // namespace corvina
