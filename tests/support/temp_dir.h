// A directory that a test may fill; removed with all that it holds when the object ends.
#pragma once

#include <filesystem>
#include <string>

namespace crv::test {

class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    [[nodiscard]] std::string file(const std::string& name) const { return (path_ / name).string(); }

  private:
    std::filesystem::path path_;
};

/// Whole file as bytes; a file that cannot be read fails the running test.
std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);

/// Runs a shell command; returns its standard output and error. status, when given, receives the exit status.
std::string shell(const std::string& command, int* status = nullptr);

}  // namespace crv::test
