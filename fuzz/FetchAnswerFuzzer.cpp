// Arbitrary bytes as a server's answer to the sync's FETCH, down the same path as on the network:
// libetpan's mailimap_fetch sends the sync's own attribute list and reads the answer from a stream
// whose bytes are the input (a memory driver of this file's own in place of the socket, under the
// session's guard), then every
// message goes through MessageHeaders::readMessage and AccountSync::messageDictionary, and the
// records are serialised as the snapshot writer serialises them. A record that XML 1.0 cannot hold
// stops the run: every reader of the shared folder must be able to parse what the bridge writes.
#include "bridge/imap/GuardedStream.h"
#include "bridge/imap/MessageHeaders.h"
#include "bridge/sync/AccountSync.h"
#include "model/SnapshotFormat.h"
#include "platform/PropertyList.h"

#include <QCoreApplication>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <libetpan/libetpan.h>

namespace {

// The server's side of the connection: the input, then the tagged end of the command, so that
// libetpan hands over what it parsed (without it every answer would end as a lost connection).
struct Feed {
    const uint8_t* data = nullptr;
    size_t size = 0;
    size_t at = 0;
    QByteArray sent; // what libetpan wrote: the command, whose tag the end must carry
    QByteArray end;
    size_t endAt = 0;
    bool ended = false;
};

Feed* feedOf(mailstream_low* s) {
    return static_cast<Feed*>(s->data);
}

ssize_t feedRead(mailstream_low* s, void* buffer, size_t count) {
    Feed* feed = feedOf(s);
    if (feed->at < feed->size) {
        const size_t n = std::min(count, feed->size - feed->at);
        std::memcpy(buffer, feed->data + feed->at, n);
        feed->at += n;
        return static_cast<ssize_t>(n);
    }
    if (!feed->ended) {
        const QByteArray tag = feed->sent.left(feed->sent.indexOf(' '));
        // on a line of its own: after the input's last line, or ending the line the input cut off
        const bool atLineStart = feed->size == 0 || feed->data[feed->size - 1] == '\n';
        feed->end =
            (atLineStart ? QByteArray() : QByteArrayLiteral("\r\n")) + tag + " OK FETCH completed\r\n";
        feed->ended = true;
    }
    // The connection is gone. Said as an error, not as a read of nothing: libetpan reads a literal
    // cut short by the end of the stream again and again for as long as it is told "0 bytes" (a
    // socket closed by the server inside a literal spins the same way; the session's stream must
    // turn that end into an error or a deadline).
    if (feed->endAt >= static_cast<size_t>(feed->end.size()))
        return -1;
    const size_t n = std::min(count, static_cast<size_t>(feed->end.size()) - feed->endAt);
    std::memcpy(buffer, feed->end.constData() + feed->endAt, n);
    feed->endAt += n;
    return static_cast<ssize_t>(n);
}

ssize_t feedWrite(mailstream_low* s, const void* buffer, size_t count) {
    feedOf(s)->sent.append(static_cast<const char*>(buffer), static_cast<qsizetype>(count));
    return static_cast<ssize_t>(count);
}

int feedClose(mailstream_low*) {
    return 0;
}

int feedFd(mailstream_low*) {
    return -1;
}

void feedFree(mailstream_low* s) {
    // the Feed lives on the caller's stack
    std::free(s);
}

mailstream_low_driver feedDriver = {
    feedRead, feedWrite, feedClose, feedFd, feedFree, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
};

// Where a record would go: every byte XML 1.0 allows, and text that is UTF-8.
bool fitForXml(const QByteArray& bytes) {
    const QString text = QString::fromUtf8(bytes);
    return text.toUtf8() == bytes && corvina::MessageHeaders::isXmlSafe(text);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    static QCoreApplication app(*argc, *argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Feed feed;
    feed.data = data;
    feed.size = size;
    mailstream_low* feedLow = mailstream_low_new(&feed, &feedDriver);
    if (feedLow == nullptr)
        return 0;
    // Under the guard the session puts on every connection, with the byte and answer budget of the
    // sync's FETCH of 50 messages: what the guard refuses never reaches libetpan on the network
    // either (a literal announced as four gigabytes, which libetpan would reserve at once).
    mailstream_low* low = corvina::GuardedStream::wrap(feedLow);
    if (low == nullptr) {
        mailstream_low_free(feedLow);
        return 0;
    }
    corvina::GuardedStream::of(low)->arm(
        QDeadlineTimer(QDeadlineTimer::Forever),
        {corvina::ImapSession::AnswerBytes + corvina::ImapSession::EnvelopeBytes * 50,
         corvina::ImapSession::AnswerCount + 50});
    mailstream* stream = mailstream_new(low, 8192);
    mailimap* imap = mailimap_new(0, nullptr);
    if (stream == nullptr || imap == nullptr) {
        if (stream != nullptr)
            mailstream_close(stream);
        else
            mailstream_low_free(low);
        if (imap != nullptr)
            mailimap_free(imap);
        return 0;
    }
    // A folder is open, as when the sync fetches.
    imap->imap_stream = stream;
    imap->imap_state = MAILIMAP_STATE_SELECTED;
    imap->imap_selection_info = mailimap_selection_info_new();

    mailimap_fetch_type* type = corvina::MessageHeaders::fetchType();
    mailimap_set* set = mailimap_set_new_interval(1, 50);
    clist* list = nullptr;
    const int result = mailimap_fetch(imap, set, type, &list);
    mailimap_fetch_type_free(type);
    mailimap_set_free(set);

    if (result == MAILIMAP_NO_ERROR && list != nullptr) {
        const corvina::ImapSession::Folder folder{QStringLiteral("INBOX"), 1700000000, 100, 50};
        QVariantList messages;
        for (clistiter* it = clist_begin(list); it != nullptr; it = clist_next(it)) {
            const auto* att = static_cast<const mailimap_msg_att*>(clist_content(it));
            corvina::ImapSession::Envelope envelope;
            if (att == nullptr || !corvina::MessageHeaders::readMessage(att, envelope))
                continue;
            const QVariantMap record =
                corvina::AccountSync::messageDictionary(envelope, QStringLiteral("ada@example.org"), folder,
                                                        corvina::SnapshotFormat::ListKind::Inbox);
            // The record as the widget gets it, before any serialiser could hide a bad character
            // behind a character reference.
            for (const QVariant& value : record) {
                if (value.typeId() == QMetaType::QString &&
                    !corvina::MessageHeaders::isXmlSafe(value.toString()))
                    std::abort();
            }
            messages.append(record);
        }
        const QVariantMap snapshot{{QStringLiteral("folder"), folder.name},
                                   {QStringLiteral("account"), QStringLiteral("ada@example.org")},
                                   {QStringLiteral("data"), messages}};
        const QByteArray xml = corvina::PropertyList::write(snapshot, corvina::PropertyList::Format::Xml);
        if (xml.isNull() || !fitForXml(xml))
            std::abort();
    }
    if (list != nullptr)
        mailimap_fetch_list_free(list);
    mailimap_free(imap);
    return 0;
}
