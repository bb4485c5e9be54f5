#include "ctl/service_journal.h"

#include <systemd/sd-journal.h>

#include <memory>
#include <string_view>

#include "base/deployment.h"
#include "ctl/printable_text.h"
#include "ctl/unit_states.h"

namespace Vantrell::Control {
namespace {

constexpr int LineLimit = 20000;
constexpr size_t FieldLimitBytes = 4096;
constexpr std::string_view Tag = "[UpdateSvc] ";

struct JournalClose {
  void operator()(sd_journal* journal) const { sd_journal_close(journal); }
};
using Journal = std::unique_ptr<sd_journal, JournalClose>;

// The lines of the service and its programs, after the newest. Null when it cannot be read.
Journal OpenServiceJournal() {
  sd_journal* raw = nullptr;
  if (sd_journal_open(&raw, SD_JOURNAL_LOCAL_ONLY | SD_JOURNAL_SYSTEM) < 0) return nullptr;
  Journal journal(raw);
  // Files that this user may not open are skipped without an error.
  if (sd_journal_has_persistent_files(raw) <= 0 && sd_journal_has_runtime_files(raw) <= 0) {
    return nullptr;
  }
  sd_journal_set_data_threshold(raw, FieldLimitBytes);
  const std::string unit = std::string("_SYSTEMD_UNIT=") + ServiceUnit;
  if (sd_journal_add_match(raw, unit.c_str(), unit.size()) < 0) return nullptr;
  if (sd_journal_seek_tail(raw) < 0) return nullptr;
  return journal;
}

// The present line without its tag. Empty for lines of other programs.
std::string PresentLine(const Journal& journal) {
  const void* data = nullptr;
  size_t size = 0;
  if (sd_journal_get_data(journal.get(), "MESSAGE", &data, &size) < 0) return "";
  std::string_view message(static_cast<const char*>(data), size);
  message.remove_prefix(std::string_view("MESSAGE=").size());
  if (!message.starts_with(Tag)) return "";
  return PrintableText(message.substr(Tag.size()));
}

int64_t PresentTime(const Journal& journal) {
  uint64_t microseconds = 0;
  sd_journal_get_realtime_usec(journal.get(), &microseconds);
  return static_cast<int64_t>(microseconds / 1000000);
}

bool IsGate(std::string_view reason) {
  return reason == "nothing is staged" || reason == "a session is live" ||
         reason == "an install is already running" ||
         reason.starts_with("outside the maintenance window");
}

LineMeaning MeaningOfRefusal(std::string_view reason, LineMeaning ofGate) {
  if (IsGate(reason)) return ofGate;
  const bool restored = reason.ends_with("; the previous version was restored");
  return restored ? LineMeaning::RolledBack : LineMeaning::Failed;
}

}  // namespace

LineMeaning MeaningOf(const std::string& line) {
  constexpr std::string_view Asked = "apply refused: ";
  constexpr std::string_view Automatic = "holding: ";
  const std::string_view text = line;
  if (text.starts_with("applied ")) return LineMeaning::Applied;
  if (text.starts_with(Asked)) {
    return MeaningOfRefusal(text.substr(Asked.size()), LineMeaning::Refused);
  }
  if (text.starts_with(Automatic)) {
    return MeaningOfRefusal(text.substr(Automatic.size()), LineMeaning::Other);
  }
  if (text.starts_with(DaemonName)) return LineMeaning::Start;
  if (text.starts_with("rolling back to ")) return LineMeaning::RollbackBegins;
  if (text.starts_with("rollback failed: ")) return LineMeaning::RollbackFailed;
  return text.find(" refused: ") == std::string_view::npos ? LineMeaning::Other
                                                           : LineMeaning::Refused;
}

std::string WordFor(LineMeaning meaning) {
  switch (meaning) {
    case LineMeaning::Refused:
      return "refused";
    case LineMeaning::Applied:
      return "applied";
    case LineMeaning::Failed:
      return "failed";
    case LineMeaning::RolledBack:
      return "rolled-back";
    default:
      return "other";
  }
}

void TakeOlderLine(const ServiceLine& line, ServiceHistory& history) {
  const LineMeaning meaning = line.meaning;
  const bool isFailure = meaning == LineMeaning::Failed || meaning == LineMeaning::RolledBack;
  const bool isEnd = isFailure || meaning == LineMeaning::Applied;
  if (!history.lastRefusal && (isFailure || meaning == LineMeaning::Refused)) {
    history.lastRefusal = line;
  }
  if (!history.lastApply && isEnd) {
    history.lastApply = line;
    history.applyIsSettled = meaning != LineMeaning::RolledBack;
    return;
  }
  if (!history.lastApply || history.applyIsSettled) return;
  if (meaning == LineMeaning::RollbackFailed) {
    history.lastApply->meaning = LineMeaning::Failed;
    history.lastApply->text = line.text;
  }
  history.applyIsSettled = isEnd || meaning == LineMeaning::Start ||
                           meaning == LineMeaning::RollbackBegins ||
                           meaning == LineMeaning::RollbackFailed;
}

ServiceHistory ReadServiceHistory() {
  ServiceHistory history;
  const Journal journal = OpenServiceJournal();
  if (!journal) return history;
  history.readable = true;
  bool sinceStart = true;
  for (int count = 0; count < LineLimit && sd_journal_previous(journal.get()) > 0; ++count) {
    const std::string text = PresentLine(journal);
    const ServiceLine line = {MeaningOf(text), PresentTime(journal), text, sinceStart};
    TakeOlderLine(line, history);
    if (line.meaning == LineMeaning::Start) sinceStart = false;
    if (history.applyIsSettled && history.lastRefusal) break;
  }
  return history;
}

}  // namespace Vantrell::Control
