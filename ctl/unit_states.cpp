#include "ctl/unit_states.h"

#include <string_view>

#include "apply/process_runner.h"
#include "base/lines.h"

namespace Vantrell::Control {
namespace {

// Fails on purpose, to report that a build was taken back.
constexpr char RescueUnit[] = "vantrell-harbor-updated-rescue.service";

struct Property {
  std::string_view key;
  std::string UnitState::*field;
};

constexpr Property Properties[] = {
    {"Id", &UnitState::name},
    {"LoadState", &UnitState::load},
    {"ActiveState", &UnitState::active},
    {"SubState", &UnitState::sub},
    {"UnitFileState", &UnitState::enabled},
};

// Sets the field that a line such as "LoadState=loaded" names.
void SetField(UnitState& unit, const std::string& line) {
  const size_t equals = line.find('=');
  for (const Property& property : Properties) {
    if (line.substr(0, equals) == property.key) unit.*property.field = line.substr(equals + 1);
  }
}

}  // namespace

std::string UnitState::Fault() const {
  if (load != "loaded") {
    return name + " is " + load + "; install the package again, or unmask the unit";
  }
  if (active == "failed" && name == RescueUnit) {
    return "a new build of the service did not run, and the earlier one was installed again; this "
           "ends with a newer release";
  }
  if (active == "failed") {
    return name +
           " has failed; see \"vantrell-harbor-updatectl log\", then run \"systemctl "
           "restart " +
           name + "\"";
  }
  const bool mustRun = name == SocketUnit || name == ServiceUnit || enabled == "enabled";
  if (mustRun && active == "inactive") {
    return name + " is stopped; start it with \"systemctl start " + name + "\"";
  }
  return "";
}

const std::vector<std::string>& UnitNames() {
  static const auto& names = *new std::vector<std::string>{
      SocketUnit,
      ServiceUnit,
      "vantrell-harbor-updated-repair.timer",
      "vantrell-harbor-updated-repair.service",
      "vantrell-harbor-updated-window.timer",
      "vantrell-harbor-updated-window.service",
      RescueUnit,
  };
  return names;
}

std::vector<UnitState> ReadUnitStates() {
  std::vector<std::string> command = {"systemctl", "show"};
  for (const Property& property : Properties) command.push_back("-p" + std::string(property.key));
  command.insert(command.end(), UnitNames().begin(), UnitNames().end());
  std::string output;
  if (RunProcess(command, {}, output) != 0) return {};
  std::vector<UnitState> units(1);
  for (const std::string& line : SplitLines(output)) {
    if (line.empty()) {
      units.emplace_back();
    } else {
      SetField(units.back(), line);
    }
  }
  return units;
}

std::string UnitProperty(const std::string& unit, const std::string& property) {
  std::string output;
  if (RunProcess({"systemctl", "show", "-P", property, unit}, {}, output) != 0) return "";
  return TrimLineEnd(output);
}

}  // namespace Vantrell::Control
