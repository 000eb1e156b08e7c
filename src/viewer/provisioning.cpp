#include <filesystem>
#include <string>

#include "net/tovaniUtils.hpp"
#include "viewer/ProcessState.hpp"
#include "viewer/tovaniViewer.hpp"
#include "viewer/video_files.hpp"

namespace tovani {

namespace {

namespace fs = std::filesystem;

void storeDownloadFailed(tovaniViewer& viewer) {
  viewer.db_Init_flag = 0;
  tovaniResult = 2;
  viewer.notification_send();
}

// Puts the downloaded file in place of the store. rename(2) replaces the old file in one
// step, so there is never a moment without a store or with half a store under its name.
// Side files of the old store go afterwards: a leftover journal would otherwise be
// "recovered" into the new file the next time it is opened.
bool installStore(const std::string& downloaded, const std::string& storePath) {
  std::error_code ec;
  fs::rename(downloaded, storePath, ec);
  if (ec) return false;
  for (const std::string_view suffix : kStoreSideFileSuffixes) {
    fs::remove(storePath + std::string(suffix), ec);
  }
  return true;
}

void storeDownloadFinished(tovaniViewer& viewer, const std::optional<std::string>& file,
                           const HttpResponse& response, const std::optional<HttpError>& error) {
  // An error page is not a store; installing it would leave the SDK with a broken store
  // that is never downloaded again.
  const bool answered = !error && file && response.status >= 200 && response.status <= 299;
  if (!answered) {
    isDatabaseDownloading = false;
    if (!error) viewer.log("tovani: store download answered " + std::to_string(response.status));
    storeDownloadFailed(viewer);
    return;
  }
  const bool installed = installStore(*file, viewer.storePath());
  isDatabaseDownloading = false;
  if (!installed) {
    viewer.log("tovani: downloaded store could not be moved into place");
    storeDownloadFailed(viewer);
    return;
  }
  viewer.db_Init_flag = 1;
  // No reachability test here: the finished download has just shown the network works.
  viewer.getTNJsonList();
}

}  // namespace

void tovaniViewer::downloadDataBase() {
  if (isDatabaseDownloading) return;
  isDatabaseDownloading = true;
  tovaniUtils::requestDownload(
      *platform(), formatAt("%@/%@", {tnDataDBFileUrl, tnDataDBFileName}),
      [viewer = self()](std::optional<std::string> file, HttpResponse response,
                        std::optional<HttpError> error) {
        storeDownloadFinished(*viewer, file, response, error);
      });
}

}  // namespace tovani
