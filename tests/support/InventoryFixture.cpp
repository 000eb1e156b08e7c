#include "support/InventoryFixture.hpp"

#include "tovani/TovaniSDK.hpp"

namespace tovani::test {

bool isAdListRequest(const std::string& url) {
  return url.find("?xml=json&") != std::string::npos;
}

bool isAdRequest(const std::string& url) {
  return url.find("?xml=vast&") != std::string::npos;
}

void InventoryWorld::answerAdList(const std::string& body, double delay) {
  tp.http->on(isAdListRequest, answer(body, delay));
}

void InventoryWorld::start() {
  TovaniSDK::setPlatform(tp.platform);
  TovaniSDK::delegate(host);
  TovaniSDK::init(kMedia, kSlot);
}

std::shared_ptr<tovaniViewer> InventoryWorld::viewer() const {
  return TovaniSDK::sharedInstance()->getMainViewer();
}

std::vector<std::string> InventoryWorld::adListUrls() const {
  std::vector<std::string> out;
  for (const auto& url : tp.http->urls(ScriptedHttp::Kind::Data)) {
    if (isAdListRequest(url)) out.push_back(url);
  }
  return out;
}

std::vector<std::string> InventoryWorld::adUrls() const {
  std::vector<std::string> out;
  for (const auto& url : tp.http->urls(ScriptedHttp::Kind::Data)) {
    if (isAdRequest(url)) out.push_back(url);
  }
  return out;
}

std::vector<std::string> InventoryWorld::downloadUrls() const {
  return tp.http->urls(ScriptedHttp::Kind::Download);
}

void InventoryWorld::addVideoRow(const std::string& adsNo, const std::string& url,
                                 const std::string& fileName, int useFlag) const {
  execOnStore(storePath(),
              "insert into tn_adverts(ads_no, sources_value, video_filename, use_flag) values('" +
                  adsNo + "','" + url + "','" + fileName + "'," + std::to_string(useFlag) + ")");
}

std::vector<std::string> InventoryWorld::useFlags(const std::string& fileName) const {
  std::vector<std::string> flags;
  for (const auto& row : queryStore(storePath(),
                                    "select use_flag from tn_adverts where "
                                    "video_filename = '" +
                                        fileName + "' order by rowid")) {
    flags.push_back(row.at(0));
  }
  return flags;
}

std::vector<std::vector<std::string>> InventoryWorld::adverts(const std::string& columns) const {
  return queryStore(storePath(), "select " + columns + " from tn_adverts order by rowid");
}

ScriptedHttp::Answer answer(std::string body, double delay, long status) {
  ScriptedHttp::Answer a;
  a.body = std::move(body);
  a.delay = delay;
  a.status = status;
  return a;
}

ScriptedHttp::Answer failure(double delay) {
  ScriptedHttp::Answer a;
  a.status = 0;
  a.error = HttpError{-1004, "Could not connect to the server."};
  a.delay = delay;
  return a;
}

std::string advertJson(const std::string& adsNo, const std::string& videoUrl,
                       const std::string& impUrl) {
  return R"({"ads_no":")" + adsNo + R"(","slot":"S","sources":[{"value":")" + videoUrl +
         R"(","imp_url":")" + impUrl + R"("}]})";
}

std::string adListJson(const std::vector<std::string>& adverts,
                       const std::optional<std::string>& uuid) {
  std::string body = "{";
  if (uuid) body += R"("uuid":")" + *uuid + R"(",)";
  body += R"("adverts":[)";
  for (size_t i = 0; i < adverts.size(); ++i) body += (i ? "," : "") + adverts[i];
  return body + "]}";
}

}  // namespace tovani::test
