#pragma once

// The owner of a file descriptor: closes it at the end of the owner's life.

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace Vantrell {

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(other.Release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  // Keeps errno, so that the reason of a failure can be reported after this close.
  ~Descriptor() {
    if (number_ < 0) return;
    const int savedError = errno;
    close(number_);
    errno = savedError;
  }

  explicit operator bool() const { return number_ >= 0; }
  int Number() const { return number_; }

  // Gives the descriptor up: the caller must close it.
  [[nodiscard]] int Release() { return std::exchange(number_, -1); }

 private:
  int number_ = -1;
};

}  // namespace Vantrell
