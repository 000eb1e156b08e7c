#include "viewer/ProcessState.hpp"

namespace tovani {

int32_t tovaniResult = 0;
bool isAdStart = false;
bool isDatabaseDownloading = false;
bool isAppStatusBarHidden = false;
Size currentBoundSize{};
std::optional<std::vector<std::string>> mDownloadList;
std::vector<std::shared_ptr<Image>> skipevent_images;
std::set<std::string> refusedVideoNames;
std::map<std::string, std::shared_ptr<Image>> prefetchedImages;
std::set<std::string> imagesBeingFetched;

void resetProcessState() {
  tovaniResult = 0;
  isAdStart = false;
  isDatabaseDownloading = false;
  isAppStatusBarHidden = false;
  currentBoundSize = {};
  mDownloadList.reset();
  skipevent_images.clear();
  refusedVideoNames.clear();
  prefetchedImages.clear();
  imagesBeingFetched.clear();
}

}  // namespace tovani
