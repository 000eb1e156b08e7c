#include "support/ViewerFixture.hpp"

namespace tovani::test {

std::string advertJson(const std::string& adsNo, const std::string& url,
                       const std::string& impUrl) {
  return R"({"ads_no":")" + adsNo + R"(","slot":"S","sources":[{"value":")" + url +
         R"(","imp_url":")" + impUrl + R"("}]})";
}

std::string adListJson(const Strings& adverts, const Text& uuid) {
  std::string body = uuid ? R"({"uuid":")" + *uuid + R"(","adverts":[)" : R"({"adverts":[)";
  for (size_t i = 0; i < adverts.size(); ++i) body += (i ? "," : "") + adverts[i];
  return body + "]}";
}

std::string adXml(const ScreenAd& ad) {
  const auto e = [](const std::string& name, const Text& value) {
    return value ? "<" + name + ">" + *value + "</" + name + ">" : "";
  };
  std::string xml =
      "<Ad id=\"" + ad.id + "\"><InLine><Creatives><Creative><Linear><TrackingEvents>";
  for (std::string event : {"start", "firstQuartile", "midpoint", "thirdQuartile", "complete"})
    xml += "<Tracking event=\"" + event + "\">" + kTrack + event + "</Tracking>";
  return xml + "</TrackingEvents><MediaFiles>" +
         e("MediaFile", ad.media.empty() ? videoUrl(ad.fileName) : ad.media) +
         "</MediaFiles></Linear></Creative></Creatives><Extensions>" +
         e("ClickThrough", "https://apps.example/" + ad.id) + e("Click", kTrack + "click") +
         e("ClickType", ad.clickType) + e("SkipUse", ad.skipUse) + e("EndcardUse", ad.endcardUse) +
         e("VideoClick", kTrack + "videoclick") + e("ClickProgress", kTrack + "clickprogress") +
         e("Complete", kTrack + "extcomplete") + e("Etc", "https://cdn.example/bg.jpg^1234") +
         e("Impression", kTrack + "impression") + e("frequency1", ad.frequency) +
         "</Extensions></InLine></Ad>";
}

ViewerFixture::ViewerFixture(bool withStore) {
  if (withStore) createStoreFile(storePath());
  // Readings a whole number of seconds apart must not straddle a second boundary.
  tp.clock->setEpoch(1795262400.5);
  answerAdList(R"({"adverts":[]})");
  // Bytes that read as a PNG image and tell which file they came from.
  for (std::string name : {"0_skip", "1_skip", "2_skip", "3_skip", "4_skip", "5_skip", "click"})
    tp.http->onExact(TOVANI_URL_CDN + ("button/" + name + ".png"),
                     answer("\x89PNG\r\n\x1a\n" + name));
}

void ViewerFixture::answerAdList(const std::string& body, double delay) {
  tp.http->on([](const std::string& url) { return url.find("?xml=json&") != std::string::npos; },
              answer(body, delay));
}

void ViewerFixture::start() {
  TovaniSDK::setPlatform(tp.platform);
  TovaniSDK::delegate(host);
  TovaniSDK::init("M", "S");
  tp.runUntilIdle();
}

Strings ViewerFixture::urls(Kind kind, const std::string& part) const {
  Strings all = tp.http->urls(kind);
  std::erase_if(all, [&](const std::string& url) { return url.find(part) == std::string::npos; });
  return all;
}

void ViewerFixture::addRow(const std::string& id, const std::string& file, int useFlag,
                           const std::string& url) {
  const std::string sql = "insert into tn_adverts(ads_no, sources_value, video_filename, use_flag)";
  execOnStore(storePath(), sql + " values('" + id + "','" + (url.empty() ? videoUrl(file) : url) +
                               "','" + file + "'," + std::to_string(useFlag) + ")");
}

void ViewerFixture::addCached(const std::string& id, const std::string& file) {
  addRow(id, file, 1);
  writeFile(tp.documentsFile(file), "video of " + id);
}

void ViewerFixture::addShowings(const std::string& id, const std::string& regDateSql, int count) {
  for (int i = 0; i < count; ++i)
    execOnStore(storePath(), "insert into tn_ads_freq(ads_no, reg_date) values('" + id + "'," +
                                 regDateSql + ")");
}

Strings ViewerFixture::column(const std::string& sql) const {
  Strings out;
  for (const auto& row : queryStore(storePath(), sql)) out.push_back(row.at(0));
  return out;
}

std::string ViewerFixture::screen() const {
  const auto v = viewer();
  std::string out = onScreen(v) ? "viewer" : "";
  const std::pair<const char*, std::shared_ptr<View>> parts[] = {
      {" video", v->tnAdPlayerLayer},
      {" time", v->tnVidoeTimeRemain},
      {" skip", v->skipevent_imageview},
      {" action", v->actionevent_imageview},
      {" card", v->tnAdEndCardView}};
  for (const auto& [name, view] : parts) {
    if (!onScreen(view)) continue;
    out += name + std::string(view->zPosition == 9999 ? "^" : "");
    // The skip button shows its countdown digit: the first letter of its image's name.
    if (view == v->skipevent_imageview && view->image)
      out += view->image->sourceUrl.substr(view->image->sourceUrl.rfind('/') + 1, 1);
  }
  out += " |";
  for (int32_t result : host->results) out += " " + std::to_string(result);
  return out;
}

}  // namespace tovani::test
