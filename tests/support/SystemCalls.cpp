#include "SystemCalls.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>

#include <dlfcn.h>
#include <poll.h>
#include <sys/socket.h>

// The test program's own definitions stand before those of the system's library, for the framework
// too.
#define INTERPOSED extern "C" __attribute__((visibility("default")))

namespace test {
namespace {

std::atomic<SystemCalls*> current = nullptr;

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

SystemCalls::SystemCalls() { current = this; }
SystemCalls::~SystemCalls() { current = nullptr; }

int failWith(int errnoValue) {
  errno = errnoValue;
  return -1;
}

}  // namespace test

INTERPOSED ssize_t read(int descriptor, void* bytes, std::size_t size) {
  static auto* const real = test::next<ssize_t(int, void*, std::size_t)>("read");
  if (const test::SystemCalls* const calls = test::current; calls != nullptr && calls->onRead) {
    if (const auto result = calls->onRead(descriptor, bytes, size)) return *result;
  }
  return real(descriptor, bytes, size);
}

INTERPOSED ssize_t write(int descriptor, const void* bytes, std::size_t size) {
  static auto* const real = test::next<ssize_t(int, const void*, std::size_t)>("write");
  if (const test::SystemCalls* const calls = test::current; calls != nullptr && calls->onWrite) {
    if (const auto result = calls->onWrite(descriptor, bytes, size)) return *result;
  }
  return real(descriptor, bytes, size);
}

INTERPOSED int fdatasync(int descriptor) {
  static auto* const real = test::next<int(int)>("fdatasync");
  if (const test::SystemCalls* const calls = test::current; calls != nullptr && calls->onDataSync) {
    if (const auto result = calls->onDataSync(descriptor)) return *result;
  }
  return real(descriptor);
}

INTERPOSED int ioctl(int descriptor, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  static auto* const real = test::next<int(int, unsigned long, ...)>("ioctl");
  if (const test::SystemCalls* const calls = test::current; calls != nullptr && calls->onIoctl) {
    if (const auto result = calls->onIoctl(descriptor, request, argument)) return *result;
  }
  return real(descriptor, request, argument);
}

INTERPOSED int fcntl(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  static auto* const real = test::next<int(int, int, ...)>("fcntl");
  if (const test::SystemCalls* const calls = test::current; calls != nullptr && calls->onFcntl) {
    if (const auto result = calls->onFcntl(descriptor, command)) return *result;
  }
  return real(descriptor, command, argument);
}

INTERPOSED int poll(pollfd* descriptors, nfds_t count, int milliseconds) {
  static auto* const real = test::next<int(pollfd*, nfds_t, int)>("poll");
  if (const test::SystemCalls* const calls = test::current; calls != nullptr && calls->onPoll) {
    if (const auto result = calls->onPoll()) return *result;
  }
  return real(descriptors, count, milliseconds);
}

INTERPOSED int socket(int domain, int type, int protocol) noexcept {
  static auto* const real = test::next<int(int, int, int)>("socket");
  if (const test::SystemCalls* const calls = test::current; calls != nullptr && calls->onSocket) {
    if (const auto result = calls->onSocket()) return *result;
  }
  return real(domain, type, protocol);
}

INTERPOSED int tcflush(int descriptor, int queue) noexcept {
  static auto* const real = test::next<int(int, int)>("tcflush");
  if (const test::SystemCalls* const calls = test::current; calls != nullptr && calls->onFlush) {
    if (const auto result = calls->onFlush(descriptor)) return *result;
  }
  return real(descriptor, queue);
}

INTERPOSED int tcgetattr(int descriptor, termios* attributes) noexcept {
  static auto* const real = test::next<int(int, termios*)>("tcgetattr");
  if (const test::SystemCalls* const calls = test::current;
      calls != nullptr && calls->onGetAttributes) {
    if (const auto result = calls->onGetAttributes(descriptor, *attributes)) return *result;
  }
  return real(descriptor, attributes);
}

INTERPOSED int tcsetattr(int descriptor, int actions, const termios* attributes) noexcept {
  static auto* const real = test::next<int(int, int, const termios*)>("tcsetattr");
  if (const test::SystemCalls* const calls = test::current;
      calls != nullptr && calls->onSetAttributes) {
    if (const auto result = calls->onSetAttributes(descriptor, *attributes)) return *result;
  }
  return real(descriptor, actions, attributes);
}
