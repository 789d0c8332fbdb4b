// hash<A, T, ...>: a map kept as a flat array of {owner, key, value} records,
// sorted lazily and searched by bisection. Keys are long long values or texts
// (char*, compared with strcmp, or strcasecmp when ignoreCase is set; a null
// key sorts first). With delKey the hash owns its key texts (array delete),
// with delValue its values (delete through their virtual destructor).
// put() of an existing key replaces it and disposes of the old owned parts.
// The records may also be borrowed (adopt): storage the hash uses but never
// frees, such as a parsed document's arena; growing moves them to its own.
// Not locked: one thread at a time.
#ifndef TAVIK_TK_HASH_H_
#define TAVIK_TK_HASH_H_

#include <stddef.h>
#include <string.h>
#include <strings.h>

#include <algorithm>
#include <type_traits>

namespace tavik {

class baseHash {
public:
    baseHash() : count(0), _size(0), neededSort(false) {}
    virtual int hashkeyCompare(void* a, void* b) = 0;                // two records
    virtual int hashkeyCompare4search(void* key, void* record) = 0;  // key vs record
    virtual ~baseHash() {}

    size_t count;     // records in use
    size_t _size;     // records allocated
    bool neededSort;  // records appended since the last sort
};

template <typename A, typename T>
struct _tag_hashData {
    baseHash* base;  // owner: lets context-free sort callbacks reach the hash
    A key;
    T value;
};

// qsort/bsearch-style callbacks: every record starts with its owner pointer.
inline int defaultHashkeyCompare(const void* a, const void* b) {
    baseHash* owner = *static_cast<baseHash* const*>(a);
    return owner->hashkeyCompare(const_cast<void*>(a), const_cast<void*>(b));
}
inline int defaultHashkeyCompare4search(const void* key, const void* record) {
    baseHash* owner = *static_cast<baseHash* const*>(record);
    return owner->hashkeyCompare4search(const_cast<void*>(key), const_cast<void*>(record));
}

namespace detail {
// Negative, zero or positive like strcmp.
template <bool ignoreCase>
inline int compareHashKeys(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) {
        return a == b ? 0 : (a == nullptr ? -1 : 1);
    }
    return ignoreCase ? strcasecmp(a, b) : strcmp(a, b);
}
template <bool ignoreCase, typename N, typename = std::enable_if_t<std::is_arithmetic<N>::value>>
inline int compareHashKeys(N a, N b) {
    return a == b ? 0 : (a > b ? 1 : -1);
}

// Equality alone, for scans: texts whose first bytes differ are told apart without a call.
template <bool ignoreCase>
inline bool equalHashKeys(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) {
        return a == b;
    }
    if (!ignoreCase && a[0] != b[0]) {
        return false;
    }
    return compareHashKeys<ignoreCase>(a, b) == 0;
}
template <bool ignoreCase, typename N, typename = std::enable_if_t<std::is_arithmetic<N>::value>>
inline bool equalHashKeys(N a, N b) {
    return a == b;
}
}  // namespace detail

template <typename A, typename T, bool delKey, bool delValue, bool ignoreCase,
          size_t increaseStep = 1000>
class hash : public baseHash {
public:
    typedef _tag_hashData<A, T> hashData;

    hash() : hash(increaseStep) {}
    // Room for capacity records from the start (at least one).
    explicit hash(size_t capacity)
        : _data(new hashData[std::max<size_t>(capacity, 1)]()), sortedCount(0), ownsData(true) {
        _size = std::max<size_t>(capacity, 1);
    }
    // No records yet: nothing is allocated until the first put() or adopt().
    struct noRecords {};
    explicit hash(noRecords) : _data(nullptr), sortedCount(0), ownsData(false) {}
    ~hash() override {
        removeAll();
        if (ownsData) {
            delete[] _data;
        }
    }
    hash(const hash&) = delete;
    hash& operator=(const hash&) = delete;

    // Record comparisons: -1, 0 or 1.
    int hashkeyCompare(void* a, void* b) override {
        return sign(compare(static_cast<hashData*>(a)->key, static_cast<hashData*>(b)->key));
    }
    int hashkeyCompare4search(void* key, void* record) override {
        return sign(compare(*static_cast<A*>(key), static_cast<hashData*>(record)->key));
    }

    // Adds or replaces; the hash takes the key and value as given. Always 1.
    int put(A key, T value) {
        if (hashData* old = locate(key)) {
            disposeKey(old->key);
            disposeValue(old->value);
            old->key = key;  // compares equal, so the order holds
            old->value = value;
            return 1;
        }
        append(key, value);
        return 1;
    }

    // Adds a key the caller knows to be absent (find() said so), skipping
    // put()'s duplicate check.
    void append(A key, T value) {
        if (count + 1 >= _size) {
            grow();
        }
        _data[count] = hashData{this, key, value};
        ++count;
        neededSort = true;
        // Appends stay unsorted until the next lookup, but a long unsorted
        // tail would make each put's duplicate check slow: merge it once it
        // outgrows the square root of the size (32 at least).
        size_t tail = count - sortedCount;
        if (tail > 32 && tail * tail > count) {
            sort();
        }
    }

    T get(A key) {
        hashData* r = search(key);
        return r ? r->value : T();
    }

    bool exist(A key) { return search(key) != nullptr; }

    // The record of key, or null. Sorts first.
    hashData* search(A key) {
        if (neededSort) {
            sort();
        }
        return bisect(key);
    }

    // The record of key, or null, without sorting: a lookup that leaves recent
    // appends where they are (cheap for maps that grow between lookups).
    hashData* find(A key) { return locate(key); }

    // The record at index in key order, or null past the end. Sorts first.
    hashData* at(size_t index) {
        sort();
        return index < count ? &_data[index] : nullptr;
    }

    size_t getCount() const { return count; }

    bool remove(A key) {
        hashData* r = search(key);
        if (r == nullptr) {
            return false;
        }
        disposeKey(r->key);
        disposeValue(r->value);
        std::copy(r + 1, _data + count, r);
        --count;
        sortedCount = count;
        return true;
    }

    void removeAll() {
        for (size_t i = 0; i < count; ++i) {
            disposeKey(_data[i].key);
            disposeValue(_data[i].value);
        }
        count = 0;
        sortedCount = 0;
        neededSort = false;
    }

    void sort() {
        if (!neededSort) {
            return;
        }
        auto less = [](const hashData& a, const hashData& b) { return compare(a.key, b.key) < 0; };
        std::sort(_data + sortedCount, _data + count, less);
        std::inplace_merge(_data, _data + sortedCount, _data + count, less);
        sortedCount = count;
        neededSort = false;
    }

    // Makes room for n more records, so that a map whose size is known ahead
    // is allocated once.
    void reserve(size_t n) {
        if (count + n >= _size) {
            resize(count + n + 1);
        }
    }

    // Drops the records without disposing of anything and uses the n records
    // at records (room for capacity, unsorted) instead; the caller keeps that
    // storage alive and frees it. adopt(nullptr, 0, 0) leaves no records.
    void adopt(hashData* records, size_t n, size_t capacity) {
        if (ownsData) {
            delete[] _data;
        }
        _data = records;
        count = n;
        _size = capacity;
        sortedCount = 0;
        neededSort = n > 0;
        ownsData = false;
    }

    hashData* _data;

private:
    static int compare(const A& a, const A& b) { return detail::compareHashKeys<ignoreCase>(a, b); }
    static int sign(int c) { return c == 0 ? 0 : (c < 0 ? -1 : 1); }

    hashData* bisect(const A& key) {
        size_t lo = 0, hi = sortedCount;
        while (lo < hi) {
            size_t mid = lo + (hi - lo) / 2;
            int c = compare(key, _data[mid].key);
            if (c == 0) {
                return &_data[mid];
            }
            if (c < 0) {
                hi = mid;
            } else {
                lo = mid + 1;
            }
        }
        return nullptr;
    }

    // Finds key without sorting: bisect the sorted part, scan the tail.
    hashData* locate(const A& key) {
        if (hashData* r = bisect(key)) {
            return r;
        }
        for (size_t i = sortedCount; i < count; ++i) {
            if (detail::equalHashKeys<ignoreCase>(key, _data[i].key)) {
                return &_data[i];
            }
        }
        return nullptr;
    }

    // Grows by the step, or by the current size once that is larger, so big
    // maps copy their records a logarithmic number of times.
    void grow() { resize(_size + std::max(increaseStep, _size)); }

    void resize(size_t bigger) {
        hashData* records = new hashData[bigger]();
        std::copy(_data, _data + count, records);
        if (ownsData) {
            delete[] _data;
        }
        _data = records;
        _size = bigger;
        ownsData = true;
    }

    static void disposeKey(A& key) {
        if constexpr (delKey && std::is_pointer<A>::value) {
            delete[] key;
        }
    }
    static void disposeValue(T& value) {
        if constexpr (delValue && std::is_pointer<T>::value) {
            delete value;
        }
    }

    size_t sortedCount;  // _data[0, sortedCount) is in key order
    bool ownsData;       // _data was allocated here (else borrowed through adopt)
};

}  // namespace tavik

#endif  // TAVIK_TK_HASH_H_
