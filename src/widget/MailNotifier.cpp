#include "MailNotifier.h"

#include "NewMailTracker.h"
#include "platform/DesktopNotifier.h"
#include "platform/Localization.h"
#include "platform/UserDefaults.h"
#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"

#include <QSet>
#include <QVariantMap>

namespace corvina {

namespace {

// Lines of a notification for several messages; the rest are in the widget's list.
constexpr int kGroupLines = 5;

QString senderOf(const ExtensionMessagePtr& message) {
    const QString from = message->from().trimmed();
    return from.isEmpty() ? Localization::text(QStringLiteral("New message")) : from;
}

} // namespace

MailNotifier::MailNotifier(NewMailTracker* tracker, DesktopNotifier* notifier, QObject* parent)
    : QObject(parent), m_tracker(tracker),
      m_notifier(notifier ? notifier
                          : new DesktopNotifier(QStringLiteral("Corvina Today"),
                                                QStringLiteral("mail-unread"), this)) {
    connect(m_tracker, &NewMailTracker::arrived, this, &MailNotifier::arrived);
    connect(m_tracker, &NewMailTracker::left, this, &MailNotifier::left);
    connect(m_notifier, &DesktopNotifier::actionInvoked, this, &MailNotifier::actionInvoked);
    connect(m_notifier, &DesktopNotifier::closed, this, [this](uint id, uint) { closed(id); });
}

bool MailNotifier::isEnabled() {
    const QVariant stored = UserDefaults::valueForKey(enabledKey);
    return !stored.isValid() || stored.toBool();
}

void MailNotifier::setEnabled(bool enabled) {
    UserDefaults::setValue(enabled, enabledKey);
}

QList<uint> MailNotifier::shownIds() const {
    QList<uint> ids;
    for (const auto& shown : m_shown)
        if (shown->id != 0)
            ids << shown->id;
    return ids;
}

void MailNotifier::arrived(const ExtensionMessageList& messages) {
    if (!isEnabled() || messages.isEmpty())
        return;
    if (messages.size() > GroupAbove) {
        auto shown = std::make_shared<Shown>();
        shown->messages = messages;
        shown->group = true;
        m_shown << shown;
        post(shown.get(), 0);
        return;
    }
    for (const ExtensionMessagePtr& message : messages) {
        auto shown = std::make_shared<Shown>();
        shown->messages = {message};
        m_shown << shown;
        post(shown.get(), 0);
    }
}

void MailNotifier::post(Shown* shown, uint replacesId) {
    QString summary;
    QString body;
    QStringList actions;
    if (shown->group) {
        const qsizetype count = shown->messages.size();
        summary = count == 1 ? Localization::text(QStringLiteral("1 new message"))
                             : Localization::text(QStringLiteral("%1 new messages")).arg(count);
        QStringList lines;
        for (qsizetype i = 0; i < count && i < kGroupLines; ++i) {
            const ExtensionMessagePtr& message = shown->messages.at(i);
            lines << senderOf(message).toHtmlEscaped() + QStringLiteral(": ") +
                         message->subject().toHtmlEscaped();
        }
        if (count > kGroupLines)
            lines << QStringLiteral("…");
        body = lines.join(u'\n');
        actions = {actionDefault, Localization::text(QStringLiteral("Show the list")), actionShow,
                   Localization::text(QStringLiteral("Show the list"))};
    } else {
        const ExtensionMessagePtr& message = shown->messages.constFirst();
        summary = senderOf(message);
        body = message->subject().toHtmlEscaped();
        // The keys are the widget's command names: an action sends that command.
        actions = {actionDefault,
                   Localization::text(QStringLiteral("Open")),
                   ConstVars::commandOpen,
                   Localization::text(QStringLiteral("Open")),
                   ConstVars::commandArchive,
                   Localization::text(QStringLiteral("Archive")),
                   ConstVars::commandDelete,
                   Localization::text(QStringLiteral("Delete"))};
    }
    const QVariantMap hints{{QStringLiteral("category"), QStringLiteral("email.arrived")},
                            {QStringLiteral("desktop-entry"), QStringLiteral("org.corvina.mail.today")}};
    std::weak_ptr<Shown> weak;
    for (const auto& held : m_shown)
        if (held.get() == shown)
            weak = held;
    m_notifier->notify(summary, body, actions, replacesId, hints, [this, weak](uint id, const QString&) {
        const std::shared_ptr<Shown> answered = weak.lock();
        if (!answered)
            return;
        if (id == 0) {
            m_shown.removeAll(answered);
            return;
        }
        answered->id = id;
        if (answered->closeWhenAnswered) {
            m_notifier->close(id);
            m_shown.removeAll(answered);
        } else if (answered->replaceWhenAnswered) {
            answered->replaceWhenAnswered = false;
            post(answered.get(), id);
        }
    });
}

void MailNotifier::left(const QList<QPair<QString, QString>>& accountAndIds) {
    const QSet<QPair<QString, QString>> gone(accountAndIds.cbegin(), accountAndIds.cend());
    const auto shownNow = m_shown;
    for (const auto& shown : shownNow) {
        const qsizetype before = shown->messages.size();
        shown->messages.removeIf([&](const ExtensionMessagePtr& message) {
            return gone.contains({message->account(), message->messageId()});
        });
        if (shown->messages.size() == before)
            continue;
        if (!shown->messages.isEmpty()) {
            if (shown->id != 0)
                post(shown.get(), shown->id);
            else
                shown->replaceWhenAnswered = true;
            continue;
        }
        if (shown->id == 0) {
            shown->closeWhenAnswered = true;
            continue;
        }
        m_notifier->close(shown->id);
        m_shown.removeAll(shown);
    }
}

MailNotifier::Shown* MailNotifier::find(uint id) {
    for (const auto& shown : m_shown)
        if (shown->id == id && id != 0)
            return shown.get();
    return nullptr;
}

void MailNotifier::actionInvoked(uint id, const QString& key) {
    // The service tells every client of every action: only ours are answered.
    Shown* shown = find(id);
    if (!shown)
        return;
    if (shown->group) {
        if (key == actionDefault || key == actionShow)
            emit showListRequested();
        return;
    }
    const ExtensionMessagePtr message = shown->messages.constFirst();
    // The same calls as the row: a click on it opens in the foreground, its archive and trash
    // buttons work in the background; and like the row's, they never hold the event loop while the
    // mail application answers.
    if (key == actionDefault || key == ConstVars::commandOpen)
        ExtensionUtilities::LaunchCommandForMessagesWithoutWaiting({message}, ConstVars::commandOpen, false);
    else if (key == ConstVars::commandArchive)
        ExtensionUtilities::LaunchCommandForMessagesWithoutWaiting({message}, ConstVars::commandArchive,
                                                                   true);
    else if (key == ConstVars::commandDelete)
        ExtensionUtilities::LaunchCommandForMessagesWithoutWaiting({message}, ConstVars::commandDelete, true);
}

void MailNotifier::closed(uint id) {
    m_shown.removeIf([id](const std::shared_ptr<Shown>& shown) { return shown->id == id && id != 0; });
}

} // namespace corvina
