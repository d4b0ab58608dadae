#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"
#include "shared/GetGoodPath.h"
#include "support/FolderTree.h"
#include "support/LockHolder.h"
#include "support/LogCapture.h"
#include "support/ScopedEnvironment.h"
#include "support/TempContainer.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <chrono>
#include <fcntl.h>
#include <future>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace corvina;
using corvina::test::describeTree;
using corvina::test::LockHolder;
using corvina::test::LogCapture;
using corvina::test::ScopedEnvironment;
using corvina::test::TempContainer;

namespace {

void writeFile(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    file.write(bytes);
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

QStringList entries(const QString& folder) {
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                                  QDir::Name);
}

// Visible entries only: the staging folder's lock sidecar lives in the data folder, and temporary
// files must not be left behind, so hidden entries are checked separately where it matters.
QStringList stagedNames(const QString& folder) {
    return QDir(folder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

// A data folder as the mail application keeps it: accounts, snapshots of two accounts, contacts,
// the three lock sidecars, a writer's temporary file and an earlier share.
void writeMailApplicationItems(const QString& data) {
    writeFile(data + "/" + ConstVars::accountsFile,
              "<?xml version=\"1.0\"?><plist><array><dict><key>mail</key>"
              "<string>ada@example.org</string></dict></array></plist>");
    writeFile(data + "/" + ConstVars::todayFolder + "/ada@example.org/inbox.plist", "inbox of ada");
    writeFile(data + "/" + ConstVars::todayFolder + "/ada@example.org/todo", "to do of ada");
    writeFile(data + "/" + ConstVars::todayFolder + "/ada@example.org/.inbox.plist.k3J9.tmp", "half written");
    writeFile(data + "/" + ConstVars::todayFolder + "/bob@example.org/inbox.plist",
              QByteArray("bplist00\0\1\2", 11));
    writeFile(data + "/" + ConstVars::contactsFolder + "/Addresses.plist", "addresses");
    writeFile(data + "/" + ConstVars::contactsFolder + "/Groups.plist", "groups");
    writeFile(data + "/.Today.lock", "");
    writeFile(data + "/.Accounts.plist.lock", "");
    writeFile(data + "/.Contacts.lock", "");
    writeFile(data + "/Share/earlier.txt", "from the share before");
}

} // namespace

// ---- GetGoodPath

TEST(GetGoodPath, TheNameItselfWhenFree) {
    QTemporaryDir folder;
    EXPECT_EQ(GetGoodPath(QStringLiteral("report.pdf"), folder.path()), folder.filePath("report.pdf"));
}

TEST(GetGoodPath, CountsPastTakenNamesFromThePlainBase) {
    QTemporaryDir folder;
    writeFile(folder.filePath("report.pdf"), "a");
    writeFile(folder.filePath("report_1.pdf"), "b");
    EXPECT_EQ(GetGoodPath(QStringLiteral("report.pdf"), folder.path()), folder.filePath("report_2.pdf"));
    // photo_2 follows photo_1: the counter goes on the plain base, never onto a suffixed one
    writeFile(folder.filePath("report_2.pdf"), "c");
    EXPECT_EQ(GetGoodPath(QStringLiteral("report.pdf"), folder.path()), folder.filePath("report_3.pdf"));
}

TEST(GetGoodPath, NameWithoutExtension) {
    QTemporaryDir folder;
    EXPECT_EQ(GetGoodPath(QStringLiteral("notes"), folder.path()), folder.filePath("notes"));
    writeFile(folder.filePath("notes"), "x");
    EXPECT_EQ(GetGoodPath(QStringLiteral("notes"), folder.path()), folder.filePath("notes_1"));
}

TEST(GetGoodPath, OnlyTheLastExtensionIsKeptAfterTheCounter) {
    QTemporaryDir folder;
    writeFile(folder.filePath("a.tar.gz"), "x");
    EXPECT_EQ(GetGoodPath(QStringLiteral("a.tar.gz"), folder.path()), folder.filePath("a.tar_1.gz"));
}

TEST(GetGoodPath, AFolderBlocksANameAsAFileDoes) {
    QTemporaryDir folder;
    writeFile(folder.filePath("image.png"), "x");
    ASSERT_TRUE(QDir(folder.path()).mkdir("image_1.png"));
    EXPECT_EQ(GetGoodPath(QStringLiteral("image.png"), folder.path()), folder.filePath("image_2.png"));
}

TEST(GetGoodPath, ADanglingLinkBlocksItsName) {
    QTemporaryDir folder;
    ASSERT_EQ(
        ::symlink("/nonexistent/elsewhere.png", QFile::encodeName(folder.filePath("image.png")).constData()),
        0);
    EXPECT_EQ(GetGoodPath(QStringLiteral("image.png"), folder.path()), folder.filePath("image_1.png"));
}

TEST(GetGoodPath, DotFilesAndTrailingDotsHaveNoExtension) {
    QTemporaryDir folder;
    writeFile(folder.filePath(".profile"), "x");
    EXPECT_EQ(GetGoodPath(QStringLiteral(".profile"), folder.path()), folder.filePath(".profile_1"));
    writeFile(folder.filePath("draft."), "x");
    EXPECT_EQ(GetGoodPath(QStringLiteral("draft."), folder.path()), folder.filePath("draft._1"));
}

TEST(GetGoodPath, NonAsciiNames) {
    QTemporaryDir folder;
    writeFile(folder.filePath(QStringLiteral("Übersicht März.pdf")), "x");
    EXPECT_EQ(GetGoodPath(QStringLiteral("Übersicht März.pdf"), folder.path()),
              folder.filePath(QStringLiteral("Übersicht März_1.pdf")));
}

TEST(GetGoodPath, ACounterNeverMakesANameLongerThan255Bytes) {
    QTemporaryDir folder;
    const QString longest = QString(251, u'a') + QStringLiteral(".txt"); // 255 bytes
    writeFile(folder.filePath(longest), "x");
    const QString next = QFileInfo(GetGoodPath(longest, folder.path())).fileName();
    EXPECT_EQ(next, QString(249, u'a') + QStringLiteral("_1.txt"));
    // Letters of two bytes come off whole.
    const QString umlauts = QString(125, QChar(0xe4)) + QStringLiteral(".txt"); // 254 bytes
    writeFile(folder.filePath(umlauts), "x");
    const QString second = QFileInfo(GetGoodPath(umlauts, folder.path())).fileName();
    EXPECT_EQ(second, QString(124, QChar(0xe4)) + QStringLiteral("_1.txt"));
    EXPECT_LE(second.toUtf8().size(), 255);
}

// ---- ShareInit

class Staging : public ::testing::Test {
protected:
    TempContainer container;
    LogCapture log;
    QTemporaryDir sources;
    QString staging() const { return container.data() + QStringLiteral("/Share"); }
    QString source(const QString& name, const QByteArray& bytes) {
        const QString path = sources.filePath(name);
        writeFile(path, bytes);
        return path;
    }
};

TEST_F(Staging, InitOnAMissingFolderLogsDeleteAndCreateAndMakesIt) {
    ASSERT_FALSE(QFileInfo::exists(staging()));
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    EXPECT_TRUE(QFileInfo(staging()).isDir());
    const QString error = QStringLiteral("cannot remove %1: No such file or directory").arg(staging());
    // the removal's failure is reported twice, deliberately: by the delete line and the create line
    EXPECT_EQ(log.lines(), QStringList({QStringLiteral("[***ERROR***] shareInit delete ") + error,
                                        QStringLiteral("[***ERROR***] shareInit create ") + error}));
}

TEST_F(Staging, InitEmptiesAnExistingFolderSilently) {
    writeFile(staging() + QStringLiteral("/old.txt"), "old");
    writeFile(staging() + QStringLiteral("/sub/deeper.txt"), "old");
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    EXPECT_TRUE(QFileInfo(staging()).isDir());
    EXPECT_TRUE(entries(staging()).isEmpty());
    EXPECT_TRUE(log.lines().isEmpty()) << log.lines().join('\n').toStdString();
}

TEST_F(Staging, InitMakesTheDataFolderWhenMissing) {
    QDir(container.data()).removeRecursively();
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    EXPECT_TRUE(QFileInfo(staging()).isDir());
    EXPECT_EQ(log.lines().size(), 2); // nothing to remove: delete and create lines
}

TEST_F(Staging, InitReplacesALinkStandingAsTheFolderWithoutTouchingItsTarget) {
    QTemporaryDir elsewhere;
    writeFile(elsewhere.filePath("precious.txt"), "keep me");
    ASSERT_EQ(
        ::symlink(QFile::encodeName(elsewhere.path()).constData(), QFile::encodeName(staging()).constData()),
        0);
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    EXPECT_TRUE(QFileInfo(staging()).isDir());
    EXPECT_FALSE(QFileInfo(staging()).isSymLink());
    EXPECT_EQ(readFile(elsewhere.filePath("precious.txt")), QByteArray("keep me"));
    EXPECT_TRUE(log.lines().isEmpty()) << log.lines().join('\n').toStdString();
}

TEST_F(Staging, InitRefusesNamesThatAreNotOnePlainFolder) {
    writeFile(container.data() + "/" + ConstVars::accountsFile, "the mail app's");
    for (const QString& bad : {QString(), QStringLiteral(""), QStringLiteral("."), QStringLiteral(".."),
                               QStringLiteral("a/b"), QStringLiteral("../SharedData")}) {
        log.clear();
        ExtensionUtilities::ShareInit(bad);
        ASSERT_EQ(log.lines().size(), 1) << bad.toStdString();
        EXPECT_TRUE(log.lines().first().startsWith(QStringLiteral("[***ERROR***] shareInit ")))
            << log.lines().first().toStdString();
    }
    EXPECT_EQ(log.lines(), QStringList(QStringLiteral(
                               "[***ERROR***] shareInit not a plain folder name: \"../SharedData\"")));
    EXPECT_EQ(readFile(container.data() + "/" + ConstVars::accountsFile), QByteArray("the mail app's"));
}

TEST_F(Staging, InitWithoutSharedFolderLogsAndDoesNothing) {
    ScopedEnvironment none("CORVINA_GROUP_CONTAINER", QByteArray(""));
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    EXPECT_EQ(log.lines(), QStringList(QStringLiteral("[***ERROR***] shareInit no shared folder")));
}

TEST_F(Staging, InitWaitsForTheLockAndGivesUpWithTheCoordinationLine) {
    writeFile(staging() + QStringLiteral("/kept.txt"), "kept");
    LockHolder holder(staging());
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    ASSERT_EQ(log.lines().size(), 1);
    EXPECT_TRUE(log.lines().first().startsWith(QStringLiteral("[***ERROR***] shareInit ")));
    EXPECT_FALSE(log.lines().first().contains(QStringLiteral("delete")));
    EXPECT_EQ(readFile(staging() + QStringLiteral("/kept.txt")), QByteArray("kept")); // untouched
}

// ---- ShareDatas

TEST_F(Staging, ThreeBlobsBecomeImageImage1Image2InInputOrder) {
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    log.clear();
    const QStringList staged = ExtensionUtilities::ShareDatas(
        QStringLiteral("Share"), {QByteArray("one"), QByteArray("two"), QByteArray("three")});
    EXPECT_EQ(staged, QStringList({staging() + "/image.png", staging() + "/image_1.png",
                                   staging() + "/image_2.png"}));
    EXPECT_EQ(readFile(staging() + "/image.png"), QByteArray("one"));
    EXPECT_EQ(readFile(staging() + "/image_1.png"), QByteArray("two"));
    EXPECT_EQ(readFile(staging() + "/image_2.png"), QByteArray("three"));
    EXPECT_EQ(entries(staging()), QStringList({"image.png", "image_1.png", "image_2.png"})); // no leftovers
    EXPECT_TRUE(log.lines().isEmpty()) << log.lines().join('\n').toStdString();
}

TEST_F(Staging, LaterCallsAddWithoutOverwriting) {
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    ExtensionUtilities::ShareDatas(QStringLiteral("Share"), {QByteArray("first")});
    const QStringList second =
        ExtensionUtilities::ShareDatas(QStringLiteral("Share"), {QByteArray("second")});
    EXPECT_EQ(second, QStringList(staging() + "/image_1.png"));
    EXPECT_EQ(readFile(staging() + "/image.png"), QByteArray("first"));
}

TEST_F(Staging, ADanglingLinkInTheFolderDoesNotRedirectAWrite) {
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    QTemporaryDir elsewhere;
    const QString target = elsewhere.filePath("stolen.png");
    ASSERT_EQ(::symlink(QFile::encodeName(target).constData(),
                        QFile::encodeName(staging() + "/image.png").constData()),
              0);
    log.clear();
    const QStringList staged =
        ExtensionUtilities::ShareDatas(QStringLiteral("Share"), {QByteArray("secret")});
    EXPECT_EQ(staged, QStringList(staging() + "/image_1.png"));
    EXPECT_FALSE(QFileInfo::exists(target));
    EXPECT_TRUE(QFileInfo(staging() + "/image.png").isSymLink());
    EXPECT_EQ(readFile(staging() + "/image_1.png"), QByteArray("secret"));
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(Staging, ALinkStandingAsTheStagingFolderIsNotWrittenThrough) {
    QTemporaryDir elsewhere;
    ASSERT_EQ(
        ::symlink(QFile::encodeName(elsewhere.path()).constData(), QFile::encodeName(staging()).constData()),
        0);
    const QStringList staged =
        ExtensionUtilities::ShareDatas(QStringLiteral("Share"), {QByteArray("secret")});
    EXPECT_TRUE(staged.isEmpty());
    EXPECT_TRUE(entries(elsewhere.path()).isEmpty());
    EXPECT_EQ(
        log.count(QStringLiteral("[***ERROR***] Error writing file shareDatas cannot write %1/image.png: "
                                 "the staging folder is a symbolic link")
                      .arg(staging())),
        1)
        << log.lines().join('\n').toStdString();
}

TEST_F(Staging, WithoutInitEveryWriteFailsAndIsLoggedPerItem) {
    const QStringList staged =
        ExtensionUtilities::ShareDatas(QStringLiteral("Share"), {QByteArray("a"), QByteArray("b")});
    EXPECT_TRUE(staged.isEmpty());
    const QString line = QStringLiteral("[***ERROR***] Error writing file shareDatas cannot write "
                                        "%1/image.png: No such file or directory")
                             .arg(staging());
    EXPECT_EQ(log.lines(), QStringList({line, line}));
    EXPECT_FALSE(QFileInfo::exists(staging()));
}

TEST_F(Staging, AValueThatIsNotDataStopsTheLoopAndKeepsWhatWasStaged) {
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    log.clear();
    const QStringList staged = ExtensionUtilities::ShareDatas(
        QStringLiteral("Share"), {QByteArray("kept"), QVariant(), QByteArray("never")});
    EXPECT_EQ(staged, QStringList(staging() + "/image.png"));
    EXPECT_EQ(log.lines(), QStringList(QStringLiteral(
                               "[***ERROR***] Exception shareDatas not data: a value of type null")));
    EXPECT_EQ(stagedNames(staging()), QStringList("image.png"));
}

TEST_F(Staging, DatasWaitForTheLockAndGiveUpWithTheCoordinationLine) {
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    log.clear();
    LockHolder holder(staging());
    const QStringList staged = ExtensionUtilities::ShareDatas(QStringLiteral("Share"), {QByteArray("x")});
    EXPECT_TRUE(staged.isEmpty());
    ASSERT_EQ(log.lines().size(), 1);
    EXPECT_TRUE(log.lines().first().startsWith(QStringLiteral("[***ERROR***] Error shareDatas ")))
        << log.lines().first().toStdString();
    EXPECT_TRUE(entries(staging()).isEmpty());
}

TEST_F(Staging, DatasWithoutSharedFolder) {
    ScopedEnvironment none("CORVINA_GROUP_CONTAINER", QByteArray(""));
    EXPECT_TRUE(ExtensionUtilities::ShareDatas(QStringLiteral("Share"), {QByteArray("x")}).isEmpty());
    EXPECT_EQ(log.lines(), QStringList(QStringLiteral("[***ERROR***] Error shareDatas no shared folder")));
}

// ---- ShareFiles

TEST_F(Staging, FilesAreCopiedUnderTheirOwnNames) {
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    log.clear();
    const QString pdf = source("report.pdf", QByteArray("%PDF-1.4 bytes\0with nul", 23));
    const QString notes = source(QStringLiteral("Notizen für Übermorgen"), "plain");
    const QStringList staged = ExtensionUtilities::ShareFiles(QStringLiteral("Share"), {pdf, notes});
    EXPECT_EQ(staged, QStringList({staging() + "/report.pdf",
                                   staging() + QStringLiteral("/Notizen für Übermorgen")}));
    EXPECT_EQ(readFile(staged[0]), readFile(pdf));
    EXPECT_EQ(readFile(staged[1]), QByteArray("plain"));
    EXPECT_EQ(readFile(pdf), QByteArray("%PDF-1.4 bytes\0with nul", 23)); // the source stays
    EXPECT_TRUE(log.lines().isEmpty()) << log.lines().join('\n').toStdString();
}

TEST_F(Staging, ASourceWhoseNameIsTakenGetsTheNextFreeName) {
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    writeFile(staging() + "/report.pdf", "earlier");
    writeFile(staging() + "/report_1.pdf", "earlier too");
    const QStringList staged =
        ExtensionUtilities::ShareFiles(QStringLiteral("Share"), {source("report.pdf", "new")});
    EXPECT_EQ(staged, QStringList(staging() + "/report_2.pdf"));
    EXPECT_EQ(readFile(staging() + "/report.pdf"), QByteArray("earlier"));
    EXPECT_EQ(readFile(staging() + "/report_2.pdf"), QByteArray("new"));
}

TEST_F(Staging, TheSameNameTwiceInOneCall) {
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    QTemporaryDir other;
    writeFile(other.filePath("a.txt"), "second");
    const QStringList staged = ExtensionUtilities::ShareFiles(
        QStringLiteral("Share"), {source("a.txt", "first"), other.filePath("a.txt")});
    EXPECT_EQ(staged, QStringList({staging() + "/a.txt", staging() + "/a_1.txt"}));
    EXPECT_EQ(readFile(staging() + "/a_1.txt"), QByteArray("second"));
}

TEST_F(Staging, AMissingSourceIsLoggedAndTheOthersAreStaged) {
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    log.clear();
    const QString missing = sources.filePath("gone.txt");
    const QStringList staged = ExtensionUtilities::ShareFiles(
        QStringLiteral("Share"), {source("first.txt", "1"), missing, source("last.txt", "3")});
    EXPECT_EQ(staged, QStringList({staging() + "/first.txt", staging() + "/last.txt"}));
    EXPECT_EQ(log.lines(),
              QStringList(QStringLiteral("[***ERROR***] Error writing file shareFiles cannot read %1: "
                                         "No such file or directory")
                              .arg(missing)));
    EXPECT_EQ(stagedNames(staging()), QStringList({"first.txt", "last.txt"}));
}

TEST_F(Staging, AFolderAsSourceIsRefused) {
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    log.clear();
    EXPECT_TRUE(ExtensionUtilities::ShareFiles(QStringLiteral("Share"), {sources.path()}).isEmpty());
    EXPECT_EQ(log.lines(),
              QStringList(QStringLiteral(
                              "[***ERROR***] Error writing file shareFiles cannot read %1: not a plain file")
                              .arg(sources.path())));
    EXPECT_TRUE(entries(staging()).isEmpty());
}

TEST_F(Staging, ADanglingLinkNamedLikeTheSourceIsNotFollowed) {
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    QTemporaryDir elsewhere;
    const QString target = elsewhere.filePath("stolen.txt");
    ASSERT_EQ(::symlink(QFile::encodeName(target).constData(),
                        QFile::encodeName(staging() + "/doc.txt").constData()),
              0);
    const QStringList staged =
        ExtensionUtilities::ShareFiles(QStringLiteral("Share"), {source("doc.txt", "mine")});
    EXPECT_EQ(staged, QStringList(staging() + "/doc_1.txt"));
    EXPECT_FALSE(QFileInfo::exists(target));
}

TEST_F(Staging, AnElementThatIsNoPathStopsTheLoop) {
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    log.clear();
    const QStringList staged = ExtensionUtilities::ShareFiles(
        QStringLiteral("Share"), {source("kept.txt", "k"), QVariant(42), source("never.txt", "n")});
    EXPECT_EQ(staged, QStringList(staging() + "/kept.txt"));
    EXPECT_EQ(log.lines(), QStringList(QStringLiteral(
                               "[***ERROR***] Exception shareFiles not a file path: a value of type int")));
    EXPECT_EQ(stagedNames(staging()), QStringList("kept.txt"));
}

TEST_F(Staging, APathWithANulCharacterStopsTheLoopInsteadOfNamingAnotherFile) {
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    const QString real = source("real.txt", "r");
    log.clear();
    const QString poisoned = real + QChar(0) + QStringLiteral("ignored");
    EXPECT_TRUE(ExtensionUtilities::ShareFiles(QStringLiteral("Share"), {poisoned}).isEmpty());
    ASSERT_EQ(log.lines().size(), 1);
    EXPECT_TRUE(log.lines().first().startsWith(
        QStringLiteral("[***ERROR***] Exception shareFiles file path with a NUL")));
    EXPECT_TRUE(entries(staging()).isEmpty());
}

TEST_F(Staging, FilesWaitForTheLockAndGiveUpWithTheCoordinationLine) {
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    log.clear();
    LockHolder holder(staging());
    EXPECT_TRUE(ExtensionUtilities::ShareFiles(QStringLiteral("Share"), {source("a.txt", "a")}).isEmpty());
    ASSERT_EQ(log.lines().size(), 1);
    EXPECT_TRUE(log.lines().first().startsWith(QStringLiteral("[***ERROR***] Error shareFiles ")))
        << log.lines().first().toStdString();
}

TEST_F(Staging, FilesWithoutInitFailPerItem) {
    const QStringList staged =
        ExtensionUtilities::ShareFiles(QStringLiteral("Share"), {source("a.txt", "a"), source("b.txt", "b")});
    EXPECT_TRUE(staged.isEmpty());
    EXPECT_EQ(log.lines().size(), 2);
    EXPECT_EQ(log.count(QStringLiteral("[***ERROR***] Error writing file shareFiles cannot write %1/a.txt: "
                                       "No such file or directory")
                            .arg(staging())),
              1);
}

TEST_F(Staging, BetaBuildsStageInTheBetaFolder) {
    ScopedEnvironment bundle("CORVINA_BUNDLE_IDENTIFIER", QByteArray("org.corvina.mail.beta.share"));
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    const QStringList staged = ExtensionUtilities::ShareDatas(QStringLiteral("Share"), {QByteArray("b")});
    EXPECT_EQ(staged, QStringList(container.root() + "/SharedDataBeta/Share/image.png"));
}

// ---- the mail application's own items

TEST_F(Staging, NamesOfTheMailApplicationsItemsAreRefusedAndNothingOfItsChanges) {
    writeMailApplicationItems(container.data());
    const std::string before = describeTree(container.data());
    const QString file = source("notes.txt", "notes");
    for (const QString& reserved :
         {QStringLiteral("Today"), QStringLiteral("Accounts.plist"), QStringLiteral("Contacts"),
          QStringLiteral(".Today.lock"), QStringLiteral(".Accounts.plist.lock"),
          QStringLiteral(".Contacts.lock"), QStringLiteral("today"), QStringLiteral("CONTACTS"),
          QStringLiteral(".Share.lock"), QStringLiteral(".hidden")}) {
        log.clear();
        ExtensionUtilities::ShareInit(reserved);
        EXPECT_TRUE(ExtensionUtilities::ShareFiles(reserved, {file}).isEmpty()) << reserved.toStdString();
        EXPECT_TRUE(ExtensionUtilities::ShareDatas(reserved, {QByteArray("png")}).isEmpty())
            << reserved.toStdString();
        EXPECT_EQ(describeTree(container.data()), before) << "after staging into " << reserved.toStdString();
        // One refusal line each, naming the folder.
        const QStringList lines = log.lines();
        ASSERT_EQ(lines.size(), 3) << lines.join('\n').toStdString();
        EXPECT_TRUE(lines[0].startsWith(QStringLiteral("[***ERROR***] shareInit ")))
            << lines[0].toStdString();
        EXPECT_TRUE(lines[1].startsWith(QStringLiteral("[***ERROR***] Error shareFiles ")))
            << lines[1].toStdString();
        EXPECT_TRUE(lines[2].startsWith(QStringLiteral("[***ERROR***] Error shareDatas ")))
            << lines[2].toStdString();
        for (const QString& line : lines)
            EXPECT_TRUE(line.endsWith(QStringLiteral("\"%1\"").arg(reserved))) << line.toStdString();
    }
    EXPECT_TRUE(ExtensionUtilities::StagingFolderNameProblem(QStringLiteral("Today"))
                    ->contains(QStringLiteral("Today")));
    // Names that merely contain one of them are staging folders like any other.
    for (const QString& fine :
         {QStringLiteral("Today2"), QStringLiteral("My Contacts"), QStringLiteral("Share.")})
        EXPECT_FALSE(ExtensionUtilities::StagingFolderNameProblem(fine)) << fine.toStdString();
}

TEST_F(Staging, ALinkedDataFolderIsNeverStagedThrough) {
    // The data folder is a link to a folder holding the mail application's items and a share.
    QTemporaryDir elsewhere;
    writeMailApplicationItems(elsewhere.path());
    ASSERT_TRUE(QDir(container.data()).removeRecursively());
    ASSERT_EQ(::symlink(QFile::encodeName(elsewhere.path()).constData(),
                        QFile::encodeName(container.data()).constData()),
              0);
    const std::string before = describeTree(elsewhere.path());

    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    EXPECT_TRUE(
        ExtensionUtilities::ShareFiles(QStringLiteral("Share"), {source("notes.txt", "n")}).isEmpty());
    EXPECT_TRUE(ExtensionUtilities::ShareDatas(QStringLiteral("Share"), {QByteArray("png")}).isEmpty());

    EXPECT_EQ(describeTree(elsewhere.path()), before); // no file emptied, none added, not even a lock sidecar
    EXPECT_EQ(QFileInfo(container.data()).symLinkTarget(), elsewhere.path());
    const QString reason =
        QStringLiteral("the data folder %1 is a symbolic link; nothing is staged through one")
            .arg(container.data());
    EXPECT_EQ(log.lines(), QStringList({QStringLiteral("[***ERROR***] shareInit ") + reason,
                                        QStringLiteral("[***ERROR***] Error shareFiles ") + reason,
                                        QStringLiteral("[***ERROR***] Error shareDatas ") + reason}));
}

TEST_F(Staging, InitRemovesLinksInTheFolderWithoutFollowingThem) {
    QTemporaryDir elsewhere;
    writeFile(elsewhere.filePath("keep/precious.txt"), "keep me");
    writeFile(staging() + "/sub/deeper/old.txt", "old");
    ASSERT_EQ(::symlink(QFile::encodeName(elsewhere.filePath("keep")).constData(),
                        QFile::encodeName(staging() + "/sub/deeper/folder-link").constData()),
              0);
    ASSERT_EQ(::symlink(QFile::encodeName(elsewhere.filePath("keep/precious.txt")).constData(),
                        QFile::encodeName(staging() + "/file-link").constData()),
              0);
    const std::string before = describeTree(elsewhere.path());
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    EXPECT_TRUE(entries(staging()).isEmpty());
    EXPECT_EQ(describeTree(elsewhere.path()), before);
    EXPECT_TRUE(log.lines().isEmpty()) << log.lines().join('\n').toStdString();
}

TEST_F(Staging, AFolderNestedTooDeeplyIsLeftWithALineInsteadOfExhaustingDescriptors) {
    QString deep = staging();
    for (int level = 0; level < 200; ++level)
        deep += QStringLiteral("/d");
    ASSERT_TRUE(QDir().mkpath(deep));
    writeFile(container.data() + "/" + ConstVars::accountsFile, "the mail app's");
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    const QString error =
        QStringLiteral("cannot remove %1: folders nested more than 128 levels deep").arg(staging());
    EXPECT_EQ(log.lines(), QStringList({QStringLiteral("[***ERROR***] shareInit delete ") + error,
                                        QStringLiteral("[***ERROR***] shareInit create ") + error}));
    EXPECT_EQ(readFile(container.data() + "/" + ConstVars::accountsFile), QByteArray("the mail app's"));
    // A tree within the bound goes entirely.
    ASSERT_TRUE(QDir(staging()).removeRecursively());
    QString within = staging();
    for (int level = 0; level < 100; ++level)
        within += QStringLiteral("/d");
    ASSERT_TRUE(QDir().mkpath(within));
    log.clear();
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    EXPECT_TRUE(entries(staging()).isEmpty());
    EXPECT_TRUE(log.lines().isEmpty()) << log.lines().join('\n').toStdString();
}

// ---- sources that are not plain files, and long names

TEST_F(Staging, AFifoIsRefusedWithoutWaitingForAWriter) {
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    log.clear();
    const QString fifo = sources.filePath("pipe");
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0644), 0);
    auto copying = std::async(
        std::launch::async, [&] { return ExtensionUtilities::ShareFiles(QStringLiteral("Share"), {fifo}); });
    if (copying.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
        // Release a reader stuck in open() so that the test can end, then fail.
        const int writer = ::open(QFile::encodeName(fifo).constData(), O_WRONLY | O_NONBLOCK);
        if (writer >= 0)
            ::close(writer);
        copying.wait();
        FAIL() << "ShareFiles blocked on a FIFO";
    }
    EXPECT_TRUE(copying.get().isEmpty());
    EXPECT_EQ(log.lines(),
              QStringList(QStringLiteral(
                              "[***ERROR***] Error writing file shareFiles cannot read %1: not a plain file")
                              .arg(fifo)));
    EXPECT_TRUE(entries(staging()).isEmpty()); // no temporary left either
}

TEST_F(Staging, NamesUpTo255BytesAreStagedAndTakeACounterWithinThatLength) {
    ExtensionUtilities::ShareInit(QStringLiteral("Share"));
    log.clear();
    QTemporaryDir other;
    for (const int length : {242, 250, 255}) {
        const QString name = QString(length - 4, u'n') + QStringLiteral(".pdf");
        writeFile(other.filePath(name), "second");
        const QStringList staged = ExtensionUtilities::ShareFiles(
            QStringLiteral("Share"), {source(name, "first"), other.filePath(name)});
        ASSERT_EQ(staged.size(), 2) << length << log.lines().join('\n').toStdString();
        EXPECT_EQ(staged[0], staging() + u'/' + name);
        EXPECT_EQ(readFile(staged[0]), QByteArray("first"));
        EXPECT_EQ(readFile(staged[1]), QByteArray("second"));
        EXPECT_TRUE(QFileInfo(staged[1]).fileName().endsWith(QStringLiteral("_1.pdf")));
        EXPECT_LE(QFileInfo(staged[1]).fileName().toUtf8().size(), 255);
    }
    EXPECT_TRUE(log.lines().isEmpty()) << log.lines().join('\n').toStdString();
    EXPECT_EQ(entries(staging()).size(), 6); // no temporary left
}
