// corvina-share as a person or a file manager runs it: the real program on a shared folder of the
// test's own, with a stand-in mail application that records the URLs it is sent.
#include "model/ExtensionMessage.h"
#include "requestutils/Url.h"
#include "shared/ConstVars.h"
#include "support/FakeHostApp.h"
#include "support/FolderTree.h"
#include "support/LockHolder.h"
#include "support/TempContainer.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using corvina::ExtensionMessage;
using corvina::ExtensionMessagePtr;
using corvina::Url;
using corvina::test::describeTree;
using corvina::test::FakeHostApp;
using corvina::test::HostLaunch;
using corvina::test::LockHolder;
using corvina::test::TempContainer;

namespace {

struct ShareOutcome {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

const QByteArray kNotes = "Minutes of the meeting\nAll present.\n";
// Not a picture for any decoder: it must travel under its own name with its own bytes.
const QByteArray kReport = QByteArray("%PDF-1.4\n%\xe2\xe3\xcf\xd3\n1 0 obj\n<< /Type /Catalog >>\nendobj\n"
                                      "trailer\n<< /Root 1 0 R >>\n%%EOF\n") +
                           QByteArray("\x00\x01\x02\xff\xfe", 5);
const QString kLink = QStringLiteral("https://example.com/news?id=1");

// A small picture whose pixels all differ, so that a wrong decode or a resize shows.
QImage picture() {
    QImage image(7, 5, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            image.setPixel(x, y, qRgb(30 * x, 50 * y, 255 - 20 * x - 10 * y));
    return image;
}

QByteArray contents(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

// Lists compared as one text each, so that a failure shows the names rather than their bytes.
std::string sorted(QStringList list) {
    std::sort(list.begin(), list.end());
    return list.join(u'\n').toStdString();
}

// The demo mailbox's data folder (accounts, snapshots, contacts, lock sidecars) copied to `data`.
void copyDemoInto(const QString& data) {
    const QString demo = QStringLiteral(CORVINA_SOURCE_DIR "/resources/demo/SharedData");
    QDirIterator it(demo, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString copy = data + path.mid(demo.size());
        if (it.fileInfo().isDir())
            ASSERT_TRUE(QDir().mkpath(copy));
        else
            ASSERT_TRUE(QDir().mkpath(QFileInfo(copy).absolutePath()) && QFile::copy(path, copy))
                << copy.toStdString();
    }
    ASSERT_TRUE(QFileInfo::exists(data + "/" + corvina::ConstVars::todayFolder));
    ASSERT_TRUE(QFileInfo::exists(data + QStringLiteral("/.Today.lock")));
}

class ShareProgram : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(sources.isValid());
        ASSERT_TRUE(runtime.isValid());
        writeSource(QStringLiteral("notes.txt"), kNotes);
        writeSource(QStringLiteral("report.pdf"), kReport);
        ASSERT_TRUE(picture().save(sources.filePath(QStringLiteral("photo.png")), "PNG"));
    }

    void writeSource(const QString& name, const QByteArray& bytes) {
        QFile file(sources.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(bytes), bytes.size());
    }

    QString source(const QString& name) const { return sources.filePath(name); }
    QString staging(const QString& service = QStringLiteral("Share")) const {
        return container.data() + u'/' + service;
    }

    // What the program gets: this process's environment, which holds the shared folder and the
    // applications folders chosen by the fixtures, without a display. A desktop session always has
    // a runtime folder; without one Qt warns about it, and a successful share must print nothing.
    QProcessEnvironment environment() const {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime.path());
        env.remove(QStringLiteral("CORVINA_BUNDLE_IDENTIFIER"));
        return env;
    }

    ShareOutcome run(const QStringList& arguments) const { return run(arguments, environment()); }

    static ShareOutcome run(const QStringList& arguments, const QProcessEnvironment& env) {
        QProcess process;
        process.setProcessEnvironment(env);
        process.start(QStringLiteral(CORVINA_SHARE_BINARY), arguments);
        EXPECT_TRUE(process.waitForFinished(60000));
        return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
    }

    // A file left in the staging folder by an earlier share, which a refused share must not touch.
    void stageEarlierShare() {
        ASSERT_TRUE(QDir().mkpath(staging()));
        QFile file(staging() + QStringLiteral("/earlier.txt"));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("from the share before");
    }

    void expectNothingTouched() {
        EXPECT_EQ(contents(staging() + QStringLiteral("/earlier.txt")), QByteArray("from the share before"));
        EXPECT_EQ(sorted(QDir(staging()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)),
                  "earlier.txt");
        // The recorder is started detached: give a launch that should not happen time to show.
        EXPECT_TRUE(host.waitForLaunches(1, 1000).isEmpty());
    }

    // The single compose URL the mail application received, as a message.
    ExtensionMessagePtr receivedDraft() {
        // Wait for a second launch that must not come, so that "exactly one" means something.
        const QList<HostLaunch> launches = host.waitForLaunches(2, 1500);
        EXPECT_EQ(launches.size(), 1);
        if (launches.size() != 1)
            return nullptr;
        const HostLaunch& launch = launches.first();
        // The person sharing wants the draft in front of them: a launch that may activate.
        EXPECT_EQ(launch.values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")).toStdString(), "0x20000");
        EXPECT_EQ(launch.arguments.size(), 1);
        if (launch.arguments.size() != 1)
            return nullptr;
        const QString text = launch.arguments.first();
        EXPECT_TRUE(text.startsWith(QLatin1String("corvina://compose?"))) << text.toStdString();
        const std::optional<Url> url = Url::URLWithString(text);
        EXPECT_TRUE(url.has_value()) << text.toStdString();
        if (!url)
            return nullptr;
        return ExtensionMessage::ExtensionMessageWithUrl(*url);
    }

    static QStringList attachmentPaths(const ExtensionMessagePtr& message) {
        QStringList paths;
        for (const QVariant& attachment : *message->attachments())
            paths << attachment.toString();
        return paths;
    }

    QTemporaryDir sources;
    QTemporaryDir runtime; // made private to its owner, as a runtime folder must be
    TempContainer container;
    FakeHostApp host;
};

} // namespace

TEST_F(ShareProgram, SharesFilesAPictureALinkAndATextAsOneDraft) {
    host.installRecorder(QStringLiteral("org.corvina.mail"));
    // What an earlier share left behind is cleared away: each share replaces the one before.
    stageEarlierShare();
    const QString text = QStringLiteral("Three files and a link for you");
    const QString title = QStringLiteral("Meeting papers");

    const ShareOutcome outcome =
        run({QStringLiteral("--title"), title, QStringLiteral("--text"), text,
             source(QStringLiteral("notes.txt")), source(QStringLiteral("report.pdf")),
             source(QStringLiteral("photo.png")), kLink});

    ASSERT_EQ(outcome.exitCode, 0) << outcome.err.toStdString();
    EXPECT_TRUE(outcome.out.isEmpty()) << outcome.out.toStdString();
    EXPECT_TRUE(outcome.err.isEmpty()) << outcome.err.toStdString();

    // The staging folder holds exactly the three files: the plain ones under their own names with
    // their own bytes, the picture as a PNG with the same pixels.
    const QString folder = staging();
    EXPECT_EQ(sorted(QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)),
              "image.png\nnotes.txt\nreport.pdf");
    EXPECT_EQ(contents(folder + QStringLiteral("/notes.txt")), kNotes);
    EXPECT_EQ(contents(folder + QStringLiteral("/report.pdf")), kReport);
    const QImage staged(folder + QStringLiteral("/image.png"), "PNG");
    ASSERT_FALSE(staged.isNull());
    EXPECT_EQ(staged.size(), picture().size());
    EXPECT_EQ(staged.convertToFormat(QImage::Format_ARGB32),
              picture().convertToFormat(QImage::Format_ARGB32));

    const ExtensionMessagePtr draft = receivedDraft();
    ASSERT_TRUE(draft);
    // The order of attachments is the order their loads finished in: only the set is fixed.
    EXPECT_EQ(sorted(attachmentPaths(draft)),
              sorted({folder + QStringLiteral("/image.png"), folder + QStringLiteral("/notes.txt"),
                      folder + QStringLiteral("/report.pdf")}));
    const QString html = draft->htmlBody();
    EXPECT_TRUE(html.contains(QStringLiteral("<a href=\"%1\">%1</a>").arg(kLink))) << html.toStdString();
    EXPECT_TRUE(html.contains(text)) << html.toStdString();
    // The text comes before the link.
    EXPECT_LT(html.indexOf(text), html.indexOf(QStringLiteral("<a href=")));
    EXPECT_EQ(draft->subject().toStdString(), title.toStdString());
}

TEST_F(ShareProgram, TitleBecomesTheSubjectWithoutALinkAndFileUrlsAreFiles) {
    host.installRecorder(QStringLiteral("org.corvina.mail"));
    writeSource(QStringLiteral("a b.txt"), "spaced name");
    const QString fileUrl =
        QUrl::fromLocalFile(source(QStringLiteral("a b.txt"))).toString(QUrl::FullyEncoded);
    ASSERT_TRUE(fileUrl.contains(QLatin1String("a%20b.txt")));

    const ShareOutcome outcome = run(
        {QStringLiteral("--container"), container.root(), QStringLiteral("--service"),
         QStringLiteral("Reports"), QStringLiteral("--title"), QStringLiteral("Quarterly figures"), fileUrl});

    ASSERT_EQ(outcome.exitCode, 0) << outcome.err.toStdString();
    EXPECT_EQ(contents(staging(QStringLiteral("Reports")) + QStringLiteral("/a b.txt")),
              QByteArray("spaced name"));
    EXPECT_FALSE(QFileInfo::exists(staging()));
    const ExtensionMessagePtr draft = receivedDraft();
    ASSERT_TRUE(draft);
    EXPECT_EQ(sorted(attachmentPaths(draft)),
              (staging(QStringLiteral("Reports")) + "/a b.txt").toStdString());
    EXPECT_EQ(draft->subject().toStdString(), "Quarterly figures");
}

TEST_F(ShareProgram, SendsToTheMailApplicationBuildOfItsBundleIdentifier) {
    // Only the "2" build is installed: a share command of that build reaches it.
    host.installRecorder(QStringLiteral("org.corvina.mail2"));
    QProcessEnvironment env = environment();
    env.insert(QStringLiteral("CORVINA_BUNDLE_IDENTIFIER"), QStringLiteral("org.corvina.mail2.share"));

    const ShareOutcome outcome = run({QStringLiteral("--text"), QStringLiteral("hello"), kLink}, env);

    ASSERT_EQ(outcome.exitCode, 0) << outcome.err.toStdString();
    const ExtensionMessagePtr draft = receivedDraft();
    ASSERT_TRUE(draft);
    EXPECT_TRUE(draft->htmlBody().contains(QStringLiteral("hello")));
    EXPECT_TRUE(draft->attachments()->isEmpty());

    // The same command under the default identifier looks for the base build, which is not there.
    const ShareOutcome base = run({QStringLiteral("--text"), QStringLiteral("hello")});
    EXPECT_EQ(base.exitCode, 5) << base.err.toStdString();
}

TEST_F(ShareProgram, AFileThatCannotBeStagedIsExitOneAndNothingIsSent) {
    host.installRecorder(QStringLiteral("org.corvina.mail"));
    // Another process keeps the staging folder locked past the 5 s every staging step waits.
    ASSERT_TRUE(QDir().mkpath(staging()));
    LockHolder holder(staging());

    const ShareOutcome outcome = run({source(QStringLiteral("notes.txt"))});

    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(outcome.err.contains("corvina-share: only 0 of 1 files could be placed in the shared folder; "
                                     "nothing was sent"))
        << outcome.err.toStdString();
    // The shared-folder code's own line about the failure is shown with it.
    EXPECT_TRUE(outcome.err.contains("[***ERROR***] Error shareFiles")) << outcome.err.toStdString();
    EXPECT_TRUE(host.waitForLaunches(1, 1000).isEmpty());
}

TEST_F(ShareProgram, AFileThatLooksLikeAPictureButDoesNotDecodeIsSharedAsTheFileItIs) {
    host.installRecorder(QStringLiteral("org.corvina.mail"));
    // A PNG signature followed by no picture.
    const QByteArray broken = QByteArray("\x89PNG\r\n\x1a\n", 8) + "not really a picture";
    writeSource(QStringLiteral("broken.png"), broken);

    const ShareOutcome outcome =
        run({source(QStringLiteral("notes.txt")), source(QStringLiteral("broken.png"))});

    ASSERT_EQ(outcome.exitCode, 0) << outcome.err.toStdString();
    EXPECT_EQ(contents(staging() + QStringLiteral("/broken.png")), broken);
    const ExtensionMessagePtr draft = receivedDraft();
    ASSERT_TRUE(draft);
    EXPECT_EQ(sorted(attachmentPaths(draft)),
              sorted({staging() + QStringLiteral("/broken.png"), staging() + QStringLiteral("/notes.txt")}));
}

TEST_F(ShareProgram, TheMailApplicationsOwnItemsAreNoServiceAndStayAsTheyWere) {
    host.installRecorder(QStringLiteral("org.corvina.mail"));
    copyDemoInto(container.data());
    stageEarlierShare();
    const std::string before = describeTree(container.data());
    for (const QString& reserved :
         {QStringLiteral("Today"), QStringLiteral("Accounts.plist"), QStringLiteral("Contacts"),
          QStringLiteral(".Today.lock"), QStringLiteral(".Accounts.plist.lock"),
          QStringLiteral(".Contacts.lock"), QStringLiteral("today"), QStringLiteral(".Share.lock")}) {
        const ShareOutcome outcome =
            run({QStringLiteral("--service"), reserved, source(QStringLiteral("notes.txt"))});
        EXPECT_EQ(outcome.exitCode, 2) << reserved.toStdString() << ": " << outcome.err.toStdString();
        EXPECT_TRUE(outcome.err.startsWith("corvina-share: --service wants a folder name of its own"))
            << outcome.err.toStdString();
        EXPECT_TRUE(outcome.err.contains(("\"" + reserved + "\"").toUtf8())) << outcome.err.toStdString();
        EXPECT_EQ(describeTree(container.data()), before) << "after --service " << reserved.toStdString();
    }
    expectNothingTouched();
}

TEST_F(ShareProgram, ALinkedDataFolderIsExitFourAndWhatItPointsAtIsUntouched) {
    host.installRecorder(QStringLiteral("org.corvina.mail"));
    QTemporaryDir elsewhere;
    copyDemoInto(elsewhere.path());
    {
        ASSERT_TRUE(QDir().mkpath(elsewhere.filePath(QStringLiteral("Share"))));
        QFile earlier(elsewhere.filePath(QStringLiteral("Share/earlier.txt")));
        ASSERT_TRUE(earlier.open(QIODevice::WriteOnly));
        earlier.write("from the share before");
    }
    ASSERT_TRUE(QDir(container.data()).removeRecursively());
    ASSERT_EQ(::symlink(QFile::encodeName(elsewhere.path()).constData(),
                        QFile::encodeName(container.data()).constData()),
              0);
    const std::string before = describeTree(elsewhere.path());

    const ShareOutcome outcome =
        run({QStringLiteral("--text"), QStringLiteral("hello"), source(QStringLiteral("notes.txt"))});

    EXPECT_EQ(outcome.exitCode, 4) << outcome.err.toStdString();
    EXPECT_TRUE(outcome.err.contains(("corvina-share: the shared data folder " + container.data() +
                                      " is a symbolic link; nothing is staged through one")
                                         .toUtf8()))
        << outcome.err.toStdString();
    EXPECT_EQ(describeTree(elsewhere.path()), before);
    EXPECT_EQ(QFileInfo(container.data()).symLinkTarget(), elsewhere.path());
    EXPECT_TRUE(host.waitForLaunches(1, 1000).isEmpty());
}

TEST_F(ShareProgram, AFifoIsExitThreeAtOnce) {
    host.installRecorder(QStringLiteral("org.corvina.mail"));
    stageEarlierShare();
    const QString fifo = sources.filePath(QStringLiteral("pipe"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0644), 0);

    // run() gives up after a minute; a program waiting for a writer would never end by itself.
    const ShareOutcome outcome = run({source(QStringLiteral("notes.txt")), fifo});

    EXPECT_EQ(outcome.exitCode, 3);
    EXPECT_TRUE(outcome.err.contains(("corvina-share: not a plain file: " + fifo).toUtf8()))
        << outcome.err.toStdString();
    expectNothingTouched();
}

TEST_F(ShareProgram, AHiddenOrLinkDesktopFileIsNotInstalledAndNothingIsStaged) {
    stageEarlierShare();
    const QString exec = FakeHostApp::recorderProgram() + u' ' + host.recordFile() + QStringLiteral(" %U");
    const struct {
        QString contents;
        const char* says;
    } entries[] = {
        {QStringLiteral("[Desktop Entry]\nType=Application\nName=Mail\nHidden=true\nExec=") + exec + u'\n',
         "is hidden (Hidden=true"},
        {QStringLiteral("[Desktop Entry]\nType=Link\nName=Mail\nURL=https://example.org\nExec=") + exec +
             u'\n',
         "is not an application (Type=Link)"},
    };
    for (const auto& entry : entries) {
        host.installDesktopFile(QStringLiteral("org.corvina.mail.desktop"), entry.contents.toUtf8());
        const ShareOutcome outcome = run({source(QStringLiteral("notes.txt"))});
        EXPECT_EQ(outcome.exitCode, 5) << outcome.err.toStdString();
        EXPECT_TRUE(
            outcome.err.contains("corvina-share: the mail application (org.corvina.mail) is not installed: "))
            << outcome.err.toStdString();
        EXPECT_TRUE(outcome.err.contains(entry.says)) << outcome.err.toStdString();
    }
    expectNothingTouched();
}

TEST_F(ShareProgram, AComposeUrlOverTheArgumentLimitIsExitSixBeforeAnythingIsStaged) {
    host.installRecorder(QStringLiteral("org.corvina.mail"));
    stageEarlierShare();
    // Each "ä" takes six bytes percent-encoded: 150 000 bytes and more.
    const ShareOutcome outcome =
        run({QStringLiteral("--text"), QString(25000, QChar(0xe4)), source(QStringLiteral("notes.txt"))});
    EXPECT_EQ(outcome.exitCode, 6) << outcome.err.toStdString();
    EXPECT_TRUE(
        outcome.err.contains("corvina-share: the draft is too large to hand to the mail application: its "
                             "compose URL would have "))
        << outcome.err.toStdString();
    EXPECT_TRUE(outcome.err.contains("bytes, more than the limit of 131071 bytes"))
        << outcome.err.toStdString();
    expectNothingTouched();
}

TEST_F(ShareProgram, ALongTextWithinTheLimitIsSent) {
    host.installRecorder(QStringLiteral("org.corvina.mail"));
    const QString text(100000, u'a');
    const ShareOutcome outcome = run({QStringLiteral("--text"), text});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err.toStdString();
    const ExtensionMessagePtr draft = receivedDraft();
    ASSERT_TRUE(draft);
    EXPECT_TRUE(draft->htmlBody().contains(text));
}

TEST_F(ShareProgram, FileNamesOfUpTo255BytesAreShared) {
    host.installRecorder(QStringLiteral("org.corvina.mail"));
    const QString longest = QString(251, u'r') + QStringLiteral(".pdf");
    const QString other = QString(238, u'o') + QStringLiteral(".pdf"); // 242 bytes
    writeSource(longest, kReport);
    writeSource(other, kNotes);

    const ShareOutcome outcome = run({source(longest), source(other)});

    ASSERT_EQ(outcome.exitCode, 0) << outcome.err.toStdString();
    EXPECT_EQ(contents(staging() + u'/' + longest), kReport);
    EXPECT_EQ(contents(staging() + u'/' + other), kNotes);
    const ExtensionMessagePtr draft = receivedDraft();
    ASSERT_TRUE(draft);
    EXPECT_EQ(sorted(attachmentPaths(draft)), sorted({staging() + u'/' + longest, staging() + u'/' + other}));
}

TEST_F(ShareProgram, APathThatIsNotUtf8IsRefusedAsSuchNotAsMissing) {
    host.installRecorder(QStringLiteral("org.corvina.mail"));
    stageEarlierShare();
    // "café.txt" with the é in Latin-1: one byte 0xE9, which is no UTF-8.
    const QByteArray native = QFile::encodeName(sources.path()) + QByteArray("/caf\xe9.txt");
    const int fd = ::open(native.constData(), O_WRONLY | O_CREAT | O_EXCL, 0644);
    ASSERT_GE(fd, 0);
    // Qt cannot name this file to remove it with the temporary folder; it goes by its bytes.
    const std::unique_ptr<const char, void (*)(const char*)> removal(
        native.constData(), [](const char* path) { ::unlink(path); });
    ASSERT_EQ(::write(fd, "latin", 5), 5);
    ::close(fd);
    // Handed over as bytes: QProcess would pass text, so a shell puts the byte in.
    auto runNative = [this](const QString& stem) {
        QProcess process;
        process.setProcessEnvironment(environment());
        process.start(QStringLiteral("/bin/sh"),
                      {QStringLiteral("-c"), QStringLiteral("exec \"$0\" \"$1$(printf '\\351').txt\""),
                       QStringLiteral(CORVINA_SHARE_BINARY), stem});
        EXPECT_TRUE(process.waitForFinished(60000));
        return ShareOutcome{process.exitCode(), process.readAllStandardOutput(),
                            process.readAllStandardError()};
    };

    const ShareOutcome outcome = runNative(sources.filePath(QStringLiteral("caf")));
    EXPECT_EQ(outcome.exitCode, 3);
    EXPECT_TRUE(outcome.err.contains(
        ("corvina-share: cannot share " + sources.path() + "/caf\\xE9.txt: its path is not valid UTF-8")
            .toUtf8()))
        << outcome.err.toStdString();
    // A file manager passes the same file as a URL, the byte percent-encoded.
    const ShareOutcome url = run(
        {QUrl::fromLocalFile(sources.path()).toString(QUrl::FullyEncoded) + QStringLiteral("/caf%E9.txt")});
    EXPECT_EQ(url.exitCode, 3);
    EXPECT_TRUE(url.err.contains(
        ("corvina-share: cannot share " + sources.path() + "/caf\\xE9.txt: its path is not valid UTF-8")
            .toUtf8()))
        << url.err.toStdString();
    const ShareOutcome missing = runNative(sources.filePath(QStringLiteral("other")));
    EXPECT_EQ(missing.exitCode, 3);
    EXPECT_TRUE(
        missing.err.contains(("corvina-share: no such file: " + sources.path() + "/other\\xE9.txt").toUtf8()))
        << missing.err.toStdString();
    expectNothingTouched();
}

TEST_F(ShareProgram, MissingFileIsExitThreeAndTouchesNothing) {
    host.installRecorder(QStringLiteral("org.corvina.mail"));
    stageEarlierShare();
    const QString missing = sources.filePath(QStringLiteral("missing.pdf"));

    const ShareOutcome outcome = run({QStringLiteral("--title"), QStringLiteral("t"),
                                      source(QStringLiteral("notes.txt")), missing, kLink});

    EXPECT_EQ(outcome.exitCode, 3);
    EXPECT_TRUE(outcome.err.contains(("corvina-share: no such file: " + missing).toUtf8()))
        << outcome.err.toStdString();
    // Other schemes are paths, and a folder is no file to attach.
    EXPECT_EQ(run({QStringLiteral("mailto:ann@example.org")}).exitCode, 3);
    const ShareOutcome folder = run({sources.path()});
    EXPECT_EQ(folder.exitCode, 3);
    EXPECT_TRUE(folder.err.contains("not a plain file")) << folder.err.toStdString();
    expectNothingTouched();
}

TEST_F(ShareProgram, NoSharedFolderIsExitFour) {
    host.installRecorder(QStringLiteral("org.corvina.mail"));
    QProcessEnvironment env = environment();
    env.insert(QStringLiteral("CORVINA_GROUP_CONTAINER"), QString());
    const ShareOutcome unset = run({source(QStringLiteral("notes.txt"))}, env);
    EXPECT_EQ(unset.exitCode, 4);
    EXPECT_TRUE(unset.err.contains("corvina-share: no shared folder")) << unset.err.toStdString();

    const QString nowhere = sources.filePath(QStringLiteral("no-such-container"));
    const ShareOutcome absent =
        run({QStringLiteral("--container"), nowhere, source(QStringLiteral("notes.txt"))});
    EXPECT_EQ(absent.exitCode, 4);
    EXPECT_TRUE(absent.err.contains(nowhere.toUtf8())) << absent.err.toStdString();
    EXPECT_FALSE(QFileInfo::exists(nowhere));
    EXPECT_TRUE(host.waitForLaunches(1, 1000).isEmpty());
}

TEST_F(ShareProgram, MailApplicationNotInstalledIsExitFive) {
    // The fixture's applications folders hold nothing.
    stageEarlierShare();
    const ShareOutcome outcome = run({source(QStringLiteral("notes.txt")), kLink});
    EXPECT_EQ(outcome.exitCode, 5);
    EXPECT_TRUE(
        outcome.err.contains("corvina-share: the mail application (org.corvina.mail) is not installed"))
        << outcome.err.toStdString();
    expectNothingTouched();
}

TEST_F(ShareProgram, UsageErrorsAreExitTwo) {
    host.installRecorder(QStringLiteral("org.corvina.mail"));
    stageEarlierShare();
    const ShareOutcome nothing = run({});
    EXPECT_EQ(nothing.exitCode, 2);
    EXPECT_TRUE(nothing.err.contains("nothing to share")) << nothing.err.toStdString();
    EXPECT_EQ(run({QStringLiteral("--text"), QString()}).exitCode, 2);
    EXPECT_EQ(run({QStringLiteral("--bogus"), source(QStringLiteral("notes.txt"))}).exitCode, 2);
    EXPECT_EQ(run({QStringLiteral("--service"), QStringLiteral(".."), source(QStringLiteral("notes.txt"))})
                  .exitCode,
              2);
    EXPECT_EQ(run({QStringLiteral("--service"), QStringLiteral("a/b"), source(QStringLiteral("notes.txt"))})
                  .exitCode,
              2);
    EXPECT_EQ(run({QStringLiteral("http://")}).exitCode, 2);
    expectNothingTouched();
}

TEST_F(ShareProgram, HelpListsTheOptionsAndExitStatuses) {
    const ShareOutcome outcome = run({QStringLiteral("--help")});
    EXPECT_EQ(outcome.exitCode, 0);
    const QString help = QString::fromUtf8(outcome.out);
    for (const char* option : {"--title <TEXT>", "--text <TEXT>", "--service <NAME>", "--container <DIR>",
                               "--help", "--version", "[FILE | URL]..."})
        EXPECT_TRUE(help.contains(QLatin1String(option))) << option << "\n" << help.toStdString();
    for (const char* status : {"  0  sent", "  1  could not send", "  2  usage error", "  3  missing file",
                               "  4  no shared folder", "  5  the mail application is not installed",
                               "  6  the draft is too large"})
        EXPECT_TRUE(help.contains(QLatin1String(status))) << status << "\n" << help.toStdString();
}
