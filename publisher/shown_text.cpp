#include "publisher/shown_text.h"

#include "ctl/printable_text.h"

namespace Vantrell::Publisher {

std::string Shown(std::string_view text, size_t limit) {
  const std::string shown = Control::PrintableText(text.substr(0, limit));
  return text.size() > limit ? shown + "..." : shown;
}

std::string Quoted(std::string_view text) {
  constexpr size_t QuotedBytes = 70;
  return '"' + Shown(text, QuotedBytes) + '"';
}

std::string ShownInHtml(std::string_view text) {
  std::string escaped;
  for (const char byte : Shown(text)) {
    switch (byte) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      default:
        escaped += byte;
    }
  }
  return escaped;
}

}  // namespace Vantrell::Publisher
