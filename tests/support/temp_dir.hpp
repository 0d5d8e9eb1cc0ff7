// Scratch files for tests that hand paths to other programs.
#pragma once

#include <string>

namespace test_support {

// A scratch directory, removed with everything in it.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(TempDir const&) = delete;
  TempDir& operator=(TempDir const&) = delete;
  std::string const& path() const { return path_; }
  // Writes `contents` to `name` in the directory and returns its path.
  std::string file(std::string const& name, std::string const& contents) const;

 private:
  std::string path_;
};

// The whole file, or "" when it cannot be read.
std::string readFile(std::string const& path);

}  // namespace test_support
