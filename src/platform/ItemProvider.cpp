#include "ItemProvider.h"

#include "ThreadPool.h"

#include <QHash>
#include <atomic>

namespace corvina {

namespace {

const QHash<QString, QString>& parents() {
    static const QHash<QString, QString> table{
        {kUTTypeFileURL, kUTTypeURL},
        {kUTTypePNG, kUTTypeImage},
        {kUTTypeJPEG, kUTTypeImage},
        {QStringLiteral("public.tiff"), kUTTypeImage},
        {QStringLiteral("com.compuserve.gif"), kUTTypeImage},
        {QStringLiteral("com.microsoft.bmp"), kUTTypeImage},
        {QStringLiteral("public.webp"), kUTTypeImage},
        {QStringLiteral("public.utf8-plain-text"), kUTTypePlainText},
        {kUTTypePlainText, kUTTypeText},
        {QStringLiteral("public.html"), kUTTypeText},
        {kUTTypeURL, kUTTypeItem},
        {kUTTypeImage, kUTTypeItem},
        {kUTTypeText, kUTTypeItem},
    };
    return table;
}

// The providers' own pool: loads must not wait behind workers that block their threads while they
// wait for these very loads.
ThreadPool& loadPool() {
    // never destroyed: a load may still be running when the program ends
    static ThreadPool* pool = new ThreadPool(8);
    return *pool;
}

} // namespace

ItemProviderPtr ItemProvider::initWithItem(const QVariant& item, const QString& typeIdentifier) {
    auto provider = std::make_shared<ItemProvider>();
    provider->registerItemForTypeIdentifier(
        typeIdentifier, [item](const CompletionHandler& completion) { completion(item, {}); });
    return provider;
}

void ItemProvider::registerItemForTypeIdentifier(const QString& typeIdentifier, LoadHandler loadHandler) {
    m_registrations.append({typeIdentifier, std::move(loadHandler)});
}

QStringList ItemProvider::registeredTypeIdentifiers() const {
    QStringList types;
    for (const Registration& registration : m_registrations)
        types << registration.type;
    return types;
}

bool ItemProvider::typeConformsTo(const QString& type, const QString& parent) {
    QString current = type;
    for (int depth = 0; depth < 16 && !current.isEmpty(); ++depth) {
        if (current == parent)
            return true;
        current = parents().value(current);
    }
    return parent == kUTTypeItem && !type.isEmpty();
}

bool ItemProvider::hasItemConformingToTypeIdentifier(const QString& typeIdentifier) const {
    for (const Registration& registration : m_registrations) {
        if (typeConformsTo(registration.type, typeIdentifier))
            return true;
    }
    return false;
}

void ItemProvider::loadItemForTypeIdentifier(const QString& typeIdentifier, const QVariantMap&,
                                             CompletionHandler completionHandler) const {
    LoadHandler load;
    for (const Registration& registration : m_registrations) {
        if (typeConformsTo(registration.type, typeIdentifier)) {
            load = registration.load;
            break;
        }
    }
    // The handler is called once even if a loader answers twice.
    auto answered = std::make_shared<std::atomic<bool>>(false);
    CompletionHandler once = [answered, handler = std::move(completionHandler)](const QVariant& item,
                                                                                const QString& error) {
        if (!answered->exchange(true))
            handler(item, error);
    };
    if (!load) {
        loadPool().start([once, typeIdentifier] {
            once(QVariant(), QStringLiteral("no item of type %1").arg(typeIdentifier));
        });
        return;
    }
    loadPool().start([once, load] { load(once); });
}

} // namespace corvina
