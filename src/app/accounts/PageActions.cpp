#include "PageActions.h"

#include "BackgroundJob.h"
#include "ConnectionCheck.h"
#include "FolderChooser.h"
#include "platform/Localization.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <memory>

namespace corvina {

PageActions::PageActions(QWidget* page) : m_page(page) {
    // The page's layout takes them (buttonRow(), result()), in the place of its order they have there.
    m_test = new QPushButton(Localization::text("&Test connection"));
    m_test->setAccessibleName(Localization::text("Test connection"));
    m_save = new QPushButton(Localization::text("&Save"));
    m_save->setAccessibleName(Localization::text("Save"));
    m_cancel = new QPushButton(Localization::text("Cancel"));
    m_cancel->setAccessibleName(Localization::text("Cancel"));
    m_cancel->setShortcut(QKeySequence(Qt::Key_Escape));
    m_result = new QLabel;
    m_result->setWordWrap(true);
    m_result->setTextInteractionFlags(Qt::TextSelectableByMouse);
    // The line is what the person reads after a test or a save; a screen reader reads it too.
    m_result->setAccessibleDescription(Localization::text("The result of the connection test or the save"));
}

QHBoxLayout* PageActions::buttonRow(std::initializer_list<QWidget*> first) {
    auto* buttons = new QHBoxLayout;
    for (QWidget* button : first) {
        buttons->addWidget(button);
        m_own << button;
    }
    buttons->addWidget(m_test);
    buttons->addStretch();
    buttons->addWidget(m_cancel);
    buttons->addWidget(m_save);
    return buttons;
}

QString PageActions::resultText() const {
    return m_result->text();
}

void PageActions::showResult(const QString& text, bool ok) {
    m_result->setText(text);
    m_result->setProperty("ok", ok);
}

void PageActions::clearResult() {
    m_result->clear();
}

void PageActions::setBusy(BackgroundJob* job, const QString& what) {
    m_job = job;
    enableButtons();
    if (job != nullptr)
        showResult(what, true);
}

void PageActions::setHeld(bool held) {
    m_held = held;
    enableButtons();
}

void PageActions::enableButtons() {
    const bool idle = m_job == nullptr && !m_held;
    m_test->setEnabled(idle);
    m_save->setEnabled(idle);
    for (QWidget* button : std::as_const(m_own))
        button->setEnabled(idle);
}

void PageActions::finishJob() {
    if (m_job != nullptr)
        m_job->deleteLater();
    setBusy(nullptr, QString());
}

void PageActions::abandonJob() {
    if (m_job != nullptr) {
        m_job->abandon();
        m_job = nullptr;
    }
}

void PageActions::testConnection(const BridgeConfig::Account& account, const std::optional<QString>& password,
                                 int timeoutSeconds) {
    BackgroundJob* job = ConnectionCheck::start(account, password, timeoutSeconds, m_page,
                                                [this](bool ok, const QString& line) {
                                                    finishJob();
                                                    showResult(line, ok);
                                                });
    setBusy(job, ConnectionCheck::busyText());
}

void PageActions::testListingFolders(const BridgeConfig::Account& account,
                                     const std::optional<QString>& password, int timeoutSeconds,
                                     FolderChooser& folders) {
    BackgroundJob* job = ConnectionCheck::startListingFolders(
        account, password, timeoutSeconds, m_page, [this, &folders](const LiveBridge::FolderCheck& result) {
            finishJob();
            if (!result.check.ok) {
                showResult(result.check.error, false);
                return;
            }
            if (!result.listError.isEmpty()) {
                showResult(
                    Localization::text("Connection ok, but the server's folders could not be listed: %1")
                        .arg(result.listError),
                    true);
                return;
            }
            folders.setFolders(result.folders, result.moreFolders);
            // A chosen folder the server does not list would leave its list empty: said, so that
            // the person picks one it has. A server that listed more than were taken may well
            // have it, so then nothing is said.
            if (!folders.unlisted().isEmpty() && !result.moreFolders) {
                showResult(Localization::text("Connection ok, but the server lists no folder %1: choose one "
                                              "it has.")
                               .arg(folders.unlisted().join(QStringLiteral(", "))),
                           false);
                return;
            }
            showResult(ConnectionCheck::okText(), true);
        });
    setBusy(job, ConnectionCheck::busyText());
}

void PageActions::startSave(std::function<bool(QString* error)> work, std::function<void()> saved) {
    struct Outcome {
        bool ok = false;
        QString error;
    };
    auto outcome = std::make_shared<Outcome>();
    auto* job =
        new BackgroundJob([outcome, work = std::move(work)] { outcome->ok = work(&outcome->error); }, m_page);
    QObject::connect(job, &BackgroundJob::finished, m_page, [this, outcome, saved = std::move(saved)] {
        finishJob();
        if (!outcome->ok) {
            showResult(outcome->error, false);
            return;
        }
        saved();
    });
    setBusy(job, Localization::text("Saving…"));
    job->start();
}

} // namespace corvina
