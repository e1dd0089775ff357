// Tests of the library on the embedded host: a folder of their own, and what the host was told.
#pragma once

#include <gtest/gtest.h>
#include <kshost_app.h>

#include <string>
#include <vector>

#include "tempfolder.hpp"

namespace kit {

/// Everything reported since the test began: errors as "code/severity text", debug messages as they are.
inline std::vector<std::string> reports;

struct EmbeddedTest : testing::Test {
    TempFolder folder;

    void SetUp() override {
        reports.clear();
        KSHostSetErrorHandler(collectError, nullptr);
        KSHostSetDebugHandler(collectDebug, nullptr);
        KSHostResetErrorCount();
    }
    void TearDown() override {
        EXPECT_EQ(KSHostErrorCount(), 0);
        KSHostSetErrorHandler(nullptr, nullptr);
        KSHostSetDebugHandler(nullptr, nullptr);
    }

private:
    static void collectError(void*, int nCode, int nSeverity, const char* szText) {
        reports.push_back(std::to_string(nCode) + "/" + std::to_string(nSeverity) + " " + szText);
    }
    static void collectDebug(void*, const char* szText) { reports.emplace_back(szText); }
};

}  // namespace kit
