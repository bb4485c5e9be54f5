#include "publisher/report_text.h"

#include <algorithm>

#include "base/deployment.h"
#include "publisher/shown_text.h"
#include "trust/digest.h"

namespace Vantrell::Publisher {
namespace {

std::string FileLine(const char* name, const WitnessFile& file) {
  std::string line = "    " + std::string(name);
  line.resize(15, ' ');
  line += file.fault.empty() ? "right" : "WRONG  " + Shown(file.fault);
  if (!file.remark.empty()) line += " (" + file.remark + ")";
  if (!file.fault.empty()) line += "\n               " + Shown(file.url);
  return line + "\n";
}

}  // namespace

std::string BuildText() {
  std::string text = "Update server of this build: " + std::string(DefaultUpdateHost) + "\n";
  size_t number = 0;
  for (const ReleaseKey& key : ReleaseKeys()) {
    const std::string_view der(reinterpret_cast<const char*>(key.data), key.size);
    text += "Release key " + std::to_string(++number) + ", SHA-256: " + Sha256Hex(der) + "\n";
  }
  return text;
}

std::string RingText(const RingReport& report) {
  std::string text = "\nRing " + report.ring + ": ";
  if (report.witnesses.empty()) return text + Shown(report.outcome) + "\n";
  text += Shown(report.manifest.version) + " is offered\n";
  size_t number = 0;
  for (const Witness& witness : report.witnesses) {
    text += "  witness " + std::to_string(++number) + ", " + witness.baseUrl + "\n";
    for (size_t index = 0; index < FileNames.size(); ++index) {
      text += FileLine(FileNames[index], witness.files[index]);
    }
  }
  const bool isAccepted = report.refusal.empty();
  return text +
         (isAccepted ? "  a machine accepts it: " + Shown(report.outcome)
                     : "  a machine says: " + Shown(report.refusal)) +
         "\n";
}

int OverallStatus(const std::vector<RingReport>& reports) {
  int worst = StatusOk;
  for (const RingReport& report : reports) {
    if (report.status == StatusCritical) return StatusCritical;  // above UNKNOWN, too
    worst = std::max(worst, report.status);
  }
  return worst;
}

const char* StatusName(int status) {
  constexpr const char* Names[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
  return Names[status];
}

std::string ProbeLine(int status, const std::vector<RingReport>& reports) {
  std::string line = std::string("RELEASE ") + StatusName(status);
  const char* separator = ": ";
  for (const RingReport& report : reports) {
    line += separator + report.ring + " " + Shown(report.outcome);
    separator = "; ";
  }
  std::replace(line.begin(), line.end(), '|', '/');
  return line;
}

}  // namespace Vantrell::Publisher
