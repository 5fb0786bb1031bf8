#include "tools/cli/printable.h"

#include <array>
#include <cstdint>
#include <utility>

#include "absl/strings/str_format.h"

namespace cli {
namespace {

struct Character {
  uint32_t code = 0;
  // In bytes; 0 where there is no valid character.
  size_t size = 0;
};

bool IsContinuation(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// The first character of `text`, which is not empty.
Character FirstOf(std::string_view text) {
  // The least code that takes so many bytes.
  constexpr std::array<uint32_t, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};
  const auto first = static_cast<unsigned char>(text[0]);
  if (first < 0x80)
    return {first, 1};
  if (first < 0xC0 || first > 0xF7)
    return {};
  const size_t size = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  if (text.size() < size)
    return {};
  uint32_t code = first & (0x7Fu >> size);
  for (const char next : text.substr(1, size - 1)) {
    if (!IsContinuation(next))
      return {};
    code = code << 6 | (static_cast<unsigned char>(next) & 0x3F);
  }
  const bool is_surrogate = code >= 0xD800 && code <= 0xDFFF;
  if (code < kLeast[size] || is_surrogate || code > 0x10FFFF)
    return {};
  return {code, size};
}

bool IsEscaped(uint32_t code) {
  constexpr std::pair<uint32_t, uint32_t> kRanges[] = {
      {0x00, 0x1F},     {0x7F, 0x9F},     {0x061C, 0x061C}, {0x200E, 0x200F},
      {0x2028, 0x202E}, {0x2066, 0x2069}, {0xFEFF, 0xFEFF}};
  for (const auto& [first, last] : kRanges) {
    if (code >= first && code <= last)
      return true;
  }
  return false;
}

std::string Escape(std::string_view text, bool keep_line_breaks) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const Character character = FirstOf(text);
    const bool is_kept_break = character.code == '\n' && keep_line_breaks;
    const bool stays =
        character.size > 0 && (!IsEscaped(character.code) || is_kept_break);
    if (stays)
      result.append(text.substr(0, character.size));
    else if (character.size > 1)
      absl::StrAppendFormat(&result, "\\u%04x", character.code);
    else
      absl::StrAppendFormat(&result, "\\x%02x",
                            static_cast<unsigned char>(text[0]));
    text.remove_prefix(character.size == 0 ? 1 : character.size);
  }
  return result;
}

}  // namespace

std::string Printable(std::string_view text) {
  return Escape(text, false);
}

std::string PrintableLines(std::string_view text) {
  return Escape(text, true);
}

std::string Shorten(std::string_view text, size_t max_bytes) {
  constexpr std::string_view kMark = "[...]";
  constexpr size_t kMaxContinuations = 3;
  if (text.size() <= max_bytes)
    return std::string(text);
  const size_t room = max_bytes - kMark.size();
  size_t end = room;
  while (end > 0 && room - end < kMaxContinuations && IsContinuation(text[end]))
    --end;
  return std::string(text.substr(0, end)).append(kMark);
}

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const size_t size = FirstOf(text).size;
    if (size == 0)
      return false;
    text.remove_prefix(size);
  }
  return true;
}

}  // namespace cli
