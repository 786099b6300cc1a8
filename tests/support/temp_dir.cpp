#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace crv::test {

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "crvtest.XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp " + pattern);
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.is_open()) << path;
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return std::move(bytes).str();
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
    EXPECT_TRUE(out.flush().good()) << path;
}

std::string shell(const std::string& command, int* status) {
    std::FILE* pipe = popen(("{ " + command + "\n} 2>&1").c_str(), "r");
    if (!pipe) throw std::runtime_error("popen " + command);
    std::string output;
    std::array<char, 4096> buffer{};
    while (const size_t n = std::fread(buffer.data(), 1, buffer.size(), pipe)) output.append(buffer.data(), n);
    const int result = pclose(pipe);
    const int code = WIFEXITED(result) ? WEXITSTATUS(result) : -1;
    if (status) {
        *status = code;
    } else {
        EXPECT_EQ(code, 0) << command << "\n" << output;
    }
    return output;
}

}  // namespace crv::test
