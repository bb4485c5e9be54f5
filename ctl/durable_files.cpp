#include "ctl/durable_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string_view>

#include "base/descriptor.h"
#include "base/failure.h"
#include "base/read_input.h"
#include "base/write_output.h"

namespace Vantrell::Control {
namespace {

constexpr size_t BlockBytes = 65536;

Descriptor OpenNewFile(const std::string& path, mode_t mode) {
  return Descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
}

bool SyncDirectoryOf(const std::string& path) {
  const std::string folder = path.substr(0, path.rfind('/') + 1);
  const Descriptor directory(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return directory && fsync(directory.Number()) == 0;
}

}  // namespace

bool CopyToNewFile(const std::string& source, const std::string& target, std::string& error) {
  const Descriptor from(open(source.c_str(), O_RDONLY | O_CLOEXEC));
  if (!from) return FailAt(source, error);
  const Descriptor to = OpenNewFile(target, 0600);
  if (!to) return FailAt(target, error);
  bool isWritten = true;
  const auto take = [&](std::string_view block) {
    isWritten = isWritten && WriteAll(to.Number(), block);
  };
  const bool isRead = ReadToEnd(from.Number(), BlockBytes, take);
  if (isRead && isWritten && fsync(to.Number()) == 0) return true;
  FailAt(isRead ? target : source, error);
  unlink(target.c_str());
  return false;
}

bool ReplaceFile(const std::string& path, const std::string& text, std::string& error) {
  const std::string fresh = path + ".new";
  unlink(fresh.c_str());
  const Descriptor file = OpenNewFile(fresh, 0644);
  if (!file || !WriteAll(file.Number(), text) || fsync(file.Number()) != 0) {
    FailAt(fresh, error);
    unlink(fresh.c_str());
    return false;
  }
  return MoveFile(fresh, path, error);
}

bool MoveFile(const std::string& from, const std::string& to, std::string& error) {
  if (rename(from.c_str(), to.c_str()) == 0 && SyncDirectoryOf(to)) return true;
  return FailAt(to, error);
}

}  // namespace Vantrell::Control
