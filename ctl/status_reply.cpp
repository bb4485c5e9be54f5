#include "ctl/status_reply.h"

namespace Vantrell::Control {

bool StatusReply::IsGood() const {
  return outcome.empty() || outcome == "up to date" || outcome.starts_with("staged ");
}

StatusReply ParseStatusReply(const std::string& reply) {
  const size_t first = reply.find(' ');
  const size_t second = first == std::string::npos ? first : reply.find(' ', first + 1);
  if (second == std::string::npos) return {"", reply};
  StatusReply parsed;
  if (reply.starts_with("READY ")) parsed.staged = reply.substr(first + 1, second - first - 1);
  parsed.outcome = reply.substr(second + 1);
  return parsed;
}

}  // namespace Vantrell::Control
