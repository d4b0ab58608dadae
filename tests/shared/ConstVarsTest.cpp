#include "shared/ConstVars.h"

#include <gtest/gtest.h>

using namespace corvina;

// The names other programs and the user's settings already hold (see docs/): the one place the tests
// spell them out; every other test takes them from ConstVars.
TEST(ConstVars, TheSharedFolderLayoutIsTheDocumentedOne) {
    EXPECT_EQ(ConstVars::todayFolder, QStringLiteral("Today"));
    EXPECT_EQ(ConstVars::accountsFile, QStringLiteral("Accounts.plist"));
    EXPECT_EQ(ConstVars::contactsFolder, QStringLiteral("Contacts"));
}

TEST(ConstVars, TheChosenListIsStoredUnderSegmented) {
    EXPECT_EQ(ConstVars::segmentedKey, QStringLiteral("segmented"));
}
