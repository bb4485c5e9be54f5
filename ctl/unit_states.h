#pragma once

// The units of the update service, as the service manager has them. It logs nothing.

#include <string>
#include <vector>

namespace Vantrell::Control {

constexpr char ServiceUnit[] = "vantrell-harbor-updated.service";
constexpr char SocketUnit[] = "vantrell-harbor-updated.socket";

struct UnitState {
  std::string name;
  std::string load;     // "loaded", "not-found", "masked" and others
  std::string active;   // "active", "inactive", "failed" and others
  std::string sub;      // such as "running" or "waiting"
  std::string enabled;  // "enabled", "disabled", "static" and others

  // A sentence when somebody must repair the unit; otherwise empty. A timer that is disabled is the
  // choice of the administrator.
  std::string Fault() const;
};

// The names of all units, the socket first.
const std::vector<std::string>& UnitNames();

// The states in the order of UnitNames(). Empty when the service manager does not answer.
std::vector<UnitState> ReadUnitStates();

// One property of a unit; empty when it cannot be read.
std::string UnitProperty(const std::string& unit, const std::string& property);

}  // namespace Vantrell::Control
