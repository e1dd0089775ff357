// The metadata vocabulary of a data set file: what reading and writing must spell alike.
#pragma once

#include <kslib/ksdatset.h>
#include <kslib/ksld.h>

#include <cstdio>
#include <cstring>

namespace ks {

inline constexpr const char* kSensorModelName = "SensorModelName";
inline constexpr const char* kSensorType = "SensorType";
inline constexpr const char* kYear = "NominalTime_Year";
inline constexpr const char* kMonth = "NominalTime_Month";
inline constexpr const char* kDay = "NominalTime_Day";
inline constexpr const char* kHour = "NominalTime_Hour";
inline constexpr const char* kMinute = "NominalTime_Minute";
inline constexpr const char* kLatitude = "NominalLocation_Latitude";
inline constexpr const char* kLongitude = "NominalLocation_Longitude";
inline constexpr const char* kHeight = "NominalLocation_Height";
inline constexpr const char* kHeading = "NominalHeading";
inline constexpr const char* kForeAftTilt = "ForeAftTilt";
inline constexpr const char* kFOVLeft = "FieldOfView_Left";
inline constexpr const char* kFOVRight = "FieldOfView_Right";
inline constexpr const char* kFOVFore = "FieldOfView_Fore";
inline constexpr const char* kFOVAft = "FieldOfView_Aft";
inline constexpr const char* kNumberOfRadTrans = "NumberOfRadTrans";

inline constexpr const char* kID = "ID";
inline constexpr const char* kQuality = "Quality";
inline constexpr const char* kProfileType = "ResponseProfile_Type";
inline constexpr const char* kProfileCentre = "ResponseProfile_Centre";
inline constexpr const char* kProfileFWHM = "ResponseProfile_FWHM";

/// The keys of transform k, numbered from 1.
struct TransformKeys {
    explicit TransformKeys(int k) {
        std::snprintf(quantity, sizeof quantity, "RadiometricTrans_Quantity_%d", k);
        std::snprintf(gain, sizeof gain, "RadiometricTrans_Gain_%d", k);
        std::snprintf(offset, sizeof offset, "RadiometricTrans_Offset_%d", k);
    }
    char quantity[48];
    char gain[48];
    char offset[48];
};

// Value words by enumeration value; the place of an unknown value is empty.
inline constexpr const char* kSensorTypeWords[] = {nullptr, "whiskbroom", "pushbroom", "frame"};
inline constexpr const char* kProfileTypeWords[] = {nullptr, "gaussian", "triangular", "box"};

/// The index of a word among words[1..], or 0.
template <std::size_t N>
int indexOfWord(const char* const (&words)[N], const char* word) {
    for (std::size_t i = 1; i < N; ++i) {
        if (std::strcmp(words[i], word) == 0) return static_cast<int>(i);
    }
    return 0;
}

/// The word of an enumeration value, or null for a value that has none.
template <std::size_t N>
const char* wordOf(const char* const (&words)[N], int value) {
    return value >= 1 && value < static_cast<int>(N) ? words[value] : nullptr;
}

/// The row of a short name among table[1..], or 0.
template <std::size_t N>
int rowOfName(const KSDesc (&table)[N], const char* name) {
    for (std::size_t i = 1; i < N; ++i) {
        if (std::strcmp(table[i].szName, name) == 0) return static_cast<int>(i);
    }
    return 0;
}

/// The short name of a row other than "unknown", or null for a value that has none.
template <std::size_t N>
const char* nameOfRow(const KSDesc (&table)[N], int value) {
    return value >= 1 && value < static_cast<int>(N) ? table[value].szName : nullptr;
}

}  // namespace ks
