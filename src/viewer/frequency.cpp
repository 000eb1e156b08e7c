#include <cstdlib>
#include <filesystem>

#include "store/CheckedStatement.hpp"
#include "store/Statements.hpp"
#include "viewer/tovaniViewer.hpp"
#include "viewer/video_files.hpp"

namespace tovani {

namespace {

// The day count sits inside a quoted date modifier, but only a number belongs there.
constexpr size_t kDaySlot = 1;

// A query that returns a row means the ad has used up its cap. The row's first value is
// the count that reached it, which an inspected showing reports.
bool capReached(tovaniSQL* store, const CheckedStatement& statement, Inspection& inspection,
                const char* kind) {
  if (store == nullptr) return false;
  const auto rows = store->loadDataFromDB(statement);
  if (inspection.active()) {
    inspection.note.kind = kind;
    if (!rows->empty() && !rows->front().empty()) {
      inspection.note.capCount = std::strtoll(rows->front().front().c_str(), nullptr, 10);
    }
  }
  return !rows->empty();
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
    if (inspection.active()) inspection.note.fileMissing = true;
    notExsistVideoFile(sourceFilename);
    return std::nullopt;
  };

  if (inspection.active()) inspection.note.kind = "none";
  if (!rule || rule->empty()) return fileCheck();
  const std::vector<std::string> fields = splitKeepingEmpty(*rule, '|');

  if (fields.size() == 4 && fields[0] == "d") {
    const Text start = fields[1], end = fields[2], maximum = fields[3];
    if (start->empty() || end->empty() || maximum->empty()) {
      if (auto path = fileCheck()) return path;
      // Deliberately no return here: a missing file with an incomplete period still runs
      // the period query, and then looks for the file (and reports it missing) once more.
    }
    if (capReached(
            tnDataManager.get(),
            formatStatement(sql::kSelectPeriodCapReached, {adid, start, end, maximum, start, end}),
            inspection, "period")) {
      return std::nullopt;
    }
    return fileCheck();
  }

  if (fields.size() == 3 && fields[0] == "p") {
    const Text days = fields[1], maximum = fields[2];
    if (days->empty() || maximum->empty()) {
      if (inspection.active()) inspection.note.kind = "malformed";
      return fileCheck();
    }
    if (capReached(
            tnDataManager.get(),
            formatStatement(sql::kSelectRollingCapReached, {adid, days, maximum}, {kDaySlot}),
            inspection, "rolling")) {
      return std::nullopt;
    }
    return fileCheck();
  }

  // Any other shape is no cap at all.
  if (inspection.active()) inspection.note.kind = "malformed";
  return fileCheck();
}

}  // namespace tovani
