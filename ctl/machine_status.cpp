#include "ctl/machine_status.h"

#include "ctl/control_client.h"
#include "ctl/exit_status.h"
#include "ctl/rollback_copy.h"
#include "ctl/window_opening.h"
#include "settings/settings_file.h"

namespace Vantrell::Control {
namespace {

void AskServiceForStatus(MachineStatus& status) {
  std::string reply;
  status.serviceAnswers = AskService("STATUS", reply, status.serviceError) &&
                          AskService("WINDOW", status.window, status.serviceError);
  if (status.serviceAnswers) status.reply = ParseStatusReply(reply);
}

void JudgePackage(MachineStatus& status) {
  const PackageState& package = status.package;
  if (!package.known) {
    status.attention.push_back(
        "dpkg does not know the package, or cannot read what it knows; see \"dpkg --status "
        "vantrell-harbor\", and install a package that is missing with apt-get");
  } else if (!package.IsInstalled()) {
    status.attention.push_back("the package is " + package.state +
                               "; wait for the end of an install or of the repair, or install it "
                               "with apt-get");
  }
  if (package.IsPaused()) {
    status.attention.push_back(
        "the machine is paused; \"vantrell-harbor-updatectl resume\" ends the pause");
  }
}

void JudgeUpdates(MachineStatus& status) {
  if (!status.reply.IsGood()) {
    status.attention.push_back("the last check found no usable answer: " + status.reply.outcome);
  }
  const auto& apply = status.history.lastApply;
  if (apply && apply->sinceStart && apply->meaning != LineMeaning::Applied) {
    status.attention.push_back("the last install failed: " + apply->text);
  }
  if (status.rollbackCopy == "damaged") {
    status.attention.push_back(
        "the rollback copy is not the package that was accepted last; "
        "restart vantrell-harbor-updated.service, which repairs it");
  }
}

void Judge(MachineStatus& status) {
  JudgePackage(status);
  JudgeUpdates(status);
  for (const UnitState& unit : status.units) {
    const std::string fault = unit.Fault();
    if (!fault.empty()) status.attention.push_back(fault);
  }
  status.exitStatus = status.attention.empty() ? ExitWell : ExitNeedsAttention;
  if (!status.serviceAnswers || status.units.empty()) status.exitStatus = ExitCannotTell;
}

}  // namespace

MachineStatus ReadMachineStatus() {
  MachineStatus status;
  AskServiceForStatus(status);
  status.windowOpens = NextOpening();
  status.ring = ReadChannel();
  status.package = ReadPackageState();
  status.history = ReadServiceHistory();
  status.rollbackCopy = RollbackCopyState();
  status.units = ReadUnitStates();
  Judge(status);
  return status;
}

}  // namespace Vantrell::Control
