#include "tavik/tk_thread.h"

#include <cxxabi.h>
#include <errno.h>
#include <stdio.h>

#include "tavik/tk_os.h"

namespace tavik {

namespace {

void runHooks(threadBase* t) {
    t->init();
    t->status = _running;
    try {
        t->run();
    } catch (abi::__forced_unwind&) {
        throw;  // thread cancellation must unwind on
    } catch (...) {
        t->exception();
    }
    t->release();
    t->status = _finished;
}

}  // namespace

void* tavik_defaultStaticThread(void* obj) {
    runHooks(static_cast<threadBase*>(obj));
    pthread_exit(nullptr);
}

void* tavik_defaultThread(void* obj) {
    threadBase* t = static_cast<threadBase*>(obj);
    runHooks(t);
    delete t;
    pthread_exit(nullptr);
}

namespace detail {

int (*createThread)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) = pthread_create;

pthread_t startThread(void* (*entry)(void*), void* obj) {
    pthread_t handle = 0;
    int rc = createThread(&handle, nullptr, entry, obj);
    if (rc == EAGAIN) {
        puts("Can't create thread because it reached limit number of thread creation\r");
        return 0;
    }
    if (rc != 0) {
        return 0;
    }
    pthread_detach(handle);
    return handle;
}

}  // namespace detail

template <>
void thread<false>::wait(int seconds, const std::atomic<bool>* done) {
    for (int i = 0; i < seconds * 2 && !*done; ++i) {
        linux_sleep(500);
    }
}

template <>
void thread<true>::wait(int seconds, const std::atomic<bool>* done) {
    thread<false>::wait(seconds, done);
}

}  // namespace tavik
