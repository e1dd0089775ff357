// Opening, decoding and closing data sets. Decoding walks the file-level list once and every band's channel list once
// for its response and once for each transform; absent entries leave values that are never written back.
#include <kslib/ksdatset.h>

#include <kslib/ksld.h>
#include <kslib/ksradtrans.h>

#include "ksdatset/bandlist.hpp"
#include "ksdatset/keys.hpp"
#include "support/heap.hpp"
#include "support/metadatalist.hpp"
#include "support/number.hpp"
#include "support/radtrans.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

constexpr const char* kReadLabel = "KSReadMetadata()";

// ---- releasing ----

void releaseAuxFiles(KSDataSet& dataSet) {
    for (int i = 0; dataSet.paAuxFiles != nullptr && i < dataSet.nNumAuxFiles; ++i) {
        KSAuxFile& aux = dataSet.paAuxFiles[i];
        std::free(aux.szName);
        std::free(aux.szText);
        if (aux.fp != nullptr) GDBClose(aux.fp);
    }
    freeAndClear(dataSet.paAuxFiles);
}

void releaseBandResponses(KSSensor& sensor) {
    for (int i = 0; sensor.pBandResp != nullptr && i < sensor.nNumBands; ++i) {
        if (sensor.pBandResp[i].eRespType == KS_RT_CUSTOM) std::free(sensor.pBandResp[i].pafSamples);
    }
    freeAndClear(sensor.pBandResp);
}

// ---- decoding ----

void setUnknown(KSDataSet& dataSet) {
    dataSet.pBandRefs = nullptr;
    dataSet.nNumRadTrans = 0;
    dataSet.nNumAuxFiles = 0;
    dataSet.paAuxFiles = nullptr;
    dataSet.Sensor = KSSensor{nullptr, KS_SENSOR_UNKNOWN, -1.0f, -1.0f, -1.0f, -1.0f, 0, nullptr, nullptr};
    dataSet.Mission = KSMission{-1, -1, -1, -1, -1, -1, 1000.0, 1000.0, -10000.0f, 1000.0f, 1000.0f};
    dataSet.VQubeInfo.nCodeVectors = 0;
}

void read(const MetadataList& list, const char* key, int& field) {
    if (const char* text = list.find(key)) field = parseInt(text);
}

void read(const MetadataList& list, const char* key, double& field) {
    if (const char* text = list.find(key)) field = parseReal(text);
}

void read(const MetadataList& list, const char* key, float& field) {
    if (const char* text = list.find(key)) field = static_cast<float>(parseReal(text));
}

/// Decodes the file-level list; the result is the number of transforms that the bands carry.
int readFileLevel(KSDataSet& dataSet) {
    const MetadataList list(dataSet.GDBFile, MetadataList::kFileLevel, MetadataList::kWholeFile);
    KSSensor& sensor = dataSet.Sensor;
    KSMission& mission = dataSet.Mission;
    int transforms = 0;

    if (const char* model = list.find(kSensorModelName)) sensor.szModelName = copyText(model);
    if (const char* type = list.find(kSensorType)) sensor.eType = indexOfWord(kSensorTypeWords, type);
    read(list, kYear, mission.nYear);
    read(list, kMonth, mission.nMonth);
    read(list, kDay, mission.nDay);
    read(list, kHour, mission.nHour);
    read(list, kMinute, mission.nMinute);
    read(list, kLatitude, mission.dLatitude);
    read(list, kLongitude, mission.dLongitude);
    read(list, kHeight, mission.fHeight);
    read(list, kHeading, mission.fHeading);
    read(list, kForeAftTilt, mission.fForeAftTilt);
    read(list, kFOVLeft, sensor.fFOVLeft);
    read(list, kFOVRight, sensor.fFOVRight);
    read(list, kFOVFore, sensor.fFOVFore);
    read(list, kFOVAft, sensor.fFOVAft);
    read(list, kNumberOfRadTrans, transforms);
    return transforms;
}

/// Describes the file's cube, if it holds one; a cube must cover the image.
int readCubeInfo(KSDataSet& dataSet, bool& hasCube) {
    KSVQubeInfo& cube = dataSet.VQubeInfo;
    hasCube = VQubeGetInfo(dataSet.GDBFile, &cube) != 0 && cube.nCodeVectors >= 1;
    if (!hasCube) return kOk;
    if (dataSet.nXSize != cube.nPixels) {
        return KS_FAIL("%s: pDataSet->nXSize != pDataSet->VQubeInfo.nPixels\n", kReadLabel);
    }
    if (dataSet.nYSize != cube.nLines) {
        return KS_FAIL("%s: pDataSet->nYSize != pDataSet->VQubeInfo.nLines\n", kReadLabel);
    }
    return kOk;
}

const char* channelID(HostFile* file, int channel) {
    return GDBFetchMetaDataEntry(file, MetadataList::kChannelLevel, channel, kID);
}

/// Bands are the channels with an "ID", or all channels when none has one.
int readBandRefs(KSDataSet& dataSet, int channels, bool hasCube) {
    HostFile* file = dataSet.GDBFile;
    const KSVQubeInfo& cube = dataSet.VQubeInfo;
    int withID = 0;
    for (int channel = 1; channel <= channels; ++channel) {
        if (channelID(file, channel) != nullptr) ++withID;
    }
    dataSet.Sensor.nNumBands = withID > 0 ? withID : channels;
    dataSet.pBandRefs = allocateArray<KSBandRef>(dataSet.Sensor.nNumBands).release();
    if (dataSet.pBandRefs == nullptr) {
        return KS_FAIL("%s failed to allocate memory for pDataSet->pBandRefs\n", kReadLabel);
    }

    int band = 0;
    for (int channel = 1; channel <= channels && band < dataSet.Sensor.nNumBands; ++channel) {
        const char* id = withID > 0 ? channelID(file, channel) : nullptr;
        if (withID > 0 && id == nullptr) continue;
        KSBandRef& ref = dataSet.pBandRefs[band++];
        ref.nID = id != nullptr ? parseInt(id) : -1;
        ref.nChan = channel;
        ref.nChanType = GDBChanType(file, channel);
        const bool inCube = hasCube && contains(cube.panVQChans, cube.nNumVQChans, channel);
        ref.eStorage = inCube ? KS_STORE_VQ : KS_STORE_EXPLICIT;
    }
    return kOk;
}

int parseQuality(const char* text) {
    const int quality = text != nullptr ? rowOfName(aKSBandQual, text) : 0;
    return quality != 0 ? quality : static_cast<int>(KS_BQ_PLOT);
}

int readBand(KSDataSet& dataSet, int band) {
    const MetadataList list(dataSet.GDBFile, MetadataList::kChannelLevel, dataSet.pBandRefs[band].nChan);
    KSBandResp& response = dataSet.Sensor.pBandResp[band];

    dataSet.Sensor.peBandQual[band] = parseQuality(list.find(kQuality));
    if (const char* type = list.find(kProfileType)) {
        response.eRespType = indexOfWord(kProfileTypeWords, type);
        if (response.eRespType == KS_RT_UNKNOWN) {
            return KS_FAIL_METADATA(
                "%s ResponseProfile_Type for band %d is %s, not one of \"gaussian,\" \"triangular,\" or \"box.\"",
                kReadLabel, band, type);
        }
    }
    response.fCentre = -1.0f;
    response.fFWHM = -1.0f;
    read(list, kProfileCentre, response.fCentre);
    read(list, kProfileFWHM, response.fFWHM);
    return kOk;
}

int readBands(KSDataSet& dataSet) {
    KSSensor& sensor = dataSet.Sensor;
    if (sensor.nNumBands < 1) return kOk;
    // Zeroed, so that a record that fails half-way holds no samples to free.
    sensor.peBandQual = allocateZeroedArray<int>(sensor.nNumBands).release();
    if (sensor.peBandQual == nullptr) {
        return KS_FAIL("   %s  pDataSet->Sensor.peBandQual == NULL, HMalloc() failed.\n", kReadLabel);
    }
    sensor.pBandResp = allocateZeroedArray<KSBandResp>(sensor.nNumBands).release();
    if (sensor.pBandResp == nullptr) {
        return KS_FAIL("%s pDataSet->Sensor.pBandResp == NULL, HMalloc() failed.\n", kReadLabel);
    }
    for (int band = 0; band < sensor.nNumBands; ++band) {
        if (readBand(dataSet, band) != kOk) return kFailed;
    }
    return kOk;
}

/// Decodes what transform k does to one band; band 0 settles the quantity for all.
int readTransformOfBand(const KSDataSet& dataSet, int k, const TransformKeys& keys, int band, KSRadTrans& transform) {
    const int channel = dataSet.pBandRefs[band].nChan;
    const MetadataList list(dataSet.GDBFile, MetadataList::kChannelLevel, channel);

    const char* text = list.find(keys.quantity);
    if (text == nullptr) text = aKSRadQuant[KS_RQ_ADJ_NO_UNITS].szName;
    const int quantity = rowOfName(aKSRadQuant, text);
    if (quantity == KS_RQ_UNKNOWN) {
        return KS_FAIL_METADATA("%s Bad value for RadiometricTrans_Quantity_%d for band %d: %s\n", kReadLabel, k,
                                channel, text);
    }
    if (band == 0) transform.eRadQuant = quantity;
    if (quantity != transform.eRadQuant) {
        return KS_FAIL_METADATA("%s RadiometricTrans_Quantity_%d inconsistent across bands\n", kReadLabel, k);
    }
    transform.pafGains[band] = 1.0f;
    transform.pafOffsets[band] = 0.0f;
    read(list, keys.gain, transform.pafGains[band]);
    read(list, keys.offset, transform.pafOffsets[band]);
    return kOk;
}

int readTransform(KSDataSet& dataSet, int k) {
    const int bands = dataSet.Sensor.nNumBands;
    RadTrans transform(KSCreateRadTrans(bands));
    if (!transform) return KS_FAIL("%s KSCreateRadTrans() failed.", kReadLabel);
    const TransformKeys keys(k);
    for (int band = 0; band < bands; ++band) {
        if (readTransformOfBand(dataSet, k, keys, band, *transform) != kOk) return kFailed;
    }
    if (KSAddRadTrans(&dataSet, transform.get()) != kOk) return KS_FAIL("%s KSAddRadTrans() failed.", kReadLabel);
    static_cast<void>(transform.release());
    return kOk;
}

/// The open mode that an access text names; 0 when it names none.
int openMode(const char* access) { return rowOfName(aKSOpenMode, access); }

int openFile(KSDataSet& dataSet, const char* fileName, const char* access, int mode, const char* label) {
    ImageRegister();
    dataSet.GDBFile = GDBOpen(fileName, access);
    if (dataSet.GDBFile == nullptr) return KS_FAIL("%s: pDataSet->GDBFile == NULL, GDBOpen() failed.\n", label);
    dataSet.eOpenMode = mode;
    dataSet.szFileName = copyText(fileName);
    if (dataSet.szFileName == nullptr) return KS_FAIL("%s: pDataSet->szFileName == NULL, HMalloc() failed.\n", label);
    if (KSReadMetadata(&dataSet) != kOk) return KS_FAIL("%s: KSReadMetadata (pDataSet) failed.\n", label);
    return kOk;
}

}  // namespace

extern "C" {

KSDataSet* KSOpen(const char* szFileName, const char* szAccess) {
    constexpr const char* kLabel = "KSOpen()";
    if (szFileName == nullptr) return IMPError(83, 0, "%s: szFileName == NULL.\n", kLabel), nullptr;
    if (szAccess == nullptr) return IMPError(83, 0, "%s: szAccess == NULL.\n", kLabel), nullptr;
    const int mode = openMode(szAccess);
    if (mode == KS_OPEN_UNKNOWN) return IMPError(83, 0, "%s: Invalid OpenMode value.\n", kLabel), nullptr;
    if (DKCheck(szFileName) == 0) return IMPError(3, 1, "%s: FILE: %s\n", kLabel, szFileName), nullptr;

    KSDataSet* dataSet = allocateZeroed<KSDataSet>().release();
    if (dataSet == nullptr) return IMPError(83, 0, "%s: pDataSet == NULL, HCalloc() failed.\n", kLabel), nullptr;
    if (openFile(*dataSet, szFileName, szAccess, mode, kLabel) != kOk) {
        // The record goes; a file that was opened stays open for the host to account for.
        KSFree(dataSet);
        return nullptr;
    }
    return dataSet;
}

int KSReadMetadata(KSDataSet* pDataSet) {
    if (pDataSet == nullptr) return KS_FAIL("%s: pDataSet == NULL\n", kReadLabel);
    if (pDataSet->GDBFile == nullptr) return KS_FAIL("%s: pDataSet->GDBFile == NULL\n", kReadLabel);
    KSDataSet& dataSet = *pDataSet;

    setUnknown(dataSet);
    dataSet.nXSize = GDBChanXSize(dataSet.GDBFile);
    dataSet.nYSize = GDBChanYSize(dataSet.GDBFile);
    const int transforms = readFileLevel(dataSet);
    const int channels = GDBChanNum(dataSet.GDBFile);
    if (channels < 1) return kOk;

    bool hasCube = false;
    if (readCubeInfo(dataSet, hasCube) != kOk) return kFailed;
    if (readBandRefs(dataSet, channels, hasCube) != kOk) return kFailed;
    if (readBands(dataSet) != kOk) return kFailed;
    for (int k = 1; k <= transforms; ++k) {
        if (readTransform(dataSet, k) != kOk) return kFailed;
    }
    return kOk;
}

int KSRefreshMetadata(KSDataSet* pDataSet) {
    constexpr const char* kLabel = "KSRefreshMetadata()";
    if (pDataSet == nullptr) return KS_FAIL("%s: pDataSet == NULL\n", kLabel);
    freeAndClear(pDataSet->pBandRefs);
    releaseAuxFiles(*pDataSet);
    freeAndClear(pDataSet->Sensor.szModelName);
    freeAndClear(pDataSet->Sensor.peBandQual);
    releaseBandResponses(pDataSet->Sensor);
    // The old transforms stay: callers may still hold them.
    if (KSReadMetadata(pDataSet) != kOk) return KS_FAIL("%s: KSReadMetadata() failed\n", kLabel);
    return kOk;
}

int KSClose(KSDataSet* pDataSet) {
    constexpr const char* kLabel = "KSClose ()";
    if (pDataSet == nullptr) return KS_FAIL("%s pDataSet == NULL", kLabel);
    if (pDataSet->eOpenMode == KS_OPEN_READWRITE && KSWriteMetadata(pDataSet) != kOk) {
        return KS_FAIL("%s Failed to update in-file metadata.", kLabel);
    }
    if (pDataSet->GDBFile != nullptr) {
        GDBClose(pDataSet->GDBFile);
        pDataSet->GDBFile = nullptr;
    }
    KSFree(pDataSet);
    return kOk;
}

void KSFree(KSDataSet* pDataSet) {
    if (pDataSet == nullptr) return;
    std::free(pDataSet->szFileName);
    std::free(pDataSet->pBandRefs);
    // Counts against the shrinking total: callers depend on which transforms survive.
    for (int i = 0; i < pDataSet->nNumRadTrans; ++i) KSDelRadTrans(pDataSet);
    releaseAuxFiles(*pDataSet);
    std::free(pDataSet->Sensor.szModelName);
    std::free(pDataSet->Sensor.peBandQual);
    releaseBandResponses(pDataSet->Sensor);
    VQubeCleanUp(&pDataSet->VQubeInfo);
    std::free(pDataSet);
}

}  // extern "C"
