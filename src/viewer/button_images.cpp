#include <algorithm>
#include <array>
#include <string>

#include "net/tovaniUtils.hpp"
#include "tovani/Constants.hpp"
#include "viewer/ProcessState.hpp"
#include "viewer/tovaniViewer.hpp"

namespace tovani {

namespace {

// The most one showing may spend in blocking fetches: the host's thread is not to be held
// longer, however many images are missing and however slowly the CDN answers.
constexpr double kBlockingBudgetSeconds = 3.0;

constexpr std::array<const char*, 7> kButtonImagePaths = {
    "button/0_skip.png", "button/1_skip.png", "button/2_skip.png", "button/3_skip.png",
    "button/4_skip.png", "button/5_skip.png", "button/click.png"};

std::string cdnUrl(const std::string& relativePath) {
  return formatAt("%@%@", {TOVANI_URL_CDN, relativePath});
}

bool isSuccessStatus(long status) {
  return status >= 200 && status <= 299;
}

}  // namespace

void tovaniViewer::prefetchButtonImages() {
  for (const char* path : kButtonImagePaths) {
    const std::string url = cdnUrl(path);
    if (prefetchedImages.count(url) > 0 || imagesBeingFetched.count(url) > 0) continue;
    imagesBeingFetched.insert(url);
    // Process-wide state only: the images are kept for any later showing, whatever becomes
    // of this viewer.
    tovaniUtils::requestNetwork(
        *platform(), url,
        [url](std::string body, HttpResponse response, std::optional<HttpError> error) {
          imagesBeingFetched.erase(url);
          if (error || !isSuccessStatus(response.status) || body.empty()) return;
          if (auto kept = Image::fromData(std::move(body), url)) prefetchedImages[url] = kept;
        });
  }
}

bool tovaniViewer::allButtonImagesKept() const {
  return std::all_of(kButtonImagePaths.begin(), kButtonImagePaths.end(),
                     [](const char* path) { return prefetchedImages.count(cdnUrl(path)) > 0; });
}

std::shared_ptr<Image> tovaniViewer::buttonImage(const std::string& relativePath) {
  const std::string url = cdnUrl(relativePath);
  if (auto it = prefetchedImages.find(url); it != prefetchedImages.end()) return it->second;

  if (blockingBudgetShowing != showingNumber) {
    blockingBudgetShowing = showingNumber;
    blockingSecondsSpent = 0;
  }
  const double remaining = kBlockingBudgetSeconds - blockingSecondsSpent;
  if (remaining <= 0) {
    log("tovani: button image not fetched: this showing's time for blocking fetches is used up: " +
        url);
    return nullptr;
  }
  const double started = platform()->clock->now();
  auto data = platform()->http->fetchBlockingWithin(url, remaining);
  blockingSecondsSpent += std::max(0.0, platform()->clock->now() - started);
  if (!data) return nullptr;
  auto fetched = Image::fromData(std::move(*data), url);
  if (fetched) prefetchedImages[url] = fetched;
  return fetched;
}

}  // namespace tovani
