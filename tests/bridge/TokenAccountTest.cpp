// Accounts with auth = oauth2 and a tokenCommand, run as a person runs the bridge (--once, check)
// against the test's Dovecot, which asks the stand-in provider (support/OAuthProvider) about every
// token. The tokenCommand is a small script of the test's that prints the next line of a file of
// tokens the test minted, and counts its runs.
#include "BridgeTesting.h"
#include "support/OAuthProvider.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

class TokenAccountTest : public BridgeServerTest {
protected:
    virtual QString mechanisms() const { return QStringLiteral("xoauth2 oauthbearer"); }

    void SetUp() override {
        QString error;
        ASSERT_TRUE(provider.start(&error)) << error.toStdString();
        server.enableTokenLogins(provider.introspectUrl(), mechanisms());
        BridgeServerTest::SetUp();
        QFile script(scripts.filePath(QStringLiteral("token.sh")));
        ASSERT_TRUE(script.open(QIODevice::WriteOnly));
        script.write("n=$(cat \"$1/runs\" 2>/dev/null || echo 0)\n"
                     "n=$((n + 1))\n"
                     "echo $n > \"$1/runs\"\n"
                     "sed -n \"${n}p\" \"$1/tokens\"\n");
        environment.insert(QStringLiteral("XDG_STATE_HOME"), state.path());
    }

    // A token for ada, good for an hour unless `expired`.
    QString mint(bool expired = false) {
        const std::optional<OAuthProvider::Tokens> tokens = provider.mint(User);
        EXPECT_TRUE(tokens);
        // Made inactive at once, as a token that ran out: expire() ends every access token of the
        // user so far, so an expired one is made before the good ones.
        if (expired) {
            EXPECT_TRUE(provider.expire(User));
        }
        return tokens ? tokens->accessToken : QString();
    }
    // The tokens the command prints, one a run.
    void setTokens(const QStringList& tokens) {
        QFile file(scripts.filePath(QStringLiteral("tokens")));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(tokens.join(u'\n').toUtf8() + '\n');
    }
    int runs() const {
        QFile file(scripts.filePath(QStringLiteral("runs")));
        return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed().toInt() : 0;
    }
    QString tokenConfig() {
        return writeConfig(
            {{QStringLiteral("work"),
              accountKeys({{"passwordCommand", QVariant()},
                           {"auth", "oauth2"},
                           {"tokenCommand", QStringLiteral("sh %1/token.sh %1").arg(scripts.path())}})}});
    }
    BridgeRun run(const QString& what, const QString& config) {
        return runBridge({what}, config, QByteArray(), environment);
    }
    QJsonObject status() const {
        QFile file(state.filePath(QStringLiteral("corvina/bridge-status.json")));
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QJsonDocument::fromJson(file.readAll())
            .object()
            .value(QStringLiteral("accounts"))
            .toObject()
            .value(QStringLiteral("work"))
            .toObject();
    }
    // Every file the bridge may have written (the shared folder, the state folder, bridge.conf's
    // folder) that holds `token`.
    QStringList filesHolding(const QString& token) const {
        QStringList found;
        for (const QString& root : {container.root(), state.path(), configDir.path()}) {
            QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
            while (it.hasNext()) {
                QFile file(it.next());
                if (file.open(QIODevice::ReadOnly) && file.readAll().contains(token.toUtf8()))
                    found << file.fileName();
            }
        }
        return found;
    }
    int loginsWith(const QString& method) const {
        return server.log().count(QStringLiteral("Login: user=<%1>, method=%2,").arg(User, method));
    }

    OAuthProvider provider;
    QTemporaryDir scripts;
    QTemporaryDir state;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
};

TEST_F(TokenAccountTest, OnceAndCheckLogInWithTheCommandsToken) {
    deliver(QStringLiteral("Signed in with a token"));
    const QString token = mint();
    setTokens({token, token});
    const QString config = tokenConfig();

    const BridgeRun once = run(QStringLiteral("--once"), config);
    EXPECT_EQ(once.exitCode, 0) << once.err.toStdString();
    const QVariantMap inbox = snapshot(QStringLiteral("inbox.plist"));
    ASSERT_EQ(inbox.value(QStringLiteral("data")).toList().size(), 1) << once.err.toStdString();
    EXPECT_EQ(inbox.value(QStringLiteral("data")).toList().first().toMap().value(QStringLiteral("subject")),
              QStringLiteral("Signed in with a token"));

    const BridgeRun check = run(QStringLiteral("check"), config);
    EXPECT_EQ(check.exitCode, 0) << check.out.toStdString();
    EXPECT_EQ(check.out, QStringLiteral("work: ok\n"));

    EXPECT_EQ(runs(), 2);
    // Dovecot offers both: the standard mechanism is the one used.
    EXPECT_EQ(loginsWith(QStringLiteral("OAUTHBEARER")), 2) << server.log().toStdString();
    EXPECT_EQ(loginsWith(QStringLiteral("XOAUTH2")), 0);
    // The token is in no line and in no file the bridge wrote.
    for (const QString& said : {once.out, once.err, check.out, check.err})
        EXPECT_FALSE(said.contains(token)) << said.toStdString();
    EXPECT_EQ(filesHolding(token), QStringList());
    EXPECT_EQ(status().value(QStringLiteral("lastError")).toString(), QString());
}

TEST_F(TokenAccountTest, ATokenRefusedOnceIsFetchedAgainAndTheAccountSyncs) {
    deliver(QStringLiteral("Second token"));
    const QString expired = mint(true);
    const QString good = mint();
    setTokens({expired, good});
    const BridgeRun once = run(QStringLiteral("--once"), tokenConfig());
    EXPECT_EQ(once.exitCode, 0) << once.err.toStdString();
    EXPECT_EQ(once.err, QString());
    EXPECT_EQ(runs(), 2);
    EXPECT_EQ(snapshot(QStringLiteral("inbox.plist")).value(QStringLiteral("data")).toList().size(), 1);
    for (const QString& token : {expired, good}) {
        EXPECT_FALSE(once.out.contains(token));
        EXPECT_FALSE(once.err.contains(token));
        EXPECT_EQ(filesHolding(token), QStringList());
    }
}

TEST_F(TokenAccountTest, ATokenRefusedTwiceFailsTheAccountWithALineSayingSo) {
    const QString first = mint();
    const QString second = mint();
    ASSERT_TRUE(provider.revoke(User));
    // The same two again for check, which fetches its own.
    setTokens({first, second, first, second});
    const BridgeRun once = run(QStringLiteral("--once"), tokenConfig());
    EXPECT_EQ(once.exitCode, 1);
    // Fetched once more, never a third time.
    EXPECT_EQ(runs(), 2);
    const QString line = QStringLiteral("work: the server refused a new token too: token login (OAUTHBEARER) "
                                        "refused for ada: ");
    EXPECT_TRUE(once.err.startsWith(line)) << once.err.toStdString();
    EXPECT_EQ(once.err.count(u'\n'), 1) << once.err.toStdString();
    EXPECT_TRUE(status()
                    .value(QStringLiteral("lastError"))
                    .toString()
                    .startsWith(line.mid(QStringLiteral("work: ").size())))
        << QJsonDocument(status()).toJson().toStdString();
    for (const QString& token : {first, second}) {
        EXPECT_FALSE(once.err.contains(token));
        EXPECT_EQ(filesHolding(token), QStringList());
    }

    const BridgeRun check = run(QStringLiteral("check"), tokenConfig());
    EXPECT_EQ(check.exitCode, 1);
    EXPECT_EQ(runs(), 4);
}

TEST_F(TokenAccountTest, ATokenCommandThatFailsIsSaidAndTheServerNotAsked) {
    setTokens({});
    const BridgeRun once = run(QStringLiteral("--once"), tokenConfig());
    EXPECT_EQ(once.exitCode, 1);
    EXPECT_EQ(once.err, QStringLiteral("work: tokenCommand sh printed no token\n"));
    EXPECT_EQ(runs(), 1);
    EXPECT_EQ(provider.stats().introspections, 0);
}

class XOAuth2AccountTest : public TokenAccountTest {
protected:
    QString mechanisms() const override { return QStringLiteral("xoauth2"); }
};

TEST_F(XOAuth2AccountTest, AServerOfferingOnlyXOAuth2IsLoggedInWithIt) {
    const QString expired = mint(true);
    const QString good = mint();
    setTokens({expired, good});
    const BridgeRun once = run(QStringLiteral("--once"), tokenConfig());
    EXPECT_EQ(once.exitCode, 0) << once.err.toStdString();
    EXPECT_EQ(runs(), 2);
    EXPECT_EQ(loginsWith(QStringLiteral("XOAUTH2")), 1) << server.log().toStdString();
    EXPECT_EQ(loginsWith(QStringLiteral("OAUTHBEARER")), 0);
}

} // namespace
} // namespace corvina::test
