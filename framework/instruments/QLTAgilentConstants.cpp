#include "QLTAgilentConstants.h"

const std::string kScpiMeasureTypeDCV = "VOLT:DC";
const std::string kScpiMeasureTypeDCI = "CURR:DC";
const std::string kScpiMeasureTypeACV = "VOLT:AC";
const std::string kScpiMeasureTypeACI = "CURR:AC";
const std::string kScpiMeasureTypeR = "RES";
const std::string kScpiMeasureTypeR4Wire = "FRES";
const std::string kScpiMeasureTypeFreq = "FREQ";
const std::string kScpiMeasureTypeCONT = "CONT";
const std::string kScpiMeasureTypeDIOD = "DIOD";

const std::string kQLTAgilentRangeLow = "LOW";
const std::string kQLTAgilentRangeMedium = "MED";
const std::string kQLTAgilentRangeHigh = "HIGH";
const std::string kQLTAgilentRangeAuto = "AUTO";

const std::string kQLTAgilentDCVoltage = "VOLT:DC";
const std::string kQLTAgilentDCVoltRatio = "VOLT:DC:RAT";
const std::string kQLTAgilentACVoltage = "VOLT:AC";
const std::string kQLTAgilentDCCurrent = "CURR:DC";
const std::string kQLTAgilentACCurrent = "CURR:AC";
const std::string kQLTAgilent2WireRes = "RES";
const std::string kQLTAgilent4WireRes = "FRES";
const std::string kQLTAgilentFreq = "FREQ";
const std::string kQLTAgilentPeriod = "PER";
const std::string kQLTAgilentCont = "CONT";
const std::string kQLTAgilentDiode = "DIOD";

const std::int32_t kQLTScipInvalidValue = -999999999;
