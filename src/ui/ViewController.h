#pragma once

#include <QObject>
#include <QPointer>
#include <QWidget>
#include <memory>

namespace corvina {

// Margins around a view's content: top, left, bottom, right, in points.
struct EdgeInsets {
    double top = 0;
    double left = 0;
    double bottom = 0;
    double right = 0;
    bool operator==(const EdgeInsets&) const = default;
};

// Owns a view and is told of its life: built (loadView, then viewDidLoad), about to be shown
// (viewWillAppear). The base builds nothing; subclasses make their view in loadView.
class ViewController : public QObject {
    Q_OBJECT

public:
    ViewController() = default;
    ~ViewController() override;

    // The root view, built on first use.
    QWidget* view();
    bool isViewLoaded() const { return m_view != nullptr; }

    virtual void loadView() {}
    virtual void viewDidLoad() {}
    virtual void viewWillAppear() {}
    // Closes a controller this one presented. The widget presents none: nothing to close.
    virtual void dismissViewController(ViewController*) {}

protected:
    void setView(QWidget* view);
    // Follows the view's parent: see m_unparentedView.
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QPointer<QWidget> m_view;
    // The view while no widget holds it. A view shown in a window belongs to the window (its Qt
    // parent); one never shown, or taken out again, belongs to the controller.
    std::unique_ptr<QWidget> m_unparentedView;
};

} // namespace corvina
