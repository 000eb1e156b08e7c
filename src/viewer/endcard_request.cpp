#include <string>
#include <vector>

#include "net/UrlEncoding.hpp"
#include "tovani/Constants.hpp"
#include "viewer/tovaniViewer.hpp"

namespace tovani {

namespace {

constexpr const char* kDefaultPage = "iosTovaniEndCard.php";
constexpr const char* kType1Page = "type1-1.php";
constexpr const char* kType2Page = "type2.php";
constexpr const char* kType3Page = "type3.php";

constexpr const char* kType11Body = "endCardType=type1-1&appID=%@&clickTrackUrl=%@&appLink=%@%@";
constexpr const char* kType12Body = "endCardType=type1-2&appID=%@&clickTrackUrl=%@&appLink=%@%@";
constexpr const char* kType2Body =
    "appID=%@&endCardType=%@&bgImgUrl=%@&clickTrackUrl=%@&appLink=%@%@";
constexpr const char* kType3Body = "endCardType=%@&bgImgUrl=%@&clickTrackUrl=%@&appLink=%@";
constexpr const char* kIdentityTail = "&mediaCode=%@&slotCode=%@&cateCode=%@&SDKVer=%@&BName=%@";

bool isOneOf(const Text& value, std::initializer_list<const char*> names) {
  if (!value) return false;
  for (const char* name : names) {
    if (*value == name) return true;
  }
  return false;
}

// The app identifier is the second "^"-separated field of the extra data. Extra data with
// fewer fields (a type-3 card often carries just its background image) gets an empty one,
// so that the page still loads and the card keeps its close link; an absent value stays
// absent and prints as such.
Text appIdOf(const Text& etc) {
  if (!etc) return std::nullopt;
  const std::vector<std::string> fields = splitKeepingEmpty(*etc, '^');
  if (fields.size() < 2) return std::string();
  return fields[1];
}

}  // namespace

bool endCardWanted(const Text& endcardUse) {
  // An absent switch is neither "true" nor empty: an ad whose answer has none closes
  // without an end card.
  return endcardUse && (endcardUse->empty() || *endcardUse == "true");
}

void tovaniViewer::tnEndCardPrepare() {
  const Text appID = appIdOf(tnAdsExtensionsEtc);
  const Text bgImgUrl =
      tnAdsExtensionsEtc ? Text(endCardFormEncode(*tnAdsExtensionsEtc)) : std::nullopt;
  // Sent on purpose, and on purpose always empty.
  const Text clickTrackUrl = std::string();
  const Text& appLink = tnAdsExtensionsClickThrough;
  // Not escaped: on the wire the tail reads as further form fields after appLink.
  const std::string identity = formatAt(kIdentityTail, {mediaCode, slotCode, cateCode, tnSDKVersion,
                                                        platform()->application->bundleName()});
  const Text& type = tnAdsExtensionsClickType;

  std::string page = kDefaultPage;
  std::string body;
  if (isOneOf(type, {"type1-1"})) {
    page = kType1Page;
    body = formatAt(kType11Body, {appID, clickTrackUrl, appLink, identity});
  } else if (isOneOf(type, {"type1-2"})) {
    // One page serves both type-1 cards.
    page = kType1Page;
    body = formatAt(kType12Body, {appID, clickTrackUrl, appLink, identity});
  } else if (isOneOf(type, {"type2", "type2-1", "type2-3"})) {
    page = kType2Page;
    body = formatAt(kType2Body, {appID, type, bgImgUrl, clickTrackUrl, appLink, identity});
  } else if (isOneOf(type, {"type3", "type3-1", "type3-2"})) {
    page = kType3Page;
    body = formatAt(kType3Body, {type, bgImgUrl, clickTrackUrl, appLink});
  }

  inspectStage("endcard-prepared");
  if (!tnAdEndCardView || !tnAdEndCardView->webView) return;
  endCardPage = EndCardPage::Loading;
  inspection.emit([&] {
    InspectorEvent e;
    e.kind = InspectorEventKind::EndCardLoad;
    e.name = "POST";
    e.url = formatAt("%@%@", {TOVANI_URL_ENDCARD, page});
    e.bytes = static_cast<int64_t>(body.size());
    return e;
  });
  tnAdEndCardView->webView->loadRequest(
      WebRequest{formatAt("%@%@", {TOVANI_URL_ENDCARD, page}), "POST", body});
}

}  // namespace tovani
