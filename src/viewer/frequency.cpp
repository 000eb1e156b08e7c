#include <filesystem>

#include "store/CheckedStatement.hpp"
#include "store/Statements.hpp"
#include "viewer/tovaniViewer.hpp"
#include "viewer/video_files.hpp"

namespace tovani {

namespace {

// The day count sits inside a quoted date modifier, but only a number belongs there.
constexpr size_t kDaySlot = 1;

// A query that returns a row means the ad has used up its cap.
bool capReached(tovaniSQL* store, const CheckedStatement& statement) {
  return store != nullptr && !store->loadDataFromDB(statement)->empty();
}

}  // namespace

std::optional<std::string> tovaniViewer::getFreqPassVideoPath(const Text& rule,
                                                              const std::string& sourceFilename,
                                                              const Text& adid) {
  // The cached file, or none after asking the store to forget it and fetch it again.
  const auto fileCheck = [&]() -> std::optional<std::string> {
    const std::string folder =
        tnadDocumentsPath ? *tnadDocumentsPath : documentsFolder().value_or("");
    const auto path = folder.empty()
                          ? std::nullopt
                          : videoFilePath(folder, sourceFilename, tnDataDBFileName.value_or(""));
    std::error_code ec;
    if (path && std::filesystem::is_regular_file(*path, ec)) return path;
    notExsistVideoFile(sourceFilename);
    return std::nullopt;
  };

  if (!rule || rule->empty()) return fileCheck();
  const std::vector<std::string> fields = splitKeepingEmpty(*rule, '|');

  if (fields.size() == 4 && fields[0] == "d") {
    const Text start = fields[1], end = fields[2], maximum = fields[3];
    if (start->empty() || end->empty() || maximum->empty()) {
      if (auto path = fileCheck()) return path;
      // Deliberately no return here: a missing file with an incomplete period still runs
      // the period query, and then looks for the file (and reports it missing) once more.
    }
    if (capReached(tnDataManager.get(), formatStatement(sql::kSelectPeriodCapReached,
                                                        {adid, start, end, maximum, start, end}))) {
      return std::nullopt;
    }
    return fileCheck();
  }

  if (fields.size() == 3 && fields[0] == "p") {
    const Text days = fields[1], maximum = fields[2];
    if (days->empty() || maximum->empty()) return fileCheck();
    if (capReached(tnDataManager.get(), formatStatement(sql::kSelectRollingCapReached,
                                                        {adid, days, maximum}, {kDaySlot}))) {
      return std::nullopt;
    }
    return fileCheck();
  }

  // Any other shape is no cap at all.
  return fileCheck();
}

}  // namespace tovani
