#include "LiveBridge.h"

#include "bridge/config/AccountCredential.h"
#include "bridge/sync/AccountSync.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QThread>
#include <csignal>
#include <utility>

namespace corvina {

namespace {

// Where the program's bridge takes what each account logs in with: its password (passwordCommand,
// else the Secret Service) or its token (tokenCommand). Called on each account's own thread in the
// foreground mode, which obtain() allows.
std::optional<AccountCredential> obtainPassword(const BridgeConfig::Account& account, QString* error) {
    return AccountCredential::obtain(account, error);
}

} // namespace

LiveBridge::LiveBridge(BridgeConfig config, QString dataFolder, QString statusPath,
                       AccountWorker::PasswordSource passwords, AccountWorker::Timing timing, QObject* parent)
    : QObject(parent), m_config(std::move(config)), m_writer(std::move(dataFolder)),
      m_status(std::move(statusPath)), m_passwords(std::move(passwords)), m_timing(timing),
      m_commands(m_config, m_passwords, timing.timeoutSeconds, MessageCommand::defaultCacheFolder()),
      // The sign-in is this very program's `account signin`: one implementation, run as a child.
      m_signIn(QCoreApplication::applicationFilePath(), m_config.path()) {
    connect(&m_commands, &CommandCenter::log, this, &LiveBridge::log);
    connect(&m_signIn, &SignInPrompt::log, this, &LiveBridge::log);
    connect(&m_signIn, &SignInPrompt::signedIn, this,
            [this](const QString& account) { syncAccountNow(account, QStringLiteral("signed in")); });
    connect(&m_commands, &CommandCenter::synced, this, &LiveBridge::accountSynced);
    connect(&m_commands, &CommandCenter::commandDone, this, &LiveBridge::commandDone);
}

std::unique_ptr<LiveBridge> LiveBridge::create(BridgeConfig config, Purpose purpose, int timeoutSeconds,
                                               QString* error) {
    // A command URL may name no account at all; it is refused on its own, so commands need no file.
    if (purpose != Purpose::CommandsOnly && !config.exists()) {
        *error = QStringLiteral("no accounts: %1 does not exist").arg(config.path());
        return nullptr;
    }
    const std::optional<QString> data = SnapshotWriter::defaultDataFolder();
    if (!data) {
        *error = QStringLiteral("no shared folder (CORVINA_GROUP_CONTAINER is set but empty)");
        return nullptr;
    }
    AccountWorker::Timing timing;
    timing.timeoutSeconds = timeoutSeconds;
    return std::make_unique<LiveBridge>(std::move(config), *data, BridgeStatus::defaultPath(),
                                        &obtainPassword, timing);
}

LiveBridge::~LiveBridge() {
    stop(0);
    m_commands.stop(-1);
    // Bounded by the workers' network timeout; a thread must not be destroyed while it runs.
    for (const Running& r : m_workers)
        r.thread->wait();
    for (const Running& r : m_retired)
        r.thread->wait();
}

void LiveBridge::removeLeftovers() {
    QString error;
    const int removed = m_writer.removeLeftovers(&error);
    // Not a reason to stop: the leftovers are hidden from every reader and are tried again at the
    // next start.
    if (removed < 0)
        emit log(QStringLiteral("temporary files left behind were not removed: %1").arg(error));
    else if (removed > 0)
        emit log(
            QStringLiteral("removed %1 temporary files left behind by an interrupted write").arg(removed));
}

bool LiveBridge::start(QString* error, bool follow) {
    // A server that closes the connection must make a write fail, not end the process.
    std::signal(SIGPIPE, SIG_IGN);

    removeLeftovers();
    if (!m_writer.writeAccounts(SnapshotWriter::accountsFromConfig(m_config), error))
        return false;
    QStringList names;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    QList<BridgeConfig::Account> followed;
    for (const BridgeConfig::Account& account : m_config.accounts()) {
        names << account.name;
        m_mails.insert(account.name, account.mail);
        if (!account.problem.isEmpty()) {
            emit log(account.name + QStringLiteral(": ") + account.problem);
            m_status.recordFailure(account.name, account.mail, account.problem, now);
            continue;
        }
        if (account.enabled)
            followed << account;
    }
    m_status.keepOnly(names);
    writeStatus();
    if (!follow)
        return true;
    if (followed.isEmpty()) {
        *error = QStringLiteral("no enabled account to follow in ") + m_config.path();
        return false;
    }
    for (const BridgeConfig::Account& account : followed)
        startWorker(account);
    // From now on bridge.conf is followed: the Accounts window and `account ...` change it while
    // the bridge runs.
    m_watch = std::make_unique<ConfigWatch>(m_config.path());
    connect(m_watch.get(), &ConfigWatch::changed, this, &LiveBridge::reloadConfig);
    if (!m_watch->isWatching())
        emit log(QStringLiteral("changes to %1 are not noticed: its folder cannot be watched")
                     .arg(m_config.path()));
    emit log(
        QStringLiteral("following %1 account(s); status in %2").arg(m_workers.size()).arg(m_status.path()));
    return true;
}

void LiveBridge::startWorker(const BridgeConfig::Account& account) {
    auto worker = std::make_unique<AccountWorker>(account, m_timing, m_passwords);
    const int id = m_nextWorkerId++;
    // Results are emitted on the worker's thread and queued to this one, where a worker stopped
    // meanwhile (its account removed or changed) is no longer listened to.
    connect(
        worker.get(), &AccountWorker::synced, this,
        [this, id](const QString& name, const QList<AccountSync::Snapshot>& snapshots, const QDateTime& when,
                   qint64 readStarted) {
            if (isCurrent(id))
                accountSynced(name, snapshots, when, readStarted);
        },
        Qt::QueuedConnection);
    connect(
        worker.get(), &AccountWorker::failed, this,
        [this, id](const QString& name, const QString& error, const QDateTime& when, int retrySeconds) {
            if (isCurrent(id))
                accountFailed(name, error, when, retrySeconds);
        },
        Qt::QueuedConnection);
    connect(
        worker.get(), &AccountWorker::note, this,
        [this, id](const QString& name, const QString& line) {
            if (isCurrent(id))
                emit log(name + QStringLiteral(": ") + line);
        },
        Qt::QueuedConnection);
    std::unique_ptr<QThread> thread(QThread::create([worker = worker.get()] {
        AccountWorker::blockProcessSignals();
        worker->run();
    }));
    thread->setObjectName(QStringLiteral("account ") + account.name);
    thread->start();
    m_workers.push_back({std::move(worker), std::move(thread), id});
}

bool LiveBridge::isCurrent(int id) const {
    for (const Running& r : m_workers) {
        if (r.id == id)
            return true;
    }
    return false;
}

void LiveBridge::retireWorker(size_t index) {
    Running running = std::move(m_workers[index]);
    m_workers.erase(m_workers.begin() + static_cast<std::ptrdiff_t>(index));
    m_failing.remove(running.worker->account().name);
    running.worker->stop();
    // Its goodbye to the server may take a moment; the main thread does not wait for it.
    QThread* thread = running.thread.get();
    const int id = running.id;
    connect(thread, &QThread::finished, this, [this, id] {
        for (auto it = m_retired.begin(); it != m_retired.end(); ++it) {
            if (it->id == id) {
                it->thread->wait();
                m_retired.erase(it);
                return;
            }
        }
    });
    m_retired.push_back(std::move(running));
}

void LiveBridge::reloadConfig() {
    const BridgeConfig fresh = BridgeConfig::load(m_config.path());
    // Deliberately all or nothing: a file that cannot be read as a whole says nothing about the
    // accounts, and stopping them for it would leave the person without mail over a typo.
    QString refusal;
    if (!fresh.exists())
        refusal = QStringLiteral("%1 is gone").arg(m_config.path());
    else if (!fresh.accounts().isEmpty() && fresh.accounts().first().name == QLatin1String("(file)"))
        refusal = fresh.accounts().first().problem;
    if (!refusal.isEmpty()) {
        if (refusal != m_refusal)
            emit log(refusal + QStringLiteral("; the accounts go on as they were"));
        m_refusal = refusal;
        return;
    }
    m_refusal.clear();
    if (fresh.accounts() == m_config.accounts())
        return;

    const auto find = [&fresh](const QString& name) -> const BridgeConfig::Account* {
        for (const BridgeConfig::Account& a : fresh.accounts()) {
            if (a.name == name)
                return &a;
        }
        return nullptr;
    };
    const QDateTime now = QDateTime::currentDateTimeUtc();
    QStringList running;
    for (size_t i = m_workers.size(); i-- > 0;) {
        const BridgeConfig::Account& was = m_workers[i].worker->account();
        const BridgeConfig::Account* is = find(was.name);
        if (is && is->enabled && is->problem.isEmpty() && *is == was) {
            running << was.name;
            continue;
        }
        if (!is)
            emit log(was.name + QStringLiteral(": removed from bridge.conf; no longer followed"));
        else if (!is->enabled)
            emit log(was.name + QStringLiteral(": turned off; no longer followed"));
        else if (is->problem.isEmpty())
            emit log(was.name + QStringLiteral(": settings changed; following it again with the new ones"));
        retireWorker(i);
    }

    const BridgeConfig before = std::exchange(m_config, fresh);
    m_commands.setConfig(m_config);
    m_mails.clear();
    QStringList names;
    for (const BridgeConfig::Account& account : m_config.accounts()) {
        names << account.name;
        m_mails.insert(account.name, account.mail);
        if (running.contains(account.name))
            continue;
        if (!account.problem.isEmpty()) {
            emit log(account.name + QStringLiteral(": ") + account.problem);
            m_status.recordFailure(account.name, account.mail, account.problem, now);
            continue;
        }
        if (!account.enabled)
            continue;
        const BridgeConfig::Account* had = before.account(account.name);
        if (!had || had->name != account.name)
            emit log(account.name + QStringLiteral(": added to bridge.conf; following it"));
        else if (!had->enabled)
            emit log(account.name + QStringLiteral(": turned on; following it"));
        startWorker(account);
    }
    QString error;
    if (!m_writer.writeAccounts(SnapshotWriter::accountsFromConfig(m_config), &error))
        emit log(error);
    m_status.keepOnly(names);
    writeStatus();
    emit log(
        QStringLiteral("%1 read again; following %2 account(s)").arg(m_config.path()).arg(m_workers.size()));
}

void LiveBridge::retryNow(const QString& reason) {
    reloadConfig();
    int waiting = 0;
    for (const Running& r : m_workers) {
        const QString& name = r.worker->account().name;
        // Only an account whose last attempt failed: one that works is not taken off its connection.
        if (m_failing.value(name, false)) {
            emit log(name + QStringLiteral(": ") + reason + QStringLiteral(": trying again now"));
            r.worker->syncNow();
            ++waiting;
        }
    }
    if (waiting == 0)
        emit log(reason + QStringLiteral(": no account is waiting to try again"));
}

bool LiveBridge::syncOnce() {
    QString error;
    // Only a failure is worth a line here: a timer runs --once, and the leftovers are hidden from
    // every reader either way.
    if (m_writer.removeLeftovers(&error) < 0)
        emit problem(QStringLiteral("temporary files left behind were not removed: %1").arg(error));
    if (!m_writer.writeAccounts(SnapshotWriter::accountsFromConfig(m_config), &error)) {
        emit problem(error);
        return false;
    }
    QStringList names;
    bool ok = true;
    const auto failed = [&](const BridgeConfig::Account& account, const QString& why) {
        emit log(account.name + QStringLiteral(": ") + why);
        m_status.recordFailure(account.name, account.mail, why, QDateTime::currentDateTimeUtc());
        ok = false;
    };
    for (const BridgeConfig::Account& account : m_config.accounts()) {
        names << account.name;
        // A disabled account is left alone, unless its configuration is wrong: that is said.
        if (!account.enabled && account.problem.isEmpty())
            continue;
        const AccountSync::Result result = attempt(account, m_passwords, m_timing.timeoutSeconds, false);
        if (!result.ok) {
            failed(account, result.error);
            continue;
        }
        if (!m_writer.writeSnapshots(account.mail, result.snapshots, &error)) {
            failed(account, error);
            continue;
        }
        m_status.recordSync(account.name, account.mail, QDateTime::currentDateTimeUtc());
    }
    m_status.keepOnly(names);
    // The same status file as the foreground mode, so that a timer running --once keeps it too.
    if (!m_status.write(&error)) {
        emit problem(error);
        ok = false;
    }
    return ok;
}

AccountSync::Result LiveBridge::attempt(const BridgeConfig::Account& account,
                                        const AccountWorker::PasswordSource& passwords, int timeoutSeconds,
                                        bool checkOnly, const std::function<void(AccountSync&)>& afterCheck) {
    AccountSync::Result result;
    if (!account.problem.isEmpty()) {
        result.error = account.problem;
        return result;
    }
    // The time a passwordCommand or tokenCommand takes is its own: the attempt's deadline starts
    // after the first, and is moved on by the time a second one (for a refused token) takes.
    std::optional<AccountCredential> first = passwords(account, &result.error);
    if (!first)
        return result;
    AccountSync sync(account, timeoutSeconds);
    sync.session().setDeadline(QDeadlineTimer(qint64(timeoutSeconds) * 1000));
    const AccountSync::CredentialSource source = [&](const BridgeConfig::Account& a, QString* error) {
        if (first)
            return std::exchange(first, std::nullopt);
        QElapsedTimer took;
        took.start();
        std::optional<AccountCredential> again = passwords(a, error);
        sync.session().setDeadline(
            QDeadlineTimer(sync.session().deadline().remainingTime() + took.elapsed()));
        return again;
    };
    if (!checkOnly)
        return sync.run(source);
    AccountSync::Result checked = sync.check(source);
    if (checked.ok && afterCheck)
        afterCheck(sync);
    return checked;
}

AccountSync::Result LiveBridge::checkAccount(const BridgeConfig::Account& account, int timeoutSeconds) {
    return attempt(account, &obtainPassword, timeoutSeconds, true);
}

AccountSync::Result LiveBridge::checkAccount(const BridgeConfig::Account& account, const QString& password,
                                             int timeoutSeconds) {
    const AccountWorker::PasswordSource typed = [password](const BridgeConfig::Account&, QString*) {
        return std::optional<AccountCredential>(password);
    };
    return attempt(account, typed, timeoutSeconds, true);
}

LiveBridge::FolderCheck LiveBridge::checkAndListFolders(const BridgeConfig::Account& account,
                                                        const std::optional<QString>& password,
                                                        int timeoutSeconds) {
    FolderCheck found;
    const auto list = [&found](AccountSync& sync) {
        const std::optional<QStringList> folders = sync.session().listFolders(&found.moreFolders);
        if (folders)
            found.folders = *folders;
        else
            found.listError = sync.session().errorText();
    };
    if (password) {
        const AccountWorker::PasswordSource source = [typed = *password](const BridgeConfig::Account&,
                                                                         QString*) {
            return std::optional<AccountCredential>(typed);
        };
        found.check = attempt(account, source, timeoutSeconds, true, list);
    } else {
        found.check = attempt(account, &obtainPassword, timeoutSeconds, true, list);
    }
    return found;
}

void LiveBridge::openUris(const QStringList& uris, const QVariantMap& platformData) {
    m_commands.open(uris, platformData);
}

void LiveBridge::commandDone(CommandKind kind, const QString& mail, bool ok, const QString& error) {
    // the kind becomes text only here, where the status file records it
    m_status.recordCommand(commandName(kind), mail, ok, error, QDateTime::currentDateTimeUtc());
    writeStatus();
}

void LiveBridge::syncNow(const QString& reason) {
    emit log(reason + QStringLiteral(": reading every account again"));
    for (const Running& r : m_workers)
        r.worker->syncNow();
}

void LiveBridge::syncAccountNow(const QString& account, const QString& reason) {
    for (const Running& r : m_workers) {
        if (r.worker->account().name == account) {
            emit log(account + QStringLiteral(": ") + reason + QStringLiteral(": reading the account again"));
            r.worker->syncNow();
        }
    }
}

bool LiveBridge::stop(int timeoutMs) {
    for (const Running& r : m_workers)
        r.worker->stop();
    const QDeadlineTimer deadline(timeoutMs);
    bool all = true;
    for (const Running& r : m_workers)
        all = r.thread->wait(deadline) && all;
    for (const Running& r : m_retired)
        all = r.thread->wait(deadline) && all;
    // A command under way finishes (its server may be half way through a move); queued ones are
    // dropped, as the widget shows the next snapshot either way.
    all = m_commands.stop(static_cast<int>(qMax<qint64>(0, deadline.remainingTime()))) && all;
    // What the workers reported before they ended is still written.
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
    return all;
}

void LiveBridge::accountSynced(const QString& account, const QList<AccountSync::Snapshot>& snapshots,
                               const QDateTime& when, qint64 readStarted) {
    // The account's thread may still be reading when a command (open, archive) reads the lists
    // again and is written first: the thread's read then ends later with what the server held
    // before the command, and is deliberately dropped rather than written over the newer lists.
    if (readStarted < m_writtenRead.value(account, 0))
        return;
    m_writtenRead.insert(account, readStarted);
    const QString mail = m_mails.value(account);
    const int before = m_writer.filesWritten();
    QString error;
    if (!m_writer.writeSnapshots(mail, snapshots, &error)) {
        accountFailed(account, error, when, 0);
        return;
    }
    m_status.recordSync(account, mail, when);
    writeStatus();
    m_signIn.synced(account);
    const int written = m_writer.filesWritten() - before;
    // Quiet while nothing changes; one line when the account works again or a list changed.
    if (m_failing.value(account, true))
        emit log(account + QStringLiteral(": synced"));
    else if (written > 0)
        emit log(account + QStringLiteral(": %1 list(s) updated").arg(written));
    m_failing.insert(account, false);
}

void LiveBridge::accountFailed(const QString& account, const QString& error, const QDateTime& when,
                               int retrySeconds) {
    m_status.recordFailure(account, m_mails.value(account), error, when);
    writeStatus();
    m_failing.insert(account, true);
    m_signIn.failed(account, m_mails.value(account), error);
    emit log(retrySeconds > 0 ? account + QStringLiteral(": ") + error +
                                    QStringLiteral("; trying again in %1 s").arg(retrySeconds)
                              : account + QStringLiteral(": ") + error);
}

void LiveBridge::writeStatus() {
    QString error;
    if (!m_status.write(&error))
        emit log(error);
}

} // namespace corvina
