#include "QLTMakesSafe.h"

QLTMakesSafe::~QLTMakesSafe() = default;

void QLTMakesSafe::tellSafe() {}
