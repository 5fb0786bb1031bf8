// Text of others, made harmless to show to a person.
//
// Titles, names and error texts come from whoever is at the other end of a
// connection. Written to a terminal as they are, they could move its cursor,
// change its title, turn the direction of the text, or pass for several lines:
//
//   Printable("a\x1b[2Jb\u202ec")     "a\x1b[2Jb\u202ec", all of it visible
//
// Escaped are
//
//   \x1b     control characters of ASCII, and bytes that are not valid UTF-8
//   \u202e   the other control characters (U+0080 to U+009F), those that direct
//            the text (U+061C, U+200E, U+200F, U+202A to U+202E, U+2066 to
//            U+2069), line and paragraph separators (U+2028, U+2029), and the
//            byte order mark (U+FEFF)
//
// Everything else stays, backslashes included: what is escaped already is not
// escaped again, and JSON remains JSON with the same meaning, since it holds
// none of these but inside strings, and no control characters of ASCII at all.
//
// Sequence: any thread.
//
// Failure: none; any bytes are taken.

#ifndef TOOLS_CLI_PRINTABLE_H_
#define TOOLS_CLI_PRINTABLE_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace cli {

// On one line.
std::string Printable(std::string_view text);

// The same, but line breaks stay: for texts of our own that quote others.
std::string PrintableLines(std::string_view text);

// At most `max_bytes`, which must be 5 or more. Of a longer text the beginning,
// cut between two characters, and "[...]".
std::string Shorten(std::string_view text, size_t max_bytes);

// Whether all of it is valid UTF-8, as the text fields of messages must be.
bool IsUtf8(std::string_view text);

}  // namespace cli

#endif  // TOOLS_CLI_PRINTABLE_H_
