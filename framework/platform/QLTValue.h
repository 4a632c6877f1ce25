#pragma once

#include <chrono>
#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <QLTExport.h>

class QLTDictionary;
class QLTValue;

using QLTArray = std::vector<QLTValue>;
using QLTData = std::vector<std::uint8_t>;
using QLTDate = std::chrono::sys_time<std::chrono::milliseconds>;

/// Where a value stood in the file it was read from. A text file has lines and columns, which count
/// from 1 and are 0 where they are not known; a binary one has offsets, in bytes from 0, which are
/// -1 where they are not known. Nothing is known of a value that was made in code.
struct QLTPosition {
  int line = 0;
  int column = 0;
  std::int64_t offset = -1;
};

/// One property-list value: boolean, integer, real, text, date, data, array or dictionary.
///
/// A value type: copies are deep, equality compares type and content (not the position). There is
/// no null: a value that is absent is not there (`QLTDictionary::find` gives null). As with other
/// value types, one thread may write an object or several may read it.
class QLT_EXPORT QLTValue {
 public:
  enum class Type { Boolean, Integer, Real, Text, Date, Data, Array, Dictionary };

  QLTValue();  ///< the empty text
  QLTValue(bool value);
  // Whole numbers of every type. They are kept in 64 bits with a sign; what is beyond that becomes
  // the nearest real.
  QLTValue(int value);
  QLTValue(unsigned value);
  QLTValue(long value);
  QLTValue(unsigned long value);
  QLTValue(long long value);
  QLTValue(unsigned long long value);
  QLTValue(double value);
  QLTValue(long double value);  ///< as the nearest `double`
  /// A null pointer gives the empty text; `QLTDictionary` leaves such an entry out.
  QLTValue(const char* text);
  QLTValue(std::string text);
  QLTValue(std::string_view text);
  QLTValue(QLTDate date);
  QLTValue(QLTData data);
  QLTValue(QLTArray array);
  QLTValue(QLTDictionary dictionary);
  QLTValue(const void*) = delete;  ///< a pointer would silently read as a boolean

  QLTValue(const QLTValue& other);
  QLTValue(QLTValue&& other) noexcept;
  QLTValue& operator=(const QLTValue& other);
  QLTValue& operator=(QLTValue&& other) noexcept;  // NOLINT(bugprone-exception-escape)
  ~QLTValue();

  Type type() const;

  // The content, or null when the value is of another type.
  const std::string* string() const;
  const QLTDate* date() const;
  const QLTData* data() const;
  const QLTArray* array() const;
  QLTArray* array();
  const QLTDictionary* dictionary() const;
  QLTDictionary* dictionary();

  // Lenient readings. They never fail: what has no reading is false or 0. None depends on the
  // locale.

  /// A number is true unless it is 0 (NaN is true). A text is true when, after white space, a sign
  /// and zeros, the next character is one of Y y T t 1-9. Everything else is false.
  bool boolValue() const;
  /// A number without its fraction, a boolean as 1 or 0, a text's leading decimal digits; limited
  /// to 32 bits.
  std::int32_t intValue() const;
  /// As `intValue`, limited to 64 bits.
  std::int64_t int64Value() const;
  /// As `intValue` with fraction and exponent: the text " 1.5e3 V" reads 1500.
  double doubleValue() const;

  /// The value as text for people and logs: a text as it is, a number in decimal, a boolean as 1 or
  /// 0, a date as "2026-11-14 22:16:30 +0000", data as "<0aff>", arrays and dictionaries as several
  /// lines.
  std::string text() const;

  /// Where the value stood in its file.
  QLTPosition position() const;
  /// A line or column from 2^27 on, or an offset from 2^55 on, is kept as the last one below.
  void setPosition(QLTPosition position);

  friend QLT_EXPORT bool operator==(const QLTValue& a, const QLTValue& b);

 private:
  using Storage = std::variant<bool, std::int64_t, double, std::string, QLTDate, QLTData, QLTArray,
                               std::unique_ptr<QLTDictionary>>;
  [[no_unique_address]] Storage storage_;
  // An offset, or line and column, in what the storage leaves of its last word: a configuration
  // has a value for each of its entries.
  std::uint64_t position_ : 56 = 0;
};

/// A text that may be absent: a null pointer, or an optional without a value.
template <typename T>
concept QLTMaybeText = std::same_as<T, const char*> || std::same_as<T, char*> ||
    std::same_as<T, std::optional<std::string>>;

/// An ordered map from text to value. The order is that of the keys, so listings are stable;
/// nothing depends on it. A value type, with the thread-safety of one.
class QLT_EXPORT QLTDictionary {
 public:
  using Map = std::map<std::string, QLTValue, std::less<>>;

  /// What stands in a braced list: a key with its value, `{"volts", 3.3}`. An entry whose text is
  /// absent is left out.
  class Initial {
   public:
    Initial(std::string key, QLTValue value) : key_(std::move(key)), value_(std::move(value)) {}
    template <QLTMaybeText T>
    Initial(std::string key, T text) : key_(std::move(key)) {
      if (text) value_.emplace(present(text));
    }

   private:
    friend class QLTDictionary;
    std::string key_;
    std::optional<QLTValue> value_;
  };

  QLTDictionary() = default;
  /// Of entries with equal keys the first one counts.
  QLTDictionary(std::initializer_list<Initial> entries);

  /// The value under `key`, or null when there is none. The pointer lasts until the entry is
  /// removed.
  const QLTValue* find(std::string_view key) const;
  QLTValue* find(std::string_view key);
  /// Whether there is a value under `key`.
  bool contains(std::string_view key) const { return find(key) != nullptr; }

  // Short ways to one entry: its lenient reading (see `QLTValue`), or `fallback` where there is
  // none or where it is of a kind that has no such reading.

  /// Of anything but an array or a dictionary.
  std::string text(std::string_view key, std::string_view fallback = {}) const;
  /// Of a number, boolean or text; "abc" reads 0.
  double number(std::string_view key, double fallback = 0) const;
  /// Of a number, boolean or text, limited to 64 bits; "abc" reads 0.
  std::int64_t integer(std::string_view key, std::int64_t fallback = 0) const;
  /// Of a number, boolean or text; "abc" reads false.
  bool boolean(std::string_view key, bool fallback = false) const;

  /// The value under `key`, entered as the empty text when there is none.
  QLTValue& operator[](std::string_view key);
  /// Enters `value` under `key`, replacing an earlier one.
  void set(std::string_view key, QLTValue value);
  /// As above; an absent text removes what stood there.
  template <QLTMaybeText T>
  void set(std::string_view key, T text) {
    if (text) {
      set(key, QLTValue(present(text)));
    } else {
      remove(key);
    }
  }
  /// Removes the entry; false when there was none.
  bool remove(std::string_view key);
  /// Enters every entry of `other`; its entries replace those of equal keys.
  void merge(const QLTDictionary& other);
  void clear() { map_.clear(); }

  std::size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  Map::const_iterator begin() const { return map_.begin(); }
  Map::const_iterator end() const { return map_.end(); }
  Map::iterator begin() { return map_.begin(); }
  Map::iterator end() { return map_.end(); }

  /// A listing with one `key = value;` line an entry between braces; nested containers are
  /// indented.
  std::string text() const;

  friend bool operator==(const QLTDictionary& a, const QLTDictionary& b) {
    return a.map_ == b.map_;
  }

 private:
  static const char* present(const char* text) { return text; }
  static std::string present(std::optional<std::string>& text) { return *std::move(text); }

  Map map_;
};
