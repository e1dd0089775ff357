// What can happen to a file while it is in use: other programs, other users, full disks, and processes that end.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <functional>
#include <string>

namespace hosttest {

/// Runs a body in a child process; returns what waitpid says.
inline int inChild(const std::function<int()>& body) {
    const pid_t child = fork();
    if (child == 0) _exit(body());
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

inline bool succeeded(int status) { return WIFEXITED(status) && WEXITSTATUS(status) == 0; }

/// Runs a body as a user who owns nothing here.
inline int asNobody(const std::function<int()>& body) {
    return inChild([&] {
        if (geteuid() == 0 && (setegid(65534) != 0 || seteuid(65534) != 0)) return 99;
        return body();
    });
}

/// A connection past the host's own code, as any other program may hold one.
class OtherProgram {
public:
    explicit OtherProgram(const std::string& path) { sqlite3_open(path.c_str(), &db_); }
    ~OtherProgram() { sqlite3_close(db_); }
    OtherProgram(const OtherProgram&) = delete;
    OtherProgram& operator=(const OtherProgram&) = delete;
    void run(const char* sql) {
        ASSERT_EQ(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db_);
    }

private:
    sqlite3* db_ = nullptr;
};

/// A limit on file sizes stands for a full disk: the kernel refuses to let a file grow.
class FullDisk {
public:
    explicit FullDisk(rlim_t bytes) {
        before_ = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &old_);
        rlimit limited = old_;
        limited.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limited);
    }
    ~FullDisk() {
        setrlimit(RLIMIT_FSIZE, &old_);
        std::signal(SIGXFSZ, before_);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    rlimit old_ = {};
    void (*before_)(int) = nullptr;
};

}  // namespace hosttest
