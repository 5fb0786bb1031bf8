#include "examples/web_browser/frame/plain_title.h"

#include <glib.h>

#include <array>
#include <memory>
#include <utility>

namespace web_browser {
namespace {

// The first and the last of each range of characters that direct the text.
constexpr std::array<std::pair<gunichar, gunichar>, 5> kDirecting = {{
    {0x061C, 0x061C},
    {0x200E, 0x200F},
    {0x202A, 0x202E},
    {0x2066, 0x2069},
    {0xFEFF, 0xFEFF},
}};

bool Directs(gunichar character) {
  for (const auto& [first, last] : kDirecting) {
    if (first <= character && character <= last)
      return true;
  }
  return false;
}

bool SeparatesWords(gunichar character) {
  return character == '\t' || character == '\n' || character == '\r' ||
         character == 0x85 || character == 0x2028 || character == 0x2029;
}

}  // namespace

std::string PlainTitle(std::string_view text) {
  // What is cut off cannot matter: no character becomes shorter, but some
  // vanish, so a bounded beginning is looked at.
  const std::string_view beginning = text.substr(0, 4 * kMaxPlainTitleBytes);
  const std::unique_ptr<gchar, decltype(&g_free)> valid(
      g_utf8_make_valid(beginning.data(),
                        static_cast<gssize>(beginning.size())),
      &g_free);
  std::string plain;
  for (const gchar* at = valid.get(); *at != '\0'; at = g_utf8_next_char(at)) {
    gunichar character = g_utf8_get_char(at);
    if (SeparatesWords(character))
      character = ' ';
    if (g_unichar_iscntrl(character) || Directs(character))
      continue;
    std::array<gchar, 6> bytes;
    const int length = g_unichar_to_utf8(character, bytes.data());
    if (plain.size() + length > kMaxPlainTitleBytes)
      break;
    plain.append(bytes.data(), length);
  }
  return plain;
}

}  // namespace web_browser
