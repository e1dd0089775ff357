// Radiometric transforms: making, composing, chaining and describing them.
#include <kslib.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bits.hpp"
#include "fixture.hpp"

using namespace kit;

namespace {

struct RadTrans : LibraryTest {
    KSDataSet dataSet{};

    /// A transform whose values are given per band.
    static KSRadTrans* make(int quantity, const std::vector<float>& gains, const std::vector<float>& offsets) {
        KSRadTrans* transform = KSCreateRadTrans(static_cast<int>(gains.size()));
        transform->eRadQuant = quantity;
        std::copy(gains.begin(), gains.end(), transform->pafGains);
        std::copy(offsets.begin(), offsets.end(), transform->pafOffsets);
        return transform;
    }
    void append(int quantity) { ASSERT_EQ(KSAddRadTrans(&dataSet, make(quantity, {1.0F}, {0.0F})), 0); }
    void TearDown() override {
        while (dataSet.nNumRadTrans > 0) KSDelRadTrans(&dataSet);
        LibraryTest::TearDown();
    }
};

using KSCreateRadTransTest = RadTrans;

TEST_F(KSCreateRadTransTest, HasOneGainAndOffsetPerBand) {
    KSRadTrans* transform = KSCreateRadTrans(3);
    ASSERT_NE(transform, nullptr);
    for (int b = 0; b < 3; ++b) transform->pafGains[b] = transform->pafOffsets[b] = static_cast<float>(b);
    EXPECT_NE(transform->pafGains, transform->pafOffsets);
    KSFreeRadTrans(transform);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSCreateRadTransTest, NoBandsGiveNullArrays) {
    KSRadTrans* transform = KSCreateRadTrans(0);
    ASSERT_NE(transform, nullptr);
    EXPECT_EQ(transform->pafGains, nullptr);
    EXPECT_EQ(transform->pafOffsets, nullptr);
    KSFreeRadTrans(transform);
}

TEST_F(KSCreateRadTransTest, RefusesANegativeCount) {
    EXPECT_EQ(KSCreateRadTrans(-1), nullptr);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: nNumGainsOffs < 0\n", "KSCreateRadTrans()")}));
}

TEST_F(KSCreateRadTransTest, NamesThePointerThatStayedNull) {
    const Reports promised = {
        debugOutput("%s: pRadTrans == NULL, HMalloc() failed\n", "KSCreateRadTrans()"),
        debugOutput("%s: pRadTrans->pafGains == NULL, HMalloc() failed\n", "KSCreateRadTrans()"),
        debugOutput("%s: pRadTrans->pafOffsets == NULL, HMalloc() failed\n", "KSCreateRadTrans()")};
    for (std::size_t n = 0; n < promised.size(); ++n) {
        host().forget();
        refuseAllocation(static_cast<int>(n) + 1);
        EXPECT_EQ(KSCreateRadTrans(2), nullptr);
        EXPECT_EQ(host().reports, (Reports{promised[n]}));
    }
    refuseAllocation(4);
    KSRadTrans* transform = KSCreateRadTrans(2);
    EXPECT_FALSE(allocationRefused());
    EXPECT_NE(transform, nullptr);
    KSFreeRadTrans(transform);
}

TEST_F(KSCreateRadTransTest, FreeAcceptsNull) {
    KSFreeRadTrans(nullptr);
    EXPECT_EQ(host().calls, std::vector<Call>{});
}

struct KSCombRadTransTest : RadTrans {
    KSRadTrans* first = make(KS_RQ_APPRAD, {2.0F, 3.0F}, {10.0F, -1.0F});
    KSRadTrans* second = make(KS_RQ_REFL, {0.5F, 4.0F}, {1.0F, 7.0F});
    KSRadTrans* combined = make(KS_RQ_SCRAD, {-7.0F, -7.0F}, {-8.0F, -8.0F});
    KSRadTrans* chain[2] = {first, second};

    std::vector<float> gains() const { return {combined->pafGains[0], combined->pafGains[1]}; }
    std::vector<float> offsets() const { return {combined->pafOffsets[0], combined->pafOffsets[1]}; }
    void TearDown() override {
        for (KSRadTrans* transform : {first, second, combined}) KSFreeRadTrans(transform);
        RadTrans::TearDown();
    }
};

TEST_F(KSCombRadTransTest, OneTransformIsCopied) {
    EXPECT_EQ(KSCombRadTrans(chain, 1, 2, combined), 0);
    EXPECT_EQ(gains(), (std::vector<float>{2.0F, 3.0F}));
    EXPECT_EQ(offsets(), (std::vector<float>{10.0F, -1.0F}));
}

TEST_F(KSCombRadTransTest, TwoTransformsApplyInOrder) {
    EXPECT_EQ(KSCombRadTrans(chain, 2, 2, combined), 0);
    EXPECT_EQ(gains(), (std::vector<float>{1.0F, 12.0F}));
    EXPECT_EQ(offsets(), (std::vector<float>{6.0F, 3.0F}));
}

TEST_F(KSCombRadTransTest, LeavesTheQuantityAlone) {
    KSCombRadTrans(chain, 2, 2, combined);
    EXPECT_EQ(combined->eRadQuant, KS_RQ_SCRAD);
}

TEST_F(KSCombRadTransTest, WritesOnlyTheBandsAskedFor) {
    EXPECT_EQ(KSCombRadTrans(chain, 2, 1, combined), 0);
    EXPECT_EQ(gains(), (std::vector<float>{1.0F, -7.0F}));
    EXPECT_EQ(offsets(), (std::vector<float>{6.0F, -8.0F}));
}

TEST_F(KSCombRadTransTest, NoBandsWriteNothing) {
    for (const int bands : {0, -1}) {
        EXPECT_EQ(KSCombRadTrans(chain, 2, bands, combined), 0);
        EXPECT_EQ(gains(), (std::vector<float>{-7.0F, -7.0F}));
        EXPECT_EQ(offsets(), (std::vector<float>{-8.0F, -8.0F}));
    }
}

TEST_F(KSCombRadTransTest, NoTransformsGiveTheIdentity) {
    EXPECT_EQ(KSCombRadTrans(chain, 0, 2, combined), 0);
    EXPECT_EQ(gains(), (std::vector<float>{1.0F, 1.0F}));
    EXPECT_EQ(offsets(), (std::vector<float>{0.0F, 0.0F}));
}

TEST_F(KSCombRadTransTest, FormsProductsAndSumsInDoublePrecision) {
    // Single precision would overflow in the first product and lose the 1 in the second sum.
    std::copy_n(std::begin({1e30F, 1.0F}), 2, first->pafGains);
    std::copy_n(std::begin({0.0F, 16777216.0F}), 2, first->pafOffsets);
    std::copy_n(std::begin({1e30F, 1.0F}), 2, second->pafGains);
    std::copy_n(std::begin({0.0F, 1.0F}), 2, second->pafOffsets);
    KSRadTrans* third = make(KS_RQ_REFL, {1e-30F, 1.0F}, {0.0F, -16777216.0F});
    KSRadTrans* three[3] = {first, second, third};
    EXPECT_EQ(KSCombRadTrans(three, 3, 2, combined), 0);
    EXPECT_EQ(gains()[0], static_cast<float>(static_cast<double>(1e30F) * static_cast<double>(1e30F) *
                                             static_cast<double>(1e-30F)));
    EXPECT_EQ(offsets()[1], 1.0F);
    KSFreeRadTrans(third);
}

TEST_F(KSCombRadTransTest, EqualsThePlainFormulaToTheBit) {
    constexpr int kBands = 16;
    constexpr int kTransforms = 3;
    std::mt19937 engine(7U);
    std::uniform_real_distribution<float> reals(-3.0F, 3.0F);
    KSRadTrans* random[kTransforms];
    for (KSRadTrans*& transform : random) {
        transform = KSCreateRadTrans(kBands);
        for (int b = 0; b < kBands; ++b) {
            transform->pafGains[b] = reals(engine);
            transform->pafOffsets[b] = reals(engine);
        }
    }
    KSRadTrans* result = KSCreateRadTrans(kBands);
    ASSERT_EQ(KSCombRadTrans(random, kTransforms, kBands, result), 0);
    for (int b = 0; b < kBands; ++b) {
        const auto g = [&](int i) { return static_cast<double>(random[i]->pafGains[b]); };
        const auto o = [&](int i) { return static_cast<double>(random[i]->pafOffsets[b]); };
        EXPECT_TRUE(sameBits(result->pafGains[b], static_cast<float>(1.0 * g(0) * g(1) * g(2))));
        EXPECT_TRUE(
            sameBits(result->pafOffsets[b], static_cast<float>(0.0 + o(0) * (g(1) * g(2)) + o(1) * g(2) + o(2))));
    }
    for (KSRadTrans* transform : random) KSFreeRadTrans(transform);
    KSFreeRadTrans(result);
}

TEST_F(KSCombRadTransTest, ChecksItsArgumentsInOrder) {
    KSRadTrans* broken[2] = {first, nullptr};
    EXPECT_EQ(KSCombRadTrans(nullptr, 2, 2, nullptr), 1);
    EXPECT_EQ(KSCombRadTrans(broken, 2, 2, nullptr), 1);
    EXPECT_EQ(KSCombRadTrans(broken, 2, 2, combined), 1);
    EXPECT_EQ(KSCombRadTrans(broken, 2, 0, combined), 1);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: papRadTransSeq == NULL\n", "KSCombRadTrans()"),
                                       debugOutput("%s: pRadTrans == NULL\n", "KSCombRadTrans()"),
                                       debugOutput("%s: *(papRadTransSeq + i) == NULL\n", "KSCombRadTrans()"),
                                       debugOutput("%s: *(papRadTransSeq + i) == NULL\n", "KSCombRadTrans()")}));
    EXPECT_EQ(gains(), (std::vector<float>{-7.0F, -7.0F}));
    EXPECT_EQ(KSCombRadTrans(broken, 1, 2, combined), 0) << "a pointer past the level does not matter";
}

using KSAddRadTransTest = RadTrans;

TEST_F(KSAddRadTransTest, AppendsAtTheEnd) {
    KSRadTrans* first = make(KS_RQ_APPRAD, {1.0F}, {0.0F});
    KSRadTrans* second = make(KS_RQ_REFL, {1.0F}, {0.0F});
    EXPECT_EQ(KSAddRadTrans(&dataSet, first), 0);
    ASSERT_EQ(dataSet.nNumRadTrans, 1);
    EXPECT_EQ(dataSet.papRadTransSeq[0], first);
    EXPECT_EQ(KSAddRadTrans(&dataSet, second), 0);
    ASSERT_EQ(dataSet.nNumRadTrans, 2);
    EXPECT_EQ(dataSet.papRadTransSeq[0], first);
    EXPECT_EQ(dataSet.papRadTransSeq[1], second);
}

TEST_F(KSAddRadTransTest, ChecksItsArgumentsInOrder) {
    KSRadTrans transform{};
    dataSet.nNumRadTrans = -1;
    EXPECT_EQ(KSAddRadTrans(nullptr, nullptr), 1);
    EXPECT_EQ(KSAddRadTrans(&dataSet, nullptr), 1);
    EXPECT_EQ(KSAddRadTrans(&dataSet, &transform), 1);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: pDataSet == NULL\n", "KSAddRadTrans()"),
                                       debugOutput("%s: pRadTrans == NULL\n", "KSAddRadTrans()"),
                                       debugOutput("%s: pDataSet->nNumRadTrans < 0\n", "KSAddRadTrans()")}));
    EXPECT_EQ(dataSet.nNumRadTrans, -1);
    dataSet.nNumRadTrans = 0;
}

TEST_F(KSAddRadTransTest, AFailedAllocationLeavesTheChain) {
    KSRadTrans* rejected = make(KS_RQ_REFL, {1.0F}, {0.0F});
    refuseAllocation(1);
    EXPECT_EQ(KSAddRadTrans(&dataSet, rejected), 1);
    EXPECT_EQ(dataSet.nNumRadTrans, 0);
    EXPECT_EQ(dataSet.papRadTransSeq, nullptr);

    append(KS_RQ_APPRAD);
    KSRadTrans** chain = dataSet.papRadTransSeq;
    refuseAllocation(1);
    EXPECT_EQ(KSAddRadTrans(&dataSet, rejected), 1);
    EXPECT_EQ(dataSet.nNumRadTrans, 1);
    EXPECT_EQ(dataSet.papRadTransSeq, chain);
    EXPECT_EQ(
        host().reports,
        (Reports{
            debugOutput("%s: pDataSet->papRadTransSeq == NULL, HMalloc or HRealloc failed\n", "KSAddRadTrans()"),
            debugOutput("%s: pDataSet->papRadTransSeq == NULL, HMalloc or HRealloc failed\n", "KSAddRadTrans()")}));
    KSFreeRadTrans(rejected);
}

using KSDelRadTransTest = RadTrans;

TEST_F(KSDelRadTransTest, RemovesTheLast) {
    append(KS_RQ_APPRAD);
    append(KS_RQ_REFL);
    KSRadTrans* first = dataSet.papRadTransSeq[0];
    EXPECT_EQ(KSDelRadTrans(&dataSet), 0);
    ASSERT_EQ(dataSet.nNumRadTrans, 1);
    EXPECT_EQ(dataSet.papRadTransSeq[0], first);
}

TEST_F(KSDelRadTransTest, TheLastOneTakesTheArrayAlong) {
    append(KS_RQ_APPRAD);
    EXPECT_EQ(KSDelRadTrans(&dataSet), 0);
    EXPECT_EQ(dataSet.nNumRadTrans, 0);
    EXPECT_EQ(dataSet.papRadTransSeq, nullptr);
}

TEST_F(KSDelRadTransTest, AnEmptyChainIsLeftAlone) {
    EXPECT_EQ(KSDelRadTrans(&dataSet), 0);
    EXPECT_EQ(dataSet.nNumRadTrans, 0);
    dataSet.nNumRadTrans = -3;
    EXPECT_EQ(KSDelRadTrans(&dataSet), 0);
    EXPECT_EQ(dataSet.nNumRadTrans, -3);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSDelRadTransTest, ReportsAnArrayWithoutACount) {
    KSRadTrans* stray = nullptr;
    dataSet.papRadTransSeq = &stray;
    EXPECT_EQ(KSDelRadTrans(&dataSet), 1);
    EXPECT_EQ(dataSet.papRadTransSeq, &stray);
    EXPECT_EQ(host().reports,
              (Reports{debugOutput("%s: pDataSet->nNumRadTrans <= 0 && pDataSet->papRadTransSeq != NULL\n",
                                   "KSDelRadTrans()")}));
}

TEST_F(KSDelRadTransTest, ReportsANullDataSet) {
    EXPECT_EQ(KSDelRadTrans(nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: pDataSet == NULL\n", "KSDelRadTrans()")}));
}

using KSRadTransQuantToLevTest = RadTrans;

TEST_F(KSRadTransQuantToLevTest, WithoutTransformsOnlyStoredValuesHaveALevel) {
    EXPECT_EQ(KSRadTransQuantToLev(&dataSet, KS_RQ_UNCAL), 0);
    EXPECT_EQ(KSRadTransQuantToLev(&dataSet, KS_RQ_REFL), -1);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSRadTransQuantToLevTest, GivesTheFirstTransformOfTheQuantity) {
    append(KS_RQ_UNCAL);
    append(KS_RQ_APPRAD);
    append(KS_RQ_REFL);
    append(KS_RQ_APPRAD);
    EXPECT_EQ(KSRadTransQuantToLev(&dataSet, KS_RQ_UNCAL), 0);
    EXPECT_EQ(KSRadTransQuantToLev(&dataSet, KS_RQ_APPRAD), 2);
    EXPECT_EQ(KSRadTransQuantToLev(&dataSet, KS_RQ_REFL), 3);
    EXPECT_EQ(KSRadTransQuantToLev(&dataSet, KS_RQ_SCRAD), -1);
    EXPECT_EQ(KSRadTransQuantToLev(&dataSet, 99), -1);
}

TEST_F(KSRadTransQuantToLevTest, ReportsANullDataSetForEveryQuantity) {
    EXPECT_EQ(KSRadTransQuantToLev(nullptr, KS_RQ_REFL), -1);
    EXPECT_EQ(KSRadTransQuantToLev(nullptr, KS_RQ_UNCAL), -1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet == NULL.\n", "KSRadTransQuantToLev ()"),
                                       failure("%s: pDataSet == NULL.\n", "KSRadTransQuantToLev ()")}));
}

struct KSRadTransDescListTest : RadTrans {
    static std::vector<std::string> take(char** list) {
        std::vector<std::string> texts;
        for (char** text = list; *text != nullptr; ++text) {
            texts.emplace_back(*text);
            std::free(*text);
        }
        std::free(list);
        return texts;
    }
};

TEST_F(KSRadTransDescListTest, StartsWithTheStoredValues) {
    char** list = KSRadTransDescList(&dataSet);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(take(list), (std::vector<std::string>{"uncalibrated DN values"}));
}

TEST_F(KSRadTransDescListTest, DescribesEveryLevel) {
    for (const int quantity : {KS_RQ_ADJ_NO_UNITS, KS_RQ_APPRAD, KS_RQ_SCRAD, KS_RQ_SCIRRAD, KS_RQ_REFL, KS_RQ_UNCAL}) {
        append(quantity);
    }
    char** list = KSRadTransDescList(&dataSet);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(take(list), (std::vector<std::string>{"uncalibrated DN values", "non-physical adjustment",
                                                    "at-sensor (apparent) radiance", "scene radiance",
                                                    "scene irradiance", "reflectance", "uncalibrated DN values"}));
}

TEST_F(KSRadTransDescListTest, AQuantityOutsideTheTableIsUnknown) {
    for (const int quantity : {0, -1, 7}) append(quantity);
    char** list = KSRadTransDescList(&dataSet);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(take(list), (std::vector<std::string>{"uncalibrated DN values", "unknown", "unknown", "unknown"}));
}

TEST_F(KSRadTransDescListTest, ReportsANullDataSet) {
    EXPECT_EQ(KSRadTransDescList(nullptr), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet == NULL.\n", "KSRadTransDescList()")}));
}

TEST_F(KSRadTransDescListTest, ReportsAFailedArray) {
    refuseAllocation(1);
    EXPECT_EQ(KSRadTransDescList(&dataSet), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: ppcRetVal == NULL.\n", "KSRadTransDescList()")}));
}

TEST_F(KSRadTransDescListTest, AFailedTextGivesNullAndLeavesNothing) {
    append(KS_RQ_APPRAD);
    for (const int n : {2, 3}) {
        refuseAllocation(n);
        EXPECT_EQ(KSRadTransDescList(&dataSet), nullptr);
        EXPECT_TRUE(allocationRefused());
    }
    EXPECT_EQ(host().reports, Reports{});
    refuseAllocation(4);
    char** list = KSRadTransDescList(&dataSet);
    ASSERT_NE(list, nullptr);
    EXPECT_FALSE(allocationRefused());
    EXPECT_EQ(take(list).size(), 2U);
}

}  // namespace
