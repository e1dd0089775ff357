#include "image/copymeta.hpp"

#include "app/report.hpp"
#include "app/staging.hpp"
#include "image/entries.hpp"

namespace kscli {
namespace {

// Source order first, then whatever the library or the format added.
void completeList(const Items& wanted, Entries& list) {
    Entries complete;
    for (const auto& [key, value] : wanted) complete.set(key, value);
    for (const auto& [key, value] : list.items()) {
        if (complete.find(key) == nullptr) complete.set(key, value);
    }
    list = std::move(complete);
}

void copyDescription(HostFile* from, int fromChannel, HostFile* to, int toChannel) {
    char text[256] = {};
    GDBChanDescIO(from, 0, fromChannel, text);
    if (text[0] != '\0') GDBChanDescIO(to, 1, toChannel, text);
}

}  // namespace

void Completion::addFileEntries(const Items& wanted) {
    Entries list = Entries::ofFile(file_);
    completeList(wanted, list);
    list.storeInFile(file_);
}

void Completion::addBands(const DataSet& source, const CopyPlan& plan) {
    const auto noData = noDataOfCopy(source, plan);
    for (std::size_t i = 0; i < plan.bands.size(); ++i) {
        const int channel = static_cast<int>(i) + 1;
        Entries list = Entries::ofChannel(file_, channel);
        completeList(channelEntriesOfCopy(source, plan, plan.bands[i]), list);
        list.storeInChannel(file_, channel);
        copyDescription(source.file(), source.channel(plan.bands[i]), file_, channel);
        if (noData[i]) KSHostSetNoData(file_, channel, *noData[i]);
    }
}

void Completion::addPlace(const DataSet& source, const CopyPlan& plan) {
    KSHostCopyGeoreference(source.file(), file_, plan.window.data(), plan.every, plan.every);
}

void Completion::addHistory(const DataSet& source, const std::string& line) {
    for (const std::string& text : Entries(KSHostGetHistory(source.file())).texts()) {
        GDBWriteHistory(file_, kFileLevel, kNoChannel, text.c_str());
    }
    GDBWriteHistory(file_, kFileLevel, kNoChannel, line.c_str());
}

void completeCopy(const DataSet& source, const CopyPlan& plan, HostFile* file, const std::string& historyLine) {
    Completion copy(file);
    copy.addFileEntries(fileEntriesOfCopy(source, plan));
    copy.addBands(source, plan);
    copy.addPlace(source, plan);
    copy.addHistory(source, historyLine);
}

CopyPlan planWholeCopy(const DataSet& source, const std::vector<int>& bands, int sampleType) {
    CopyPlan plan;
    plan.bands = bands;
    plan.area = wholeImage(source);
    plan.window = {0, 0, source->nXSize, source->nYSize};
    plan.sampleType = sampleType;
    return plan;
}

void refuseSourceFiles(const DataSet& source, const std::string& input, const std::string& output) {
    if (sameFile(input, output)) fail("{} cannot be converted onto itself; choose another name.", input);
    requireImageName(output);
    KSHostLayout layout = {};
    const bool hasHeader =
        KSHostGetLayout(source.file(), &layout) != 0 && layout.szHeader != nullptr && *layout.szHeader != '\0';
    for (const auto& companion : companionsOf(output)) {
        if (hasHeader && sameFile(layout.szHeader, companion)) {
            fail("{} would need the header of the source, {}; choose a name that differs in more than its extension.",
                 output, companion.string());
        }
    }
}

void refuseImageFiles(const DataSet& image, const std::string& input, const std::string& output) {
    KSHostLayout layout = {};
    const bool known = KSHostGetLayout(image.file(), &layout) != 0;
    if (sameFile(input, output) ||
        (known && (sameFile(layout.szHeader, output) || sameFile(layout.szSidecar, output)))) {
        fail("{} belongs to the image; choose another name for the output.", output);
    }
}

}  // namespace kscli
