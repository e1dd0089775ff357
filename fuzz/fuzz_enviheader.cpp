// Any bytes at all as an ENVI header: it is read, turned into metadata, written as a header of our own, and read again.
#include <cstddef>
#include <cstdint>
#include <string>

#include "enviheader.hpp"
#include "import.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kshost::RasterFacts facts;
    facts.width = 2;
    facts.height = 3;
    facts.channels = 4;
    facts.channelTypes = {1, 1, 1, 1};
    facts.bandItems.resize(4);
    facts.bandNames.resize(4);
    facts.driver = "ENVI";
    facts.interleave = "BIP";
    facts.sampleType = "Byte";
    facts.headerPath = "image.hdr";
    facts.headerText.assign(reinterpret_cast<const char*>(data), size);

    const kshost::ImportedMetadata first = kshost::importMetadata(facts);
    facts.headerText = kshost::composeEnviHeader(facts, first.file, first.channels, kshost::Georeference{});
    const kshost::ImportedMetadata second = kshost::importMetadata(facts);
    if (second.channels.size() != first.channels.size()) __builtin_trap();
    return 0;
}
