// What the tests of the tables share: small tables, a model to compare with, readable failures.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "db/database.h"
#include "db/table_check.h"
#include "support/temp_dir.h"

namespace crv::test {

/// A page that holds four keys and so splits often.
inline IndexDesc tinyDesc(int16_t keyLen) {
    return {keyLen, static_cast<int16_t>(32 + 4 * (keyLen + 16))};
}

/// The number of the new record; 0 when it is refused.
inline int64_t add(DataBase& table, const std::vector<std::string>& keys, const std::string& body) {
    int64_t recNo = 0;
    const std::vector<std::string_view> views(keys.begin(), keys.end());
    return table.insert(views, asBytes(body), recNo) == kDbOk ? recNo : 0;
}

inline std::string bodyAt(DataBase& table) {
    TableRecord record;
    const int answer = table.data(record);
    return answer == kDbOk ? std::string(asText(record.body)) : "answer " + std::to_string(answer);
}

inline std::string problemsOf(const std::string& name) {
    std::string all;
    for (const std::string& problem : checkTable(name).problems) all += problem + "\n";
    return all;
}

/// Repetitions of a random test; CRV_TEST_ROUNDS multiplies them.
inline int rounds(int usual) {
    const char* factor = std::getenv("CRV_TEST_ROUNDS");
    return factor ? usual * std::atoi(factor) : usual;
}

inline uint64_t seedOf() {
    const char* given = std::getenv("CRV_TEST_SEED");
    return given ? std::strtoull(given, nullptr, 10) : std::random_device{}();
}

}  // namespace crv::test
