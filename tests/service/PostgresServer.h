#pragma once

#include <string>

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

#ifdef ZELVO_POSTGRES
#include <pqxx/pqxx>
#endif

namespace zelvo::test {

/// A PostgreSQL of our own with one database.
class PostgresServer {
  public:
    bool isRunning() const { return isRunning_; }
    std::string place() const { return "postgresql://zelvo@/postgres?host=" + folder_.path(); }

#ifdef ZELVO_POSTGRES
    void run(const std::string& sql) const {
        pqxx::connection connection(place());
        pqxx::nontransaction(connection).exec(sql);
    }
    /// The first row's first column.
    std::string ask(const std::string& sql) const {
        pqxx::connection connection(place());
        return pqxx::nontransaction(connection).exec(sql)[0][0].as<std::string>();
    }
#else
    void run(const std::string&) const {}
    std::string ask(const std::string&) const {
        return {};
    }
#endif
    void empty() const {
        run("DROP TABLE IF EXISTS links, zelvo_layout");
    }

    /// The program's only one.
    static PostgresServer& instance() {
        static PostgresServer server;
        return server;
    }

  private:
    PostgresServer() {
#ifdef ZELVO_POSTGRES
        constexpr auto ready = "LOG:  database system is ready";
        isRunning_ = process_.readLineBeginning(ready).starts_with(ready);
#endif
    }

    TemporaryFolder folder_;
    // Nobody reads what it says later, so it must say little.
    ChildProcess process_{"exec " ZELVO_TESTS "/support/postgres " + folder_.path() +
                          " -c fsync=off -c log_min_messages=log -c log_checkpoints=off"};
    bool isRunning_ = false;
};

}  // namespace zelvo::test
