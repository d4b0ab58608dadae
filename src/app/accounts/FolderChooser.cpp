#include "FolderChooser.h"

#include "ChoiceBox.h"
#include "FieldLabel.h"
#include "platform/Localization.h"

#include <QComboBox>
#include <QFormLayout>
#include <QLabel>

namespace corvina {

namespace {

const QString Inbox = QStringLiteral("INBOX");

} // namespace

FolderChooser::FolderChooser(QWidget* parent) : QWidget(parent) {
    m_inbox = new ChoiceBox;
    m_inbox->setAccessibleName(Localization::text("Inbox folder"));
    m_todo = new ChoiceBox;
    m_todo->setAccessibleName(Localization::text("To Do folder"));
    m_memo = new ChoiceBox;
    m_memo->setAccessibleName(Localization::text("Memo folder"));
    for (QComboBox* box : {m_inbox, m_todo, m_memo})
        box->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    m_note = new QLabel;
    m_note->setWordWrap(true);

    auto* form = new QFormLayout(this);
    form->setContentsMargins(0, 0, 0, 0);
    form->addRow(new FieldLabel(Localization::text("&Inbox:"), m_inbox), m_inbox);
    form->addRow(new FieldLabel(Localization::text("To &Do:"), m_todo), m_todo);
    form->addRow(new FieldLabel(Localization::text("&Memo:"), m_memo), m_memo);
    form->addRow(m_note);
    setTabOrder(m_inbox, m_todo);
    setTabOrder(m_todo, m_memo);
    reset();
}

void FolderChooser::fill(QComboBox* box, const QString& none, const QStringList& folders,
                         const QString& keep) {
    box->clear();
    if (!none.isNull())
        box->addItem(none, QString(QLatin1String("")));
    for (const QString& folder : folders)
        box->addItem(folder, folder);
    const int kept = box->findData(keep);
    box->setCurrentIndex(kept >= 0 ? kept : 0);
}

void FolderChooser::setFolders(const QStringList& folders, bool more) {
    const QString inbox = this->inbox();
    const QString todo = this->todo();
    const QString memo = this->memo();
    QStringList offered = folders;
    // The inbox is always there, whatever the list said (some servers list it under another case).
    if (!offered.contains(Inbox, Qt::CaseInsensitive))
        offered.prepend(Inbox);
    fill(m_inbox, QString(), offered, inbox);
    fill(m_todo, Localization::text("The inbox's flagged messages"), offered, todo);
    fill(m_memo, Localization::text("No Memo list"), offered, memo);
    for (QComboBox* box : {m_inbox, m_todo, m_memo})
        box->setEnabled(true);
    m_hasFolders = true;
    m_note->setText(more ? Localization::text("The server has more folders than these %1; a folder not "
                                              "offered can be named in bridge.conf.")
                               .arg(folders.size())
                         : QString());
    m_note->setVisible(more);
}

void FolderChooser::reset() {
    fill(m_inbox, QString(), {Inbox}, Inbox);
    fill(m_todo, Localization::text("The inbox's flagged messages"), {}, QString());
    fill(m_memo, Localization::text("No Memo list"), {}, QString());
    // The defaults are shown, not offered: the server's folders come with a connection test.
    for (QComboBox* box : {m_inbox, m_todo, m_memo})
        box->setEnabled(false);
    m_hasFolders = false;
    m_note->setText(Localization::text("Test the connection to choose the lists' folders from the "
                                       "server's own."));
    m_note->setVisible(true);
}

QString FolderChooser::inbox() const {
    const QString chosen = m_inbox->currentData().toString();
    return chosen.isEmpty() ? Inbox : chosen;
}

QString FolderChooser::todo() const {
    return m_todo->currentData().toString();
}

QString FolderChooser::memo() const {
    return m_memo->currentData().toString();
}

QWidget* FolderChooser::firstField() const {
    return m_inbox;
}

QWidget* FolderChooser::lastField() const {
    return m_memo;
}

} // namespace corvina
