// Library threads. A class becomes a thread by deriving from thread<false>
// and overriding run(); start() launches a detached POSIX thread that calls
// init(), run(), release() in that order, routing an exception that leaves
// run() to exception(). Nobody joins a library thread: run() must watch a
// flag its owner sets, and the owner waits for it with wait().
// thread<false> objects stay owned by their creator; thread<true> objects
// delete themselves when their thread ends.
#ifndef TAVIK_TK_THREAD_H_
#define TAVIK_TK_THREAD_H_

#include <pthread.h>

#include <atomic>

namespace tavik {

enum tThreadStatus { _waitForRun = 0, _running = 1, _finished = 2 };

// The common part of every library thread; the entry functions below see it.
class threadBase {
public:
    threadBase() : handle(0), status(_waitForRun) {}
    virtual ~threadBase() {}
    threadBase(const threadBase&) = delete;
    threadBase& operator=(const threadBase&) = delete;

    virtual void init() {}
    virtual void run() = 0;
    virtual void release() {}
    virtual void exception() {}

    pthread_t handle;                   // 0 when none was started or creation failed
    std::atomic<tThreadStatus> status;  // written by the thread itself
};

// Thread entries: run the hooks of the threadBase given as argument.
// tavik_defaultThread deletes the object afterwards; the static one leaves it.
void* tavik_defaultStaticThread(void* obj);
void* tavik_defaultThread(void* obj);

namespace detail {
// Creates a detached thread on entry(obj); 0 on success, else the pthread
// error, after printing the thread-limit line for EAGAIN.
pthread_t startThread(void* (*entry)(void*), void* obj);
// The thread-creation call; tests replace it to simulate resource limits.
extern int (*createThread)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
}  // namespace detail

template <bool autoDelete>
class thread : public threadBase {
public:
    // Starts the thread; arg is not passed on. Returns the handle, 0 on failure.
    pthread_t start(void* /*arg*/) {
        if (autoDelete) {
            // The object may already be gone when the call returns: touch nothing.
            return detail::startThread(tavik_defaultThread, this);
        }
        handle = detail::startThread(tavik_defaultStaticThread, this);
        return handle;
    }

    // Sleeps in 500 ms steps until *done is true, at most `seconds` seconds.
    static void wait(int seconds, const std::atomic<bool>* done);
};

}  // namespace tavik

#endif  // TAVIK_TK_THREAD_H_
