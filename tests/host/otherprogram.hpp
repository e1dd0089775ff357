// Another program that has its hands on a sidecar.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>

namespace hosttest {

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

}  // namespace hosttest
