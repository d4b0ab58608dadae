#include "platform/GroupContainer.h"

#include "support/ScopedEnvironment.h"

#include <QDir>
#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::ScopedEnvironment;

TEST(GroupContainer, TheVariableChoosesTheFolder) {
    ScopedEnvironment chosen("CORVINA_GROUP_CONTAINER", QByteArray("/srv/mail/shared/"));
    const auto url = GroupContainer::containerURL("G.id");
    ASSERT_TRUE(url);
    EXPECT_TRUE(url->isLocalFile());
    EXPECT_EQ(url->toLocalFile(), QStringLiteral("/srv/mail/shared"));
}

TEST(GroupContainer, ARelativeFolderIsMadeAbsolute) {
    ScopedEnvironment chosen("CORVINA_GROUP_CONTAINER", QByteArray("some/where"));
    EXPECT_EQ(GroupContainer::containerURL("G.id")->toLocalFile(),
              QDir::currentPath() + QStringLiteral("/some/where"));
}

TEST(GroupContainer, SetButEmptyMeansNoContainer) {
    ScopedEnvironment chosen("CORVINA_GROUP_CONTAINER", QByteArray(""));
    EXPECT_FALSE(GroupContainer::containerURL("G.id"));
}

TEST(GroupContainer, UnsetFallsBackToTheXdgDataFolder) {
    ScopedEnvironment chosen("CORVINA_GROUP_CONTAINER", std::nullopt);
    {
        ScopedEnvironment data("XDG_DATA_HOME", QByteArray("/data/home"));
        EXPECT_EQ(GroupContainer::containerURL("G.id")->toLocalFile(),
                  QStringLiteral("/data/home/group-containers/G.id"));
    }
    {
        ScopedEnvironment data("XDG_DATA_HOME", std::nullopt);
        ScopedEnvironment home("HOME", QByteArray("/home/tester"));
        EXPECT_EQ(GroupContainer::containerURL("G.id")->toLocalFile(),
                  QStringLiteral("/home/tester/.local/share/group-containers/G.id"));
    }
    {
        // a relative XDG_DATA_HOME is invalid by the XDG rules and ignored
        ScopedEnvironment data("XDG_DATA_HOME", QByteArray("relative"));
        ScopedEnvironment home("HOME", QByteArray("/home/tester"));
        EXPECT_EQ(GroupContainer::containerURL("G.id")->toLocalFile(),
                  QStringLiteral("/home/tester/.local/share/group-containers/G.id"));
    }
}

TEST(GroupContainer, NothingIsCreated) {
    ScopedEnvironment chosen("CORVINA_GROUP_CONTAINER", QByteArray("/nonexistent/corvina-test-container"));
    ASSERT_TRUE(GroupContainer::containerURL("G.id"));
    EXPECT_FALSE(QDir("/nonexistent/corvina-test-container").exists());
}
