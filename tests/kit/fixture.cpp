#include "fixture.hpp"

#include <cstdio>
#include <cstdlib>

namespace kit {
namespace {

bool insideTest = false;

// A library that ends the process under test would otherwise look like a test that passed.
void abortInsideTest() {
    if (!insideTest) return;
    std::fputs("the process was ended from inside a test\n", stderr);
    std::abort();
}

}  // namespace

void LibraryTest::SetUp() {
    static const bool registered = std::atexit(abortInsideTest) == 0;
    ASSERT_TRUE(registered);
    insideTest = true;
    resetHost();
    refuseAllocation(0);
    refuseNoMatrixCall();
}

void LibraryTest::TearDown() {
    insideTest = false;
    EXPECT_EQ(host().liveHandles(), 0);
    EXPECT_EQ(host().liveLists(), 0);
    EXPECT_EQ(host().liveCubes(), 0);
    EXPECT_EQ(host().armedTraps(), 0);
    EXPECT_EQ(host().misuse, Names{});
}

}  // namespace kit
