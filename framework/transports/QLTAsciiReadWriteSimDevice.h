#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <QLTAsciiReadWriteDevice.h>
#include <QLTError.h>
#include <QLTExport.h>
#include <QLTText.h>
#include <QLTTraffic.h>
#include <QLTValue.h>

/// Stands in for any ASCII instrument, driven by a file: a property list whose dictionary holds
/// "challenges" (what is written, line ends included, to what is answered) and "script" (responses
/// given out in order). Other keys are ignored; entries that are not texts give no response.
///
/// It never logs and never reports an error: what it has no response for is absent. Not
/// synchronised: one thread uses a device at a time.
class QLT_EXPORT QLTAsciiReadWriteSimDevice : public QLTAsciiReadWriteDevice {
 public:
  /// A device with the tables of the file at `path`, in answer mode. A file that cannot be read,
  /// and a key that is missing or of another type, leave the tables empty.
  explicit QLTAsciiReadWriteSimDevice(const QLTText& path);

  /// The response to exactly that challenge.
  std::optional<std::string> response(const QLTText& challenge) const;
  /// Steps to the next response of the script. Absent at the end, where the place is kept: a
  /// response that is inserted there later is given out next.
  std::optional<std::string> nextScriptedResponse();
  /// Sets or replaces the response to a challenge.
  void addResponse(const QLTText& response, const QLTText& challenge);
  /// Inserts a response into the script, moving later ones up. An index outside the script means
  /// the nearer end of it.
  void insertResponse(const QLTText& response, std::int32_t index);

  /// In script mode the next response of the script, otherwise the response to the text written
  /// last; `size` is not used.
  std::optional<std::string> read(std::int32_t size, QLTError* error = nullptr) override;
  /// Keeps `text` as the last challenge, in either mode; always true.
  using QLTAsciiReadWriteDevice::write;
  bool write(const std::string& text, QLTError* error = nullptr) override;
  bool close(QLTError* error = nullptr) override;  ///< true; does nothing

  /// Whether reads give out the script. Switching keeps the place in it.
  bool inScript() const { return inScript_; }
  void setInScript(bool inScript) { inScript_ = inScript; }

 private:
  QLTDictionary responses_;
  QLTArray scriptResponses_;
  std::int32_t currentScriptIndex_ = -1;
  std::optional<std::string> lastChallenge_;
  bool inScript_ = false;
  QLTTrafficLine traffic_;
};
