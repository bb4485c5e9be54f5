#pragma once

// A directory of a test's own, removed at the end of the test.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace Vantrell {

class TemporaryFolder {
 public:
  TemporaryFolder() = default;
  TemporaryFolder(TemporaryFolder&&) = delete;
  ~TemporaryFolder() { std::filesystem::remove_all(root_); }

  std::string Path(const std::string& name) const { return root_ + "/" + name; }

  // Writes a file, makes the directories above it, and returns its path.
  std::string Write(const std::string& name, const std::string& content) const {
    std::filesystem::create_directories(std::filesystem::path(Path(name)).parent_path());
    std::ofstream(Path(name), std::ios::binary) << content;
    return Path(name);
  }

 private:
  std::string root_ = mkdtemp((testing::TempDir() + "vantrell-test-XXXXXX").data());
};

}  // namespace Vantrell
