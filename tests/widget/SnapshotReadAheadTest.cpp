#include "widget/SnapshotReadAhead.h"

#include "platform/PropertyList.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace corvina;

namespace {

// A folder of numbered snapshot-like files: a property list holding its number, every third file
// no property list at all, and the last one named but never written (missing).
struct ReadAheadFiles {
    QTemporaryDir dir;
    QStringList paths;

    explicit ReadAheadFiles(int count) {
        for (int i = 0; i < count; ++i) {
            const QString path = dir.filePath(QStringLiteral("f%1").arg(i));
            paths << path;
            if (i == count - 1) {
                continue;
            }
            QFile file(path);
            EXPECT_TRUE(file.open(QIODevice::WriteOnly));
            if (i % 3 == 2) {
                file.write("no property list");
            } else {
                QString error;
                file.write(PropertyList::write(QVariantMap{{"n", i}}, PropertyList::Format::Binary, &error));
            }
        }
    }
};

// What a document says of the file it came from: its number, "refused" or "unreadable".
QString summary(const PlistDocument& document) {
    if (document.unreadable()) {
        return QStringLiteral("unreadable");
    }
    if (!document.ok()) {
        return QStringLiteral("refused");
    }
    PlistNode n;
    static const char* const keys[] = {"n"};
    document.root().valuesForKeys(keys, 1, &n);
    return n.toVariant().toString();
}

QStringList expected(int count) {
    QStringList out;
    for (int i = 0; i < count; ++i) {
        out << (i == count - 1 ? QStringLiteral("unreadable")
                               : i % 3 == 2 ? QStringLiteral("refused") : QString::number(i));
    }
    return out;
}

} // namespace

TEST(SnapshotReadAhead, GivesTheDocumentsInTheOrderOfTheFiles) {
    for (const int ahead : {1, 3, SnapshotReadAhead::DefaultAhead}) {
        ReadAheadFiles files(50);
        SnapshotReadAhead reading(files.paths, ahead);
        EXPECT_EQ(reading.parsesAhead(), std::thread::hardware_concurrency() > 1);
        QStringList got;
        for (int i = 0; i < files.paths.size(); ++i) {
            PlistDocument document = reading.next();
            got << summary(document);
            reading.release(std::move(document));
        }
        EXPECT_EQ(got, expected(50)) << "ahead " << ahead;
        // past the last file: nothing, and no error
        const PlistDocument after = reading.next();
        EXPECT_FALSE(after.ok());
        EXPECT_TRUE(after.error().isEmpty());
    }
}

TEST(SnapshotReadAhead, TheSameDocumentsAsAParseOfEachFile) {
    ReadAheadFiles files(12);
    SnapshotReadAhead reading(files.paths);
    for (const QString& path : files.paths) {
        const PlistDocument direct = PropertyList::parseFile(path);
        const PlistDocument ahead = reading.next();
        EXPECT_EQ(summary(ahead), summary(direct)) << path.toStdString();
        EXPECT_EQ(ahead.error(), direct.error()) << path.toStdString();
    }
}

TEST(SnapshotReadAhead, OneFileIsParsedByTheCaller) {
    ReadAheadFiles files(2);
    SnapshotReadAhead reading(QStringList{files.paths.first()});
    EXPECT_FALSE(reading.parsesAhead());
    EXPECT_EQ(summary(reading.next()), QStringLiteral("0"));
}

// A load abandoned part way (an exception while making records) ends at once: the thread stops
// after the file it is on, and what was parsed and not taken is freed.
TEST(SnapshotReadAhead, StoppingPartWayLeavesNothingBehind) {
    ReadAheadFiles files(200);
    for (const int taken : {0, 1, 7}) {
        SnapshotReadAhead reading(files.paths, 4);
        for (int i = 0; i < taken; ++i) {
            EXPECT_EQ(summary(reading.next()), expected(200).at(i));
        }
    }
}
