// Which database a profile uses: the settings that its record keeps and the kinds they can name.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace crv {

/// Reads and writes the string values of a settings record by key.
class RwCfgStrValue {
  public:
    RwCfgStrValue() = default;
    virtual ~RwCfgStrValue() = default;
    RwCfgStrValue(const RwCfgStrValue&) = delete;
    RwCfgStrValue& operator=(const RwCfgStrValue&) = delete;

    /// False, leaving value alone, when there is no such key.
    [[nodiscard]] virtual bool read(const std::string& key, std::string& value) = 0;
    virtual void write(const std::string& key, const std::string& value) = 0;
};

/// The kinds of databases, as "dbtype" names them.
inline constexpr std::string_view kDbKindFile = "corvane";      ///< files in a directory
inline constexpr std::string_view kDbKindMemory = "w pamieci";  ///< held in memory, shared by name
inline constexpr std::string_view kDbKindNone = "brak";         ///< no database
inline constexpr std::string_view kDbKindPg = "postgresql";     ///< on a PostgreSQL server

/// Database settings of a profile. Empty values are settings that are not there.
class DbConfig {
  public:
    DbConfig() = default;
    DbConfig(const DbConfig&) = default;
    DbConfig(DbConfig&&) = default;
    DbConfig& operator=(const DbConfig& other);
    DbConfig& operator=(DbConfig&& other) noexcept;
    /// Wipes the password.
    ~DbConfig();

    /// Empty for a profile that names no database.
    [[nodiscard]] const std::string& type() const { return type_; }
    /// Throws StoreError "Niepoprawna wartosc parametru konfiguracyjnego: dbType. Dopuszczalne wartosci to: "
    /// and the kinds for a kind that is not one of these.
    void setType(const std::string& type);

    /// Reads all settings, replacing the old ones. Throws like setType.
    void load(RwCfgStrValue& source);
    /// Writes "dbtype" first, then the settings that are not empty. Throws StoreError
    /// "Parametr: dbtype nie istnieje" when there is no type.
    void save(RwCfgStrValue& target) const;

    /// The settings by their profile attribute (2 directory, 17 type, 18 name, 19 login, 20 password); false for any
    /// other. Setting a type throws like setType.
    [[nodiscard]] bool getAttr(long id, std::string& value) const;
    [[nodiscard]] bool setAttr(long id, const std::string& value);

    std::string db;       ///< directory of the file kind
    std::string dbName;   ///< name under which a memory database is shared; libpq's connection string or service name
    std::string dbLogin;  ///< user at the server; wins over one that dbName names
    std::string dbPass;   ///< empty: libpq's password file, which is the better place

    bool operator==(const DbConfig&) const = default;

  private:
    std::string type_;
};

}  // namespace crv
