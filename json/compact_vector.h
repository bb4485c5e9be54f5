#pragma once

// A vector and a string for records of which a document has millions. Each of them costs its owner
// one pointer, and nothing more while it is empty. A vector that grows keeps its elements once in
// memory: realloc() has the kernel move the pages of a large block. Like the containers of the
// standard library, they end the process when memory is exhausted, since nothing catches
// std::bad_alloc.

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

namespace Vantrell {

// Growth copies the bytes of the elements, so an element must not have a pointer to itself.
// std::string has one, CompactString does not.
template <typename Element>
class CompactVector {
 public:
  CompactVector() = default;
  CompactVector(const CompactVector& other) { Append(other.begin(), other.size()); }
  CompactVector(CompactVector&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
  CompactVector& operator=(CompactVector other) noexcept {
    std::swap(block_, other.block_);
    return *this;
  }
  ~CompactVector() {
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
  // Reserves exactly what is needed. The source must not be in this vector.
  void Append(const Element* source, size_t count) {
    if (count == 0) return;
    Reserve(size() + count);
    std::uninitialized_copy_n(source, count, end());
    block_->size += count;
  }
  void Clear() { *this = CompactVector(); }

  friend bool operator==(const CompactVector& left, const CompactVector& right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end());
  }

 private:
  struct alignas(std::max_align_t) Block {  // the elements follow
    size_t size;
    size_t capacity;
  };

  Element* Elements() const {
    return block_ == nullptr ? nullptr : reinterpret_cast<Element*>(block_ + 1);
  }
  size_t Capacity() const { return block_ == nullptr ? 0 : block_->capacity; }
  void Reserve(size_t capacity) {
    static_assert(alignof(Element) <= alignof(Block));
    const size_t count = size();
    void* const memory = realloc(block_, sizeof(Block) + capacity * sizeof(Element));
    if (memory == nullptr) throw std::bad_alloc();
    block_ = new (memory) Block{count, capacity};
  }

  Block* block_ = nullptr;
};

class CompactString {
 public:
  CompactString() = default;
  // Implicit, like the conversions between the strings of the standard library.
  CompactString(std::string_view text) { bytes_.Append(text.data(), text.size()); }
  operator std::string_view() const { return {bytes_.begin(), bytes_.size()}; }
  friend bool operator==(const CompactString& left, const CompactString& right) {
    return left.bytes_ == right.bytes_;
  }
  friend bool operator==(const CompactString& left, std::string_view right) {
    return std::string_view(left) == right;
  }

 private:
  CompactVector<char> bytes_;
};

}  // namespace Vantrell
