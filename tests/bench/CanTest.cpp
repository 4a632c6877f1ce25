// CAN frames, as they are written and as they go over messages; the interfaces of the system.

#include <QLTBench.h>
#include <QLTBenchCan.h>
#include <QLTErrorCodes.h>
#include <QLTSimSocket.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/can/error.h>
#include <linux/can/raw.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sched.h>
#include <sys/ioctl.h>

#include "bench/CanPeer.h"
#include "bench/TrafficWatchers.h"

namespace {

using test::canFdMessage;
using test::canMessage;
using test::CanPeer;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;

std::string textOf(const QLTError& error) { return error.description().value_or(""); }

// Frames.

TEST(QLTCanFrame, isWrittenAsItIsRead) {
  const std::vector<std::pair<std::string, QLTCanFrame>> frames{
      {"000#", {}},
      {"123#0102", {{0x123}, {1, 2}}},
      {"7FF#0011223344556677", {{0x7FF}, {0, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77}}},
      {"00000123#FF", {{0x123, true}, {0xFF}}},
      {"1FFFFFFF#", {{0x1FFFFFFF, true}}},
      {"123#R", {{0x123}, {}, true}},
      {"18DAF110#R8", {{0x18DAF110, true}, {}, true, 8}},
      {"123##0", {{0x123}, {}, false, 0, true}},
      {"123##1AB", {{0x123}, {0xAB}, false, 0, true, true}},
      {"123##0" + std::string(24, '0'), {{0x123}, std::vector<std::uint8_t>(12), false, 0, true}},
  };
  for (const auto& [text, frame] : frames) {
    EXPECT_EQ(frame.text(), text);
    EXPECT_EQ(QLTCanFrame::of(text), frame) << text;
    EXPECT_EQ(frame.complaint(), "");
  }
  EXPECT_EQ(QLTCanFrame::of("7ff#aB"), (QLTCanFrame{{0x7FF}, {0xAB}}));
}

TEST(QLTCanFrame, anotherTextIsNone) {
  for (const std::string text : {"",
                                 "#",
                                 "123",
                                 "12#00",
                                 "1234#00",
                                 "800#00",
                                 "20000000#",
                                 "2FFFFFFF#",
                                 "20000040#00",
                                 "G23#00",
                                 "123#0",
                                 "123#0G",
                                 "123#-1",
                                 "123#001122334455667788",
                                 "123#R9",
                                 "123#Rx",
                                 "123#R00",
                                 "123##",
                                 "123##4",
                                 "123##0001122334455667788",
                                 "123##0123",
                                 "-23#00",
                                 "123# 00"}) {
    EXPECT_EQ(QLTCanFrame::of(text), std::nullopt) << text;
  }
}

TEST(QLTCanFrame, tellsWhyThereCanBeNone) {
  const std::vector<std::pair<QLTCanFrame, std::string>> frames{
      {{{0x800}}, "the identifier 0x800 is larger than 0x7ff"},
      {{{0x20000000, true}}, "the identifier 0x20000000 is larger than 0x1fffffff"},
      {{{0x123}, std::vector<std::uint8_t>(9)}, "a frame has 0 to 8 bytes, not 9"},
      {{{0x123}, {1}, true}, "a remote frame has no data"},
      {{{0x123}, {}, true, 9}, "a remote frame asks for 0 to 8 bytes, not 9"},
      {{{0x123}, {}, true, 0, true}, "there are no remote frames of CAN FD"},
      {{{0x123}, {}, false, 0, false, true}, "only FD frames have a higher bit rate"},
      {{{0x123}, std::vector<std::uint8_t>(9), false, 0, true},
       "an FD frame has 0 to 8, 12, 16, 20, 24, 32, 48 or 64 bytes, not 9"},
  };
  for (const auto& [frame, complaint] : frames) {
    EXPECT_EQ(frame.complaint(), complaint);
    EXPECT_EQ(frame.text(), "");
  }
}

TEST(QLTCanId, isWrittenAsItIsRead) {
  EXPECT_EQ(QLTCanId::of("7FF"), (QLTCanId{0x7FF, false}));
  EXPECT_EQ(QLTCanId::of("000007FF"), (QLTCanId{0x7FF, true}));
  EXPECT_EQ(QLTCanId::of("7FF#"), std::nullopt);
  EXPECT_EQ((QLTCanId{0x18DAF110, true}).text(), "18DAF110");
  EXPECT_EQ((QLTCanId{1, false}).text(), "001");
  EXPECT_EQ((QLTCanId{0x800, false}).text(), "");
}

TEST(QLTCanFilter, letsThroughWhatIsAlikeInTheMasksBits) {
  const auto filters = QLTCanFilter::listIn(" 123  200/7F0 18DAF110/1FFFFF00 ");
  ASSERT_TRUE(filters);
  ASSERT_EQ(filters->size(), 3U);
  const auto accepts = [&](std::size_t index, const char* id) {
    return filters->at(index).accepts(*QLTCanId::of(id));
  };
  EXPECT_TRUE(accepts(0, "123"));
  EXPECT_FALSE(accepts(0, "122"));
  EXPECT_FALSE(accepts(0, "00000123"));
  EXPECT_TRUE(accepts(1, "20F"));
  EXPECT_FALSE(accepts(1, "210"));
  EXPECT_TRUE(accepts(2, "18DAF1FF"));
  EXPECT_FALSE(accepts(2, "18DAF210"));
  EXPECT_THAT(QLTCanFilter::listIn(""), Optional(testing::IsEmpty()));
  for (const char* const text : {"12", "123/", "123/7F", "123/000007FF", "123,124", "/7FF"}) {
    QLTError error;
    EXPECT_EQ(QLTCanFilter::listIn(text, &error), std::nullopt) << text;
    EXPECT_EQ(error.code(), kQLTErrorConfigWrong);
    EXPECT_EQ(textOf(error), "\"" + std::string(text) +
                                 "\" is not ID or ID/MASK, of 3 or 8 hexadecimal digits each");
  }
}

// The bus.

std::shared_ptr<QLTBenchCan> made(QLTDictionary entry, QLTError* error = nullptr) {
  entry.set("class", std::string("QLTBenchCan"));
  if (!entry.contains("sim")) entry.set("sim", std::string("0"));
  return std::dynamic_pointer_cast<QLTBenchCan>(QLTBench::createInstrument(entry, error));
}

TEST(QLTBenchCan, sendsFramesAsTheSystemHasThem) {
  const CanPeer peer;
  QLTBenchCan can(peer.interface(), {.isFd = true});
  ASSERT_TRUE(can.open());
  const test::Endpoint device = peer.accept();
  const std::vector<std::pair<const char*, std::string>> frames{
      {"123#0102", canMessage(0x123, {1, 2})},
      {"18DAF110#03", canMessage(0x18DAF110 | CAN_EFF_FLAG, {3})},
      {"123#R2", canMessage(0x123 | CAN_RTR_FLAG, {0, 0})},
      {"124##0"
       "0506",
       canFdMessage(0x124, {5, 6})},
      {"124##1"
       "07",
       canFdMessage(0x124, {7}, CANFD_BRS)},
  };
  for (const auto& [text, message] : frames) {
    EXPECT_TRUE(can.send(*QLTCanFrame::of(text))) << text;
    EXPECT_EQ(device.receive(message.size()), message) << text;
    ASSERT_TRUE(device.send(message));
    EXPECT_EQ(can.receive(), QLTCanFrame::of(text));
  }
}

TEST(QLTBenchCan, sendsNothingThatThereCannotBe) {
  const CanPeer peer;
  QLTBenchCan can(peer.interface());
  ASSERT_TRUE(can.open());
  const test::Endpoint device = peer.accept();
  QLTError error;
  EXPECT_FALSE(can.send({{0x800}}, &error));
  EXPECT_EQ(error.code(), kQLTErrorCanFrame);
  EXPECT_EQ(textOf(error),
            peer.interface() + ": nothing is sent: the identifier 0x800 is larger than 0x7ff");
  EXPECT_FALSE(can.send(*QLTCanFrame::of("123##0"), &error));
  EXPECT_EQ(error.code(), kQLTErrorCanFrame);
  EXPECT_EQ(textOf(error),
            peer.interface() + ": nothing is sent: FD frames are not switched on (fd=yes)");
  EXPECT_EQ(device.receivePending(), "");
}

TEST(QLTBenchCan, aFilterKeepsFramesAway) {
  const CanPeer peer;
  QLTError error;
  const auto can = made(
      {{"interface", peer.interface()}, {"filter", "124 200/7F0"}, {"timeOut", "0.02"}}, &error);
  ASSERT_TRUE(can);
  EXPECT_FALSE(error) << textOf(error);
  const test::Endpoint device = peer.accept();
  for (const canid_t id : {0x123U, 0x205U, 0x124U, 0x210U}) device.send(canMessage(id, {}));
  EXPECT_EQ(can->receive(), QLTCanFrame::of("205#"));
  EXPECT_EQ(can->receive(), QLTCanFrame::of("124#"));
  EXPECT_EQ(can->receive(&error), std::nullopt);
  EXPECT_EQ(textOf(error), peer.interface() + ": no frame came within 0.02 s");
}

TEST(QLTBenchCan, othersWithoutEndDoNotHoldItUp) {
  const CanPeer peer;
  QLTBenchCan can(peer.interface());
  ASSERT_TRUE(can.open());
  const test::Endpoint device = peer.accept();
  const std::jthread flood([&](const std::stop_token& stop) {
    const std::string other = canMessage(0x125, {4});
    while (!stop.stop_requested()) {
      send(device.descriptor(), other.data(), other.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
  });
  can.setTimeOutInSeconds(0.03);
  QLTError error;
  EXPECT_EQ(can.awaitFrame({0x124}, &error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorLineTimedOut);
  EXPECT_THAT(textOf(error), HasSubstr(": no frame 124 came within 0.03 s; "));
  can.discardInput();
  EXPECT_FALSE(can.isLost());
}

TEST(QLTBenchCan, isLostWithItsPeerAndOpenedAgain) {
  CanPeer peer;
  QLTBenchCan can(peer.interface());
  EXPECT_FALSE(can.isLost());
  QLTError error;
  EXPECT_FALSE(can.send({{1}}, &error));
  EXPECT_EQ(textOf(error), peer.interface() + ": the line is not open");
  EXPECT_EQ(error.code(), kQLTErrorLineWrite);
  EXPECT_EQ(can.receive(&error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorLineRead);

  ASSERT_TRUE(can.open());
  EXPECT_EQ(can.where(), peer.interface());
  {
    const test::Endpoint device = peer.accept();
    EXPECT_FALSE(can.isLost());
  }
  EXPECT_TRUE(can.isLost());
  ASSERT_TRUE(can.reopen());
  EXPECT_FALSE(can.isLost());
  const test::Endpoint device = peer.accept();
  ASSERT_TRUE(device.send(canMessage(0x124, {})));
  EXPECT_TRUE(can.receive());
  can.close();
  EXPECT_FALSE(can.isLost());
}

TEST(QLTBenchCan, leavesNoDescriptorBehind) {
  CanPeer peer;
  const std::size_t open = test::openDescriptors();
  {
    QLTBenchCan can(peer.interface());
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(can.open());
    QLTBenchCan none("no-such-interface0");
    EXPECT_FALSE(none.open());
    QLTBenchCan loopback("lo");
    EXPECT_FALSE(loopback.open());
  }
  EXPECT_EQ(test::openDescriptors(), open);
}

TEST(QLTBenchCan, aStandInThatIsNotThereGivesALostInstrument) {
  CanPeer peer;
  peer.refuse();
  QLTError error;
  const auto can = made({{"interface", peer.interface()}}, &error);
  ASSERT_TRUE(can);
  EXPECT_TRUE(can->isLost());
  EXPECT_EQ(error.code(), kQLTErrorLineOpen);
  EXPECT_EQ(textOf(error), peer.interface() + ": no connection: Connection refused");
  EXPECT_EQ(error.underlyingError().code(), ECONNREFUSED);
  EXPECT_EQ(can->receive(&error), std::nullopt);
  EXPECT_EQ(textOf(error), peer.interface() + ": the line is lost");

  const std::string deep = "unix:/" + std::string(200, 'd');
  QLTBenchCan tooLong(deep);
  EXPECT_FALSE(tooLong.open(&error));
  EXPECT_EQ(textOf(error), deep + ": no connection: File name too long");
}

TEST(QLTBenchCan, anAttributeOfAnotherFormGivesNone) {
  QLTError error;
  EXPECT_EQ(made({{"interface", "can0"}, {"filter", "12"}}, &error), nullptr);
  EXPECT_EQ(error.code(), kQLTErrorConfigWrong);
  EXPECT_EQ(made({{"interface", "can0"}, {"bitrate", "2000000"}}, &error), nullptr);
  EXPECT_EQ(error.code(), kQLTErrorConfigWrong);
  EXPECT_EQ(made({}, &error), nullptr);
  EXPECT_EQ(error.code(), kQLTErrorInstrumentAttributeMissing);
}

TEST(QLTBenchCan, withoutHardwareTheResponseMapAnswers) {
  QLTSimSocket::setResponseMap({{"123#0102", "125# 124#0A"}, {"123#03", "124"}});
  const auto can = made({{"interface", "can0"}, {"sim", "1"}});
  ASSERT_TRUE(can);
  EXPECT_FALSE(can->isLost());
  EXPECT_TRUE(can->send({{0x123}, {1, 2}}));
  EXPECT_EQ(can->receive(), QLTCanFrame::of("125#"));
  EXPECT_EQ(can->receive(), QLTCanFrame::of("124#0A"));
  EXPECT_EQ(can->request({{0x123}, {1, 2}}, {0x124}), QLTCanFrame::of("124#0A"));
  QLTError error;
  EXPECT_EQ(can->request({{0x123}, {9}}, {0x124}, &error), std::nullopt);
  EXPECT_EQ(textOf(error), "can0: no frame 124 came within 1 s");
  EXPECT_EQ(can->request({{0x123}, {3}}, {0x124}, &error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorCanGarbled);
  EXPECT_TRUE(can->send({{0x123}, {1, 2}}));
  EXPECT_TRUE(can->reopen());
  EXPECT_EQ(can->receive(), std::nullopt);
  QLTSimSocket::removeResponseMap();
}

// What is told of the line.

TEST(QLTBenchCan, tellsFramesInText) {
  test::Listener listener;
  const CanPeer peer;
  QLTBenchCan can(peer.interface());
  ASSERT_TRUE(can.open());
  {
    const test::Endpoint device = peer.accept();
    device.send(canMessage(0x700, {5}));
    can.discardInput();
    EXPECT_TRUE(can.send({{0x123}, {1}}));
    device.send(canMessage(CAN_ERR_FLAG | CAN_ERR_ACK, std::vector<std::uint8_t>(8)));
    EXPECT_EQ(can.receive(), std::nullopt);
    device.send("abc");
    EXPECT_EQ(can.receive(), std::nullopt);
    can.setTimeOutInSeconds(0.01);
    EXPECT_EQ(can.receive(), std::nullopt);
    EXPECT_EQ(device.receive(CAN_MTU), canMessage(0x123, {1}));
  }
  EXPECT_EQ(can.receive(), std::nullopt);
  can.close();
  EXPECT_THAT(listener.events, ElementsAre("opened", "received 700#05", "sent 123#01",
                                           "received 20000020#0000000000000000", "received abc",
                                           "silent", "failed 0", "closed"));
}

TEST(QLTBenchCan, aRecordingSpeaksInTheNodesPlace) {
  using Kind = QLTTrafficAnswer::Kind;
  test::Recording recording;
  recording.expected = {"123#01"};
  recording.answers = {
      {Kind::Silent}, {Kind::Bytes, "700#05"}, {Kind::Bytes, "124##1AA"},
      {Kind::Silent}, {Kind::Bytes, "abc"},    {Kind::Bytes, "20000040#0000000000000000"}};
  QLTBenchCan can("can7", {.isFd = true});
  ASSERT_TRUE(can.open());
  EXPECT_EQ(can.request({{0x123}, {1}}, {0x124}), QLTCanFrame::of("124##1AA"));
  QLTError error;
  EXPECT_EQ(can.receive(&error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorLineTimedOut);
  EXPECT_EQ(can.receive(&error), std::nullopt);
  EXPECT_EQ(textOf(error), "can7: what came is no CAN frame: 3 bytes");
  EXPECT_FALSE(can.isLost());
  EXPECT_EQ(can.receive(&error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorCanBusOff);
  EXPECT_TRUE(can.isLost());
  ASSERT_TRUE(can.reopen());
  EXPECT_FALSE(can.isLost());
  EXPECT_FALSE(can.send({{0x123}, {2}}, &error));
  EXPECT_EQ(error.underlyingError().code(), EPROTO);
  EXPECT_TRUE(can.isLost());
  recording.openCode = ENETDOWN;
  EXPECT_FALSE(can.reopen(&error));
  EXPECT_EQ(textOf(error), "can7: does not open: Network is down");
}

// The interfaces of the system.

bool kernelHasCan() {
  const test::Endpoint socket(::socket(PF_CAN, SOCK_RAW | SOCK_CLOEXEC, CAN_RAW));
  return socket.descriptor() >= 0;
}

TEST(QLTBenchCan, tellsWhyAnInterfaceDoesNotOpen) {
  QLTBenchCan loopback("lo");
  QLTError error;
  EXPECT_FALSE(loopback.open(&error));
  EXPECT_EQ(error.code(), kQLTErrorLineOpen);
  EXPECT_EQ(textOf(error), "lo: is no CAN interface");
  EXPECT_TRUE(loopback.isLost());

  for (const std::string name : {"no-can7", "a-name-that-is-longer-than-any", ""}) {
    QLTBenchCan none(name);
    EXPECT_FALSE(none.open(&error));
    EXPECT_EQ(error.code(), kQLTErrorLineOpen);
    if (kernelHasCan()) {
      EXPECT_EQ(textOf(error), name + ": there is no such interface");
      EXPECT_EQ(error.underlyingError().code(), ENODEV);
    } else {
      EXPECT_EQ(textOf(error), name +
                                   ": this system's kernel has no CAN (the module can_raw, "
                                   "where it is not built in)");
    }
    EXPECT_TRUE(none.isLost());
  }
}

/// Runs `body` on a thread whose network is its own, and nothing in it but what is made; why that
/// cannot be, "" when it was run.
std::string inOwnNetwork(const std::function<std::string()>& body) {
  std::string reason;
  std::thread([&] {
    reason = unshare(CLONE_NEWNET) == 0 ? body() : "this user can have no network of its own";
  }).join();
  return reason;
}

bool runs(const std::string& command) {
  return std::system((command + " 2> /dev/null").c_str()) == 0;
}

TEST(QLTBenchCan, namesTheCommandThatStartsAnInterface) {
  const std::string reason = inOwnNetwork([]() -> std::string {
    const test::Endpoint tunnel(open("/dev/net/tun", O_RDWR | O_CLOEXEC));
    ifreq request{};
    std::strcpy(request.ifr_name, "can3");
    request.ifr_flags = IFF_TUN | IFF_NO_PI;
    if (ioctl(tunnel.descriptor(), TUNSETIFF, &request) != 0 ||
        ioctl(tunnel.descriptor(), TUNSETLINK, ARPHRD_CAN) != 0) {
      return "no interface can be made";
    }
    QLTError error;
    const auto can = made({{"interface", "can3"}}, &error);
    EXPECT_TRUE(can->isLost());
    EXPECT_EQ(textOf(error),
              "can3: the interface is down; to start it: ip link set can3 up type can bitrate "
              "500000");
    EXPECT_EQ(error.underlyingError().code(), ENETDOWN);
    made({{"interface", "can3"}, {"bitrate", "125000"}, {"fd", "yes"}}, &error);
    EXPECT_EQ(textOf(error),
              "can3: the interface is down; to start it: ip link set can3 up type can bitrate "
              "125000 dbitrate 2000000 fd on");
    if (!runs("ip link set can3 up")) return "";
    made({{"interface", "can3"}, {"fd", "yes"}}, &error);
    EXPECT_EQ(textOf(error),
              "can3: the interface takes no FD frames; to set it: ip link set can3 down && ip link "
              "set can3 up type can bitrate 500000 dbitrate 2000000 fd on");
    return "";
  });
  if (!reason.empty()) GTEST_SKIP() << reason;
}

/// Runs `body` with the virtual interface vcan0; why it cannot be.
std::string withVirtualCan(const std::function<void()>& body) {
  if (!kernelHasCan()) return "this kernel has no CAN";
  return inOwnNetwork([&]() -> std::string {
    if (!runs("ip link add vcan0 type vcan && ip link set vcan0 mtu 72 up")) {
      return "no virtual CAN interface can be made: ip link add vcan0 type vcan";
    }
    body();
    return "";
  });
}

TEST(QLTBenchCan, talksOverAVirtualInterface) {
  const std::string reason = withVirtualCan([] {
    QLTBenchCan first("vcan0", {.isFd = true, .bitRate = 500000});
    QLTBenchCan second("vcan0", {.isFd = true, .filters = {{{0x123}, 0x7F0}}});
    QLTError error;
    ASSERT_TRUE(first.open(&error)) << textOf(error);
    ASSERT_TRUE(second.open(&error)) << textOf(error);
    for (const char* const text : {"123#0102", "12F#R4", "120##1AB"}) {
      EXPECT_TRUE(first.send(*QLTCanFrame::of("130#")));
      EXPECT_TRUE(first.send(*QLTCanFrame::of(text), &error)) << textOf(error);
      EXPECT_EQ(second.receive(&error), QLTCanFrame::of(text)) << textOf(error);
    }
    EXPECT_TRUE(second.send(*QLTCanFrame::of("18DAF110#01")));
    EXPECT_EQ(first.awaitFrame({0x18DAF110, true}), QLTCanFrame::of("18DAF110#01"));
  });
  if (!reason.empty()) GTEST_SKIP() << reason;
}

TEST(QLTBenchCan, isLostWithItsVirtualInterface) {
  const std::string reason = withVirtualCan([] {
    QLTBenchCan can("vcan0");
    ASSERT_TRUE(can.open());
    EXPECT_FALSE(can.isLost());
    ASSERT_TRUE(runs("ip link set vcan0 down"));
    EXPECT_TRUE(can.isLost());
    QLTError error;
    EXPECT_EQ(can.receive(&error), std::nullopt);
    EXPECT_EQ(textOf(error), "vcan0: cannot be read: Network is down");
    EXPECT_FALSE(can.reopen(&error));
    EXPECT_THAT(textOf(error), HasSubstr("vcan0: the interface is down; to start it: ip link set"));
    ASSERT_TRUE(runs("ip link set vcan0 up"));
    EXPECT_TRUE(can.reopen(&error)) << textOf(error);
    EXPECT_FALSE(can.isLost());
  });
  if (!reason.empty()) GTEST_SKIP() << reason;
}

}  // namespace
