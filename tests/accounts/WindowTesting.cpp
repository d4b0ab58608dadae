#include "WindowTesting.h"

#include <QCoreApplication>
#include <QDir>
#include <QPixmap>
#include <gtest/gtest.h>

namespace corvina::test {

void shootWindow(QWidget& window, const QString& name) {
    const QString folder = qEnvironmentVariable("CORVINA_ACCOUNTS_SHOTS");
    if (folder.isEmpty())
        return;
    QDir().mkpath(folder);
    // The layout follows a changed text through posted events: drawn before them, a label would
    // keep the size of its old text.
    for (int i = 0; i < 3; ++i)
        QCoreApplication::processEvents();
    EXPECT_TRUE(window.grab().save(QDir(folder).filePath(QStringLiteral("accounts-%1.png").arg(name))));
}

} // namespace corvina::test
