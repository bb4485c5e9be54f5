#pragma once

// Writing to descriptors.

#include <string_view>

namespace Vantrell {

// Writes all bytes of a text to a blocking descriptor; a signal that interrupts a write does not
// end it. False when a write fails: errno says why. Any thread may call it; it logs nothing.
bool WriteAll(int descriptor, std::string_view text);

}  // namespace Vantrell
