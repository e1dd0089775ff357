// What every test of the library starts from, an empty host, and ends with: nothing left open, armed or misused.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "allocator.hpp"
#include "expected.hpp"
#include "fakehost.hpp"

namespace kit {

using Names = std::vector<std::string>;

/// Frees an array of a record and forgets it.
inline constexpr auto drop = [](auto*& array) {
    std::free(array);
    array = nullptr;
};

class LibraryTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
};

}  // namespace kit
