#include "spectra/segments.hpp"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "app/gaps.hpp"
#include "app/report.hpp"
#include "app/text.hpp"

namespace kscli {
namespace {

/// +1 or -1: which way most wavelengths go.
double directionOf(const std::vector<double>& wavelengths) {
    int rising = 0;
    for (std::size_t i = 1; i < wavelengths.size(); ++i) {
        if (wavelengths[i] > 0 && wavelengths[i - 1] > 0) rising += wavelengths[i] > wavelengths[i - 1] ? 1 : -1;
    }
    return rising >= 0 ? 1 : -1;
}

/// Cuts at values outside a stretch of wavelengths, where the next detector begins, and across gaps.
std::vector<Segment> cut(const std::vector<double>& wavelengths, double from, double to) {
    const double direction = directionOf(wavelengths);
    std::vector<Segment> segments;
    bool open = false;
    for (std::size_t i = 0; i < wavelengths.size(); ++i) {
        const bool inside = wavelengths[i] >= from && wavelengths[i] <= to;
        const bool endsHere =
            open && ((wavelengths[i] - wavelengths[i - 1]) * direction <= 0 || isGapBefore(wavelengths, i));
        if (inside && (!open || endsHere)) segments.push_back({static_cast<int>(i), static_cast<int>(i)});
        if (inside) segments.back().last = static_cast<int>(i);
        open = inside;
    }
    return segments;
}

[[noreturn]] void refuse(const std::string& item) { fail("'{}' is no segment; write {}.", item, kSegmentsHelp); }

std::vector<Segment> parseBandRange(const std::string& item, std::size_t dash, std::size_t count) {
    const auto band = [&](std::string text) {
        text = trimmed(text);
        const auto number = text.empty() || text[0] != 'b' ? std::nullopt : parseNumber(text.substr(1));
        if (!number || std::floor(*number) != *number) refuse(item);
        if (*number < 1 || *number > static_cast<double>(count)) {
            fail("'{}': bands are numbered from b1 to b{}.", item, count);
        }
        return static_cast<int>(*number) - 1;
    };
    const Segment segment{band(item.substr(0, dash)), band(item.substr(dash + 1))};
    if (segment.first > segment.last) refuse(item);
    return {segment};
}

std::vector<Segment> parseItem(const std::string& item, const std::vector<double>& wavelengths) {
    const std::size_t dash = item.find('-', 1);
    if (dash == std::string::npos) refuse(item);
    if (item[0] == 'b') return parseBandRange(item, dash, wavelengths.size());
    const auto from = parseNumber(item.substr(0, dash));
    const auto to = parseNumber(item.substr(dash + 1));
    if (!from || !to || !(*from > 0) || !(*from < *to)) refuse(item);
    const std::vector<Segment> segments = cut(wavelengths, *from, *to);
    if (segments.empty()) fail("no value lies in the segment {} nm.", item);
    return segments;
}

}  // namespace

const char* const kSegmentsHelp = "FROM-TO in nm or bFIRST-bLAST (bands from 1), separated by commas";

std::vector<Segment> parseSegments(const std::string& list, const std::vector<double>& wavelengths) {
    std::vector<Segment> segments;
    if (trimmed(list).empty()) {
        const bool known = std::all_of(wavelengths.begin(), wavelengths.end(), [](double w) { return w > 0; });
        if (!known) return {{0, static_cast<int>(wavelengths.size()) - 1}};
        return cut(wavelengths, 0, HUGE_VAL);
    }
    std::istringstream stream(list);
    for (std::string item; std::getline(stream, item, ',');) {
        item = trimmed(item);
        if (item.empty()) refuse(list);
        for (const Segment& segment : parseItem(item, wavelengths)) segments.push_back(segment);
    }
    std::sort(segments.begin(), segments.end(), [](const Segment& a, const Segment& b) { return a.first < b.first; });
    for (std::size_t i = 1; i < segments.size(); ++i) {
        if (segments[i].first <= segments[i - 1].last) fail("the segments of '{}' overlap.", list);
    }
    return segments;
}

std::string segmentsText(const std::vector<Segment>& segments) {
    std::string text;
    for (const Segment& segment : segments) {
        text += fmt::format("{}{} to {}", text.empty() ? "" : ", ", segment.first + 1, segment.last + 1);
    }
    return text;
}

}  // namespace kscli
