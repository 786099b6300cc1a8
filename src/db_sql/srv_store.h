// The last import number of each server.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "db/db_lock.h"
#include "misc/bytes.h"

namespace crv {

/// Numbers by server name. Failures are exceptions.
class SrvStore {
  public:
    SrvStore() = default;
    virtual ~SrvStore() = default;
    SrvStore(const SrvStore&) = delete;
    SrvStore& operator=(const SrvStore&) = delete;

    using Numbers = std::map<std::string, long>;

    /// Forgets a server; nothing to do for an unknown one.
    virtual void delSrv(const std::string& name) = 0;
    /// 0 for an unknown server.
    [[nodiscard]] virtual long getLastImportNr(const std::string& name) = 0;
    /// A name with a line end is refused with an exception.
    void setLastImportNr(const std::string& name, long number);
    [[nodiscard]] virtual Numbers read() = 0;

  protected:
    virtual void put(const std::string& name, long number) = 0;
};

/// Numbers that are read and changed as a whole.
class SrvMapStore : public SrvStore {
  public:
    void delSrv(const std::string& name) override;
    [[nodiscard]] long getLastImportNr(const std::string& name) override;

  protected:
    void put(const std::string& name, long number) override;
    /// Changes the numbers while nobody else does.
    virtual void change(const std::function<void(Numbers&)>& edit) = 0;
};

/// "imports.dat": a line for each server, the number in decimal, a space, the name. Other lines are passed over.
class SrvCrv final : public SrvMapStore {
  public:
    SrvCrv(const std::string& directory, DbLock& lock);
    Numbers read() override;

  protected:
    void change(const std::function<void(Numbers&)>& edit) override;

  private:
    [[nodiscard]] Numbers load() const;

    std::string path_;
    DbLock* lock_;
};

class SrvMem : public SrvMapStore {
  public:
    Numbers read() override;

  protected:
    void change(const std::function<void(Numbers&)>& edit) override;

  private:
    std::mutex mutex_;
    Numbers numbers_;
};

}  // namespace crv
