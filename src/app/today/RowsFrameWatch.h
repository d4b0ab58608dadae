#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

class QWidget;

namespace corvina {

class TodayViewController;

// Tells when the widget's window has put rows on the screen, and again each time the rows it shows
// are others: after a paint of the window (the backing store is flushed in the same repaint) and
// one more turn of the event loop, when the table holds rows, nothing is moving and the table is as
// high as its rows. A benchmark's helper (bench/rows_bench.py): the host does not need it.
class RowsFrameWatch : public QObject {
    Q_OBJECT

public:
    RowsFrameWatch(QWidget* window, TodayViewController* controller, QObject* parent = nullptr);
    ~RowsFrameWatch() override;

signals:
    // `firstSubject`: the subject of the top row as it was painted.
    void rowsOnScreen(const QString& firstSubject);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // What the window shows now: the top row's subject and the row count; null while it shows no
    // rows, or rows still on their way.
    QString shownNow() const;
    void check();

    QPointer<QWidget> m_window;
    TodayViewController* m_controller;
    QString m_atPaint;
    QString m_reported;
    bool m_checkQueued = false;
};

} // namespace corvina
