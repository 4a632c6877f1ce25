#pragma once

#include <cstdint>
#include <string>

#include <QLTExport.h>

// The catalogue of error domains and codes. Callers tell failures apart by these, never by their
// texts. A domain of the framework's own (`QLTFrameworkErrorDomain`) or of the file system
// (`kQLTPosixErrorDomain`) is declared with `QLTError`.

/// The domain of errors of the serial port's system calls; the code is errno.
QLT_EXPORT extern const std::string QLTSerialErrorDomain;  // "QLTSerial Error Domain"
/// The domain of errors that a SCPI instrument reports. Name and value differ in spelling; callers
/// use both.
QLT_EXPORT extern const std::string kQLTScipErrorDomain;  // "kQLTScpiErrorDomain"

// Codes of the framework's own domain.

/// A write to a simulated serial port that is not open.
inline constexpr std::int32_t kQLTErrorSimSerialWrite = -10000;
/// A serial port or a diagnostics console could not be read, or not in time. In the domain
/// `QLTSerialErrorDomain`: more was asked for than one read gives.
inline constexpr std::int32_t kQLTErrorSerialRead = -10001;
/// A console that shows no prompt when it is opened; the one positive code.
inline constexpr std::int32_t kQLTErrorNoDiagsPrompt = 15000;
/// A write to a socket failed, or the peer took nothing in time.
inline constexpr std::int32_t kQLTErrorSocketWrite = -20000;
/// A socket could not be read, or not in time.
inline constexpr std::int32_t kQLTErrorSocketRead = -20001;
/// A video-test unit's reply is not what it should be.
inline constexpr std::int32_t kQLTErrorDavDPReply = -21000;
/// The factory could not make an instrument.
inline constexpr std::int32_t kQLTErrorInstrumentNotCreated = -21001;
/// A line of the library of bench instruments does not open.
inline constexpr std::int32_t kQLTErrorLineOpen = -30000;
/// Such a line cannot be written.
inline constexpr std::int32_t kQLTErrorLineWrite = -30001;
/// Such a line cannot be read.
inline constexpr std::int32_t kQLTErrorLineRead = -30002;
/// A device on such a line did not answer, or took nothing, in time.
inline constexpr std::int32_t kQLTErrorLineTimedOut = -30003;
/// What cannot be sent to an instrument or a console as one command; nothing was sent.
inline constexpr std::int32_t kQLTErrorLineCommand = -30004;
/// A console on such a line showed no prompt in time.
inline constexpr std::int32_t kQLTErrorConsoleNoPrompt = -31000;
/// A console refused the log-in, or asks for one that was not expected.
inline constexpr std::int32_t kQLTErrorConsoleLogIn = -31001;
/// A console's echo is not what was sent.
inline constexpr std::int32_t kQLTErrorConsoleEcho = -31002;
/// A request that no Modbus unit could take; nothing was sent.
inline constexpr std::int32_t kQLTErrorModbusRequest = -35000;
/// A Modbus unit refused; the number of the exception is under "exception" in the user information.
inline constexpr std::int32_t kQLTErrorModbusException = -35001;
/// No answer of a Modbus unit, or no whole one, in time.
inline constexpr std::int32_t kQLTErrorModbusSilence = -35002;
/// An answer of a Modbus unit that is garbled, or to something else.
inline constexpr std::int32_t kQLTErrorModbusGarbled = -35003;
/// Registers of a Modbus unit that hold no number.
inline constexpr std::int32_t kQLTErrorModbusNoNumber = -35004;
/// A SCPI instrument's answer is not of the form that was asked for.
inline constexpr std::int32_t kQLTErrorScpiAnswer = -33000;
/// A SCPI instrument reports an overload.
inline constexpr std::int32_t kQLTErrorScpiOverload = -33001;
/// A SCPI instrument reports that it has no reading.
inline constexpr std::int32_t kQLTErrorScpiNoReading = -33002;
/// A bench instrument says that it is not in the state that it was told to take.
inline constexpr std::int32_t kQLTErrorScpiNotDone = -33003;
/// A bench instrument's dialect is not known, wrong, or has no such command.
inline constexpr std::int32_t kQLTErrorScpiDialect = -33004;
/// Another SCPI instrument answers than the one that was expected.
inline constexpr std::int32_t kQLTErrorScpiIdentity = -33005;
/// A digital line that is not there, or of the other direction.
inline constexpr std::int32_t kQLTErrorDigitalLine = -36000;
/// A digital line of the machine that cannot be taken.
inline constexpr std::int32_t kQLTErrorDigitalOpen = -36001;
/// A digital line that cannot be read, or does not do what it is told.
inline constexpr std::int32_t kQLTErrorDigitalTransfer = -36002;
/// A CAN frame that there cannot be; nothing was sent.
inline constexpr std::int32_t kQLTErrorCanFrame = -37000;
/// A CAN controller has left the bus (bus off).
inline constexpr std::int32_t kQLTErrorCanBusOff = -37001;
/// No other node acknowledges what is sent on a CAN bus.
inline constexpr std::int32_t kQLTErrorCanUnacknowledged = -37002;
/// A CAN controller is error passive.
inline constexpr std::int32_t kQLTErrorCanPassive = -37003;
/// What came over a CAN line is no frame.
inline constexpr std::int32_t kQLTErrorCanGarbled = -37004;
/// Other trouble that a CAN controller or its transceiver reports.
inline constexpr std::int32_t kQLTErrorCanBus = -37005;
/// The plug-in's "TestConfig" is missing or unreadable.
inline constexpr std::int32_t kQLTErrorConfigUnreadable = -40000;
/// A flow, a test or "defaultFlow" is configured wrongly.
inline constexpr std::int32_t kQLTErrorFlowWrong = -40001;
/// A line of the tester-config file is malformed.
inline constexpr std::int32_t kQLTErrorTesterConfigMalformed = -40002;
/// A value of a wrong type outside the flows.
inline constexpr std::int32_t kQLTErrorConfigWrong = -40003;
/// A property list that is not well formed.
inline constexpr std::int32_t kQLTErrorPropertyListMalformed = -40004;
/// A bundle that cannot be opened.
inline constexpr std::int32_t kQLTErrorBundleUnusable = -40005;
/// A class of the plug-in is missing, of the wrong kind, or threw while the station loaded.
inline constexpr std::int32_t kQLTErrorPluginClassUnusable = -40006;
/// An instrument's entry lacks an attribute that its class needs.
inline constexpr std::int32_t kQLTErrorInstrumentAttributeMissing = -60000;
/// Neither framework nor plug-in knows an instrument's class.
inline constexpr std::int32_t kQLTErrorInstrumentTypeUnknown = -70000;
/// A site names an instrument that is not there; the site is left out.
inline constexpr std::int32_t kQLTErrorResourceMissing = -80001;
/// A test asked for a resource that its site has not, or has of another class.
inline constexpr std::int32_t kQLTErrorResourceUnusable = -80002;
/// A test waited too long for a resource that another site holds; see `QLTExclusive`.
inline constexpr std::int32_t kQLTErrorResourceHeld = -80003;
/// There is nobody whom a test could ask; see `QLTOperator`.
inline constexpr std::int32_t kQLTErrorOperatorAbsent = -82001;
/// Nobody answered a test's question in time.
inline constexpr std::int32_t kQLTErrorOperatorTimedOut = -82002;
/// The run was stopped before a test's question was answered.
inline constexpr std::int32_t kQLTErrorOperatorCancelled = -82003;
/// The answer to a test's question does not fit it.
inline constexpr std::int32_t kQLTErrorOperatorAnswerUnfit = -82004;
/// A test's question cannot be answered.
inline constexpr std::int32_t kQLTErrorQuestionWrong = -82005;
/// An I2C adapter could not be opened.
inline constexpr std::int32_t kQLTErrorAardvarkOpen = -90001;
/// An I2C adapter wrote fewer bytes than it was given.
inline constexpr std::int32_t kQLTErrorAardvarkWrite = -90003;
