#pragma once

// A table of texts, and the check of what a function makes of each.

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Vantrell {

struct TextCase {
  std::string behaviour, given, expected;
};

void ExpectEach(const std::vector<TextCase>& cases, const auto& function) {
  for (const TextCase& row : cases) {
    SCOPED_TRACE(row.behaviour);
    EXPECT_EQ(function(row.given), row.expected);
  }
}

}  // namespace Vantrell
