// The last import number of each server.
#pragma once

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

    /// Forgets a server; nothing to do for an unknown one.
    void delSrv(const std::string& name);
    /// 0 for an unknown server.
    [[nodiscard]] long getLastImportNr(const std::string& name);
    /// A name with a line end is refused with an exception.
    void setLastImportNr(const std::string& name, long number);

  protected:
    using Numbers = std::map<std::string, long>;
    virtual Numbers read() = 0;
    /// Changes the numbers while nobody else does.
    virtual void change(const std::function<void(Numbers&)>& edit) = 0;
};

/// "imports.dat": a line for each server, the number in decimal, a space, the name. Other lines are passed over.
class SrvCrv final : public SrvStore {
  public:
    SrvCrv(const std::string& directory, DbLock& lock);

  protected:
    Numbers read() override;
    void change(const std::function<void(Numbers&)>& edit) override;

  private:
    [[nodiscard]] Numbers load() const;

    std::string path_;
    DbLock* lock_;
};

class SrvMem : public SrvStore {
  protected:
    Numbers read() override;
    void change(const std::function<void(Numbers&)>& edit) override;

  private:
    std::mutex mutex_;
    Numbers numbers_;
};

}  // namespace crv
