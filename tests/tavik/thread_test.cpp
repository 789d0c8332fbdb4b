#include <gtest/gtest.h>

#include <errno.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "tavik/tk_mutex.h"
#include "tavik/tk_os.h"
#include "tavik/tk_thread.h"

namespace {

using Clock = std::chrono::steady_clock;

long msSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// Records the order in which the hooks ran.
class Recorder : public tavik::thread<false> {
public:
    explicit Recorder(bool fail) : fail(fail) {}
    void init() override { order += "i"; }
    void run() override {
        order += "r";
        if (fail) {
            throw 42;
        }
    }
    void release() override { order += "l"; }
    void exception() override { order += "e"; }

    bool fail;
    std::string order;
};

void waitFinished(tavik::threadBase& t) {
    for (int i = 0; i < 500 && t.status != tavik::_finished; ++i) {
        tavik::linux_sleep(10);
    }
}

TEST(ThreadTest, RunsHooksInOrderAndRoutesExceptions) {
    Recorder ok(false), failing(true);
    ASSERT_NE(0u, ok.start(nullptr));
    ASSERT_NE(0u, failing.start(nullptr));
    waitFinished(ok);
    waitFinished(failing);
    EXPECT_EQ(tavik::_finished, ok.status);
    EXPECT_EQ("irl", ok.order);
    EXPECT_EQ(tavik::_finished, failing.status);
    EXPECT_EQ("irel", failing.order);
}

class SelfDeleting : public tavik::thread<true> {
public:
    explicit SelfDeleting(std::atomic<bool>* gone) : gone(gone) {}
    ~SelfDeleting() override { *gone = true; }
    void run() override {}
    std::atomic<bool>* gone;
};

TEST(ThreadTest, SelfOwningThreadDeletesItselfWhenDone) {
    std::atomic<bool> gone{false};
    (new SelfDeleting(&gone))->start(nullptr);
    tavik::thread<false>::wait(5, &gone);
    EXPECT_TRUE(gone);
}

TEST(ThreadTest, WaitReturnsOnTheFlagOrAfterItsBound) {
    std::atomic<bool> done{true};
    auto start = Clock::now();
    tavik::thread<false>::wait(3, &done);
    EXPECT_LT(msSince(start), 100);

    done = false;
    start = Clock::now();
    tavik::thread<false>::wait(0, &done);
    EXPECT_LT(msSince(start), 100);

    start = Clock::now();
    tavik::thread<false>::wait(1, &done);  // two steps of 500 ms
    EXPECT_GE(msSince(start), 1000);
    EXPECT_LT(msSince(start), 2500);

    std::thread setter([&] {
        tavik::linux_sleep(200);
        done = true;
    });
    start = Clock::now();
    tavik::thread<false>::wait(10, &done);
    EXPECT_LT(msSince(start), 1500);
    setter.join();
}

TEST(ThreadTest, ThreadLimitPrintsItsLineAndReturnsZero) {
    auto real = tavik::detail::createThread;
    tavik::detail::createThread = [](pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) {
        return EAGAIN;
    };
    Recorder never(false);
    testing::internal::CaptureStdout();
    pthread_t handle = never.start(nullptr);
    std::string out = testing::internal::GetCapturedStdout();
    tavik::detail::createThread = real;
    EXPECT_EQ(0u, handle);
    EXPECT_EQ(0u, never.handle);
    EXPECT_EQ("Can't create thread because it reached limit number of thread creation\r\n", out);
    EXPECT_EQ(tavik::_waitForRun, never.status);
}

struct Counter : tavik::mutex4obj<Counter> {
    long value = 0;
};

TEST(MutexTest, GuardsSerialiseWritersOnTwoThreads) {
    Counter counter;
    tavik::mutex plain;
    long plainValue = 0;
    auto work = [&] {
        for (int i = 0; i < 100000; ++i) {
            tavik::mutex4obj<Counter>::blocking lock(&counter);
            ++counter.value;
            tavik::_objBlocking guard(&plain);
            ++plainValue;
        }
    };
    std::thread a(work), b(work);
    a.join();
    b.join();
    EXPECT_EQ(200000, counter.value);
    EXPECT_EQ(200000, plainValue);
}

}  // namespace
