#include "SecretStore.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

// GLib's headers name struct members "signals", which Qt defines as a keyword.
#pragma push_macro("signals")
#undef signals
#include <libsecret/secret.h>
#pragma pop_macro("signals")

namespace corvina {

namespace {

// A cancelled D-Bus call comes back at once; one that does not is left behind, not waited for.
constexpr int CancelGraceMs = 2000;

// One call to the Secret Service at a time in the whole process. The foreground mode asks for
// the passwords of several accounts at once, each on its own thread; a locked keyring would then
// show one unlock prompt per account. In turn, the first asks and the others find it unlocked.
std::timed_mutex& serviceCalls() {
    static std::timed_mutex mutex;
    return mutex;
}

const SecretSchema* passwordSchema() {
    static const SecretSchema schema = [] {
        SecretSchema s{};
        s.name = "org.corvina.mail.Password";
        s.flags = SECRET_SCHEMA_NONE;
        s.attributes[0] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[1] = {"user", SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[2] = {"host", SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[3] = {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING};
        return s;
    }();
    return &schema;
}

// A sign-in's secrets live under a schema of their own, so that a password lookup never hands out
// a token and the keyring shows them apart. `kind` tells the refresh token from the client id a
// provider registered us under (see OAuthTokens).
const SecretSchema* tokenSchema() {
    static const SecretSchema schema = [] {
        SecretSchema s{};
        s.name = "org.corvina.mail.OAuth2";
        s.flags = SECRET_SCHEMA_NONE;
        s.attributes[0] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[1] = {"mail", SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[2] = {"issuer", SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[3] = {"kind", SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[4] = {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING};
        return s;
    }();
    return &schema;
}

// An item's attributes as UTF-8, kept alive by whoever holds the list (the call's thread).
using Attributes = std::vector<std::pair<QByteArray, QByteArray>>;

// A table of `attributes` for libsecret's calls; it points into `attributes`, which must outlive it.
GHashTable* attributeTable(const Attributes& attributes) {
    GHashTable* table = g_hash_table_new(g_str_hash, g_str_equal);
    for (const auto& [name, value] : attributes)
        g_hash_table_insert(table, const_cast<char*>(name.constData()), const_cast<char*>(value.constData()));
    return table;
}

// One libsecret call and what it left. Shared with the thread that makes the call, so that a call
// given up on can still finish safely after the caller has moved on.
struct Call {
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    GCancellable* cancellable = g_cancellable_new();
    GError* error = nullptr;
    bool ok = false;
    bool queued = false; // given up while another call to the service still ran
    std::optional<QString> password;

    Call() = default;
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    ~Call() {
        g_object_unref(cancellable);
        if (error != nullptr)
            g_error_free(error);
    }
};

// Runs `work` on a thread of its own and waits at most `timeoutMs` for it. True when it finished
// in time; otherwise it is cancelled and `call` tells nothing.
bool runBounded(const std::shared_ptr<Call>& call, std::function<void(Call&)> work, int timeoutMs) {
    // Released when this call returns, also when its work is given up on and left behind.
    std::unique_lock<std::timed_mutex> turn(serviceCalls(), std::defer_lock);
    if (!turn.try_lock_for(std::chrono::milliseconds(timeoutMs))) {
        call->queued = true;
        return false;
    }
    std::thread worker([call, work = std::move(work)] {
        work(*call);
        const std::lock_guard<std::mutex> lock(call->mutex);
        call->done = true;
        call->finished.notify_all();
    });
    std::unique_lock<std::mutex> lock(call->mutex);
    const bool inTime =
        call->finished.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&call] { return call->done; });
    bool done = inTime;
    if (!inTime) {
        g_cancellable_cancel(call->cancellable);
        done = call->finished.wait_for(lock, std::chrono::milliseconds(CancelGraceMs),
                                       [&call] { return call->done; });
    }
    lock.unlock();
    if (done)
        worker.join();
    else
        worker.detach();
    return inTime;
}

QString failure(const QString& what, const Call& call, bool inTime, int timeoutMs) {
    if (call.queued)
        return QStringLiteral("%1: another request to the Secret Service did not finish within %2 s")
            .arg(what)
            .arg(timeoutMs / 1000);
    if (!inTime)
        return QStringLiteral("%1: the Secret Service did not answer within %2 s")
            .arg(what)
            .arg(timeoutMs / 1000);
    return QStringLiteral("%1: %2").arg(what, call.error != nullptr
                                                  ? QString::fromUtf8(call.error->message).trimmed()
                                                  : QStringLiteral("the Secret Service refused"));
}

// Stores `secret` under `attributes`, replacing what was stored under exactly those.
bool storeItem(const SecretSchema* schema, const Attributes& attributes, const QString& label,
               const QString& secret, int timeoutMs, const QString& what, QString* error) {
    auto call = std::make_shared<Call>();
    const QByteArray text = label.toUtf8();
    // Owned by the call's thread: it may outlive this function when the service hangs.
    auto value = std::make_shared<QByteArray>(secret.toUtf8());
    const bool inTime = runBounded(
        call,
        [=](Call& c) {
            GHashTable* table = attributeTable(attributes);
            c.ok = secret_password_storev_sync(schema, table, SECRET_COLLECTION_DEFAULT, text.constData(),
                                               value->constData(), c.cancellable, &c.error) != FALSE;
            g_hash_table_unref(table);
            value->fill('\0');
        },
        timeoutMs);
    if (inTime && call->ok)
        return true;
    if (error)
        *error = failure(what, *call, inTime, timeoutMs);
    return false;
}

SecretStore::Lookup lookupItem(const SecretSchema* schema, const Attributes& attributes, int timeoutMs,
                               const QString& what) {
    auto call = std::make_shared<Call>();
    const bool inTime = runBounded(
        call,
        [=](Call& c) {
            GHashTable* table = attributeTable(attributes);
            gchar* found = secret_password_lookupv_sync(schema, table, c.cancellable, &c.error);
            g_hash_table_unref(table);
            c.ok = c.error == nullptr;
            if (found != nullptr) {
                c.password = QString::fromUtf8(found);
                // Wipes the library's copy before freeing it.
                secret_password_free(found);
            }
        },
        timeoutMs);
    SecretStore::Lookup result;
    if (inTime && call->ok)
        result.password = call->password;
    else
        result.error = failure(what, *call, inTime, timeoutMs);
    return result;
}

// Removes every item of `schema` that carries `attributes` (and any others).
bool clearItems(const SecretSchema* schema, const Attributes& attributes, int timeoutMs, const QString& what,
                QString* error) {
    auto call = std::make_shared<Call>();
    const bool inTime = runBounded(
        call,
        [=](Call& c) {
            GHashTable* table = attributeTable(attributes);
            // False with no error means there was nothing to remove.
            secret_password_clearv_sync(schema, table, c.cancellable, &c.error);
            g_hash_table_unref(table);
            c.ok = c.error == nullptr;
        },
        timeoutMs);
    if (inTime && call->ok)
        return true;
    if (error)
        *error = failure(what, *call, inTime, timeoutMs);
    return false;
}

Attributes passwordAttributes(const SecretStore::Key& key) {
    return {{"account", key.account.toUtf8()}, {"user", key.user.toUtf8()}, {"host", key.host.toUtf8()}};
}

Attributes tokenAttributes(const SecretStore::TokenKey& key) {
    return {{"account", key.account.toUtf8()},
            {"mail", key.mail.toUtf8()},
            {"issuer", key.issuer.toUtf8()},
            {"kind", key.kind.toUtf8()}};
}

} // namespace

SecretStore::SecretStore(int timeoutMs) : m_timeoutMs(timeoutMs) {}

bool SecretStore::store(const Key& key, const QString& label, const QString& password, QString* error) const {
    return storeItem(passwordSchema(), passwordAttributes(key), label, password, m_timeoutMs,
                     QStringLiteral("cannot store the password in the Secret Service"), error);
}

SecretStore::Lookup SecretStore::lookup(const Key& key) const {
    return lookupItem(passwordSchema(), passwordAttributes(key), m_timeoutMs,
                      QStringLiteral("cannot read the password from the Secret Service"));
}

bool SecretStore::storeToken(const TokenKey& key, const QString& label, const QString& secret,
                             QString* error) const {
    return storeItem(tokenSchema(), tokenAttributes(key), label, secret, m_timeoutMs,
                     QStringLiteral("cannot store the sign-in in the Secret Service"), error);
}

SecretStore::Lookup SecretStore::lookupToken(const TokenKey& key) const {
    return lookupItem(tokenSchema(), tokenAttributes(key), m_timeoutMs,
                      QStringLiteral("cannot read the sign-in from the Secret Service"));
}

void SecretStore::forgetService() {
    secret_service_disconnect();
}

bool SecretStore::forget(const Key& key, QString* error) const {
    return clearItems(passwordSchema(), passwordAttributes(key), m_timeoutMs,
                      QStringLiteral("cannot remove the password from the Secret Service"), error);
}

bool SecretStore::clear(const QString& account, QString* error) const {
    const Attributes attributes{{"account", account.toUtf8()}};
    return clearItems(passwordSchema(), attributes, m_timeoutMs,
                      QStringLiteral("cannot remove the password from the Secret Service"), error) &&
           clearItems(tokenSchema(), attributes, m_timeoutMs,
                      QStringLiteral("cannot remove the sign-in from the Secret Service"), error);
}

} // namespace corvina
