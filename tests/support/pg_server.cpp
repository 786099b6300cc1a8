#include "support/pg_server.h"

#include <unistd.h>

#include <csignal>
#include <fstream>

namespace crv::test {

PgServer& PgServer::shared() {
    static PgServer server;
    return server;
}

PgServer::PgServer() {
    programs_ = shell("ls -d /usr/lib/postgresql/*/bin | tail -n 1");
    programs_.back() = '/';
    // The server refuses to run as root.
    if (geteuid() == 0) {
        asUser_ = "runuser -u postgres -- ";
        shell("chown postgres " + folder());
    }
    shell("cd " + folder() + " && " + asUser_ + programs_ +
          "initdb -D data -U postgres -A trust -E UTF8 --locale=C --no-sync --no-instructions");
    std::ofstream(dir_.file("data/postgresql.conf"), std::ios::app)
        << "listen_addresses = ''\nunix_socket_directories = '" << folder()
        << "'\nfsync = off\nshared_buffers = 64MB\nautovacuum = off\nlogging_collector = off\n";
    start();
}

PgServer::~PgServer() {
    shell("kill -CONT " + std::to_string(postmaster()) + "; cd " + folder() + " && " + asUser_ + programs_ +
          "pg_ctl -D data -m immediate stop; true");
}

void PgServer::control(const std::string& what) const {
    shell("cd " + folder() + " && " + asUser_ + programs_ + "pg_ctl -D data -l log -w " + what + " </dev/null");
}

void PgServer::start() const {
    control("start");
}

void PgServer::stop() const {
    control("-m fast stop");
}

pid_t PgServer::postmaster() const {
    pid_t pid = 0;
    std::ifstream(dir_.file("data/postmaster.pid")) >> pid;
    return pid;
}

void PgServer::killServer() const {
    const pid_t pid = postmaster();
    shell("pkill -KILL -P " + std::to_string(pid) + "; kill -KILL " + std::to_string(pid) + "; while kill -0 " +
          std::to_string(pid) + " 2>/dev/null; do sleep 0.01; done");
}

void PgServer::demand(const std::string& lines) const {
    const std::string rest = "local all all trust\n";
    writeFile(dir_.file("data/pg_hba.conf"), lines + rest);
    control("reload");
}

void PgServer::configure(const std::string& lines) const {
    std::ofstream(dir_.file("data/postgresql.conf"), std::ios::app) << lines << '\n';
    control("-m fast restart");
}

std::string PgServer::newDatabase() {
    const std::string name = "t" + std::to_string(++databases_);
    const std::string host = "host=" + folder() + " user=postgres dbname=";
    sql(host + "postgres", "CREATE DATABASE " + name);
    return host + name;
}

std::string PgServer::sql(const std::string& connection, const std::string& statements) const {
    const std::string file = dir_.file("statements.sql");
    writeFile(file, statements);
    return shell("psql -X -q -A -t -v ON_ERROR_STOP=1 -d '" + connection + "' -f " + file);
}

}  // namespace crv::test
