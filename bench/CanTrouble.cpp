#include "CanTrouble.h"

#include <array>
#include <cstring>

#include <linux/can.h>
#include <linux/can/error.h>

#include <QLTErrorCodes.h>

#include "common/CanText.h"
#include "common/Format.h"

namespace quillon::bench {
namespace {

// Where an error frame has what.
constexpr std::size_t kController = 1;
constexpr std::size_t kProtocol = 2;
constexpr std::size_t kPlace = 3;
constexpr std::size_t kTransceiver = 4;

struct Meaning {
  std::uint8_t bits;
  const char* text;
};

constexpr std::array kWires{
    Meaning{CAN_ERR_TRX_CANH_NO_WIRE, "CAN high has no wire"},
    Meaning{CAN_ERR_TRX_CANH_SHORT_TO_BAT, "CAN high is shorted to the battery"},
    Meaning{CAN_ERR_TRX_CANH_SHORT_TO_VCC, "CAN high is shorted to the supply"},
    Meaning{CAN_ERR_TRX_CANH_SHORT_TO_GND, "CAN high is shorted to ground"},
    Meaning{CAN_ERR_TRX_CANL_NO_WIRE, "CAN low has no wire"},
    Meaning{CAN_ERR_TRX_CANL_SHORT_TO_BAT, "CAN low is shorted to the battery"},
    Meaning{CAN_ERR_TRX_CANL_SHORT_TO_VCC, "CAN low is shorted to the supply"},
    Meaning{CAN_ERR_TRX_CANL_SHORT_TO_GND, "CAN low is shorted to ground"},
    Meaning{CAN_ERR_TRX_CANL_SHORT_TO_CANH, "CAN low and CAN high are shorted"},
};

constexpr std::array kViolations{
    Meaning{CAN_ERR_PROT_BIT, "a single bit is wrong"},
    Meaning{CAN_ERR_PROT_FORM, "the form of a frame is wrong"},
    Meaning{CAN_ERR_PROT_STUFF, "too many equal bits"},
    Meaning{CAN_ERR_PROT_BIT0, "a dominant bit cannot be sent"},
    Meaning{CAN_ERR_PROT_BIT1, "a recessive bit cannot be sent"},
    Meaning{CAN_ERR_PROT_OVERLOAD, "the bus is overloaded"},
};

std::string wiresText(std::uint8_t wires) {
  for (const Meaning& meaning : kWires) {
    if (wires == meaning.bits) return std::string(": ") + meaning.text;
  }
  return "";
}

std::string violationText(std::uint8_t violation) {
  for (const Meaning& meaning : kViolations) {
    if ((violation & meaning.bits) != 0) return std::string(": ") + meaning.text;
  }
  return "";
}

/// What is a failure of whoever uses the bus.
CanTrouble failureIn(const can_frame& frame) {
  const canid_t id = frame.can_id;
  const std::uint8_t controller = (id & CAN_ERR_CRTL) != 0 ? frame.data[kController] : 0;
  const bool isUnacknowledged =
      (id & CAN_ERR_ACK) != 0 ||
      ((id & CAN_ERR_PROT) != 0 && frame.data[kPlace] == CAN_ERR_PROT_LOC_ACK);
  if ((id & CAN_ERR_BUSOFF) != 0) {
    return {kQLTErrorCanBusOff, true, "the controller has left the bus (bus off)"};
  }
  if (isUnacknowledged) {
    return {kQLTErrorCanUnacknowledged, false, "no other node acknowledges what is sent"};
  }
  if ((controller & (CAN_ERR_CRTL_RX_PASSIVE | CAN_ERR_CRTL_TX_PASSIVE)) != 0) {
    return {kQLTErrorCanPassive, false,
            "the controller is error passive, there are too many errors on the bus"};
  }
  if ((id & CAN_ERR_TRX) != 0) {
    return {kQLTErrorCanBus, false,
            "the transceiver reports a fault" + wiresText(frame.data[kTransceiver])};
  }
  if ((controller & CAN_ERR_CRTL_RX_OVERFLOW) != 0) {
    return {kQLTErrorCanBus, false, "the controller has lost frames that came"};
  }
  if ((controller & CAN_ERR_CRTL_TX_OVERFLOW) != 0) {
    return {kQLTErrorCanBus, false, "the controller has lost frames that were sent"};
  }
  if ((id & CAN_ERR_TX_TIMEOUT) != 0) {
    return {kQLTErrorCanBus, false, "the controller could not send a frame in time"};
  }
  return {};
}

/// What is no failure yet.
std::string noteIn(const can_frame& frame) {
  const canid_t id = frame.can_id;
  if ((id & CAN_ERR_RESTARTED) != 0) return "the controller was restarted";
  if ((id & CAN_ERR_PROT) != 0) {
    return "a violation of the protocol" + violationText(frame.data[kProtocol]);
  }
  if ((id & CAN_ERR_CRTL) != 0) {
    constexpr std::uint8_t warning = CAN_ERR_CRTL_RX_WARNING | CAN_ERR_CRTL_TX_WARNING;
    return (frame.data[kController] & warning) != 0
               ? "there are many errors on the bus"
               : "the controller tells of a change of its state";
  }
  if ((id & CAN_ERR_LOSTARB) != 0) return "a frame had to wait for another one";
  return "an error on the bus";
}

}  // namespace

std::optional<CanTrouble> canTroubleIn(std::string_view message) {
  can_frame frame{};
  if (message.size() != sizeof frame || !internal::canText(message)) return std::nullopt;
  std::memcpy(&frame, message.data(), sizeof frame);
  if ((frame.can_id & CAN_ERR_FLAG) == 0) return std::nullopt;
  CanTrouble trouble = failureIn(frame);
  if (trouble.code == 0) trouble.text = noteIn(frame);
  trouble.text += internal::format(" (error frame %@)", internal::canText(message));
  return trouble;
}

}  // namespace quillon::bench
