// The guard's reading of literals, on a stream of chunks held in memory: where an announced literal
// is too large for the answer, and that a literal's content is passed over, not read for
// announcements of its own.
#include "bridge/imap/GuardedStream.h"

#include <QByteArrayList>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <libetpan/libetpan.h>

namespace corvina::test {
namespace {

// The server's side: one chunk per read, as a socket may hand them over.
struct Chunks {
    QByteArrayList chunks;
    qsizetype next = 0;
};

ssize_t chunkRead(mailstream_low* s, void* buffer, size_t count) {
    auto* feed = static_cast<Chunks*>(s->data);
    if (feed->next >= feed->chunks.size())
        return 0;
    const QByteArray& chunk = feed->chunks.at(feed->next++);
    if (static_cast<size_t>(chunk.size()) > count) {
        ADD_FAILURE() << "a chunk larger than the read";
        return -1;
    }
    std::memcpy(buffer, chunk.constData(), static_cast<size_t>(chunk.size()));
    return static_cast<ssize_t>(chunk.size());
}
ssize_t chunkWrite(mailstream_low*, const void*, size_t count) {
    return static_cast<ssize_t>(count);
}
int chunkClose(mailstream_low*) {
    return 0;
}
int chunkFd(mailstream_low*) {
    return -1;
}
void chunkFree(mailstream_low* s) {
    std::free(s);
}
mailstream_low_driver chunkDriver = {
    chunkRead, chunkWrite, chunkClose, chunkFd, chunkFree, nullptr,
    nullptr,   nullptr,    nullptr,    nullptr, nullptr,
};

// Reads every chunk through the guard with a byte budget of `bytes`; how many reads got through.
int readThrough(const QByteArrayList& chunks, qint64 bytes, GuardedStream::Stop* stop) {
    Chunks feed{chunks};
    mailstream_low* guarded = GuardedStream::wrap(mailstream_low_new(&feed, &chunkDriver));
    GuardedStream* guard = GuardedStream::of(guarded);
    guard->arm(QDeadlineTimer(QDeadlineTimer::Forever), {bytes, 0});
    int passed = 0;
    char buffer[4096];
    for (qsizetype i = 0; i < chunks.size(); ++i) {
        if (mailstream_low_read(guarded, buffer, sizeof buffer) <= 0)
            break;
        ++passed;
    }
    *stop = guard->stop();
    mailstream_low_free(guarded);
    return passed;
}

TEST(GuardedStreamTest, ALiteralTooLargeForTheBudgetStopsTheReadThatCompletesItsAnnouncement) {
    GuardedStream::Stop stop = GuardedStream::Stop::None;
    // announced across three reads: the third, which ends the line, is not handed on
    EXPECT_EQ(readThrough({"* 1 FETCH (BODY[] {50", "00}\r", "\nabc"}, 1000, &stop), 2);
    EXPECT_EQ(stop, GuardedStream::Stop::TooManyBytes);
    // a thousand digits are no overflow
    EXPECT_EQ(readThrough({"* 1 FETCH (BODY[] {" + QByteArray(1000, '9') + "}\r\n"}, 100000, &stop), 0);
    EXPECT_EQ(stop, GuardedStream::Stop::TooManyBytes);
}

TEST(GuardedStreamTest, ALiteralThatFitsIsReadWhole) {
    GuardedStream::Stop stop = GuardedStream::Stop::None;
    const QByteArray line = "* 1 FETCH (BODY[] {10}\r\n";
    // exactly what the budget allows: the line, ten bytes of content, and the end of the answer
    EXPECT_EQ(readThrough({line, "0123456789", ")\r\n"}, line.size() + 13, &stop), 3);
    EXPECT_EQ(stop, GuardedStream::Stop::None);
}

TEST(GuardedStreamTest, AnAnnouncementInsideALiteralsContentIsContent) {
    GuardedStream::Stop stop = GuardedStream::Stop::None;
    // 14 bytes of content that look like an announcement of a huge literal, across two reads
    EXPECT_EQ(
        readThrough({"* 1 FETCH (BODY[] {14}\r\nx{999", "99999}\r\ny)\r\n", "a1 OK done\r\n"}, 1000, &stop),
        3);
    EXPECT_EQ(stop, GuardedStream::Stop::None);
    // after the content, announcements are read again
    EXPECT_EQ(readThrough({"* 1 FETCH (BODY[] {1}\r\nx BODY[1] {99999}\r\n"}, 1000, &stop), 0);
    EXPECT_EQ(stop, GuardedStream::Stop::TooManyBytes);
}

} // namespace
} // namespace corvina::test
