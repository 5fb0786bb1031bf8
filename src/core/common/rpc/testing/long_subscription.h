// Subscriptions that are longer than they need be, for limits of their size.

#ifndef CORE_COMMON_RPC_TESTING_LONG_SUBSCRIPTION_H_
#define CORE_COMMON_RPC_TESTING_LONG_SUBSCRIPTION_H_

#include <google/protobuf/message.h>

#include <cstddef>
#include <string>

namespace torvane {

// `message` in `bytes` bytes, without a field that its type does not know. It
// begins with a window whose value is between 1 and 127. That is said again and
// again, the last time with a value in more bytes than it takes.
inline std::string LongSubscription(const google::protobuf::Message& message,
                                    size_t bytes) {
  constexpr size_t kWindowBytes = 4;
  const std::string once = message.SerializeAsString();
  const std::string window = once.substr(0, kWindowBytes);
  const std::string rest = once.substr(kWindowBytes);
  std::string payload;
  while (payload.size() + 2 * kWindowBytes + rest.size() <= bytes) {
    payload += window;
  }
  const size_t zeroes = bytes - payload.size() - once.size();
  std::string last = window;
  last[1] = static_cast<char>(last[1] + static_cast<char>(zeroes));
  for (size_t i = 0; i < zeroes; ++i) {
    last.back() = static_cast<char>(last.back() | 0x80);
    last.push_back('\0');
  }
  return payload + last + rest;
}

}  // namespace torvane

#endif  // CORE_COMMON_RPC_TESTING_LONG_SUBSCRIPTION_H_
