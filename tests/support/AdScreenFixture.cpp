#include "support/AdScreenFixture.hpp"

#include <algorithm>

#include "tovani/Constants.hpp"
#include "tovani/TovaniSDK.hpp"

namespace tovani::test {

namespace {

ScriptedHttp::Answer answer(std::string body, long status = 200) {
  ScriptedHttp::Answer a;
  a.body = std::move(body);
  a.status = status;
  return a;
}

constexpr const char* kStoreFileName = "tnad_005.data";

std::string element(const char* name, const std::optional<std::string>& value) {
  if (!value) return {};
  return std::string("<") + name + ">" + *value + "</" + name + ">";
}

std::string tracking(const char* event) {
  return std::string("<Tracking event=\"") + event + "\">http://track.example/" + event +
         "?ad=7</Tracking>";
}

// Bytes that read as a PNG image and tell which file they came from.
std::string pngNamed(const std::string& name) {
  return std::string("\x89PNG\r\n\x1a\n", 8) + name;
}

}  // namespace

AdScreenFixture::AdScreenFixture() {
  createStoreFile(tp.documentsFile(kStoreFileName));
  // Whole seconds of the clock must not straddle a second boundary between two readings
  // taken a whole number of seconds apart.
  tp.clock->setEpoch(1795262400.5);
  tp.http->on([](const std::string& url) { return url.find("xml=json") != std::string::npos; },
              answer(R"({"adverts":[]})"));
  for (int n = 0; n < 6; ++n) {
    const std::string name = std::to_string(n) + "_skip.png";
    tp.http->onExact(cdnImage(name), answer(pngNamed(name)));
  }
  tp.http->onExact(cdnImage("click.png"), answer(pngNamed("click.png")));
}

std::string AdScreenFixture::cdnImage(const std::string& name) {
  return std::string(TOVANI_URL_CDN) + "button/" + name;
}

void AdScreenFixture::failCdnImage(const std::string& name) {
  tp.http->onExact(cdnImage(name), answer("", 404));
}

std::string AdScreenFixture::vast(const ScreenAd& ad) {
  return "<VAST version=\"3.0\"><Ad id=\"" + ad.id +
         "\"><InLine><Creatives><Creative><Linear><TrackingEvents>" + tracking("start") +
         tracking("firstQuartile") + tracking("midpoint") + tracking("thirdQuartile") +
         tracking("complete") +
         "</TrackingEvents><MediaFiles><MediaFile>https://cdn.tovani.example/video/" + ad.fileName +
         "</MediaFile></MediaFiles></Linear></Creative></Creatives><Extensions>" +
         element("ClickThrough", ad.clickThrough) + element("Click", beacon::kClick) +
         element("ClickType", ad.clickType) + element("SkipUse", ad.skipUse) +
         element("EndcardUse", ad.endcardUse) + element("VideoClick", beacon::kVideoClick) +
         element("ClickProgress", beacon::kClickProgress) +
         element("Complete", beacon::kExtComplete) + element("Etc", ad.etc) +
         element("Impression", beacon::kImpression) + "</Extensions></InLine></Ad></VAST>";
}

void AdScreenFixture::start() {
  if (started_) return;
  TovaniSDK::setPlatform(tp.platform);
  TovaniSDK::init("M", "S");
  tp.runUntilIdle();
  TovaniSDK::delegate(host);
  started_ = true;
}

void AdScreenFixture::show(const ScreenAd& ad) {
  start();
  execOnStore(tp.documentsFile(kStoreFileName),
              "insert into tn_adverts(ads_no, sources_value, video_filename, use_flag) values('" +
                  ad.id + "', 'https://cdn.tovani.example/video/" + ad.fileName + "', '" +
                  ad.fileName + "', 1)");
  writeFile(tp.documentsFile(ad.fileName), "video");
  tp.players->durationByFileName[ad.fileName] = ad.duration;
  tp.http->on([](const std::string& url) { return url.find("xml=vast") != std::string::npos; },
              answer(vast(ad)));
  showStartedAt_ = tp.queue->now();
  beaconsBefore_ = tp.http->requests().size();
  TovaniSDK::tovaniShow(hostRoot);
  tp.runUntilIdle();
}

void AdScreenFixture::playTo(double seconds) {
  tp.advance(std::max(0.0, showStartedAt_ + seconds - tp.queue->now()));
}

double AdScreenFixture::playPosition() const {
  return tp.queue->now() - showStartedAt_;
}

std::shared_ptr<tovaniViewer> AdScreenFixture::viewer() const {
  return TovaniSDK::sharedInstance()->getMainViewer();
}

RecordingWebView& AdScreenFixture::endCard() const {
  return *tp.webViews->created.at(0);
}

std::vector<std::pair<std::string, double>> AdScreenFixture::beacons() const {
  std::vector<std::pair<std::string, double>> out;
  const auto& all = tp.http->requests();
  for (size_t i = beaconsBefore_; i < all.size(); ++i) {
    if (all[i].kind == ScriptedHttp::Kind::Beacon)
      out.emplace_back(all[i].url, all[i].at - showStartedAt_);
  }
  return out;
}

int AdScreenFixture::beaconCount(const std::string& url) const {
  const auto sent = beacons();
  return static_cast<int>(
      std::count_if(sent.begin(), sent.end(), [&](const auto& b) { return b.first == url; }));
}

double AdScreenFixture::beaconAt(const std::string& url) const {
  for (const auto& [sent, at] : beacons()) {
    if (sent == url) return at;
  }
  return -1;
}

size_t AdScreenFixture::blockingFetches(const std::string& suffix) const {
  size_t count = 0;
  for (const auto& url : tp.http->urls(ScriptedHttp::Kind::Blocking)) {
    if (url.size() >= suffix.size() &&
        url.compare(url.size() - suffix.size(), suffix.size(), suffix) == 0)
      ++count;
  }
  return count;
}

std::string AdScreenFixture::skipImageName() const {
  const auto& view = viewer()->skipevent_imageview;
  if (!view || !view->image) return {};
  const std::string& url = view->image->sourceUrl;
  return url.substr(url.rfind('/') + 1);
}

bool AdScreenFixture::onScreen(const std::shared_ptr<View>& view) const {
  return view && !view->hidden && view->isDescendantOf(*hostRoot);
}

}  // namespace tovani::test
