#pragma once
#include <string>
#include <vector>

#include "support/TestPlatform.hpp"
#include "tovani/Constants.hpp"
#include "tovani/TovaniSDK.hpp"
#include "viewer/tovaniViewer.hpp"

namespace tovani::test {

using Kind = ScriptedHttp::Kind;
using Strings = std::vector<std::string>;
using Results = std::vector<int32_t>;

// Scripted answers: a body, or a transport failure, after `delay` seconds.
inline ScriptedHttp::Answer answer(std::string body, double delay = 0, long status = 200) {
  return {std::move(body), status, std::nullopt, delay};
}
inline ScriptedHttp::Answer failure(double delay = 0) {
  return {"", 0, HttpError{-1004, "Could not connect to the server."}, delay};
}
inline std::string videoUrl(const std::string& name) {
  return TOVANI_URL_CDN + ("video/" + name);
}
// One advert of an ad list, and the list; without `uuid` the key is left out.
std::string advertJson(const std::string& adsNo, const std::string& url,
                       const std::string& impUrl = "http://t.example/imp");
std::string adListJson(const Strings& adverts, const Text& uuid = std::nullopt);

// One Ad of a VAST answer. Its beacons are kTrack + <name>, named by the tracking event or
// the extension in lower case ("extcomplete" for the extension's Complete). An absent value
// is left out.
inline const std::string kTrack = "http://track.example/";
struct ScreenAd {
  std::string id = "7", fileName = "ad30.mp4";
  double duration = 30;
  Text skipUse = "N", endcardUse = "true", clickType = "type1-1", frequency = std::nullopt;
  std::string media = "";  // the MediaFile text; empty: videoUrl(fileName)
};
std::string adXml(const ScreenAd& ad);
inline std::string vast(const std::string& ads) {
  return "<VAST version=\"3.0\">" + ads + "</VAST>";
}

// A host app on the test platform: the store file in place (unless told otherwise), the ad
// list answered empty, the CDN serving the button images.
class ViewerFixture {
 public:
  explicit ViewerFixture(bool withStore = true);
  // Answers still on their way hold the viewer, and so the platform that holds them.
  ~ViewerFixture() { tp.advance(60); }

  std::string storePath() const { return tp.documentsFile("tnad_005.data"); }
  void answerAdList(const std::string& body, double delay = 0);
  void start();  // platform, delegate, init("M", "S"), and what is due at once
  auto viewer() const { return TovaniSDK::sharedInstance()->getMainViewer(); }

  Strings urls(Kind kind, const std::string& part = "") const;  // those containing `part`
  Strings adListUrls() const { return urls(Kind::Data, "?xml=json&"); }
  Strings adUrls() const { return urls(Kind::Data, "?xml=vast&"); }
  Strings downloadUrls() const { return urls(Kind::Download); }

  // A tn_adverts row with source `url` (by default the CDN's); addCached writes the video.
  void addRow(const std::string& id, const std::string& file, int useFlag = 0,
              const std::string& url = "");
  void addCached(const std::string& id, const std::string& file);
  void addShowings(const std::string& id, const std::string& regDateSql, int count = 1);
  Strings column(const std::string& sql) const;  // first column of every row
  std::string cell(const std::string& sql) const { return column(sql).at(0); }
  int showings(const std::string& id) const {
    return std::stoi(cell("select count(*) from tn_ads_freq where ads_no = '" + id + "'"));
  }
  Strings useFlags(const std::string& file) const {
    return column("select use_flag from tn_adverts where video_filename = '" + file + "'");
  }

  // What the host sees: the parts of the ad on its screen ("card^" when raised above the
  // controls, "skip4" with the digit shown), then "|" and the results it was given, e.g.
  // "viewer video time skip4 | " or " | 3" once closed.
  std::string screen() const;
  bool onScreen(const std::shared_ptr<View>& v) const {
    return v && !v->hidden && v->isDescendantOf(*hostRoot);
  }

  TestPlatform tp;
  std::shared_ptr<RecordingDelegate> host = std::make_shared<RecordingDelegate>();
  std::shared_ptr<View> hostRoot = std::make_shared<View>();
};

}  // namespace tovani::test
