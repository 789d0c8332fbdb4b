// Internal to the JSON facility: the memory of parsed documents.
// The nodes, texts, member records and list items of a parsed document are taken from one
// arena in runs and never given back one by one. The arena counts its users (every node made
// in it, and every object or array that borrows records or list items from it) and frees its
// chunks when the last one lets go, so a node taken out of a document stays valid after the
// document is gone. One thread at a time, as the documents.
#pragma once

#include <stddef.h>

namespace tavik {
namespace jsonMemory {

class arena {
public:
    // A new arena with room for about bytes in its first chunk; the caller is its one user.
    static arena* create(size_t bytes);

    // n bytes, aligned for any node.
    void* take(size_t n) {
        n = (n + 7) & ~static_cast<size_t>(7);
        if (static_cast<size_t>(_end - _cur) < n) {
            grow(n);
        }
        void* p = _cur;
        _cur += n;
        return p;
    }
    // Room for n bytes at the returned place; keep(used) then takes the bytes used.
    char* room(size_t n) {
        n = (n + 7) & ~static_cast<size_t>(7);
        if (static_cast<size_t>(_end - _cur) < n) {
            grow(n);
        }
        return _cur;
    }
    void keep(size_t used) { take(used); }

    void retain() { ++_users; }
    void release(size_t users = 1) {
        _users -= users;
        if (_users == 0) {
            destroy();
        }
    }

private:
    struct chunk {
        chunk* next;
    };
    arena() = default;
    void grow(size_t n);
    void destroy();

    char* _cur;
    char* _end;
    chunk* _chunks;  // newest first; the first chunk holds the arena itself
    size_t _nextSize;
    size_t _users;
};

// Every node is preceded by the arena it was made in, or by null when it came from the heap.
const size_t kNodeHeader = 8;

inline arena*& arenaOf(const void* node) {
    return *reinterpret_cast<arena**>(static_cast<char*>(const_cast<void*>(node)) - kNodeHeader);
}

}  // namespace jsonMemory
}  // namespace tavik
