#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <QLTExport.h>
#include <QLTValue.h>

/// One attribute of an instrument's line in the tester-config file: its name, what its text must
/// be, and what it means.
///
///     QLTInstrumentAttribute::hostAndPort("address", "where it listens").needed()
///     QLTInstrumentAttribute::whole("baudRate", 1, 4000000, "line speed in baud").standard("9600")
///
/// A value, with the thread-safety of one.
class QLT_EXPORT QLTInstrumentAttribute {
 public:
  enum class Form {
    Text,         ///< any text
    Whole,        ///< a whole number within limits, in decimal
    Number,       ///< a number within limits
    Seconds,      ///< a duration: a number of seconds within limits
    Word,         ///< one of certain words, written as here
    Switch,       ///< yes or no
    HostAndPort,  ///< "10.0.0.5:5025", "meter.lab:5025", "[::1]:5025"
    Host,         ///< "10.0.0.5", "meter.lab", "::1"
    Path,         ///< an absolute path
  };

  // The forms. `meaning` says in words what the attribute is for, for people.

  static QLTInstrumentAttribute text(std::string name, std::string meaning);
  static QLTInstrumentAttribute whole(std::string name, std::int64_t lowest, std::int64_t highest,
                                      std::string meaning);
  static QLTInstrumentAttribute number(std::string name, double lowest, double highest,
                                       std::string meaning);
  static QLTInstrumentAttribute seconds(std::string name, double lowest, double highest,
                                        std::string meaning);
  static QLTInstrumentAttribute word(std::string name, std::vector<std::string> words,
                                     std::string meaning);
  static QLTInstrumentAttribute yesOrNo(std::string name, std::string meaning);
  static QLTInstrumentAttribute hostAndPort(std::string name, std::string meaning);
  static QLTInstrumentAttribute host(std::string name, std::string meaning);
  static QLTInstrumentAttribute path(std::string name, std::string meaning);

  /// Nothing can be made without it.
  QLTInstrumentAttribute needed() const;
  /// What counts where the entry does not say; `value` is of the attribute's form.
  QLTInstrumentAttribute standard(std::string value) const;
  /// Of all attributes of a class that are of one group, exactly one must be given.
  QLTInstrumentAttribute oneOf(std::string group) const;

  const std::string& name() const { return name_; }
  const std::string& meaning() const { return meaning_; }
  Form form() const { return form_; }
  bool isNeeded() const { return needed_; }
  /// What counts where the entry does not say; absent where that is nothing at all.
  const std::optional<std::string>& standard() const { return standard_; }
  const std::string& group() const { return group_; }  ///< "" for none
  double lowest() const { return lowest_; }            ///< of a form that has limits, inclusive
  double highest() const { return highest_; }
  const std::vector<std::string>& words() const { return words_; }  ///< of the form `Word`

  /// The form in words: "a whole number, 1 to 4000000".
  std::string formText() const;
  /// Whether `value` is of the form.
  bool accepts(std::string_view value) const;

 private:
  QLTInstrumentAttribute(Form form, std::string name, std::string meaning);

  Form form_;
  bool needed_ = false;
  double lowest_ = 0;
  double highest_ = 0;
  std::string name_;
  std::string meaning_;
  std::optional<std::string> standard_;
  std::string group_;
  std::vector<std::string> words_;
};

/// A class of instruments that a line of the tester-config file can name: what it is, and its
/// attributes. The hook `instrumentClasses` of a plug-in's principal class gives those that its
/// `createInstrument` makes, and `quillon check` holds the lines of the file to them.
struct QLT_EXPORT QLTInstrumentDescription {
  std::string className;
  std::string kind;  ///< in words: "ASCII device over TCP"
  std::vector<QLTInstrumentAttribute> attributes;

  /// One thing that is wrong with the attributes of an entry.
  struct Complaint {
    enum class Kind {
      Missing,  ///< one that is needed is not there
      Wrong,    ///< a text that is not of the form, or one too many of a group
      Unknown   ///< the class has no such attribute
    };
    Kind kind;
    std::string attribute;
    std::string message;
    std::string advice;  ///< may be ""
  };

  /// The attribute of that name; null when there is none.
  const QLTInstrumentAttribute* attribute(std::string_view name) const;
  /// What is wrong with the attributes of `entry`, which has "class" and "sim" besides: in the
  /// order of the description, the unknown ones last.
  std::vector<Complaint> complaintsAbout(const QLTDictionary& entry) const;
  /// The entry with the standard values of those attributes that it lacks.
  QLTDictionary completed(const QLTDictionary& entry) const;
};

/// The two parts of "host:port"; of "[::1]:5025" the host is "::1".
struct QLT_EXPORT QLTHostAndPort {
  std::string host;
  std::uint16_t port = 0;

  /// Absent when `text` is not of that form; a port is 1 to 65535.
  static std::optional<QLTHostAndPort> of(std::string_view text);
  /// As it is written, an IPv6 address in brackets.
  std::string text() const;
};
