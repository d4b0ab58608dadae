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

bool FolderChooser::fill(QComboBox* box, const QString& none, const QStringList& folders, const QString& keep,
                         bool listed) {
    box->clear();
    if (!none.isNull())
        box->addItem(none, QString(QLatin1String("")));
    for (const QString& folder : folders)
        box->addItem(folder, folder);
    int kept = box->findData(keep);
    const bool added = kept < 0 && !keep.isEmpty();
    if (added) {
        // Deliberately kept rather than dropped: the account's own folder (or one chosen before)
        // is never changed behind the person's back, and the mark says why it stands apart. Saved
        // as it is unless another is chosen.
        box->addItem(listed ? Localization::text("%1 (not in the server's list)").arg(keep) : keep, keep);
        kept = box->count() - 1;
    }
    box->setCurrentIndex(kept >= 0 ? kept : 0);
    return added && listed;
}

void FolderChooser::offer(bool offered, bool more, int count) {
    // Until then the choices are shown, not offered: the server's folders come with a connection test.
    for (QComboBox* box : {m_inbox, m_todo, m_memo})
        box->setEnabled(offered);
    m_hasFolders = offered;
    if (!offered)
        m_note->setText(
            Localization::text("Test the connection to choose the lists' folders from the server's own."));
    else if (more)
        m_note->setText(Localization::text("The server has more folders than these %1; a folder not "
                                           "offered can be named in bridge.conf.")
                            .arg(count));
    else
        m_note->clear();
    m_note->setVisible(!offered || more);
}

void FolderChooser::setFolders(const QStringList& folders, bool more) {
    const QString inbox = this->inbox();
    const QString todo = this->todo();
    const QString memo = this->memo();
    QStringList offered = folders;
    // The inbox is always there, whatever the list said (some servers list it under another case).
    if (!offered.contains(Inbox, Qt::CaseInsensitive))
        offered.prepend(Inbox);
    m_unlisted.clear();
    if (fill(m_inbox, QString(), offered, inbox, true))
        m_unlisted << inbox;
    if (fill(m_todo, Localization::text("The inbox's flagged messages"), offered, todo, true))
        m_unlisted << todo;
    if (fill(m_memo, Localization::text("No Memo list"), offered, memo, true))
        m_unlisted << memo;
    offer(true, more, int(folders.size()));
}

void FolderChooser::reset() {
    showCurrent(Inbox, QString(), QString());
}

void FolderChooser::showCurrent(const QString& inbox, const QString& todo, const QString& memo) {
    fill(m_inbox, QString(), {}, inbox.isEmpty() ? Inbox : inbox, false);
    fill(m_todo, Localization::text("The inbox's flagged messages"), {}, todo, false);
    fill(m_memo, Localization::text("No Memo list"), {}, memo, false);
    m_unlisted.clear();
    offer(false, false, 0);
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

void FolderChooser::moveRowsTo(QFormLayout* form) {
    auto* own = qobject_cast<QFormLayout*>(layout());
    if (!own || !form)
        return;
    while (own->rowCount() > 0) {
        // The layout items go; the widgets they held are the same widgets, in the page's form.
        const QFormLayout::TakeRowResult row = own->takeRow(0);
        QWidget* label = row.labelItem ? row.labelItem->widget() : nullptr;
        QWidget* field = row.fieldItem ? row.fieldItem->widget() : nullptr;
        delete row.labelItem;
        delete row.fieldItem;
        if (label && field)
            form->addRow(label, field);
        else if (field)
            form->addRow(field);
        else if (label)
            form->addRow(label);
    }
    hide();
}

} // namespace corvina
