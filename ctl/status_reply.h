#pragma once

// The service's reply to STATUS. A pure function.

#include <string>

namespace Vantrell::Control {

struct StatusReply {
  std::string staged;   // the version of the staged release; empty without one
  std::string outcome;  // of the last check; empty before the first

  // Whether the last check did its work. True before the first.
  bool IsGood() const;
};

// Splits a reply such as "READY 1.1 staged 1.1" or "IDLE - up to date". A reply of another form
// becomes the outcome.
StatusReply ParseStatusReply(const std::string& reply);

}  // namespace Vantrell::Control
