#include "examples/web_browser/x11/properties.h"

#include "examples/web_browser/x11/xlib.h"

namespace web_browser::x11 {
namespace {

constexpr int kBitsOfNumber = 32;
constexpr int kBitsOfText = 8;
// In units of 32 bits; lists of windows are what is long.
constexpr uint32_t kMostUnits = 1 << 20;

bool Write(Connection* connection,
           WindowId window,
           AtomId property,
           AtomId type,
           int bits,
           size_t count,
           const void* values) {
  xcb_connection_t* const xcb = XGetXCBConnection(connection);
  return Succeeds(
      xcb,
      xcb_change_property_checked(
          xcb, XCB_PROP_MODE_REPLACE, static_cast<xcb_window_t>(window),
          static_cast<xcb_atom_t>(property), static_cast<xcb_atom_t>(type),
          static_cast<uint8_t>(bits), static_cast<uint32_t>(count), values));
}

}  // namespace

PropertyQuery::PropertyQuery(Connection* connection,
                             WindowId window,
                             AtomId property)
    : query_(XGetXCBConnection(connection),
             xcb_get_property(XGetXCBConnection(connection),
                              /*delete=*/0,
                              static_cast<xcb_window_t>(window),
                              static_cast<xcb_atom_t>(property),
                              XCB_GET_PROPERTY_TYPE_ANY,
                              /*offset=*/0,
                              kMostUnits),
             &xcb_get_property_reply) {}

std::optional<std::vector<uint32_t>> PropertyQuery::Numbers() {
  const auto reply = query_.Take();
  if (reply == nullptr) {
    return std::nullopt;
  }
  if (reply->format != kBitsOfNumber) {
    return std::vector<uint32_t>();
  }
  const auto* numbers =
      static_cast<const uint32_t*>(xcb_get_property_value(reply.get()));
  return std::vector<uint32_t>(numbers, numbers + reply->value_len);
}

std::optional<uint32_t> PropertyQuery::Number() {
  const auto numbers = Numbers();
  if (!numbers || numbers->empty()) {
    return std::nullopt;
  }
  return numbers->front();
}

std::string PropertyQuery::Text() {
  const auto reply = query_.Take();
  if (reply == nullptr || reply->format != kBitsOfText) {
    return "";
  }
  return std::string(
      static_cast<const char*>(xcb_get_property_value(reply.get())),
      reply->value_len);
}

bool WriteNumbers(Connection* connection,
                  WindowId window,
                  AtomId property,
                  AtomId type,
                  const std::vector<uint32_t>& values) {
  return Write(connection, window, property, type, kBitsOfNumber, values.size(),
               values.data());
}

bool WriteText(Connection* connection,
               WindowId window,
               AtomId property,
               AtomId type,
               std::string_view text) {
  return Write(connection, window, property, type, kBitsOfText, text.size(),
               text.data());
}

}  // namespace web_browser::x11
