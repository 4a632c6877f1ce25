#pragma once

#include <cstdint>
#include <string>

#include <QLTExport.h>
#include <QLTUtil.h>  // kQLTScipErrorDomain

/// @file
/// Keywords for the measurement commands of SCPI instruments. Nothing in the framework reads them.
///
/// They are strings, like the error domains, so that commands are put together with "+". Static
/// objects of a plug-in may use them: the loader initialises this library before anything that
/// links to it.

// Measurement functions, for any instrument.
QLT_EXPORT extern const std::string kScpiMeasureTypeDCV;     // "VOLT:DC"
QLT_EXPORT extern const std::string kScpiMeasureTypeDCI;     // "CURR:DC"
QLT_EXPORT extern const std::string kScpiMeasureTypeACV;     // "VOLT:AC"
QLT_EXPORT extern const std::string kScpiMeasureTypeACI;     // "CURR:AC"
QLT_EXPORT extern const std::string kScpiMeasureTypeR;       // "RES"
QLT_EXPORT extern const std::string kScpiMeasureTypeR4Wire;  // "FRES"
QLT_EXPORT extern const std::string kScpiMeasureTypeFreq;    // "FREQ"
QLT_EXPORT extern const std::string kScpiMeasureTypeCONT;    // "CONT"
QLT_EXPORT extern const std::string kScpiMeasureTypeDIOD;    // "DIOD"

// Ranges of Agilent multimeters.
QLT_EXPORT extern const std::string kQLTAgilentRangeLow;     // "LOW"
QLT_EXPORT extern const std::string kQLTAgilentRangeMedium;  // "MED"
QLT_EXPORT extern const std::string kQLTAgilentRangeHigh;    // "HIGH"
QLT_EXPORT extern const std::string kQLTAgilentRangeAuto;    // "AUTO"

// Measurement functions of Agilent multimeters.
QLT_EXPORT extern const std::string kQLTAgilentDCVoltage;    // "VOLT:DC"
QLT_EXPORT extern const std::string kQLTAgilentDCVoltRatio;  // "VOLT:DC:RAT"
QLT_EXPORT extern const std::string kQLTAgilentACVoltage;    // "VOLT:AC"
QLT_EXPORT extern const std::string kQLTAgilentDCCurrent;    // "CURR:DC"
QLT_EXPORT extern const std::string kQLTAgilentACCurrent;    // "CURR:AC"
QLT_EXPORT extern const std::string kQLTAgilent2WireRes;     // "RES"
QLT_EXPORT extern const std::string kQLTAgilent4WireRes;     // "FRES"
QLT_EXPORT extern const std::string kQLTAgilentFreq;         // "FREQ"
QLT_EXPORT extern const std::string kQLTAgilentPeriod;       // "PER"
QLT_EXPORT extern const std::string kQLTAgilentCont;         // "CONT"
QLT_EXPORT extern const std::string kQLTAgilentDiode;        // "DIOD"

/// Marks a reading as invalid: -999999999, a number.
QLT_EXPORT extern const std::int32_t kQLTScipInvalidValue;
