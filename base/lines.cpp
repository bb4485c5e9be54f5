#include "base/lines.h"

namespace Vantrell {

std::vector<std::string> SplitLines(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    lines.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return lines;
}

std::string WithoutLineEnd(std::string_view text) {
  // npos + 1 is 0: nothing but line ends gives an empty text.
  return std::string(text.substr(0, text.find_last_not_of("\r\n") + 1));
}

}  // namespace Vantrell
