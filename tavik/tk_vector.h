// vector<T, delValue>: a doubly linked list of pointers in insertion order.
// With delValue the vector owns its data: removing an item deletes it (texts
// with array delete). text_vector (tk_string.h) is a vector<char*, true>.
// Not locked: one thread at a time.
#ifndef TAVIK_TK_VECTOR_H_
#define TAVIK_TK_VECTOR_H_

#include <stddef.h>

#include <type_traits>

#include "tavik/tk_list.h"

namespace tavik {

struct vectoritem {
    void* pData;
    vectoritem* prev;
    vectoritem* next;
};

template <typename T, bool delValue>
class vector {
    static_assert(std::is_pointer<T>::value, "vector holds pointers");

public:
    vector() : itemHead(nullptr), itemTail(nullptr), count(0) {}
    virtual ~vector() { removeAll(); }
    vector(const vector&) = delete;
    vector& operator=(const vector&) = delete;

    vectoritem* add(T item) {
        return detail::appendItem(itemHead, itemTail, count, static_cast<const void*>(item));
    }

    size_t size() const { return count; }
    vectoritem* getFirstPos() const { return itemHead; }

    // Returns the data at *pos and advances *pos; null when *pos is null.
    T getNext(vectoritem** pos) const { return detail::nextItem<T>(pos); }

    // Unlinks the oldest item and, when owned, deletes its data.
    void removeFirst() {
        if (itemHead == nullptr) {
            return;
        }
        dispose(static_cast<T>(itemHead->pData));
        detail::unlinkItem(itemHead, itemTail, count, itemHead);
    }

    void removeAll() {
        while (itemHead != nullptr) {
            removeFirst();
        }
    }

    vectoritem* itemHead;
    vectoritem* itemTail;
    size_t count;

private:
    static void dispose(T data) {
        if constexpr (delValue) {
            if constexpr (std::is_same<std::remove_cv_t<std::remove_pointer_t<T>>, char>::value) {
                delete[] data;
            } else {
                delete data;
            }
        }
    }
};

}  // namespace tavik

#endif  // TAVIK_TK_VECTOR_H_
