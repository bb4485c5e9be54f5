#pragma once

// The end of a step that cannot go on. Any thread may call this.

#include <string>
#include <utility>

namespace Vantrell {

// Gives the reason in `error`, and returns false.
inline bool FailWith(std::string reason, std::string& error) {
  error = std::move(reason);
  return false;
}

}  // namespace Vantrell
