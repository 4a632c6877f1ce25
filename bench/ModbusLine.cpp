#include "ModbusLine.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <map>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>

#include "bench/Fail.h"
#include "bench/Ready.h"
#include "common/Format.h"
#include "common/Retried.h"
#include "common/Text.h"

namespace quillon::bench {
namespace {

using internal::format;
using internal::retried;
using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kSilence(20);  // behind a garbled answer
constexpr double kShortest = 0.001;
constexpr double kLongest = 3600;
constexpr const char* kException = "exception ";  // in what is told of the line's traffic

steady_clock::duration durationOf(double seconds) {
  return std::chrono::duration_cast<steady_clock::duration>(
      std::chrono::duration<double>(std::clamp(seconds, kShortest, kLongest)));
}

bool isException(int problem) {
  return problem > MODBUS_ENOBASE && problem < MODBUS_ENOBASE + MODBUS_EXCEPTION_MAX;
}

bool isSilence(int problem) { return problem == ETIMEDOUT || problem == EAGAIN; }

bool isGarbled(int problem) { return problem >= EMBBADCRC && problem <= EMBBADSLAVE; }

const char* garbledText(int problem) {
  switch (problem) {
    case EMBBADCRC:
      return "the checksum is wrong";
    case EMBBADSLAVE:
      return "it comes from another unit";
    case EMBBADEXC:
      return "it is an exception that there is not";
    default:
      return "it does not fit the request";
  }
}

std::string textOf(const std::vector<std::uint16_t>& words) {
  std::string text;
  for (const std::uint16_t word : words) text += (text.empty() ? "" : " ") + std::to_string(word);
  return text;
}

/// What is written or asked for, with the values of a write.
std::string requestText(const ModbusAccess& access, const std::vector<std::uint16_t>& words) {
  return access.isRead() ? access.text() : access.text() + ": " + textOf(words);
}

void append(std::vector<std::uint8_t>& bytes, int word) {
  bytes.push_back(static_cast<std::uint8_t>(word >> 8));
  bytes.push_back(static_cast<std::uint8_t>(word & 0xff));
}

/// A write as it goes over the line, without what frames it.
std::vector<std::uint8_t> writeRequest(int unit, const ModbusAccess& access,
                                       const std::vector<std::uint16_t>& words) {
  constexpr int on = 0xff00;
  std::vector<std::uint8_t> bytes{static_cast<std::uint8_t>(unit)};
  const auto begin = [&](int function) {
    bytes.push_back(static_cast<std::uint8_t>(function));
    append(bytes, access.address);
  };
  switch (access.function) {
    case ModbusFunction::WriteCoil:
      begin(MODBUS_FC_WRITE_SINGLE_COIL);
      append(bytes, words[0] != 0 ? on : 0);
      break;
    case ModbusFunction::WriteRegister:
      begin(MODBUS_FC_WRITE_SINGLE_REGISTER);
      append(bytes, words[0]);
      break;
    case ModbusFunction::WriteCoils:
      begin(MODBUS_FC_WRITE_MULTIPLE_COILS);
      append(bytes, access.count);
      bytes.push_back(static_cast<std::uint8_t>((words.size() + 7) / 8));
      for (std::size_t i = 0; i < words.size(); ++i) {
        if (i % 8 == 0) bytes.push_back(0);
        bytes.back() = static_cast<std::uint8_t>(bytes.back() | (words[i] != 0 ? 1 << i % 8 : 0));
      }
      break;
    default:
      begin(MODBUS_FC_WRITE_MULTIPLE_REGISTERS);
      append(bytes, access.count);
      bytes.push_back(static_cast<std::uint8_t>(2 * words.size()));
      for (const std::uint16_t word : words) append(bytes, word);
  }
  return bytes;
}

/// 0 for the answer that a unit owes to a write: the function, the address, and the value or how
/// many were written. Else the errno that libmodbus has for it.
int problemOfEcho(const std::vector<std::uint8_t>& request, std::string_view answer) {
  constexpr std::size_t echoed = 5;
  const auto isSame = [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; };
  const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(answer[at]); };
  if (answer.size() == 2 && byte(0) == (request[1] | 0x80)) {
    const int exception = byte(1);
    return exception > 0 && exception < MODBUS_EXCEPTION_MAX ? MODBUS_ENOBASE + exception
                                                             : EMBBADEXC;
  }
  const bool isEcho = answer.size() == echoed &&
                      std::equal(answer.begin(), answer.end(), request.begin() + 1, isSame);
  return isEcho ? 0 : EMBBADDATA;
}

/// Takes what has come and nobody waits for; false when the line has no more.
bool drop(int descriptor) {
  std::array<char, 1024> bytes;
  return retried([&] { return ::read(descriptor, bytes.data(), bytes.size()); }) > 0;
}

}  // namespace

void ModbusLine::Free::operator()(modbus_t* context) const { modbus_free(context); }

ModbusLine::ModbusLine(std::unique_ptr<ModbusCarrier> carrier)
    : carrier_(std::move(carrier)),
      where_(carrier_->where()),
      // Only the framing is libmodbus's; the carrier opens and closes.
      context_(carrier_->isSerial() ? modbus_new_rtu("carried", 9600, 'N', 8, 1)
                                    : modbus_new_tcp("127.0.0.1", 1)) {}

ModbusLine::~ModbusLine() { carrier_->close(); }

std::shared_ptr<ModbusLine> ModbusLine::of(std::unique_ptr<ModbusCarrier> carrier,
                                           QLTError* error) {
  static std::mutex mutex;
  static std::map<std::string, std::weak_ptr<ModbusLine>> lines;
  const std::lock_guard lock(mutex);
  std::weak_ptr<ModbusLine>& place = lines[carrier->where()];
  if (auto line = place.lock()) {
    if (line->carrier_->settings() == carrier->settings()) return line;
    return fail(error, kQLTErrorConfigWrong,
                format("%@ is in use with other settings: %@, not %@", line->where_,
                       line->carrier_->settings(), carrier->settings()));
  }
  std::shared_ptr<ModbusLine> line(new ModbusLine(std::move(carrier)));
  if (line->context_ == nullptr) return fail(error, kQLTErrorLineOpen, "no memory for a line");
  place = line;
  line->reopen(error);
  return line;
}

// Open and closed.

bool ModbusLine::open(QLTError* error) {
  state_ = State::Lost;
  quietBy_ = {};
  std::string reason = "does not open";
  const auto failed = [&](int problem) {
    if (problem != 0) reason += ": " + std::generic_category().message(problem);
    return fail(error, kQLTErrorLineOpen, where_ + ": " + reason);
  };
  errno = 0;
  if (!carrier_->open(reason)) return failed(errno);
  state_ = State::Open;
  if (carrier_->standIn() != nullptr) return true;
  const int descriptor = carrier_->descriptor();
  if (descriptor >= FD_SETSIZE) {  // libmodbus waits with select
    carrier_->close();
    state_ = State::Lost;
    reason = "too many files are open";
    return failed(0);
  }
  // A serial port's descriptor blocks otherwise.
  fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK);
  modbus_set_socket(context_.get(), descriptor);
  return true;
}

bool ModbusLine::reopen(QLTError* error) {
  const std::lock_guard lock(mutex_);
  if (state_ == State::Open && !hasFailed()) return true;
  return open(error);
}

bool ModbusLine::hasEnded(bool& inGoodOrder) const {
  inGoodOrder = false;
  pollfd line{carrier_->descriptor(), POLLIN, 0};
  if (retried([&] { return ::poll(&line, 1, 0); }) <= 0) return false;
  if (carrier_->isSerial()) return (line.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
  char byte = 0;
  const ssize_t count = retried([&] { return ::recv(line.fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT); });
  inGoodOrder = count == 0;
  return count == 0 || (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK);
}

bool ModbusLine::isLost() const {
  const std::lock_guard lock(mutex_);
  return hasFailed();
}

bool ModbusLine::hasFailed() const {
  if (const auto* const speaker = carrier_->standIn()) return speaker->isLost();
  if (state_ != State::Open) return state_ == State::Lost;
  bool inGoodOrder = false;
  return hasEnded(inGoodOrder);
}

// Requests.

bool ModbusLine::perform(const QLTModbus::Options& unit, const ModbusAccess& access,
                         std::vector<std::uint16_t>& words, QLTError* error) {
  const std::lock_guard lock(mutex_);
  return performFor(unit, access, words, error);
}

/// Sees to a line that can be used, and from which nothing comes that was meant for others.
bool ModbusLine::makeReady(const std::string& what, QLTError* error) {
  if (carrier_->standIn() != nullptr) return true;
  bool inGoodOrder = false;
  if (state_ == State::Open && hasEnded(inGoodOrder)) {
    carrier_->close();
    state_ = inGoodOrder ? State::Closed : State::Lost;
  }
  if (state_ == State::Lost) {
    return fail(error, kQLTErrorLineRead, format("%@: the line is lost", what));
  }
  if (state_ == State::Closed) {
    QLTError problem;
    if (!open(&problem)) return fail(error, kQLTErrorLineOpen, what + ": no connection", problem);
  }
  settle();
  return true;
}

/// Waits until nothing comes any more that was not asked for.
void ModbusLine::settle() {
  const int descriptor = carrier_->descriptor();
  constexpr int mostPieces = 64;  // even a flood has an end
  for (int i = 0; i < mostPieces && drop(descriptor); ++i) {
  }
  while (steady_clock::now() < quietBy_) {
    const auto silence = steady_clock::now() + kSilence;
    const auto deadline = hasHeard_ ? std::min(quietBy_, silence) : quietBy_;
    if (!awaitReady(descriptor, POLLIN, deadline) || !drop(descriptor)) break;
    hasHeard_ = true;
  }
  quietBy_ = {};
  hasHeard_ = false;
}

bool ModbusLine::performFor(const QLTModbus::Options& unit, const ModbusAccess& access,
                            std::vector<std::uint16_t>& words, QLTError* error) {
  const std::string request = requestText(access, words);
  const std::string what = format("%@, unit %d, %@", where_, unit.unit, access.text());
  int problem = 0;
  for (int left = access.isRead() ? unit.retries : 0; left >= 0; --left) {
    if (!makeReady(what, error)) return false;
    const std::string wire = format("unit %d: %@", unit.unit, request);
    QLTLog(format("{Modbus_Write %@}: %@", where_, wire));
    if (auto* const speaker = carrier_->standIn()) {
      problem = replay(*speaker, wire, unit, access, words);
    } else {
      if (auto* const traffic = carrier_->traffic()) traffic->sent(wire);
      // A signal keeps a terminal from taking a request, and libmodbus does not try again; for an
      // answer it waits on.
      do {
        problem = transfer(unit, access, words);
      } while (problem == EINTR);
      tell(problem, access, words);
    }
    if (problem == 0) {
      QLTLog(format("{Modbus_Read %@}: %@", where_, access.isRead() ? textOf(words) : "done"));
      return true;
    }
    recover(problem, unit);
    if (!isGarbled(problem)) break;
    QLTLog(format("{Modbus_Read %@}: a garbled answer: %@", where_, garbledText(problem)));
  }
  if (isException(problem)) {
    const int number = problem - MODBUS_ENOBASE;
    const std::string meaning = modbusExceptionText(number);
    const QLTError logged = QLTUtil::handleError(
        kQLTErrorModbusException, format("%@: refused with exception %d%s%@", what, number,
                                         meaning.empty() ? "" : ", ", meaning));
    QLTDictionary userInfo = logged.userInfo();
    userInfo.set("exception", number);
    return failWith(error, {logged.domain(), logged.code(), std::move(userInfo)});
  }
  if (isSilence(problem)) {
    return fail(error, kQLTErrorModbusSilence,
                format("%@: no whole answer within %@", what, secondsText(unit.timeOutInSeconds)));
  }
  if (isGarbled(problem)) {
    return fail(error, kQLTErrorModbusGarbled,
                format("%@: the answer is garbled: %@", what, garbledText(problem)));
  }
  return fail(error, kQLTErrorLineRead, format("%@: the line is lost", what),
              QLTError::fromErrno(problem, where_));
}

/// One exchange on the line: 0, or the errno that libmodbus has for what went wrong.
int ModbusLine::transfer(const QLTModbus::Options& unit, const ModbusAccess& access,
                         std::vector<std::uint16_t>& words) const {
  modbus_t* const context = context_.get();
  const double timeOut = std::clamp(unit.timeOutInSeconds, kShortest, kLongest);
  const double whole = std::floor(timeOut);
  modbus_set_response_timeout(context, static_cast<std::uint32_t>(whole),
                              static_cast<std::uint32_t>((timeOut - whole) * 1e6));
  modbus_set_byte_timeout(context, 0, 0);  // it counts for the answer as a whole
  if (modbus_set_slave(context, unit.unit) != 0) return errno;

  const auto count = static_cast<std::size_t>(access.count);
  std::vector<std::uint8_t> bits(count);
  std::copy(words.begin(), words.end(), bits.begin());
  std::vector<std::uint16_t> values = words;
  values.resize(count);
  const int address = access.address;
  int done = -1;
  errno = 0;
  switch (access.function) {
    case ModbusFunction::ReadCoils:
      done = modbus_read_bits(context, address, access.count, bits.data());
      break;
    case ModbusFunction::ReadDiscreteInputs:
      done = modbus_read_input_bits(context, address, access.count, bits.data());
      break;
    case ModbusFunction::ReadHoldingRegisters:
      done = modbus_read_registers(context, address, access.count, values.data());
      break;
    case ModbusFunction::ReadInputRegisters:
      done = modbus_read_input_registers(context, address, access.count, values.data());
      break;
    default:
      return write(unit, access, words);
  }
  if (done < 0) return errno != 0 ? errno : EMBBADDATA;
  if (done != access.count) return EMBBADDATA;
  if (access.isOfBits()) {
    words.assign(bits.begin(), bits.end());
  } else {
    words = std::move(values);
  }
  return 0;
}

/// The same for a write. Made of libmodbus's parts, since its own writes do not look at the address
/// and the value that a unit confirms: an answer to another one would do.
int ModbusLine::write(const QLTModbus::Options& unit, const ModbusAccess& access,
                      const std::vector<std::uint16_t>& words) const {
  constexpr int checksum = 2;
  modbus_t* const context = context_.get();
  const std::vector<std::uint8_t> request = writeRequest(unit.unit, access, words);
  errno = 0;
  if (modbus_send_raw_request(context, request.data(), static_cast<int>(request.size())) < 0) {
    return errno != 0 ? errno : EMBBADDATA;
  }
  std::array<std::uint8_t, MODBUS_MAX_ADU_LENGTH> frame{};
  const int length = modbus_receive_confirmation(context, frame.data());
  if (length < 0) return errno != 0 ? errno : EMBBADDATA;
  const int header = modbus_get_header_length(context);
  if (carrier_->isSerial()) {
    if (length == 0 || frame[0] != unit.unit) return EMBBADSLAVE;
  } else if (frame[0] != 0 || frame[1] != 0 || frame[2] != 0 || frame[3] != 0) {
    return EMBBADDATA;  // another transaction: that of a raw request is 0; or another protocol
  }
  const int size = length - header - (carrier_->isSerial() ? checksum : 0);
  if (size < 0) return EMBBADDATA;
  const auto* const answer = reinterpret_cast<const char*>(frame.data()) + header;
  return problemOfEcho(request, {answer, static_cast<std::size_t>(size)});
}

/// What a line has to be for the next request.
void ModbusLine::recover(int problem, const QLTModbus::Options& unit) {
  if (isException(problem) || carrier_->standIn() != nullptr) return;
  if (!isSilence(problem) && !isGarbled(problem)) {
    carrier_->close();
    state_ = State::Lost;
  } else if (!carrier_->isSerial()) {
    // A late answer goes to a connection that is no more.
    carrier_->close();
    state_ = State::Closed;
  } else {
    quietBy_ = steady_clock::now() + durationOf(unit.timeOutInSeconds);
    hasHeard_ = isGarbled(problem);
  }
}

// What the line's traffic is told, and takes from a recording: requests and answers in words.

void ModbusLine::tell(int problem, const ModbusAccess& access,
                      const std::vector<std::uint16_t>& words) const {
  QLTTrafficLine* const traffic = carrier_->traffic();
  if (traffic == nullptr) return;
  if (problem == 0) {
    traffic->received(access.isRead() ? textOf(words) : "done");
  } else if (isException(problem)) {
    traffic->received(kException + std::to_string(problem - MODBUS_ENOBASE));
  } else if (isSilence(problem)) {
    traffic->silent();
  } else {
    traffic->failed(isGarbled(problem) ? EBADMSG : problem);
  }
}

int ModbusLine::replay(QLTTrafficStandIn& speaker, const std::string& request,
                       const QLTModbus::Options& unit, const ModbusAccess& access,
                       std::vector<std::uint16_t>& words) const {
  constexpr std::size_t longest = 65536;
  if (const int problem = speaker.write(request); problem != 0) return problem;
  const QLTTrafficAnswer answer = speaker.read(longest, durationOf(unit.timeOutInSeconds));
  if (answer.kind == QLTTrafficAnswer::Kind::Silent) return ETIMEDOUT;
  if (answer.kind == QLTTrafficAnswer::Kind::Failed) {
    if (answer.code == EBADMSG) return EMBBADDATA;
    return answer.code == 0 ? ECONNRESET : answer.code;
  }
  if (answer.bytes.starts_with(kException)) {
    const auto number =
        internal::numberIn<int>(answer.bytes.substr(std::string(kException).size()));
    return number ? MODBUS_ENOBASE + *number : EPROTO;
  }
  if (!access.isRead()) return 0;
  std::vector<std::uint16_t> values;
  for (const std::string& piece : internal::split(answer.bytes, " ")) {
    const auto value = internal::numberIn<std::uint16_t>(piece);
    if (!value) return EPROTO;
    values.push_back(*value);
  }
  if (values.size() != static_cast<std::size_t>(access.count)) return EPROTO;
  words = std::move(values);
  return 0;
}

}  // namespace quillon::bench
