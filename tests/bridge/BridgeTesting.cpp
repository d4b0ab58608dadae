#include "BridgeTesting.h"

#include "platform/PropertyList.h"
#include "shared/ConstVars.h"
#include "widget/SnapshotLoader.h"

#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <QSettings>

namespace corvina::test {

QString standInBrowser(const QString& folder, const QString& mode) {
    const QString path = folder + QStringLiteral("/browser-%1.sh").arg(mode);
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(
        QStringLiteral("#!/bin/sh\n"
                       "page='%1'\n"
                       "mode='%2'\n"
                       "if [ \"$mode\" = follow ]; then exec curl -sL -o \"$page\" \"$1\"; fi\n"
                       "next=$(curl -s -o /dev/null -w '%{redirect_url}' \"$1\")\n"
                       "case \"$mode\" in\n"
                       "  forge-state) next=$(printf '%s' \"$next\" | sed 's/state=[^&]*/state=forged/') ;;\n"
                       "  drop-code) next=$(printf '%s' \"$next\" | sed 's/code=[^&]*&*//') ;;\n"
                       "esac\n"
                       "exec curl -s -o \"$page\" \"$next\"\n")
            .arg(folder + QStringLiteral("/page.html"), mode)
            .toUtf8());
    file.close();
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    return path;
}

void BridgeServerTest::SetUp() {
    server.addUser(User, Password);
    QString error;
    if (withTls()) {
        ASSERT_TRUE(server.enableTls(&error)) << error.toStdString();
    }
    ASSERT_TRUE(server.start(&error)) << error.toStdString();
}

BridgeRun BridgeServerTest::runBridge(const QStringList& arguments, const QString& config,
                                      const QByteArray& input, const QProcessEnvironment& environment) {
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(
        QStringLiteral(CORVINA_BRIDGE_BINARY),
        QStringList{QStringLiteral("--config"), config, QStringLiteral("--timeout"), QStringLiteral("10")} +
            arguments);
    EXPECT_TRUE(process.waitForStarted(10000));
    process.write(input);
    process.closeWriteChannel();
    EXPECT_TRUE(process.waitForFinished(90000));
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

QVariantMap BridgeServerTest::accountKeys(const QVariantMap& extra) const {
    QVariantMap keys{{QStringLiteral("mail"), Mail},
                     {QStringLiteral("host"), server.host()},
                     {QStringLiteral("port"), server.port()},
                     {QStringLiteral("security"), QStringLiteral("none")},
                     {QStringLiteral("user"), User},
                     {QStringLiteral("passwordCommand"), QStringLiteral("echo ") + Password}};
    for (auto it = extra.begin(); it != extra.end(); ++it) {
        if (it.value().isNull())
            keys.remove(it.key());
        else
            keys.insert(it.key(), it.value());
    }
    return keys;
}

QString BridgeServerTest::writeConfig(const QMap<QString, QVariantMap>& accounts) {
    const QString path = configDir.filePath(QStringLiteral("bridge.conf"));
    QFile::remove(path);
    QSettings settings(path, QSettings::IniFormat);
    for (auto group = accounts.begin(); group != accounts.end(); ++group) {
        settings.beginGroup(group.key());
        for (auto it = group.value().begin(); it != group.value().end(); ++it)
            settings.setValue(it.key(), it.value());
        settings.endGroup();
    }
    settings.sync();
    EXPECT_EQ(settings.status(), QSettings::NoError);
    return path;
}

BridgeConfig::Account BridgeServerTest::account(const QVariantMap& extra) {
    const BridgeConfig config =
        BridgeConfig::load(writeConfig({{QStringLiteral("work"), accountKeys(extra)}}));
    EXPECT_EQ(config.accounts().size(), 1);
    if (config.accounts().isEmpty())
        return {};
    EXPECT_EQ(config.accounts().first().problem, QString());
    return config.accounts().first();
}

QString BridgeServerTest::deliver(const QString& subject, const QString& from, const QString& flags,
                                  const QString& folder, const QString& date) {
    ++delivered;
    return server.deliver(
        User, folder,
        DovecotServer::message(subject, from, date, QStringLiteral("<m%1@example.org>").arg(delivered)),
        flags);
}

ExtensionMessageList BridgeServerTest::widgetMessages() {
    SnapshotLoader loader;
    return loader.updateData();
}

QJsonObject BridgeServerTest::accountStatus(const QString& stateHome, const QString& name) {
    QFile file(stateHome + QStringLiteral("/corvina/bridge-status.json"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll())
        .object()
        .value(QStringLiteral("accounts"))
        .toObject()
        .value(name)
        .toObject();
}

QVariantMap BridgeServerTest::snapshot(const QString& file) const {
    const PropertyList::Result parsed = PropertyList::readFile(
        container.data() + "/" + corvina::ConstVars::todayFolder + "/" + Mail + u'/' + file);
    EXPECT_TRUE(parsed.ok()) << parsed.error.toStdString();
    return parsed.value.toMap();
}

void TokenServerTest::SetUp() {
    QString error;
    ASSERT_TRUE(provider.start(&error)) << error.toStdString();
    server.enableTokenLogins(provider.introspectUrl(), mechanisms());
    BridgeServerTest::SetUp();
}

QString TokenServerTest::mint(bool expired) {
    const std::optional<OAuthProvider::Tokens> tokens = provider.mint(User);
    EXPECT_TRUE(tokens);
    if (expired) {
        EXPECT_TRUE(provider.expire(User));
    }
    return tokens ? tokens->accessToken : QString();
}

int TokenServerTest::loginsWith(const QString& method) const {
    return server.log().count(QStringLiteral("Login: user=<%1>, method=%2,").arg(User, method));
}

} // namespace corvina::test
