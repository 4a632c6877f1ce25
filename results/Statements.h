#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <soci/soci.h>

#include "results/Columns.h"

namespace results {

// Internal to the library, for its sources only: rows to and from the database.

/// Where one value is while it is on its way.
struct Slot {
  long long integer = 0;
  double real = 0;
  std::string text;
  soci::indicator state = soci::i_ok;

  /// The part of it that holds values of a field's type.
  template <typename Field>
  auto& part() {
    if constexpr (std::is_same_v<Field, double>) {
      return real;
    } else if constexpr (std::is_same_v<Field, std::string> || std::is_enum_v<Field>) {
      return text;
    } else {
      return integer;
    }
  }

  template <typename Field>
  void put(const Field& field) {
    state = soci::i_ok;
    if constexpr (std::is_enum_v<Field>) {
      text = results::text(field);
    } else {
      part<Field>() = field;
    }
  }
  template <typename Field>
  void put(const std::optional<Field>& field) {
    if (field) {
      put(*field);
    } else {
      state = soci::i_null;
    }
  }

  template <typename Field>
  void take(Field& field) {
    if constexpr (std::is_enum_v<Field>) {
      if (!parse(text, field)) throw soci::soci_error("an unknown word in the store: " + text);
    } else {
      field = static_cast<Field>(part<Field>());
    }
  }
  template <typename Field>
  void take(std::optional<Field>& field) {
    if (state == soci::i_null) {
      field.reset();
    } else {
      take(field.emplace());
    }
  }
};

template <typename Field>
struct Held {
  using Type = Field;
};
template <typename Field>
struct Held<std::optional<Field>> {
  using Type = Field;
};

/// "id, name, location", of a table; each name behind `before`.
template <typename Row>
std::string columnNames(const std::string& before = "") {
  std::string names;
  Row row;
  forEachColumn(row, [&](const char* name, auto& /*field*/) {
    names += (names.empty() ? before : ", " + before) + name;
  });
  return names;
}

/// Inserts rows, one at a call.
template <typename Row>
class Insert {
 public:
  /// `otherwise`: what stands behind the values, "ON CONFLICT ...".
  explicit Insert(soci::session& session, const std::string& otherwise = "")
      : statement_(prepared(session, otherwise)) {}

  void operator()(const Row& row) {
    auto slot = slots_.begin();
    forEachColumn(row, [&](const char* /*name*/, const auto& field) { (slot++)->put(field); });
    statement_.execute(true);
  }

 private:
  soci::details::prepare_temp_type prepared(soci::session& session, const std::string& otherwise) {
    auto preparing =
        (session.prepare << "INSERT INTO " << Table<Row>::kName << " (" << columnNames<Row>()
                         << ") VALUES (" << columnNames<Row>(":") << ") " << otherwise);
    Row row;
    forEachColumn(row, [&]<typename Field>(const char* /*name*/, Field& /*field*/) {
      Slot& slot = slots_.emplace_back();
      preparing, soci::use(slot.part<typename Held<Field>::Type>(), slot.state);
    });
    return preparing;
  }

  std::deque<Slot> slots_;  // their addresses are the statement's
  soci::statement statement_;
};

/// A statement with parameters of these types, in their order.
template <typename... Parameters>
class Command {
 public:
  Command(soci::session& session, const std::string& text) : statement_(prepared(session, text)) {}

  void operator()(const Parameters&... parameters) {
    auto slot = slots_.begin();
    ((slot++)->put(parameters), ...);
    statement_.execute(true);
  }

 private:
  soci::details::prepare_temp_type prepared(soci::session& session, const std::string& text) {
    auto preparing = (session.prepare << text);
    (use<Parameters>(preparing), ...);
    return preparing;
  }
  template <typename Parameter>
  void use(soci::details::prepare_temp_type& preparing) {
    Slot& slot = slots_.emplace_back();
    preparing, soci::use(slot.part<typename Held<Parameter>::Type>(), slot.state);
  }

  std::deque<Slot> slots_;  // their addresses are the statement's
  soci::statement statement_;
};

/// Finds the rows of a table for which a condition holds, a text such as
/// "run_id = :a ORDER BY sequence" with parameters of these types.
template <typename Row, typename... Parameters>
class Select {
 public:
  Select(soci::session& session, const std::string& condition)
      : statement_(prepared(session, condition)) {}

  std::vector<Row> operator()(const Parameters&... parameters) {
    [[maybe_unused]] auto parameter = parameters_.begin();
    ((parameter++)->put(parameters), ...);
    statement_.execute();
    std::vector<Row> rows;
    while (statement_.fetch()) {
      auto slot = slots_.begin();
      forEachColumn(rows.emplace_back(),
                    [&](const char* /*name*/, auto& field) { (slot++)->take(field); });
    }
    return rows;
  }

 private:
  soci::details::prepare_temp_type prepared(soci::session& session, const std::string& condition) {
    auto preparing = (session.prepare << "SELECT " << columnNames<Row>() << " FROM "
                                      << Table<Row>::kName << " WHERE " << condition);
    Row row;
    forEachColumn(row, [&]<typename Field>(const char* /*name*/, Field& /*field*/) {
      Slot& slot = slots_.emplace_back();
      preparing, soci::into(slot.part<typename Held<Field>::Type>(), slot.state);
    });
    (use<Parameters>(preparing), ...);
    return preparing;
  }
  template <typename Parameter>
  void use(soci::details::prepare_temp_type& preparing) {
    Slot& slot = parameters_.emplace_back();
    preparing, soci::use(slot.part<typename Held<Parameter>::Type>(), slot.state);
  }

  std::deque<Slot> slots_;  // of the columns; their addresses are the statement's
  std::deque<Slot> parameters_;
  soci::statement statement_;
};

/// Such rows, asked for once.
template <typename Row, typename... Parameters>
std::vector<Row> select(soci::session& session, const std::string& condition,
                        const Parameters&... parameters) {
  return Select<Row, Parameters...>(session, condition)(parameters...);
}

}  // namespace results
