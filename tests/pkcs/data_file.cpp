#include "pkcs/data_file.h"

#include <algorithm>
#include <filesystem>

#include "support/temp_dir.h"

namespace crv::test {

Bytes dataFile(const std::string& name) {
    return toBytes(asBytes(readFile(std::string(CRV_TEST_DATA) + "/" + name)));
}

std::vector<std::string> dataFiles(const std::string& prefix, const std::string& suffix) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(CRV_TEST_DATA)) {
        const std::string name = entry.path().filename();
        if (name.starts_with(prefix) && name.ends_with(suffix)) names.push_back(name);
    }
    std::ranges::sort(names);
    return names;
}

}  // namespace crv::test
