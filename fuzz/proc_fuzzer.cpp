// Feeds arbitrary bytes to the readers of the texts in /proc, of which a user chooses a part: the
// arguments, the environment and the name of the executable of his processes.

#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/require.h"
#include "identity/client_process.h"
#include "identity/launch_context.h"
#include "update/host_inventory.h"
#include "update/request_bodies.h"

namespace Vantrell {
namespace {

void CheckLists(const std::string& text) {
  const std::vector<std::string> elements = SplitNulSeparated(text);
  std::string joined;
  for (const std::string& element : elements) joined += element + '\0';
  if (!text.empty() && text.back() != '\0') joined.pop_back();
  Require(joined == text, "a list that lost bytes");

  size_t position = 0;
  for (const std::string& entry : KeepClientEnvironment(elements)) {
    while (position < elements.size() && elements[position] != entry) ++position;
    Require(position < elements.size(), "an entry that is new or out of order");
    Require(entry.find('=') != std::string::npos, "an entry without a value");
  }
}

}  // namespace
}  // namespace Vantrell

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace Vantrell;  // NOLINT(google-build-using-namespace): a function of C
  const std::string text(data, data + size);
  CheckLists(text);
  Require(FindUnit(text).find_first_of("/\n") == std::string::npos, "a unit with a path");
  Require(text.find("Uid:") != std::string::npos || FindRealUid(text) == -1, "a uid from nothing");
  bool wasDeleted = false;
  if (IsClientImage(text, &wasDeleted)) {
    Require(text == ClientBinaryPath + std::string(wasDeleted ? " (deleted)" : ""),
            "another program that is taken for the client");
  }
  const std::string quoted = JsonQuoted(FindPrettyName(text));
  Require(quoted.find('\n') == std::string::npos, "a request of two lines");
  return 0;
}
