#include "base/directories.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "base/descriptor.h"

namespace Vantrell {
namespace {

bool IsThere(const char* path) {
  struct stat status = {};
  return lstat(path, &status) == 0;
}

// `top` is the path of the whole removal. The removal of "a/.." ends when "a" is gone, because the
// path then leads nowhere: it must not go on in the parent.
bool RemoveTreeAt(const char* top, int parent, const char* name) {
  struct stat status = {};
  if (!IsThere(top) || fstatat(parent, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return true;
  if (!S_ISDIR(status.st_mode)) return unlinkat(parent, name, 0) == 0;

  Directory directory = OpenDirectoryAt(parent, name);
  if (!directory) return unlinkat(parent, name, AT_REMOVEDIR) == 0;
  while (const char* child = NextEntry(directory)) {
    // If a child cannot be removed, the removal of the directory fails too.
    RemoveTreeAt(top, dirfd(directory.get()), child);
  }
  directory.reset();
  return IsThere(top) && unlinkat(parent, name, AT_REMOVEDIR) == 0;
}

}  // namespace

Directory OpenDirectory(const std::string& path) { return Directory(opendir(path.c_str())); }

Directory OpenDirectoryAt(int parent, const char* name) {
  Descriptor opened(openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!opened) return nullptr;
  Directory directory(fdopendir(opened.Number()));
  if (directory) (void)opened.Release();  // the directory owns it now
  return directory;
}

const char* NextEntry(const Directory& directory) {
  while (const dirent* entry = readdir(directory.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") return entry->d_name;
  }
  return nullptr;
}

bool MakeDirs(const std::string& path, mode_t mode) {
  if (path.empty()) return false;
  struct stat status = {};
  if (stat(path.c_str(), &status) == 0) return S_ISDIR(status.st_mode);

  const size_t slash = path.rfind('/');
  if (slash != std::string::npos && slash != 0 && !MakeDirs(path.substr(0, slash), mode)) {
    return false;
  }
  // EEXIST: another thread may have made it since the stat() above.
  return mkdir(path.c_str(), mode) == 0 || errno == EEXIST;
}

bool MakeParentDirs(const std::string& path, mode_t mode) {
  return MakeDirs(path.substr(0, path.rfind('/')), mode);
}

bool RemoveTree(const std::string& path) {
  return RemoveTreeAt(path.c_str(), AT_FDCWD, path.c_str());
}

}  // namespace Vantrell
