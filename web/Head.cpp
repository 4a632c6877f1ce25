#include "Head.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <string_view>

namespace web {

namespace {

// A page may only load what stands here, and runs no script that is written into it.
constexpr std::string_view kAlways =
    "X-Content-Type-Options: nosniff\r\n"
    "Referrer-Policy: no-referrer\r\n"
    "Cross-Origin-Resource-Policy: same-origin\r\n";
constexpr std::string_view kOwnContent =
    "Content-Security-Policy: default-src 'self'; img-src 'self' data:; frame-ancestors 'none'; "
    "base-uri 'none'; form-action 'self'\r\n";

const char* reasonOf(int status) {
  switch (status) {
    case 200:
      return "OK";
    case 303:
      return "See Other";
    case 304:
      return "Not Modified";
    case 400:
      return "Bad Request";
    case 401:
      return "Unauthorized";
    case 403:
      return "Forbidden";
    case 404:
      return "Not Found";
    case 405:
      return "Method Not Allowed";
    case 408:
      return "Request Timeout";
    case 409:
      return "Conflict";
    case 411:
      return "Length Required";
    case 413:
      return "Content Too Large";
    case 415:
      return "Unsupported Media Type";
    case 431:
      return "Request Header Fields Too Large";
    case 500:
      return "Internal Server Error";
    case 503:
      return "Service Unavailable";
    default:
      return "";
  }
}

/// Now, as HTTP has it: "Sun, 06 Nov 1994 08:49:37 GMT", whatever the locale is.
std::string date() {
  constexpr std::array kDays{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  constexpr std::array kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  const auto two = [](int number) {
    return std::string(number < 10 ? "0" : "") + std::to_string(number);
  };
  return std::string(kDays[static_cast<std::size_t>(utc.tm_wday)]) + ", " + two(utc.tm_mday) + " " +
         kMonths[static_cast<std::size_t>(utc.tm_mon)] + " " + std::to_string(utc.tm_year + 1900) +
         " " + two(utc.tm_hour) + ":" + two(utc.tm_min) + ":" + two(utc.tm_sec) + " GMT";
}

std::string beginningOf(int status) {
  std::string head = "HTTP/1.1 " + std::to_string(status) + " " + reasonOf(status) + "\r\n";
  return head.append("Date: ").append(date()).append("\r\n").append(kAlways);
}

}  // namespace

std::string headOf(const Response& response, std::size_t length, bool keep) {
  std::string head = beginningOf(response.status);
  bool caching = false;
  bool guarded = false;
  for (const auto& [name, value] : response.headers) {
    caching = caching || name == "Cache-Control";
    guarded = guarded || name == "Content-Security-Policy";
    head.append(name).append(": ").append(value).append("\r\n");
  }
  if (!caching) head += "Cache-Control: no-store\r\n";
  if (!guarded) head += kOwnContent;
  if (!response.type.empty()) head.append("Content-Type: ").append(response.type).append("\r\n");
  if (response.status != 304) head += "Content-Length: " + std::to_string(length) + "\r\n";
  return head + (keep ? "Connection: keep-alive\r\n\r\n" : "Connection: close\r\n\r\n");
}

std::string streamHead() {
  // Whoever loses the connection comes back after a second.
  return beginningOf(200).append(kOwnContent) +
         "Cache-Control: no-store\r\nContent-Type: text/event-stream\r\nConnection: close\r\n\r\n"
         "retry: 1000\n\n";
}

}  // namespace web
