// What the contract suite needs to know about the host that it runs on, and what its files share.
#pragma once

#include <gtest/gtest.h>
#include <kshost.h>

#include <string>
#include <vector>

namespace contract {

/// A name under which no file exists yet when the test starts.
std::string freshName(const std::string& name);
/// Called before and after every test.
void begin();
void end();

constexpr int kRead = 0;
constexpr int kWrite = 1;
constexpr int kFileLevel = 1;
constexpr int kChannelLevel = 2;
constexpr int kWholeFile = -1;

constexpr int kNativeFile = 3;
constexpr int kMemoryFile = 60;
constexpr int kReal = 2;
constexpr int kText = 3;
constexpr int kLayerSegment = 116;
constexpr int kTableSegment = 180;

inline std::vector<std::string> entries(HostStringList list) {
    std::vector<std::string> texts;
    for (char** entry = list; entry != nullptr && *entry != nullptr; ++entry) texts.emplace_back(*entry);
    return texts;
}

inline std::vector<std::string> takeEntries(HostStringList list) {
    std::vector<std::string> texts = entries(list);
    DestroyStringList(list);
    return texts;
}

struct HostContract : testing::Test {
    void SetUp() override {
        begin();
        ImageRegister();
    }
    void TearDown() override { end(); }
};

}  // namespace contract
