#pragma once
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/TestPlatform.hpp"
#include "tovani/View.hpp"
#include "viewer/tovaniViewer.hpp"

namespace tovani::test {

// One ad as the ad server describes it in its VAST answer. An absent optional leaves the
// element out of the answer.
struct ScreenAd {
  std::string id = "7";
  std::string fileName = "ad30.mp4";
  double duration = 30;
  std::optional<std::string> skipUse = std::string("N");
  std::optional<std::string> endcardUse = std::string("true");
  std::optional<std::string> clickType = std::string("type1-1");
  std::optional<std::string> etc = std::string("https://cdn.example/bg.jpg^1234");
  std::optional<std::string> clickThrough = std::string("https://apps.example/7");
};

// Beacon URLs of every ScreenAd: VAST tracking, then the ad server's extension events.
namespace beacon {
inline constexpr const char* kStart = "http://track.example/start?ad=7";
inline constexpr const char* kFirstQuartile = "http://track.example/firstQuartile?ad=7";
inline constexpr const char* kMidpoint = "http://track.example/midpoint?ad=7";
inline constexpr const char* kThirdQuartile = "http://track.example/thirdQuartile?ad=7";
inline constexpr const char* kComplete = "http://track.example/complete?ad=7";
inline constexpr const char* kImpression = "http://track.example/ext/impression";
inline constexpr const char* kClick = "http://track.example/ext/click";
inline constexpr const char* kVideoClick = "http://track.example/ext/videoclick";
inline constexpr const char* kClickProgress = "http://track.example/ext/clickprogress";
inline constexpr const char* kExtComplete = "http://track.example/ext/complete";
}  // namespace beacon

// A host app on the test platform that starts the SDK through the facade (store file in
// place, ad list answered, CDN serving the button images) and shows ads on its screen.
class AdScreenFixture {
 public:
  AdScreenFixture();
  AdScreenFixture(const AdScreenFixture&) = delete;
  AdScreenFixture& operator=(const AdScreenFixture&) = delete;

  static std::string vast(const ScreenAd& ad);
  // The CDN URL of a button image ("0_skip.png" ... "click.png").
  static std::string cdnImage(const std::string& name);
  // Makes the CDN answer this image with 404 from now on.
  void failCdnImage(const std::string& name);

  // Starts the SDK as a host does: platform, init("M", "S"), then the delegate. Once.
  void start();
  // Runs start() and tovaniShow with `ad` as the ad server's answer; returns when the
  // first tick has run, at play position 0.
  void show(const ScreenAd& ad);
  // Moves play time (and the queue) to `seconds` after the showing started.
  void playTo(double seconds);
  double playPosition() const;

  std::shared_ptr<tovaniViewer> viewer() const;
  RecordingWebView& endCard() const;
  // Beacons sent since the showing started, with their play positions.
  std::vector<std::pair<std::string, double>> beacons() const;
  int beaconCount(const std::string& url) const;
  // Play position of the first beacon to `url`, or -1.
  double beaconAt(const std::string& url) const;
  size_t blockingFetches(const std::string& suffix) const;
  // Source URL of the image the skip view shows, or "" for none.
  std::string skipImageName() const;
  bool onScreen(const std::shared_ptr<View>& view) const;

  TestPlatform tp;
  std::shared_ptr<RecordingDelegate> host = std::make_shared<RecordingDelegate>();
  std::shared_ptr<View> hostRoot = std::make_shared<View>();

 private:
  bool started_ = false;
  double showStartedAt_ = 0;
  size_t beaconsBefore_ = 0;
};

}  // namespace tovani::test
