#pragma once

#include "model/ExtensionMessage.h"

#include <QList>
#include <QObject>
#include <QPair>
#include <QString>
#include <memory>

namespace corvina {

class DesktopNotifier;
class NewMailTracker;

// Desktop notifications for new mail: one per message that arrives in the Inbox while the widget
// runs (sender and subject, with the buttons "Open", "Archive" and "Delete"), or one for all of
// them when more than GroupAbove arrive in one update. A button sends the widget's own command
// for that message, exactly as the row's button (or a click on the row, for "Open") does. A
// notification is replaced when some of its messages leave the list and closed when all have.
// Nothing is shown while the setting "notifications" is false; it is true when never written.
class MailNotifier : public QObject {
    Q_OBJECT
public:
    static constexpr int GroupAbove = 3;
    static inline const QString enabledKey = QStringLiteral("notifications");
    // The action keys; "default" is a click on the notification itself.
    static inline const QString actionDefault = QStringLiteral("default");
    static inline const QString actionShow = QStringLiteral("show");

    // Notifies through `notifier` (a new one when null) about what `tracker` says arrived.
    MailNotifier(NewMailTracker* tracker, DesktopNotifier* notifier = nullptr, QObject* parent = nullptr);

    static bool isEnabled();
    static void setEnabled(bool enabled);

    // The ids of the notifications shown now (those the service has answered for).
    QList<uint> shownIds() const;
    // The notifications kept: shown, or asked for and not yet answered.
    qsizetype keptCount() const { return m_shown.size(); }

signals:
    // The user asked, from a notification of several messages, to see the list.
    void showListRequested();

private:
    struct Shown {
        uint id = 0; // 0 while the service has not answered
        ExtensionMessageList messages;
        bool group = false;
        bool closeWhenAnswered = false;
        bool replaceWhenAnswered = false; // some of its messages left before the service answered
    };

    void arrived(const ExtensionMessageList& messages);
    void left(const QList<QPair<QString, QString>>& accountAndIds);
    void post(Shown* shown, uint replacesId);
    void actionInvoked(uint id, const QString& key);
    void closed(uint id);
    Shown* find(uint id);

    NewMailTracker* m_tracker;
    DesktopNotifier* m_notifier;
    QList<std::shared_ptr<Shown>> m_shown;
};

} // namespace corvina
