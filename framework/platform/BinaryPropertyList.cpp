#include "BinaryPropertyList.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "common/Format.h"
#include "platform/Place.h"

namespace quillon::internal {
namespace {

constexpr std::string_view kMagic = "bplist";
constexpr std::string_view kVersion = "bplist00";
constexpr std::size_t kTrailerSize = 32;

// An object may be referred to from several places, so a small file could unfold into any number of
// values and any amount of text. What it unfolds to is counted in bytes, so many for a value or key
// besides its content, which is about what it takes in memory.
constexpr std::size_t kValueCost = 100;
// A file in which nothing is used twice stays within this much for each of its bytes: every value
// and key takes a reference of at least one byte, every byte of content is there.
constexpr std::size_t kCostOfFileByte = kValueCost;
// What writers may share besides: they store equal texts and numbers once.
constexpr std::size_t kSharedCost = 2'000'000;
// No machine minds so much, whatever the size of the file.
constexpr std::size_t kHarmlessCost = std::size_t{16} << 20U;

// Dates count from 2001-01-01.
constexpr std::int64_t kDateEpoch = 978'307'200;

QLTPosition positionOf(std::size_t offset) { return {0, 0, static_cast<std::int64_t>(offset)}; }

/// Ends the reading; never leaves this source.
struct Malformed {
  std::size_t offset;
  std::string reason;
  std::vector<std::string> path = {};  // to the value, from its end
};

void appendUtf8(std::string& text, std::uint32_t c) {
  const auto continuation = [&](unsigned shift) {
    text += static_cast<char>(0x80U | (c >> shift & 0x3fU));
  };
  if (c < 0x80) {
    text += static_cast<char>(c);
  } else if (c < 0x800) {
    text += static_cast<char>(0xc0U | c >> 6U);
    continuation(0);
  } else if (c < 0x10000) {
    text += static_cast<char>(0xe0U | c >> 12U);
    continuation(6);
    continuation(0);
  } else {
    text += static_cast<char>(0xf0U | c >> 18U);
    continuation(12);
    continuation(6);
    continuation(0);
  }
}

class Reader {
 public:
  explicit Reader(std::string_view bytes)
      : bytes_(bytes),
        mostCost_(std::max(kHarmlessCost, kSharedCost + kCostOfFileByte * bytes.size())) {}

  std::optional<QLTValue> parse(PropertyListComplaint& complaint) {
    try {
      readTrailer();
      return value(topObject_, 0);
    } catch (Malformed& malformed) {
      complaint = {positionOf(malformed.offset), {}, malformed.reason};
      std::reverse(malformed.path.begin(), malformed.path.end());
      for (const std::string& step : malformed.path) {
        complaint.keyPath += (complaint.keyPath.empty() ? "" : "/") + step;
      }
      return std::nullopt;
    }
  }

 private:
  /// A number of `size` bytes, at most 8, at `offset`, where there must be so many.
  std::uint64_t number(std::size_t offset, std::size_t size) const {
    need(offset, size, offset);
    return bigEndian(offset, size);
  }

  std::uint64_t bigEndian(std::size_t offset, std::size_t size) const {
    std::uint64_t result = 0;
    for (std::size_t i = 0; i < size; ++i) {
      result = result << 8U | static_cast<std::uint8_t>(bytes_[offset + i]);
    }
    return result;
  }

  /// Complains at `at` unless `size` bytes from `offset` on lie in the file, and before the offset
  /// table if they begin before it.
  void need(std::size_t offset, std::uint64_t size, std::size_t at) const {
    if (offset > bytes_.size() || size > bytes_.size() - offset) {
      throw Malformed{at, "reaches past the end of the file"};
    }
    if (offset <= offsetTable_ && size > offsetTable_ - offset) {
      throw Malformed{at, "reaches into the offset table"};
    }
  }

  void readTrailer() {
    if (!bytes_.starts_with(kVersion) || bytes_.size() < kVersion.size() + kTrailerSize) {
      throw Malformed{0, "not a complete binary property list of version 00"};
    }
    const std::size_t trailer = bytes_.size() - kTrailerSize;
    offsetSize_ = number(trailer + 6, 1);
    referenceSize_ = number(trailer + 7, 1);
    objectCount_ = number(trailer + 8, 8);
    topObject_ = number(trailer + 16, 8);
    const std::uint64_t table = number(trailer + 24, 8);
    if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8) {
      throw Malformed{trailer + 6, "impossible size of offsets or references"};
    }
    if (table < kVersion.size() || table > trailer ||
        objectCount_ > (trailer - table) / offsetSize_) {
      throw Malformed{trailer + 8, "the offset table reaches past the trailer"};
    }
    offsetTable_ = static_cast<std::size_t>(table);
    bytes_ = bytes_.substr(0, trailer);
  }

  /// Where an object starts. `from` is where it is referred to.
  std::size_t objectOffset(std::uint64_t object, std::size_t from) const {
    if (object >= objectCount_) throw Malformed{from, "refers to an object that does not exist"};
    const std::size_t entry = offsetTable_ + static_cast<std::size_t>(object) * offsetSize_;
    const std::uint64_t offset = bigEndian(entry, offsetSize_);
    if (offset < kVersion.size() || offset >= offsetTable_) {
      throw Malformed{entry, "points outside the objects"};
    }
    return static_cast<std::size_t>(offset);
  }

  QLTValue value(std::uint64_t object, std::size_t from, int depth = 0) {
    const std::size_t offset = objectOffset(object, from);
    QLTValue result = content(offset, depth);
    result.setPosition(positionOf(offset));
    return result;
  }

  QLTValue content(std::size_t offset, int depth) {
    charge(offset, kValueCost);
    const std::uint64_t marker = number(offset, 1);
    const unsigned low = marker & 0xfU;
    switch (marker >> 4U) {
      case 0x0:
        if (marker == 0x8) return false;
        if (marker == 0x9) return true;
        break;
      case 0x1:
        return integer(offset, low);
      case 0x2:
        return real(offset, low);
      case 0x3:
        if (low == 3) return date(offset);
        break;
      case 0x4: {
        const auto [start, size] = extent(offset, low, 1);
        charge(offset, size);
        const auto data = bytes_.substr(start, size);
        return QLTData(data.begin(), data.end());
      }
      case 0x5:
        return ascii(offset, low);
      case 0x6:
        return utf16(offset, low);
      case 0xa:
        checkDepth(offset, depth);
        return array(offset, low, depth);
      case 0xd:
        checkDepth(offset, depth);
        return dictionary(offset, low, depth);
      default:
        break;
    }
    throw Malformed{offset, format("unknown kind of object 0x%02x", marker)};
  }

  /// `depth` is how many arrays and dictionaries there are around one.
  static void checkDepth(std::size_t offset, int depth) {
    if (depth >= kDeepestPropertyList) {
      throw Malformed{offset, format("nested deeper than %d levels", kDeepestPropertyList)};
    }
  }

  void charge(std::size_t offset, std::size_t cost) {
    cost_ += cost;
    if (cost_ > mostCost_) {
      throw Malformed{offset, format("unfolds to more than %d bytes", mostCost_)};
    }
  }

  /// Where the content of an object starts, and how many items of `itemSize` bytes it has.
  std::pair<std::size_t, std::size_t> extent(std::size_t offset, unsigned low,
                                             std::size_t itemSize) const {
    std::size_t start = offset + 1;
    std::uint64_t count = low;
    if (low == 0xf) {
      const std::uint64_t marker = number(start, 1);
      if (marker >> 4U != 1 || (marker & 0xfU) > 3) throw Malformed{start, "expected a count"};
      const std::size_t size = std::size_t{1} << (marker & 0xfU);
      count = number(start + 1, size);
      start += 1 + size;
    }
    if (count > bytes_.size()) throw Malformed{offset, "reaches past the end of the file"};
    need(start, count * itemSize, offset);
    return {start, static_cast<std::size_t>(count)};
  }

  QLTValue integer(std::size_t offset, unsigned low) const {
    constexpr auto highest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (low <= 3) {
      // Eight bytes are signed, fewer are not.
      return std::bit_cast<std::int64_t>(number(offset + 1, std::size_t{1} << low));
    }
    if (low != 4) throw Malformed{offset, "impossible size of a whole number"};
    const std::uint64_t upper = number(offset + 1, 8);
    const std::uint64_t lower = number(offset + 9, 8);
    const bool fits =
        (upper == 0 && lower <= highest) || (upper == ~std::uint64_t{0} && lower > highest);
    if (!fits) throw Malformed{offset, "not a whole number of 64 bits"};
    return std::bit_cast<std::int64_t>(lower);
  }

  QLTValue real(std::size_t offset, unsigned low) const {
    if (low == 2) {
      return double{std::bit_cast<float>(static_cast<std::uint32_t>(number(offset + 1, 4)))};
    }
    if (low != 3) throw Malformed{offset, "impossible size of a number"};
    return std::bit_cast<double>(number(offset + 1, 8));
  }

  QLTValue date(std::size_t offset) const {
    const double seconds = std::bit_cast<double>(number(offset + 1, 8));
    // The years whose text has four digits, and as much before them.
    constexpr double furthest = 252'423'993'600;  // 10000-01-01
    if (!(std::abs(seconds) < furthest)) throw Malformed{offset, "not a date"};
    return QLTDate(std::chrono::seconds(kDateEpoch) +
                   std::chrono::milliseconds(std::llround(seconds * 1000)));
  }

  std::string ascii(std::size_t offset, unsigned low) {
    const auto [start, size] = extent(offset, low, 1);
    charge(offset, size);
    std::string text(bytes_.substr(start, size));
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (static_cast<unsigned char>(text[i]) > 0x7f) {
        throw Malformed{start + i, "a byte over 127 in an ASCII text"};
      }
    }
    return text;
  }

  std::string utf16(std::size_t offset, unsigned low) {
    const auto [start, count] = extent(offset, low, 2);
    charge(offset, 2 * count);
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t at = start + 2 * i;
      auto unit = static_cast<std::uint32_t>(number(at, 2));
      if (unit >= 0xd800 && unit < 0xe000) {
        const std::uint64_t next = unit < 0xdc00 && i + 1 < count ? number(at + 2, 2) : 0;
        if (next < 0xdc00 || next >= 0xe000) throw Malformed{at, "half a surrogate pair"};
        unit = 0x10000 + ((unit - 0xd800) << 10U) + static_cast<std::uint32_t>(next - 0xdc00);
        ++i;
      }
      appendUtf8(text, unit);
    }
    return text;
  }

  QLTValue array(std::size_t offset, unsigned low, int depth) {
    const auto [start, count] = extent(offset, low, referenceSize_);
    QLTArray elements;
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t at = start + i * referenceSize_;
      try {
        elements.push_back(value(number(at, referenceSize_), at, depth + 1));
      } catch (Malformed& malformed) {
        malformed.path.push_back(std::to_string(i));
        throw;
      }
    }
    return elements;
  }

  QLTValue dictionary(std::size_t offset, unsigned low, int depth) {
    const auto [start, count] = extent(offset, low, 2 * referenceSize_);
    QLTDictionary entries;
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t keyAt = start + i * referenceSize_;
      const std::string key = keyText(number(keyAt, referenceSize_), keyAt);
      if (entries.contains(key)) {
        throw Malformed{keyAt, "the key '" + shown(key) + "' stands twice"};
      }
      const std::size_t valueAt = keyAt + count * referenceSize_;
      try {
        entries.set(key, value(number(valueAt, referenceSize_), valueAt, depth + 1));
      } catch (Malformed& malformed) {
        malformed.path.push_back(shown(key));
        throw;
      }
    }
    return entries;
  }

  std::string keyText(std::uint64_t object, std::size_t from) {
    const std::size_t offset = objectOffset(object, from);
    charge(offset, kValueCost);
    const std::uint64_t marker = number(offset, 1);
    if (marker >> 4U == 0x5) return ascii(offset, marker & 0xfU);
    if (marker >> 4U == 0x6) return utf16(offset, marker & 0xfU);
    throw Malformed{offset, "a key is not a text"};
  }

  std::string_view bytes_;
  const std::size_t mostCost_;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::uint64_t objectCount_ = 0;
  std::uint64_t topObject_ = 0;
  std::size_t offsetTable_ = std::string_view::npos;  // until it is known
  std::size_t cost_ = 0;                              // of what has been read so far
};

}  // namespace

bool isBinaryPropertyList(std::string_view bytes) { return bytes.starts_with(kMagic); }

std::optional<QLTValue> parseBinaryPropertyList(std::string_view bytes,
                                                PropertyListComplaint& complaint) {
  return Reader(bytes).parse(complaint);
}

}  // namespace quillon::internal
