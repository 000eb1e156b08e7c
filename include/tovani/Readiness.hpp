#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tovani/Export.hpp"

namespace tovani {

// What tovaniShow would do if called now, as far as it can be told without the server.
enum class ShowWouldDo {
  Nothing,                // no facade call yet: tovaniShow does nothing at all
  ReportFailed,           // not started (init not called or start-up stopped): result 2
  ReportNoAdAndDownload,  // no store: result 1, and the store download starts
  ReportNoAd,             // the store is downloading: result 1
  Ignored,                // an ad request is in flight: the call is ignored
  AskServer,              // an ad request goes out; the answer decides
};

enum class CacheState {
  Cached,              // the record says cached and the file is there (not empty)
  Waiting,             // the record waits for the download queue
  Downloading,         // its source is being downloaded now
  RecordedButMissing,  // the record says cached, the file is not there
  Refused,             // unsafe file name or source address: never downloaded nor played
};

TOVANI_EXPORT const char* showWouldDoName(ShowWouldDo value);
TOVANI_EXPORT const char* cacheStateName(CacheState value);

// The last frequency rule an advert's VAST answer carried in this process, read against the
// store now.
struct TOVANI_EXPORT FrequencyStatus {
  std::string rule;
  std::string kind;     // "period", "rolling", "none" (no rule) or "malformed" (no cap)
  std::string reading;  // how the count was read, in words
  int64_t counted = 0;  // showings the rule counts now
  std::optional<int64_t> cap;
  bool blocksNow = false;
  std::optional<std::string> blockedUntil;  // YYYY-MM-DD: the first day it may show again
};

struct TOVANI_EXPORT AdvertReadiness {
  std::string adId;
  std::string videoFile;
  std::string sourceUrl;
  CacheState cache = CacheState::Waiting;
  std::string refusedBecause;        // set for Refused
  std::optional<int64_t> fileBytes;  // when the file is there
  int64_t impressionsToday = 0;      // store's own clock (UTC), as the cap statements read it
  int64_t impressionsLast7Days = 0;
  int64_t impressionsThisYear = 0;
  std::optional<FrequencyStatus> frequency;  // only for adverts seen in an answer
};

struct TOVANI_EXPORT Readiness {
  ShowWouldDo wouldDo = ShowWouldDo::Nothing;
  bool started = false;        // start-up ran and succeeded
  bool storePresent = false;   // the store file exists and is not empty
  bool storeReadable = false;  // and could be read
  bool storeDownloading = false;
  bool requestInFlight = false;
  std::vector<AdvertReadiness> adverts;  // one per stored advert/video pair
  int64_t advertCount = 0;
  int64_t videosCached = 0;
  int64_t bytesCached = 0;
  std::optional<double> oldestCachedAgeSeconds;
  // When the clean-up at start-up will remove that file (seconds since 1970): the first
  // start-up after this moment.
  std::optional<double> oldestCachedRemovableAt;
  std::string reachability;  // "not reachable", "wifi" or "cellular"
  std::string problem;       // why the store could not be read, when it could not
};

}  // namespace tovani
