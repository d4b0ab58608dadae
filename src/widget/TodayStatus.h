#pragma once

#include "shared/BridgeStatusFile.h"

#include <QDateTime>
#include <QList>
#include <QStringList>

namespace corvina {

// What the widget says in words below its list, when the list alone would say nothing or mislead:
// an empty list, a shared folder that is not there, or a bridge whose last attempt failed (so the
// list may be old). The texts are fixed, translated, and what the status bars print as well.
class TodayStatus {
public:
    static QString noMessages();
    static QString noSharedFolder();
    // The mail application's account list is there but was refused (too large, or no list at all):
    // no account, so nothing can be shown.
    static QString accountListRefused();
    // "As of 10:42: login refused for ada" (a failure of an earlier day names the day too).
    static QString failureLine(const BridgeStatusFile::Failure& failure, const QDateTime& now);

    // The lines for a widget that shows `rowsShown` rows: the folder's absence, the refused account
    // list, or "No messages" first, then one line per failed account. Empty when there is nothing
    // to say. `accountListRefused`: the last read refused the account list.
    static QStringList lines(bool sharedFolderExists, qsizetype rowsShown,
                             const QList<BridgeStatusFile::Failure>& failures, const QDateTime& now,
                             bool accountListRefused = false);

    // Whether the shared folder the widget reads is on disk (its location known and a folder there).
    static bool sharedFolderExists();
};

} // namespace corvina
