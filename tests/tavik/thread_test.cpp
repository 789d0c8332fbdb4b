#include <gtest/gtest.h>

#include <errno.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "tavik/tk_mutex.h"
#include "tavik/tk_os.h"
#include "tavik/tk_thread.h"

namespace {

long msWaiting(int seconds, std::atomic<bool>* done) {
    auto start = std::chrono::steady_clock::now();
    tavik::thread<false>::wait(seconds, done);
    auto took = std::chrono::steady_clock::now() - start;
    return std::chrono::duration_cast<std::chrono::milliseconds>(took).count();
}

// Records the order in which the hooks ran; run() throws.
struct Recorder : tavik::thread<false> {
    void init() override { order += "i"; }
    void run() override {
        order += "r";
        throw 42;
    }
    void release() override { order += "l"; }
    void exception() override { order += "e"; }
    std::string order;
};

TEST(ThreadTest, RunsHooksInOrderRoutesExceptionsAndReportsTheThreadLimit) {
    Recorder failing;
    EXPECT_EQ(0, static_cast<int>(failing.status));  // constructed: waiting to run, 0
    ASSERT_NE(0u, failing.start(nullptr));
    for (int i = 0; i < 500 && failing.status != tavik::_finished; ++i) tavik::linux_sleep(10);
    ASSERT_EQ(tavik::_finished, failing.status);
    EXPECT_EQ("irel", failing.order);

    auto real = tavik::detail::createThread;
    tavik::detail::createThread = [](pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) {
        return EAGAIN;
    };
    Recorder never;
    testing::internal::CaptureStdout();
    EXPECT_EQ(0u, never.start(nullptr));
    std::string out = testing::internal::GetCapturedStdout();
    tavik::detail::createThread = real;
    EXPECT_EQ("Can't create thread because it reached limit number of thread creation\r\n", out);
    EXPECT_EQ(tavik::_waitForRun, never.status);
}

struct SelfDeleting : tavik::thread<true> {
    explicit SelfDeleting(std::atomic<bool>* gone) : gone(gone) {}
    ~SelfDeleting() override { *gone = true; }
    void run() override {}
    std::atomic<bool>* gone;
};

TEST(ThreadTest, WaitEndsWhenTheFlagTurnsTrueOrAfterItsBound) {
    std::atomic<bool> gone{false};
    (new SelfDeleting(&gone))->start(nullptr);
    EXPECT_LT(msWaiting(5, &gone), 2000);  // the flag is read before every 500 ms step
    EXPECT_TRUE(gone);
    EXPECT_LT(msWaiting(3, &gone), 100);  // already true: no step at all
    gone = false;
    long bounded = msWaiting(1, &gone);  // two steps of 500 ms, not three
    EXPECT_GE(bounded, 1000);
    EXPECT_LT(bounded, 1450);
}

struct Counter : tavik::mutex4obj<Counter> {
    long value = 0;
};

TEST(MutexTest, GuardsSerialiseWritersOnTwoThreads) {
    Counter counter;
    tavik::mutex plain;
    long plainValue = 0;
    auto work = [&] {
        for (int i = 0; i < 200000; ++i) {
            if (i % 2 == 0) {
                tavik::mutex4obj<Counter>::blocking lock(&counter);
                ++counter.value;
            } else {
                tavik::_objBlocking guard(&plain);
                ++plainValue;
            }
        }
    };
    std::thread a(work), b(work);
    a.join();
    b.join();
    EXPECT_EQ(200000, counter.value);
    EXPECT_EQ(200000, plainValue);
}

}  // namespace
