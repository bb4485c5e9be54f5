#include "identity/client_process.h"

#include <unistd.h>

#include <string>

namespace Vantrell {
namespace {

// The kernel appends this to the path of a file that no longer exists.
constexpr char DeletedSuffix[] = " (deleted)";
// A longer link is cut, so it never equals the path of the client.
constexpr size_t LinkLimitBytes = 511;

}  // namespace

bool IsClientImage(std::string_view link, bool* wasDeleted) {
  const bool deleted = link == std::string(ClientBinaryPath) + DeletedSuffix;
  if (wasDeleted != nullptr) *wasDeleted = deleted;
  return deleted || link == ClientBinaryPath;
}

bool IsClientProcess(pid_t pid, bool* wasDeleted) {
  const std::string path = "/proc/" + std::to_string(pid) + "/exe";
  char link[LinkLimitBytes + 1] = {};
  const ssize_t length = readlink(path.c_str(), link, LinkLimitBytes);
  if (length < 1) return false;
  return IsClientImage({link, static_cast<size_t>(length)}, wasDeleted);
}

}  // namespace Vantrell
