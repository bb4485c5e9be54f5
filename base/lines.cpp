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

std::string_view TrimEnd(std::string_view text, std::string_view characters) {
  const size_t last = text.find_last_not_of(characters);
  return last == std::string_view::npos ? std::string_view() : text.substr(0, last + 1);
}

std::string TrimLineEnd(std::string_view text) { return std::string(TrimEnd(text, "\r\n")); }

}  // namespace Vantrell
