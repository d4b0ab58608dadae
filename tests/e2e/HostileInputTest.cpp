// The corvina-today executable on hostile shared folders, as a user's session would run it: each
// case writes one reproducer next to an ordinary snapshot and lists everything. Whatever the
// reproducer, the program must end on its own within the time guard, stay within the memory
// budget, say what it refused, still list the ordinary snapshot, and leave every file as it was.
//
// To add a reproducer: a TEST that fills a HostileContainer and calls expectRefused (a file the
// reader logs and skips) or expectSurvived (anything else), then whatever else it needs to check.
#include "shared/ConstVars.h"
#include "support/BinaryPlistBuilder.h"
#include "support/ProgramRunner.h"
#include "support/TempContainer.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <map>
#include <sys/stat.h>
#include <zlib.h>

using namespace corvina;
using corvina::test::BinaryPlistBuilder;
using corvina::test::ProgramRunner;
using corvina::test::TempContainer;

namespace {

// The snapshot folder, within the shared data folder.
const QString kToday = ConstVars::todayFolder;

using namespace std::chrono_literals;

const QString Ada = QStringLiteral("ada@example.org");
// Each case is expected to end in well under 2 s; the guard is only there to fail a hang.
constexpr auto HangGuard = 30s;
constexpr qint64 MemoryBudgetKiB = 200 * 1024;

// A container with one enabled account holding one ordinary snapshot (message "kept"), and the
// hostile files a test adds, whose content is remembered to check that nothing touched them.
class HostileContainer {
public:
    HostileContainer() {
        m_container.writeAccounts({TempContainer::account(Ada)});
        m_container.writeSnapshot(Ada, QStringLiteral("ordinary.plist"),
                                  {TempContainer::message(QStringLiteral("kept"), Ada, 1700000000)},
                                  PropertyList::Format::Binary);
    }

    QString data() const { return m_container.data(); }

    void write(const QString& relative, const QByteArray& bytes) {
        m_container.writeBytes(relative, bytes);
        m_written[relative] = QCryptographicHash::hash(bytes, QCryptographicHash::Sha256);
    }

    // corvina-today --list --all --json on this container, under the hang guard.
    ProgramRunner::Outcome listAll() const {
        return ProgramRunner::run(QStringLiteral(CORVINA_TODAY_BINARY),
                                  {"--list", "--all", "--json", "--container", m_container.root()},
                                  HangGuard);
    }

    void expectFilesUntouched() const {
        for (const auto& [relative, digest] : m_written) {
            QFile file(m_container.data() + QLatin1Char('/') + relative);
            ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << relative.toStdString();
            QCryptographicHash hash(QCryptographicHash::Sha256);
            ASSERT_TRUE(hash.addData(&file));
            EXPECT_EQ(hash.result(), digest) << relative.toStdString() << " changed";
        }
        EXPECT_TRUE(QFile::exists(m_container.data() + "/" + kToday + "/" + Ada + "/ordinary.plist"));
    }

private:
    TempContainer m_container;
    std::map<QString, QByteArray> m_written;
};

// The messageId of each row listed, comma-separated.
std::string listedIds(const ProgramRunner::Outcome& run) {
    QStringList ids;
    for (const QJsonValue& row : QJsonDocument::fromJson(run.out).array()) {
        ids << row.toObject().value("messageId").toString();
    }
    return ids.join(',').toStdString();
}

// The program ended by itself, with status 0, in time and within the memory budget.
void expectSurvived(const ProgramRunner::Outcome& run) {
    ASSERT_TRUE(run.started);
    EXPECT_FALSE(run.timedOut) << "still running after " << HangGuard.count() << " s";
    EXPECT_EQ(run.signal, 0) << "killed by signal " << run.signal << "\n" << run.err.toStdString();
    EXPECT_TRUE(run.exitedWith(0)) << "exit status " << run.exitCode << "\n" << run.err.toStdString();
    if (ProgramRunner::memoryIsMeaningful()) {
        EXPECT_GT(run.peakRssKiB, 0) << "no memory figure";
        EXPECT_LT(run.peakRssKiB, MemoryBudgetKiB) << "peak resident set " << run.peakRssKiB / 1024 << " MiB";
    }
    EXPECT_TRUE(QJsonDocument::fromJson(run.out).isArray()) << run.out.left(200).toStdString();
}

// As expectSurvived, and the reader's refusal of one file logged with its reason, the ordinary
// snapshot listed all the same.
void expectRefused(const ProgramRunner::Outcome& run, const QString& reason) {
    expectSurvived(run);
    EXPECT_TRUE(run.err.contains(("updateData error deserialize " + reason).toUtf8()))
        << run.err.toStdString();
    EXPECT_EQ(listedIds(run), "kept");
}

// A snapshot envelope around `data` (an object of `builder`), as the top object.
QByteArray envelope(BinaryPlistBuilder& builder, quint64 data) {
    const quint64 top = builder.dictionary({{builder.text("folder"), builder.text("INBOX")},
                                            {builder.text("account"), builder.text(Ada.toUtf8())},
                                            {builder.text("data"), data}});
    return builder.finish(top);
}

QByteArray xmlSnapshotOf(const QByteArray& elements) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict><key>folder</key>"
           "<string>INBOX</string><key>account</key><string>" +
           Ada.toUtf8() + "</string><key>data</key><array>" + elements + "</array></dict></plist>\n";
}

} // namespace

TEST(HostileInput, BinarySnapshotOf200000Messages) {
    BinaryPlistBuilder b;
    const quint64 messageId = b.text("messageId"), account = b.text("account"), subject = b.text("subject"),
                  from = b.text("from"), date = b.text("date"), stid = b.text("folderStid");
    const quint64 ada = b.text(Ada.toUtf8()), inbox = b.integer(1);
    std::vector<quint64> messages;
    for (int i = 0; i < 200000; ++i) {
        const QByteArray n = QByteArray::number(i);
        messages.push_back(b.dictionary({{messageId, b.text("<" + n + "@example.org>")},
                                         {account, ada},
                                         {subject, b.text("Subject " + n)},
                                         {from, b.text("Sender " + n)},
                                         {date, b.integer(1600000000 + i)},
                                         {stid, inbox}}));
    }
    HostileContainer container;
    container.write(kToday + "/" + Ada + "/big", envelope(b, b.array(messages)));
    expectRefused(container.listAll(), "binary property list holds more than 131072 objects");
    container.expectFilesUntouched();
}

TEST(HostileInput, BinaryAccountListOf200000Accounts) {
    BinaryPlistBuilder b;
    const quint64 mail = b.text("mail"), name = b.text("name"), type = b.text("type"),
                  enabled = b.text("enabled");
    const quint64 one = b.integer(1), yes = b.boolean(true);
    // the widget's own account first: read, it would show the ordinary snapshot
    std::vector<quint64> accounts{b.dictionary({{mail, b.text(Ada.toUtf8())}, {enabled, yes}})};
    for (int i = 1; i < 200000; ++i) {
        const QByteArray n = QByteArray::number(i);
        accounts.push_back(b.dictionary({{mail, b.text("user" + n + "@example.org")},
                                         {name, b.text("User " + n)},
                                         {type, one},
                                         {enabled, yes}}));
    }
    HostileContainer container;
    container.write(ConstVars::accountsFile, b.finish(b.array(accounts)));
    const auto run = container.listAll();
    expectSurvived(run);
    // refused, the account list counts as no accounts: nothing to show, and that is said, in the
    // log's words and in the program's own line
    EXPECT_EQ(listedIds(run), "");
    EXPECT_TRUE(
        run.err.contains("Accounts error deserialize binary property list holds more than 131072 objects"))
        << run.err.toStdString();
    EXPECT_TRUE(run.err.contains(
        ("corvina-today: refused the account list " + container.data() + "/" + ConstVars::accountsFile +
         " (binary property list holds more than 131072 objects): no account is read\n")
            .toUtf8()))
        << run.err.toStdString();
    container.expectFilesUntouched();
}

TEST(HostileInput, FourMillionReferencesToOneEmptyDictionary) {
    BinaryPlistBuilder b;
    const quint64 empty = b.dictionary({});
    HostileContainer container;
    const QByteArray bytes = envelope(b, b.repeated(empty, 4000000));
    ASSERT_GT(bytes.size(), 16000000);
    container.write(kToday + "/" + Ada + "/refs", bytes);
    expectRefused(container.listAll(), "binary property list expands past 131072 objects");
    container.expectFilesUntouched();
}

TEST(HostileInput, AFewHundredBytesExpandingToMillionsOfObjects) {
    // data holds A1 three times, each Ai holds Ai+1 twice, A20 is an empty dictionary: some 3
    // million objects once copied out, within what the reader once took
    BinaryPlistBuilder b(1);
    std::vector<quint64> chain{b.dictionary({})};
    for (int i = 0; i < 19; ++i) {
        chain.push_back(b.array({chain.back(), chain.back()}));
    }
    const QByteArray bytes = envelope(b, b.array({chain.back(), chain.back(), chain.back()}));
    ASSERT_LT(bytes.size(), 300);
    HostileContainer container;
    container.write(kToday + "/" + Ada + "/small", bytes);
    expectRefused(container.listAll(), "binary property list expands past 131072 objects");
    container.expectFilesUntouched();
}

TEST(HostileInput, XmlSnapshotOfNineMillionDictionaries) {
    const QByteArray bytes = xmlSnapshotOf(QByteArray("<dict/>").repeated(9400000));
    ASSERT_LT(bytes.size(), PropertyList::MaximumSize);
    HostileContainer container;
    container.write(kToday + "/" + Ada + "/dicts", bytes);
    expectRefused(container.listAll(), "XML property list holds more than 131072 objects");
    container.expectFilesUntouched();
}

TEST(HostileInput, XmlSnapshotOfAMillionDictionaries) {
    HostileContainer container;
    container.write(kToday + "/" + Ada + "/dicts", xmlSnapshotOf(QByteArray("<dict/>").repeated(1000000)));
    expectRefused(container.listAll(), "XML property list holds more than 131072 objects");
    container.expectFilesUntouched();
}

namespace {

// A valid PNG of `side` x `side` 8-bit grey pixels, all black: a few kilobytes per hundred
// megapixels once compressed.
QByteArray blackPng(quint32 side) {
    auto bigEndian = [](quint32 v) {
        const char bytes[] = {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
        return QByteArray(bytes, 4);
    };
    auto chunk = [&](const char* type, const QByteArray& payload) {
        const QByteArray typed = QByteArray(type, 4) + payload;
        const auto crc = static_cast<quint32>(
            ::crc32(0, reinterpret_cast<const Bytef*>(typed.constData()), static_cast<uInt>(typed.size())));
        return bigEndian(static_cast<quint32>(payload.size())) + typed + bigEndian(crc);
    };
    const QByteArray rows(qsizetype(side) * (side + 1), '\0');
    uLongf size = compressBound(static_cast<uLong>(rows.size()));
    QByteArray packed(static_cast<qsizetype>(size), '\0');
    ::compress2(reinterpret_cast<Bytef*>(packed.data()), &size,
                reinterpret_cast<const Bytef*>(rows.constData()), static_cast<uLong>(rows.size()), 9);
    packed.truncate(static_cast<qsizetype>(size));
    return QByteArray("\x89PNG\r\n\x1a\n", 8) +
           chunk("IHDR", bigEndian(side) + bigEndian(side) + QByteArray("\x08\x00\x00\x00\x00", 5)) +
           chunk("IDAT", packed) + chunk("IEND", QByteArray());
}

} // namespace

TEST(HostileInput, OneAvatarOfAHundredMillionPixelsNamedBySixtyMessages) {
    // a binary list may name one avatar text from every message: each was decoded on its own, some
    // 100 MB a message, gigabytes for a snapshot of a hundred kilobytes
    const QByteArray png = blackPng(10000);
    BinaryPlistBuilder b;
    const quint64 avatar = b.text(png.toBase64());
    const quint64 avatarKey = b.text("avatar"), messageId = b.text("messageId"), account = b.text("account");
    const quint64 ada = b.text(Ada.toUtf8());
    std::vector<quint64> messages;
    for (int i = 0; i < 60; ++i) {
        messages.push_back(b.dictionary(
            {{messageId, b.text("face-" + QByteArray::number(i))}, {account, ada}, {avatarKey, avatar}}));
    }
    const QByteArray bytes = envelope(b, b.array(messages));
    ASSERT_LT(bytes.size(), 200 * 1024);
    HostileContainer container;
    container.write(kToday + "/" + Ada + "/faces", bytes);
    const ProgramRunner::Outcome run = container.listAll();
    expectSurvived(run);
    // every message is listed, without its avatar, and each refusal says why
    const QJsonArray rows = QJsonDocument::fromJson(run.out).array();
    EXPECT_EQ(rows.size(), 61);
    for (const QJsonValue& row : rows) {
        EXPECT_FALSE(row.toObject().value("hasAvatar").toBool());
    }
    EXPECT_EQ(
        run.err.count("ExtensionMessage avatar picture of 10000x10000 pixels is larger than 1048576 pixels"),
        60)
        << run.err.left(500).toStdString();
    EXPECT_FALSE(run.err.contains("libpng")) << run.err.left(500).toStdString();
    container.expectFilesUntouched();
}

TEST(HostileInput, BrokenAvatarsSayNothingOnTheTerminal) {
    const QByteArray png = blackPng(40);
    QByteArray corrupt = png;
    corrupt[45] = static_cast<char>(corrupt[45] ^ 0x5A);
    HostileContainer container;
    QVariantList messages;
    int n = 0;
    for (const QByteArray& bytes : {png.left(60), corrupt, png.left(8) + QByteArray(50, 'x')}) {
        QVariantMap message = TempContainer::message("broken-" + QString::number(n++), Ada, 1700000000);
        message.insert("avatar", QString::fromLatin1(bytes.toBase64()));
        messages << message;
    }
    container.write(
        kToday + "/" + Ada + "/broken",
        PropertyList::write(QVariantMap{{"folder", "INBOX"}, {"account", Ada}, {"data", messages}},
                            PropertyList::Format::Xml));
    const ProgramRunner::Outcome run = container.listAll();
    expectSurvived(run);
    EXPECT_EQ(QJsonDocument::fromJson(run.out).array().size(), 4);
    EXPECT_TRUE(run.err.isEmpty()) << run.err.toStdString();
}

TEST(HostileInput, FifosAndLinksOutOfTheFolderAmongTheSnapshots) {
    HostileContainer container;
    QTemporaryDir elsewhere;
    const QString folder = container.data() + "/" + kToday + "/" + Ada;
    ASSERT_EQ(::mkfifo(QFile::encodeName(folder + "/pipe").constData(), 0600), 0);
    ASSERT_TRUE(QFile::link(folder + "/pipe", folder + "/link-to-pipe"));
    QFile outside(elsewhere.path() + "/snapshot");
    ASSERT_TRUE(outside.open(QIODevice::WriteOnly));
    outside.write(PropertyList::write(
        QVariantMap{{"folder", "INBOX"},
                    {"account", Ada},
                    {"data", QVariantList{TempContainer::message("outside", Ada, 1700000000)}}},
        PropertyList::Format::Xml));
    outside.close();
    ASSERT_TRUE(QFile::link(outside.fileName(), folder + "/link-out"));
    const ProgramRunner::Outcome run = container.listAll();
    expectSurvived(run);
    EXPECT_EQ(listedIds(run), "kept");
    EXPECT_TRUE(run.err.isEmpty()) << run.err.toStdString();
}

TEST(HostileInput, AnAccountListThatIsAFifo) {
    HostileContainer container;
    const QString accounts = container.data() + "/" + ConstVars::accountsFile;
    ASSERT_TRUE(QFile::remove(accounts));
    ASSERT_EQ(::mkfifo(QFile::encodeName(accounts).constData(), 0600), 0);
    const ProgramRunner::Outcome run = container.listAll();
    expectSurvived(run);
    EXPECT_EQ(listedIds(run), "");
}
