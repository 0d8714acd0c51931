#pragma once

#include "core/ground/ZString.h"
#include "core/ground/ZVector.h"

class AbstractWriter;

// BigIntArray64: a growing array of 32-bit integers outside of any heap, for data by object number.
//
// DESCRIPTION
//   Indices run from 0 below 2^31. Every element has the fill value until it is set; only pages
//   that hold another value take memory, so an attribute that few objects have costs nothing.
//   Access is constant: one look-up of a page, one of the element. A 64-bit value takes two
//   neighbouring elements, the high half first. Nothing here locks; once the pages of a stretch
//   exist (ensure), threads may set different elements of it at once, and reading never changes
//   the array.
// IMPLEMENTATION
//   The vector holds the page pointers, null for a page without a value of its own. Element i lies
//   in page i / PAGE_SIZE. Pages are 2^20 elements, so that a walk looks up a page once in a
//   million elements.
class BigIntArray64 : public ZVector<int*> {
public:
    static constexpr int PAGE_BITS = 20;
    static constexpr int PAGE_SIZE = 1 << PAGE_BITS; // elements
    static constexpr int PAGE_MASK = PAGE_SIZE - 1;
    static constexpr int PAGE_BYTES = PAGE_SIZE * 4;

    explicit BigIntArray64(const char* arrayName);
    ~BigIntArray64() override;

    // To be called right after construction, before any element is set.
    void setFillValue(int value) { fillValue = value; }
    int getFillValue() const { return fillValue; }

    // The page that holds index; null if it doesn't exist and isn't to be created. A negative index
    // is an internal error. Throws std::bad_alloc.
    int* getBuffer(int index, bool create) {
        checkIndex(index);
        const int page = index >> PAGE_BITS;
        if (page < size && values[page] != nullptr) {
            return values[page];
        }
        return create ? createPage(page) : nullptr;
    }

    int get(int index) const {
        checkIndex(index);
        const int page = index >> PAGE_BITS;
        return page < size && values[page] != nullptr ? values[page][index & PAGE_MASK] : fillValue;
    }
    void set(int index, int value) { getBuffer(index, true)[index & PAGE_MASK] = value; }
    // set, but for the fill value no page is created.
    void setSparsely(int index, int value) {
        int* page = getBuffer(index, value != fillValue);
        if (page != nullptr) {
            page[index & PAGE_MASK] = value;
        }
    }
    void increment(int index) { getBuffer(index, true)[index & PAGE_MASK]++; }

    // The 64-bit value in the elements 2 * index and 2 * index + 1.
    long getLong(int index) const {
        const unsigned long high = static_cast<unsigned>(get(2 * index));
        return static_cast<long>(high << 32 | static_cast<unsigned>(get(2 * index + 1)));
    }
    void setLong(int index, long value) {
        int* at = getBuffer(2 * index, true) + (2 * index & PAGE_MASK);
        at[0] = static_cast<int>(value >> 32);
        at[1] = static_cast<int>(value);
    }

    // Stores the elements from `from` on, `count` of them, in `to`.
    void copyTo(int* to, int from, int count) const;
    // Creates all pages that hold an element below count (from 0 to 2^31).
    void ensure(long count);

    // The pages by number, null where there is none; valid until a page is created.
    int* const* pagePointers() const { return values; }
    int getPageCount() const { return size; }
    int getAllocatedPages() const { return allocatedPages; }
    const ZString& getName() const { return name; }

    // Bytes that writeArray produces.
    long getArraySizeOnDisk() const;
    // Writes each existing page as its start index, its end index and its elements, then -1, -1.
    void writeArray(AbstractWriter& writer) const;

private:
    static void checkIndex(int index) {
        if (__builtin_expect(index < 0, 0)) {
            failIndex(index);
        }
    }
    [[noreturn]] static void failIndex(int index);
    int* createPage(int page);

    int fillValue;
    int allocatedPages;
    ZString name;
};

// Stores data[i - from] at index i, for i from `from` below `to`. Values equal to the fill value
// are skipped, so that a stretch of them creates no page.
void fillArray(BigIntArray64& array, const int* data, int from, int to);

// BigIntArrayIterator64: walks the elements from `from` below `to` in order. A page that doesn't
// exist is walked as elements of value 0. No page may be created meanwhile.
class BigIntArrayIterator64 {
public:
    BigIntArrayIterator64(const BigIntArray64& walked, int from, int to)
        : array(&walked), current(from), end(to), page(nullptr),
          position(BigIntArray64::PAGE_SIZE) {}
    // The same of elements that lie side by side, the one at `from` first.
    BigIntArrayIterator64(const int* elements, int from, int to)
        : array(nullptr), current(from), end(to), page(elements), position(0) {}

    bool hasNext() const { return current < end; }
    int next() {
        if (position == BigIntArray64::PAGE_SIZE) {
            fetchPage();
        }
        current++;
        const int at = position++;
        return page == nullptr ? 0 : page[at];
    }
    // Index of the element that next() will give.
    int index() const { return current; }

private:
    void fetchPage() {
        if (array == nullptr) {
            page += BigIntArray64::PAGE_SIZE;
            position = 0;
            return;
        }
        const int number = current >> BigIntArray64::PAGE_BITS;
        page =
            number >= 0 && number < array->getPageCount() ? array->pagePointers()[number] : nullptr;
        position = current & BigIntArray64::PAGE_MASK;
    }

    const BigIntArray64* array;
    int current;
    int end;
    const int* page;
    int position;
};
