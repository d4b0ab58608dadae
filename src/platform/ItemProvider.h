#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>
#include <functional>
#include <memory>

namespace corvina {

// Type identifiers of shared items. A type conforms to itself and to its parents:
// public.file-url to public.url; public.png, public.jpeg, public.gif, public.tiff, com.microsoft.bmp
// and public.webp to public.image; public.utf8-plain-text and public.html to public.text;
// every type to public.item.
inline const QString kUTTypeItem = QStringLiteral("public.item");
inline const QString kUTTypeURL = QStringLiteral("public.url");
inline const QString kUTTypeFileURL = QStringLiteral("public.file-url");
inline const QString kUTTypeImage = QStringLiteral("public.image");
inline const QString kUTTypePNG = QStringLiteral("public.png");
inline const QString kUTTypeJPEG = QStringLiteral("public.jpeg");
inline const QString kUTTypeText = QStringLiteral("public.text");
inline const QString kUTTypePlainText = QStringLiteral("public.plain-text");

class ItemProvider;
using ItemProviderPtr = std::shared_ptr<ItemProvider>;

// One attachment of a shared item: data of one or more types, loaded on request and answered
// asynchronously on the providers' thread pool.
//
// What a load hands over, by type: a QUrl for public.url and its children, a QByteArray (encoded
// image file data) or a QImage for images, a QString for texts; whatever the registered loader
// produced otherwise.
class ItemProvider {
public:
    // Called once, on a pool thread: the item, or a null item and an error text.
    using CompletionHandler = std::function<void(const QVariant& item, const QString& error)>;
    // Produces the item when asked, on a pool thread; it answers through `completion`, at once or
    // later, and may never answer at all (then the load never completes).
    using LoadHandler = std::function<void(const CompletionHandler& completion)>;

    ItemProvider() = default;
    // A provider holding `item` as type `typeIdentifier`.
    static ItemProviderPtr initWithItem(const QVariant& item, const QString& typeIdentifier);

    void registerItemForTypeIdentifier(const QString& typeIdentifier, LoadHandler loadHandler);
    QStringList registeredTypeIdentifiers() const;
    // True when some registered type conforms to `typeIdentifier`.
    bool hasItemConformingToTypeIdentifier(const QString& typeIdentifier) const;
    // Loads the first registered type that conforms to `typeIdentifier` and answers on a pool
    // thread; with none, answers the error "no item of type <type>". `options` are accepted for
    // callers that pass them and not used.
    void loadItemForTypeIdentifier(const QString& typeIdentifier, const QVariantMap& options,
                                   CompletionHandler completionHandler) const;

    // Whether `type` is `parent` or one of its descendants.
    static bool typeConformsTo(const QString& type, const QString& parent);

private:
    struct Registration {
        QString type;
        LoadHandler load;
    };
    QList<Registration> m_registrations;
};

} // namespace corvina
