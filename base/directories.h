#pragma once

// Reading, making and removing directories. Any thread may call these; they log nothing.

#include <dirent.h>
#include <sys/types.h>

#include <memory>
#include <string>

namespace Vantrell {

struct DirectoryClose {
  void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, DirectoryClose>;

// Null when the directory cannot be opened.
Directory OpenDirectory(const std::string& path);

// The directory `name` in the open directory `parent`. Null for a link, and when it cannot be
// opened.
Directory OpenDirectoryAt(int parent, const char* name);

// The name of the next entry except "." and "..", or null after the last one. Valid until the next
// call for this directory.
const char* NextEntry(const Directory& directory);

// Makes a directory and its parents, each with `mode` under the process's umask. An existing
// directory is left as it is, whatever its mode. False when a component of the path is not a
// directory or cannot be made. True does not prove a directory: a link to nothing at the path
// gives true too.
bool MakeDirs(const std::string& path, mode_t mode);

// MakeDirs for the directory that the file `path` is in. `path` must contain a "/".
bool MakeParentDirs(const std::string& path, mode_t mode);

// Removes a file, a link or a directory with everything in it. Never follows a symbolic link, also
// if another process replaces a directory by a link meanwhile. True if nothing is left at the path,
// also if nothing was there.
bool RemoveTree(const std::string& path);

}  // namespace Vantrell
