#include "widget/FileWatch.h"

#include <QDir>
#include <QFile>
#include <QSet>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace corvina;

namespace {

void write(const QString& path, const QByteArray& bytes, QIODevice::OpenMode mode = QIODevice::WriteOnly) {
    QFile file(path);
    ASSERT_TRUE(file.open(mode));
    file.write(bytes);
}

} // namespace

TEST(FileWatch, AFileInAFolderNotYetMadeIsFollowedFromTheFolderAbove) {
    QTemporaryDir dir;
    const QString folder = dir.filePath(QStringLiteral("state/corvina"));
    const QString path = folder + QStringLiteral("/status.json");
    FileWatch watch(path);
    watch.start();
    EXPECT_EQ(watch.watchedPaths(), QStringList{dir.path()});
    QSignalSpy changed(&watch, &FileWatch::changed);

    // Made by a program that makes its folders first: one change, and the folder and file watched.
    ASSERT_TRUE(QDir().mkpath(folder));
    write(path, "{}");
    ASSERT_TRUE(changed.wait(3000));
    if (watch.watchedPaths().size() < 2) {
        ASSERT_TRUE(changed.wait(3000)); // the folder "state" came first, "corvina" in a second step
    }
    const QStringList watched = watch.watchedPaths();
    EXPECT_EQ(QSet<QString>(watched.cbegin(), watched.cend()), (QSet<QString>{folder, path}));
}

TEST(FileWatch, WritesInPlaceAndReplacementsAreEachOneChange) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("settings.conf"));
    write(path, "a=1\n");
    FileWatch watch(path);
    watch.start();
    QSignalSpy changed(&watch, &FileWatch::changed);

    // Emptied, then written: gathered into one change, read once it is whole.
    write(path, "", QIODevice::WriteOnly | QIODevice::Truncate);
    write(path, "a=2\n", QIODevice::WriteOnly | QIODevice::Truncate);
    ASSERT_TRUE(changed.wait(3000));
    EXPECT_FALSE(changed.wait(600));
    EXPECT_EQ(changed.size(), 1);

    // Replaced by a new file renamed over it: seen, and the new file is the one watched.
    const QString next = dir.filePath(QStringLiteral("settings.conf.new"));
    write(next, "a=3\n");
    ASSERT_TRUE(QFile::remove(path));
    ASSERT_TRUE(QFile::rename(next, path));
    ASSERT_TRUE(changed.wait(3000));
    write(path, "a=4\n", QIODevice::WriteOnly | QIODevice::Truncate);
    ASSERT_TRUE(changed.wait(3000)) << "the replacing file was not watched";
}
