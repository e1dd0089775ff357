// What every test of the library starts from, an empty host, and ends with: nothing left open, armed or misused.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "allocator.hpp"
#include "expected.hpp"
#include "fakehost.hpp"

namespace kit {

using Names = std::vector<std::string>;

class LibraryTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
};

}  // namespace kit
