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

/// How rows come from a server. Whole: at once, for few rows; the server may share the work among
/// its processors. Streamed: in portions, for as many as there are.
enum class Rows { Whole, Streamed };

/// The rows of a statement, one after the other. Those of a file are always read one by one.
class RowSource {
 public:
  /// `bind` tells the statement where the columns go.
  template <typename Bind>
  RowSource(soci::session& session, const std::string& text, const Conditions& conditions,
            Rows rows, Bind bind)
      : session_(session),
        isStreamed_(rows == Rows::Streamed && session.get_backend_name() == "postgresql") {
    if (isStreamed_) declare(text, conditions);
    auto preparing =
        (session.prepare << (isStreamed_ ? "FETCH " + std::to_string(kPortion) + " FROM report_rows"
                                         : text));
    bind(preparing);
    if (!isStreamed_) conditions.bind(preparing);
    statement_.emplace(preparing);
    statement_->execute();
  }
  ~RowSource();
  RowSource(const RowSource&) = delete;
  RowSource& operator=(const RowSource&) = delete;

  bool next() {
    if (statement_->fetch()) {
      ++fetched_;
      return true;
    }
    if (!isStreamed_ || fetched_ < kPortion) return false;
    statement_->execute();
    fetched_ = statement_->fetch() ? 1 : 0;
    return fetched_ > 0;
  }

 private:
  static constexpr int kPortion = 4096;

  void declare(const std::string& text, const Conditions& conditions);

  soci::session& session_;
  const bool isStreamed_;
  std::optional<soci::statement> statement_;
  int fetched_ = 0;  // of the portion
};

/// Calls `each(values...)` for every row of a statement whose columns are of these types.
template <typename... Types, typename Each>
void forEachRow(soci::session& session, const std::string& text, const Conditions& conditions,
                Rows rows, Each each) {
  std::array<Slot, sizeof...(Types)> slots;
  RowSource source(session, text, conditions, rows,
                   [&](soci::details::prepare_temp_type& preparing) {
                     const auto bind = [&]<typename Type>(Slot& slot) {
                       preparing, soci::into(slot.part<typename Held<Type>::Type>(), slot.state);
                     };
                     [&]<std::size_t... I>(std::index_sequence<I...>) {
                       (bind.template operator()<Types>(slots[I]), ...);
                     }
                     (std::index_sequence_for<Types...>{});
                   });
  const auto value = []<typename Type>(Slot& slot) {
    Type field{};
    slot.take(field);
    return field;
  };
  while (source.next()) {
    [&]<std::size_t... I>(std::index_sequence<I...>) {
      each(value.template operator()<Types>(slots[I])...);
    }
    (std::index_sequence_for<Types...>{});
  }
}

}  // namespace results
