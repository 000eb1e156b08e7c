#pragma once
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tovani/View.hpp"

// Process-wide state of the viewer, shared by every viewer instance and kept for the life
// of the process. Tests put it back to its load-time values with resetProcessState().
namespace tovani {

extern int32_t tovaniResult;        // the current ResultCode; 0 at load, never reset
extern bool isAdStart;              // an ad request is in flight
extern bool isDatabaseDownloading;  // a store download is running
extern bool isAppStatusBarHidden;   // host's status bar as captured at start-up
extern Size currentBoundSize;       // screen size at the last layout
// Source URLs of video downloads in flight; created by the first viewer.
extern std::optional<std::vector<std::string>> mDownloadList;
// Skip-countdown images: index 0 the active button, 1-5 the digits. Filled once.
extern std::vector<std::shared_ptr<Image>> skipevent_images;

// Video names refused because a file the SDK did not write has them (logged once each).
extern std::set<std::string> refusedVideoNames;

// Button images fetched in the background (by URL), and those on their way.
extern std::map<std::string, std::shared_ptr<Image>> prefetchedImages;
extern std::set<std::string> imagesBeingFetched;

void resetProcessState();

}  // namespace tovani
