#pragma once

#include <QString>
#include <QStringList>
#include <QWidget>

class QComboBox;
class QLabel;

namespace corvina {

// The folders an account's lists come from (bridge.conf's inbox, todo and memo), chosen from the
// server's own folder list instead of typed: one choice each. Until the server's list is known
// (a connection test gives it) the choices are the defaults `account add` writes: the inbox
// INBOX, To Do the inbox's flagged messages, no Memo list. A page of its own so that any page
// that sets up an account can use it.
class FolderChooser : public QWidget {
    Q_OBJECT
public:
    explicit FolderChooser(QWidget* parent = nullptr);

    // Offers `folders` (the server's, in its order); `more`: the server listed more than these.
    // A choice made before stays when its folder is still offered.
    void setFolders(const QStringList& folders, bool more);
    // Back to the defaults, with nothing offered.
    void reset();
    // Whether the server's folders are offered.
    bool hasFolders() const { return m_hasFolders; }

    // The chosen folders as bridge.conf's keys hold them: the inbox's name; To Do's and Memo's, or
    // an empty string for the default (the flagged messages of the inbox; no Memo list).
    QString inbox() const;
    QString todo() const;
    QString memo() const;

    // The combo boxes, first and last, for a page's tab order.
    QWidget* firstField() const;
    QWidget* lastField() const;

private:
    // Fills `box` with the defaults and, when given, `folders`; keeps `keep` chosen when offered.
    void fill(QComboBox* box, const QString& none, const QStringList& folders, const QString& keep);

    QComboBox* m_inbox = nullptr;
    QComboBox* m_todo = nullptr;
    QComboBox* m_memo = nullptr;
    QLabel* m_note = nullptr;
    bool m_hasFolders = false;
};

} // namespace corvina
