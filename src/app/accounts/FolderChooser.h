#pragma once

#include <QString>
#include <QStringList>
#include <QWidget>

class QComboBox;
class QFormLayout;
class QLabel;

namespace corvina {

// The folders an account's lists come from (bridge.conf's inbox, todo and memo), chosen from the
// server's own folder list instead of typed: one choice each. Until the server's list is known
// (a connection test gives it) the choices are the defaults `account add` writes: the inbox
// INBOX, To Do the inbox's flagged messages, no Memo list, or for an account already in bridge.conf
// the folders it has (showCurrent). A page of its own so that any page that sets up an account
// can use it.
class FolderChooser : public QWidget {
    Q_OBJECT
public:
    explicit FolderChooser(QWidget* parent = nullptr);

    // Offers `folders` (the server's, in its order); `more`: the server listed more than these.
    // A choice made before stays chosen, also when the server does not list its folder: that one
    // is then offered too, marked, at the end (unlisted() names it).
    void setFolders(const QStringList& folders, bool more);
    // Back to the defaults, with nothing offered.
    void reset();
    // Shows an account's own folders (bridge.conf's inbox, todo and memo; empty To Do and Memo for
    // the defaults) as the choices, with nothing offered until the server's list comes.
    void showCurrent(const QString& inbox, const QString& todo, const QString& memo);
    // Whether the server's folders are offered.
    bool hasFolders() const { return m_hasFolders; }
    // The chosen folders that the server's list did not hold when it was offered.
    QStringList unlisted() const { return m_unlisted; }

    // The chosen folders as bridge.conf's keys hold them: the inbox's name; To Do's and Memo's, or
    // an empty string for the default (the flagged messages of the inbox; no Memo list).
    QString inbox() const;
    QString todo() const;
    QString memo() const;

    // The combo boxes, first and last, for a page's tab order.
    QWidget* firstField() const;
    QWidget* lastField() const;

    // Puts the three choices with their labels, and the note under them, as the last rows of a
    // page's own `form`, so that their labels stand in the same column as the page's other labels
    // (a form of their own would size its label column to its own three). This widget is left
    // empty and hidden; it still answers for the choices.
    void moveRowsTo(QFormLayout* form);

private:
    // Fills `box` with the default `none` (when not null) and `folders`, and chooses `keep`. A
    // `keep` that is none of them is added after them, marked when `folders` are the server's
    // (`listed`); true when it was.
    bool fill(QComboBox* box, const QString& none, const QStringList& folders, const QString& keep,
              bool listed);
    // Sets the boxes on (the server's folders offered) or off, and the note under them.
    void offer(bool offered, bool more, int count);

    QComboBox* m_inbox = nullptr;
    QComboBox* m_todo = nullptr;
    QComboBox* m_memo = nullptr;
    QLabel* m_note = nullptr;
    bool m_hasFolders = false;
    QStringList m_unlisted;
};

} // namespace corvina
