#include "net/Url.hpp"
#include "store/CheckedStatement.hpp"
#include "store/Statements.hpp"
#include "util/PlatformError.hpp"
#include "viewer/ProcessState.hpp"
#include "viewer/tovaniViewer.hpp"
#include "viewer/video_files.hpp"
#include "xml/XMLController.hpp"

namespace tovani {

namespace {

constexpr const char* kMediaFileTextPath =
    "InLine.Creatives.Creative.Linear.MediaFiles.MediaFile.text";
constexpr const char* kFrequencyRulePath = "InLine.Extensions.frequency1.text";
// Each candidate may cost a store look-up and an ad-list refresh; a real pod holds a handful
// of ads, so an answer is read no further than this.
constexpr size_t kMaxCandidateAds = 32;

// Only an element map is a single ad. A list is iterated, and nothing gives no candidates.
// Any other value (an "Ad" attribute on the root) cannot be iterated at all, which the
// platform reports by raising.
XmlList candidateAds(const XmlValue& ads) {
  if (ads.isMap()) return {ads};
  if (const XmlList* list = ads.list()) return *list;
  if (ads.isNone()) return {};
  throw PlatformError("the Ad value of the answer is neither an element nor a list");
}

// The video file name of an ad: the last path component of its trimmed media URL.
Text videoFileNameOf(const XmlValue& ad) {
  const Text mediaUrl = stringForKeyPath(ad, kMediaFileTextPath);
  if (!mediaUrl) return std::nullopt;
  return lastPathComponentOfUrl(trimWhitespaceAndNewlines(*mediaUrl));
}

InspectorEvent candidateEvent(const Text& adid, const Text& fileName, const char* outcome,
                              std::string reason) {
  InspectorEvent e;
  e.kind = InspectorEventKind::Candidate;
  e.adId = adid.value_or("");
  e.videoFile = fileName.value_or("");
  e.outcome = outcome;
  e.reason = std::move(reason);
  return e;
}

// The candidate's outcome once the frequency check has run, from what it noted.
InspectorEvent frequencyOutcome(const Inspection::FrequencyNote& note, const Text& adid,
                                const Text& fileName, const Text& rule, bool chosen) {
  const std::string ruleText = rule.value_or("");
  InspectorEvent e;
  if (chosen) {
    e = candidateEvent(adid, fileName, "chosen",
                       note.kind == "malformed"
                           ? "chosen; its rule " + ruleText + " is not a rule, so it has no cap"
                           : "chosen");
  } else if (note.capCount) {
    e = candidateEvent(adid, fileName, "capped",
                       "capped by " + ruleText + " (" + note.kind +
                           " cap): " + std::to_string(*note.capCount) + " showings counted");
    e.count = note.capCount;
  } else {
    e = candidateEvent(adid, fileName, "file-missing",
                       "the cached file is missing; the record is repaired and the video is "
                       "downloaded again");
  }
  e.rule = ruleText;
  return e;
}

}  // namespace

void tovaniViewer::parsingXml(const Text& answer) {
  bool played = false;
  // Runs when the answer yielded nothing to play, and also when reading the tree raised:
  // the host is told "no ad" before the error travels on to the main-queue boundary.
  const auto reportNoAdUnlessPlayed = [&] {
    if (played) return;
    tovaniResult = 1;
    notification_send();
    removeFromSuperview();
  };

  try {
    XMLController parser;
    const bool parsed = parser.parseXML(answer);
    if (!parsed && parser.lastError()) {
      inspection.emit([&] {
        InspectorEvent e;
        e.kind = InspectorEventKind::ParseFailure;
        e.error = parser.lastError()->message;
        e.line = parser.lastError()->line;
        e.column = parser.lastError()->column;
        return e;
      });
    }
    const XmlValue ads = parser.dicRoot()["Ad"];
    const bool singleAd = ads.isMap();
    XmlList candidates = candidateAds(ads);
    if (candidates.size() > kMaxCandidateAds) {
      log("tovani: ad answer holds " + std::to_string(candidates.size()) + " ads; only the first " +
          std::to_string(kMaxCandidateAds) + " are read");
      candidates.erase(candidates.begin() + kMaxCandidateAds, candidates.end());
    }

    for (const XmlValue& ad : candidates) {
      // An id that is an element rather than text can match no store row; that ad is
      // passed over like any ad that is not cached.
      Text adid;
      bool oddId = false;
      try {
        adid = stringForKeyPath(ad, "id");
      } catch (const PlatformError&) {
        oddId = true;
      }
      const Text fileName = videoFileNameOf(ad);

      std::optional<StoreRow> row;
      // A name that would leave the documents folder is never looked up: the ad counts
      // as not cached, and the store is refreshed as for any missing video.
      if (!oddId && fileName && !videoFileNameProblem(*fileName, tnDataDBFileName.value_or("")) &&
          tnDataManager) {
        const StoreRows rows = *tnDataManager->loadDataFromDB(
            formatStatement(sql::kSelectPlayableAdvert, {adid, fileName}));
        if (!rows.empty()) row = rows.front();
      }
      if (!row) {
        inspection.emit([&] {
          if (oddId) return candidateEvent(adid, fileName, "not-in-store", "its id is not text");
          if (!fileName) return candidateEvent(adid, fileName, "not-in-store", "no video file");
          if (auto problem = videoFileNameProblem(*fileName, tnDataDBFileName.value_or("")))
            return candidateEvent(adid, fileName, "refused-name",
                                  "unsafe video file name: " + *problem);
          return candidateEvent(adid, fileName, "not-in-store",
                                "not cached in the store; an ad-list refresh starts");
        });
        prepareAD_TNSDK();
        if (singleAd) break;
        continue;
      }

      // The row's own file name is not compared with the served one: the query already
      // matched on it.
      Text rule = stringForKeyPath(ad, kFrequencyRulePath);
      if (rule) rule = collapseBlanksAndTabs(*rule);
      if (adid) inspection.lastRuleByAd[*adid] = rule.value_or("");
      if (inspection.active()) inspection.note = {};
      const auto path = getFreqPassVideoPath(rule, *fileName, adid);
      inspection.emit([&] {
        return frequencyOutcome(inspection.note, adid, fileName, rule, path.has_value());
      });
      if (!path) continue;  // a single ad ends the loop here as well

      tnADPlayStart(*path, ad);
      played = true;
      break;
    }
  } catch (...) {
    // A start that failed half-way (a server answer the player set-up cannot walk) must not
    // leave the host's status bar hidden or a control behind.
    if (!played) {
      init_player();
      platform()->application->setStatusBarHidden(isAppStatusBarHidden);
    }
    reportNoAdUnlessPlayed();
    throw;
  }
  reportNoAdUnlessPlayed();
}

}  // namespace tovani
