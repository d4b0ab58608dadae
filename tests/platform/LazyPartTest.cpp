#include "platform/LazyPart.h"

#include <atomic>
#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <vector>

using namespace corvina;

namespace {

std::atomic<int> made{0};
std::atomic<int> released{0};

struct Counted {
    Counted() { made.fetch_add(1); }
    ~Counted() { released.fetch_add(1); }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    int value = 0;
};

} // namespace

TEST(LazyPart, NothingIsMadeUntilAskedAndThenAlwaysTheSame) {
    made = 0;
    released = 0;
    {
        LazyPart<Counted> part;
        EXPECT_EQ(part.ifMade(), nullptr);
        EXPECT_EQ(made.load(), 0);
        Counted& first = part.made();
        first.value = 7;
        EXPECT_EQ(&part.made(), &first);
        EXPECT_EQ(part.ifMade(), &first);
        EXPECT_EQ(part.ifMade()->value, 7);
        EXPECT_EQ(made.load(), 1);
    }
    EXPECT_EQ(released.load(), 1);
}

// Threads that all make the part at once get one and the same; the parts made in vain are
// released at once, and the one kept goes with its holder.
TEST(LazyPart, FirstCallersAtOnceAreSynchronized) {
    made = 0;
    released = 0;
    constexpr int Threads = 4;
    for (int round = 0; round < 50; ++round) {
        std::set<Counted*> seen;
        {
            LazyPart<Counted> part;
            std::atomic<int> ready{0};
            std::vector<Counted*> got(Threads, nullptr);
            std::vector<std::thread> threads;
            for (int t = 0; t < Threads; ++t) {
                threads.emplace_back([&part, &ready, &got, t] {
                    ready.fetch_add(1);
                    while (ready.load() < Threads) {
                    }
                    got[static_cast<size_t>(t)] = &part.made();
                });
            }
            for (std::thread& thread : threads) {
                thread.join();
            }
            seen.insert(got.begin(), got.end());
            EXPECT_EQ(made.load() - released.load(), 1) << "only the kept part is alive";
        }
        EXPECT_EQ(seen.size(), 1u);
        EXPECT_EQ(made.load(), released.load());
    }
}
