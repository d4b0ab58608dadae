#include "platform/RegularFile.h"

#include "platform/PropertyList.h"

#include <QFile>
#include <QTemporaryDir>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <future>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace corvina;
using namespace std::chrono_literals;

namespace {

// Runs `read` on another thread; should it block on the FIFO at `fifo`, a writer is opened and
// closed so that it ends, and the test fails instead of hanging.
template <typename Read> auto boundedRead(const QString& fifo, Read read) -> decltype(read()) {
    auto future = std::async(std::launch::async, read);
    if (future.wait_for(3s) != std::future_status::ready) {
        const int writer = ::open(QFile::encodeName(fifo).constData(), O_WRONLY | O_NONBLOCK);
        if (writer >= 0)
            ::close(writer);
        ADD_FAILURE() << "reading " << fifo.toStdString() << " blocked";
    }
    return future.get();
}

QString makeFifo(const QTemporaryDir& dir, const QString& name) {
    const QString path = dir.path() + "/" + name;
    EXPECT_EQ(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    return path;
}

} // namespace

TEST(RegularFile, AFifoIsRefusedWithoutWaitingForAWriter) {
    QTemporaryDir dir;
    const QString fifo = makeFifo(dir, "snapshot.plist");
    const RegularFile file = boundedRead(fifo, [&] { return RegularFile::open(fifo); });
    EXPECT_FALSE(file.isOpen());
    EXPECT_EQ(file.problem(), RegularFile::Problem::NotPlain);
    EXPECT_EQ(file.error(), "cannot read " + fifo + ": not a plain file");
}

TEST(RegularFile, ALinkToAFifoIsRefusedToo) {
    QTemporaryDir dir;
    const QString fifo = makeFifo(dir, "pipe");
    const QString link = dir.path() + "/link.plist";
    ASSERT_TRUE(QFile::link(fifo, link));
    const RegularFile file = boundedRead(fifo, [&] { return RegularFile::open(link); });
    EXPECT_EQ(file.problem(), RegularFile::Problem::NotPlain);
    EXPECT_EQ(file.error(), "cannot read " + link + ": not a plain file");
}

TEST(RegularFile, SocketsDevicesAndFoldersAreNotRead) {
    QTemporaryDir dir;
    const QString socketPath = dir.path() + "/socket";
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(listener, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray native = QFile::encodeName(socketPath);
    ASSERT_LT(static_cast<size_t>(native.size()), sizeof address.sun_path);
    std::memcpy(address.sun_path, native.constData(), static_cast<size_t>(native.size()));
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(RegularFile::open(socketPath).problem(), RegularFile::Problem::CannotOpen); // ENXIO
    ::close(listener);
    EXPECT_EQ(RegularFile::open("/dev/null").problem(), RegularFile::Problem::NotPlain);
    const RegularFile folder = RegularFile::open(dir.path());
    EXPECT_EQ(folder.problem(), RegularFile::Problem::Folder);
    EXPECT_EQ(folder.error(), "cannot read " + dir.path() + ": not a plain file");
    const RegularFile missing = RegularFile::open(dir.path() + "/missing");
    EXPECT_EQ(missing.problem(), RegularFile::Problem::CannotOpen);
    EXPECT_EQ(missing.error(), "cannot read " + dir.path() + "/missing: No such file or directory");
}

TEST(RegularFile, ReadsAWholeFileUpToItsLimit) {
    QTemporaryDir dir;
    QFile out(dir.path() + "/data");
    ASSERT_TRUE(out.open(QIODevice::WriteOnly));
    out.write(QByteArray(10000, 'x'));
    out.close();
    RegularFile file = RegularFile::open(out.fileName());
    ASSERT_TRUE(file.isOpen());
    EXPECT_EQ(file.size(), 10000);
    bool tooLarge = true;
    const auto bytes = file.readAll(10000, &tooLarge);
    ASSERT_TRUE(bytes.has_value());
    EXPECT_EQ(*bytes, QByteArray(10000, 'x'));
    EXPECT_FALSE(tooLarge);
    RegularFile again = RegularFile::open(out.fileName());
    EXPECT_FALSE(again.readAll(9999, &tooLarge).has_value());
    EXPECT_TRUE(tooLarge);
}

TEST(RegularFile, AFileThatGrowsAfterItWasOpenedIsReadNoFurtherThanTheLimit) {
    QTemporaryDir dir;
    QFile out(dir.path() + "/growing");
    ASSERT_TRUE(out.open(QIODevice::WriteOnly));
    out.write(QByteArray(100, 'a'));
    out.flush();
    RegularFile file = RegularFile::open(out.fileName());
    ASSERT_TRUE(file.isOpen());
    out.write(QByteArray(100000, 'b'));
    out.close();
    bool tooLarge = false;
    EXPECT_FALSE(file.readAll(5000, &tooLarge).has_value());
    EXPECT_TRUE(tooLarge);
    RegularFile whole = RegularFile::open(out.fileName());
    const auto bytes = whole.readAll(1000000, &tooLarge);
    ASSERT_TRUE(bytes.has_value());
    EXPECT_EQ(bytes->size(), 100100);
}

TEST(RegularFile, PropertyListReadsOfAFifoEndAtOnceAsUnreadable) {
    QTemporaryDir dir;
    const QString fifo = makeFifo(dir, "Accounts.plist");
    const PropertyList::Result read = boundedRead(fifo, [&] { return PropertyList::readFile(fifo); });
    EXPECT_FALSE(read.ok());
    EXPECT_TRUE(read.unreadable);
    EXPECT_EQ(read.error, "cannot read " + fifo + ": not a plain file");
}
