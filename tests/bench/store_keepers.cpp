#include "tests/bench/store_keepers.h"

#include <fcntl.h>
#include <hiredis/hiredis.h>
#include <libpq-fe.h>
#include <pwd.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "common/mac_address.h"
#include "controller/store/sqlite/sqlite_store.h"

namespace bench {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t pipeline = 64;  // changes that wait for Redis or PostgreSQL at a time

[[noreturn]] void fail(const std::string &what) { throw std::runtime_error(what); }

std::string text_of(const kx::mac_address &mac) { return kx::format_mac(mac); }

class controllers_store : public keeper {
public:
    explicit controllers_store(const std::string &directory)
        : store_({.file = directory + "/store.db",
                  .cipher = std::nullopt,
                  .kept = {},
                  .wake = [] {},
                  .now =
                      [] {
                          return std::chrono::time_point_cast<std::chrono::milliseconds>(
                              std::chrono::system_clock::now());
                      },
                  .vfs = {}}) {
        store_.load();
    }
    void take(const std::vector<client_change> &changes) override {
        for (const client_change &each : changes) {
            const controller::change one = each;
            store_.write({&one, 1});
        }
    }
    void finish() override {
        while (store_.status().waiting > 0) {
            std::this_thread::sleep_for(1ms);
        }
        if (!store_.status().fault.empty()) {
            fail(store_.status().fault);
        }
    }

private:
    controller::sqlite_store store_;
};

class sqlite_keeper : public keeper {
public:
    explicit sqlite_keeper(const std::string &directory) {
        if (sqlite3_open((directory + "/plain.db").c_str(), &database_) != SQLITE_OK) {
            fail("cannot open a database of SQLite");
        }
        run("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL;"
            "CREATE TABLE client (mac TEXT PRIMARY KEY, bssid TEXT, home TEXT, vlan INTEGER, ip INTEGER) WITHOUT ROWID;"
            "CREATE TABLE history (number INTEGER PRIMARY KEY, at INTEGER, mac TEXT, what INTEGER, bssid TEXT);"
            "CREATE INDEX history_mac ON history (mac, number)");
        prepare("INSERT OR REPLACE INTO client VALUES (?1, ?2, ?3, ?4, ?5)", &client_);
        prepare("INSERT INTO history (at, mac, what, bssid) VALUES (?4, ?1, ?5, ?2)", &history_);
    }
    ~sqlite_keeper() override {
        sqlite3_finalize(client_);
        sqlite3_finalize(history_);
        sqlite3_close(database_);
    }
    void take(const std::vector<client_change> &changes) override {
        for (const client_change &each : changes) {
            const std::string mac = text_of(each.mac);
            const std::string bssid = text_of(each.state.now.bssid);
            const std::string home = text_of(each.state.home.bssid);
            run("BEGIN IMMEDIATE");
            sqlite3_bind_text(client_, 3, home.c_str(), -1, SQLITE_STATIC);
            step(client_, mac, bssid, 10, each.state.ip);
            step(history_, mac, bssid, std::time(nullptr), static_cast<std::int64_t>(each.what));
            run("COMMIT");
        }
    }
    void finish() override {}

private:
    void run(const char *statements) {
        if (sqlite3_exec(database_, statements, nullptr, nullptr, nullptr) != SQLITE_OK) {
            fail(sqlite3_errmsg(database_));
        }
    }
    void prepare(const char *text, sqlite3_stmt **made) {
        if (sqlite3_prepare_v2(database_, text, -1, made, nullptr) != SQLITE_OK) {
            fail(sqlite3_errmsg(database_));
        }
    }
    void step(sqlite3_stmt *statement, const std::string &mac, const std::string &bssid, std::int64_t fourth,
              std::int64_t fifth) {
        sqlite3_bind_text(statement, 1, mac.c_str(), -1, SQLITE_STATIC);
        sqlite3_bind_text(statement, 2, bssid.c_str(), -1, SQLITE_STATIC);
        sqlite3_bind_int64(statement, 4, fourth);
        sqlite3_bind_int64(statement, 5, fifth);
        if (sqlite3_step(statement) != SQLITE_DONE) {
            fail(sqlite3_errmsg(database_));
        }
        sqlite3_reset(statement);
    }

    sqlite3 *database_ = nullptr;
    sqlite3_stmt *client_ = nullptr;
    sqlite3_stmt *history_ = nullptr;
};

// A server in a process of its own, ended with the object.
class server {
public:
    // As the user `user` when it is not empty.
    server(const std::vector<std::string> &command, const std::string &user) : pid_(fork()) {
        if (pid_ == 0) {
            const passwd *const other = user.empty() ? nullptr : getpwnam(user.c_str());
            if (other != nullptr && (setgid(other->pw_gid) != 0 || setuid(other->pw_uid) != 0)) {
                _exit(126);
            }
            std::vector<char *> words;
            for (const std::string &each : command) {
                words.push_back(const_cast<char *>(each.c_str()));
            }
            words.push_back(nullptr);
            const int nowhere = open("/dev/null", O_RDWR);
            dup2(nowhere, STDOUT_FILENO);
            dup2(nowhere, STDERR_FILENO);
            execvp(words[0], words.data());
            _exit(127);
        }
    }
    ~server() {
        kill(pid_, SIGINT);
        waitpid(pid_, nullptr, 0);
    }
    server(const server &) = delete;
    server &operator=(const server &) = delete;

    pid_t pid() const { return pid_; }

private:
    pid_t pid_;
};

class redis_keeper : public keeper {
public:
    explicit redis_keeper(const std::string &directory)
        : server_({"redis-server", "--port", "0", "--unixsocket", directory + "/redis.sock", "--dir", directory,
                   "--save", "", "--appendonly", "yes", "--appendfsync", "everysec"},
                  "") {
        for (int attempt = 0; attempt < 200; attempt++) {
            std::this_thread::sleep_for(50ms);
            connection_.reset(redisConnectUnix((directory + "/redis.sock").c_str()));
            if (connection_ != nullptr && connection_->err == 0) {
                return;
            }
        }
        fail("redis-server does not answer");
    }
    void take(const std::vector<client_change> &changes) override {
        for (std::size_t first = 0; first < changes.size(); first += pipeline) {
            const std::size_t end = std::min(changes.size(), first + pipeline);
            for (std::size_t i = first; i < end; i++) {
                append(changes[i]);
            }
            for (std::size_t i = 2 * first; i < 2 * end; i++) {
                void *reply = nullptr;
                if (redisGetReply(connection_.get(), &reply) != REDIS_OK ||
                    static_cast<redisReply *>(reply)->type == REDIS_REPLY_ERROR) {
                    fail("Redis refuses a change");
                }
                freeReplyObject(reply);
            }
        }
    }
    void finish() override {}
    double other_cpu_us() const override { return cpu_us_of(server_.pid()); }

private:
    struct closer {
        void operator()(redisContext *context) const { redisFree(context); }
    };
    void append(const client_change &each) {
        const std::string mac = text_of(each.mac);
        const std::string bssid = text_of(each.state.now.bssid);
        redisAppendCommand(connection_.get(), "HSET c:%s bssid %s home %s vlan %u ip %u", mac.c_str(), bssid.c_str(),
                           text_of(each.state.home.bssid).c_str(), 10U, each.state.ip);
        redisAppendCommand(connection_.get(), "XADD h:%s * what %u bssid %s", mac.c_str(),
                           static_cast<unsigned>(each.what), bssid.c_str());
    }

    server server_;
    std::unique_ptr<redisContext, closer> connection_;
};

class postgres_keeper : public keeper {
public:
    explicit postgres_keeper(const std::string &directory) {
        const std::string bin = "/usr/lib/postgresql/15/bin/";
        const std::string data = directory + "/data";
        const std::string make = "chown postgres " + directory + " && su postgres -s /bin/sh -c '" + bin +
                                 "initdb -A trust -D " + data + "' >/dev/null 2>&1";
        if (std::system(make.c_str()) != 0) {
            fail("initdb failed");
        }
        server_ = std::make_unique<server>(
            std::vector<std::string>{bin + "postgres", "-D", data, "-k", directory, "-c", "listen_addresses="},
            "postgres");
        for (int attempt = 0; attempt < 400 && PQstatus(connection_.get()) != CONNECTION_OK; attempt++) {
            std::this_thread::sleep_for(50ms);
            connection_.reset(PQconnectdb(("host=" + directory + " user=postgres dbname=postgres").c_str()));
        }
        run("CREATE TABLE client (mac macaddr PRIMARY KEY, bssid macaddr, home macaddr, vlan int, ip bigint)");
        run("CREATE TABLE history (number bigserial PRIMARY KEY, at timestamptz DEFAULT now(), mac macaddr, what int, "
            "bssid macaddr)");
        run("CREATE INDEX ON history (mac, number)");
        PQclear(PQprepare(connection_.get(), "client",
                          "INSERT INTO client VALUES ($1, $2, $3, 10, $4) ON CONFLICT (mac) DO UPDATE SET bssid = $2, "
                          "home = $3, ip = $4",
                          4, nullptr));
        PQclear(PQprepare(connection_.get(), "history", "INSERT INTO history (mac, bssid, what) VALUES ($1, $2, $3)", 3,
                          nullptr));
        PQenterPipelineMode(connection_.get());
    }
    // A synchronisation point, and with it a transaction, for each change.
    void take(const std::vector<client_change> &changes) override {
        for (std::size_t first = 0; first < changes.size(); first += pipeline) {
            const std::size_t end = std::min(changes.size(), first + pipeline);
            for (std::size_t i = first; i < end; i++) {
                send(changes[i]);
            }
            for (std::size_t i = first; i < end; i++) {
                receive();
            }
        }
    }
    void finish() override {}
    // The backend works for the one connection; the other processes of the server are left out.
    double other_cpu_us() const override { return cpu_us_of(PQbackendPID(connection_.get())); }

private:
    struct closer {
        void operator()(PGconn *connection) const { PQfinish(connection); }
    };
    void run(const char *command) {
        const std::unique_ptr<PGresult, decltype(&PQclear)> result(PQexec(connection_.get(), command), PQclear);
        if (PQresultStatus(result.get()) != PGRES_COMMAND_OK) {
            fail(PQerrorMessage(connection_.get()));
        }
    }
    void send(const client_change &each) {
        const std::string mac = text_of(each.mac);
        const std::string bssid = text_of(each.state.now.bssid);
        const std::string home = text_of(each.state.home.bssid);
        const std::string ip = std::to_string(each.state.ip);
        const std::string what = std::to_string(static_cast<unsigned>(each.what));
        const char *const client[] = {mac.c_str(), bssid.c_str(), home.c_str(), ip.c_str()};
        const char *const history[] = {mac.c_str(), bssid.c_str(), what.c_str()};
        PQsendQueryPrepared(connection_.get(), "client", 4, client, nullptr, nullptr, 0);
        PQsendQueryPrepared(connection_.get(), "history", 3, history, nullptr, nullptr, 0);
        PQpipelineSync(connection_.get());
    }
    // The results of both statements, each followed by none, and of the synchronisation point.
    void receive() {
        for (int i = 0; i < 2; i++) {
            const std::unique_ptr<PGresult, decltype(&PQclear)> done(PQgetResult(connection_.get()), PQclear);
            if (PQresultStatus(done.get()) != PGRES_COMMAND_OK) {
                fail(PQerrorMessage(connection_.get()));
            }
            PQclear(PQgetResult(connection_.get()));
        }
        PQclear(PQgetResult(connection_.get()));
    }

    std::unique_ptr<server> server_;
    std::unique_ptr<PGconn, closer> connection_;
};

}  // namespace

double cpu_us_of(pid_t process) {
    double us = 0;
    for (const auto &task : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        double ns = 0;
        std::ifstream(task.path() / "schedstat") >> ns;
        us += ns / 1000;
    }
    return us;
}

std::unique_ptr<keeper> make_controllers_store(const std::string &directory) {
    return std::make_unique<controllers_store>(directory);
}
std::unique_ptr<keeper> make_sqlite(const std::string &directory) { return std::make_unique<sqlite_keeper>(directory); }
std::unique_ptr<keeper> make_redis(const std::string &directory) { return std::make_unique<redis_keeper>(directory); }
std::unique_ptr<keeper> make_postgres(const std::string &directory) {
    return std::make_unique<postgres_keeper>(directory);
}

}  // namespace bench
