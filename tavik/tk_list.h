// list<T>: a doubly linked list of pointers in insertion order. The list owns
// its items, never the data they point to (removeAll frees items only).
// Not locked: one thread at a time.
#ifndef TAVIK_TK_LIST_H_
#define TAVIK_TK_LIST_H_

#include <stddef.h>
#include <string.h>

#include <new>
#include <type_traits>

namespace tavik {

struct listitem {
    void* pData;
    listitem* prev;
    listitem* next;

    // An item may carry a text right after it (list::addTailText); the unsized form frees
    // such an item whole.
    static void operator delete(void* item) { ::operator delete(item); }
};

namespace detail {

// The linking shared by list and vector: items {pData, prev, next} between a head and a tail.
template <typename Item>
Item* linkTail(Item*& head, Item*& tail, size_t& count, Item* it) {
    it->prev = tail;
    it->next = nullptr;
    (tail ? tail->next : head) = it;
    tail = it;
    ++count;
    return it;
}

template <typename Item>
Item* appendItem(Item*& head, Item*& tail, size_t& count, const void* data) {
    return linkTail(head, tail, count, new Item{const_cast<void*>(data), nullptr, nullptr});
}

// Unlinks one item, and deletes it unless keep is set; its data is the caller's.
template <typename Item>
void unlinkItem(Item*& head, Item*& tail, size_t& count, Item* it, bool keep = false) {
    (it->prev ? it->prev->next : head) = it->next;
    (it->next ? it->next->prev : tail) = it->prev;
    if (!keep) {
        delete it;
    }
    --count;
}

// The data at *pos, advancing *pos; null when *pos is null.
template <typename T, typename Item>
T nextItem(Item** pos) {
    if (pos == nullptr || *pos == nullptr) {
        return nullptr;
    }
    void* data = (*pos)->pData;
    *pos = (*pos)->next;
    return static_cast<T>(data);
}

}  // namespace detail

template <typename T, typename A = T>
class list {
    static_assert(std::is_pointer<T>::value, "list holds pointers");

public:
    list() : itemHead(nullptr), itemTail(nullptr), count(0) {}
    virtual ~list() { removeAll(); }
    list(const list&) = delete;
    list& operator=(const list&) = delete;

    listitem* addTail(A item) {
        return detail::appendItem(itemHead, itemTail, count, static_cast<const void*>(item));
    }

    // Appends a copy of text[0, n) kept in the item's own allocation: the list frees it with
    // the item. One allocation instead of two for lists that own short texts.
    listitem* addTailText(const char* text, size_t n) {
        static_assert(std::is_same<T, char*>::value, "texts go into a list of char*");
        void* room = ::operator new(sizeof(listitem) + n + 1);
        char* copy = static_cast<char*>(room) + sizeof(listitem);
        memcpy(copy, text, n);
        copy[n] = 0;
        return detail::linkTail(itemHead, itemTail, count,
                                ::new (room) listitem{copy, nullptr, nullptr});
    }

    size_t getCount() const { return count; }
    listitem* getHeadPosition() const { return itemHead; }

    // Returns the data at *pos and advances *pos; null when *pos is null.
    T getNext(listitem** pos) const { return detail::nextItem<T>(pos); }

    // The data at position index, null past the end (walks from the head).
    T getAt(size_t index) const {
        listitem* it = itemHead;
        for (; it != nullptr && index > 0; --index) {
            it = it->next;
        }
        return it ? static_cast<T>(it->pData) : nullptr;
    }

    // Unlinks the first item holding data; the data itself is not freed.
    bool removeData(T data) {
        listitem* it = unlinkData(data);
        bool found = it != nullptr;
        delete it;
        return found;
    }

    // Unlinks and returns the first item holding data, freeing neither; null if none.
    listitem* unlinkData(T data) {
        for (listitem* it = itemHead; it != nullptr; it = it->next) {
            if (it->pData == static_cast<const void*>(data)) {
                detail::unlinkItem(itemHead, itemTail, count, it, true);
                return it;
            }
        }
        return nullptr;
    }

    void removeAll() {
        while (itemHead != nullptr) {
            listitem* next = itemHead->next;
            delete itemHead;
            itemHead = next;
        }
        itemTail = nullptr;
        count = 0;
    }

    // Copies each text into the elements of a string array, in order.
    template <typename Arr>
    void toClassArr(Arr* arr) const {
        size_t i = 0;
        for (listitem* it = itemHead; it != nullptr; it = it->next) {
            arr->ref(i++) = static_cast<const char*>(it->pData);
        }
    }

    listitem* itemHead;
    listitem* itemTail;
    size_t count;
};

}  // namespace tavik

#endif  // TAVIK_TK_LIST_H_
