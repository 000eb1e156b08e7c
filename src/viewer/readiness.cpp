#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>

#include "net/Reachability.hpp"
#include "store/StoreReader.hpp"
#include "viewer/ProcessState.hpp"
#include "viewer/ReadinessReport.hpp"
#include "viewer/tovaniViewer.hpp"
#include "viewer/video_files.hpp"

namespace tovani {

namespace {

namespace fs = std::filesystem;

constexpr double kCleanupAgeSeconds = 60.0 * 86400.0;

constexpr const char* kAdverts =
    "select ads_no, video_filename, sources_value, use_flag from tn_adverts";
// Impressions as the cap statements date them: by the store engine's clock (UTC). The
// engine writes reg_date as "YYYY-MM-DD HH:MM:SS", so the bounds, worked out once, compare
// as text, instead of three date conversions per row.
constexpr const char* kImpressionBounds =
    "select date('now'), datetime('now', '-7 day'), strftime('%Y-01-01', 'now')";
constexpr const char* kImpressions =
    "select ads_no, sum(reg_date >= ?1), sum(reg_date >= ?2), sum(reg_date >= ?3) "
    "from tn_ads_freq group by ads_no";
constexpr const char* kPeriodCount =
    "select count(*), strftime('%Y%m%d', 'now') between ?2 and ?3, "
    "date(substr(?3, 1, 4) || '-' || substr(?3, 5, 2) || '-' || substr(?3, 7, 2), '+1 day') "
    "from tn_ads_freq where ads_no = ?1 and strftime('%Y%m%d', reg_date) between ?2 and ?3";
// The rolling cap's own comparison, per year: an eight-digit date against a dashed one as
// text, so the cut-off day's year decides.
constexpr const char* kRollingByYear =
    "select strftime('%Y', reg_date), count(*) from tn_ads_freq where ads_no = ?1 and "
    "strftime('%Y%m%d', reg_date) >= date('now', '-' || ?2 || ' day') group by 1 order by 1";
constexpr const char* kRollingFreeFrom =
    "select date(printf('%04d-01-01', ?1 + 1), '+' || ?2 || ' day')";

constexpr const char* kRollingReading =
    "as the store compares it: the cut-off date is compared as text with eight-digit dates, so "
    "every showing since 1 January of the cut-off day's year counts";

std::optional<int64_t> wholeNumber(const std::string& text) {
  if (text.empty() || text.size() > 18) return std::nullopt;
  if (!std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }))
    return std::nullopt;
  return std::strtoll(text.c_str(), nullptr, 10);
}

int64_t number(const std::optional<std::string>& v) {
  return v ? std::strtoll(v->c_str(), nullptr, 10) : 0;
}

ShowWouldDo wouldDo(const tovaniViewer& viewer) {
  if (viewer.ads_init_flag != 1) return ShowWouldDo::ReportFailed;
  if (viewer.db_Init_flag != 1) {
    return isDatabaseDownloading ? ShowWouldDo::ReportNoAd : ShowWouldDo::ReportNoAdAndDownload;
  }
  if (isAdStart) return ShowWouldDo::Ignored;
  return ShowWouldDo::AskServer;
}

std::string reachabilityName(const tovaniViewer& viewer) {
  switch (Reachability::reachabilityForInternetConnection(viewer.platform()->reachability)
              ->currentReachabilityStatus()) {
    case ReachableViaWiFi:
      return "wifi";
    case ReachableViaWWAN:
      return "cellular";
    default:
      return "not reachable";
  }
}

void readAdvert(const tovaniViewer& viewer, const StoreReader::Row& row, Readiness& r) {
  AdvertReadiness a;
  a.adId = row[0].value_or("");
  a.videoFile = row[1].value_or("");
  a.sourceUrl = row[2].value_or("");
  const std::string storeName = viewer.tnDataDBFileName.value_or("");
  const auto problem = videoFileNameProblem(a.videoFile, storeName);
  if (problem || !isDownloadableUrl(a.sourceUrl)) {
    a.cache = CacheState::Refused;
    a.refusedBecause = problem.value_or("source address is not an http(s) URL");
    r.adverts.push_back(std::move(a));
    return;
  }
  const bool downloading = mDownloadList && std::find(mDownloadList->begin(), mDownloadList->end(),
                                                      a.sourceUrl) != mDownloadList->end();
  const auto path = videoFilePath(viewer.tnadDocumentsPath.value_or(""), a.videoFile, storeName);
  std::error_code ec;
  if (path && fs::is_regular_file(fs::status(*path, ec))) {
    const auto size = fs::file_size(*path, ec);
    if (!ec && size > 0) a.fileBytes = static_cast<int64_t>(size);
  }
  const bool present = a.fileBytes.has_value();
  if (downloading) {
    a.cache = CacheState::Downloading;
  } else if (row[3].value_or("") == "1") {
    a.cache = present ? CacheState::Cached : CacheState::RecordedButMissing;
  } else {
    a.cache = CacheState::Waiting;
  }
  if (a.cache == CacheState::Cached) {
    ++r.videosCached;
    r.bytesCached += a.fileBytes.value_or(0);
    if (const auto created = viewer.platform()->device->fileCreationTime(*path)) {
      const double age = viewer.platform()->clock->now() - *created;
      if (!r.oldestCachedAgeSeconds || age > *r.oldestCachedAgeSeconds) {
        r.oldestCachedAgeSeconds = age;
        r.oldestCachedRemovableAt = *created + kCleanupAgeSeconds;
      }
    }
  }
  r.adverts.push_back(std::move(a));
}

}  // namespace

FrequencyStatus readFrequencyStatus(StoreReader& store, const std::string& adid,
                                    const std::string& rule) {
  FrequencyStatus f;
  f.rule = rule;
  f.kind = rule.empty() ? "none" : "malformed";
  const auto fields = splitKeepingEmpty(rule, '|');
  if (fields.size() == 4 && fields[0] == "d" && !fields[1].empty() && !fields[2].empty() &&
      wholeNumber(fields[3])) {
    f.kind = "period";
    f.cap = wholeNumber(fields[3]);
    f.reading = "showings dated from " + fields[1] + " to " + fields[2] + ", while today is in it";
    const auto rows = store.query(kPeriodCount, {adid, fields[1], fields[2]});
    if (!rows.empty() && rows[0].size() == 3) {
      f.counted = number(rows[0][0]);
      f.blocksNow = f.counted >= *f.cap && number(rows[0][1]) == 1;
      if (f.blocksNow) f.blockedUntil = rows[0][2];
    }
  } else if (fields.size() == 3 && fields[0] == "p" && wholeNumber(fields[1]) &&
             wholeNumber(fields[2])) {
    f.kind = "rolling";
    f.cap = wholeNumber(fields[2]);
    f.reading = kRollingReading;
    const auto years = store.query(kRollingByYear, {adid, fields[1]});
    for (const auto& y : years) f.counted += y.size() == 2 ? number(y[1]) : 0;
    f.blocksNow = f.counted >= *f.cap;
    // Each year's showings stop counting once the cut-off day has left that year; the cap
    // frees when enough of the oldest years have gone.
    int64_t left = f.counted;
    for (const auto& y : years) {
      if (!f.blocksNow || y.size() != 2) break;
      left -= number(y[1]);
      if (left < *f.cap) {
        const auto free = store.query(kRollingFreeFrom, {y[0].value_or("0"), fields[1]});
        if (!free.empty() && !free[0].empty()) f.blockedUntil = free[0][0];
        break;
      }
    }
  }
  return f;
}

Readiness readViewerReadiness(const tovaniViewer& viewer) {
  Readiness r;
  r.started = viewer.ads_init_flag == 1;
  r.wouldDo = wouldDo(viewer);
  r.storeDownloading = isDatabaseDownloading;
  r.requestInFlight = isAdStart;
  r.reachability = reachabilityName(viewer);
  if (!viewer.tnadDocumentsPath || !viewer.tnDataDBFileName) return r;
  const std::string path = viewer.storePath();
  std::error_code ec;
  r.storePresent = fs::is_regular_file(path, ec) && fs::file_size(path, ec) > 0 && !ec;
  if (!r.storePresent) return r;

  StoreReader store(path);
  const auto adverts = store.query(kAdverts);
  std::map<std::string, AdvertReadiness*> byId;
  for (const auto& row : adverts) {
    if (row.size() == 4) readAdvert(viewer, row, r);
  }
  for (auto& a : r.adverts) byId.emplace(a.adId, &a);
  const auto bounds = store.query(kImpressionBounds);
  const auto bound = [&](size_t i) {
    return bounds.size() == 1 && bounds[0].size() == 3 ? bounds[0][i].value_or("") : "";
  };
  for (const auto& row : store.query(kImpressions, {bound(0), bound(1), bound(2)})) {
    if (row.size() != 4 || !row[0]) continue;
    auto it = byId.find(*row[0]);
    if (it == byId.end()) continue;
    it->second->impressionsToday = number(row[1]);
    it->second->impressionsLast7Days = number(row[2]);
    it->second->impressionsThisYear = number(row[3]);
  }
  for (auto& a : r.adverts) {
    auto seen = viewer.inspection.lastRuleByAd.find(a.adId);
    if (seen != viewer.inspection.lastRuleByAd.end())
      a.frequency = readFrequencyStatus(store, a.adId, seen->second);
  }
  r.advertCount = static_cast<int64_t>(r.adverts.size());
  r.storeReadable = store.ok();
  r.problem = store.problem();
  return r;
}

const char* showWouldDoName(ShowWouldDo value) {
  switch (value) {
    case ShowWouldDo::Nothing:
      return "nothing (the SDK is not created yet)";
    case ShowWouldDo::ReportFailed:
      return "report 2 (not started)";
    case ShowWouldDo::ReportNoAdAndDownload:
      return "report 1 and download the store";
    case ShowWouldDo::ReportNoAd:
      return "report 1 (the store is downloading)";
    case ShowWouldDo::Ignored:
      return "ignore the call (an ad request is in flight)";
    case ShowWouldDo::AskServer:
      return "ask the ad server";
  }
  return "unknown";
}

const char* cacheStateName(CacheState value) {
  switch (value) {
    case CacheState::Cached:
      return "cached";
    case CacheState::Waiting:
      return "waiting";
    case CacheState::Downloading:
      return "downloading";
    case CacheState::RecordedButMissing:
      return "recorded as cached, file missing";
    case CacheState::Refused:
      return "refused";
  }
  return "unknown";
}

}  // namespace tovani
