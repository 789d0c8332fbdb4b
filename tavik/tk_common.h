// Common text helpers, the scratch-text pool and the single-owner pointer.
//
// Ownership rule used throughout the library: what a new... function returns
// (newString, newFormatString) belongs to the caller, who frees it with
// delete[]; what a make... function or any other scratch-returning helper
// returns belongs to the pool g_rav and stays valid until the same thread has
// made 1000 more scratch texts, or has ended. Read it at once, copy what you
// keep, and never hand it to another thread that keeps it.
// All functions are safe on any thread; the pool locks itself.
#ifndef TAVIK_TK_COMMON_H_
#define TAVIK_TK_COMMON_H_

#include <pthread.h>
#include <stdarg.h>
#include <stddef.h>

#include <type_traits>

#include "tavik/tk_hash.h"
#include "tavik/tk_mutex.h"
#include "tavik/tk_os.h"
#include "tavik/tk_vector.h"

#define TAVIK_PRINTF(f, a) __attribute__((format(printf, f, a)))

namespace tavik {

// The scratch pool: takes heap texts (array new) and frees each one once N
// newer ones have arrived from the same thread. Every thread that makes
// scratch texts gets a slot of its own, released with its texts when the
// thread ends, so one thread's burst never frees another thread's results.
template <int N>
class charRav {
public:
    class threadSlot {
    public:
        virtual ~threadSlot() {}
        vector<char*, true> slots;  // oldest first; owns the texts
    };

    charRav() : mainThreadId(currentThreadId()) { threadSlots.put(mainThreadId, new threadSlot); }
    virtual ~charRav() { removeThreadSlot(); }
    charRav(const charRav&) = delete;
    charRav& operator=(const charRav&) = delete;

    // Pools p (a heap text made with array new) and returns it unchanged.
    virtual char* operator[](char* p) {
        if (p == nullptr) {
            return nullptr;
        }
        _objBlocking guard(&sync);
        threadSlot* slot = threadSlots.get(currentThreadId());
        if (slot == nullptr) {
            slot = addSlotLocked();
        }
        slot->slots.add(p);
        while (slot->slots.size() >= static_cast<size_t>(N) + 1) {
            slot->slots.removeFirst();
        }
        return p;
    }

    // Gives the calling thread a slot of its own (done on its first text anyway).
    void createThreadSlot() {
        _objBlocking guard(&sync);
        if (!threadSlots.exist(currentThreadId())) {
            addSlotLocked();
        }
    }

    // Frees the calling thread's slot and every text in it.
    void removeThreadSlot() {
        _objBlocking guard(&sync);
        threadSlots.remove(currentThreadId());
    }

    long long mainThreadId;
    mutex sync;
    hash<long long, threadSlot*, false, true, false, 1000> threadSlots;

private:
    // Releases the slot of a thread other than the pool's own when it ends.
    struct exitReleaser {
        charRav* pool = nullptr;
        ~exitReleaser() {
            if (pool != nullptr) {
                pool->removeThreadSlot();
            }
        }
    };

    threadSlot* addSlotLocked() {
        threadSlot* slot = new threadSlot;
        threadSlots.put(currentThreadId(), slot);
        static thread_local exitReleaser releaser;
        releaser.pool = this;
        return slot;
    }

    static long long currentThreadId() { return static_cast<long long>(pthread_self()); }
};

// The process-wide pool. It is never destroyed, so threads still running
// while the process exits can keep using it.
extern charRav<1000>& g_rav;

// Single owner of a heap object (texts are freed with delete[]); freeze()
// hands ownership back to the caller.
template <typename T>
class smartPtr {
public:
    smartPtr() : value(nullptr), freezed(false) {}
    smartPtr(T* p) : value(p), freezed(false) {}
    virtual void release() {
        if (value != nullptr && !freezed) {
            dispose(value);
            value = nullptr;
        }
    }
    virtual ~smartPtr() { release(); }
    smartPtr(const smartPtr&) = delete;
    smartPtr& operator=(const smartPtr&) = delete;

    virtual smartPtr& operator=(T* p) {
        if (value != nullptr && !freezed && value != p) {
            dispose(value);
        }
        value = p;
        return *this;
    }
    virtual T* operator->() { return value; }
    virtual operator T*() { return value; }
    virtual T* getPtr() { return value; }
    virtual T** getSelfPtr() { return &value; }
    virtual T* freeze() {
        freezed = true;
        return value;
    }

    T* value;
    bool freezed;

private:
    static void dispose(T* p) {
        if constexpr (std::is_same<T, char>::value) {
            delete[] p;
        } else {
            delete p;
        }
    }
};

// Heap texts, owned by the caller.
char* newString(const char* s);                      // null for null s
char* newString(const char* s, size_t n);            // n bytes + NUL; null if s null or n 0
char* newString(const char* s, int from, size_t n);  // also null if from < 0
char* newFormatString(const char* fmt, ...) TAVIK_PRINTF(1, 2);  // null for null fmt
char* newFormatStringV(const char* fmt, va_list args);

// Scratch texts, owned by the pool.
char* makeString(const char* s);
char* makeString(const char* s, size_t n);            // null when n is 0
char* makeString(const char* s, int from, size_t n);  // null when n is 0
char* makeFormatString(const char* fmt, ...) TAVIK_PRINTF(1, 2);

// Scratch copies; only the blank (0x20) is trimmed. Null in, null out.
char* trim(const char* s);
char* ltrim(const char* s);
char* rtrim(const char* s);
char* replaceWith(const char* s, char from, char to);
char* safeVF(const char* s);             // every % doubled: safe to use as a format
char* killToken(const char* s, char c);  // every c removed

// In place: converts s and returns it.
char* strupr(char* s);
char* strlwr(char* s);

// Hexadecimal and octal digits, last character lowest. xtoi/otoi/otoll
// reject the whole text (0) on one bad digit; xtoll counts it as -1.
unsigned int xtoi(const char* s);
long long xtoll(const char* s);
unsigned int otoi(const char* s);
long long otoll(const char* s);

long long getLongLong(long low, long high);  // high's low 32 bits << 32 | low
long getLowLong(long long v);
long getHighLong(long long v);  // bits 32 to 63

// prefix followed by a number that is new on each call. The text lives in a
// per-thread buffer, overwritten by the same thread's next call.
char* makeUniqueName(const char* prefix);

namespace uuid {
// 32 lower-case hexadecimal digits of a random UUID, as a scratch text.
char* randomUUID();
}  // namespace uuid

inline const char* uni_format(const char* s) {
    return s;
}

}  // namespace tavik

#endif  // TAVIK_TK_COMMON_H_
