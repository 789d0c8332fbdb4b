// Mutual exclusion: plain non-recursive POSIX mutexes and scoped guards.
//   mutex (__mutex)        a mutex object; lock()/unlock()/tryLock().
//   _objBlocking           locks a mutex for the rest of a scope.
//   mutex4obj<T>           mixin giving each T object its own mutex;
//                          mutex4obj<T>::blocking locks an object for a scope.
//   mutex4class<T>         marker base for classes that want one lock for all
//                          instances; it carries no lock.
// Locks are never taken twice by one thread: a nested take deadlocks.
#ifndef TAVIK_TK_MUTEX_H_
#define TAVIK_TK_MUTEX_H_

#include <pthread.h>

namespace tavik {

class __mutex {
public:
    __mutex() { pthread_mutex_init(&_mutex, nullptr); }
    virtual ~__mutex() { pthread_mutex_destroy(&_mutex); }
    __mutex(const __mutex&) = delete;
    __mutex& operator=(const __mutex&) = delete;

    void lock() { pthread_mutex_lock(&_mutex); }
    void unlock() { pthread_mutex_unlock(&_mutex); }
    // Takes the mutex only when it is free at once; true when taken.
    bool tryLock() { return pthread_mutex_trylock(&_mutex) == 0; }

    pthread_mutex_t _mutex;
};
typedef __mutex mutex;

class _objBlocking {
public:
    explicit _objBlocking(mutex* m) : pObj(m) { pObj->lock(); }
    virtual ~_objBlocking() { pObj->unlock(); }
    _objBlocking(const _objBlocking&) = delete;
    _objBlocking& operator=(const _objBlocking&) = delete;

    mutex* pObj;
};

template <typename T>
class mutex4obj {
public:
    mutex4obj() { pthread_mutex_init(&_mutex, nullptr); }
    virtual ~mutex4obj() { pthread_mutex_destroy(&_mutex); }
    mutex4obj(const mutex4obj&) = delete;
    mutex4obj& operator=(const mutex4obj&) = delete;

    // Locks the mutex that obj inherits from mutex4obj<T> until destroyed.
    class blocking {
    public:
        explicit blocking(T* obj) : pObj(obj) { pthread_mutex_lock(lockOf(pObj)); }
        virtual ~blocking() { pthread_mutex_unlock(lockOf(pObj)); }
        blocking(const blocking&) = delete;
        blocking& operator=(const blocking&) = delete;

        T* pObj;

    private:
        static pthread_mutex_t* lockOf(T* obj) { return &static_cast<mutex4obj<T>*>(obj)->_mutex; }
    };

    pthread_mutex_t _mutex;
};

template <typename T>
class mutex4class {};

}  // namespace tavik

#endif  // TAVIK_TK_MUTEX_H_
