#pragma once

#include "bridge/config/BridgeConfig.h"
#include "model/ExtensionMessage.h"
#include "support/DovecotServer.h"
#include "support/OAuthProvider.h"
#include "support/TempContainer.h"

#include <QJsonObject>
#include <QMap>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>
#include <QVariantMap>
#include <gtest/gtest.h>

// Readable failure messages for texts.
inline void PrintTo(const QString& text, std::ostream* os) {
    *os << '"' << text.toStdString() << '"';
}

namespace corvina::test {

// The stand-in browser (no real one can be had in a test): an executable script made in `folder`
// that takes the authorization URL as its argument and fetches it with curl. `mode`: "follow"
// (the redirect to the bridge's listener taken, as a browser does), "forge-state" (the redirect's
// state replaced) or "drop-code" (the redirect without its code). The page the listener answered
// with lands in `folder`/page.html.
QString standInBrowser(const QString& folder, const QString& mode);

// What corvina-mail-bridge did when a test ran it.
struct BridgeRun {
    int exitCode = -1;
    QString out;
    QString err;
};

// A test with its own Dovecot (user "ada", password "secret"), its own shared folder, and a place
// for a bridge.conf. The server is up when the test body starts; with TLS when `withTls()` says so.
class BridgeServerTest : public ::testing::Test {
protected:
    virtual bool withTls() const { return false; }

    static inline const QString Mail = QStringLiteral("ada@example.org");
    static inline const QString User = QStringLiteral("ada");
    static inline const QString Password = QStringLiteral("secret");

    void SetUp() override;

    // bridge.conf with one group per entry of `accounts`, each a map of keys to values.
    QString writeConfig(const QMap<QString, QVariantMap>& accounts);
    // The keys of an account of ada on the test's server; `extra` adds or replaces keys.
    QVariantMap accountKeys(const QVariantMap& extra = {}) const;
    // The account as the bridge reads it from such a config.
    BridgeConfig::Account account(const QVariantMap& extra = {});

    // Delivers a message to ada's `folder`.
    QString deliver(const QString& subject, const QString& from = QStringLiteral("Grace <grace@example.org>"),
                    const QString& flags = QString(), const QString& folder = QStringLiteral("INBOX"),
                    const QString& date = QStringLiteral("Tue, 14 Nov 2023 22:13:20 +0000"));

    // Runs corvina-mail-bridge with `arguments` after --config `config` (and a 10 s --timeout),
    // `input` on its standard input (a pipe, never a terminal).
    static BridgeRun
    runBridge(const QStringList& arguments, const QString& config, const QByteArray& input = QByteArray(),
              const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment());

    // What the widget reads from the shared folder, through its own loader.
    static ExtensionMessageList widgetMessages();
    // The entry of account `name` in the status file the bridge keeps under the XDG state folder
    // `stateHome`; empty when the file or the entry is not there.
    static QJsonObject accountStatus(const QString& stateHome, const QString& name);

    // One snapshot file as written, parsed.
    QVariantMap snapshot(const QString& file) const;

    DovecotServer server;
    TempContainer container;
    QTemporaryDir configDir;
    int delivered = 0;
};

// A BridgeServerTest whose Dovecot also takes OAuth 2 access tokens (the SASL mechanisms that
// `mechanisms()` names), asking the stand-in provider (support/OAuthProvider) about each one.
// The provider is up before the server starts.
class TokenServerTest : public BridgeServerTest {
protected:
    virtual QString mechanisms() const { return QStringLiteral("xoauth2 oauthbearer"); }

    void SetUp() override;

    // An access token for ada, good for an hour unless `expired`: then made inactive at once, as
    // a token that ran out. expire() ends every access token of the user so far, so an expired one
    // is made before the good ones.
    QString mint(bool expired = false);
    // How many times Dovecot logged ada in with `method` ("OAUTHBEARER", "XOAUTH2").
    int loginsWith(const QString& method) const;

    OAuthProvider provider;
};

} // namespace corvina::test
