#include <cmath>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>

#include "store/CheckedStatement.hpp"
#include "store/Statements.hpp"
#include "viewer/owned_files.hpp"
#include "viewer/tovaniViewer.hpp"

namespace tovani {

namespace {

namespace fs = std::filesystem;

constexpr int64_t kSecondsPerDay = 86400;
constexpr std::string_view kVideoSuffix = ".mp4";  // case-sensitive: ".MP4" is not ours

// The current time as whole seconds in a signed 32-bit integer, truncated toward zero.
// Out-of-range values saturate, as the conversion does on the devices the SDK runs on.
int32_t nowAsInt32(double now) {
  if (std::isnan(now)) return 0;
  const double whole = std::trunc(now);
  if (whole >= static_cast<double>(std::numeric_limits<int32_t>::max())) {
    return std::numeric_limits<int32_t>::max();
  }
  if (whole <= static_cast<double>(std::numeric_limits<int32_t>::min())) {
    return std::numeric_limits<int32_t>::min();
  }
  return static_cast<int32_t>(whole);
}

}  // namespace

void tovaniViewer::deleteMp4File(int64_t days) {
  // The folder start-up would use, or none: a relative one is never cleaned.
  const auto folder = documentsFolder();
  if (!folder) return;
  const std::string& documents = *folder;
  std::error_code ec;
  fs::directory_iterator entries(documents, ec);
  if (ec) return;
  // An age limit too large to count in seconds never expires anything.
  if (days > std::numeric_limits<int64_t>::max() / kSecondsPerDay) return;
  const double ageLimit = static_cast<double>(days * kSecondsPerDay);
  const int32_t now = nowAsInt32(platform()->clock->now());
  // Only the SDK's own videos expire. Before start-up there is no store object yet, so the
  // store file is opened for this one look-up (never seeded, never created empty).
  std::shared_ptr<tovaniSQL> store = tnDataManager;
  std::error_code storeError;
  if (!store && fs::is_regular_file(fs::path(documents) / kStoreFileName, storeError)) {
    store = std::make_shared<tovaniSQL>(documents, kStoreFileName, std::nullopt, platform()->log);
  }
  OwnedFiles manifest(documents);
  manifest.forgetMissing();
  const auto owned = ownedVideoNames(documents, store.get());

  // Top level only, every entry examined whatever its place in the listing.
  for (auto it = fs::begin(entries); it != fs::end(entries); it.increment(ec)) {
    if (ec) return;
    const std::string name = it->path().filename().string();
    if (!name.ends_with(kVideoSuffix) || owned.count(name) == 0) continue;
    // Only plain files: a folder or link that happens to end in ".mp4" is not a cached video.
    if (!it->is_regular_file(ec) || it->is_symlink(ec)) continue;
    const auto created = platform()->device->fileCreationTime(it->path().string());
    if (!created) continue;
    if (*created + ageLimit < static_cast<double>(now) && fs::remove(it->path(), ec)) {
      manifest.remove(name);
    }
  }
}

void tovaniViewer::notExsistVideoFile(const std::string& fileName) {
  if (!tnDataManager) return;
  // Every record sharing the file goes back to waiting, and the queue fetches it again.
  tnDataManager->executeQuery(formatStatement(sql::kMarkVideoMissing, {fileName}));
  checkAndDownloadNext();
}

}  // namespace tovani
