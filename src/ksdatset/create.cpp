// Creating data sets and storing their metadata. Every entry is deleted before it is set; values that lie outside the
// range of their key are unknown values, and leave what the file already says.
#include <kslib/ksdatset.h>

#include <kslib/ksld.h>
#include <kslib/ksradtrans.h>

#include <cmath>

#include "ksdatset/bandlist.hpp"
#include "ksdatset/keys.hpp"
#include "support/metadatalist.hpp"
#include "support/number.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

constexpr const char* kCreateLabel = "KSCreate";
constexpr const char* kWriteLabel = "KSWriteMetadata";

// ---- creating ----

int checkNewDataSet(const KSDataSet* dataSet) {
    if (dataSet == nullptr) return KS_FAIL("%s: pDataSet == NULL.\n", kCreateLabel);
    const char* name = dataSet->szFileName;
    if (name == nullptr || *name == '\0') {
        return KS_FAIL("%s: pDataSet->szFileName == NULL or zero-length.\n", kCreateLabel);
    }
    if (DKCheck(name) == 1) return KS_FAIL("%s: pDataSet->szFileName ('%s') already exists.\n", kCreateLabel, name);
    if (dataSet->nXSize < 1) return KS_FAIL("%s: pDataSet->nXSize (= %d) not set.\n", kCreateLabel, dataSet->nXSize);
    if (dataSet->nYSize < 1) return KS_FAIL("%s: pDataSet->nYSize (= %d) not set.\n", kCreateLabel, dataSet->nYSize);
    if (dataSet->Sensor.nNumBands < 1) {
        return KS_FAIL("%s: pDataSet->pDataSet->Sensor.nNumBands (=%d) not set.\n", kCreateLabel,
                       dataSet->Sensor.nNumBands);
    }
    if (dataSet->pBandRefs == nullptr) return KS_FAIL("%s: pDataSet->pBandRefs == NULL.\n", kCreateLabel);
    return kOk;
}

int checkNewCube(const KSVQubeInfo& cube) {
    if (cube.nNumVQChans <= 0) return kOk;
    if (cube.nCodeVectors < 1 || cube.nCodeVectors > 65535) {
        return KS_FAIL("%s: pDataSet->VQubeInfo.nCodeVectors (=%d)\nmust be in the range of 1 to 65535.\n",
                       kCreateLabel, cube.nCodeVectors);
    }
    if (cube.nBitsPerIndex < 1 || cube.nBitsPerIndex > 16) {
        return KS_FAIL("%s: pDataSet->VQubeInfo.nBitsPerIndex (=%d)\nmust be in the range of 1 to 16.\n", kCreateLabel,
                       cube.nBitsPerIndex);
    }
    return kOk;
}

/// Host channel types 1, 2, 3 and any other. All channels of a file take the type of the first band.
int createExplicitFile(KSDataSet& dataSet) {
    int counts[4] = {0, 0, 0, 0};
    const int type = dataSet.pBandRefs[0].nChanType;
    counts[type >= 1 && type <= 3 ? type - 1 : 3] = dataSet.Sensor.nNumBands;
    dataSet.GDBFile = IDBCreate(dataSet.szFileName, dataSet.nXSize, dataSet.nYSize, counts, "PIXEL");
    if (dataSet.GDBFile == nullptr) return KS_FAIL("%s: IDBCreate () failed.\n", kCreateLabel);
    return kOk;
}

// ---- writing ----

constexpr bool within(double value, double low, double high) { return value >= low && value <= high; }

void writeReal(MetadataList& list, const char* key, double value, int decimals) {
    list.replace(key, NumberText(value, decimals).text());
}

/// Date and time fields count from 0 when known.
void writeKnown(MetadataList& list, const char* key, int value) {
    if (value >= 0) list.replace(key, NumberText(value).text());
}

int writeDateAndTime(MetadataList& list, const KSMission& mission) {
    writeKnown(list, kYear, mission.nYear);
    if (mission.nMonth >= 0 && (mission.nMonth < 1 || mission.nMonth > 12)) {
        return KS_FAIL("%s: pDataSet->Mission.nMonth value is not in [1,12]\n", kWriteLabel);
    }
    writeKnown(list, kMonth, mission.nMonth);
    if (mission.nDay >= 0 && (mission.nDay < 1 || mission.nDay > 31)) {
        return KS_FAIL("%s: pDataSet->Mission.nDay value is not in [1,31]\n", kWriteLabel);
    }
    writeKnown(list, kDay, mission.nDay);
    if (mission.nHour > 23) return KS_FAIL("%s: pDataSet->Mission.nHour value is not in [0,23]\n", kWriteLabel);
    writeKnown(list, kHour, mission.nHour);
    if (mission.nMinute > 59) return KS_FAIL("%s: pDataSet->Mission.nMinute value is not in [0,59]\n", kWriteLabel);
    writeKnown(list, kMinute, mission.nMinute);
    return kOk;
}

void writePlaceAndAttitude(MetadataList& list, const KSMission& mission) {
    if (within(mission.dLatitude, -90.0, 90.0)) writeReal(list, kLatitude, mission.dLatitude, 6);
    if (within(mission.dLongitude, -180.0, 180.0)) writeReal(list, kLongitude, mission.dLongitude, 6);
    if (mission.fHeight >= 0.0f) writeReal(list, kHeight, static_cast<double>(mission.fHeight), 3);
    const double heading = static_cast<double>(mission.fHeading);
    if (within(heading, -360.0, 360.0)) writeReal(list, kHeading, heading, 1);
    const double tilt = static_cast<double>(mission.fForeAftTilt);
    if (within(tilt, -90.0, 90.0)) writeReal(list, kForeAftTilt, tilt, 3);
}

void writeFieldOfView(MetadataList& list, const char* key, float degrees) {
    if (degrees >= 0.0f) writeReal(list, key, static_cast<double>(degrees), 1);
}

int writeFileLevel(const KSDataSet& dataSet) {
    const KSSensor& sensor = dataSet.Sensor;
    MetadataList list(dataSet.GDBFile, MetadataList::kFileLevel, MetadataList::kWholeFile);
    if (sensor.eType != KS_SENSOR_UNKNOWN) {
        const char* word = wordOf(kSensorTypeWords, sensor.eType);
        if (word == nullptr) return KS_FAIL("%s: Unrecognized pDataSet->Sensor.eType value\n", kWriteLabel);
        list.replace(kSensorType, word);
    }
    if (writeDateAndTime(list, dataSet.Mission) != kOk) return kFailed;
    writePlaceAndAttitude(list, dataSet.Mission);
    writeFieldOfView(list, kFOVLeft, sensor.fFOVLeft);
    writeFieldOfView(list, kFOVRight, sensor.fFOVRight);
    writeFieldOfView(list, kFOVFore, sensor.fFOVFore);
    list.replace(kNumberOfRadTrans, NumberText(dataSet.nNumRadTrans).text());
    writeFieldOfView(list, kFOVAft, sensor.fFOVAft);
    list.write();
    return kOk;
}

int writeProfile(const KSSensor& sensor, int band, int decimals, MetadataList& list) {
    list.remove(kProfileType);
    const int type = respType(sensor, band);
    if (type == KS_RT_UNKNOWN) return kOk;
    const char* word = wordOf(kProfileTypeWords, type);
    if (word == nullptr) {
        return KS_FAIL("%s: pDataSet->Sensor.pBandResp[%d].eRespType value is not supported", kWriteLabel, band);
    }
    list.replace(kProfileType, word);
    writeReal(list, kProfileCentre, static_cast<double>(sensor.pBandResp[band].fCentre), decimals);
    writeReal(list, kProfileFWHM, static_cast<double>(sensor.pBandResp[band].fFWHM), decimals);
    return kOk;
}

int writeTransform(const KSDataSet& dataSet, int k, int band, MetadataList& list) {
    constexpr int kDecimals = 6;
    const KSRadTrans* transform = dataSet.papRadTransSeq != nullptr ? dataSet.papRadTransSeq[k - 1] : nullptr;
    const char* quantity = transform != nullptr ? nameOfRow(aKSRadQuant, transform->eRadQuant) : nullptr;
    if (quantity == nullptr) {
        return KS_FAIL("%s: pDataSet->papRadTransSeq[%d]->eRadQuant value is not recognized\n", kWriteLabel, k - 1);
    }
    const TransformKeys keys(k);
    list.replace(keys.quantity, quantity);
    writeReal(list, keys.gain, static_cast<double>(transform->pafGains[band]), kDecimals);
    writeReal(list, keys.offset, static_cast<double>(transform->pafOffsets[band]), kDecimals);
    return kOk;
}

int writeBand(const KSDataSet& dataSet, int band, int profileDecimals) {
    const KSBandRef& ref = dataSet.pBandRefs[band];
    MetadataList list(dataSet.GDBFile, MetadataList::kChannelLevel, ref.nChan);
    if (ref.nID > 0) list.replace(kID, NumberText(ref.nID).text());
    if (writeProfile(dataSet.Sensor, band, profileDecimals, list) != kOk) return kFailed;
    for (int k = 1; k <= dataSet.nNumRadTrans; ++k) {
        if (writeTransform(dataSet, k, band, list) != kOk) return kFailed;
    }
    list.write();
    return kOk;
}

}  // namespace

extern "C" {

int KSCreate(KSDataSet* pDataSet) {
    if (checkNewDataSet(pDataSet) != kOk) return kFailed;
    KSVQubeInfo& cube = pDataSet->VQubeInfo;
    if (checkNewCube(cube) != kOk) return kFailed;

    int quantizedBands = 0;
    if (KSEvalBandMapFmt(pDataSet, KS_STORE_VQ, nullptr, &quantizedBands) != kOk) {
        return KS_FAIL("%s: KSEvalBandmapFmt () failed.\n", kCreateLabel);
    }
    if (quantizedBands != 0 && cube.nNumVQChans > 0 && cube.nNumNonVQChans == 0) {
        VQubeCreate(pDataSet->szFileName, pDataSet->nXSize, pDataSet->nYSize, pDataSet->Sensor.nNumBands,
                    cube.nCodeVectors, cube.nDataType);
    } else if (createExplicitFile(*pDataSet) != kOk) {
        return kFailed;
    }
    pDataSet->eOpenMode = KS_OPEN_READWRITE;
    return kOk;
}

int KSWriteMetadata(const KSDataSet* pDataSet) {
    if (pDataSet == nullptr) return KS_FAIL("%s: pDataSet == NULL\n", kWriteLabel);
    if (pDataSet->GDBFile == nullptr) return KS_FAIL("%s: pDataSet->GDBFile == NULL\n", kWriteLabel);
    const int bands = pDataSet->Sensor.nNumBands;
    if (bands > 0 && pDataSet->pBandRefs == nullptr) return KS_FAIL("%s: pDataSet->pBandRefs == NULL\n", kWriteLabel);

    if (writeFileLevel(*pDataSet) != kOk) return kFailed;
    constexpr double kProfileResolution = 0.001;
    const int profileDecimals = static_cast<int>(0.5 - std::log10(kProfileResolution));
    for (int band = 0; band < bands; ++band) {
        if (writeBand(*pDataSet, band, profileDecimals) != kOk) return kFailed;
    }
    return kOk;
}

}  // extern "C"
