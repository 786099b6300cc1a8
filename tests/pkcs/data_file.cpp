#include "pkcs/data_file.h"

#include <algorithm>
#include <filesystem>

#include "support/temp_dir.h"

namespace crv::test {

Bytes dataFile(const std::string& name) {
    return toBytes(asBytes(readFile(std::string(CRV_TEST_DATA) + "/" + name)));
}

std::vector<std::string> dataFiles(const std::string& prefix) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(CRV_TEST_DATA)) {
        const std::string name = entry.path().filename();
        if (name.starts_with(prefix) && !name.ends_with(".txt")) names.push_back(name);
    }
    std::ranges::sort(names);
    return names;
}

std::string openssl(const std::string& arguments, const ASNobject& object) {
    const TempDir dir;
    writeFile(dir.file("in.der"), std::string(asText(object.encoded())));
    return shell("openssl " + arguments + " -in " + dir.file("in.der"));
}

}  // namespace crv::test
