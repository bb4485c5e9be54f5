#pragma once

// How a fuzzer reports that a rule does not hold.

#include <cstdio>
#include <cstdlib>

namespace Vantrell {

// Ends the fuzzer, which then saves the input, when the rule does not hold.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  fprintf(stderr, "broken rule: %s\n", what);
  abort();
}

}  // namespace Vantrell
