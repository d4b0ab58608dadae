#pragma once

#include "platform/PropertyList.h"
#include "support/ScopedEnvironment.h"

#include <QString>
#include <QTemporaryDir>
#include <QVariant>
#include <memory>

namespace corvina::test {

// A shared container in a temporary folder, chosen for the block of a test through
// CORVINA_GROUP_CONTAINER, with its data folder "SharedData" made. Files are written whole.
class TempContainer {
public:
    TempContainer();

    QString root() const { return m_dir.path(); }
    QString data() const { return m_dir.path() + QStringLiteral("/SharedData"); }

    // Writes `value` as a property list at data()/relative, making folders as needed.
    void writePlist(const QString& relative, const QVariant& value,
                    PropertyList::Format format = PropertyList::Format::Xml);
    void writeBytes(const QString& relative, const QByteArray& bytes);

    void writeAccounts(const QVariantList& accounts, PropertyList::Format format = PropertyList::Format::Xml);
    // A snapshot file Today/<account>/<name> with the envelope {"folder", "account", "data": messages}.
    void writeSnapshot(const QString& account, const QString& name, const QVariantList& messages,
                       PropertyList::Format format = PropertyList::Format::Xml);

    // An enabled account dictionary.
    static QVariantMap account(const QString& mail, bool enabled = true);
    // A message dictionary with an identifier, an account, a subject and a date.
    static QVariantMap message(const QString& id, const QString& account, qint64 date, qint64 folderStid = 1);
    // Inbox messages of `account`, newest first, ten minutes apart from 1795000000 down, each with
    // the subject "Subject <id>" and the sender "Sender <id>": what the whole-program tests draw.
    static QVariantList inboxMessages(const QString& account, const QStringList& ids);

private:
    QTemporaryDir m_dir;
    std::unique_ptr<ScopedEnvironment> m_environment;
};

} // namespace corvina::test
