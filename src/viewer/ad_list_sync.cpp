#include <algorithm>
#include <chrono>
#include <memory>
#include <string>

#include "net/Url.hpp"
#include "net/tovaniUtils.hpp"
#include "store/CheckedStatement.hpp"
#include "store/Statements.hpp"
#include "util/Guard.hpp"
#include "viewer/ProcessState.hpp"
#include "viewer/ad_list_json.hpp"
#include "viewer/tovaniViewer.hpp"
#include "viewer/video_files.hpp"

namespace tovani {

namespace {

using adlist::Json;
using adlist::member;
using adlist::valueText;

// The issued identity is kept only when it is a non-empty string. Anything else is not
// stored, so the device stays without an identity and the next sync asks again, instead
// of keeping a placeholder text as its identity for good.
void adoptDeviceIdentity(tovaniViewer& viewer, const Json& list) {
  const Json* uuid = member(&list, "uuid");
  if (!uuid || !uuid->is_string() || uuid->get_ref<const std::string&>().empty()) {
    viewer.log("tovani: ad list carries no device id; none stored");
    return;
  }
  const std::string& id = uuid->get_ref<const std::string&>();
  // Bare for the rest of this run; the next start-up reads it back with the "$" mark.
  viewer.tnUUIDStr = id;
  const Text mcc = viewer.tnCarrier ? viewer.tnCarrier->mobileCountryCode : std::nullopt;
  const Text mnc = viewer.tnCarrier ? viewer.tnCarrier->mobileNetworkCode : std::nullopt;
  viewer.tnDataManager->executeQuery(formatStatement(sql::kInsertDevice, {id, mcc, mnc}));
}

// The first source of an advert, or nullptr (logged) when the advert cannot be stored.
const Json* firstSource(tovaniViewer& viewer, const Json& advert, size_t index) {
  const std::string where = "tovani: advert " + std::to_string(index) + " skipped: ";
  if (!advert.is_object()) {
    viewer.log(where + "not an object");
    return nullptr;
  }
  const Json* sources = member(&advert, "sources");
  if (!sources || !sources->is_array() || sources->empty()) {
    viewer.log(where + "no sources");
    return nullptr;
  }
  const Json& source = sources->front();
  if (!source.is_object()) {
    viewer.log(where + "first source is not an object");
    return nullptr;
  }
  return &source;
}

// The cached file's name for a source value: the URL's last path component, provided the
// value is an http(s) URL and the name is safe to use as a file in the documents folder.
std::optional<std::string> videoFileNameFor(tovaniViewer& viewer, const Json* value, size_t index) {
  const std::string where = "tovani: advert " + std::to_string(index) + " skipped: ";
  if (!value || !value->is_string() || !isDownloadableUrl(value->get_ref<const std::string&>())) {
    viewer.log(where + "source value is not an http(s) URL");
    return std::nullopt;
  }
  const auto name = lastPathComponentOfUrl(value->get_ref<const std::string&>());
  if (!name) return std::nullopt;
  if (auto problem = videoFileNameProblem(*name, viewer.tnDataDBFileName.value_or(""))) {
    viewer.log(where + "video file name refused (" + *problem + ")");
    return std::nullopt;
  }
  return name;
}

// Stores the advert when its advert/video pair is new. Returns whether a row was written.
bool storeAdvert(tovaniViewer& viewer, const Json& advert, size_t index) {
  const Json* source = firstSource(viewer, advert, index);
  if (!source) return false;
  const Json* value = member(source, "value");
  const auto fileName = videoFileNameFor(viewer, value, index);
  if (!fileName) return false;

  const Text adsNo = valueText(member(&advert, "ads_no"));
  const StoreRows known = *viewer.tnDataManager->loadDataFromDB(
      formatStatement(sql::kSelectAdvert, {adsNo, *fileName}));
  // A known advert/video pair stays as first stored; nothing is updated or deleted.
  if (!known.empty()) return false;

  const Json* policy = member(&advert, "policy");
  const Json* sourcePolicy = member(source, "policy");
  // A key missing at either level is stored as "(null)", the text of an absent value.
  const auto sourceText = [&](const char* key) { return valueText(member(source, key)); };
  const auto policyText = [&](const char* key) { return valueText(member(sourcePolicy, key)); };
  viewer.tnDataManager->executeQuery(
      formatStatement(sql::kInsertAdvert, {adsNo,
                                           valueText(member(&advert, "slot")),
                                           valueText(member(&advert, "url")),
                                           valueText(member(&advert, "start")),
                                           valueText(member(&advert, "end")),
                                           valueText(member(policy, "campaign")),
                                           valueText(member(policy, "product")),
                                           sourceText("code"),
                                           sourceText("start"),
                                           sourceText("end"),
                                           valueText(value),
                                           policyText("duration"),
                                           policyText("width"),
                                           policyText("height"),
                                           policyText("mimetype"),
                                           policyText("clicktype"),
                                           sourceText("imp_url"),
                                           sourceText("click_url"),
                                           sourceText("ext_url"),
                                           sourceText("skip_url"),
                                           sourceText("end_url"),
                                           sourceText("mid_url"),
                                           *fileName}));
  return true;
}

// The adverts of one answer, stored a few at a time.
struct PendingAdverts {
  Json list;
  size_t next = 0;
};

// Every new row costs a store commit, tens of milliseconds on a slow disk. A long list is
// therefore stored over several turns of the main queue so that the host's thread never
// stalls for long; each advert is still checked and inserted within one turn, so overlapping
// syncs cannot insert a pair twice. The queue starts once the whole list is stored.
void storeAdverts(const std::shared_ptr<tovaniViewer>& viewer,
                  const std::shared_ptr<PendingAdverts>& pending) {
  const Json* adverts = member(&pending->list, "adverts");
  const size_t count = adverts && adverts->is_array() ? adverts->size() : 0;
  const size_t end = std::min(count, adlist::kMaxAdverts);
  size_t inserted = 0;
  size_t examined = 0;
  // A slow store (a hostile view behind tn_adverts, say) must not hold the thread either.
  const auto turnEnds = std::chrono::steady_clock::now() + adlist::kTurnBudget;
  while (pending->next < end && inserted < adlist::kInsertsPerTurn &&
         examined < adlist::kAdvertsPerTurn && std::chrono::steady_clock::now() < turnEnds) {
    const size_t index = pending->next++;
    ++examined;
    if (storeAdvert(*viewer, (*adverts)[index], index)) ++inserted;
  }
  if (pending->next < end) {
    viewer->platform()->mainQueue->post(
        guarded(viewer->platform()->log, [viewer, pending] { storeAdverts(viewer, pending); }));
    return;
  }
  if (count > end) {
    viewer->log("tovani: ad list truncated after " + std::to_string(end) + " adverts");
  }
  viewer->checkAndDownloadNext();
}

void adListArrived(const std::shared_ptr<tovaniViewer>& viewer, const StoreRows& deviceRows,
                   const std::string& body, const std::optional<HttpError>& error) {
  if (error) {
    tovaniResult = 2;
    viewer->notification_send();
    return;
  }
  if (!viewer->tnDataManager) return;
  auto pending = std::make_shared<PendingAdverts>();
  pending->list = adlist::parseBody(body);
  if (deviceRows.empty()) adoptDeviceIdentity(*viewer, pending->list);
  storeAdverts(viewer, pending);
}

}  // namespace

void tovaniViewer::getTNJsonList() {
  if (!tnDataManager) return;  // start-up has not run: there is no store to sync into
  const StoreRows deviceRows = *tnDataManager->loadDataFromDB(sql::kSelectDevice);
  for (const auto& row : deviceRows) {
    tnUUIDStr = formatAt("$%@", {row.empty() ? Text() : Text(row.front())});
  }

  tovaniUtils::requestNetwork(*platform(), adRequestURL("json"),
                              [viewer = self(), deviceRows](std::string body, HttpResponse,
                                                            std::optional<HttpError> error) {
                                adListArrived(viewer, deviceRows, body, error);
                              });
}

}  // namespace tovani
