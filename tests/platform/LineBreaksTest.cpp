#include "platform/LineBreaks.h"

#include <gtest/gtest.h>

using corvina::LineBreaks;

namespace {

const QString Joiner = QString(QChar(0x2060));

TEST(LineBreaksTest, AHyphenInsideAWordHoldsToWhatFollows) {
    EXPECT_EQ(LineBreaks::unbrokenAtHyphens(QStringLiteral("run corvina-mail-bridge check")),
              QStringLiteral("run corvina-") + Joiner + QStringLiteral("mail-") + Joiner +
                  QStringLiteral("bridge check"));
    // Digits count as the word's too.
    EXPECT_EQ(LineBreaks::unbrokenAtHyphens(QStringLiteral("utf-8")),
              QStringLiteral("utf-") + Joiner + QStringLiteral("8"));
}

TEST(LineBreaksTest, AHyphenAtAWordsEdgeOrAloneIsLeftAsItIs) {
    for (const QString& text : {QStringLiteral("--once"), QStringLiteral("a - b"), QStringLiteral("end-"),
                                QStringLiteral("-"), QStringLiteral("x--y"), QString(), QStringLiteral("")})
        EXPECT_EQ(LineBreaks::unbrokenAtHyphens(text), text) << text.toStdString();
}

TEST(LineBreaksTest, TakingTheJoinersOutGivesTheTextBack) {
    const QString text = QStringLiteral("systemctl --user enable --now corvina-mail-bridge.service; É-ß");
    QString shown = LineBreaks::unbrokenAtHyphens(text);
    EXPECT_EQ(shown.count(Joiner), 3);
    EXPECT_EQ(shown.remove(Joiner), text);
}

} // namespace
