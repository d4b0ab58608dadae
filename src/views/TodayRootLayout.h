#pragma once

#include "ui/LayoutConstraint.h"

#include <QLayout>

class QVariantAnimation;

namespace corvina {

// The widget's root view layout (measurements from TodayMetrics):
//   "H:|-(0)-[myTableView(width)]-(0)-|", "H:|-(0)-[myHeaderView(width)]-(0)-|",
//   "V:|-(0)-[myHeaderView(headerHeight)]-(headerGap)-[myTableView]-(0)-|", and the table's height
//   constraint.
// The root is as high as they make it; a change of the height constraint is animated, the
// constraint itself holding the final value at once.
class TodayRootLayout : public QLayout {
    Q_OBJECT

public:
    // Installs itself on `root` (its Qt parent).
    TodayRootLayout(QWidget* root, QWidget* header, QWidget* table, LayoutConstraint* height);

    bool isAnimating() const;
    // Ends a change of height at once, at the constraint's value.
    void finishAnimation();

    void addItem(QLayoutItem*) override {}
    QLayoutItem* itemAt(int) const override { return nullptr; }
    QLayoutItem* takeAt(int) override { return nullptr; }
    int count() const override { return 0; }
    QSize sizeHint() const override;
    QSize minimumSize() const override { return sizeHint(); }
    QSize maximumSize() const override { return sizeHint(); }
    void setGeometry(const QRect& rect) override;

private:
    QWidget* m_header;
    QWidget* m_table;
    LayoutConstraint* m_height;
    qreal m_shown;
    QVariantAnimation* m_animation; // a child
};

} // namespace corvina
