#include "support/temp_dir.hpp"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace test_support {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "clipboard-test-XXXXXX").string();
  if (!::mkdtemp(pattern.data()))
    throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::file(std::string const& name, std::string const& contents) const {
  auto const path = path_ + "/" + name;
  std::ofstream(path, std::ios::binary) << contents;
  return path;
}

std::string readFile(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace test_support
