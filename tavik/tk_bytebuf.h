// Byte containers.
//   bytebuf            a growing byte buffer; getEx() returns a heap copy the
//                      caller frees with array delete.
//   typeArr<T, owns>   a fixed array {buffer, length}; an owning array frees
//                      its buffer, a plain one is only a view.
//   byteArr            typeArr<unsigned char, true>.
// Not locked: one thread at a time.
#ifndef TAVIK_TK_BYTEBUF_H_
#define TAVIK_TK_BYTEBUF_H_

#include <stddef.h>

namespace tavik {

class bytebuf {
public:
    explicit bytebuf(size_t unit = 1024);
    virtual ~bytebuf();
    bytebuf(const bytebuf&) = delete;
    bytebuf& operator=(const bytebuf&) = delete;

    void put(unsigned char c);
    void put(const char* text);
    void put(const char* bytes, size_t n);
    void reset() { pos = 0; }  // empties, keeps the storage
    char* getEx() const;       // heap copy of the filled bytes, NUL-ended;
                               // null when empty
    size_t getFilledSize() const { return static_cast<size_t>(pos); }
    const unsigned char* get() const { return buffer; }  // filled bytes, not NUL-ended
    void clear();                                        // empties and frees the storage

    unsigned char* buffer;
    size_t size;              // bytes allocated
    long pos;                 // bytes filled
    size_t limitSize;         // not enforced
    size_t increaseSizeUnit;  // smallest growth step

private:
    bool reserve(size_t needed);
};

template <typename T, bool autoDelete>
class typeArr {
public:
    typeArr() : buffer(nullptr), length(0) {}
    // n zero-initialised elements, owned.
    explicit typeArr(size_t n) : buffer(new T[n]()), length(n) {
        static_assert(autoDelete, "only an owning array allocates");
    }
    // Takes (owning) or views (plain) n elements at buf.
    typeArr(T* buf, size_t n) : buffer(buf), length(n) {}
    virtual ~typeArr() {
        if (autoDelete) {
            delete[] buffer;
        }
    }
    typeArr(const typeArr&) = delete;
    typeArr& operator=(const typeArr&) = delete;

    T* buffer;
    size_t length;
};

typedef typeArr<unsigned char, true> byteArr;

}  // namespace tavik

#endif  // TAVIK_TK_BYTEBUF_H_
