#pragma once

// All that this program knows about the machine, and what of it needs somebody. It logs nothing.

#include <string>
#include <vector>

#include "ctl/package_state.h"
#include "ctl/service_journal.h"
#include "ctl/status_reply.h"
#include "ctl/unit_states.h"

namespace Vantrell::Control {

struct MachineStatus {
  bool serviceAnswers = false;
  std::string serviceError;  // why it does not answer
  StatusReply reply;         // empty when the service does not answer
  std::string window;        // as WINDOW gives it, such as "SHUT 02:00-05:00 local"
  std::string windowOpens;   // as NextOpening() gives it
  std::string ring;          // by the settings
  PackageState package;
  ServiceHistory history;
  std::string rollbackCopy;  // as RollbackCopyState() gives it
  std::vector<UnitState> units;

  std::vector<std::string> attention;  // one sentence for each fact that needs somebody
  int exitStatus = 0;
};

MachineStatus ReadMachineStatus();

}  // namespace Vantrell::Control
