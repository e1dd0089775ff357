// Smoothing spectra, windows, codebooks and layers with a function of the caller's choice.
#include <kslib.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "datasets.hpp"
#include "fixture.hpp"
#include "quantized.hpp"
#include "resampling.hpp"
#include "smoothing.hpp"
#include "windows.hpp"

using namespace kit;

namespace {

/// What the smoothing function of a test saw, and what it is to do; a C function has nowhere else to keep it.
struct Script {
    int calls = 0;
    int failAt = 0;  // the call that answers 0
    std::vector<VEC*> vectors;
    std::vector<const int*> qualities;
    std::vector<KSSmoothParms*> parms;
    std::function<void(VEC&)> change = [](VEC& values) {
        for (unsigned i = 0; i < values.dim; ++i) values.ve[i] *= 2.0;
    };
} script;

int scripted(VEC* values, KSSmoothParms* parms) {
    script.vectors.push_back(values);
    script.parms.push_back(parms);
    script.qualities.push_back(parms->peBandQual);
    if (++script.calls == script.failAt) return 0;
    if (values != nullptr) script.change(*values);
    return 1;
}

struct DriverTest : LibraryTest {
    KSSmoothParms parms{};

    void SetUp() override {
        LibraryTest::SetUp();
        script = Script();
    }
};

// ---- one spectrum ----

using KSSmoothSpectrumTest = DriverTest;

TEST_F(KSSmoothSpectrumTest, ChecksItsArgumentsInOrder) {
    const char* label = "KSSmoothSpectrum()";
    const Spectrum spectrum = spectrumOf({400.0F}, {1.0});
    EXPECT_EQ(KSSmoothSpectrum(nullptr, nullptr, nullptr), 1);
    expectReports({failure("%s: psSpe = NULL.\n", label)}, "spectrum");
    EXPECT_EQ(KSSmoothSpectrum(spectrum.get(), nullptr, nullptr), 1);
    expectReports({failure("%s: psParms = NULL.\n", label)}, "parameters");
    EXPECT_EQ(KSSmoothSpectrum(spectrum.get(), &parms, nullptr), 1);
    expectReports({failure("%s: pfSmoothFunc = NULL.\n", label)}, "function");
    EXPECT_EQ(parms.peBandQual, nullptr);
}

TEST_F(KSSmoothSpectrumTest, HandsValuesAndQualitiesOn) {
    const Spectrum spectrum = spectrumOf({400.0F, 410.0F}, {1.0, 2.0});
    EXPECT_EQ(KSSmoothSpectrum(spectrum.get(), &parms, scripted), 0);
    EXPECT_EQ(script.vectors, (std::vector<VEC*>{spectrum->pMeas}));
    EXPECT_EQ(script.parms, (std::vector<KSSmoothParms*>{&parms}));
    EXPECT_EQ(script.qualities, (std::vector<const int*>{spectrum->peBandQual}));
    EXPECT_EQ(parms.peBandQual, spectrum->peBandQual);
    EXPECT_EQ(values(spectrum), (std::vector<double>{2.0, 4.0}));
}

TEST_F(KSSmoothSpectrumTest, SucceedsWhateverTheFunctionAnswers) {
    const Spectrum spectrum = spectrumOf({400.0F, 410.0F}, {1.0, 2.0});
    script.failAt = 1;
    EXPECT_EQ(KSSmoothSpectrum(spectrum.get(), &parms, scripted), 0);
    EXPECT_EQ(script.calls, 1);
    EXPECT_EQ(host().reports, Reports{});

    v_free(spectrum->pMeas);
    spectrum->pMeas = nullptr;
    EXPECT_EQ(KSSmoothSpectrum(spectrum.get(), &parms, KSSmoothMedian), 0);
    expectReports({failure("%s: pValues == NULL.\n", "KSSmoothMedian()")}, "the function's own report");
}

TEST_F(KSSmoothSpectrumTest, QualitiesOfTheSpectrumBlockWindowsThatThoseOfTheSensorDoNot) {
    const std::vector<float> wlens = evenly(400.0F, 10.0F, 6);
    Parms two(2.0F, wlens, {{0, 4}});
    two->bCheckQual = 1;
    std::vector<int> blocked(6, KS_BQ_BMASK);
    KSSensor sensor{};
    sensor.nNumBands = 6;
    sensor.peBandQual = blocked.data();
    for (const bool bySensor : {false, true}) {
        const Spectrum spectrum = spectrumOf(wlens, {6.0, 5.0, 4.0, 3.0, 2.0, 1.0});
        std::copy(blocked.begin(), blocked.end(), spectrum->peBandQual);
        two->pSensor = bySensor ? &sensor : nullptr;
        EXPECT_EQ(KSSmoothSpectrum(spectrum.get(), two.get(), KSSmoothMedian), 0);
        EXPECT_EQ(values(spectrum), (bySensor ? std::vector<double>{6.0, 6.0, 5.0, 4.0, 2.0, 1.0}
                                              : std::vector<double>{6.0, 5.0, 4.0, 3.0, 2.0, 1.0}));
    }
}

// ---- windows ----

struct KSSmoothWinExTest : DriverTest {
    KSWinEx window{};

    void make(int interleave = KS_INTLV_PIXEL) {
        window = allocatedWindow(interleave, 3, 2, {4, 7});
        for (int y = 0; y < 2; ++y) {
            for (int x = 0; x < 3; ++x) {
                for (int b = 0; b < 2; ++b) component(window, x, y, b) = original(x, y, b);
            }
        }
    }
    static float original(int x, int y, int b) { return static_cast<float>(100 * b + 10 * y + x) + 0.1F; }
    void TearDown() override {
        KSFreeWinEx(&window);
        DriverTest::TearDown();
    }
};

TEST_F(KSSmoothWinExTest, ChecksItsArgumentsInOrder) {
    const char* label = "KSSmoothWinEx()";
    make();
    EXPECT_EQ(KSSmoothWinEx(nullptr, nullptr, nullptr), 1);
    expectReports({failure("%s: psWinEx == NULL.\n", label)}, "window");
    EXPECT_EQ(KSSmoothWinEx(&window, nullptr, nullptr), 1);
    expectReports({failure("%s: psParms == NULL.\n", label)}, "parameters");
    EXPECT_EQ(KSSmoothWinEx(&window, &parms, nullptr), 1);
    expectReports({failure("%s: pfSmoothFunc == NULL.\n", label)}, "function");
    refuseVector(1);
    EXPECT_EQ(KSSmoothWinEx(&window, &parms, scripted), 1);
    expectReports({failure("%s: Failed to allocate psSample, v_get failed.\n", label)}, "vector");
    refuseVector(2);
    EXPECT_EQ(KSSmoothWinEx(&window, &parms, scripted), 0);
    EXPECT_EQ(vectors(), 1) << "one for all samples";
    refuseVector(0);
    window.SampDesc.nNumBands = -1;
    EXPECT_EQ(KSSmoothWinEx(&window, &parms, scripted), 1);
    expectReports({failure("%s: Failed to allocate psSample, v_get failed.\n", label)}, "no such number of bands");
}

TEST_F(KSSmoothWinExTest, SmoothsEverySampleOfEveryInterleave) {
    for (const int interleave : kInterleaves) {
        make(interleave);
        script = Script();
        EXPECT_EQ(KSSmoothWinEx(&window, &parms, scripted), 0);
        EXPECT_EQ(script.calls, 6);
        for (int y = 0; y < 2; ++y) {
            for (int x = 0; x < 3; ++x) {
                for (int b = 0; b < 2; ++b) EXPECT_EQ(component(window, x, y, b), 2.0F * original(x, y, b));
            }
        }
        EXPECT_EQ(parms.peBandQual, nullptr) << "left to the caller";
        KSFreeWinEx(&window);
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSSmoothWinExTest, NamesTheSampleThatFailedAndKeepsThoseBeforeIt) {
    make();
    script.failAt = 5;  // row by row: column 1 of row 1
    EXPECT_EQ(KSSmoothWinEx(&window, &parms, scripted), 1);
    expectReports({failure("%s: failed to smooth vector  (%d, %d) from psWinEx\n", "KSSmoothWinEx()", 1, 1)}, "smooth");
    EXPECT_EQ(component(window, 0, 1, 1), 2.0F * original(0, 1, 1));
    EXPECT_EQ(component(window, 1, 1, 1), original(1, 1, 1));
    EXPECT_EQ(component(window, 2, 1, 1), original(2, 1, 1));
    EXPECT_EQ(component(window, 2, 0, 1), 2.0F * original(2, 0, 1));
}

TEST_F(KSSmoothWinExTest, NamesTheSampleThatCouldNotBeTakenOut) {
    make();
    std::free(window.papafStart);
    window.papafStart = nullptr;
    EXPECT_EQ(KSSmoothWinEx(&window, &parms, scripted), 1);
    ASSERT_EQ(host().reports.size(), 2U);
    EXPECT_EQ(host().reports[0].label, "KSExtractVectWinEx()");
    EXPECT_EQ(host().reports[1],
              failure("%s: failed to extract vector from (%d, %d) in psWinEx\n", "KSSmoothWinEx()", 0, 0));
    EXPECT_EQ(script.calls, 0);
}

TEST_F(KSSmoothWinExTest, AVectorThatCannotBePutBackFailsWithoutAWordMore) {
    make();
    script.change = [](VEC& values) { values.dim = 1; };
    EXPECT_EQ(KSSmoothWinEx(&window, &parms, scripted), 1);
    ASSERT_EQ(host().reports.size(), 1U);
    EXPECT_EQ(host().reports[0].label, "KSInsertVectWinEx()");
}

TEST_F(KSSmoothWinExTest, AWindowWithoutSamplesSucceeds) {
    EXPECT_EQ(KSSmoothWinEx(&window, &parms, scripted), 0);
    EXPECT_EQ(script.calls, 0);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSSmoothWinExTest, TakesTheMedianOfBands) {
    window = allocatedWindow(KS_INTLV_LINE, 2, 1, {0, 1, 2, 3, 4, 5});
    const float samples[2][6] = {{5, 1, 4, 2, 3, 9}, {1, 2, 3, 4, 5, 6}};
    for (int x = 0; x < 2; ++x) {
        for (int b = 0; b < 6; ++b) component(window, x, 0, b) = samples[x][b];
    }
    Parms two(2.0F, evenly(400.0F, 10.0F, 6), {{0, 4}});
    EXPECT_EQ(KSSmoothWinEx(&window, two.get(), KSSmoothMedian), 0);
    const float expected[2][6] = {{5, 5, 4, 4, 3, 9}, {1, 2, 3, 4, 5, 6}};
    for (int x = 0; x < 2; ++x) {
        for (int b = 0; b < 6; ++b) EXPECT_EQ(component(window, x, 0, b), expected[x][b]) << x << " " << b;
    }
}

// ---- codebooks ----

struct KSSmoothCbkTest : DriverTest {
    KSCbk codebook{};

    void SetUp() override {
        DriverTest::SetUp();
        codebook = codebookOf({0, 1}, {1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 6.0F});
    }
    void TearDown() override {
        KSFreeCbk(&codebook);
        DriverTest::TearDown();
    }
    std::vector<float> components() const { return {codebook.pafCodebook, codebook.pafCodebook + 6}; }
};

TEST_F(KSSmoothCbkTest, ChecksItsArgumentsInOrder) {
    const char* label = "KSSmoothCbk()";
    EXPECT_EQ(KSSmoothCbk(nullptr, nullptr, nullptr), 1);
    expectReports({failure("%s: psCbk == NULL.\n", label)}, "codebook");
    EXPECT_EQ(KSSmoothCbk(&codebook, nullptr, nullptr), 1);
    expectReports({failure("%s: psParms == NULL.\n", label)}, "parameters");
    EXPECT_EQ(KSSmoothCbk(&codebook, &parms, nullptr), 1);
    expectReports({failure("%s: pfSmoothFunc == NULL.\n", label)}, "function");
    refuseVector(1);
    EXPECT_EQ(KSSmoothCbk(&codebook, &parms, scripted), 1);
    expectReports({failure("%s: Failed to allocate psSample, v_get failed.\n", label)}, "vector");
    EXPECT_EQ(script.calls, 0);
}

TEST_F(KSSmoothCbkTest, SmoothsEveryCodeVector) {
    EXPECT_EQ(KSSmoothCbk(&codebook, &parms, scripted), 0);
    EXPECT_EQ(components(), (std::vector<float>{2.0F, 4.0F, 6.0F, 8.0F, 10.0F, 12.0F}));
    EXPECT_EQ(script.calls, 3);
    EXPECT_EQ(parms.peBandQual, nullptr);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSSmoothCbkTest, NamesTheCodeVectorThatFailed) {
    script.failAt = 2;
    EXPECT_EQ(KSSmoothCbk(&codebook, &parms, scripted), 1);
    expectReports({failure("%s: failed to smooth vector %d from psCbk\n", "KSSmoothCbk()", 1)}, "smooth");
    EXPECT_EQ(components(), (std::vector<float>{2.0F, 4.0F, 3.0F, 4.0F, 5.0F, 6.0F}));

    float** vectors = std::exchange(codebook.papafCodeVect, nullptr);
    EXPECT_EQ(KSSmoothCbk(&codebook, &parms, scripted), 1);
    ASSERT_EQ(host().reports.size(), 2U);
    EXPECT_EQ(host().reports[0].label, "ExtractVectCbk()");
    EXPECT_EQ(host().reports[1], failure("%s: failed to extract vector %d from psCbk\n", "KSSmoothCbk()", 0));
    codebook.papafCodeVect = vectors;
}

TEST_F(KSSmoothCbkTest, AVectorThatCannotBePutBackFailsWithoutAWordMore) {
    script.change = [](VEC& values) { values.dim = 1; };
    EXPECT_EQ(KSSmoothCbk(&codebook, &parms, scripted), 1);
    ASSERT_EQ(host().reports.size(), 1U);
    EXPECT_EQ(host().reports[0].label, "InsertVectCbk()");
}

// ---- layers ----

struct KSSmoothLibTest : DriverTest {
    const Names fields = {"Target", "m400_000", "m410_000", "q400_000", "q410_000"};
    HostFile* file = nullptr;
    FakeLayer* in = nullptr;
    FakeLayer* out = nullptr;

    void SetUp() override {
        DriverTest::SetUp();
        file = host().openMemoryFile();
        in = &host().addLayer(file, "spectra", fieldsNamed(fields));
        out = &host().addLayer(file, "spectra", fieldsNamed(fields));
    }
    void TearDown() override {
        GDBClose(file);
        DriverTest::TearDown();
    }
    FakeShape& add(const std::string& target, double first, double second, const std::string& quality = "plot") {
        FakeShape shape;
        shape.texts[0] = target;
        shape.numbers[1] = first;
        shape.numbers[2] = second;
        shape.texts[3] = "plot";
        shape.texts[4] = quality;
        in->shapes.push_back(shape);
        return in->shapes.back();
    }
    int smooth(FakeLayer* to) { return KSSmoothLib(in, to, &parms, scripted); }
};

TEST_F(KSSmoothLibTest, ChecksItsArgumentsInOrder) {
    const char* label = "KSSmoothLib()";
    EXPECT_EQ(KSSmoothLib(nullptr, nullptr, nullptr, nullptr), 1);
    expectReports({failure("%s: hLayerIn == NULL.\n", label)}, "input");
    EXPECT_EQ(KSSmoothLib(in, nullptr, nullptr, nullptr), 1);
    expectReports({failure("%s: hLayerOut == NULL.\n", label)}, "output");
    EXPECT_EQ(KSSmoothLib(in, out, nullptr, nullptr), 1);
    expectReports({failure("%s: psParms == NULL.\n", label)}, "parameters");
    EXPECT_EQ(KSSmoothLib(in, out, &parms, nullptr), 1);
    expectReports({failure("%s: pfSmoothFunc == NULL.\n", label)}, "function");
}

TEST_F(KSSmoothLibTest, AppendsEverySpectrumSmoothed) {
    add("oak", 1.0, 2.0);
    add("elm", 3.0, 4.0, "mask");
    std::vector<int> seen;
    const auto twice = script.change;
    script.change = [&](VEC& values) {
        twice(values);
        seen.push_back(parms.peBandQual[1]);
    };
    EXPECT_EQ(smooth(out), 0);
    ASSERT_EQ(out->shapes.size(), 2U);
    EXPECT_EQ(out->shapes[0].texts[0], "oak");
    EXPECT_EQ(out->shapes[0].numbers[1], 2.0);
    EXPECT_EQ(out->shapes[0].numbers[2], 4.0);
    EXPECT_EQ(out->shapes[0].texts[4], "plot");
    EXPECT_EQ(out->shapes[1].texts[0], "elm");
    EXPECT_EQ(out->shapes[1].numbers[1], 6.0);
    EXPECT_EQ(out->shapes[1].texts[4], "mask");
    EXPECT_EQ(seen, (std::vector<int>{KS_BQ_PLOT, KS_BQ_MASK})) << "the spectra's own qualities";
    EXPECT_EQ(parms.peBandQual, nullptr) << "the qualities are gone with the spectrum";
    EXPECT_EQ(in->shapes.size(), 2U);
    EXPECT_EQ(in->shapes[0].numbers[1], 1.0);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSSmoothLibTest, ALayerCanTakeItsOwnSmoothedSpectra) {
    add("oak", 1.0, 2.0);
    add("elm", 3.0, 4.0);
    EXPECT_EQ(smooth(in), 0);
    ASSERT_EQ(in->shapes.size(), 4U);
    EXPECT_EQ(in->shapes[2].numbers[1], 2.0);
    EXPECT_EQ(in->shapes[3].numbers[2], 8.0);
}

TEST_F(KSSmoothLibTest, GoesOnWhateverTheFunctionAnswers) {
    add("oak", 1.0, 2.0);
    add("elm", 3.0, 4.0);
    script.failAt = 1;
    EXPECT_EQ(smooth(out), 0);
    ASSERT_EQ(out->shapes.size(), 2U);
    EXPECT_EQ(out->shapes[0].numbers[1], 1.0);
    EXPECT_EQ(out->shapes[1].numbers[1], 6.0);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSSmoothLibTest, GoesOnBehindAShapeThatCannotBeRead) {
    add("oak", 1.0, 2.0).nullTexts.insert(0);
    add("elm", 3.0, 4.0);
    EXPECT_EQ(smooth(out), 0);
    ASSERT_EQ(host().reports.size(), 1U);
    EXPECT_EQ(host().reports[0].label, "KSEvalSpecFromShape ()");
    ASSERT_EQ(out->shapes.size(), 2U);
    EXPECT_EQ(out->shapes[0].texts[0], "") << "as far as it could be read";
    EXPECT_EQ(out->shapes[1].texts[0], "elm");
    EXPECT_EQ(out->shapes[1].numbers[2], 8.0);
}

TEST_F(KSSmoothLibTest, ALayerWithoutShapesGivesNone) {
    EXPECT_EQ(smooth(out), 0);
    EXPECT_EQ(script.calls, 0);
    EXPECT_EQ(out->shapes.size(), 0U);
}

TEST_F(KSSmoothLibTest, FailsWithoutASchemaOrASpectrum) {
    add("oak", 1.0, 2.0);
    for (const int nth : {1, 2}) {
        refuseVector(nth);
        EXPECT_EQ(smooth(out), 1);
        ASSERT_EQ(host().reports.size(), 1U);
        EXPECT_EQ(host().reports[0].label, "KSCreateSpec ()");
        host().forget();
    }
    refuseVector(0);
    // Whatever runs out while schema and spectrum are made fails the call; later, the spectrum that is worked on
    // suffers.
    int failures = 0;
    for (int nth = 1;; ++nth) {
        refuseAllocation(nth);
        host().forget();
        if (smooth(out) == 0) break;
        EXPECT_TRUE(allocationRefused()) << nth;
        EXPECT_FALSE(host().reports.empty()) << nth;
        EXPECT_EQ(out->shapes.size(), 0U) << nth;
        ++failures;
    }
    EXPECT_GE(failures, 6) << "a schema's record and arrays, a spectrum's record and arrays";

    refuseAllocation(0);
    host().forget();
    in->fields.clear();
    EXPECT_EQ(smooth(out), 1);
    ASSERT_EQ(host().reports.size(), 1U);
    EXPECT_EQ(host().reports[0].label, "KSSTSchemaFromLayer ()");
}

TEST_F(KSSmoothLibTest, SmoothsWithAGivenSchema) {
    const Names many = {"Target", "m400_000", "m410_000", "m420_000", "m430_000", "m440_000", "m450_000"};
    in->fields = out->fields = fieldsNamed(many);
    FakeShape shape;
    shape.texts[0] = "oak";
    const std::vector<double> measured = {5, 1, 4, 2, 3, 9};
    for (int i = 0; i < 6; ++i) shape.numbers[i + 1] = measured[static_cast<std::size_t>(i)];
    in->shapes.push_back(shape);
    Parms two(2.0F, evenly(400.0F, 10.0F, 6), {{0, 4}});
    EXPECT_EQ(KSSmoothLib(in, out, two.get(), KSSmoothMedian), 0);
    const std::vector<double> expected = {5, 5, 4, 4, 3, 9};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(out->shapes[0].numbers[i + 1], expected[static_cast<std::size_t>(i)]) << i;
}

}  // namespace
