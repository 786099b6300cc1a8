// Everything that is wrong with the tables of a database directory, in words; empty when they are sound.
#pragma once

#include <string>
#include <vector>

namespace crv::test {

std::vector<std::string> problemsOf(const std::string& directory);

}  // namespace crv::test
