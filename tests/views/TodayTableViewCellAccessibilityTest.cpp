// A message row as a screen reader reads it: the cell's and its buttons' accessible texts.
#include "platform/Localization.h"
#include "views/TodayHeaderView.h"
#include "views/TodayTableViewCell.h"

#include <QAccessible>
#include <gtest/gtest.h>

using namespace corvina;

namespace {

ExtensionMessagePtr jonas(bool unread) {
    auto message = ExtensionMessage::init();
    message->setFrom(QStringLiteral("Jonas Brandt"));
    message->setSubject(QStringLiteral("Draft agenda"));
    message->setDateString(QStringLiteral("14:05"));
    message->setUnread(unread);
    return message;
}

QString text(QWidget* widget, QAccessible::Text t) {
    return QAccessible::queryAccessibleInterface(widget)->text(t);
}

} // namespace

TEST(TodayTableViewCellAccessibility, NamedBySenderSubjectAndDate) {
    TodayTableViewCell cell(QRect(0, 0, 320, 60));
    cell.PopulateExtensionMessage(jonas(false));
    EXPECT_EQ(text(&cell, QAccessible::Name), QStringLiteral("Jonas Brandt, Draft agenda, 14:05"));
    EXPECT_EQ(text(&cell, QAccessible::Description),
              QStringLiteral("Read. Enter opens, R replies, A archives, Delete deletes"));
}

TEST(TodayTableViewCellAccessibility, SaysUnreadAndNew) {
    TodayTableViewCell cell(QRect(0, 0, 320, 60));
    cell.PopulateExtensionMessage(jonas(true));
    EXPECT_TRUE(text(&cell, QAccessible::Description).startsWith(QStringLiteral("Unread. Enter opens")));
    cell.setMarkedNew(true);
    EXPECT_TRUE(text(&cell, QAccessible::Description)
                    .startsWith(QStringLiteral("Unread. New since you last looked. ")))
        << text(&cell, QAccessible::Description).toStdString();
    cell.setMarkedNew(false);
    EXPECT_FALSE(text(&cell, QAccessible::Description).contains(QStringLiteral("New")));
}

TEST(TodayTableViewCellAccessibility, ButtonsAreNamedAndSayWhichMessage) {
    TodayTableViewCell cell(QRect(0, 0, 320, 60));
    cell.PopulateExtensionMessage(jonas(false));
    const QList<std::pair<ImageButton*, QString>> buttons{{cell.replyButton(), QStringLiteral("Reply")},
                                                          {cell.archiveButton(), QStringLiteral("Archive")},
                                                          {cell.trashButton(), QStringLiteral("Delete")}};
    for (const auto& [button, name] : buttons) {
        EXPECT_EQ(QAccessible::queryAccessibleInterface(button)->role(), QAccessible::Button);
        EXPECT_EQ(text(button, QAccessible::Name), name);
        EXPECT_EQ(text(button, QAccessible::Description),
                  QStringLiteral("The message from Jonas Brandt: Draft agenda"));
    }
}

TEST(TodayTableViewCellAccessibility, AnEmptyCellStillHasNames) {
    TodayTableViewCell cell(QRect(0, 0, 320, 60));
    EXPECT_FALSE(text(&cell, QAccessible::Name).isEmpty());
    EXPECT_EQ(text(cell.replyButton(), QAccessible::Name), QStringLiteral("Reply"));
}

TEST(TodayTableViewCellAccessibility, TextsInTheUsersLanguage) {
    const QLocale before = Localization::locale();
    Localization::setLocale(QLocale(QLocale::German, QLocale::Germany));
    {
        TodayTableViewCell cell(QRect(0, 0, 320, 60));
        cell.PopulateExtensionMessage(jonas(true));
        EXPECT_EQ(text(cell.replyButton(), QAccessible::Name), QStringLiteral("Antworten"));
        EXPECT_TRUE(text(&cell, QAccessible::Description).startsWith(QStringLiteral("Ungelesen. ")));
        TodayHeaderView header;
        QAccessibleInterface* lists = QAccessible::queryAccessibleInterface(header.control());
        EXPECT_EQ(lists->text(QAccessible::Name), QStringLiteral("Liste"));
        EXPECT_EQ(lists->child(1)->text(QAccessible::Description),
                  QStringLiteral("Zeigt die Liste %1 (Taste 2)").arg(header.control()->labelForSegment(1)));
    }
    Localization::setLocale(QLocale(QLocale::French, QLocale::France));
    {
        TodayTableViewCell cell(QRect(0, 0, 320, 60));
        cell.PopulateExtensionMessage(jonas(false));
        EXPECT_EQ(text(cell.archiveButton(), QAccessible::Name), QStringLiteral("Archiver"));
        EXPECT_EQ(text(cell.trashButton(), QAccessible::Description),
                  QStringLiteral("Le message de Jonas Brandt : Draft agenda"));
    }
    Localization::setLocale(before);
}
