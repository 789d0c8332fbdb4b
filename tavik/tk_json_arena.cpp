// The memory of parsed JSON documents: chunks that double in size up to a cap, freed together.
#include "tavik/tk_json_arena.h"

#include <new>

#include "tavik/tk_json.h"

namespace tavik {
namespace jsonMemory {

namespace {
const size_t kFirstChunkMin = 1024;
const size_t kChunkMax = 4 << 20;
}  // namespace

arena* arena::create(size_t bytes) {
    size_t size = bytes < kFirstChunkMin ? kFirstChunkMin : bytes;
    char* memory = static_cast<char*>(::operator new(size));
    chunk* first = ::new (memory) chunk{nullptr};
    arena* a = ::new (memory + sizeof(chunk)) arena();
    a->_cur = memory + sizeof(chunk) + ((sizeof(arena) + 7) & ~static_cast<size_t>(7));
    a->_end = memory + size;
    a->_chunks = first;
    a->_nextSize = size * 2 < kChunkMax ? size * 2 : kChunkMax;
    a->_users = 1;
    return a;
}

void arena::grow(size_t n) {
    size_t size = _nextSize > n + sizeof(chunk) ? _nextSize : n + sizeof(chunk);
    char* memory = static_cast<char*>(::operator new(size));
    _chunks = ::new (memory) chunk{_chunks};
    _cur = memory + sizeof(chunk);
    _end = memory + size;
    _nextSize = size * 2 < kChunkMax ? size * 2 : kChunkMax;
}

void arena::destroy() {
    // The arena lives in its first chunk, the last of the list.
    chunk* c = _chunks;
    while (c) {
        chunk* next = c->next;
        ::operator delete(c);
        c = next;
    }
}

}  // namespace jsonMemory

// Kept apart from the code that makes nodes: seen together, the compiler takes the header
// skipped here for a mismatch of new and delete.
void* jsonObject::operator new(size_t size) {
    char* memory = static_cast<char*>(::operator new(jsonMemory::kNodeHeader + size));
    void* node = memory + jsonMemory::kNodeHeader;
    jsonMemory::arenaOf(node) = nullptr;
    return node;
}

void jsonObject::operator delete(void* node) {
    if (!node) {
        return;
    }
    if (jsonMemory::arena* a = jsonMemory::arenaOf(node)) {
        a->release();
    } else {
        ::operator delete(static_cast<char*>(node) - jsonMemory::kNodeHeader);
    }
}

}  // namespace tavik
