#pragma once

#include <string_view>

namespace fuzz {

/// Checks what holds for any bytes read as a property list: that reading ends, and either gives a
/// value that is the same when read again, or again from its XML form, or tells where it failed.
void checkPropertyList(std::string_view bytes);

}  // namespace fuzz
