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

TEST(Log, NothingIsWrittenWhileASilenceLivesAndSilencesNest) {
    test::LogCapture capture;
    {
        const Log::Silence outer;
        Log::write(QStringLiteral("updateData error deserialize %@"), {QStringLiteral("first")});
        {
            const Log::Silence inner;
            Log::error(QStringLiteral("[%@] updateData exception %@"), {QStringLiteral("second")});
        }
        // the inner one ended, the outer one still holds
        Log::write(QStringLiteral("updateData error deserialize %@"), {QStringLiteral("third")});
    }
    EXPECT_TRUE(capture.lines().isEmpty());
    Log::write(QStringLiteral("updateData error deserialize %@"), {QStringLiteral("after")});
    EXPECT_EQ(capture.lines(), QStringList{QStringLiteral("updateData error deserialize after")});
}
