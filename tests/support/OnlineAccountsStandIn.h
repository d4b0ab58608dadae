#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace corvina::test {

// A stand-in for the desktop's online accounts service (no real Google account can be had in a
// test): the program corvina_test_onlineaccounts (tests/support/programs/onlineaccounts.cpp says
// what it answers) owning org.gnome.OnlineAccounts on the process's private session bus
// (PrivateSessionBus). Its accounts are set here at any time and read by it at every call; it
// logs each call, never a secret. Stopped when the object goes away, and the name with it.
class OnlineAccountsStandIn {
public:
    OnlineAccountsStandIn();
    ~OnlineAccountsStandIn();
    OnlineAccountsStandIn(const OnlineAccountsStandIn&) = delete;
    OnlineAccountsStandIn& operator=(const OnlineAccountsStandIn&) = delete;

    // Starts the program and waits, for a bounded time, until it owns the name. False with
    // `error` set when it does not.
    bool start(QString* error = nullptr);
    // Stops it and waits (bounded) until the name is free again.
    void stop();

    // The accounts it holds from now on (the keys are in onlineaccounts.cpp).
    void setAccounts(const QJsonArray& accounts);
    // true: every call is taken and never answered, as a hung service does.
    void setHanging(bool hanging);
    // true: GetManagedObjects and GetAccessToken are answered with a number, not what they give.
    void setWrongShape(bool wrong);
    // Every call so far, a line each ("GetAccessToken account_1").
    QStringList calls() const;
    int count(const QString& call) const { return static_cast<int>(calls().count(call)); }

    static constexpr const char* Name = "org.gnome.OnlineAccounts";

private:
    void writeState();

    QTemporaryDir m_dir;
    QProcess m_process;
    QJsonArray m_accounts;
    bool m_hanging = false;
    bool m_wrongShape = false;
};

// Waits (bounded by `timeoutMs`) until `name` is owned on the session bus, or, with `owned` false,
// until it is not. True when it came to be.
bool waitForBusName(const QString& name, bool owned, int timeoutMs);

} // namespace corvina::test
