// corvina-today --screenshot: the widget rendered without a display, as the docs' picture is made.
#include "support/TempContainer.h"

#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using corvina::test::TempContainer;

TEST(Screenshot, RendersTheWidgetAtItsSizeAfterTheFirstLoad) {
    TempContainer container;
    const QString account = QStringLiteral("ann@example.org");
    container.writeAccounts({TempContainer::account(account)});
    QVariantList rows;
    for (int i = 0; i < 4; ++i)
        rows << TempContainer::message(QStringLiteral("m%1").arg(i), account, 1795000000 - i * 600, 1);
    container.writeSnapshot(account, QStringLiteral("inbox.plist"), rows);

    QTemporaryDir out;
    QTemporaryDir config;
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
    p.setProcessEnvironment(env);
    const QString file = out.filePath(QStringLiteral("shot.png"));
    p.start(QStringLiteral(CORVINA_TODAY_BINARY),
            {QStringLiteral("--container"), container.root(), QStringLiteral("--screenshot"), file});
    ASSERT_TRUE(p.waitForFinished(30000));
    EXPECT_EQ(p.exitCode(), 0) << p.readAllStandardError().toStdString();
    const QImage image(file);
    ASSERT_FALSE(image.isNull());
    // 320 wide; 8 above, header 30, gap 5, four rows of 60, 8 below.
    EXPECT_EQ(image.size(), QSize(320, 8 + 30 + 5 + 4 * 60 + 8));
}

TEST(Screenshot, BadIntervalIsAUsageError) {
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    p.setProcessEnvironment(env);
    p.start(QStringLiteral(CORVINA_TODAY_BINARY), {QStringLiteral("--interval"), QStringLiteral("soon")});
    ASSERT_TRUE(p.waitForFinished(30000));
    EXPECT_EQ(p.exitCode(), 2);
    EXPECT_TRUE(p.readAllStandardError().contains("--interval wants a whole number of seconds"));
}
