// A PushClient for tests that records every event it receives, with the thread it ran on,
// and lets the test wait for a number of events. Shared by the push client's test programs.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "PushClient/PushClient.h"

// Receive threads are detached and touch their session until they have wholly ended, so the
// tests keep every connected facade until the process ends, as the daemon keeps its own.
template <class T>
T& keepForProcess(T* facade) {
    static std::vector<T*>* kept = new std::vector<T*>;
    kept->push_back(facade);
    return *facade;
}

class RecordingClient : public PushClient {
public:
    void onDisconnected() override { record("disconnected"); }
    void onError(const char* message) override { record(std::string("error:") + message); }
    void onAuthResult(bool passed, const char* token) override {
        record(std::string("auth:") + (passed ? "passed:" : "failed:") + token);
    }
    void onReceive(const char* message) override { record(std::string("receive:") + message); }

    // Waits until at least n events have arrived; returns all events seen so far.
    std::vector<std::string> waitForEvents(size_t n, std::chrono::milliseconds limit) {
        std::unique_lock<std::mutex> guard(lock);
        changed.wait_for(guard, limit, [&] { return events.size() >= n; });
        return events;
    }

    std::vector<std::string> eventsSoFar() { return waitForEvents(0, {}); }

    std::vector<std::thread::id> eventThreads() {
        std::lock_guard<std::mutex> guard(lock);
        return threads;
    }

private:
    void record(const std::string& event) {
        std::lock_guard<std::mutex> guard(lock);
        events.push_back(event);
        threads.push_back(std::this_thread::get_id());
        changed.notify_all();
    }

    std::mutex lock;
    std::condition_variable changed;
    std::vector<std::string> events;
    std::vector<std::thread::id> threads;
};
