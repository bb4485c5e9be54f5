#pragma once

// The end of a step that cannot go on. Any thread may call this.

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

namespace Vantrell {

// Gives the reason in `error`, and returns false.
inline bool FailWith(std::string reason, std::string& error) {
  error = std::move(reason);
  return false;
}

// The same with the path and the words of errno, for the call that has just failed.
inline bool FailAt(const std::string& path, std::string& error) {
  return FailWith(path + ": " + strerror(errno), error);
}

}  // namespace Vantrell
