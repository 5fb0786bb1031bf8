#include "examples/web_browser/x11/properties.h"

#include <memory>

#include "examples/web_browser/x11/error_trap.h"
#include "examples/web_browser/x11/xlib.h"

namespace web_browser::x11 {
namespace {

constexpr int kBitsOfNumber = 32;
constexpr int kBitsOfText = 8;
// In units of 32 bits; lists of windows are what is long.
constexpr long kMostUnits = 1 << 20;

struct Freer {
  void operator()(unsigned char* data) const { XFree(data); }
};

struct Property {
  // No type means that there is no such property.
  AtomId type = 0;
  int bits = 0;
  unsigned long count = 0;
  std::unique_ptr<unsigned char, Freer> data;
};

std::optional<Property> Read(Connection* connection,
                             WindowId window,
                             AtomId name) {
  ErrorTrap trap(connection);
  Property property;
  unsigned long bytes_left = 0;
  unsigned char* data = nullptr;
  const int failed = XGetWindowProperty(
      connection, window, name, 0, kMostUnits, /*delete=*/0, AnyPropertyType,
      &property.type, &property.bits, &property.count, &bytes_left, &data);
  property.data.reset(data);
  if (failed != 0 || trap.HasCaught()) {
    return std::nullopt;
  }
  return property;
}

}  // namespace

std::optional<std::vector<unsigned long>> ReadNumbers(Connection* connection,
                                                      WindowId window,
                                                      AtomId property) {
  const std::optional<Property> read = Read(connection, window, property);
  if (!read) {
    return std::nullopt;
  }
  if (read->bits != kBitsOfNumber) {
    return std::vector<unsigned long>();
  }
  // Xlib makes a long of each 32 bits.
  const auto* numbers =
      reinterpret_cast<const unsigned long*>(read->data.get());
  return std::vector<unsigned long>(numbers, numbers + read->count);
}

std::optional<unsigned long> ReadNumber(Connection* connection,
                                        WindowId window,
                                        AtomId property) {
  const auto numbers = ReadNumbers(connection, window, property);
  if (!numbers || numbers->empty()) {
    return std::nullopt;
  }
  return numbers->front();
}

std::string ReadText(Connection* connection, WindowId window, AtomId property) {
  const std::optional<Property> read = Read(connection, window, property);
  if (!read || read->bits != kBitsOfText) {
    return "";
  }
  return std::string(reinterpret_cast<const char*>(read->data.get()),
                     read->count);
}

bool WriteNumbers(Connection* connection,
                  WindowId window,
                  AtomId property,
                  AtomId type,
                  const std::vector<unsigned long>& values) {
  ErrorTrap trap(connection);
  XChangeProperty(connection, window, property, type, kBitsOfNumber,
                  PropModeReplace,
                  reinterpret_cast<const unsigned char*>(values.data()),
                  static_cast<int>(values.size()));
  return !trap.HasCaught();
}

}  // namespace web_browser::x11
