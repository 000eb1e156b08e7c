#include "net/Url.hpp"
#include "net/UrlEncoding.hpp"
#include "viewer/tovaniViewer.hpp"

namespace tovani {

namespace {

// The server stores tracking URLs with unescaped queries; only a URL with exactly one "?"
// has a query we can tell apart from the rest, so only that one is escaped.
std::string beaconText(const std::string& raw) {
  // The second, trailing-only strip is redundant after the full trim; kept so that the text
  // that leaves is exactly the one the server's tracking log has always seen.
  const std::string s = trimTrailingWhitespaceAndNewlines(trimWhitespaceAndNewlines(raw));
  const auto pieces = splitKeepingEmpty(s, '?');
  if (pieces.size() != 2) return s;
  return formatAt("%@?%@", {pieces[0], beaconQueryEscape(pieces[1])});
}

}  // namespace

void tovaniViewer::tnSendEventURL(const Text& url) {
  if (!url) return;
  const std::string finalText = beaconText(*url);
  // Only an absolute URL makes a request; anything else is dropped without a word, as a
  // tracking beacon has no one to report to.
  const auto parsed = parseUrl(finalText);
  if (finalText.empty() || !parsed || parsed->scheme.empty()) return;
  if (!inspection.active()) {
    platform()->http->beacon(finalText);
    return;
  }
  inspectBeacon(url, finalText);
}

}  // namespace tovani
