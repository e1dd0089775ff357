#include "image/dataset.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "app/report.hpp"
#include "app/staging.hpp"
#include "image/entries.hpp"

namespace kscli {
namespace {

// Names such as NETCDF:"file":variable are the host's to understand.
bool namesAVariable(const std::string& name) { return name.find(":\"") != std::string::npos; }

void checkReadable(const std::string& name) {
    if (!namesAVariable(name)) requireReadable(name, "image file");
}

/// What else a file holds, and which command shows it.
std::string otherContents(HostFile* file) {
    std::string text;
    if (GDBSegNext(file, kLayerSegment, 0) > 0) text += "; 'ks library list' shows its spectra";
    if (GDBSegNext(file, kTableSegment, 0) > 0) text += "; 'ks lut info' shows its tables";
    return text;
}

void deleteTransforms(KSDataSet* record) {
    while (record->nNumRadTrans > 0 && KSDelRadTrans(record) == 0) {
    }
}

// A malloc'ed copy, as the library's records own their texts.
char* ownedText(const std::string& text) {
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy == nullptr) throw std::bad_alloc();
    std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

}  // namespace

const char* sampleTypeName(int type) {
    switch (type) {
        case kUInt8:
            return "uint8";
        case kInt16:
            return "int16";
        case kUInt16:
            return "uint16";
        default:
            return "float32";
    }
}

DataSet DataSet::open(const std::string& name) {
    checkReadable(name);
    KSDataSet* record = KSOpen(name.c_str(), "r");
    if (record == nullptr) fail("{} cannot be opened as an image (see above).", name);
    DataSet dataSet(record);
    if (dataSet.bandCount() < 1)
        fail("{} holds no bands, so there is no image{}.", name, otherContents(dataSet.file()));
    if (record->nXSize < 1 || record->nYSize < 1) fail("{} holds no pixels, so there is nothing to work on.", name);
    return dataSet;
}

DataSet DataSet::openForUpdate(const std::string& name) {
    KSDataSet* record = KSOpen(name.c_str(), "r+");
    if (record == nullptr) fail("{} cannot be opened for writing (see above).", name);
    return DataSet(record);
}

void DataSet::release() {
    if (record_ == nullptr) return;
    // What is worth storing was written before; closing would write it again over what completed it.
    record_->eOpenMode = KS_OPEN_READ;
    // KSFree releases only part of a longer chain, so the chain goes first.
    deleteTransforms(record_);
    KSClose(record_);
    record_ = nullptr;
}

DataSet DataSet::describe(const std::vector<int>& bands) const {
    DataSet copy(KSDupl(record_, static_cast<int>(bands.size()), bands.data()));
    if (copy.record_ == nullptr) throw std::bad_alloc();
    copy->Mission.fHeading = record_->Mission.fHeading;
    VQubeCleanUp(&copy->VQubeInfo);
    copy->VQubeInfo = KSVQubeInfo{};
    for (int i = 0; i < copy.bandCount(); ++i) {
        copy->pBandRefs[i].eStorage = KS_STORE_EXPLICIT;
        copy->pBandRefs[i].nChan = i + 1;
    }
    return copy;
}

void DataSet::create(const std::string& name, int sampleType) {
    std::free(record_->szFileName);
    record_->szFileName = nullptr;
    record_->szFileName = ownedText(name);
    for (int i = 0; i < bandCount(); ++i) record_->pBandRefs[i].nChanType = sampleType;
    if (KSCreate(record_) != 0) fail("the image could not be created (see above).");
}

void DataSet::dropFirstTransforms(int count) {
    KSRadTrans** chain = record_->papRadTransSeq;
    for (int i = 0; i < count; ++i) KSFreeRadTrans(chain[i]);
    std::copy(chain + count, chain + record_->nNumRadTrans, chain);
    record_->nNumRadTrans -= count;
    if (record_->nNumRadTrans == 0) {
        std::free(chain);
        record_->papRadTransSeq = nullptr;
    }
}

void DataSet::writeMetadata() {
    if (KSWriteMetadata(record_) != 0) fail("the metadata could not be stored (see above).");
}

double DataSet::wavelength(int band) const {
    const KSBandResp& response = record_->Sensor.pBandResp[band];
    return response.eRespType == KS_RT_UNKNOWN ? -1.0 : static_cast<double>(response.fCentre);
}

double DataSet::fwhm(int band) const {
    const KSBandResp& response = record_->Sensor.pBandResp[band];
    return response.eRespType == KS_RT_UNKNOWN ? -1.0 : static_cast<double>(response.fFWHM);
}

bool DataSet::hasWavelengths() const {
    for (int band = 0; band < bandCount(); ++band) {
        if (wavelength(band) > 0) return true;
    }
    return false;
}

bool DataSet::isGood(int band) const {
    const int quality = record_->Sensor.peBandQual[band];
    return quality == KS_BQ_PLOT || quality == KS_BQ_BMASK;
}

const char* DataSet::qualityName(int band) const {
    const int quality = record_->Sensor.peBandQual[band];
    return aKSBandQual[quality >= KS_BQ_UNKNOWN && quality <= KS_BQ_BMASK ? quality : KS_BQ_UNKNOWN].szName;
}

std::vector<std::string> DataSet::levelDescriptions() const {
    char** list = KSRadTransDescList(record_);
    if (list == nullptr) throw std::bad_alloc();
    std::vector<std::string> texts;
    for (char** text = list; *text != nullptr; ++text) {
        texts.emplace_back(*text);
        std::free(*text);
    }
    std::free(list);
    return texts;
}

int DataSet::level(int asked) const {
    if (asked > record_->nNumRadTrans) {
        fail("level {} does not exist; this image has levels 0 to {} (see 'ks info').", asked, record_->nNumRadTrans);
    }
    return asked < 0 ? record_->nNumRadTrans : asked;
}

Window::Window(int width, int height, int xInt, int yInt, const std::vector<int>& bands) {
    KSInitWinEx(&window_);
    window_.nXSize = width;
    window_.nYSize = height;
    window_.SampDesc.nXSampleInt = xInt;
    window_.SampDesc.nYSampleInt = yInt;
    window_.SampDesc.nNumBands = static_cast<int>(bands.size());
    if (KSAllocWinEx(&window_) != 0) throw std::bad_alloc();
    std::copy(bands.begin(), bands.end(), window_.SampDesc.panBandMap);
}

void Window::resizeRows(int rows) {
    if (rows == window_.nNumYSamples) return;
    const KSSampDesc& samples = window_.SampDesc;
    if (KSResizeWinEx(&window_, window_.nXSize, rows * samples.nYSampleInt, samples.nXSampleInt, samples.nYSampleInt) !=
        0) {
        throw std::bad_alloc();
    }
}

void Window::read(const DataSet& dataSet, int level) {
    window_.nRadTransLev = level;
    if (KSReadWinEx(dataSet.get(), &window_) != 0) fail("the image could not be read (see above).");
}

void Window::write(const DataSet& dataSet) {
    // Always stored values: above level 0 a write would take component j through the gain of band j.
    window_.nRadTransLev = 0;
    if (KSWriteWinEx(dataSet.get(), &window_) != 0) fail("the image could not be written (see above).");
}

void Window::swapSamples(Window& other) {
    std::swap(window_.pafSamples, other.window_.pafSamples);
    std::swap(window_.papafStart, other.window_.papafStart);
}

Calibration calibration(const DataSet& dataSet, const std::vector<int>& bands, int level) {
    Calibration result{std::vector<float>(bands.size(), 1.0F), std::vector<float>(bands.size(), 0.0F)};
    if (level == 0) return result;
    KSRadTrans* combined = KSCreateRadTrans(dataSet.bandCount());
    if (combined == nullptr) throw std::bad_alloc();
    const int failed = KSCombRadTrans(dataSet->papRadTransSeq, level, dataSet.bandCount(), combined);
    for (std::size_t i = 0; i < bands.size() && failed == 0; ++i) {
        result.gains[i] = combined->pafGains[bands[i]];
        result.offsets[i] = combined->pafOffsets[bands[i]];
    }
    KSFreeRadTrans(combined);
    if (failed != 0) fail("the radiometric transforms up to level {} cannot be combined.", level);
    return result;
}

}  // namespace kscli
