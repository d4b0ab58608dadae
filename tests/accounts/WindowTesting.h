#pragma once

// What the in-process tests of the Accounts window share: finding a control as a screen reader
// names it, and drawing the window for docs/accounts-*.png.
#include <QString>
#include <QWidget>

namespace corvina::test {

// The control of type W under `root` whose accessible name is `name`, or null.
template <class W> W* named(QWidget& root, const QString& name) {
    for (W* w : root.findChildren<W*>()) {
        if (w->accessibleName() == name)
            return w;
    }
    return nullptr;
}

// Draws the window as it is now into the folder CORVINA_ACCOUNTS_SHOTS names, as
// accounts-NAME.png, if that variable is set (how docs/accounts-*.png are made).
void shootWindow(QWidget& window, const QString& name);

} // namespace corvina::test
