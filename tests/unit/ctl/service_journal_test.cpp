#include "ctl/service_journal.h"

#include <gtest/gtest.h>

#include <vector>

namespace Vantrell::Control {

TEST(ServiceHistory, TellsHowTheLastInstallEnded) {
  const std::string restored =
      "apply refused: the updated client did not stay running; the previous version was restored";
  struct Case {
    const char* behaviour;
    std::vector<std::string> newestFirst;
    std::string install, refusal;  // the result, and the line
  };
  for (const Case& given : std::vector<Case>{
           {"accepted after a refusal",
            {"applied 1.2 and relaunched the client", "1.1 refused: no key"},
            "applied",
            "1.1 refused: no key"},
           {"a gate does not end an install",
            {"apply refused: a session is live", "holding: outside the maintenance window (a)",
             "applied 1.1; no console session to relaunch into"},
            "applied",
            "apply refused: a session is live"},
           {"rolled back", {restored, "up to date", "rolling back to x"}, "rolled-back", restored},
           {"a rollback that failed says restored too",
            {restored, "up to date", "rollback failed: x", "rolling back to y"},
            "failed",
            restored},
           {"the rollback before did not fail this one",
            {restored, "rolling back to x", "rollback failed: y"},
            "rolled-back",
            restored},
           {"no rollback copy",
            {"holding: the updated client did not stay running and there was no rollback copy"},
            "failed",
            "holding: the updated client did not stay running and there was no rollback copy"},
       }) {
    SCOPED_TRACE(given.behaviour);
    ServiceHistory history;
    for (const std::string& text : given.newestFirst) {
      TakeOlderLine({MeaningOf(text), 0, text, true}, history);
    }
    EXPECT_EQ(WordFor(history.lastApply.value().meaning), given.install);
    EXPECT_EQ(history.lastRefusal.value().text, given.refusal);
  }
}

}  // namespace Vantrell::Control
