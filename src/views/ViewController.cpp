#include "ViewController.h"

namespace corvina {

ViewController::~ViewController() {
    // A view shown in a window belongs to the window; one never shown belongs to us.
    if (m_view && !m_view->parentWidget())
        delete m_view;
}

QWidget* ViewController::view() {
    if (!m_view) {
        loadView();
        viewDidLoad();
    }
    return m_view;
}

void ViewController::setView(QWidget* view) {
    m_view = view;
}

} // namespace corvina
