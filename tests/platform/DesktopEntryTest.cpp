#include "platform/DesktopEntry.h"

#include "support/FakeHostApp.h"
#include "support/ScopedEnvironment.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::FakeHostApp;

namespace {

DesktopEntry entry(const QString& exec, const QString& extra = {}) {
    return DesktopEntry::parse(
        QStringLiteral("[Desktop Entry]\nType=Application\nName=Mail\nIcon=mail-icon\n%1Exec=%2\n")
            .arg(extra, exec)
            .toUtf8(),
        QStringLiteral("/apps/org.corvina.mail.desktop"));
}

const QStringList kTwo{QStringLiteral("corvina://open?mail=a&messageid=1&folderstandardid=1"),
                       QStringLiteral("corvina://open?mail=b&messageid=2&folderstandardid=1")};

} // namespace

TEST(DesktopEntry, ListCodeGivesOneCommandWithEveryUrlInOrder) {
    const auto lines = entry(QStringLiteral("mail --new-window %U")).commandLines(kTwo);
    ASSERT_TRUE(lines);
    ASSERT_EQ(lines->size(), 1);
    EXPECT_EQ(lines->first(), (QStringList{QStringLiteral("mail"), QStringLiteral("--new-window")} + kTwo));
}

TEST(DesktopEntry, SingleUrlCodeGivesOneCommandPerUrl) {
    const auto lines = entry(QStringLiteral("mail %u")).commandLines(kTwo);
    ASSERT_TRUE(lines);
    ASSERT_EQ(lines->size(), 2);
    EXPECT_EQ(lines->at(0), (QStringList{QStringLiteral("mail"), kTwo.at(0)}));
    EXPECT_EQ(lines->at(1), (QStringList{QStringLiteral("mail"), kTwo.at(1)}));
}

TEST(DesktopEntry, FileCodesTakeLocalPathsAndSkipOtherUrls) {
    const QStringList urls{QStringLiteral("file:///tmp/a%20b.txt"), kTwo.at(0),
                           QStringLiteral("file:///tmp/c")};
    const auto list = entry(QStringLiteral("mail %F")).commandLines(urls);
    ASSERT_TRUE(list);
    EXPECT_EQ(list->first(), (QStringList{QStringLiteral("mail"), QStringLiteral("/tmp/a b.txt"),
                                          QStringLiteral("/tmp/c")}));
    const auto single = entry(QStringLiteral("mail %f")).commandLines(urls);
    ASSERT_TRUE(single);
    EXPECT_EQ(single->size(), 2);
    // With no file among the URLs the program still starts once, without the argument.
    const auto none = entry(QStringLiteral("mail %f")).commandLines(kTwo);
    ASSERT_TRUE(none);
    EXPECT_EQ(*none, (QList<QStringList>{{QStringLiteral("mail")}}));
}

TEST(DesktopEntry, AnAbsolutePathIsAFileForEveryCode) {
    // The mail bridge hands a message file over by its path, spaces and quotes included.
    const QString path = QStringLiteral("/cache/messages/it's \"1\" a.eml");
    for (const char* exec : {"mail %f", "mail %F", "mail %u", "mail %U"}) {
        const auto lines = entry(QLatin1String(exec)).commandLines({path});
        ASSERT_TRUE(lines) << exec;
        EXPECT_EQ(*lines, (QList<QStringList>{{QStringLiteral("mail"), path}})) << exec;
    }
    // a relative one is no path of a file
    const auto relative = entry(QStringLiteral("mail %f")).commandLines({QStringLiteral("a.eml")});
    ASSERT_TRUE(relative);
    EXPECT_EQ(*relative, (QList<QStringList>{{QStringLiteral("mail")}}));
}

TEST(DesktopEntry, NoFieldCodeStartsOnceWithoutUrls) {
    const auto lines = entry(QStringLiteral("mail")).commandLines(kTwo);
    ASSERT_TRUE(lines);
    EXPECT_EQ(*lines, (QList<QStringList>{{QStringLiteral("mail")}}));
}

TEST(DesktopEntry, OtherFieldCodesExpand) {
    const auto lines =
        entry(QStringLiteral("mail %i --name=%c --from %k 100%% %d%D%n%N%v%m %U")).commandLines({kTwo.at(0)});
    ASSERT_TRUE(lines);
    EXPECT_EQ(
        lines->first(),
        (QStringList{QStringLiteral("mail"), QStringLiteral("--icon"), QStringLiteral("mail-icon"),
                     QStringLiteral("--name=Mail"), QStringLiteral("--from"),
                     QStringLiteral("/apps/org.corvina.mail.desktop"), QStringLiteral("100%"), kTwo.at(0)}));
}

TEST(DesktopEntry, QuotingAndEscapes) {
    // In the file: a string escape level (\\ for one backslash, \s for a space), then the Exec
    // quoting level, where a quoted backslash, quote, dollar or backtick is escaped by a backslash.
    const auto lines = entry(QStringLiteral(R"("/opt/my mail/bin" "say \\"hi\\"" "cost \\$5" a\sb "%U" %U)"))
                           .commandLines({kTwo.at(0)});
    ASSERT_TRUE(lines);
    EXPECT_EQ(lines->first(), (QStringList{QStringLiteral("/opt/my mail/bin"), QStringLiteral("say \"hi\""),
                                           QStringLiteral("cost $5"), QStringLiteral("a"),
                                           QStringLiteral("b"), QStringLiteral("%U"), kTwo.at(0)}));
}

TEST(DesktopEntry, UnusableExecLinesGiveNothing) {
    EXPECT_FALSE(entry(QStringLiteral("mail \"unclosed %U")).commandLines(kTwo));
    EXPECT_FALSE(entry(QStringLiteral("mail %x")).commandLines(kTwo));
    EXPECT_FALSE(entry(QStringLiteral("mail 50%")).commandLines(kTwo));
    EXPECT_FALSE(entry(QStringLiteral("   ")).commandLines(kTwo));
    EXPECT_FALSE(DesktopEntry::parse("[Desktop Entry]\nType=Application\n", {}).commandLines(kTwo));
}

TEST(DesktopEntry, KeysOfOtherGroupsAndCommentsAreIgnored) {
    const DesktopEntry e = DesktopEntry::parse("# comment\n[Desktop Action compose]\nExec=wrong %U\n[Desktop "
                                               "Entry]\nName = Mail \nExec=right %U\nExec=later\n",
                                               {});
    EXPECT_EQ(e.value(QStringLiteral("Name")), QStringLiteral("Mail"));
    EXPECT_EQ(e.value(QStringLiteral("Exec")), QStringLiteral("right %U"));
    EXPECT_TRUE(e.value(QStringLiteral("Icon")).isNull());
}

TEST(DesktopEntry, LocateSearchesDataHomeFirstThenDataDirs) {
    FakeHostApp apps; // XDG_DATA_HOME and XDG_DATA_DIRS now private
    EXPECT_TRUE(DesktopEntry::locate(QStringLiteral("org.corvina.mail")).isEmpty());
    apps.installDesktopFile(QStringLiteral("org.corvina.mail.desktop"), "[Desktop Entry]\nExec=a\n");
    EXPECT_EQ(DesktopEntry::locate(QStringLiteral("org.corvina.mail")),
              apps.applicationsFolder() + QStringLiteral("/org.corvina.mail.desktop"));
    // A subfolder stands for a dash in the id.
    apps.installDesktopFile(QStringLiteral("corvina/mail-pro.desktop"), "[Desktop Entry]\nExec=a\n");
    EXPECT_EQ(DesktopEntry::locate(QStringLiteral("corvina-mail-pro")),
              apps.applicationsFolder() + QStringLiteral("/corvina/mail-pro.desktop"));
    EXPECT_TRUE(DesktopEntry::locate(QStringLiteral("../org.corvina.mail")).isEmpty());
}

TEST(DesktopEntry, LocateTakesTheFirstDataDirThatHasIt) {
    QTemporaryDir dir;
    for (const char* sub : {"home/applications", "one/applications", "two/applications"})
        QDir(dir.path()).mkpath(QString::fromLatin1(sub));
    auto write = [&](const QString& folder) {
        QFile f(dir.filePath(folder + QStringLiteral("/applications/org.corvina.mail.desktop")));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write("[Desktop Entry]\nExec=a\n");
    };
    corvina::test::ScopedEnvironment home("XDG_DATA_HOME", dir.filePath(QStringLiteral("home")).toUtf8());
    corvina::test::ScopedEnvironment dirs(
        "XDG_DATA_DIRS",
        (dir.filePath(QStringLiteral("one")) + u':' + dir.filePath(QStringLiteral("two"))).toUtf8());
    write(QStringLiteral("two"));
    EXPECT_EQ(DesktopEntry::locate(QStringLiteral("org.corvina.mail")),
              dir.filePath(QStringLiteral("two/applications/org.corvina.mail.desktop")));
    write(QStringLiteral("one"));
    EXPECT_EQ(DesktopEntry::locate(QStringLiteral("org.corvina.mail")),
              dir.filePath(QStringLiteral("one/applications/org.corvina.mail.desktop")));
    write(QStringLiteral("home"));
    EXPECT_EQ(DesktopEntry::locate(QStringLiteral("org.corvina.mail")),
              dir.filePath(QStringLiteral("home/applications/org.corvina.mail.desktop")));
}

TEST(DesktopEntry, OnlyAStartableApplicationCountsAsInstalled) {
    FakeHostApp apps;
    const QString id = QStringLiteral("org.corvina.mail");
    const QString file = apps.applicationsFolder() + QStringLiteral("/org.corvina.mail.desktop");
    QString problem;
    EXPECT_FALSE(DesktopEntry::application(id, &problem));
    EXPECT_EQ(problem.toStdString(), "no org.corvina.mail.desktop in the applications folders");

    const struct {
        const char* contents;
        const char* problem;
    } refused[] = {
        {"[Desktop Entry]\nType=Application\nHidden=true\nExec=mail %U\n",
         " is hidden (Hidden=true: the entry was deleted)"},
        {"[Desktop Entry]\nType=Link\nURL=https://example.org\nExec=mail %U\n",
         " is not an application (Type=Link)"},
        {"[Desktop Entry]\nName=Mail\nExec=mail %U\n", " is not an application (Type=)"},
        {"[Desktop Entry]\nType=Application\nName=Mail\n", " has no usable Exec line"},
        {"[Desktop Entry]\nType=Application\nExec=mail %x\n", " has no usable Exec line"},
        {"no group at all\n", " cannot be read as a desktop file"},
    };
    for (const auto& entry : refused) {
        apps.installDesktopFile(QStringLiteral("org.corvina.mail.desktop"), entry.contents);
        problem.clear();
        EXPECT_FALSE(DesktopEntry::application(id, &problem)) << entry.contents;
        EXPECT_EQ(problem.toStdString(), file.toStdString() + entry.problem) << entry.contents;
    }

    apps.installDesktopFile(QStringLiteral("org.corvina.mail.desktop"),
                            "[Desktop Entry]\nType=Application\nHidden=false\nExec=mail %U\n");
    const auto startable = DesktopEntry::application(id);
    ASSERT_TRUE(startable);
    EXPECT_EQ(startable->path(), file);
    apps.installDesktopFile(QStringLiteral("org.corvina.mail.desktop"),
                            "[Desktop Entry]\nType=Application\nDBusActivatable=true\n");
    EXPECT_TRUE(DesktopEntry::application(id));
}

TEST(DesktopEntry, AHiddenEntryHidesTheApplicationInTheSystemFoldersToo) {
    QTemporaryDir dir;
    for (const char* sub : {"home/applications", "system/applications"})
        QDir(dir.path()).mkpath(QString::fromLatin1(sub));
    auto write = [&](const QString& folder, const QByteArray& contents) {
        QFile f(dir.filePath(folder + QStringLiteral("/applications/org.corvina.mail.desktop")));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(contents);
    };
    corvina::test::ScopedEnvironment home("XDG_DATA_HOME", dir.filePath(QStringLiteral("home")).toUtf8());
    corvina::test::ScopedEnvironment dirs("XDG_DATA_DIRS", dir.filePath(QStringLiteral("system")).toUtf8());
    write(QStringLiteral("system"), "[Desktop Entry]\nType=Application\nExec=mail %U\n");
    EXPECT_TRUE(DesktopEntry::application(QStringLiteral("org.corvina.mail")));
    // The user deletes the entry: a hidden copy in their own folder.
    write(QStringLiteral("home"), "[Desktop Entry]\nType=Application\nHidden=true\nExec=mail %U\n");
    EXPECT_FALSE(DesktopEntry::application(QStringLiteral("org.corvina.mail")));
}
