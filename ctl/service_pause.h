#pragma once

// A time in which the service does not run, for work on its files.

#include "base/descriptor.h"

namespace Vantrell::Control {

// Stops the socket and the service, which first ends a running install, and keeps their repair from
// starting. From then on signals do not end this program: Resume() must run.
class ServicePause {
 public:
  ServicePause();
  ServicePause(const ServicePause&) = delete;
  ServicePause& operator=(const ServicePause&) = delete;
  ~ServicePause();

  // False when a unit could not be stopped, or a repair works for too long.
  [[nodiscard]] bool IsComplete() const { return isComplete_; }

  // Starts both units, also if they did not run before: a killed run of this program may have
  // stopped them. False when one does not start. Does nothing the second time.
  [[nodiscard]] bool Resume();

 private:
  Descriptor repairLock_;
  bool isComplete_ = false;
  bool isResumed_ = false;
};

}  // namespace Vantrell::Control
