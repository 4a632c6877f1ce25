#include "QLTReopenable.h"

QLTReopenable::~QLTReopenable() = default;
