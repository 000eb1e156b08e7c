#include "Scenario.hpp"

#include <array>
#include <cmath>
#include <set>
#include <stdexcept>

#include "Faults.hpp"
#include "Fixtures.hpp"

namespace tovani::adserver {
namespace {

using nlohmann::json;

// The extension elements the SDK reads, in the order a real answer lists them.
constexpr std::array<const char*, 13> kExtensions{
    "ClickThrough", "Click",         "ClickType",       "SkipUse",  "EndcardUse",
    "VideoClick",   "ClickProgress", "EndcardProgress", "Complete", "Etc",
    "Impression",   "frequency",     "frequency1"};
constexpr std::array<const char*, 5> kEvents{"start", "firstQuartile", "midpoint", "thirdQuartile",
                                             "complete"};

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error("scenario: " + what);
}

struct Context {
  const HostNames& hosts;
  const std::filesystem::path& fixtures;
};

// Scalars as a server writes them into text: numbers in decimal, booleans as words.
std::string scalarText(const json& value, const std::string& where) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_number_integer() || value.is_number_unsigned() || value.is_boolean()) {
    return value.dump();
  }
  if (value.is_number_float()) {
    const double d = value.get<double>();
    return d == std::floor(d) && std::abs(d) < 1e15 ? std::to_string(static_cast<long long>(d))
                                                    : value.dump();
  }
  fail(where + " must be a string, a number or a boolean");
}

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

std::string expand(std::string text, const HostNames& hosts) {
  replaceAll(text, "{base}", "http://" + hosts.production);
  replaceAll(text, "{test_host}", hosts.test);
  replaceAll(text, "{host}", hosts.production);
  replaceAll(text, "{cdn}", hosts.cdnUrl);
  return text;
}

void expandAll(json& value, const HostNames& hosts) {
  if (value.is_string()) {
    value = expand(value.get<std::string>(), hosts);
  } else if (value.is_structured()) {
    for (auto& child : value) expandAll(child, hosts);
  }
}

std::string beacon(const std::string& adsNo, const std::string& event) {
  return "{base}/track/" + adsNo + "/" + event + "?ad=" + adsNo + "&ev=" + event;
}

// A whole number of seconds goes out as an integer, as the real list does.
json durationValue(double seconds) {
  const double whole = std::round(seconds);
  if (std::abs(seconds - whole) < 0.05) return static_cast<long long>(whole);
  return seconds;
}

json resolveSource(const json& given, const std::string& adsNo, std::size_t index,
                   const Context& ctx) {
  if (!given.is_object()) fail("advert " + adsNo + ": a source must be an object");
  json out = {{"code", "V" + adsNo + "-" + std::to_string(index + 1)},
              {"start", "2024-01-01 00:00:00"},
              {"end", "2099-12-31 23:59:59"},
              {"imp_url", beacon(adsNo, "imp")},
              {"click_url", beacon(adsNo, "click")},
              {"ext_url", beacon(adsNo, "ext")},
              {"skip_url", beacon(adsNo, "skip")},
              {"end_url", beacon(adsNo, "end")},
              {"mid_url", beacon(adsNo, "mid")},
              {"policy",
               {{"duration", 0},
                {"width", 160},
                {"height", 90},
                {"mimetype", "video/mp4"},
                {"clicktype", "type1-1"}}}};
  if (given.contains("video")) {
    const std::string video = scalarText(given["video"], "video");
    const auto bytes = readFixture(ctx.fixtures, video);
    if (!bytes) fail("advert " + adsNo + ": no video fixture named \"" + video + "\"");
    out["value"] = "{cdn}video/" + video;
    out["policy"]["duration"] = durationValue(mp4DurationSeconds(*bytes).value_or(0));
  } else if (!given.contains("value")) {
    fail("advert " + adsNo + ": a source needs \"video\" (a fixture) or \"value\" (a URL)");
  }
  json patch = given;
  patch.erase("video");
  out.merge_patch(patch);
  return out;
}

json resolveAdvert(const json& given, const Context& ctx) {
  if (!given.is_object() || !given.contains("ads_no")) {
    fail("every advert needs an \"ads_no\"");
  }
  const std::string adsNo = scalarText(given["ads_no"], "ads_no");
  if (!given.contains("sources")) fail("advert " + adsNo + " has no \"sources\"");
  json out = {{"ads_no", given["ads_no"]},
              {"slot", "DEMO_SLOT"},
              {"url", "https://www.example.com/landing/" + adsNo},
              {"start", "2024-01-01 00:00:00"},
              {"end", "2099-12-31 23:59:59"},
              {"policy", {{"campaign", "campaign-" + adsNo}, {"product", "product-" + adsNo}}}};
  json patch = given;
  patch.erase("sources");
  out.merge_patch(patch);
  const json& sources = given["sources"];
  if (sources.is_array()) {
    // A deliberately empty list is kept: it is one of the shapes a real server sends.
    out["sources"] = json::array();
    for (std::size_t i = 0; i < sources.size(); ++i) {
      out["sources"].push_back(resolveSource(sources[i], adsNo, i, ctx));
    }
  } else if (!sources.is_null()) {
    fail("advert " + adsNo + ": \"sources\" must be a list (or null to leave it out)");
  }
  expandAll(out, ctx.hosts);
  return out;
}

const json* findFirstSource(const json& adverts, const std::string& id) {
  for (const auto& advert : adverts) {
    if (scalarText(advert["ads_no"], "ads_no") != id) continue;
    const auto sources = advert.find("sources");
    if (sources != advert.end() && sources->is_array() && !sources->empty()) {
      return &sources->front();
    }
  }
  return nullptr;
}

// Known names first, in their usual order, then whatever else the scenario adds.
template <std::size_t N>
std::vector<std::pair<std::string, std::string>> orderedTexts(
    const json& values, const std::array<const char*, N>& known, const Context& ctx) {
  std::vector<std::pair<std::string, std::string>> out;
  std::set<std::string> done;
  for (const char* name : known) {
    if (values.contains(name))
      out.emplace_back(name, expand(scalarText(values[name], name), ctx.hosts));
    done.insert(name);
  }
  for (const auto& [name, value] : values.items()) {
    if (!done.count(name)) out.emplace_back(name, expand(scalarText(value, name), ctx.hosts));
  }
  return out;
}

VastAd resolveVastAd(const json& given, const json& adverts, const Context& ctx) {
  static const std::set<std::string> kKeys{"id",     "video",    "media_url",  "duration", "width",
                                           "height", "mimetype", "extensions", "tracking"};
  if (!given.is_object() || !given.contains("id")) fail("every VAST ad needs an \"id\"");
  for (const auto& [key, value] : given.items()) {
    if (!kKeys.count(key)) fail("unknown VAST ad key \"" + key + "\"");
  }
  VastAd ad;
  ad.id = scalarText(given["id"], "id");
  const json* source = findFirstSource(adverts, ad.id);
  const json policy = source != nullptr ? source->value("policy", json::object()) : json::object();
  double fixtureDuration = 0;
  if (given.contains("media_url")) {
    ad.mediaUrl = expand(scalarText(given["media_url"], "media_url"), ctx.hosts);
  } else if (given.contains("video")) {
    const std::string video = scalarText(given["video"], "video");
    const auto bytes = readFixture(ctx.fixtures, video);
    if (!bytes) fail("VAST ad " + ad.id + ": no video fixture named \"" + video + "\"");
    ad.mediaUrl = expand("{cdn}video/" + video, ctx.hosts);
    fixtureDuration = mp4DurationSeconds(*bytes).value_or(0);
  } else if (source != nullptr && source->contains("value")) {
    ad.mediaUrl = scalarText((*source)["value"], "value");
  } else {
    fail("VAST ad " + ad.id + " needs \"video\" or \"media_url\" (or an advert to take it from)");
  }
  const auto pick = [&](const char* key, json fallback) {
    return given.contains(key) ? given[key] : policy.value(key, std::move(fallback));
  };
  ad.mimetype = scalarText(pick("mimetype", "video/mp4"), "mimetype");
  ad.width = pick("width", 160).get<int>();
  ad.height = pick("height", 90).get<int>();
  ad.duration = fixtureDuration > 0 && !given.contains("duration")
                    ? fixtureDuration
                    : pick("duration", 0).get<double>();

  const std::string landing = "https://www.example.com/landing/" + ad.id;
  json extensions = {{"ClickThrough", landing},
                     {"Click", beacon(ad.id, "click")},
                     {"ClickType", policy.value("clicktype", json("type1-1"))},
                     {"SkipUse", "true"},
                     {"EndcardUse", "true"},
                     {"VideoClick", beacon(ad.id, "videoclick")},
                     {"ClickProgress", beacon(ad.id, "clickprogress")},
                     {"EndcardProgress", beacon(ad.id, "endcardprogress")},
                     {"Complete", beacon(ad.id, "ext_complete")},
                     {"Etc", "{cdn}images/endcard_bg.png^100" + ad.id},
                     {"Impression", beacon(ad.id, "impression")},
                     {"frequency", ""},
                     {"frequency1", ""}};
  for (const auto& advert : adverts) {
    if (scalarText(advert["ads_no"], "ads_no") == ad.id && advert.contains("url")) {
      extensions["ClickThrough"] = advert["url"];
    }
  }
  json tracking = json::object();
  for (const char* event : kEvents) tracking[event] = beacon(ad.id, event);
  for (auto [key, target] : {std::pair{"extensions", &extensions}, {"tracking", &tracking}}) {
    if (!given.contains(key)) continue;
    if (!given[key].is_object()) fail("VAST ad " + ad.id + ": \"" + key + "\" must be an object");
    target->merge_patch(given[key]);
  }
  ad.extensions = orderedTexts(extensions, kExtensions, ctx);
  ad.tracking = orderedTexts(tracking, kEvents, ctx);
  return ad;
}

Scenario resolve(const json& doc, const HostNames& hosts,
                 const std::filesystem::path& fixturesDir) {
  static const std::set<std::string> kKeys{
      "name", "description", "uuid",          "rotate",          "adverts",
      "vast", "faults",      "vast_document", "adlist_document", "endcard_document"};
  for (const auto& [key, value] : doc.items()) {
    if (!kKeys.count(key)) fail("unknown key \"" + key + "\"");
  }
  const Context ctx{hosts, fixturesDir};
  Scenario s;
  s.name = doc.value("name", "unnamed");
  s.description = doc.value("description", "");
  if (doc.contains("uuid")) s.uuid = scalarText(doc["uuid"], "uuid");
  s.rotate = doc.value("rotate", false);
  const json adverts = doc.value("adverts", json::array());
  if (!adverts.is_array()) fail("\"adverts\" must be a list");
  for (const auto& advert : adverts) s.adverts.push_back(resolveAdvert(advert, ctx));
  if (doc.contains("vast")) {
    if (!doc["vast"].is_array()) fail("\"vast\" must be a list");
    for (const auto& ad : doc["vast"]) s.vast.push_back(resolveVastAd(ad, s.adverts, ctx));
  } else {
    for (const auto& advert : s.adverts) {
      s.vast.push_back(resolveVastAd({{"id", advert["ads_no"]}}, s.adverts, ctx));
    }
  }
  if (doc.contains("vast_document")) {
    s.vastDocument = expand(scalarText(doc["vast_document"], "vast_document"), hosts);
  }
  if (doc.contains("adlist_document")) {
    s.adlistDocument = expand(scalarText(doc["adlist_document"], "adlist_document"), hosts);
  }
  if (doc.contains("endcard_document")) {
    s.endcardDocument = expand(scalarText(doc["endcard_document"], "endcard_document"), hosts);
  }
  if (doc.contains("faults")) {
    try {
      FaultBoard check;
      check.apply(doc["faults"]);
    } catch (const std::invalid_argument& e) {
      fail(e.what());
    }
    s.faults = doc["faults"];
  }
  return s;
}

}  // namespace

Scenario loadScenario(const std::string& text, const HostNames& hosts,
                      const std::filesystem::path& fixturesDir) {
  const json doc = json::parse(text, nullptr, false);
  if (doc.is_discarded() || !doc.is_object()) fail("not a JSON object");
  try {
    return resolve(doc, hosts, fixturesDir);
  } catch (const json::exception& e) {
    // A value of the wrong type somewhere in the file.
    fail(e.what());
  }
}

nlohmann::json scenarioToJson(const Scenario& s) {
  json vast = json::array();
  for (const auto& ad : s.vast) {
    json extensions = json::object();
    for (const auto& [name, value] : ad.extensions) extensions[name] = value;
    json tracking = json::object();
    for (const auto& [event, url] : ad.tracking) tracking[event] = url;
    vast.push_back({{"id", ad.id},
                    {"media_url", ad.mediaUrl},
                    {"mimetype", ad.mimetype},
                    {"width", ad.width},
                    {"height", ad.height},
                    {"duration", ad.duration},
                    {"extensions", extensions},
                    {"tracking", tracking}});
  }
  json out = {{"name", s.name},     {"description", s.description},
              {"rotate", s.rotate}, {"adverts", s.adverts},
              {"vast", vast},       {"faults", s.faults}};
  if (s.uuid) out["uuid"] = *s.uuid;
  if (s.vastDocument) out["vast_document"] = *s.vastDocument;
  if (s.adlistDocument) out["adlist_document"] = *s.adlistDocument;
  if (s.endcardDocument) out["endcard_document"] = *s.endcardDocument;
  return out;
}

}  // namespace tovani::adserver
