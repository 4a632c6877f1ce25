#include "QLTMakesSafe.h"

QLTMakesSafe::~QLTMakesSafe() = default;
