#include "CanInterface.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

#include <linux/can.h>
#include <linux/can/netlink.h>
#include <linux/can/raw.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "common/Format.h"
#include "common/Retried.h"

namespace quillon::bench {
namespace {

using internal::Descriptor;
using internal::format;

/// What the system tells of an interface, in the answer to `request`; absent with errno.
std::optional<ifreq> told(const std::string& name, unsigned long request) {
  ifreq answer{};
  if (name.empty() || name.size() >= sizeof answer.ifr_name) {
    errno = ENODEV;
    return std::nullopt;
  }
  std::copy(name.begin(), name.end(), answer.ifr_name);
  const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket || ioctl(socket.get(), request, &answer) != 0) return std::nullopt;
  return answer;
}

/// What a CAN controller tells of itself; a virtual interface has none.
struct Controller {
  bool isBusOff = false;
  std::int64_t bitRate = 0;  // 0: not told
};

template <typename Value>
std::optional<Value> front(std::string_view bytes) {
  if (bytes.size() < sizeof(Value)) return std::nullopt;
  Value value{};
  std::memcpy(&value, bytes.data(), sizeof value);
  return value;
}

/// The content of an attribute in a list of them; "" when it is not there.
std::string_view attribute(std::string_view list, unsigned short wanted) {
  while (const auto head = front<rtattr>(list)) {
    if (head->rta_len < sizeof *head || head->rta_len > list.size()) break;
    if ((head->rta_type & NLA_TYPE_MASK) == wanted) {
      return list.substr(sizeof *head, head->rta_len - sizeof *head);
    }
    list.remove_prefix(std::min<std::size_t>(NLMSG_ALIGN(head->rta_len), list.size()));
  }
  return {};
}

Controller controllerOf(int index) {
  struct {
    nlmsghdr head;
    ifinfomsg link;
  } request{};
  request.head.nlmsg_len = sizeof request;
  request.head.nlmsg_type = RTM_GETLINK;
  request.head.nlmsg_flags = NLM_F_REQUEST;
  request.link.ifi_index = index;
  const Descriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  if (!socket || ::send(socket.get(), &request, sizeof request, 0) < 0) return {};
  std::array<char, 32768> buffer;
  const ssize_t count =
      internal::retried([&] { return ::recv(socket.get(), buffer.data(), buffer.size(), 0); });
  std::string_view answer(buffer.data(), count < 0 ? 0 : static_cast<std::size_t>(count));
  const auto head = front<nlmsghdr>(answer);
  constexpr std::size_t inFront = NLMSG_HDRLEN + NLMSG_ALIGN(sizeof(ifinfomsg));
  if (!head || head->nlmsg_type != RTM_NEWLINK || answer.size() < inFront) return {};
  answer.remove_prefix(inFront);
  const std::string_view data = attribute(attribute(answer, IFLA_LINKINFO), IFLA_INFO_DATA);
  Controller controller;
  const auto state = front<std::uint32_t>(attribute(data, IFLA_CAN_STATE));
  controller.isBusOff = state && *state == CAN_STATE_BUS_OFF;
  if (const auto timing = front<can_bittiming>(attribute(data, IFLA_CAN_BITTIMING))) {
    controller.bitRate = timing->bitrate;
  }
  return controller;
}

bool isWithoutCan() {
  const Descriptor socket(::socket(PF_CAN, SOCK_RAW | SOCK_CLOEXEC, CAN_RAW));
  return !socket && (errno == EAFNOSUPPORT || errno == EPROTONOSUPPORT);
}

/// Lets only wanted frames wake whoever waits, and fill the system's buffer; false with errno.
bool setFilters(int socket, const std::vector<QLTCanFilter>& wanted) {
  std::vector<can_filter> filters;
  filters.reserve(wanted.size());
  for (const QLTCanFilter& filter : wanted) {
    filters.push_back({filter.id.number | (filter.id.isExtended ? CAN_EFF_FLAG : 0),
                       (filter.mask & CAN_EFF_MASK) | CAN_EFF_FLAG});
  }
  if (filters.empty()) return true;
  const auto size = static_cast<socklen_t>(filters.size() * sizeof filters.front());
  return setsockopt(socket, SOL_CAN_RAW, CAN_RAW_FILTER, filters.data(), size) == 0;
}

constexpr const char* kWithoutCan =
    "this system's kernel has no CAN (the module can_raw, where it is not built in)";

}  // namespace

/// The command that makes it as wanted.
std::string CanInterface::startCommand(const Wanted& wanted) const {
  constexpr std::int64_t common = 500000;
  return format("ip link set %@ up type can bitrate %d%s", name_,
                wanted.bitRate != 0 ? wanted.bitRate : common,
                wanted.isFd ? " dbitrate 2000000 fd on" : "");
}

/// Why it cannot be used, with errno; "" when it can.
std::string CanInterface::complaint(const Wanted& wanted) const {
  const auto index = told(name_, SIOCGIFINDEX);
  if (!index) {
    const int problem = errno;
    if (isWithoutCan()) return kWithoutCan;
    errno = problem;
    return "there is no such interface";
  }
  errno = EINVAL;
  const auto hardware = told(name_, SIOCGIFHWADDR);
  if (!hardware || hardware->ifr_hwaddr.sa_family != ARPHRD_CAN) return "is no CAN interface";
  const auto flags = told(name_, SIOCGIFFLAGS);
  if (!flags || (flags->ifr_flags & IFF_UP) == 0) {
    errno = ENETDOWN;
    return "the interface is down; to start it: " + startCommand(wanted);
  }
  const Controller controller = controllerOf(index->ifr_ifindex);
  if (controller.isBusOff) {
    errno = ENETDOWN;
    return format(
        "the controller has left the bus (bus off); to start it again: ip link set %@ "
        "type can restart",
        name_);
  }
  const std::string again =
      format("to set it: ip link set %@ down && %@", name_, startCommand(wanted));
  if (wanted.bitRate != 0 && controller.bitRate != 0 && controller.bitRate != wanted.bitRate) {
    errno = EINVAL;
    return format("the bit rate is %d, not %d; %@", controller.bitRate, wanted.bitRate, again);
  }
  const auto size = told(name_, SIOCGIFMTU);
  if (wanted.isFd && (!size || size->ifr_mtu != static_cast<int>(CANFD_MTU))) {
    errno = EINVAL;
    return "the interface takes no FD frames; " + again;
  }
  return "";
}

Descriptor CanInterface::open(const Wanted& wanted, std::string& reason) const {
  reason = complaint(wanted);
  if (!reason.empty()) return {};
  Descriptor socket(::socket(PF_CAN, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, CAN_RAW));
  if (!socket) {
    const bool isUnknown = errno == EAFNOSUPPORT || errno == EPROTONOSUPPORT;
    reason = isUnknown ? kWithoutCan : "does not open";
    return {};
  }
  const can_err_mask_t errors = CAN_ERR_MASK;
  const int isFd = wanted.isFd ? 1 : 0;
  sockaddr_can address{};
  address.can_family = AF_CAN;
  address.can_ifindex = static_cast<int>(if_nametoindex(name_.c_str()));
  if (setsockopt(socket.get(), SOL_CAN_RAW, CAN_RAW_ERR_FILTER, &errors, sizeof errors) == 0 &&
      setsockopt(socket.get(), SOL_CAN_RAW, CAN_RAW_FD_FRAMES, &isFd, sizeof isFd) == 0 &&
      setFilters(socket.get(), wanted.filters) && address.can_ifindex != 0 &&
      bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return socket;
  }
  reason = "does not open";
  return {};
}

bool CanInterface::isUp() const {
  const auto flags = told(name_, SIOCGIFFLAGS);
  if (!flags || (flags->ifr_flags & IFF_UP) == 0) return false;
  const auto index = told(name_, SIOCGIFINDEX);
  return index && !controllerOf(index->ifr_ifindex).isBusOff;
}

}  // namespace quillon::bench
