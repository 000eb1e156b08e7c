#include <algorithm>
#include <filesystem>
#include <string>

#include "net/tovaniUtils.hpp"
#include "store/CheckedStatement.hpp"
#include "store/Statements.hpp"
#include "viewer/ProcessState.hpp"
#include "viewer/owned_files.hpp"
#include "viewer/tovaniViewer.hpp"
#include "viewer/video_files.hpp"

namespace tovani {

namespace {

namespace fs = std::filesystem;
using FailedInChain = tovaniViewer::FailedInChain;

// Columns of a work-list row (ads_no, sources_value, video_filename, use_flag). A row
// with a NULL column comes back shorter with its values moved forward; such a row
// cannot be read by position and is passed over.
constexpr size_t kWorkRowColumns = 4;
constexpr size_t kSourceValue = 1;
constexpr size_t kVideoFileName = 2;

bool isInFlight(const std::string& url) {
  return mDownloadList &&
         std::find(mDownloadList->begin(), mDownloadList->end(), url) != mDownloadList->end();
}

bool isSuccessStatus(long status) {
  return status >= 200 && status <= 299;
}

// A stale or partial file of this name never survives into a new download. Only a plain
// file (or a link) is removed: a folder of the same name belongs to someone else.
void removeStaleFile(const std::string& path) {
  std::error_code ec;
  const auto status = fs::symlink_status(path, ec);
  if (ec || !(fs::is_regular_file(status) || fs::is_symlink(status))) return;
  fs::remove(path, ec);
}

bool somethingAt(const std::string& path) {
  std::error_code ec;
  return fs::exists(fs::symlink_status(path, ec));
}

// A file of this name that the SDK did not write belongs to the host: it is never replaced.
bool foreignFileAt(tovaniViewer& viewer, const std::string& path, const std::string& fileName) {
  if (!somethingAt(path)) return false;
  return ownedVideoNames(viewer.tnadDocumentsPath.value_or(""), viewer.tnDataManager.get())
             .count(fileName) == 0;
}

// Whether the finished download is now the cached video. A network error stays silent.
bool installVideo(tovaniViewer& viewer, const std::string& url, const std::string& path,
                  const std::string& fileName, const std::optional<std::string>& file,
                  const HttpResponse& response, const std::optional<HttpError>& error) {
  if (error || !file) return false;
  // An error page is not a video: nothing is moved in and the record keeps waiting.
  if (!isSuccessStatus(response.status)) {
    viewer.log("tovani: video download answered " + std::to_string(response.status) + ": " + url);
    return false;
  }
  // The host may have put a file of that name there meanwhile.
  if (foreignFileAt(viewer, path, fileName)) return false;
  // The temporary file sits in the documents folder, so this is one rename, never a copy.
  std::error_code ec;
  fs::rename(*file, path, ec);
  if (ec) {
    viewer.log("tovani: downloaded video could not be moved into place: " + fileName);
    return false;
  }
  if (!fs::is_regular_file(path, ec)) return false;
  // A video the SDK cannot record as its own is one it could never replace or expire.
  if (!OwnedFiles(viewer.tnadDocumentsPath.value_or("")).add(fileName)) {
    viewer.log("tovani: video not kept: the record of the SDK's files cannot be written");
    fs::remove(path, ec);
    return false;
  }
  return true;
}

void downloadFinished(tovaniViewer& viewer, const std::string& url, const std::string& path,
                      const std::string& fileName, const std::optional<std::string>& file,
                      const HttpResponse& response, const std::optional<HttpError>& error,
                      const FailedInChain& failed) {
  if (mDownloadList) std::erase(*mDownloadList, url);
  if (installVideo(viewer, url, path, fileName, file, response, error)) {
    viewer.tnDataManager->executeQuery(formatStatement(sql::kMarkVideoCached, {fileName}));
  } else {
    // A failed video never blocks the others: the chain goes on without it, and the next
    // trigger's chain asks for it again.
    failed->push_back(url);
  }
  viewer.checkAndDownloadNext(failed);
}

}  // namespace

void tovaniViewer::checkAndDownloadNext(FailedInChain failed) {
  // A trigger starts a chain of its own, which may try again what an earlier one failed.
  if (!failed) failed = std::make_shared<std::vector<std::string>>();
  if (!tnDataManager) return;
  if (!mDownloadList) mDownloadList.emplace();
  const StoreRows rows = *tnDataManager->loadDataFromDB(sql::kSelectWaitingVideos);
  const std::string documents = tnadDocumentsPath.value_or("");
  const std::string storeName = tnDataDBFileName.value_or("");

  for (const auto& row : rows) {
    if (row.size() != kWorkRowColumns) continue;
    const std::string& url = row[kSourceValue];
    const std::string& fileName = row[kVideoFileName];
    if (isInFlight(url)) continue;
    if (std::find(failed->begin(), failed->end(), url) != failed->end()) continue;
    // The store may hold rows the sync never wrote; their values are checked again here,
    // where they become an address and a path.
    const auto path = videoFilePath(documents, fileName, storeName);
    if (!isDownloadableUrl(url) || !path) {
      log("tovani: waiting video skipped: unusable address or file name: " + fileName);
      continue;
    }

    if (foreignFileAt(*this, *path, fileName)) {
      if (refusedVideoNames.insert(fileName).second) {
        log("tovani: waiting video skipped: a file of the host has its name: " + fileName);
      }
      continue;
    }

    mDownloadList->push_back(url);
    removeStaleFile(*path);
    tovaniUtils::requestDownload(
        *platform(), url,
        [viewer = self(), url, path = *path, fileName, failed](std::optional<std::string> file,
                                                               HttpResponse response,
                                                               std::optional<HttpError> error) {
          downloadFinished(*viewer, url, path, fileName, file, response, error, failed);
        });
    return;
  }
  // Nothing left to fetch: start-up is over, and the button images come next.
  prefetchButtonImages();
}

}  // namespace tovani
