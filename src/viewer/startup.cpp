#include <cmath>
#include <filesystem>

#include "net/UrlEncoding.hpp"
#include "net/tovaniUtils.hpp"
#include "store/Statements.hpp"
#include "tovani/Constants.hpp"
#include "util/Guard.hpp"
#include "util/NotificationCenter.hpp"
#include "util/PlatformError.hpp"
#include "viewer/ProcessState.hpp"
#include "viewer/tovaniViewer.hpp"

namespace tovani {

namespace {

constexpr int64_t kVideoCacheDays = 60;

const char* notificationNameFor(AppEvent event) {
  switch (event) {
    case AppEvent::WillResignActive:
      return kApplicationWillResignActive;
    case AppEvent::WillEnterForeground:
      return kApplicationWillEnterForeground;
    case AppEvent::WillTerminate:
      return kApplicationWillTerminate;
    case AppEvent::OrientationDidChange:
      return kDeviceOrientationDidChange;
  }
  return "";
}

}  // namespace

std::shared_ptr<tovaniViewer> tovaniViewer::create(std::shared_ptr<Platform> platform) {
  auto viewer = std::make_shared<tovaniViewer>(std::move(platform));
  if (!mDownloadList) mDownloadList.emplace();
  viewer->deleteMp4File(kVideoCacheDays);
  // The platform reports lifecycle events once; they reach the viewer's handlers through
  // the notification centre, where playback start and tear-down add and remove them.
  auto log = viewer->platform()->log;
  viewer->platform()->application->setEventHandler([log](AppEvent event) {
    runGuarded(log.get(),
               [event] { NotificationCenter::defaultCenter().post(notificationNameFor(event)); });
  });
  return viewer;
}

tovaniViewer::tovaniViewer(std::shared_ptr<Platform> platform)
    : View(Kind::Plain), platform_(std::move(platform)) {}

tovaniViewer::~tovaniViewer() {
  NotificationCenter::defaultCenter().removeObserver(this);
}

void tovaniViewer::log(const std::string& line) const {
  if (platform_ && platform_->log) platform_->log->write(line);
}

std::string tovaniViewer::storePath() const {
  return (std::filesystem::path(tnadDocumentsPath.value_or("")) / tnDataDBFileName.value_or(""))
      .string();
}

std::optional<std::string> tovaniViewer::documentsFolder() const {
  return tovaniUtils::documentsFolder(*platform_->device);
}

int64_t tovaniViewer::tnGetCurrentTime() const {
  return static_cast<int64_t>(std::trunc(platform_->clock->now()));
}

void tovaniViewer::init_TNSDK() {
  init_player();
  ads_init_flag = 1;
  tnSDKVersion = TOVANI_SDK_VERSION;
  tnDataDBFileName = kStoreFileName;
  tnDataDBFileUrl = std::string(TOVANI_BASE_URL) + "data";
  tnProviderUrl = "";
  // Categories set by the facade are dropped on purpose: requests carry an empty cat2.
  cateCode = "";
  tnProviderUrl = devType ? TOVANI_TEST_AD_HOST : TOVANI_PRODUCTION_AD_HOST;
  tnLastTimeStampFlag = 1;
  tnLastTimeStamp = tnGetCurrentTime();
  tnadDocumentsPath = documentsFolder();
  // Every file the SDK writes lives in this folder; a relative one would land wherever the
  // process happens to run.
  if (!tnadDocumentsPath) {
    log("tovani: the documents folder \"" + platform_->device->documentsDirectory() +
        "\" is not an absolute path; start-up stops");
    ads_init_flag = 0;
    return;
  }
  // Temporary downloads of an earlier run that ended mid-download are never finished.
  platform_->http->removeLeftoverDownloads(*tnadDocumentsPath);
  const std::string path = storePath();
  if (!tnDataManager) {
    tnDataManager =
        std::make_shared<tovaniSQL>(*tnadDocumentsPath, *tnDataDBFileName,
                                    platform_->application->bundleResourcePath(), platform_->log);
  }
  getTNUUIDStr();
  tnCarrierIn();
  // A value the platform cannot give stays absent (and is asked for again next time).
  if (!tnOsversion) {
    if (auto os = platform_->device->osVersion()) tnOsversion = mp_URLEncodedString(*os);
  }
  if (!tnDeviceInfo) {
    if (auto model = platform_->device->hardwareModel()) tnDeviceInfo = mp_URLEncodedString(*model);
  }
  timeRemain();
  if (!tnAdEndCardView) {
    auto pageView = platform_->webViews->createWebView();
    if (!pageView) throw PlatformError("the platform made no web view");
    tnAdEndCardView = std::make_shared<View>(Kind::WebView);
    tnAdEndCardView->webView = std::move(pageView);
    std::weak_ptr<tovaniViewer> weak = self();
    auto log = platform_->log;
    tnAdEndCardView->webView->setNavigationDecider([weak, log](const WebRequest& request) {
      bool allowed = false;
      runGuarded(log.get(), [&] {
        if (auto viewer = weak.lock()) allowed = viewer->shouldStartLoadWithRequest(request);
      });
      return allowed;
    });
    tnAdEndCardView->webView->setLoadResultHandler([weak, log](bool loaded) {
      runGuarded(log.get(), [&] {
        if (auto viewer = weak.lock()) viewer->endCardPageLoaded(loaded);
      });
    });
  }
  isAppStatusBarHidden = platform_->application->isStatusBarHidden();

  std::error_code ec;
  const auto size = std::filesystem::file_size(path, ec);
  if (!ec && std::filesystem::is_regular_file(path, ec) && size != 0) {
    prepareAD_TNSDK();
    db_Init_flag = 1;
  } else {
    downloadDataBase();
  }
}

void tovaniViewer::getTNUUIDStr() {
  const StoreRows rows = *tnDataManager->loadDataFromDB(sql::kSelectDevice);
  tnUUIDStr = "";
  for (const auto& row : rows) {
    tnUUIDStr = formatAt("$%@", {row.empty() ? Text() : Text(row[0])});
  }
  tnidfa = "";
  // A platform without an advertising identifier leaves it empty; the user's tracking
  // setting is the platform's business, not consulted here.
  if (auto idfa = platform_->device->advertisingIdentifier()) tnidfa = *idfa;
}

void tovaniViewer::tnCarrierIn() {
  tnCarrier = platform_->device->carrier();
  tnvendor = "";
  if (!tnCarrier || !tnCarrier->carrierName) return;
  std::string name = *tnCarrier->carrierName;
  for (auto& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  // Independent tests in this order, so a later match wins.
  if (name.find("sk") != std::string::npos) tnvendor = "1";
  if (name.find("kt") != std::string::npos) tnvendor = "2";
  if (name.find("lg") != std::string::npos) tnvendor = "4";
}

}  // namespace tovani
