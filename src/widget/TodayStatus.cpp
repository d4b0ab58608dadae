#include "TodayStatus.h"

#include "platform/DateFormatter.h"
#include "platform/Localization.h"
#include "shared/ExtensionUtilities.h"

#include <QFileInfo>

namespace corvina {

QString TodayStatus::noMessages() {
    return Localization::text(QStringLiteral("No messages"));
}

QString TodayStatus::noSharedFolder() {
    return Localization::text(
        QStringLiteral("No shared folder: is the mail application (or corvina-mail-bridge) running?"));
}

QString TodayStatus::accountListRefused() {
    return Localization::text(
        QStringLiteral("The mail application's account list could not be read (too large or damaged)."));
}

QString TodayStatus::failureLine(const BridgeStatusFile::Failure& failure, const QDateTime& now) {
    if (!failure.time.isValid())
        return failure.error;
    DateFormatter formatter;
    formatter.setLocale(QLocale());
    formatter.setTimeStyle(DateFormatter::Style::Short);
    // Today's failure by its time alone; an older one with its day, or "As of 10:42" would lie.
    if (formatter.calendarDay(failure.time) != formatter.calendarDay(now))
        formatter.setDateStyle(DateFormatter::Style::Short);
    return Localization::text(QStringLiteral("As of %1: %2"))
        .arg(formatter.stringFromDate(failure.time), failure.error);
}

QStringList TodayStatus::lines(bool sharedFolderExists, qsizetype rowsShown,
                               const QList<BridgeStatusFile::Failure>& failures, const QDateTime& now,
                               bool accountListRefused) {
    QStringList said;
    if (!sharedFolderExists)
        said << noSharedFolder();
    else if (accountListRefused)
        said << TodayStatus::accountListRefused(); // instead of "No messages": it says why
    else if (rowsShown == 0)
        said << noMessages();
    for (const BridgeStatusFile::Failure& failure : failures)
        said << failureLine(failure, now);
    return said;
}

bool TodayStatus::sharedFolderExists() {
    const std::optional<QUrl> data = ExtensionUtilities::GroupDataPath();
    return data && QFileInfo(data->toLocalFile()).isDir();
}

} // namespace corvina
