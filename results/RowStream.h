#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "results/Conditions.h"
#include "results/Statements.h"

namespace results {

// Internal to the library, for its sources only.

/// Calls `each(values...)` for every row of a statement whose columns are of these types. One row
/// is held at a time.
template <typename... Types, typename Each>
void forEachRow(soci::session& session, const std::string& text, const Conditions& conditions,
                Each each) {
  std::array<Slot, sizeof...(Types)> slots;
  auto preparing = (session.prepare << text);
  const auto bind = [&]<typename Type>(Slot& slot) {
    preparing, soci::into(slot.part<typename Held<Type>::Type>(), slot.state);
  };
  [&]<std::size_t... I>(std::index_sequence<I...>) {
    (bind.template operator()<Types>(slots[I]), ...);
  }
  (std::index_sequence_for<Types...>{});
  conditions.bind(preparing);
  soci::statement statement(preparing);
  statement.execute();
  const auto value = []<typename Type>(Slot& slot) {
    Type field{};
    slot.take(field);
    return field;
  };
  while (statement.fetch()) {
    [&]<std::size_t... I>(std::index_sequence<I...>) {
      each(value.template operator()<Types>(slots[I])...);
    }
    (std::index_sequence_for<Types...>{});
  }
}

}  // namespace results
