#include "support/ServingFixture.hpp"

#include "tovani/TovaniSDK.hpp"

namespace tovani::test {

namespace {
constexpr const char* kStoreFileName = "tnad_005.data";
}

ServingFixture::ServingFixture() {
  createStoreFile(storeFile());
  TovaniSDK::setPlatform(tp.platform);
  TovaniSDK::delegate(host);
  viewer = TovaniSDK::sharedInstance()->getMainViewer();

  // What start-up would have prepared, without its network traffic.
  viewer->mediaCode = "M";
  viewer->slotCode = "S";
  viewer->tnProviderUrl = TOVANI_PRODUCTION_AD_HOST;
  viewer->tnadDocumentsPath = tp.documents();
  viewer->tnDataDBFileName = kStoreFileName;
  viewer->tnDataManager =
      std::make_shared<tovaniSQL>(tp.documents(), kStoreFileName, std::nullopt, tp.log);
  viewer->timeRemain();
  if (!viewer->tnVidoeTimeRemain)
    viewer->tnVidoeTimeRemain = std::make_shared<View>(View::Kind::Label);
  viewer->tnAdEndCardView = std::make_shared<View>(View::Kind::WebView);
  viewer->tnAdEndCardView->webView = tp.webViews->createWebView();
  viewer->ads_init_flag = 1;
  viewer->db_Init_flag = 1;

  viewer->frame = {0, 0, 375, 667};
  hostRoot->frame = viewer->frame;
  hostRoot->addSubview(viewer);
}

ServingFixture::~ServingFixture() {
  // Answers still on their way hold the viewer; let them arrive (every request has failed
  // or timed out after 3 s) so that nothing is left holding it.
  tp.advance(4);
}

std::string ServingFixture::videoUrl(const std::string& fileName) {
  return "https://cdn.tovani.example/video/" + fileName;
}

std::string ServingFixture::storeFile() const {
  return tp.documentsFile(kStoreFileName);
}

void ServingFixture::addAdvert(const std::string& adsNo, const std::string& fileName, int useFlag,
                               bool writeVideo) {
  execOnStore(storeFile(),
              "insert into tn_adverts(ads_no, sources_value, video_filename, use_flag) values('" +
                  adsNo + "', '" + videoUrl(fileName) + "', '" + fileName + "', " +
                  std::to_string(useFlag) + ")");
  if (writeVideo) writeFile(tp.documentsFile(fileName), "video of " + adsNo);
}

void ServingFixture::addShowing(const std::string& adsNo, const std::string& regDateSql) {
  execOnStore(storeFile(), "insert into tn_ads_freq(ads_no, reg_date) values('" + adsNo + "', " +
                               regDateSql + ")");
}

int ServingFixture::showings(const std::string& adsNo) const {
  return std::stoi(
      queryStore(storeFile(), "select count(*) from tn_ads_freq where ads_no = '" + adsNo + "'")
          .at(0)
          .at(0));
}

int ServingFixture::useFlag(const std::string& fileName) const {
  return std::stoi(
      queryStore(storeFile(),
                 "select use_flag from tn_adverts where video_filename = '" + fileName + "'")
          .at(0)
          .at(0));
}

std::string ServingFixture::sqlValue(const std::string& expression) const {
  return queryStore(storeFile(), "select " + expression).at(0).at(0);
}

size_t ServingFixture::adListRequests() const {
  size_t count = 0;
  for (const auto& url : tp.http->urls(ScriptedHttp::Kind::Data)) {
    if (url.find("xml=json") != std::string::npos) ++count;
  }
  return count;
}

std::vector<std::string> ServingFixture::downloads() const {
  return tp.http->urls(ScriptedHttp::Kind::Download);
}

}  // namespace tovani::test
