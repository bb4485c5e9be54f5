#pragma once

// What the journal tells about the last refusal and the last install. It logs nothing.

#include <cstdint>
#include <optional>
#include <string>

namespace Vantrell::Control {

// What a line of the service means. A gate that was not passed, such as a shut window, is not the
// end of an install.
enum class LineMeaning {
  Other,
  Start,    // the service has begun to run
  Refused,  // by a check or a gate; no install has begun
  Applied,  // the end of an install, as the next two
  Failed,
  RolledBack,
  RollbackBegins,
  RollbackFailed,  // precedes a line that says RolledBack all the same
};
LineMeaning MeaningOf(const std::string& line);

// A word for monitors, such as "rolled-back".
std::string WordFor(LineMeaning meaning);

struct ServiceLine {
  LineMeaning meaning = LineMeaning::Other;
  int64_t time = 0;         // seconds since the epoch
  std::string text;         // printable, without the tag of the service
  bool sinceStart = false;  // written since the last start of the service
};

struct ServiceHistory {
  bool readable = false;  // false when this user may not read the journal of the system
  std::optional<ServiceLine> lastRefusal;
  std::optional<ServiceLine> lastApply;
  bool applyIsSettled = false;  // no older line can change the meaning of lastApply
};

// Takes one line into the history. The lines come from the newest to the oldest.
void TakeOlderLine(const ServiceLine& line, ServiceHistory& history);

// Reads the lines of the service from the newest on, at most 20000 of them.
ServiceHistory ReadServiceHistory();

}  // namespace Vantrell::Control
