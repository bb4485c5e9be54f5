#pragma once

// A vector and a string for records of which a document has millions. Each of them costs its owner
// one pointer, and nothing more while it is empty; a string of up to 7 bytes has no block either.
// A vector that grows keeps its elements once in memory: realloc() has the kernel move the pages of
// a large block. Like the containers of the standard library, they end the process when memory is
// exhausted, since no reader of JSON catches std::bad_alloc. So does a vector that would have to
// make room for 2 to the 32nd elements.

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

namespace Vantrell {

// Elements move as bytes, in growth and in CutFrom(), so an element must not have a pointer to
// itself. std::string has one, CompactString does not.
template <typename Element>
class CompactVector {
 public:
  CompactVector() = default;
  CompactVector(const CompactVector& other) {
    if (other.block_ == nullptr) return;
    Reserve(other.size());
    std::uninitialized_copy(other.begin(), other.end(), begin());
    block_->size = other.block_->size;
  }
  CompactVector(CompactVector&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
  CompactVector& operator=(CompactVector other) noexcept {
    std::swap(block_, other.block_);
    return *this;
  }
  ~CompactVector() {
    if (block_ == nullptr) return;
    std::destroy(begin(), end());
    free(block_);
  }

  size_t size() const { return block_ == nullptr ? 0 : block_->size; }
  Element* begin() { return Elements(); }
  Element* end() { return begin() + size(); }
  const Element* begin() const { return Elements(); }
  const Element* end() const { return begin() + size(); }
  Element& operator[](size_t index) { return begin()[index]; }
  const Element& operator[](size_t index) const { return begin()[index]; }

  // The result and all other references to elements are valid until the next change of the vector.
  // `element` must not be an element of this vector.
  Element& Append(Element&& element) {
    if (size() == Capacity()) Reserve(size() + size() / 2 + 1);
    return *new (begin() + block_->size++) Element(std::move(element));
  }
  // Moves the elements from `start` on into a vector that has room for no more than these.
  CompactVector CutFrom(size_t start) {
    CompactVector tail;
    if (start == size()) return tail;
    tail.Reserve(size() - start);
    memcpy(static_cast<void*>(tail.begin()), static_cast<const void*>(begin() + start),
           (size() - start) * sizeof(Element));
    tail.block_->size = block_->size - static_cast<uint32_t>(start);
    block_->size = static_cast<uint32_t>(start);
    return tail;
  }
  void Clear() { *this = CompactVector(); }

  friend bool operator==(const CompactVector& left, const CompactVector& right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end());
  }

 private:
  struct alignas(void*) Block {  // the elements follow
    uint32_t size;
    uint32_t capacity;
  };

  Element* Elements() const {
    return block_ == nullptr ? nullptr : reinterpret_cast<Element*>(block_ + 1);
  }
  size_t Capacity() const { return block_ == nullptr ? 0 : block_->capacity; }
  void Reserve(size_t capacity) {
    static_assert(alignof(Element) <= alignof(Block));
    if (capacity > UINT32_MAX) throw std::bad_alloc();
    const auto count = static_cast<uint32_t>(size());
    void* const memory = realloc(block_, sizeof(Block) + capacity * sizeof(Element));
    if (memory == nullptr) throw std::bad_alloc();
    block_ = new (memory) Block{count, static_cast<uint32_t>(capacity)};
  }

  Block* block_ = nullptr;
};

class CompactString {
 public:
  CompactString() = default;
  // Implicit, like the conversions between the strings of the standard library.
  CompactString(std::string_view text) {
    if (text.size() <= sizeof short_.bytes) {
      short_.mark = static_cast<unsigned char>(text.size() * 2 + 1);
      text.copy(short_.bytes, text.size());
      return;
    }
    void* const memory = malloc(sizeof(Block) + text.size());
    if (memory == nullptr) throw std::bad_alloc();
    auto* const block = new (memory) Block{text.size()};
    text.copy(reinterpret_cast<char*>(block + 1), text.size());
    short_ = std::bit_cast<Short>(block);
  }
  CompactString(const CompactString& other) : CompactString(std::string_view(other)) {}
  CompactString(CompactString&& other) noexcept : short_(std::exchange(other.short_, {})) {}
  CompactString& operator=(CompactString other) noexcept {
    std::swap(short_, other.short_);
    return *this;
  }
  ~CompactString() {
    if (!IsShort()) free(std::bit_cast<Block*>(short_));
  }

  operator std::string_view() const {
    if (IsShort()) return {short_.bytes, short_.mark / size_t{2}};
    return {reinterpret_cast<const char*>(LongBlock() + 1), LongBlock()->size};
  }
  friend bool operator==(const CompactString& left, const CompactString& right) {
    return std::string_view(left) == std::string_view(right);
  }
  friend bool operator==(const CompactString& left, std::string_view right) {
    return std::string_view(left) == right;
  }

 private:
  struct Block {  // the bytes follow
    size_t size;
  };
  struct alignas(void*) Short {
    unsigned char mark = 1;  // the size, times two and plus one
    char bytes[sizeof(void*) - 1] = {};
  };
  // The first byte of an address is the lowest one. It is even, because a block is aligned.
  static_assert(std::endian::native == std::endian::little);

  bool IsShort() const { return short_.mark % 2 == 1; }
  const Block* LongBlock() const { return std::bit_cast<const Block*>(short_); }

  Short short_;  // or the address of a block
};

}  // namespace Vantrell
