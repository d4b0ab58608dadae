#pragma once

#include "BridgeConfig.h"

#include <QString>
#include <QVariantMap>
#include <optional>

namespace corvina {

// One account's group of bridge.conf as `account add` makes it from a person's answers: checked as
// the bridge will read it before anything is written, then written beside the other groups. What
// the bridge would refuse is refused here by the same code (BridgeConfig's), never by a second copy.
class AccountGroup {
public:
    // `name` is the group's, `keys` its keys and their values as they go into the file.
    AccountGroup(QString name, QVariantMap keys);

    // Group names become INI section names: plain words (letters, digits, "-", "_" and ".", not
    // first) keep bridge.conf readable and editable by hand.
    static bool isPlainName(const QString& name);
    // The name offered for a new account of `mail` beside the accounts of `config`: the first word
    // of its domain ("ada@fastmail.com" gives "fastmail"), with a number when that name is taken.
    static QString suggestedName(const QString& mail, const BridgeConfig& config);

    const QString& name() const { return m_name; }
    const QVariantMap& keys() const { return m_keys; }

    // The account as the bridge would read this group; its `problem` says what the bridge would
    // refuse, empty when nothing. The group is written to a file of its own in a temporary folder
    // and read back by BridgeConfig::load, so that nothing is touched before it is known to be good.
    BridgeConfig::Account read() const;

    // Writes the group into the INI file at `path` (made, with its folder, when missing); the other
    // groups stay as they are. False, with `error` set to one line, when the file cannot be written.
    bool writeTo(const QString& path, QString* error) const;
    // The group `name` of the INI file at `path` with every key it has there; nothing when the file
    // has no such group.
    static std::optional<AccountGroup> readFrom(const QString& path, const QString& name);
    // This group with `changes` made: a key given an empty text is taken out (the bridge's default
    // then holds), any other is set. The keys not named stay as they are.
    AccountGroup with(const QVariantMap& changes) const;
    // Writes the group in place of the group of its name in the INI file at `path`: a key it no
    // longer has leaves the file; the other groups stay. False, with `error` set, when the file
    // cannot be written.
    bool replaceIn(const QString& path, QString* error) const;
    // Takes group `name` out of the INI file at `path`. False, with `error` set, when the file
    // cannot be written.
    static bool removeFrom(const QString& path, const QString& name, QString* error);

private:
    QString m_name;
    QVariantMap m_keys;
};

} // namespace corvina
