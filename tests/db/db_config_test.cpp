#include "db/db_config.h"

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <vector>

#include "support/message_of.h"

using namespace crv;

namespace {

class Record : public RwCfgStrValue {
  public:
    std::map<std::string, std::string> values;
    std::vector<std::string> written;

    bool read(const std::string& key, std::string& value) override {
        const auto it = values.find(key);
        if (it == values.end()) return false;
        value = it->second;
        return true;
    }
    void write(const std::string& key, const std::string& value) override {
        values[key] = value;
        written.push_back(key);
    }
};

TEST(DbConfig, SavesTheTypeFirstAndReadsBackWhatItSaved) {
    DbConfig config;
    Record record;
    EXPECT_THROW(config.save(record), std::runtime_error);
    ASSERT_TRUE(config.setAttr(17, "w pamieci") && config.setAttr(18, "x y") && config.setAttr(2, "/tmp/db/"));
    config.save(record);
    EXPECT_EQ(record.written, (std::vector<std::string>{"dbtype", "db", "dbname"}));
    DbConfig other;
    other.dbPass = "left over";
    other.load(record);
    EXPECT_EQ(other, config);
    std::string value;
    EXPECT_TRUE(other.getAttr(18, value) && value == "x y");
    EXPECT_FALSE(other.getAttr(3, value) || other.setAttr(3, value));
}

TEST(DbConfig, UnknownKindIsRefusedAndChangesNothing) {
    DbConfig config;
    config.setType("brak");
    const DbConfig before = config;
    Record record;
    record.values = {{"dbtype", "Corvane"}, {"db", "/x"}};
    EXPECT_EQ(
        crv::test::messageOf([&] { config.load(record); }),
        "Niepoprawna wartosc parametru konfiguracyjnego: dbType. Dopuszczalne wartosci to: corvane, w pamieci, brak");
    EXPECT_EQ(config, before);
}

}  // namespace
