#include "TempContainer.h"

#include "shared/ConstVars.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <gtest/gtest.h>

namespace corvina::test {

TempContainer::TempContainer()
    : m_environment(std::make_unique<ScopedEnvironment>("CORVINA_GROUP_CONTAINER", m_dir.path().toUtf8())) {
    EXPECT_TRUE(m_dir.isValid());
    EXPECT_TRUE(QDir().mkpath(data()));
}

void TempContainer::writeBytes(const QString& relative, const QByteArray& bytes) {
    const QString path = data() + QLatin1Char('/') + relative;
    ASSERT_TRUE(QDir().mkpath(QFileInfo(path).absolutePath()));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    ASSERT_EQ(file.write(bytes), bytes.size());
}

void TempContainer::writePlist(const QString& relative, const QVariant& value, PropertyList::Format format) {
    QString error;
    const QByteArray bytes = PropertyList::write(value, format, &error);
    ASSERT_FALSE(bytes.isNull()) << error.toStdString();
    writeBytes(relative, bytes);
}

void TempContainer::writeAccounts(const QVariantList& accounts, PropertyList::Format format) {
    writePlist(ConstVars::accountsFile, accounts, format);
}

void TempContainer::writeSnapshot(const QString& account, const QString& name, const QVariantList& messages,
                                  PropertyList::Format format) {
    writePlist(QStringLiteral("%1/%2/%3").arg(ConstVars::todayFolder, account, name),
               QVariantMap{{QStringLiteral("folder"), QStringLiteral("INBOX")},
                           {QStringLiteral("account"), account},
                           {QStringLiteral("data"), messages}},
               format);
}

QVariantMap TempContainer::account(const QString& mail, bool enabled) {
    return {{QStringLiteral("mail"), mail},
            {QStringLiteral("name"), mail.section('@', 0, 0)},
            {QStringLiteral("enabled"), enabled}};
}

QVariantMap TempContainer::message(const QString& id, const QString& account, qint64 date,
                                   qint64 folderStid) {
    return {{QStringLiteral("messageId"), id},
            {QStringLiteral("account"), account},
            {QStringLiteral("subject"), QStringLiteral("Subject of ") + id},
            {QStringLiteral("from"), QStringLiteral("Sender of ") + id},
            {QStringLiteral("date"), date},
            {QStringLiteral("folderStid"), folderStid}};
}

QVariantList TempContainer::inboxMessages(const QString& account, const QStringList& ids) {
    QVariantList out;
    qint64 date = 1795000000;
    for (const QString& id : ids) {
        QVariantMap m = message(id, account, date, 1);
        m.insert(QStringLiteral("subject"), QStringLiteral("Subject ") + id);
        m.insert(QStringLiteral("from"), QStringLiteral("Sender ") + id);
        out << m;
        date -= 600;
    }
    return out;
}

} // namespace corvina::test
