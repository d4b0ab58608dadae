#include "platform/AttributedString.h"
#include "platform/ExtensionContext.h"
#include "platform/ItemProvider.h"
#include "shared/ExtensionUtilities.h"
#include "support/LogCapture.h"
#include "support/TempContainer.h"

#include <QBuffer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <QThread>
#include <chrono>
#include <future>
#include <gtest/gtest.h>

using namespace corvina;
using namespace std::chrono_literals;
using corvina::test::LogCapture;
using corvina::test::TempContainer;

namespace {

// What one GetItemForExtension call handed to its completion, and how long it took.
struct Outcome {
    ExtensionMessagePtr message;
    QVariant extra;
    qint64 milliseconds = 0;
    bool onCallingThread = true;
    int calls = 0;
};

Outcome run(const ExtensionContextPtr& context, const QString& service = QStringLiteral("Share")) {
    struct Shared {
        std::promise<void> done;
        std::atomic<int> calls{0};
        ExtensionMessagePtr message;
        QVariant extra;
        QThread* thread = nullptr;
    };
    auto shared = std::make_shared<Shared>();
    QElapsedTimer timer;
    timer.start();
    ExtensionUtilities::GetItemForExtension(
        context, service, [shared](const ExtensionMessagePtr& message, const QVariant& extra) {
            shared->message = message;
            shared->extra = extra;
            shared->thread = QThread::currentThread();
            if (shared->calls.fetch_add(1) == 0)
                shared->done.set_value();
        });
    Outcome outcome;
    // GetItemForExtension returns at once; the completion comes from the worker
    if (shared->done.get_future().wait_for(20s) != std::future_status::ready) {
        ADD_FAILURE() << "no completion within 20 s";
        return outcome;
    }
    outcome.milliseconds = timer.elapsed();
    QThread::msleep(50); // a second call, were there one, would come right after the first
    outcome.message = shared->message;
    outcome.extra = shared->extra;
    outcome.onCallingThread = shared->thread == QThread::currentThread();
    outcome.calls = shared->calls.load();
    return outcome;
}

ExtensionItemPtr item(std::optional<AttributedString> text = std::nullopt,
                      std::optional<AttributedString> title = std::nullopt,
                      QList<ItemProviderPtr> attachments = {}) {
    auto made = std::make_shared<ExtensionItem>();
    made->attributedContentText = std::move(text);
    made->attributedTitle = std::move(title);
    made->attachments = std::move(attachments);
    return made;
}

ExtensionContextPtr context(QList<ExtensionItemPtr> items) {
    auto made = std::make_shared<ExtensionContext>();
    made->inputItems = std::move(items);
    return made;
}

QByteArray pngOf(const QImage& image) {
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return png;
}

QImage square(QColor colour, int side = 6) {
    QImage image(side, side, QImage::Format_ARGB32);
    image.fill(colour);
    return image;
}

// A provider whose load answers with an error.
ItemProviderPtr failing(const QString& type, const QString& error) {
    auto provider = std::make_shared<ItemProvider>();
    provider->registerItemForTypeIdentifier(
        type, [error](const ItemProvider::CompletionHandler& completion) { completion(QVariant(), error); });
    return provider;
}

QStringList attachmentPaths(const ExtensionMessagePtr& message) {
    QStringList paths;
    for (const QVariant& value : *message->attachments())
        paths << value.toString();
    return paths;
}

class Intake : public ::testing::Test {
protected:
    void SetUp() override {
        ExtensionUtilities::ShareInit(QStringLiteral("Share"));
        log.clear();
    }
    QString staging() const { return container.data() + QStringLiteral("/Share"); }
    TempContainer container;
    LogCapture log;
};

} // namespace

TEST_F(Intake, AShortTextAloneCompletesAfterOnePause) {
    const AttributedString text =
        AttributedString::fromPlainText(QStringLiteral("See you at 5 & bring <cake>"));
    const Outcome outcome = run(context({item(text)}));
    ASSERT_TRUE(outcome.message);
    EXPECT_EQ(outcome.message->htmlBody(), QString::fromUtf8(text.htmlData()) + QStringLiteral("<br/>"));
    EXPECT_TRUE(outcome.message->htmlBody().startsWith(QStringLiteral("<!DOCTYPE HTML")));
    EXPECT_TRUE(
        outcome.message->htmlBody().contains(QStringLiteral("See you at 5 &amp; bring &lt;cake&gt;")));
    EXPECT_GE(outcome.milliseconds, 100); // the one pause is always made
    EXPECT_LT(outcome.milliseconds, 2000);
    EXPECT_EQ(outcome.calls, 1);
    EXPECT_FALSE(outcome.onCallingThread);
    EXPECT_FALSE(outcome.extra.isValid()); // the second argument is always empty
    EXPECT_TRUE(outcome.message->attachments()->isEmpty());
    EXPECT_TRUE(outcome.message->subject().isNull());
}

TEST_F(Intake, NothingToShareStillWaitsOnePauseAndGivesAnEmptyDraft) {
    const Outcome outcome = run(context({}));
    ASSERT_TRUE(outcome.message);
    EXPECT_GE(outcome.milliseconds, 100);
    EXPECT_EQ(outcome.message->htmlBody(), QString(""));
    EXPECT_FALSE(outcome.message->htmlBody().isNull());
    EXPECT_EQ(outcome.calls, 1);
}

TEST_F(Intake, EmptyTextsAddNothingAndRichTextKeepsItsFormatting) {
    const Outcome outcome =
        run(context({item(AttributedString::fromPlainText(QString(""))),
                     item(AttributedString::fromHtml(QStringLiteral("<b>bold</b> move")))}));
    const QString body = outcome.message->htmlBody();
    EXPECT_EQ(body.count(QStringLiteral("<br/>")), 1);
    EXPECT_TRUE(body.contains(QStringLiteral("font-weight")) || body.contains(QStringLiteral("<b>")))
        << body.toStdString();
    EXPECT_TRUE(body.contains(QStringLiteral("bold")));
}

TEST_F(Intake, TextsOfSeveralItemsInItemOrder) {
    const Outcome outcome = run(context({item(AttributedString::fromPlainText(QStringLiteral("first"))),
                                         item(AttributedString::fromPlainText(QStringLiteral("second")))}));
    const QString body = outcome.message->htmlBody();
    EXPECT_EQ(body.count(QStringLiteral("<br/>")), 2);
    EXPECT_LT(body.indexOf(QStringLiteral("first")), body.indexOf(QStringLiteral("second")));
    EXPECT_TRUE(body.endsWith(QStringLiteral("</html><br/>")));
}

TEST_F(Intake, AWebLinkBecomesAnAnchorAndItsItemsTitleTheSubject) {
    const QUrl link(QStringLiteral("https://example.com/news?id=1&lang=de"));
    const Outcome outcome =
        run(context({item(AttributedString::fromPlainText(QStringLiteral("look"))),
                     item(std::nullopt, AttributedString::fromHtml(QStringLiteral("<i>Big</i> news")),
                          {ItemProvider::initWithItem(link, kUTTypeURL)})}));
    EXPECT_TRUE(outcome.message->htmlBody().endsWith(QStringLiteral(
        "<a href=\"https://example.com/news?id=1&lang=de\">https://example.com/news?id=1&lang=de</a>")))
        << outcome.message->htmlBody().toStdString();
    EXPECT_EQ(outcome.message->subject(), QStringLiteral("Big news"));
    EXPECT_TRUE(outcome.message->attachments()->isEmpty());
    EXPECT_LT(outcome.milliseconds, 2000);
    EXPECT_TRUE(log.lines().isEmpty()) << log.lines().join('\n').toStdString();
}

TEST_F(Intake, AWebLinkOfAnItemWithoutTitleLeavesTheSubjectAbsent) {
    const Outcome outcome = run(
        context({item(std::nullopt, std::nullopt,
                      {ItemProvider::initWithItem(QUrl(QStringLiteral("http://a.example/")), kUTTypeURL)})}));
    EXPECT_TRUE(outcome.message->subject().isNull());
    EXPECT_EQ(outcome.message->htmlBody(),
              QStringLiteral("<a href=\"http://a.example/\">http://a.example/</a>"));
}

TEST_F(Intake, TwoImagesAreStagedAsImageAndImage1) {
    const QImage red = square(Qt::red);
    const QImage blue = square(Qt::blue, 9);
    const Outcome outcome = run(context({item(std::nullopt, std::nullopt,
                                              {ItemProvider::initWithItem(pngOf(red), kUTTypePNG),
                                               ItemProvider::initWithItem(blue, kUTTypeImage)})}));
    QStringList paths = attachmentPaths(outcome.message);
    paths.sort(); // in completion order, which two loads on two threads do not fix
    EXPECT_EQ(paths, QStringList({staging() + "/image.png", staging() + "/image_1.png"}));
    QList<QSize> sizes;
    for (const QString& path : paths) {
        QImage staged(path, "PNG"); // re-encoded as PNG whatever came in
        ASSERT_FALSE(staged.isNull()) << path.toStdString();
        sizes << staged.size();
    }
    EXPECT_TRUE(sizes.contains(QSize(6, 6)) && sizes.contains(QSize(9, 9)));
    EXPECT_LT(outcome.milliseconds, 2000);
}

TEST_F(Intake, AJpegIsReencodedAsPng) {
    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    buffer.open(QIODevice::WriteOnly);
    ASSERT_TRUE(square(Qt::green, 16).save(&buffer, "JPEG"));
    const Outcome outcome =
        run(context({item(std::nullopt, std::nullopt, {ItemProvider::initWithItem(jpeg, kUTTypeJPEG)})}));
    ASSERT_EQ(attachmentPaths(outcome.message), QStringList(staging() + "/image.png"));
    QFile staged(staging() + "/image.png");
    ASSERT_TRUE(staged.open(QIODevice::ReadOnly));
    EXPECT_TRUE(staged.read(8) == QByteArray("\x89PNG\r\n\x1a\n"));
}

TEST_F(Intake, AFileIsCopiedUnderItsOwnName) {
    QTemporaryDir sources;
    const QString path = sources.filePath("minutes.odt");
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("minutes of the meeting");
    }
    const Outcome outcome =
        run(context({item(std::nullopt, AttributedString::fromPlainText(QStringLiteral("ignored for files")),
                          {ItemProvider::initWithItem(QUrl::fromLocalFile(path), kUTTypeFileURL)})}));
    EXPECT_EQ(attachmentPaths(outcome.message), QStringList(staging() + "/minutes.odt"));
    QFile staged(staging() + "/minutes.odt");
    ASSERT_TRUE(staged.open(QIODevice::ReadOnly));
    EXPECT_EQ(staged.readAll(), QByteArray("minutes of the meeting"));
    EXPECT_TRUE(outcome.message->subject().isNull()); // only web links set it
    EXPECT_EQ(outcome.message->htmlBody(), QString(""));
}

TEST_F(Intake, AFileThatCannotBeStagedAddsNothing) {
    const QString missing = QStringLiteral("/nonexistent/corvina/file.txt");
    const Outcome outcome =
        run(context({item(std::nullopt, std::nullopt,
                          {ItemProvider::initWithItem(QUrl::fromLocalFile(missing), kUTTypeFileURL)})}));
    EXPECT_TRUE(outcome.message->attachments()->isEmpty());
    EXPECT_EQ(log.lines(),
              QStringList(QStringLiteral("[***ERROR***] Error writing file shareFiles cannot read %1: "
                                         "No such file or directory")
                              .arg(missing)));
    EXPECT_LT(outcome.milliseconds, 2000); // handled, so no long wait
}

TEST_F(Intake, DataThatIsNoImageIsLoggedByTheStagingAndAddsNothing) {
    const Outcome outcome =
        run(context({item(std::nullopt, std::nullopt,
                          {ItemProvider::initWithItem(QByteArray("not an image at all"), kUTTypePNG)})}));
    EXPECT_TRUE(outcome.message->attachments()->isEmpty());
    EXPECT_EQ(log.lines(), QStringList(QStringLiteral(
                               "[***ERROR***] Exception shareDatas not data: a value of type null")));
    EXPECT_TRUE(QDir(staging()).isEmpty());
}

TEST_F(Intake, LoadErrorsAreLoggedAndCountedAsDone) {
    const Outcome outcome = run(context(
        {item(AttributedString::fromPlainText(QStringLiteral("text")), std::nullopt,
              {failing(kUTTypeURL, QStringLiteral("the link went away")),
               failing(kUTTypePNG, QStringLiteral("the picture went away")),
               ItemProvider::initWithItem(QUrl(QStringLiteral("https://kept.example/")), kUTTypeURL)})}));
    EXPECT_EQ(log.count(QStringLiteral("[***ERROR***] GetItemForExtension kUTTypeURL the link went away")),
              1);
    EXPECT_EQ(
        log.count(QStringLiteral("[***ERROR***] GetItemForExtension kUTTypeImage the picture went away")), 1);
    EXPECT_EQ(log.lines().size(), 2);
    EXPECT_TRUE(outcome.message->htmlBody().contains(QStringLiteral("<a href=\"https://kept.example/\">")));
    EXPECT_LT(outcome.milliseconds, 2000); // no wait beyond the others
}

TEST_F(Intake, ALinkLoadThatIsNoUrlIsLoggedAndCounted) {
    const Outcome outcome = run(context({item(
        std::nullopt, std::nullopt, {ItemProvider::initWithItem(QStringLiteral("just text"), kUTTypeURL)})}));
    EXPECT_EQ(log.lines(), QStringList(QStringLiteral(
                               "[***ERROR***] GetItemForExtension kUTTypeURL the item loaded is not a URL")));
    EXPECT_EQ(outcome.message->htmlBody(), QString(""));
    EXPECT_LT(outcome.milliseconds, 2000);
}

TEST_F(Intake, LinksAndTextsFromManyItemsAreAllKept) {
    QList<ExtensionItemPtr> items;
    for (int i = 0; i < 20; ++i) {
        items << item(
            AttributedString::fromPlainText(QStringLiteral("text-%1-end").arg(i)),
            AttributedString::fromPlainText(QStringLiteral("title %1").arg(i)),
            {ItemProvider::initWithItem(QUrl(QStringLiteral("https://example.com/%1").arg(i)), kUTTypeURL)});
    }
    const Outcome outcome = run(context(items));
    const QString body = outcome.message->htmlBody();
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(body.count(QStringLiteral("text-%1-end").arg(i)), 1) << i;
        EXPECT_EQ(body.count(QStringLiteral("<a href=\"https://example.com/%1\">").arg(i)), 1) << i;
    }
    EXPECT_TRUE(outcome.message->subject().startsWith(QStringLiteral("title ")));
}

TEST_F(Intake, ManyHandlersAppendingAtOnceLoseNoAttachment) {
    // Files and images of one request finish on several threads at the same moment; each append is
    // made under the message's lock, so every staged path arrives exactly once.
    QTemporaryDir sources;
    QList<ItemProviderPtr> attachments;
    for (int i = 0; i < 12; ++i) {
        const QString path = sources.filePath(QStringLiteral("file-%1.txt").arg(i));
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QByteArray::number(i));
        attachments << ItemProvider::initWithItem(QUrl::fromLocalFile(path), kUTTypeFileURL);
        attachments << ItemProvider::initWithItem(square(QColor(i * 20, 0, 0)), kUTTypeImage);
    }
    const Outcome outcome = run(context({item(std::nullopt, std::nullopt, attachments)}));
    QStringList paths = attachmentPaths(outcome.message);
    EXPECT_EQ(paths.size(), 24);
    paths.removeDuplicates();
    EXPECT_EQ(paths.size(), 24);
    EXPECT_EQ(QDir(staging()).entryList(QDir::Files).size(), 24);
    EXPECT_EQ(QDir(staging()).entryList({QStringLiteral("image*.png")}, QDir::Files).size(), 12);
    EXPECT_TRUE(log.lines().isEmpty()) << log.lines().join('\n').toStdString();
}

TEST_F(Intake, AnAttachmentOfAnotherTypeDelaysTheCompletionToTheFullWait) {
    // Neither a link nor an image: counted but never handled, so the worker polls its 101 times.
    // Deliberate: the mail application's share extensions rely on this upper bound as it stands.
    const Outcome outcome = run(context(
        {item(AttributedString::fromPlainText(QStringLiteral("body")), std::nullopt,
              {ItemProvider::initWithItem(QStringLiteral("plain words"), kUTTypePlainText),
               ItemProvider::initWithItem(QUrl(QStringLiteral("https://still.example/")), kUTTypeURL)})}));
    EXPECT_GE(outcome.milliseconds, 10100);
    EXPECT_LT(outcome.milliseconds, 15000);
    EXPECT_EQ(outcome.calls, 1);
    EXPECT_TRUE(outcome.message->htmlBody().contains(QStringLiteral("https://still.example/")));
}

TEST_F(Intake, ALoadThatNeverAnswersEndsTheWaitAtItsLimitAndMayChangeTheDraftLater) {
    // Whatever a slow provider delivers after the wait still lands in the message handed over.
    auto late = std::make_shared<ItemProvider>();
    auto release = std::make_shared<std::promise<void>>();
    std::shared_future<void> released = release->get_future().share();
    late->registerItemForTypeIdentifier(
        kUTTypeURL, [released](const ItemProvider::CompletionHandler& completion) {
            released.wait();
            completion(QUrl(QStringLiteral("https://late.example/")), QString());
        });
    const Outcome outcome = run(context({item(std::nullopt, std::nullopt, {late})}));
    EXPECT_GE(outcome.milliseconds, 10100);
    EXPECT_EQ(outcome.message->htmlBody(), QString(""));
    release->set_value();
    for (int i = 0; i < 200 && outcome.message->htmlBody().isEmpty(); ++i)
        QThread::msleep(10);
    EXPECT_EQ(outcome.message->htmlBody(),
              QStringLiteral("<a href=\"https://late.example/\">https://late.example/</a>"));
}
