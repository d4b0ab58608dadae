#include "platform/Log.h"

#include "support/LogCapture.h"

#include <gtest/gtest.h>

using namespace corvina;

TEST(Log, FillsPlaceholdersInOrder) {
    test::LogCapture capture;
    Log::write(QStringLiteral("updateData error deserialize %@"), {QStringLiteral("bad header")});
    EXPECT_EQ(capture.lines(), QStringList{QStringLiteral("updateData error deserialize bad header")});
}

TEST(Log, ErrorFormatsGetTheTagFirst) {
    test::LogCapture capture;
    Log::error(QStringLiteral("[%@] updateData coordinator %@"), {QStringLiteral("timed out")});
    EXPECT_EQ(capture.lines(), QStringList{QStringLiteral("[***ERROR***] updateData coordinator timed out")});
}

TEST(Log, AnArgumentHoldingAPlaceholderIsNotFilledAgain) {
    EXPECT_EQ(Log::format(QStringLiteral("a %@ b %@"), {QStringLiteral("%@"), QStringLiteral("x")}),
              QStringLiteral("a %@ b x"));
    EXPECT_EQ(Log::format(QStringLiteral("a %@ b %@"), {QStringLiteral("1")}), QStringLiteral("a 1 b %@"));
}
