// Fuzz target: arbitrary bytes as the store file, then every statement the SDK issues. A
// hostile or broken file may give empty answers and log lines; it may not crash, hang or
// leave anything in the documents folder but the store and its own side files.
//
//   build/fuzz/tests/fuzz/fuzz_store -max_len=65536 build/fuzz/corpus-store tests/fuzz/corpus/store
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "store/Statements.hpp"
#include "store/tovaniSQL.hpp"
#include "support/FakePorts.hpp"
#include "support/TestPlatform.hpp"
#include "util/Text.hpp"

namespace {

namespace sql = tovani::sql;
constexpr const char* kStore = "tnad_005.data";

std::string folder;

void require(bool condition) {
  if (!condition) __builtin_trap();
}

// The values every statement is filled with, as the SDK would send them.
const tovani::Text kV[] = {"7", "ad30.mp4", "20260101", "20261231", "3"};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  std::string pattern = std::filesystem::temp_directory_path().string() + "/fuzz-store-XXXXXX";
  require(mkdtemp(pattern.data()) != nullptr);
  folder = pattern;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::filesystem::remove_all(folder);
  std::filesystem::create_directory(folder);
  tovani::test::writeFile(folder + "/" + kStore,
                          std::string(reinterpret_cast<const char*>(data), size));
  auto log = std::make_shared<tovani::test::CapturedLog>();
  {
    tovani::tovaniSQL store(folder, kStore, std::nullopt, log);
    (void)store.loadDataFromDB(sql::kSelectDevice);
    store.executeQuery(tovani::formatAt(sql::kInsertDevice, {kV[0], kV[0], kV[0]}));
    (void)store.loadDataFromDB(tovani::formatAt(sql::kSelectAdvert, {kV[0], kV[1]}));
    const tovani::Text& a = kV[0];
    store.executeQuery(tovani::formatAt(sql::kInsertAdvert, {a, a, a, a, a, a, a, a, a, a, a,    a,
                                                             a, a, a, a, a, a, a, a, a, a, kV[1]}));
    (void)store.loadDataFromDB(sql::kSelectWaitingVideos);
    store.executeQuery(tovani::formatAt(sql::kMarkVideoCached, {kV[1]}));
    store.executeQuery(tovani::formatAt(sql::kMarkVideoMissing, {kV[1]}));
    (void)store.loadDataFromDB(tovani::formatAt(sql::kSelectPlayableAdvert, {kV[0], kV[1]}));
    (void)store.loadDataFromDB(
        tovani::formatAt(sql::kSelectPeriodCapReached, {kV[0], kV[2], kV[3], kV[4], kV[2], kV[3]}));
    (void)store.loadDataFromDB(
        tovani::formatAt(sql::kSelectRollingCapReached, {kV[0], kV[4], kV[4]}));
    store.executeQuery(tovani::formatAt(sql::kInsertImpression, {kV[0]}));
  }
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    require(name == kStore || name == std::string(kStore) + "-journal" ||
            name == std::string(kStore) + "-wal" || name == std::string(kStore) + "-shm");
  }
  return 0;
}
