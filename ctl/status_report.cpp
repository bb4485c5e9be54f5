#include "ctl/status_report.h"

#include <ctime>

#include "json/json_serializer.h"

namespace Vantrell::Control {
namespace {

constexpr size_t LabelWidth = 15;

std::string Line(std::string label, const std::string& value) {
  label.resize(LabelWidth, ' ');
  return label + value + "\n";
}

// Local time with its zone, as in ISO 8601.
std::string TimeText(int64_t seconds) {
  const time_t time = seconds;
  struct tm local = {};
  localtime_r(&time, &local);
  char text[64] = {};
  strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z", &local);
  return text;
}

std::string PackageText(const PackageState& package) {
  if (!package.known) return "not known to dpkg";
  return package.version + ", " + package.state + (package.IsPaused() ? ", paused" : "");
}

std::string ReplyLine(const MachineStatus& status, const std::string& text, const char* ofEmpty) {
  if (!status.serviceAnswers) return "not known";
  return text.empty() ? ofEmpty : text;
}

std::string WindowLine(const MachineStatus& status) {
  const std::string opens = status.windowOpens == "open" ? "" : "; opens " + status.windowOpens;
  return (status.window.empty() ? "not known" : status.window) + opens;
}

std::string HistoryLine(const ServiceHistory& history, const std::optional<ServiceLine>& line) {
  if (!history.readable) return "the journal cannot be read; run the command as root";
  if (!line) return "none in the journal";
  return TimeText(line->time) + " " + line->text;
}

std::string UnitLine(const UnitState& unit) {
  return unit.active + " (" + unit.sub + "), " + (unit.enabled.empty() ? unit.load : unit.enabled);
}

std::string CopyLine(const std::string& copy) {
  return copy == "unknown" ? "only root can read it" : copy;
}

JsonValue TextOrNull(const std::string& text) {
  return text.empty() ? JsonValue() : JsonValue(text);
}

JsonValue LineObject(const std::optional<ServiceLine>& line) {
  if (!line) return {};
  JsonValue object = JsonValue::EmptyObject();
  object.Set("time", JsonValue(TimeText(line->time)));
  object.Set("result", JsonValue(WordFor(line->meaning)));
  object.Set("text", JsonValue(line->text));
  object.Set("since_start", JsonValue(line->sinceStart));
  return object;
}

JsonValue ServiceObject(const MachineStatus& status) {
  JsonValue object = JsonValue::EmptyObject();
  object.Set("answers", JsonValue(status.serviceAnswers));
  object.Set("error", TextOrNull(status.serviceError));
  object.Set("staged", TextOrNull(status.reply.staged));
  object.Set("last_check", TextOrNull(status.reply.outcome));
  object.Set("window", TextOrNull(status.window));
  return object;
}

JsonValue PackageObject(const PackageState& package) {
  JsonValue object = JsonValue::EmptyObject();
  object.Set("version", TextOrNull(package.version));
  object.Set("state", TextOrNull(package.state));
  object.Set("installed", JsonValue(package.IsInstalled()));
  object.Set("paused", JsonValue(package.IsPaused()));
  return object;
}

JsonValue UnitObject(const UnitState& unit) {
  JsonValue object = JsonValue::EmptyObject();
  object.Set("name", JsonValue(unit.name));
  object.Set("load", JsonValue(unit.load));
  object.Set("active", JsonValue(unit.active));
  object.Set("sub", JsonValue(unit.sub));
  object.Set("enabled", TextOrNull(unit.enabled));
  object.Set("well", JsonValue(unit.Fault().empty()));
  return object;
}

}  // namespace

std::string StatusText(const MachineStatus& status) {
  std::string text =
      Line("service", status.serviceAnswers ? "answers" : status.serviceError) +
      Line("last check", ReplyLine(status, status.reply.outcome, "none since the start")) +
      Line("staged", ReplyLine(status, status.reply.staged, "nothing")) +
      Line("window", WindowLine(status)) + Line("ring", status.ring) +
      Line("package", PackageText(status.package)) +
      Line("last refusal", HistoryLine(status.history, status.history.lastRefusal)) +
      Line("last install", HistoryLine(status.history, status.history.lastApply)) +
      Line("rollback copy", CopyLine(status.rollbackCopy));
  for (const UnitState& unit : status.units)
    text += Line("unit", unit.name + ": " + UnitLine(unit));
  for (const std::string& sentence : status.attention) text += Line("ATTENTION", sentence);
  return text;
}

std::string StatusJson(const MachineStatus& status) {
  JsonValue object = JsonValue::EmptyObject();
  object.Set("service", ServiceObject(status));
  object.Set("window_opens", JsonValue(status.windowOpens));
  object.Set("ring", JsonValue(status.ring));
  object.Set("package", PackageObject(status.package));
  object.Set("journal_readable", JsonValue(status.history.readable));
  object.Set("last_refusal", LineObject(status.history.lastRefusal));
  object.Set("last_install", LineObject(status.history.lastApply));
  object.Set("rollback_copy", JsonValue(status.rollbackCopy));
  JsonValue& units = object.Set("units", JsonValue::EmptyArray());
  for (const UnitState& unit : status.units) units.PushBack(UnitObject(unit));
  JsonValue& attention = object.Set("attention", JsonValue::EmptyArray());
  for (const std::string& sentence : status.attention) attention.PushBack(JsonValue(sentence));
  object.Set("exit_status", JsonValue(static_cast<int64_t>(status.exitStatus)));
  return DumpJson(object) + "\n";
}

}  // namespace Vantrell::Control
