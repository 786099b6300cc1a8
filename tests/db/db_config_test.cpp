#include "db/db_config.h"

#include <gtest/gtest.h>

#include <map>

#include "support/message_of.h"

using namespace crv;
using crv::test::messageOf;

namespace {

struct Record : RwCfgStrValue {
    std::map<std::string, std::string> values;
    std::string written;  // the keys in their order

    bool read(const std::string& key, std::string& value) override {
        return values.contains(key) && (value = values[key], true);
    }
    void write(const std::string& key, const std::string& value) override {
        values[key] = value;
        written += key + " ";
    }
};

TEST(DbConfig, SavesTheTypeFirstAndReadsBackWhatItSaved) {
    DbConfig config, other;
    Record record;
    EXPECT_EQ(messageOf([&] { config.save(record); }), "Parametr: dbtype nie istnieje");
    ASSERT_TRUE(config.setAttr(17, "w pamieci") && config.setAttr(18, "x y") && config.setAttr(2, "/tmp/db/"));
    config.save(record);
    EXPECT_EQ(record.written, "dbtype db dbname ");
    other.dbPass = "left over";
    other.load(record);
    EXPECT_EQ(other, config);
    std::string value;
    EXPECT_TRUE(other.getAttr(18, value) && value == "x y");
    EXPECT_FALSE(other.getAttr(3, value) || other.setAttr(3, value));
    record.values["dbtype"] = "Corvane";
    EXPECT_EQ(
        messageOf([&] { other.load(record); }),
        "Niepoprawna wartosc parametru konfiguracyjnego: dbType. Dopuszczalne wartosci to: corvane, w pamieci, brak, "
        "postgresql");
    EXPECT_EQ(other, config) << "nothing is changed";
}

}  // namespace
