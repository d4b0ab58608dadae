// The watch of the programs the bridge leaves running: real child processes (sh, sleep), each
// reported once and reaped, with a process descriptor and by looking now and then.
#include "bridge/commands/ChildWatch.h"

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QPointer>
#include <QThread>
#include <QTimer>
#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <spawn.h>
#include <sys/wait.h>
#include <vector>

extern char** environ;

using namespace corvina;

namespace {

// Starts `arguments` as a child of the test, which nobody reaps but the watch; -1 when it cannot.
pid_t start(std::vector<const char*> arguments) {
    arguments.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawnp(&pid, arguments.front(), nullptr, nullptr, const_cast<char* const*>(arguments.data()),
                     environ) != 0)
        return -1;
    return pid;
}

// True while `pid` is a child of the test that nobody reaped yet (running or a zombie).
bool unreaped(pid_t pid) {
    siginfo_t info{};
    return ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

// Turns the event loop until `condition` holds, at most 10 s.
template <typename Condition> bool turnUntil(Condition condition) {
    QDeadlineTimer deadline(10000);
    while (!condition() && !deadline.hasExpired()) {
        QEventLoop loop;
        QTimer::singleShot(20, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return condition();
}

struct Reports {
    std::vector<std::pair<ChildWatch::State, int>> made;
    ChildWatch::Report report() {
        return [this](ChildWatch::State state, int status) { made.emplace_back(state, status); };
    }
};

// With a process descriptor, and by looking every PollMs as on a kernel without them.
class ChildWatchTest : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override { watch.setUseProcessDescriptors(GetParam()); }

    ChildWatch watch;
    Reports reports;
};

INSTANTIATE_TEST_SUITE_P(Both, ChildWatchTest, ::testing::Values(true, false),
                         [](const auto& info) { return info.param ? "Pidfd" : "Polling"; });

TEST_P(ChildWatchTest, AChildThatEndsWithinTheSettleTimeIsReportedWithItsStatusAndReaped) {
    const pid_t pid = start({"sh", "-c", "exit 3"});
    ASSERT_GT(pid, 0);
    watch.watch(pid, 60000, reports.report());
    EXPECT_EQ(watch.count(), 1);
    EXPECT_TRUE(reports.made.empty()) << "reported from within watch()";

    ASSERT_TRUE(turnUntil([&] { return !reports.made.empty(); }));
    ASSERT_EQ(reports.made.size(), 1u);
    EXPECT_EQ(reports.made[0].first, ChildWatch::State::Ended);
    ASSERT_TRUE(WIFEXITED(reports.made[0].second));
    EXPECT_EQ(WEXITSTATUS(reports.made[0].second), 3);
    EXPECT_EQ(watch.count(), 0);
    EXPECT_FALSE(unreaped(pid));
}

TEST_P(ChildWatchTest, AChildKilledWithinTheSettleTimeIsReportedSo) {
    const pid_t pid = start({"sleep", "1000"});
    ASSERT_GT(pid, 0);
    watch.watch(pid, 60000, reports.report());
    ASSERT_EQ(::kill(pid, SIGKILL), 0);

    ASSERT_TRUE(turnUntil([&] { return !reports.made.empty(); }));
    ASSERT_EQ(reports.made.size(), 1u);
    EXPECT_EQ(reports.made[0].first, ChildWatch::State::Ended);
    ASSERT_TRUE(WIFSIGNALED(reports.made[0].second));
    EXPECT_EQ(WTERMSIG(reports.made[0].second), SIGKILL);
}

TEST_P(ChildWatchTest, AChildStillRunningAtTheSettleTimeIsReportedOnceAndReapedWhenItEnds) {
    const pid_t pid = start({"sleep", "1000"});
    ASSERT_GT(pid, 0);
    watch.watch(pid, 50, reports.report());
    ASSERT_TRUE(turnUntil([&] { return !reports.made.empty(); }));
    ASSERT_EQ(reports.made.size(), 1u);
    EXPECT_EQ(reports.made[0].first, ChildWatch::State::Running);
    EXPECT_EQ(watch.count(), 1);
    EXPECT_TRUE(unreaped(pid));

    ASSERT_EQ(::kill(pid, SIGTERM), 0);
    EXPECT_TRUE(turnUntil([&] { return watch.count() == 0; }));
    EXPECT_FALSE(unreaped(pid)) << "the child stayed a zombie";
    EXPECT_EQ(reports.made.size(), 1u) << "reported twice";
}

TEST_P(ChildWatchTest, AChildReapedBySomeoneElseIsReportedAsEndedWithItsStatusLost) {
    const pid_t pid = start({"sh", "-c", "exit 0"});
    ASSERT_GT(pid, 0);
    watch.watch(pid, 60000, reports.report());
    // Reaped here before the event loop lets the watch look.
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);

    ASSERT_TRUE(turnUntil([&] { return !reports.made.empty(); }));
    ASSERT_EQ(reports.made.size(), 1u);
    EXPECT_EQ(reports.made[0].first, ChildWatch::State::StatusLost);
    EXPECT_EQ(watch.count(), 0);
}

TEST_P(ChildWatchTest, ChildrenAreToldApart) {
    const pid_t fails = start({"sh", "-c", "exit 7"});
    const pid_t runs = start({"sleep", "1000"});
    ASSERT_GT(fails, 0);
    ASSERT_GT(runs, 0);
    Reports failing;
    Reports running;
    watch.watch(fails, 60000, failing.report());
    watch.watch(runs, 60000, running.report());
    EXPECT_EQ(watch.count(), 2);

    ASSERT_TRUE(turnUntil([&] { return !failing.made.empty(); }));
    EXPECT_EQ(WEXITSTATUS(failing.made[0].second), 7);
    EXPECT_TRUE(running.made.empty());
    EXPECT_EQ(watch.count(), 1);

    ASSERT_EQ(::kill(runs, SIGKILL), 0);
    ASSERT_TRUE(turnUntil([&] { return !running.made.empty(); }));
    EXPECT_EQ(WTERMSIG(running.made[0].second), SIGKILL);
    EXPECT_EQ(failing.made.size(), 1u);
}

TEST_P(ChildWatchTest, HandedOverChildrenAreReapedUnderTheKeeperWithoutAReportAndTheWatchThenGoes) {
    QObject keeper;
    auto owner = std::make_unique<QObject>();
    auto* handed = new ChildWatch(owner.get());
    handed->setUseProcessDescriptors(GetParam());
    const pid_t pid = start({"sleep", "1000"});
    ASSERT_GT(pid, 0);
    handed->watch(pid, 50, reports.report());

    handed->handOver(&keeper);
    owner.reset();
    QPointer<ChildWatch> alive(handed);
    ASSERT_FALSE(alive.isNull()) << "went with its owner";
    EXPECT_EQ(alive->parent(), &keeper);

    // The settle time passes unreported: a timer started after it, due ten times later, has fired.
    bool later = false;
    QTimer::singleShot(500, Qt::PreciseTimer, &keeper, [&later] { later = true; });
    ASSERT_TRUE(turnUntil([&] { return later; }));
    EXPECT_TRUE(reports.made.empty());
    // The child is still reaped when it ends.
    EXPECT_TRUE(unreaped(pid));
    ASSERT_EQ(::kill(pid, SIGTERM), 0);
    EXPECT_TRUE(turnUntil([&] { return alive.isNull(); })) << "the watch stayed after its last child";
    EXPECT_FALSE(unreaped(pid)) << "the child stayed a zombie";
    EXPECT_TRUE(reports.made.empty());
}

TEST(ChildWatch, WithNothingRunningAHandedOverWatchStaysWithItsOwner) {
    QObject keeper;
    QObject owner;
    auto* watch = new ChildWatch(&owner);
    watch->handOver(&keeper);
    EXPECT_EQ(watch->parent(), &owner);
}

TEST(ChildWatch, AKeeperOnAnotherThreadTakesNothing) {
    QObject owner;
    auto* watch = new ChildWatch(&owner);
    const pid_t pid = start({"sleep", "1000"});
    ASSERT_GT(pid, 0);
    watch->watch(pid, 60000, {});
    QThread other;
    QObject keeper;
    keeper.moveToThread(&other);
    watch->handOver(&keeper);
    EXPECT_EQ(watch->parent(), &owner);
    ::kill(pid, SIGKILL);
    int status = 0;
    ::waitpid(pid, &status, 0);
}

} // namespace
