#pragma once

// Reading, making and removing directories. Any thread may call these; they log nothing.

#include <dirent.h>
#include <sys/types.h>

#include <memory>
#include <string>

namespace Vantrell {

struct DirectoryClose {
  void operator()(DIR* directory) const { (void)closedir(directory); }
};
using Directory = std::unique_ptr<DIR, DirectoryClose>;

// Null when it cannot be opened.
Directory OpenDirectory(const std::string& path);

// Makes a directory and its parents, each with `mode` under the process's umask. True if the
// path ends up as a directory. What exists is left as it is, whatever its mode; a component
// that is no directory gives false.
bool MakeDirs(const std::string& path, mode_t mode);

// Removes a file, a link or a whole directory, and never follows a symbolic link. True if
// nothing is left at the path, also when nothing was there.
bool RemoveTree(const std::string& path);

}  // namespace Vantrell
