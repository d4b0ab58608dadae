#include "platform/UserDefaults.h"

#include "support/ScopedEnvironment.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::ScopedEnvironment;

TEST(UserDefaults, AbsentKeyReadsZero) {
    QTemporaryDir config;
    ScopedEnvironment home("XDG_CONFIG_HOME", config.path().toUtf8());
    EXPECT_EQ(UserDefaults::integerForKey("segmented"), 0);
}

TEST(UserDefaults, WrittenValueIsReadBackFromTheBundlesFile) {
    QTemporaryDir config;
    ScopedEnvironment home("XDG_CONFIG_HOME", config.path().toUtf8());
    ScopedEnvironment bundle("CORVINA_BUNDLE_IDENTIFIER", QByteArray("org.corvina.mail.today"));
    UserDefaults::setInteger(3, "segmented");
    EXPECT_EQ(UserDefaults::filePath(), config.path() + "/corvina/org.corvina.mail.today.conf");
    EXPECT_TRUE(QFile::exists(UserDefaults::filePath()));
    EXPECT_EQ(UserDefaults::integerForKey("segmented"), 3);
    // another build keeps its own settings
    ScopedEnvironment beta("CORVINA_BUNDLE_IDENTIFIER", QByteArray("org.corvina.mail.beta.today"));
    EXPECT_EQ(UserDefaults::integerForKey("segmented"), 0);
}

TEST(UserDefaults, AValueThatIsNoNumberReadsZero) {
    QTemporaryDir config;
    ScopedEnvironment home("XDG_CONFIG_HOME", config.path().toUtf8());
    QDir().mkpath(config.path() + "/corvina");
    QFile file(UserDefaults::filePath());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("[General]\nsegmented=Inbox\n");
    file.close();
    EXPECT_EQ(UserDefaults::integerForKey("segmented"), 0);
}
