#include "model/CommandURL.h"

#include <gtest/gtest.h>

using namespace corvina;

// The scheme the mail application registers for itself: the one place the tests spell it out.
TEST(CommandURL, TheMailApplicationsScheme) {
    EXPECT_EQ(CommandURL::scheme, QStringLiteral("corvina"));
    EXPECT_EQ(CommandURL::prefix, QStringLiteral("corvina://"));
}
