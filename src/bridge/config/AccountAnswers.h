#pragma once

#include "AccountGroup.h"
#include "ProviderTable.h"

#include <QString>

namespace corvina {

// What a person says about a new account, whether to `account add`'s questions or in the Accounts
// window's fields, and the one place that knows which keys of bridge.conf those answers become:
// the keys the bridge's own defaults do not already cover. Both ways of adding an account build
// their group here, so that the same answers give the same group.
struct AccountAnswers {
    QString name; // the group's name in bridge.conf
    QString mail;
    QString auth; // password (or empty) or oauth2
    QString host;
    QString port; // as typed: BridgeConfig says what is wrong with it
    QString security;
    QString oauthProvider;
    QString oauthIssuer; // for oauthProvider = discover: where its metadata is published
    QString oauthClientId;
    QString oauthClientSecret;
    QString user;  // empty: the mail address
    QString inbox; // empty or INBOX: the bridge's default
    QString todo;
    QString memo;
    QString caFile;
    QString passwordCommand;

    // Takes the server of a known provider: its host, port and security, and, for an account that
    // signs in in the browser (auth oauth2), whose endpoints the sign-in uses.
    void takeServerOf(const ProviderTable::Provider& provider);

    // The group these answers make: mail, host, port, security and user always; auth only when it
    // is not the bridge's default (password); the inbox only when not INBOX; every other key only
    // when given.
    AccountGroup group() const;
};

} // namespace corvina
