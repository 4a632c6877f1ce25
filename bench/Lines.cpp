#include "Lines.h"

#include <utility>

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
  static const std::vector<LineKind> table{tcp(), programLine()};
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
