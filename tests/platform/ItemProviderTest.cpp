#include "platform/ItemProvider.h"

#include "platform/AttributedString.h"
#include "platform/Synchronized.h"

#include <QThread>
#include <QUrl>
#include <atomic>
#include <chrono>
#include <future>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace corvina;
using namespace std::chrono_literals;

namespace {

struct Loaded {
    QVariant item;
    QString error;
    bool onCallingThread = true;
};

Loaded load(const ItemProvider& provider, const QString& type) {
    std::promise<Loaded> answer;
    std::future<Loaded> future = answer.get_future();
    QThread* caller = QThread::currentThread();
    provider.loadItemForTypeIdentifier(
        type, {}, [&answer, caller](const QVariant& item, const QString& error) {
            answer.set_value({item, error, QThread::currentThread() == caller});
        });
    if (future.wait_for(5s) != std::future_status::ready) {
        ADD_FAILURE() << "no answer";
        return {};
    }
    return future.get();
}

} // namespace

TEST(ItemProvider, TypesConformToThemselvesAndTheirParents) {
    EXPECT_TRUE(ItemProvider::typeConformsTo(kUTTypeFileURL, kUTTypeURL));
    EXPECT_TRUE(ItemProvider::typeConformsTo(kUTTypeURL, kUTTypeURL));
    EXPECT_TRUE(ItemProvider::typeConformsTo(kUTTypePNG, kUTTypeImage));
    EXPECT_TRUE(ItemProvider::typeConformsTo(kUTTypeJPEG, kUTTypeImage));
    EXPECT_TRUE(ItemProvider::typeConformsTo(kUTTypePlainText, kUTTypeText));
    EXPECT_TRUE(ItemProvider::typeConformsTo(QStringLiteral("com.example.custom"), kUTTypeItem));
    EXPECT_FALSE(ItemProvider::typeConformsTo(kUTTypeURL, kUTTypeFileURL));
    EXPECT_FALSE(ItemProvider::typeConformsTo(kUTTypePlainText, kUTTypeURL));
    EXPECT_FALSE(ItemProvider::typeConformsTo(kUTTypePlainText, kUTTypeImage));
    EXPECT_FALSE(ItemProvider::typeConformsTo(kUTTypeImage, kUTTypePNG));
}

TEST(ItemProvider, AnswersTheItemOnAnotherThread) {
    const auto provider =
        ItemProvider::initWithItem(QUrl(QStringLiteral("https://example.com/")), kUTTypeURL);
    EXPECT_TRUE(provider->hasItemConformingToTypeIdentifier(kUTTypeURL));
    EXPECT_FALSE(provider->hasItemConformingToTypeIdentifier(kUTTypeImage));
    const Loaded loaded = load(*provider, kUTTypeURL);
    EXPECT_EQ(loaded.item.toUrl(), QUrl(QStringLiteral("https://example.com/")));
    EXPECT_TRUE(loaded.error.isNull());
    EXPECT_FALSE(loaded.onCallingThread);
}

TEST(ItemProvider, LoadingATypeItDoesNotHaveAnswersAnError) {
    const auto provider = ItemProvider::initWithItem(QStringLiteral("text"), kUTTypePlainText);
    const Loaded loaded = load(*provider, kUTTypeImage);
    EXPECT_FALSE(loaded.item.isValid());
    EXPECT_EQ(loaded.error, QStringLiteral("no item of type public.image"));
}

TEST(ItemProvider, TheHandlerIsCalledOnceEvenIfTheLoaderAnswersTwice) {
    ItemProvider provider;
    provider.registerItemForTypeIdentifier(kUTTypePNG, [](const ItemProvider::CompletionHandler& completion) {
        completion(QByteArray("first"), QString());
        completion(QByteArray("second"), QString());
    });
    std::atomic<int> calls{0};
    std::promise<QVariant> first;
    provider.loadItemForTypeIdentifier(kUTTypeImage, {}, [&](const QVariant& item, const QString&) {
        if (calls.fetch_add(1) == 0)
            first.set_value(item);
    });
    auto future = first.get_future();
    ASSERT_EQ(future.wait_for(5s), std::future_status::ready);
    EXPECT_EQ(future.get().toByteArray(), QByteArray("first"));
    QThread::msleep(50);
    EXPECT_EQ(calls.load(), 1);
    EXPECT_EQ(provider.registeredTypeIdentifiers(), QStringList(kUTTypePNG));
}

TEST(AttributedString, PlainAndRichTexts) {
    const AttributedString plain = AttributedString::fromPlainText(QStringLiteral("a < b & c"));
    EXPECT_EQ(plain.string(), QStringLiteral("a < b & c"));
    EXPECT_FALSE(plain.isRichText());
    const QString html = QString::fromUtf8(plain.htmlData());
    EXPECT_TRUE(html.startsWith(QStringLiteral("<!DOCTYPE HTML"))) << html.toStdString();
    EXPECT_TRUE(html.contains(QStringLiteral("a &lt; b &amp; c")));

    const AttributedString rich =
        AttributedString::fromHtml(QStringLiteral("<p>Gr\u00fc\u00dfe <b>bold</b></p>"));
    EXPECT_EQ(rich.string(), QStringLiteral("Gr\u00fc\u00dfe bold"));
    EXPECT_TRUE(rich.isRichText());
    EXPECT_TRUE(QString::fromUtf8(rich.htmlData()).contains(QStringLiteral("Gr\u00fc\u00dfe")));
    EXPECT_TRUE(QString::fromUtf8(rich.htmlData()).contains(QStringLiteral("font-weight")));
}

TEST(Synchronized, ExcludesOtherThreadsOnTheSameObjectAndIsReentrant) {
    int object = 0;
    long counter = 0; // changed only under the object's lock
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                Synchronized outer(&object);
                Synchronized inner(&object); // taken again by the thread that holds it
                ++counter;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(counter, 80000);
}
