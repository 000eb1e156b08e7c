#pragma once
#include <string>
#include <string_view>

namespace tovani {

// mp_URLEncodedString: UTF-8 percent-encoding of every character that is not legal in a
// URL and of every character of "!*'();:@&=+$,/?%#[]<>". "a b&c/d" -> "a%20b%26c%2Fd".
std::string mp_URLEncodedString(std::string_view s);

// The end card's variant: the same without "<" and ">" in the extra set.
std::string endCardFormEncode(std::string_view s);

// The legacy whole-URL escaping applied to the ad and ad-list requests before sending:
// escapes every character not legal in a URL, the percent sign included, and leaves the
// URL's reserved characters alone. Legal: ASCII letters and digits, "-._~",
// ":/?#[]@" and "!$&'()*+,;=".
std::string legacyEscapeURL(std::string_view s);

// The beacon query escaping: like legacyEscapeURL, but "%" stays (existing escapes
// survive) and "@" is escaped as well.
std::string beaconQueryEscape(std::string_view s);

// Replaces %XX escapes by their bytes; malformed escapes stay as they are.
std::string percentDecode(std::string_view s);

bool isEmpty(std::string_view s);

}  // namespace tovani
