#include "base/directories.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace Vantrell {

Directory OpenDirectory(const std::string& path) { return Directory(opendir(path.c_str())); }

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
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0) return true;
  if (!S_ISDIR(status.st_mode)) return unlink(path.c_str()) == 0;

  Directory directory = OpenDirectory(path);
  if (!directory) return rmdir(path.c_str()) == 0;
  while (const dirent* entry = readdir(directory.get())) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    // If a child cannot be removed, the rmdir() below fails too.
    RemoveTree(path + "/" + entry->d_name);
  }
  directory.reset();
  return rmdir(path.c_str()) == 0;
}

}  // namespace Vantrell
