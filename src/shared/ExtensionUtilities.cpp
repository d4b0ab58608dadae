#include "ExtensionUtilities.h"

#include "ConstVars.h"
#include "platform/Bundle.h"
#include "platform/FileCoordinator.h"
#include "platform/GroupContainer.h"
#include "platform/Log.h"
#include "platform/PlistValue.h"
#include "platform/PropertyList.h"

#include <QFileInfo>
#include <filesystem>
#include <system_error>

namespace corvina {

namespace {

// The elements of a property-list file whose top level is an array; nothing otherwise, silently.
// `refusal`, when given, is set to the reason when the file is there but refused: the reader's
// bounds, no property list, or no array at the top ("no array in return"). A file that is missing
// or cannot be opened as a plain file is no refusal: there is simply nothing to read.
std::optional<QVariantList> arrayWithContentsOfURL(const QUrl& url, QString* refusal = nullptr) {
    const PropertyList::Result read = PropertyList::readFile(url.toLocalFile());
    if (!read.ok()) {
        if (refusal && !read.unreadable) {
            *refusal = read.error;
        }
        return std::nullopt;
    }
    if (!PlistValue::isArray(read.value)) {
        if (refusal) {
            *refusal = QStringLiteral("no array in return");
        }
        return std::nullopt;
    }
    return read.value.toList();
}

QUrl appending(const QUrl& folder, const QString& component) {
    return QUrl::fromLocalFile(folder.toLocalFile() + QLatin1Char('/') + component);
}

} // namespace

QString ExtensionUtilities::GroupFolderName() {
    // one beta test only: every ".beta..." build shares the beta folder, whatever follows
    if (Bundle::identifier().startsWith(ConstVars::appIdentifier + QStringLiteral(".beta"))) {
        return betaFolderName;
    }
    return releaseFolderName;
}

std::optional<QUrl> ExtensionUtilities::GroupPath() {
    return GroupContainer::containerURL(groupIdentifier);
}

std::optional<QUrl> ExtensionUtilities::GroupDataPath() {
    const std::optional<QUrl> group = GroupPath();
    const QString folder = GroupFolderName();
    if (!group) {
        return std::nullopt;
    }
    return appending(*group, folder);
}

QList<ExtensionAccountPtr> ExtensionUtilities::Accounts() {
    return Accounts(nullptr);
}

QList<ExtensionAccountPtr> ExtensionUtilities::Accounts(QString* refusal) {
    const std::optional<QUrl> data = GroupDataPath();
    if (!data) {
        return {}; // no shared folder: nothing to read and nothing to report
    }
    FileCoordinator coordinator;
    const QUrl location = appending(*data, ConstVars::accountsFile);
    std::optional<QVariantList> read;
    QString error;
    QString refused;
    // Deliberately a writing access although it only reads: it keeps the read exclusive against
    // the mail application's writers.
    if (!coordinator.coordinateWritingItemAtURL(
            location, FileCoordinator::WritingForDeleting, &error,
            [&read, &refused](const QUrl& url) { read = arrayWithContentsOfURL(url, &refused); })) {
        Log::error(QStringLiteral("[%@] NSFileCoordinator Accounts %@"), {error});
    }
    // A refused account list counts as no accounts, as before, but it is said: every list then
    // comes out empty, and the person looking at it is told why (status line, `--list`).
    if (!refused.isEmpty()) {
        Log::write(QStringLiteral("Accounts error deserialize %@"), {refused});
        if (refusal) {
            *refusal = refused;
        }
    }
    QList<ExtensionAccountPtr> accounts;
    for (const QVariant& element : read.value_or(QVariantList())) {
        if (ExtensionAccountPtr account = ExtensionAccount::initWithDictonary(element)) {
            accounts.append(account);
        }
    }
    return accounts;
}

ExtensionUtilities::AddressesAndGroupsResult ExtensionUtilities::AddressesAndGroups() {
    const std::optional<QUrl> data = GroupDataPath();
    if (!data) {
        return {};
    }
    FileCoordinator coordinator;
    const QUrl location = appending(*data, QStringLiteral("Contacts"));
    std::optional<QVariantList> addresses;
    std::optional<QVariantList> groups;
    QString error;
    const bool coordinated = coordinator.coordinateWritingItemAtURL(
        location, FileCoordinator::WritingForDeleting, &error, [&](const QUrl& url) {
            const QString folder = url.toLocalFile();
            // an existence test only: a plain file named "Contacts" passes it, and the reads below fail
            if (!QFileInfo::exists(folder)) {
                std::error_code failure;
                std::filesystem::create_directories(std::filesystem::path(folder.toStdString()), failure);
                if (failure) {
                    Log::error(QStringLiteral("[%@] AddressesAndGroups %@"),
                               {QStringLiteral("cannot create %1: %2")
                                    .arg(folder, QString::fromStdString(failure.message()))});
                    return;
                }
            }
            addresses =
                arrayWithContentsOfURL(QUrl::fromLocalFile(folder + QStringLiteral("/Addresses.plist")));
            groups = arrayWithContentsOfURL(QUrl::fromLocalFile(folder + QStringLiteral("/Groups.plist")));
        });
    if (!coordinated) {
        Log::error(QStringLiteral("[%@] NSFileCoordinator AddressesAndGroups %@"), {error});
    }
    AddressesAndGroupsResult result;
    for (const QVariant& element : addresses.value_or(QVariantList())) {
        if (ExtensionAddressPtr address = ExtensionAddress::initWithDictonary(element)) {
            result.addresses.append(address);
        }
    }
    // Deliberately left empty: the mail application's extensions have always received no groups
    // here, though Groups.plist is read, and they rely on this result as it stands.
    Q_UNUSED(groups);
    return result;
}

} // namespace corvina
