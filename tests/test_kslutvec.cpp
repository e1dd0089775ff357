// Vectors of 64-bit values, in a family where 1 is success and nothing is reported.
#include <kslib/kslutvec.h>

#include <cstdint>
#include <cstdlib>
#include <limits>

#include "tables.hpp"

using namespace kit;

namespace {

constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();

/// Nothing of this family asks the host for anything, let alone reports.
struct VectorTest : LibraryTest {
    void TearDown() override {
        EXPECT_EQ(host().calls.size(), 0U);
        LibraryTest::TearDown();
    }
};

/// A vector whose record is not one that was made: no values, or no array of them.
struct Broken {
    std::int64_t values[3] = {7, 8, 9};
    KSLUTVector withoutCount{0, values};
    KSLUTVector negative{-3, values};
    KSLUTVector withoutArray{3, nullptr};
    Extents left() const { return {values, values + 3}; }
};

// ---- making and copying ----

TEST_F(VectorTest, IsMadeOfZeros) {
    const Vector vector(KSLUTVectorCreate(4));
    ASSERT_NE(vector, nullptr);
    EXPECT_EQ(vector->nDimensions, 4);
    EXPECT_EQ(valuesOf(vector), (Extents{0, 0, 0, 0}));
}

TEST_F(VectorTest, NeedsADimension) {
    EXPECT_EQ(KSLUTVectorCreate(0), nullptr);
    EXPECT_EQ(KSLUTVectorCreate(-1), nullptr);
    EXPECT_EQ(KSLUTVectorCreate(std::numeric_limits<int>::min()), nullptr);
    EXPECT_EQ(allocations(), 0);
}

TEST_F(VectorTest, IsNotMadeWithoutMemory) {
    for (int nth = 1;; ++nth) {
        refuseAllocation(nth);
        const Vector vector(KSLUTVectorCreate(4));
        if (!allocationRefused()) {
            EXPECT_NE(vector, nullptr);
            EXPECT_EQ(nth, 3) << "a record and its values";
            return;
        }
        ASSERT_EQ(vector, nullptr) << nth;
    }
}

TEST_F(VectorTest, ACopyHasValuesOfItsOwn) {
    const Vector source = vectorOf({kLeast, -1, kMost});
    const Vector copy(KSLUTVectorCreateFrom(source.get()));
    ASSERT_NE(copy, nullptr);
    ASSERT_EQ(copy->nDimensions, 3);
    EXPECT_NE(copy->panValues, source->panValues);
    EXPECT_EQ(valuesOf(copy), (Extents{kLeast, -1, kMost}));
    source->panValues[1] = 5;
    EXPECT_EQ(valuesOf(copy), (Extents{kLeast, -1, kMost}));
}

TEST_F(VectorTest, OnlyAWholeVectorIsCopied) {
    Broken broken;
    EXPECT_EQ(KSLUTVectorCreateFrom(nullptr), nullptr);
    EXPECT_EQ(KSLUTVectorCreateFrom(&broken.withoutCount), nullptr);
    EXPECT_EQ(KSLUTVectorCreateFrom(&broken.negative), nullptr);
    EXPECT_EQ(KSLUTVectorCreateFrom(&broken.withoutArray), nullptr);
}

TEST_F(VectorTest, IsNotCopiedWithoutMemory) {
    const Vector source = vectorOf({1, 2});
    for (int nth = 1;; ++nth) {
        refuseAllocation(nth);
        const Vector copy(KSLUTVectorCreateFrom(source.get()));
        if (!allocationRefused()) {
            ASSERT_NE(copy, nullptr);
            EXPECT_EQ(valuesOf(copy), (Extents{1, 2}));
            return;
        }
        ASSERT_EQ(copy, nullptr) << nth;
    }
}

TEST_F(VectorTest, TakesTheValuesOfAnotherOne) {
    const Vector source = vectorOf({1, 2, 3});
    const Vector target = vectorOf({7, 8, 9});
    EXPECT_EQ(KSLUTVectorSetFrom(source.get(), target.get()), kOk);
    EXPECT_EQ(valuesOf(target), (Extents{1, 2, 3}));
    EXPECT_EQ(valuesOf(source), (Extents{1, 2, 3}));
}

TEST_F(VectorTest, TakesItsOwnValues) {
    const Vector vector = vectorOf({1, 2, 3});
    EXPECT_EQ(KSLUTVectorSetFrom(vector.get(), vector.get()), kOk);
    EXPECT_EQ(valuesOf(vector), (Extents{1, 2, 3}));
}

TEST_F(VectorTest, TakesValuesOnlyFromAWholeVectorOfItsLength) {
    Broken broken;
    const Vector three = vectorOf({1, 2, 3});
    const Vector two = vectorOf({4, 5});
    EXPECT_EQ(KSLUTVectorSetFrom(nullptr, three.get()), kFailed);
    EXPECT_EQ(KSLUTVectorSetFrom(three.get(), nullptr), kFailed);
    EXPECT_EQ(KSLUTVectorSetFrom(nullptr, nullptr), kFailed);
    EXPECT_EQ(KSLUTVectorSetFrom(two.get(), three.get()), kFailed);
    EXPECT_EQ(KSLUTVectorSetFrom(three.get(), two.get()), kFailed);
    EXPECT_EQ(KSLUTVectorSetFrom(&broken.withoutCount, &broken.withoutCount), kFailed);
    EXPECT_EQ(KSLUTVectorSetFrom(&broken.negative, &broken.negative), kFailed);
    EXPECT_EQ(KSLUTVectorSetFrom(&broken.withoutArray, three.get()), kFailed);
    EXPECT_EQ(KSLUTVectorSetFrom(three.get(), &broken.withoutArray), kFailed);
    EXPECT_EQ(valuesOf(three), (Extents{1, 2, 3}));
    EXPECT_EQ(valuesOf(two), (Extents{4, 5}));
    EXPECT_EQ(broken.left(), (Extents{7, 8, 9}));
}

TEST_F(VectorTest, NoVectorIsDestroyed) { KSLUTVectorDestroy(nullptr); }

TEST_F(VectorTest, AVectorWithoutValuesIsDestroyed) {
    KSLUTVector* vector = KSLUTVectorCreate(2);
    ASSERT_NE(vector, nullptr);
    std::free(vector->panValues);
    vector->panValues = nullptr;
    KSLUTVectorDestroy(vector);
}

// ---- all values ----

TEST_F(VectorTest, BecomesZero) {
    const Vector vector = vectorOf({1, kMost, kLeast});
    EXPECT_EQ(KSLUTVectorZero(vector.get()), kOk);
    EXPECT_EQ(valuesOf(vector), (Extents{0, 0, 0}));
}

TEST_F(VectorTest, OnlyAWholeVectorBecomesZero) {
    Broken broken;
    EXPECT_EQ(KSLUTVectorZero(nullptr), kFailed);
    EXPECT_EQ(KSLUTVectorZero(&broken.withoutCount), kFailed);
    EXPECT_EQ(KSLUTVectorZero(&broken.negative), kFailed);
    EXPECT_EQ(KSLUTVectorZero(&broken.withoutArray), kFailed);
    EXPECT_EQ(broken.left(), (Extents{7, 8, 9}));
}

TEST_F(VectorTest, TakesAnArrayOfValues) {
    const Vector vector(KSLUTVectorCreate(3));
    const Extents values = {kMost, 0, -5};
    EXPECT_EQ(KSLUTVectorSetValues(vector.get(), values.data()), kOk);
    EXPECT_EQ(valuesOf(vector), values);
}

TEST_F(VectorTest, NoArrayMakesItZero) {
    const Vector vector = vectorOf({1, 2, 3});
    EXPECT_EQ(KSLUTVectorSetValues(vector.get(), nullptr), kOk);
    EXPECT_EQ(valuesOf(vector), (Extents{0, 0, 0}));
}

TEST_F(VectorTest, TakesItsOwnArray) {
    const Vector vector = vectorOf({1, 2, 3});
    EXPECT_EQ(KSLUTVectorSetValues(vector.get(), vector->panValues), kOk);
    EXPECT_EQ(valuesOf(vector), (Extents{1, 2, 3}));
}

TEST_F(VectorTest, GivesItsValues) {
    const Vector vector = vectorOf({kLeast, 2, kMost});
    Extents values(4, 77);
    EXPECT_EQ(KSLUTVectorGetValues(vector.get(), values.data()), kOk);
    EXPECT_EQ(values, (Extents{kLeast, 2, kMost, 77}));
    EXPECT_EQ(KSLUTVectorGetValues(vector.get(), nullptr), kOk);
    EXPECT_EQ(KSLUTVectorGetValues(vector.get(), vector->panValues), kOk);
    EXPECT_EQ(valuesOf(vector), (Extents{kLeast, 2, kMost}));
}

TEST_F(VectorTest, OnlyAWholeVectorTakesOrGivesValues) {
    Broken broken;
    Extents values = {1, 2, 3};
    KSLUTVector* const vectors[] = {nullptr, &broken.withoutCount, &broken.negative, &broken.withoutArray};
    for (KSLUTVector* vector : vectors) {
        EXPECT_EQ(KSLUTVectorSetValues(vector, values.data()), kFailed);
        EXPECT_EQ(KSLUTVectorSetValues(vector, nullptr), kFailed);
        EXPECT_EQ(KSLUTVectorGetValues(vector, values.data()), kFailed);
    }
    EXPECT_EQ(broken.left(), (Extents{7, 8, 9}));
    EXPECT_EQ(values, (Extents{1, 2, 3}));
}

// ---- one value ----

TEST_F(VectorTest, SetsOneValue) {
    const Vector vector = vectorOf({1, 2, 3});
    EXPECT_EQ(KSLUTVectorSetValue(vector.get(), 0, kLeast), kOk);
    EXPECT_EQ(KSLUTVectorSetValue(vector.get(), 2, kMost), kOk);
    EXPECT_EQ(valuesOf(vector), (Extents{kLeast, 2, kMost}));
}

TEST_F(VectorTest, GetsOneValue) {
    const Vector vector = vectorOf({kLeast, 2, kMost});
    std::int64_t value = 77;
    EXPECT_EQ(KSLUTVectorGetValue(vector.get(), 0, &value), kOk);
    EXPECT_EQ(value, kLeast);
    EXPECT_EQ(KSLUTVectorGetValue(vector.get(), 2, &value), kOk);
    EXPECT_EQ(value, kMost);
    EXPECT_EQ(KSLUTVectorGetValue(vector.get(), 1, nullptr), kOk);
}

TEST_F(VectorTest, HasNoValueOutsideItsDimensions) {
    const Vector vector = vectorOf({1, 2, 3});
    std::int64_t value = 77;
    for (const int i : {-1, 3, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        EXPECT_EQ(KSLUTVectorSetValue(vector.get(), i, 9), kFailed) << i;
        EXPECT_EQ(KSLUTVectorGetValue(vector.get(), i, &value), kFailed) << i;
        EXPECT_EQ(KSLUTVectorGetValue(vector.get(), i, nullptr), kFailed) << i;
    }
    EXPECT_EQ(valuesOf(vector), (Extents{1, 2, 3}));
    EXPECT_EQ(value, 77);
}

TEST_F(VectorTest, OnlyAWholeVectorHasOneValue) {
    Broken broken;
    std::int64_t value = 77;
    KSLUTVector* const vectors[] = {nullptr, &broken.withoutCount, &broken.negative, &broken.withoutArray};
    for (KSLUTVector* vector : vectors) {
        EXPECT_EQ(KSLUTVectorSetValue(vector, 0, 1), kFailed);
        EXPECT_EQ(KSLUTVectorGetValue(vector, 0, &value), kFailed);
        EXPECT_EQ(KSLUTVectorGetValue(vector, 0, nullptr), kFailed);
    }
    EXPECT_EQ(broken.left(), (Extents{7, 8, 9}));
    EXPECT_EQ(value, 77);
}

TEST_F(VectorTest, TellsItsDimensions) {
    const Vector vector(KSLUTVectorCreate(9));
    int dimensions = 77;
    EXPECT_EQ(KSLUTVectorGetDimensions(vector.get(), &dimensions), kOk);
    EXPECT_EQ(dimensions, 9);
    EXPECT_EQ(KSLUTVectorGetDimensions(vector.get(), nullptr), kOk);
    EXPECT_EQ(KSLUTVectorGetDimensions(nullptr, &dimensions), kFailed);
    EXPECT_EQ(dimensions, 9);
}

}  // namespace
