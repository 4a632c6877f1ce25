#include "Lines.h"

#include <algorithm>
#include <optional>
#include <utility>

#include <QLTBenchSerial.h>
#include <QLTBenchTcp.h>

#include "bench/Simulated.h"

namespace quillon::bench {
namespace {

using Attribute = QLTInstrumentAttribute;

const char* const kLine = "line";  // the group of the attributes that choose a kind

template <typename Line>
std::shared_ptr<QLTBenchTcp> tcpLine(const QLTDictionary& entry) {
  auto line = std::make_shared<Line>(QLTHostAndPort::of(entry.text("address")).value());
  line->setConnectTimeOutInSeconds(entry.number("connectTimeOut"));
  line->setKeepAliveInSeconds(static_cast<int>(entry.integer("keepAlive")));
  return line;
}

// In the order of the enumerations.
const std::vector<std::string>& parityWords() {
  static const std::vector<std::string> words{"none", "odd", "even", "mark", "space"};
  return words;
}

const std::vector<std::string>& flowWords() {
  static const std::vector<std::string> words{"none", "hardware", "software"};
  return words;
}

template <typename Enumeration>
Enumeration oneOf(const std::string& word, const std::vector<std::string>& words) {
  return static_cast<Enumeration>(std::find(words.begin(), words.end(), word) - words.begin());
}

LineKind tcp() {
  return {
      "QLTBenchTcp",
      "ASCII device on a TCP port",
      {Attribute::hostAndPort("address", "where the device listens"),
       Attribute::seconds("connectTimeOut", 0.1, 600, "the longest try to connect").standard("5"),
       Attribute::whole("keepAlive", 0, 7200,
                        "seconds of silence after which the system asks whether the device is "
                        "still there; 0 does not ask")
           .standard("10")},
      [](const QLTDictionary& entry) -> std::shared_ptr<QLTBenchLine> {
        if (isSimulated(entry)) return tcpLine<Simulated<QLTBenchTcp>>(entry);
        return tcpLine<QLTBenchTcp>(entry);
      }};
}

template <typename Line>
std::shared_ptr<QLTBenchLine> serialLine(const QLTDictionary& entry) {
  using Parity = QLTBenchSerial::Parity;
  using Flow = QLTBenchSerial::FlowControl;
  const auto raised = [&](const char* attribute) {
    return entry.contains(attribute) ? std::optional(isYes(entry, attribute)) : std::nullopt;
  };
  QLTBenchSerial::Settings settings;
  settings.baudRate = static_cast<std::uint64_t>(entry.integer("baudRate"));
  settings.dataBits = static_cast<int>(entry.integer("dataBits"));
  settings.parity = oneOf<Parity>(entry.text("parity"), parityWords());
  settings.stopBits = static_cast<int>(entry.integer("stopBits"));
  settings.flowControl = oneOf<Flow>(entry.text("flowControl"), flowWords());
  settings.dtr = raised("dtr");
  settings.rts = raised("rts");
  auto line = std::make_shared<Line>(entry.text("port"));
  line->setSettings(settings);
  return line;
}

LineKind serial() {
  return {"QLTBenchSerial",
          "ASCII device on a serial line",
          {Attribute::text("port",
                           "its device file, its name in /dev/serial/by-id, or usb: and the "
                           "USB serial number of its adapter"),
           Attribute::whole("baudRate", 50, 12000000, "line speed in baud").standard("115200"),
           Attribute::whole("dataBits", 5, 8, "bits of a character").standard("8"),
           Attribute::word("parity", parityWords(), "the parity bit").standard("none"),
           Attribute::whole("stopBits", 1, 2, "stop bits").standard("1"),
           Attribute::word("flowControl", flowWords(), "what holds the sender up").standard("none"),
           Attribute::yesOrNo("dtr",
                              "whether DTR is raised after opening; as the system does, "
                              "where it is not given"),
           Attribute::yesOrNo("rts", "the same of RTS")},
          [](const QLTDictionary& entry) {
            return isSimulated(entry) ? serialLine<Simulated<QLTBenchSerial, QLTSimSerial>>(entry)
                                      : serialLine<QLTBenchSerial>(entry);
          }};
}

// What all lines have.

const std::vector<std::string>& lineEndWords() {
  static const std::vector<std::string> words{"lf", "crlf", "cr"};
  return words;
}

std::string lineEndOf(const std::string& word) {
  if (word == "cr") return "\r";
  return word == "crlf" ? "\r\n" : "\n";
}

std::vector<Attribute> commonAttributes() {
  return {
      Attribute::seconds("timeOut", 0.001, 3600, "the longest wait for an answer").standard("2"),
      Attribute::word("lineEnd", lineEndWords(), "what ends a command").standard("lf"),
      Attribute::word("replyEnd", lineEndWords(), "what ends an answer").standard("lf")};
}

std::shared_ptr<QLTBenchLine> makeLine(const LineKind& kind, const QLTDictionary& entry) {
  auto line = kind.make(entry);
  line->setTimeOutInSeconds(entry.number("timeOut"));
  line->setLineEnd(lineEndOf(entry.text("lineEnd")));
  line->setReplyEnd(lineEndOf(entry.text("replyEnd")));
  return line;
}

const LineKind* kindOf(const QLTDictionary& entry) {
  for (const LineKind& kind : lineTable()) {
    if (entry.contains(kind.attributes.front().name())) return &kind;
  }
  return nullptr;
}

void append(std::vector<Attribute>& attributes, const std::vector<Attribute>& more) {
  attributes.insert(attributes.end(), more.begin(), more.end());
}

}  // namespace

const std::vector<LineKind>& lineTable() {
  static const std::vector<LineKind> table{tcp(), serial(), programLine(), vxi11Line(),
                                           usbTmcLine()};
  return table;
}

std::vector<Attribute> lineAttributes() {
  std::vector<Attribute> attributes;
  for (const LineKind& kind : lineTable()) {
    append(attributes, kind.attributes);
    Attribute& selector = attributes[attributes.size() - kind.attributes.size()];
    selector = selector.oneOf(kLine);
  }
  append(attributes, commonAttributes());
  return attributes;
}

std::shared_ptr<QLTBenchLine> makeLine(const QLTDictionary& entry) {
  return makeLine(*kindOf(entry), entry);
}

std::shared_ptr<QLTBenchLine> openLine(const QLTDictionary& entry, QLTError* error) {
  auto line = makeLine(entry);
  line->open(error);
  return line;
}

std::vector<InstrumentClass> lineClasses() {
  std::vector<InstrumentClass> classes;
  for (const LineKind& kind : lineTable()) {
    std::vector<Attribute> attributes = kind.attributes;
    attributes.front() = attributes.front().needed();
    append(attributes, commonAttributes());
    classes.push_back({{kind.className, kind.kind, std::move(attributes)},
                       [](const QLTDictionary& entry, QLTError* error) {
                         return std::shared_ptr<QLTObject>(openLine(entry, error));
                       }});
  }
  return classes;
}

}  // namespace quillon::bench
