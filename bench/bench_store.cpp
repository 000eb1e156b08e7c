// The store layer against plain SQLite doing the same work the same way (open the file, run
// one statement, read every row as text, close), in one program and run, so that the ratio
// shows what the layer's own bookkeeping and its guards against a hostile store cost.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "store/Statements.hpp"
#include "store/tovaniSQL.hpp"
#include "util/Text.hpp"

namespace {

namespace fs = std::filesystem;
using tovani::formatAt;
using tovani::StoreRows;

// About the size of one ad list from the server.
constexpr int kAdvertCount = 50;

class SilentLog : public tovani::Log {
 public:
  void write(const std::string&) override {}
};

// ---- plain SQLite, the same per-call pattern as the layer ----

StoreRows rawQuery(const std::string& path, const std::string& sql) {
  StoreRows rows;
  sqlite3* db = nullptr;
  if (sqlite3_open(path.c_str(), &db) == SQLITE_OK) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK) {
      while (sqlite3_step(statement) == SQLITE_ROW) {
        tovani::StoreRow row;
        const int columns = sqlite3_column_count(statement);
        for (int i = 0; i < columns; ++i) {
          if (const unsigned char* text = sqlite3_column_text(statement, i)) {
            row.emplace_back(reinterpret_cast<const char*>(text));
          }
        }
        if (!row.empty()) rows.push_back(std::move(row));
      }
    }
    sqlite3_finalize(statement);
  }
  sqlite3_close(db);
  return rows;
}

void rawExecute(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  if (sqlite3_open(path.c_str(), &db) == SQLITE_OK) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK) {
      benchmark::DoNotOptimize(sqlite3_step(statement));
      benchmark::DoNotOptimize(sqlite3_changes(db));
    }
    sqlite3_finalize(statement);
  }
  sqlite3_close(db);
}

void setUp(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  char* error = nullptr;
  sqlite3_open(path.c_str(), &db);
  const int result = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error);
  const std::string message = error != nullptr ? error : "";
  sqlite3_free(error);
  sqlite3_close(db);
  if (result != SQLITE_OK) throw std::runtime_error(message);
}

// ---- the workload ----

// Built by appending: GCC 12 warns falsely (-Wrestrict) on "text" + std::to_string(n) at -O3.
std::string prefixed(std::string prefix, int number) {
  prefix.append(std::to_string(number));
  return prefix;
}

struct Advert {
  std::string select;  // kSelectAdvert
  std::string insert;  // kInsertAdvert
};

std::vector<Advert> adList(const std::string& prefix) {
  std::vector<Advert> ads;
  for (int i = 0; i < kAdvertCount; ++i) {
    const std::string adsNo = prefixed(prefix, i);
    const std::string file = "video_" + adsNo + ".mp4";
    ads.push_back({formatAt(tovani::sql::kSelectAdvert, {adsNo, file}),
                   formatAt(tovani::sql::kInsertAdvert, {adsNo,
                                                         "SLOT01",
                                                         "https://ads.example/a/" + adsNo,
                                                         "20240101",
                                                         "20301231",
                                                         "campaign",
                                                         "product",
                                                         "C1",
                                                         "20240101",
                                                         "20301231",
                                                         "https://cdn.example/v/" + file,
                                                         "30",
                                                         "1280",
                                                         "720",
                                                         "video/mp4",
                                                         "1",
                                                         "https://t.example/imp",
                                                         "https://t.example/click",
                                                         "https://t.example/ext",
                                                         "https://t.example/skip",
                                                         "https://t.example/end",
                                                         "https://t.example/mid",
                                                         file})});
  }
  return ads;
}

// One store file per benchmark, on a memory file system where there is one, so that disk
// flushes, which cost both sides the same, do not drown the difference.
class Workspace {
 public:
  Workspace() {
    const fs::path base = fs::exists("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
    std::string pattern = (base / "tovani-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    folder_ = pattern;
    std::ifstream schema(fs::path(TOVANI_SOURCE_DIR) / "schema" / "tovani_store.sql");
    std::ostringstream text;
    text << schema.rdbuf();
    setUp(path(), text.str());
  }
  ~Workspace() {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }
  std::string folder() const { return folder_.string(); }
  std::string path() const { return (folder_ / "tnad_005.data").string(); }

 private:
  fs::path folder_;
};

// The two sides offer the same calls, so each workload is written once for both.
struct StoreSide {
  explicit StoreSide(const Workspace& space)
      : store(space.folder(), "tnad_005.data", std::nullopt, std::make_shared<SilentLog>()) {}
  std::size_t query(const std::string& sql) { return store.loadDataFromDB(sql)->size(); }
  void execute(const std::string& sql) { store.executeQuery(sql); }
  tovani::tovaniSQL store;
};

struct RawSide {
  explicit RawSide(const Workspace& space) : path(space.path()) {}
  std::size_t query(const std::string& sql) { return rawQuery(path, sql).size(); }
  void execute(const std::string& sql) { rawExecute(path, sql); }
  std::string path;
};

// (a) A sync of adverts the store has not seen: the look-up finds nothing, the insert follows.
template <typename Side>
void NewAdverts(benchmark::State& state) {
  Workspace space;
  Side side(space);
  const auto ads = adList("N");
  for (auto _ : state) {
    state.PauseTiming();
    setUp(space.path(), "delete from tn_adverts");
    state.ResumeTiming();
    for (const auto& ad : ads) {
      if (side.query(ad.select) == 0) side.execute(ad.insert);
    }
  }
  state.SetItemsProcessed(state.iterations() * kAdvertCount);
}

// (b) A sync of adverts already stored: the look-up finds the record, nothing is written.
template <typename Side>
void KnownAdverts(benchmark::State& state) {
  Workspace space;
  const auto ads = adList("K");
  for (const auto& ad : ads) setUp(space.path(), ad.insert);
  Side side(space);
  for (auto _ : state) {
    for (const auto& ad : ads) {
      if (side.query(ad.select) == 0) state.SkipWithError("advert not found");
    }
  }
  state.SetItemsProcessed(state.iterations() * kAdvertCount);
}

// (c) The two queries of one showing: is the video cached, is the period cap reached.
template <typename Side>
void ShowTimeQueries(benchmark::State& state) {
  Workspace space;
  const auto ads = adList("S");
  for (const auto& ad : ads) setUp(space.path(), ad.insert);
  setUp(space.path(), "update tn_adverts set use_flag = 1");
  for (int i = 0; i < 200; ++i) {
    setUp(space.path(), formatAt(tovani::sql::kInsertImpression, {prefixed("S", i % 10)}));
  }
  const std::string playable = formatAt(tovani::sql::kSelectPlayableAdvert, {"S7", "video_S7.mp4"});
  const std::string cap = formatAt(tovani::sql::kSelectPeriodCapReached,
                                   {"S7", "20000101", "29991231", "100", "20000101", "29991231"});
  Side side(space);
  for (auto _ : state) {
    benchmark::DoNotOptimize(side.query(playable));
    benchmark::DoNotOptimize(side.query(cap));
  }
}

BENCHMARK(NewAdverts<StoreSide>)->Name("NewAdverts/store")->Unit(benchmark::kMillisecond);
BENCHMARK(NewAdverts<RawSide>)->Name("NewAdverts/raw")->Unit(benchmark::kMillisecond);
BENCHMARK(KnownAdverts<StoreSide>)->Name("KnownAdverts/store")->Unit(benchmark::kMillisecond);
BENCHMARK(KnownAdverts<RawSide>)->Name("KnownAdverts/raw")->Unit(benchmark::kMillisecond);
BENCHMARK(ShowTimeQueries<StoreSide>)->Name("ShowTimeQueries/store")->Unit(benchmark::kMicrosecond);
BENCHMARK(ShowTimeQueries<RawSide>)->Name("ShowTimeQueries/raw")->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
