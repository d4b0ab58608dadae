#include "model/ExtensionMessage.h"

#include "model/ExtensionDate.h"
#include "platform/Localization.h"
#include "support/LogCapture.h"
#include "support/ScopedZone.h"

#include <QBuffer>
#include <QColor>
#include <QUrl>
#include <atomic>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <thread>
#include <vector>

using namespace corvina;
using corvina::test::LogCapture;
using corvina::test::ScopedLanguage;
using corvina::test::ScopedTimeZone;

namespace {

QDateTime epochPlus(qint64 seconds) {
    return QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC);
}

QByteArray avatarBase64() {
    // a 1x1 PNG, as the mail application would hand a sender's picture
    QImage image(1, 1, QImage::Format_RGB32);
    image.fill(Qt::red);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes.toBase64();
}

QVariantMap fullRow() {
    return {
        {"subject", "Lunch?"},    {"messageId", "<id-1@example.org>"},
        {"from", "Grace Hopper"}, {"account", "me@example.org"},
        {"folder", "INBOX"},      {"folderStid", qint64(1)},
        {"isUnread", qint64(1)},  {"date", qint64(1700000063)},
    };
}

ExtensionMessagePtr message(const QString& id, const QString& account, const QString& subject = "s") {
    return ExtensionMessage::initWithDictonary(
        QVariantMap{{"messageId", id}, {"account", account}, {"subject", subject}});
}

} // namespace

TEST(ExtensionMessage, InitMakesAnEmptyComposingRecord) {
    const auto m = ExtensionMessage::init();
    EXPECT_EQ(m->htmlBody(), QString(""));
    EXPECT_FALSE(m->htmlBody().isNull());
    EXPECT_EQ(m->plainBody(), QString(""));
    EXPECT_FALSE(m->plainBody().isNull());
    for (const auto& list : {m->to(), m->cc(), m->bcc()}) {
        ASSERT_TRUE(list);
        EXPECT_TRUE(list->isEmpty());
    }
    ASSERT_TRUE(m->attachments());
    EXPECT_TRUE(m->attachments()->isEmpty());
    // four distinct lists, so filling one does not fill another
    EXPECT_NE(m->to().get(), m->cc().get());
    EXPECT_NE(m->cc().get(), m->bcc().get());
    EXPECT_TRUE(m->subject().isNull());
    EXPECT_TRUE(m->messageId().isNull());
    EXPECT_TRUE(m->account().isNull());
    EXPECT_TRUE(m->from().isNull());
    EXPECT_TRUE(m->folderPath().isNull());
    EXPECT_TRUE(m->dateString().isNull());
    EXPECT_FALSE(m->date().isValid());
    EXPECT_TRUE(m->image().isNull());
    EXPECT_FALSE(m->unread().isValid()) << "null, not 0";
    EXPECT_FALSE(m->folderStandardId().isValid()) << "null, not 0";
    EXPECT_TRUE(m->toString().isNull());
    EXPECT_TRUE(m->ccString().isNull());
    EXPECT_TRUE(m->bccString().isNull());
}

TEST(ExtensionMessage, FullDictionaryFillsEveryField) {
    QVariantMap row = fullRow();
    row.insert("avatar", QString::fromLatin1(avatarBase64()));
    row.insert("someFutureKey", "ignored");
    LogCapture capture;
    const auto m = ExtensionMessage::initWithDictonary(row);
    EXPECT_EQ(m->subject(), QStringLiteral("Lunch?"));
    EXPECT_EQ(m->messageId(), QStringLiteral("<id-1@example.org>"));
    EXPECT_EQ(m->from(), QStringLiteral("Grace Hopper"));
    EXPECT_EQ(m->account(), QStringLiteral("me@example.org"));
    EXPECT_EQ(m->folderPath(), QStringLiteral("INBOX"));
    EXPECT_EQ(m->folderStandardId(), QVariant(qint64(1)));
    EXPECT_EQ(m->unread(), QVariant(qint64(1)));
    EXPECT_EQ(m->date(), epochPlus(1700000000));
    EXPECT_EQ(m->dateString(), ExtensionDate::shared().centralDate(epochPlus(1700000000)));
    ASSERT_FALSE(m->image().isNull());
    EXPECT_EQ(m->image().size(), QSize(1, 1));
    EXPECT_EQ(QColor(m->image().pixel(0, 0)), QColor(Qt::red));
    // composing fields stay null on a record read from a snapshot
    EXPECT_FALSE(m->to());
    EXPECT_FALSE(m->cc());
    EXPECT_FALSE(m->bcc());
    EXPECT_FALSE(m->attachments());
    EXPECT_TRUE(m->plainBody().isNull());
    EXPECT_TRUE(m->htmlBody().isNull());
    EXPECT_TRUE(m->toString().isNull());
    EXPECT_TRUE(capture.lines().isEmpty());
    EXPECT_EQ(m->description(), QStringLiteral("ExtensionMessage Lunch?"));
}

TEST(ExtensionMessage, EmptyDictionaryTakesEveryDefault) {
    ScopedTimeZone zone("America/New_York");
    LogCapture capture;
    const auto m = ExtensionMessage::initWithDictonary(QVariantMap());
    EXPECT_EQ(m->subject(), QStringLiteral("No subject"));
    for (const QString& text : {m->messageId(), m->from(), m->account(), m->folderPath()}) {
        EXPECT_EQ(text, QString(""));
        EXPECT_FALSE(text.isNull());
    }
    EXPECT_EQ(m->folderStandardId(), QVariant(qint64(0)));
    EXPECT_EQ(m->unread(), QVariant(qint64(0)));
    EXPECT_EQ(m->date(), epochPlus(0));
    // 31 December 1969 in New York, as a short date: never a time, since that day is never today
    const QString text = m->dateString();
    EXPECT_EQ(text, ExtensionDate::shared().dateCentrale2()->stringFromDate(epochPlus(0)));
    EXPECT_FALSE(text.contains(':')) << text.toStdString();
    EXPECT_EQ(text, ExtensionDate::shared().dateCentrale2()->locale().toString(QDate(1969, 12, 31),
                                                                               QLocale::ShortFormat));
    EXPECT_TRUE(m->image().isNull());
    EXPECT_FALSE(m->to());
    EXPECT_FALSE(m->cc());
    EXPECT_FALSE(m->bcc());
    EXPECT_FALSE(m->attachments());
    EXPECT_TRUE(m->plainBody().isNull());
    EXPECT_TRUE(m->htmlBody().isNull());
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(ExtensionMessage, EpochIsTheFirstOfJanuaryInUtc) {
    const auto m = ExtensionMessage::initWithDictonary(QVariantMap());
    EXPECT_EQ(m->dateString(), ExtensionDate::shared().dateCentrale2()->stringFromDate(epochPlus(0)));
    EXPECT_TRUE(m->dateString().contains("70")) << m->dateString().toStdString();
}

TEST(ExtensionMessage, MissingSubjectIsTranslated) {
    ScopedLanguage german(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(ExtensionMessage::initWithDictonary(QVariantMap())->subject(), QStringLiteral("Kein Betreff"));
    // a subject that is there, even empty, is kept
    EXPECT_EQ(ExtensionMessage::initWithDictonary(QVariantMap{{"subject", ""}})->subject(), QString(""));
}

TEST(ExtensionMessage, DateGoesThroughSinglePrecision) {
    EXPECT_EQ(ExtensionMessage::initWithDictonary(QVariantMap{{"date", qint64(1700000063)}})->date(),
              epochPlus(1700000000));
    EXPECT_EQ(ExtensionMessage::initWithDictonary(QVariantMap{{"date", "1700000063"}})->date(),
              epochPlus(1700000000));
    EXPECT_EQ(ExtensionMessage::initWithDictonary(QVariantMap{{"date", 1700000100.0}})->date(),
              epochPlus(1700000128));
    EXPECT_EQ(ExtensionMessage::initWithDictonary(QVariantMap{{"date", 1700000063.9}})->date(),
              epochPlus(1700000000));
    // two messages received within two minutes can carry the same date
    EXPECT_EQ(ExtensionMessage::initWithDictonary(QVariantMap{{"date", qint64(1700000001)}})->date(),
              ExtensionMessage::initWithDictonary(QVariantMap{{"date", qint64(1700000060)}})->date());
    // small values keep their fraction
    EXPECT_EQ(ExtensionMessage::initWithDictonary(QVariantMap{{"date", 1.5}})->date().toMSecsSinceEpoch(),
              1500);
    EXPECT_EQ(ExtensionMessage::initWithDictonary(QVariantMap{{"date", qint64(-86400)}})->date(),
              epochPlus(-86400));
    // a text that is no number reads as 0
    EXPECT_EQ(ExtensionMessage::initWithDictonary(QVariantMap{{"date", "soon"}})->date(), epochPlus(0));
    EXPECT_EQ(ExtensionMessage::initWithDictonary(QVariantMap{{"date", true}})->date(), epochPlus(1));
}

TEST(ExtensionMessage, DateOfAListStopsTheRecordThere) {
    QVariantMap row = fullRow();
    row.insert("date", QVariantList{1, 2});
    row.insert("avatar", QString::fromLatin1(avatarBase64()));
    LogCapture capture;
    const auto m = ExtensionMessage::initWithDictonary(row);
    EXPECT_EQ(capture.lines(),
              QStringList{"ExtensionMessage initWithDictonary floatValue: unsupported value of type array"});
    EXPECT_EQ(m->subject(), QStringLiteral("Lunch?"));
    EXPECT_EQ(m->messageId(), QStringLiteral("<id-1@example.org>"));
    EXPECT_EQ(m->from(), QStringLiteral("Grace Hopper"));
    EXPECT_EQ(m->account(), QStringLiteral("me@example.org"));
    EXPECT_EQ(m->folderPath(), QStringLiteral("INBOX"));
    EXPECT_EQ(m->folderStandardId(), QVariant(qint64(1)));
    EXPECT_EQ(m->unread(), QVariant(qint64(1)));
    EXPECT_FALSE(m->date().isValid());
    EXPECT_TRUE(m->dateString().isNull());
    EXPECT_TRUE(m->image().isNull());
}

TEST(ExtensionMessage, DateOfADictionaryOrDataIsCaughtToo) {
    for (const QVariant& bad : {QVariant(QVariantMap{{"a", 1}}), QVariant(QByteArray("x")),
                                QVariant(QDateTime::fromSecsSinceEpoch(5, Qt::UTC))}) {
        LogCapture capture;
        const auto m = ExtensionMessage::initWithDictonary(QVariantMap{{"messageId", "x"}, {"date", bad}});
        ASSERT_EQ(capture.lines().size(), 1);
        EXPECT_TRUE(
            capture.lines().first().startsWith("ExtensionMessage initWithDictonary floatValue: unsupported"));
        EXPECT_EQ(m->messageId(), QStringLiteral("x"));
        EXPECT_FALSE(m->date().isValid());
    }
}

TEST(ExtensionMessage, DateOutOfAnyCalendarIsCaught) {
    for (double seconds :
         {1e30, -1e30, std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
        LogCapture capture;
        const auto m = ExtensionMessage::initWithDictonary(QVariantMap{{"unread", 1}, {"date", seconds}});
        ASSERT_EQ(capture.lines().size(), 1) << seconds;
        EXPECT_TRUE(capture.lines().first().startsWith("ExtensionMessage initWithDictonary date: "))
            << seconds;
        EXPECT_TRUE(capture.lines().first().endsWith(" seconds is out of range")) << seconds;
        EXPECT_EQ(m->unread(), QVariant(qint64(0)));
        EXPECT_FALSE(m->date().isValid());
        EXPECT_TRUE(m->dateString().isNull());
    }
}

TEST(ExtensionMessage, EveryDateTheDateTypeCanHoldIsADate) {
    // 1e15 seconds is some 31 million years away: absurd for a mail, but a date all the same, and
    // the record must get one rather than a null date and a log line
    for (double seconds : {1e15, -1e15, 9.2e15, -9.2e15}) {
        LogCapture capture;
        const auto m =
            ExtensionMessage::initWithDictonary(QVariantMap{{"messageId", "x"}, {"date", seconds}});
        EXPECT_TRUE(capture.lines().isEmpty()) << seconds << " " << capture.lines().join("|").toStdString();
        ASSERT_TRUE(m->date().isValid()) << seconds;
        EXPECT_EQ(
            m->date().toMSecsSinceEpoch(),
            static_cast<qint64>(std::llround(static_cast<double>(static_cast<float>(seconds)) * 1000.0)));
        EXPECT_FALSE(m->dateString().isEmpty()) << seconds;
    }
    // the same as a numeric string
    const auto text = ExtensionMessage::initWithDictonary(QVariantMap{{"date", QStringLiteral("1e15")}});
    EXPECT_EQ(text->date().toSecsSinceEpoch(), qint64(static_cast<double>(static_cast<float>(1e15))));
}

TEST(ExtensionMessage, NotADictionaryStopsAtTheFirstStep) {
    for (const QVariant& bad :
         {QVariant(QStringLiteral("row")), QVariant(QVariantList{1}), QVariant(qint64(3))}) {
        LogCapture capture;
        const auto m = ExtensionMessage::initWithDictonary(bad);
        ASSERT_TRUE(m);
        ASSERT_EQ(capture.lines().size(), 1);
        EXPECT_TRUE(capture.lines().first().startsWith(
            "ExtensionMessage initWithDictonary objectForKey: unsupported value of type "));
        EXPECT_TRUE(m->subject().isNull());
        EXPECT_FALSE(m->unread().isValid());
        EXPECT_FALSE(m->folderStandardId().isValid());
    }
}

TEST(ExtensionMessage, NullDictionaryReadsAsEmpty) {
    LogCapture capture;
    const auto m = ExtensionMessage::initWithDictonary(QVariant());
    EXPECT_EQ(m->subject(), QStringLiteral("No subject"));
    EXPECT_EQ(m->date(), epochPlus(0));
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(ExtensionMessage, AvatarWithoutBase64ContentIsSilentlyNull) {
    LogCapture capture;
    const auto m = ExtensionMessage::initWithDictonary(QVariantMap{{"avatar", "!!!"}, {"date", qint64(5)}});
    EXPECT_TRUE(m->image().isNull());
    EXPECT_EQ(m->date(), epochPlus(5));
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(ExtensionMessage, AvatarOfBytesThatAreNoImageIsSilentlyNull) {
    LogCapture capture;
    const auto m = ExtensionMessage::initWithDictonary(
        QVariantMap{{"avatar", QString::fromLatin1(QByteArray("hello").toBase64())}});
    EXPECT_TRUE(m->image().isNull());
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(ExtensionMessage, AvatarBase64MayCarryLineBreaksAndNoise) {
    QString wrapped;
    const QString plain = QString::fromLatin1(avatarBase64());
    for (int i = 0; i < plain.size(); i += 10) {
        wrapped += plain.mid(i, 10) + "\r\n ";
    }
    const auto m = ExtensionMessage::initWithDictonary(QVariantMap{{"avatar", wrapped}});
    ASSERT_FALSE(m->image().isNull());
    EXPECT_EQ(m->image().size(), QSize(1, 1));
}

TEST(ExtensionMessage, AvatarThatIsNoTextIsCaughtAfterTheDate) {
    LogCapture capture;
    const auto m =
        ExtensionMessage::initWithDictonary(QVariantMap{{"avatar", qint64(12)}, {"date", qint64(7)}});
    EXPECT_EQ(capture.lines(),
              QStringList{"ExtensionMessage initWithDictonary avatar: unsupported value of type number"});
    EXPECT_EQ(m->date(), epochPlus(7));
    EXPECT_FALSE(m->dateString().isEmpty());
    EXPECT_TRUE(m->image().isNull());
}

TEST(ExtensionMessage, WrongTypedValuesKeepTheRecordBuildable) {
    LogCapture capture;
    const auto m = ExtensionMessage::initWithDictonary(QVariantMap{{"subject", qint64(42)},
                                                                   {"from", QVariantList{"x"}},
                                                                   {"account", QVariantMap{{"a", 1}}},
                                                                   {"folderStid", "3"},
                                                                   {"isUnread", true},
                                                                   {"folder", 2.5},
                                                                   {"messageId", false}});
    EXPECT_TRUE(capture.lines().isEmpty());
    // numbers in text fields give their text; lists and dictionaries count as absent
    EXPECT_EQ(m->subject(), QStringLiteral("42"));
    EXPECT_EQ(m->folderPath(), QStringLiteral("2.5"));
    EXPECT_EQ(m->messageId(), QStringLiteral("0"));
    EXPECT_EQ(m->from(), QString(""));
    EXPECT_EQ(m->account(), QString(""));
    // a numeric text in a number field gives the number; a boolean is kept as it is
    EXPECT_EQ(m->folderStandardId().toLongLong(), 3);
    EXPECT_EQ(m->unread(), QVariant(true));
    // text that is no number in a number field counts as absent: the default 0
    EXPECT_EQ(ExtensionMessage::initWithDictonary(QVariantMap{{"folderStid", "Inbox"}})->folderStandardId(),
              QVariant(qint64(0)));
}

TEST(ExtensionMessage, BoxedNumbersKeepTheirKind) {
    const auto m =
        ExtensionMessage::initWithDictonary(QVariantMap{{"folderStid", 2.0}, {"isUnread", qint64(0)}});
    EXPECT_EQ(m->folderStandardId(), QVariant(2.0));
    EXPECT_EQ(m->unread(), QVariant(qint64(0)));
}

TEST(ExtensionMessage, TextsAreKeptExactly) {
    const QString subject = QStringLiteral("  Grüße 🌧\n");
    const auto m = ExtensionMessage::initWithDictonary(QVariantMap{{"subject", subject}, {"from", " "}});
    EXPECT_EQ(m->subject(), subject);
    EXPECT_EQ(m->from(), QStringLiteral(" "));
}

TEST(ExtensionMessage, SameIdentifierAndAccountAreTheSameMessage) {
    const auto a = message("id-1", "me@example.org", "First subject");
    const auto b = message("id-1", "me@example.org", "Another subject");
    b->setDate(epochPlus(99));
    b->setUnread(1);
    EXPECT_TRUE(a->isEqual(b.get()));
    EXPECT_TRUE(b->isEqualToModel(a.get()));
}

TEST(ExtensionMessage, AccountsDifferingInCaseAreDifferentMessages) {
    EXPECT_FALSE(message("id-1", "me@example.org")->isEqual(message("id-1", "Me@example.org").get()));
    EXPECT_FALSE(message("id-1", "me@example.org")->isEqual(message("ID-1", "me@example.org").get()));
    EXPECT_FALSE(message("id-1", "me@example.org")->isEqual(message("id-2", "me@example.org").get()));
}

namespace {
class OtherObject : public Object {
public:
    QString description() const override { return "other"; }
};
class DraftMessage : public ExtensionMessage {};
} // namespace

TEST(ExtensionMessage, ComparedWithOtherKindsOrNullIsNotEqual) {
    const auto a = message("id-1", "me@example.org");
    OtherObject other;
    EXPECT_FALSE(a->isEqual(nullptr));
    EXPECT_FALSE(a->isEqual(&other));
    EXPECT_FALSE(a->isEqualToModel(nullptr));
    // a subclass of the record is still a message
    DraftMessage draft;
    draft.setMessageId("id-1");
    draft.setAccount("me@example.org");
    EXPECT_TRUE(a->isEqual(&draft));
}

TEST(ExtensionMessage, ARecordEqualsItselfEvenWithoutIdentifier) {
    const auto m = ExtensionMessage::init();
    EXPECT_TRUE(m->messageId().isNull());
    EXPECT_TRUE(m->isEqual(m.get()));
    EXPECT_TRUE(m->isEqualToModel(m.get()));
    // but two records without identifier are different messages
    EXPECT_FALSE(m->isEqual(ExtensionMessage::init().get()));
}

TEST(ExtensionMessage, DescriptionNamesTheSubject) {
    EXPECT_EQ(message("1", "a", "Hello")->description(), QStringLiteral("ExtensionMessage Hello"));
    EXPECT_EQ(ExtensionMessage::init()->description(), QStringLiteral("ExtensionMessage (null)"));
}

TEST(ExtensionMessage, AttachmentsAcceptPathsAndFileUrls) {
    const auto m = ExtensionMessage::init();
    m->attachments()->append(QStringLiteral("/tmp/a.pdf"));
    m->attachments()->append(QUrl::fromLocalFile("/tmp/b.pdf"));
    ASSERT_EQ(m->attachments()->size(), 2);
    EXPECT_EQ(m->attachments()->at(1).toUrl().toLocalFile(), QStringLiteral("/tmp/b.pdf"));
}

namespace {

QString pngText(const QImage& image) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return QString::fromLatin1(bytes.toBase64());
}

QImage solid(int width, int height, QColor colour) {
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

} // namespace

TEST(ExtensionMessage, AnAvatarOfTooManyPixelsIsRefusedWithALine) {
    // a few kilobytes of PNG that would take 16 MB once decoded, for each message that names it
    const QString text = pngText(solid(2000, 2000, Qt::blue));
    ASSERT_LT(text.size(), 100 * 1024);
    LogCapture capture;
    const auto m = ExtensionMessage::initWithDictonary(QVariantMap{{"messageId", "x"}, {"avatar", text}});
    EXPECT_TRUE(m->image().isNull());
    EXPECT_EQ(
        capture.lines(),
        QStringList{"ExtensionMessage avatar picture of 2000x2000 pixels is larger than 1048576 pixels"});
    EXPECT_EQ(m->messageId(), QStringLiteral("x"));
    EXPECT_TRUE(m->date().isValid());
}

TEST(ExtensionMessage, AnAvatarTextOverItsBoundIsNotDecoded) {
    QString text = pngText(solid(4, 4, Qt::green));
    text += QString(ExtensionMessage::MaximumAvatarTextBytes + 1 - text.size(), QLatin1Char('\n'));
    LogCapture capture;
    const auto m = ExtensionMessage::initWithDictonary(QVariantMap{{"avatar", text}});
    EXPECT_TRUE(m->image().isNull());
    EXPECT_EQ(capture.lines(),
              QStringList{"ExtensionMessage avatar text of 1048577 characters is longer than 1048576"});
    // one character less is read: line breaks are skipped
    text.chop(1);
    LogCapture quiet;
    EXPECT_EQ(ExtensionMessage::initWithDictonary(QVariantMap{{"avatar", text}})->image().size(),
              QSize(4, 4));
    EXPECT_TRUE(quiet.lines().isEmpty());
}

TEST(ExtensionMessage, ALargeAvatarIsKeptAtASmallSize) {
    LogCapture capture;
    const auto m =
        ExtensionMessage::initWithDictonary(QVariantMap{{"avatar", pngText(solid(1000, 500, Qt::red))}});
    ASSERT_FALSE(m->image().isNull());
    EXPECT_EQ(m->image().size(), QSize(64, 32));
    EXPECT_EQ(QColor(m->image().pixel(10, 10)), QColor(Qt::red));
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(ExtensionMessage, ABrokenAvatarStaysSilent) {
    QString text = pngText(solid(30, 30, Qt::red));
    const QByteArray bytes = QByteArray::fromBase64(text.toLatin1()).left(60);
    LogCapture capture;
    const auto m =
        ExtensionMessage::initWithDictonary(QVariantMap{{"avatar", QString::fromLatin1(bytes.toBase64())}});
    EXPECT_TRUE(m->image().isNull());
    EXPECT_TRUE(capture.lines().isEmpty());
}

// Base64 noise beyond Latin-1 is skipped as any other noise is, and the bound counts the text's
// characters as it is given (a character outside the basic plane counts twice).
TEST(ExtensionMessage, AvatarNoiseBeyondLatin1IsSkippedAndCounted) {
    const QString plain = QString::fromLatin1(avatarBase64());
    QString noisy;
    for (int i = 0; i < plain.size(); i += 7) {
        noisy += plain.mid(i, 7) + QString::fromUtf8("\xc3\xa9\xe2\x86\x92\xf0\x9f\x98\x80");
    }
    const auto m = ExtensionMessage::initWithDictonary(QVariantMap{{"avatar", noisy}});
    EXPECT_TRUE(m->hasAvatar());
    ASSERT_FALSE(m->image().isNull());
    EXPECT_EQ(m->image().size(), QSize(1, 1));

    QString text = plain;
    text += QString(ExtensionMessage::MaximumAvatarTextBytes - 1 - text.size(), QLatin1Char('\n'));
    text += QString::fromUtf8("\xf0\x9f\x98\x80"); // two characters: one over the bound
    LogCapture capture;
    EXPECT_TRUE(ExtensionMessage::initWithDictonary(QVariantMap{{"avatar", text}})->image().isNull());
    EXPECT_EQ(capture.lines(),
              QStringList{"ExtensionMessage avatar text of 1048577 characters is longer than 1048576"});
}

// A record read from a snapshot has its composing fields null; setting one leaves the others null.
TEST(ExtensionMessage, ComposingFieldsStayNullUntilSetOneByOne) {
    const auto m = ExtensionMessage::initWithDictonary(QVariantMap{{"subject", "s"}});
    const auto allNull = [&m] {
        return m->plainBody().isNull() && m->htmlBody().isNull() && !m->to() && !m->cc() && !m->bcc() &&
               m->toString().isNull() && m->ccString().isNull() && m->bccString().isNull() &&
               !m->attachments();
    };
    EXPECT_TRUE(allNull());
    m->setCcString(QStringLiteral("c@example.org;"));
    EXPECT_EQ(m->ccString(), QStringLiteral("c@example.org;"));
    EXPECT_TRUE(m->plainBody().isNull());
    EXPECT_FALSE(m->to());
    m->setCcString(QString());
    EXPECT_TRUE(allNull());
    EXPECT_FALSE(m->hasAvatar());
    EXPECT_TRUE(m->image().isNull());
}

// Threads appending to a record that has never composed (the first append makes the composing
// part, maybe in several threads at once) keep every piece.
TEST(ExtensionMessage, AppendsFromThreadsOnAFreshRecordAreSynchronized) {
    for (int round = 0; round < 20; ++round) {
        const auto m = ExtensionMessage::initWithDictonary(QVariantMap{{"subject", "s"}});
        constexpr int Threads = 4;
        constexpr int Appends = 200;
        std::atomic<int> ready{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < Threads; ++t) {
            threads.emplace_back([&m, &ready, t] {
                ready.fetch_add(1);
                while (ready.load() < Threads) {
                }
                for (int i = 0; i < Appends; ++i) {
                    m->appendHtmlBody(QString(QChar(u'a' + t)));
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        const QString body = m->htmlBody();
        ASSERT_EQ(body.size(), Threads * Appends);
        for (int t = 0; t < Threads; ++t) {
            EXPECT_EQ(body.count(QChar(u'a' + t)), Appends);
        }
    }
}

// The fields a snapshot fills share one lock: setters and getters of the same and of different
// fields, from several threads at once, each see a whole value (TSan runs this too).
TEST(ExtensionMessage, FieldsSharingALockFromThreadsAreSynchronized) {
    const auto m = ExtensionMessage::initWithDictonary(QVariantMap{{"subject", "s"}});
    const QStringList subjects{QString(300, QLatin1Char('a')), QString(5, QLatin1Char('b'))};
    std::atomic<bool> torn{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 2000; ++i) {
                m->setSubject(subjects[(i + t) % 2]);
                m->setFrom(QString::number(i));
                m->setUnread(QVariant::fromValue<qint64>(i % 2));
                const QString subject = m->subject();
                if (!subjects.contains(subject) || m->from().isEmpty() || !m->unread().isValid()) {
                    torn = true;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(torn.load());
    EXPECT_TRUE(subjects.contains(m->subject()));
}

TEST(ExtensionMessageSnapshotValues, TwoReadsOfOneRowHoldTheSameValues) {
    const auto a = ExtensionMessage::initWithDictonary(fullRow());
    const auto b = ExtensionMessage::initWithDictonary(fullRow());
    ASSERT_NE(a.get(), b.get());
    EXPECT_TRUE(a->hasSameSnapshotValues(*b));
    EXPECT_TRUE(b->hasSameSnapshotValues(*a));
    EXPECT_TRUE(a->hasSameSnapshotValues(*a));
}

TEST(ExtensionMessageSnapshotValues, AnyFieldThatDiffersMakesThemDifferent) {
    const auto base = ExtensionMessage::initWithDictonary(fullRow());
    for (const char* key : {"subject", "messageId", "from", "account", "folder"}) {
        QVariantMap row = fullRow();
        row.insert(key, QStringLiteral("other"));
        EXPECT_FALSE(base->hasSameSnapshotValues(*ExtensionMessage::initWithDictonary(row))) << key;
    }
    QVariantMap later = fullRow();
    later.insert("date", later.value("date").toLongLong() + 3600);
    EXPECT_FALSE(base->hasSameSnapshotValues(*ExtensionMessage::initWithDictonary(later)));
    QVariantMap read = fullRow();
    read.insert("isUnread", qint64(0));
    EXPECT_FALSE(base->hasSameSnapshotValues(*ExtensionMessage::initWithDictonary(read)));
}

TEST(ExtensionMessageSnapshotValues, NullAndEmptyTextsAndNumberTypesAreTold) {
    const auto a = ExtensionMessage::initWithDictonary(fullRow());
    const auto b = ExtensionMessage::initWithDictonary(fullRow());
    a->setFrom(QString());
    b->setFrom(QStringLiteral(""));
    EXPECT_FALSE(a->hasSameSnapshotValues(*b));
    b->setFrom(QString());
    ASSERT_TRUE(a->hasSameSnapshotValues(*b));
    a->setUnread(QVariant::fromValue<qint64>(1));
    b->setUnread(QVariant(true));
    EXPECT_FALSE(a->hasSameSnapshotValues(*b));
}

TEST(ExtensionMessageSnapshotValues, AnAvatarCountsOnlyWhileNeitherLookedAtIt) {
    QVariantMap row = fullRow();
    row.insert("avatar", QString::fromLatin1(avatarBase64()));
    const auto a = ExtensionMessage::initWithDictonary(row);
    const auto b = ExtensionMessage::initWithDictonary(row);
    EXPECT_TRUE(a->hasSameSnapshotValues(*b));
    EXPECT_FALSE(a->hasSameSnapshotValues(*ExtensionMessage::initWithDictonary(fullRow())));
    QVariantMap other = row;
    other.insert("avatar", QString::fromLatin1(QByteArray("other").toBase64()));
    EXPECT_FALSE(a->hasSameSnapshotValues(*ExtensionMessage::initWithDictonary(other)));
    ASSERT_FALSE(a->image().isNull());
    EXPECT_FALSE(a->hasSameSnapshotValues(*b));
    EXPECT_FALSE(b->hasSameSnapshotValues(*a));
}

TEST(ExtensionMessageSnapshotValues, AComposedRecordIsNeverTheSame) {
    const auto a = ExtensionMessage::initWithDictonary(fullRow());
    const auto b = ExtensionMessage::initWithDictonary(fullRow());
    b->setPlainBody(QStringLiteral("hello"));
    EXPECT_FALSE(a->hasSameSnapshotValues(*b));
    EXPECT_FALSE(b->hasSameSnapshotValues(*a));
}

TEST(ExtensionMessageSnapshotValues, TwoThreadsComparingTheOtherWayRoundWhileAFieldChangesBothFinish) {
    const auto a = ExtensionMessage::initWithDictonary(fullRow());
    const auto b = ExtensionMessage::initWithDictonary(fullRow());
    // a deadlock would keep the test from ending (the test's timeout fails it)
    std::thread forward([&] {
        for (int i = 0; i < 20000; ++i)
            (void)a->hasSameSnapshotValues(*b);
    });
    std::thread backward([&] {
        for (int i = 0; i < 20000; ++i)
            (void)b->hasSameSnapshotValues(*a);
    });
    std::thread writer([&] {
        for (int i = 0; i < 2000; ++i)
            b->setSubject(i % 2 == 0 ? QStringLiteral("other") : QStringLiteral("Lunch?"));
    });
    forward.join();
    backward.join();
    writer.join();
    // the writer ended on the first subject again
    EXPECT_TRUE(a->hasSameSnapshotValues(*b));
}
