// Titles, made harmless for a window manager.
//
// A page's title and a client's are texts of strangers. Window managers and
// task bars show them in fonts and terminals of their own, so what reaches them
// is valid UTF-8 of a bounded length on one line, without characters that
// control a terminal or turn the direction of the text:
//
//   PlainTitle("In\nbox \u202e!")     "In box !"
//
// Left out are the control characters but those that separate words, which
// become spaces, those that direct the text (U+061C, U+200E, U+200F, U+202A to
// U+202E, U+2066 to U+2069), and the byte order mark. A byte that is not UTF-8
// becomes U+FFFD.
//
// Sequence: any thread.
//
// Failure: none; any bytes are taken.

#ifndef EXAMPLES_WEB_BROWSER_FRAME_PLAIN_TITLE_H_
#define EXAMPLES_WEB_BROWSER_FRAME_PLAIN_TITLE_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace web_browser {

// A longer text is cut between two characters.
inline constexpr size_t kMaxPlainTitleBytes = 4096;

std::string PlainTitle(std::string_view text);

}  // namespace web_browser

#endif  // EXAMPLES_WEB_BROWSER_FRAME_PLAIN_TITLE_H_
