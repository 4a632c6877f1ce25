#include "QLTErrorCodes.h"

const std::string QLTSerialErrorDomain = "QLTSerial Error Domain";
const std::string kQLTScipErrorDomain = "kQLTScpiErrorDomain";
