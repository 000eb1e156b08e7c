#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "store/tovaniSQL.hpp"
#include "tovani/Platform.hpp"
#include "tovani/TovaniDelegate.hpp"
#include "tovani/View.hpp"
#include "util/Text.hpp"
#include "xml/XmlValue.hpp"

namespace tovani {

// The one ad view of the process. It owns every flow of the SDK; its operations are kept
// in one source file per flow. Everything runs on the main thread.
class tovaniViewer : public View {
  // First member: the ports outlive every property that uses them.
  std::shared_ptr<Platform> platform_;

 public:
  // Construction (create): makes mDownloadList and cleans the video cache (60 days).
  static std::shared_ptr<tovaniViewer> create(std::shared_ptr<Platform> platform);
  explicit tovaniViewer(std::shared_ptr<Platform> platform);
  ~tovaniViewer() override;

  std::shared_ptr<tovaniViewer> self() {
    return std::static_pointer_cast<tovaniViewer>(shared_from_this());
  }
  const std::shared_ptr<Platform>& platform() const { return platform_; }
  void log(const std::string& line) const;

  // --- start-up (startup.cpp)
  void init_TNSDK();
  void getTNUUIDStr();
  void tnCarrierIn();
  int64_t tnGetCurrentTime() const;
  std::string storePath() const;  // documents folder / tnDataDBFileName

  // --- show flow (show_flow.cpp)
  void prepareAD_TNSDK();
  bool connectedToNetwork(const Text& host);
  void adPlay_TNSDK();
  void adClose_TNSDK();
  void notification_send();
  // TOVANI_URL_AD filled with this viewer's eleven values and `xml`, then legacy-escaped.
  std::string adRequestURL(const std::string& xml) const;

  // --- store provisioning (provisioning.cpp)
  void downloadDataBase();

  // --- ad-list sync (ad_list_sync.cpp)
  void getTNJsonList();

  // --- video download queue (download_queue.cpp)
  void checkAndDownloadNext();

  // --- cache cleanup (cache_cleanup.cpp)
  void deleteMp4File(int64_t days);
  void notExsistVideoFile(const std::string& fileName);

  // --- VAST mapping (vast_mapping.cpp)
  void parsingXml(const Text& answer);

  // --- frequency capping (frequency.cpp)
  std::optional<std::string> getFreqPassVideoPath(const Text& rule,
                                                  const std::string& sourceFilename,
                                                  const Text& adid);

  // --- player (player.cpp)
  void tnADPlayStart(const std::string& path, const XmlValue& vastXML);
  void init_player();

  // --- timeline (timeline.cpp)
  void tnADTimer();
  void timeRemain();
  void onPlaybackTick(double currentSeconds);

  // --- beacons (beacons.cpp)
  void tnSendEventURL(const Text& url);

  // --- controls (controls.cpp)
  void init_images();
  void imageArray();
  void skipevent_click();
  void actionevent_click();

  // --- landing links (landing.cpp)
  void landingUrl(const Text& url);
  // The maps web address for a geo link's host part ("" host: none).
  static std::optional<std::string> mapsAddressForGeoHost(const std::string& host);

  // --- lifecycle (lifecycle.cpp)
  void tnAdPlayerItemDidReachEnd();
  void appWillResignActive();
  void tnAdPlayerWillEnterForeground();

  // --- end card request (endcard_request.cpp)
  void tnEndCardPrepare();

  // --- end card view (endcard_view.cpp)
  void tnEndCard();
  void tnEndCardViewState(bool hidden);
  bool shouldStartLoadWithRequest(const WebRequest& request);

  // --- layout (layout.cpp)
  void viewResize_TNSDK();
  void resizePortrait();
  void resizeLandscape();
  void orientationChanged();

  // --- properties, in the designed order
  bool devType = false;
  bool skipUseCheck = false;
  int32_t tnState = 0;
  int32_t tnVideoPlayState = 0;
  std::weak_ptr<TovaniDelegate> delegate;
  Text mediaCode;
  Text slotCode;
  Text cateCode;
  std::shared_ptr<tovaniSQL> tnDataManager;
  Text tnUUIDStr;
  Text tnDataDBFileUrl;
  Text tnDataDBFileName;
  Text tnProviderUrl;
  Text tnadDocumentsPath;
  Text tnOsversion;
  Text tnDeviceInfo;
  Text tnAdsStartTracking;
  Text tnAdsFirstQuartileTracking;
  Text tnAdsMidpointTracking;
  Text tnAdsThirdQuartileTracking;
  Text tnAdsCompleteTracking;
  Text tnAdsExtensionsClickTracking;
  Text tnAdsExtensionsImpression;
  Text tnAdsExtensionsClickThrough;
  Text tnAdsExtensionsClickType;
  Text tnAdsExtensionsSkipUse;
  Text tnAdsExtensionsEndcardUse;
  Text tnAdsExtensionsVideoClick;
  Text tnAdsExtensionsClickProgress;
  Text tnAdsExtensionsEndcardProgress;
  Text tnAdsExtensionsComplete;
  Text tnAdsExtensionsEtc;
  Text tnAdsExtensionsFrequency;
  std::optional<TimeObserverToken> tnPeriodicTimeObserver;
  int64_t db_Init_flag = 0;
  int64_t ads_init_flag = 0;
  int64_t tnLastTimeStamp = 0;
  int64_t tnLastTimeStampFlag = 0;
  std::shared_ptr<View> tnVidoeTimeRemain;  // label
  std::shared_ptr<View> tnAdPlayerLayer;    // video layer
  std::shared_ptr<MediaPlayer> tnAdPlayer;
  std::shared_ptr<View> tnAdEndCardView;  // web view node; its port is tnAdEndCardView->webView
  Text tnSDKVersion;
  Text tnvendor;
  Text tnidfa;
  std::optional<Carrier> tnCarrier;
  std::shared_ptr<View> button;
  std::shared_ptr<View> skipevent_imageview;
  std::shared_ptr<TapRecognizer> skipevent_touch;
  int64_t skipevent_flag = 0;
  int64_t endcardCheck_flag = 0;
  int64_t skipAdReword_flag = 0;
  std::shared_ptr<Image> actionevent_image;
  std::shared_ptr<View> actionevent_imageview;
  std::shared_ptr<TapRecognizer> actionevent_touch;
  int64_t actionevent_flag = 0;
  int64_t actioncomplete_flag = 0;

  // --- our own additions: showings started so far (player.cpp), and the showing in which
  // the countdown images were last fetched (controls.cpp), so that a CDN that is down blocks
  // the main thread once per showing instead of on every tick.
  uint64_t showingNumber = 0;
  uint64_t skipImagesFetchedInShowing = 0;
  uint64_t cdnFailedInShowing = 0;  // the showing in which a countdown image did not come
};

// True when an end-card switch value asks for the end card: "true" or empty (absent too).
bool endCardWanted(const Text& endcardUse);

}  // namespace tovani
