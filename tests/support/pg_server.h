// A PostgreSQL server of the tests' own: in a temporary folder, on a Unix socket, as a user without rights.
#pragma once

#include <sys/types.h>

#include <string>

#include "support/temp_dir.h"

namespace crv::test {

/// Runs from the first use to the end of the process. The role "postgres" may do everything; nobody needs a password.
class PgServer {
  public:
    static PgServer& shared();
    PgServer();
    ~PgServer();
    PgServer(const PgServer&) = delete;
    PgServer& operator=(const PgServer&) = delete;

    /// A new database; answers its connection string.
    std::string newDatabase();
    /// What psql says to statements, one value a line.
    std::string sql(const std::string& connection, const std::string& statements) const;

    void start() const;
    /// Fast: running transactions are ended.
    void stop() const;
    /// As when the power of the machine went, save that the file system keeps what it was given.
    void killServer() const;
    /// The process that accepts connections.
    [[nodiscard]] pid_t postmaster() const;
    [[nodiscard]] std::string folder() const { return dir_.path().string(); }
    /// Lines for pg_hba.conf, before those that let everybody in.
    void demand(const std::string& lines) const;
    /// Lines for postgresql.conf; the server starts anew.
    void configure(const std::string& lines) const;

  private:
    void control(const std::string& what) const;

    TempDir dir_;
    std::string programs_, asUser_;
    int databases_ = 0;
};

}  // namespace crv::test
