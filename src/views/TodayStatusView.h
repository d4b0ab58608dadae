#pragma once

#include <QStringList>
#include <QWidget>

class QLabel;

namespace corvina {

// The widget's word below its list: why it is empty, or that it may be old (see TodayStatus).
// As wide as the widget, as high as its lines (wrapped), and hidden while it has nothing to say,
// so that a full, fresh list looks exactly as it does without it. Under the lines, "Add your mail
// account…", a link (reached with Tab, followed with Enter or Space) that asks for the mail
// bridge's Accounts window: whoever sees an empty or failing list is one step from fixing it.
class TodayStatusView : public QWidget {
    Q_OBJECT

public:
    explicit TodayStatusView(QWidget* parent = nullptr);

    void setLines(const QStringList& lines);
    QStringList lines() const { return m_lines; }
    // What is shown: the lines, one per line.
    QString text() const;

    // Colours come from the current appearance: called when it changes.
    void applyColors();

    // The link under the lines.
    QLabel* accountsLink() const { return m_link; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

signals:
    // "Add your mail account…" was followed; whoever hosts the widget starts the window.
    void accountsRequested();

private:
    QLabel* m_label = nullptr;
    QLabel* m_link = nullptr;
    QStringList m_lines;
};

} // namespace corvina
