// Unmixing of whole windows against single pixels, to the bit and at every vector width.
#include <kslib.h>
#include <kslib/extra.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bits.hpp"
#include "fixture.hpp"
#include "targets.hpp"
#include "unmixing.hpp"
#include "windows.hpp"

using namespace kit;
using namespace kit::unmixing;

namespace {

using UnmixingWindow = LibraryTest;

// ---- whole windows ----

struct UnmixerDeleter {
    void operator()(KSXUnmixer* unmixer) const { KSXFreeUnmixer(unmixer); }
};
using Unmixer = std::unique_ptr<KSXUnmixer, UnmixerDeleter>;

std::vector<const float*> rowsOf(const Spectra& spectra) {
    std::vector<const float*> rows;
    for (const Values& row : spectra) rows.push_back(row.data());
    return rows;
}

Unmixer unmixerOf(const Spectra& spectra, const Options& options) {
    return Unmixer(KSXCreateUnmixer(rowsOf(spectra).data(), static_cast<int>(spectra[0].size()),
                                    static_cast<int>(spectra.size()), options.sumToOne ? 1 : 0,
                                    options.nonNegative ? 1 : 0, options.normalise ? 1 : 0));
}

struct Window {
    KSWinEx record;
    Window(int interleave, int width, int height, const Spectra& pixels)
        : record(allocatedWindow(interleave, width, height, std::vector<int>(pixels[0].size()))) {
        for (int i = 0; i < width * height; ++i) {
            for (std::size_t b = 0; b < pixels[0].size(); ++b) {
                component(record, i % width, i / width, static_cast<int>(b)) = pixels[at(i)][b];
            }
        }
    }
    ~Window() { KSFreeWinEx(&record); }
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;
};

struct Unmixed {
    Values fractions;
    std::vector<unsigned char> status;
};

Unmixed unmixed(const KSXUnmixer* unmixer, const KSWinEx& window, std::size_t endmembers) {
    const std::size_t pixels = at(window.nNumXSamples) * at(window.nNumYSamples);
    Unmixed result = {Values(pixels * (endmembers + 1), -33.0F), std::vector<unsigned char>(pixels, 99)};
    EXPECT_EQ(KSXUnmixWin(unmixer, &window, result.fractions.data(), result.status.data()), 0);
    return result;
}

/// Pixel after pixel, with the element for the sum filled in.
Unmixed unmixedOneByOne(const Spectra& spectra, const Options& options, const Spectra& pixels) {
    Unmixed result;
    Caller caller(spectra, options);
    const std::size_t endmembers = spectra[0].size();
    bool first = true;
    for (const Values& pixel : pixels) {
        const bool finite = std::all_of(pixel.begin(), pixel.end(), [](float value) { return std::isfinite(value); });
        const bool solved = caller.call(pixel, first) == 0;
        first = false;
        result.status.push_back(!finite ? 2 : solved ? 0 : 1);
        Values found = caller.fractions();
        if (!finite || !solved) found.assign(endmembers + 1, kNaN);
        result.fractions.insert(result.fractions.end(), found.begin(), found.end());
    }
    return result;
}

void expectSame(const Spectra& spectra, const Options& options, const Spectra& pixels, int width, int interleave,
                const std::string& name) {
    const Unmixed expected = unmixedOneByOne(spectra, options, pixels);
    const Unmixer unmixer = unmixerOf(spectra, options);
    ASSERT_NE(unmixer, nullptr) << name;
    const Window window(interleave, width, static_cast<int>(pixels.size()) / width, pixels);
    forEachTarget([&](const char* target) {
        const Unmixed actual = unmixed(unmixer.get(), window.record, spectra[0].size());
        EXPECT_TRUE(sameBits(actual.fractions, expected.fractions)) << name << " " << options << " " << target;
        EXPECT_EQ(actual.status, expected.status) << name << " " << options << " " << target;
    });
}

TEST_F(UnmixingWindow, AWindowGivesToTheBitWhatItsPixelsGive) {
    Random random(18);
    int trial = 0;
    for (const int endmembers : {1, 2, 4, 5, 9, 18}) {
        for (const Options& options : everyOption()) {
            const Spectra spectra = random.reflectances(20 + endmembers * 2 + trial % 3, endmembers);
            Spectra pixels;
            for (int i = 0; i < 24 * 25; ++i) pixels.push_back(random.mixture(spectra, 30.0F));
            const int interleave = kInterleaves[trial++ % 3];
            expectSame(spectra, options, pixels, 24, interleave, std::to_string(endmembers) + " endmembers");
        }
    }
}

TEST_F(UnmixingWindow, AWindowOfSpectraOfAnySignGivesWhatItsPixelsGive) {
    Random random(19);
    for (const int endmembers : {3, 6, 13}) {
        for (const Options& options : everyOption()) {
            const int bands = endmembers + 2;
            const Spectra spectra = random.spectra(bands, endmembers);
            Spectra pixels;
            for (int i = 0; i < 7 * 67; ++i) pixels.push_back(random.pixel(bands));
            expectSame(spectra, options, pixels, 7, KS_INTLV_PIXEL, "any sign");
        }
    }
}

TEST_F(UnmixingWindow, AWindowOfAnyDataGivesWhatItsPixelsGive) {
    Random random(20);
    const Spectra spectra = random.reflectances(21, 4);
    for (const Kind& kind : kindsOfData(21 * 40)) {
        Spectra pixels;
        for (std::size_t i = 0; i < 40; ++i) {
            const auto begin = kind.values.begin() + static_cast<std::ptrdiff_t>(21 * i);
            pixels.emplace_back(begin, begin + 21);
        }
        for (const Options& options : everyOption()) expectSame(spectra, options, pixels, 8, KS_INTLV_BAND, kind.name);
    }
}

TEST_F(UnmixingWindow, FewerBandsThanEndmembersDependentAndEmptyEndmembersInAWindow) {
    Random random(21);
    Spectra dependent = random.reflectances(12, 5);
    for (Values& row : dependent) {
        row[3] = row[1];
        row[4] = 0.0F;
    }
    for (const Options& options : everyOption()) {
        Spectra pixels;
        for (int i = 0; i < 50; ++i) pixels.push_back(random.mixture(dependent, 10.0F));
        expectSame(dependent, options, pixels, 10, KS_INTLV_LINE, "dependent");
        const Spectra few = random.reflectances(3, 7);
        for (Values& pixel : pixels) pixel = random.mixture(few, 10.0F);
        expectSame(few, options, pixels, 10, KS_INTLV_LINE, "few bands");
    }
}

TEST_F(UnmixingWindow, PixelsThatAgreeForLongAreStillSolved) {
    // Nearly separate endmembers that all take part, in the same order: more steps together than there is room for.
    Random random(26);
    constexpr int kEndmembers = 90;
    Spectra spectra = random.reflectances(kEndmembers + 3, kEndmembers);
    for (std::size_t b = 0; b < spectra.size(); ++b) {
        for (float& value : spectra[b]) value *= 1e-3F;
        if (b < kEndmembers) spectra[b][b] += 1000.0F;
    }
    Spectra pixels;
    for (int i = 0; i < 20; ++i) {
        Values pixel(spectra.size(), 0.0F);
        for (std::size_t b = 0; b < spectra.size(); ++b) {
            for (std::size_t e = 0; e < kEndmembers; ++e) {
                pixel[b] += static_cast<float>(e + 1) * spectra[b][e];
            }
            if (i % 2 == 1 && b >= kEndmembers) pixel[b] += 50.0F;
        }
        pixels.push_back(pixel);
    }
    expectSame(spectra, kNonNegative, pixels, 5, KS_INTLV_PIXEL, "many");
}

TEST_F(UnmixingWindow, InvalidAndUnsolvedSamplesAreToldApart) {
    Random random(22);
    Spectra pixels;
    for (int i = 0; i < 60; ++i) {
        pixels.push_back(i % 7 == 3 ? kLongWayPixel : random.pixel(6));
        if (i % 5 == 1) pixels.back()[at(i % 6)] = i % 2 == 0 ? kNaN : kInfinite;
    }
    expectSame(kLongWay, kNonNegative, pixels, 12, KS_INTLV_PIXEL, "long way");
    const Unmixed result =
        unmixed(unmixerOf(kLongWay, kNonNegative).get(), Window(KS_INTLV_PIXEL, 60, 1, pixels).record, 5);
    EXPECT_EQ(result.status[3], KSX_UNMIX_NOT_CONVERGED);
    EXPECT_EQ(result.status[1], KSX_UNMIX_INVALID);
    EXPECT_EQ(result.status[0], KSX_UNMIX_SOLVED);
    for (const std::size_t sample : {std::size_t{1}, std::size_t{3}}) {
        for (std::size_t e = 0; e <= 5; ++e) EXPECT_TRUE(std::isnan(result.fractions[sample * 6 + e]));
    }
}

TEST_F(UnmixingWindow, AnUnmixerKeepsNothingOfTheCallers) {
    Random random(23);
    const Spectra spectra = random.reflectances(15, 3);
    const Spectra pixels = {random.mixture(spectra, 1.0F)};
    for (const Options& options : everyOption()) {
        auto doomed = std::make_unique<Spectra>(spectra);
        const Unmixer unmixer = unmixerOf(*doomed, options);
        EXPECT_EQ(*doomed, spectra);
        doomed.reset();
        const Unmixed result = unmixed(unmixer.get(), Window(KS_INTLV_PIXEL, 1, 1, pixels).record, 3);
        EXPECT_TRUE(sameBits(result.fractions, unmixedOneByOne(spectra, options, pixels).fractions));
    }
}

TEST_F(UnmixingWindow, CallsThatShareAnUnmixerMayRunAtTheSameTime) {
    Random random(24);
    const Spectra spectra = random.reflectances(40, 6);
    Spectra pixels;
    for (int i = 0; i < 900; ++i) pixels.push_back(random.mixture(spectra, 30.0F));
    const Window window(KS_INTLV_PIXEL, 30, 30, pixels);
    for (const bool nonNegative : {false, true}) {
        const Unmixer unmixer = unmixerOf(spectra, {true, nonNegative, true});
        const Unmixed expected = unmixed(unmixer.get(), window.record, 6);
        Unmixed results[4];
        std::vector<std::thread> threads;
        for (Unmixed& result : results) {
            result = {Values(expected.fractions.size()), std::vector<unsigned char>(900)};
            threads.emplace_back(
                [&] { KSXUnmixWin(unmixer.get(), &window.record, result.fractions.data(), result.status.data()); });
        }
        for (std::thread& thread : threads) thread.join();
        for (const Unmixed& result : results) EXPECT_TRUE(sameBits(result.fractions, expected.fractions));
    }
}

TEST_F(UnmixingWindow, AnUnmixerIsRefusedOfWhatIsMissingOrNoNumber) {
    const char* kCreate = "KSXCreateUnmixer ()";
    Spectra spectra = {{1, 2}, {3, 4}};
    const auto create = [&](int endmembers, int bands) {
        return KSXCreateUnmixer(rowsOf(spectra).data(), endmembers, bands, 0, 0, 0);
    };
    EXPECT_EQ(KSXCreateUnmixer(nullptr, 2, 2, 0, 0, 0), nullptr);
    EXPECT_EQ(create(0, 2), nullptr);
    EXPECT_EQ(create(2, 0), nullptr);
    EXPECT_EQ(create(2, std::numeric_limits<int>::max()), nullptr);
    const float* missing[2] = {spectra[0].data(), nullptr};
    EXPECT_EQ(KSXCreateUnmixer(missing, 2, 2, 0, 0, 0), nullptr);
    spectra[1][0] = kInfinite;
    EXPECT_EQ(create(2, 2), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: papafEndmembers == NULL.\n", kCreate),
                                       failure("%s: nNumEndmembers < 1.\n", kCreate),
                                       failure("%s: nNumBands (%d) is unusable.\n", kCreate, 0),
                                       failure("%s: nNumBands (%d) is unusable.\n", kCreate, 2147483647),
                                       failure("%s: papafEndmembers[%d] == NULL.\n", kCreate, 1),
                                       failure("%s: endmember %d has no number in band %d.\n", kCreate, 0, 1)}));
    KSXFreeUnmixer(nullptr);
}

TEST_F(UnmixingWindow, AWindowIsRefusedThatDoesNotFit) {
    const char* kWin = "KSXUnmixWin ()";
    const Spectra spectra = {{1, 2}, {3, 4}, {5, 7}};
    const Unmixer unmixer = unmixerOf(spectra, kPlain);
    Window window(KS_INTLV_PIXEL, 1, 1, {{1, 2, 3}});
    KSWinEx& record = window.record;
    Values fractions(3, -1.0F);
    unsigned char status = 9;
    EXPECT_EQ(KSXUnmixWin(nullptr, &record, fractions.data(), &status), 1);
    EXPECT_EQ(KSXUnmixWin(unmixer.get(), nullptr, fractions.data(), &status), 1);
    EXPECT_EQ(KSXUnmixWin(unmixer.get(), &record, nullptr, &status), 1);
    EXPECT_EQ(KSXUnmixWin(unmixer.get(), &record, fractions.data(), nullptr), 1);
    record.SampDesc.nNumBands = 2;
    EXPECT_EQ(KSXUnmixWin(unmixer.get(), &record, fractions.data(), &status), 1);
    record.SampDesc.nNumBands = 3;
    record.eBandIntlv = 3;
    EXPECT_EQ(KSXUnmixWin(unmixer.get(), &record, fractions.data(), &status), 1);
    record.eBandIntlv = KS_INTLV_PIXEL;
    float** start = record.papafStart;
    record.papafStart = nullptr;
    EXPECT_EQ(KSXUnmixWin(unmixer.get(), &record, fractions.data(), &status), 1);
    record.papafStart = start;
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: pUnmixer == NULL.\n", kWin), failure("%s: pWinEx == NULL.\n", kWin),
                       failure("%s: pafFractions == NULL.\n", kWin), failure("%s: pbyStatus == NULL.\n", kWin),
                       failure("%s: pWinEx->SampDesc.nNumBands (%d) is not the number of bands (%d).\n", kWin, 2, 3),
                       failure("%s: unknown band interleave %d.\n", kWin, 3),
                       failure("%s: pWinEx->papafStart == NULL.\n", kWin)}));
    EXPECT_EQ(fractions, Values(3, -1.0F));
    EXPECT_EQ(status, 9);
}

TEST_F(UnmixingWindow, AFailedAllocationGivesNoUnmixerOrLeavesTheOutputs) {
    Random random(25);
    const Spectra spectra = random.reflectances(9, 3);
    const Window window(KS_INTLV_PIXEL, 1, 1, {random.mixture(spectra, 1.0F)});
    for (const Options& options : {kPlain, kNonNegative}) {
        int failures = 0;
        for (int nth = 1;; ++nth) {
            host().forget();
            refuseAllocation(nth);
            const Unmixer unmixer = unmixerOf(spectra, options);
            if (!allocationRefused()) {
                EXPECT_NE(unmixer, nullptr);
                break;
            }
            ++failures;
            EXPECT_EQ(unmixer, nullptr);
            EXPECT_EQ(host().reports, (Reports{failure("%s: no memory for the endmembers.\n", "KSXCreateUnmixer ()")}));
        }
        EXPECT_GE(failures, 3);
        refuseAllocation(0);
        const Unmixer unmixer = unmixerOf(spectra, options);
        failures = 0;
        for (int nth = 1;; ++nth) {
            host().forget();
            refuseAllocation(nth);
            Values fractions(4, -1.0F);
            unsigned char status = 9;
            const int result = KSXUnmixWin(unmixer.get(), &window.record, fractions.data(), &status);
            if (!allocationRefused()) {
                EXPECT_EQ(result, 0);
                break;
            }
            ++failures;
            EXPECT_EQ(result, 1);
            EXPECT_EQ(host().reports, (Reports{failure("%s: no memory for the pixels.\n", "KSXUnmixWin ()")}));
            EXPECT_EQ(fractions, Values(4, -1.0F));
            EXPECT_EQ(status, 9);
        }
        EXPECT_GE(failures, 3);
    }
    refuseAllocation(0);
}

TEST_F(UnmixingWindow, AWindowWithoutSamplesIsDoneAtOnce) {
    const Unmixer unmixer = unmixerOf({{1, 2}, {3, 4}}, kNonNegative);
    Window window(KS_INTLV_PIXEL, 1, 1, {{1, 2}});
    window.record.nNumXSamples = 0;
    float fractions = -1.0F;
    unsigned char status = 9;
    EXPECT_EQ(KSXUnmixWin(unmixer.get(), &window.record, &fractions, &status), 0);
    EXPECT_EQ(status, 9);
}

}  // namespace
