// The SDK killed with SIGKILL at random moments of a cold start (store download, a long ad-list
// sync, video downloads; the ad server delays every answer to widen those windows), then
// started again on the same documents folder. Whatever the moment, the store stays a sound
// database and nothing is marked usable that is not complete. The demo host runs as the child.
// TOVANI_KILLS sets the number of kills (scripts/kill_test.sh runs a thousand).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

namespace fs = std::filesystem;

struct StoreState {
  bool present = false;
  std::string integrity;
  int usable = 0, incomplete = 0, waiting = 0;
};

StoreState inspect(const fs::path& documents) {
  StoreState s;
  const fs::path store = documents / "tnad_005.data";
  if (!fs::exists(store)) return s;
  s.present = true;
  sqlite3* db = nullptr;
  // Read-write, as the SDK opens it: a journal left by the kill is rolled back first.
  sqlite3_open_v2(store.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
  const auto each = [&](const char* sql, auto&& row) {
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr) != SQLITE_OK) return false;
    while (sqlite3_step(stmt) == SQLITE_ROW) row(stmt);
    sqlite3_finalize(stmt);
    return true;
  };
  each("pragma integrity_check", [&](sqlite3_stmt* st) {
    s.integrity += reinterpret_cast<const char*>(sqlite3_column_text(st, 0));
  });
  each("select video_filename, use_flag from tn_adverts", [&](sqlite3_stmt* st) {
    const auto* text = sqlite3_column_text(st, 0);
    const std::string name = text ? reinterpret_cast<const char*>(text) : "";
    if (sqlite3_column_int(st, 1) != 1) {
      ++s.waiting;
      return;
    }
    ++s.usable;
    const fs::path fixture = fs::path(TOVANI_SOURCE_DIR) / "tools/adserver/fixtures" / name;
    std::error_code ec;
    if (fs::file_size(documents / name, ec) != fs::file_size(fixture)) ++s.incomplete;
  });
  sqlite3_close(db);
  return s;
}

int leftoverDownloads(const fs::path& documents) {
  int n = 0;
  for (const auto& e : fs::directory_iterator(documents)) n += e.path().extension() == ".download";
  return n;
}

// A list of `adverts` adverts over the three fixture videos.
std::string longListScenario(int adverts) {
  const char* videos[] = {"video_10s.mp4", "video_20s.mp4", "video_30s.mp4"};
  std::string list;
  for (int i = 0; i < adverts; ++i) {
    list += (i ? "," : "") + std::string(R"({"ads_no": )") + std::to_string(5000 + i) +
            R"(, "slot": "DEMO_SLOT", "sources": [{"video": ")" + videos[i % 3] + R"("}]})";
  }
  return R"({"name": "long-list", "adverts": [)" + list +
         R"(], "vast": [{"id": 5000}], "faults": {"store": {"delay": 0.4}, "adlist": {"delay": 0.4},
            "video": {"delay": 0.3}}})";
}

// The demo host on `documents`; `output` receives its standard output.
pid_t startHost(const fs::path& documents, const fs::path& scenario, FILE** output) {
  const std::string demo = std::string(TOVANI_BINARY_DIR) + "/tools/demo/tovani-demo";
  std::vector<std::string> args = {demo,          "--headless", "--inventory-only",
                                   "--documents", documents,    "--scenario",
                                   scenario,      "--speed",    "10"};
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  int pipeEnds[2];
  if (pipe(pipeEnds) != 0) return -1;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, pipeEnds[0]);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = -1;
  const int failed = posix_spawn(&pid, demo.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(pipeEnds[1]);
  *output = fdopen(pipeEnds[0], "r");
  return failed ? -1 : pid;
}

// Reads the host's output up to the line that says the SDK has started (true), or to its end.
bool waitForStart(FILE* output) {
  char line[4096];
  while (std::fgets(line, sizeof line, output) != nullptr) {
    if (std::string(line).starts_with("waiting for the store")) return true;
  }
  return false;
}

TEST(KillNine, ColdStartsKilledAtRandomLeaveASoundStoreAndOnlyCompleteVideosMarked) {
  const char* given = std::getenv("TOVANI_KILLS");
  const int kills = given ? std::atoi(given) : 3;
  const fs::path folder =
      fs::path(::testing::TempDir()) / ("tovani-kill-" + std::to_string(getpid()));
  fs::remove_all(folder);
  fs::create_directories(folder / "documents");
  const fs::path documents = folder / "documents", scenario = folder / "scenario.json";
  std::ofstream(scenario) << longListScenario(120);

  std::mt19937 random(std::random_device{}());
  std::uniform_int_distribution<int> moment(0, 6000);  // ms after the SDK started
  int withStore = 0, maxUsable = 0, maxLeftovers = 0;
  for (int k = 0; k < kills; ++k) {
    FILE* output = nullptr;
    const pid_t child = startHost(documents, scenario, &output);
    ASSERT_GT(child, 0);
    // Process start-up (the server's certificates, GStreamer) is no part of the window.
    EXPECT_TRUE(waitForStart(output));
    const int at = moment(random);
    std::this_thread::sleep_for(std::chrono::milliseconds(at));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    std::fclose(output);
    const StoreState s = inspect(documents);
    SCOPED_TRACE("kill " + std::to_string(k) + " at " + std::to_string(at) + " ms");
    if (s.present) {
      ++withStore;
      EXPECT_EQ(s.integrity, "ok");
    }
    EXPECT_EQ(s.incomplete, 0);
    maxUsable = std::max(maxUsable, s.usable);
    maxLeftovers = std::max(maxLeftovers, leftoverDownloads(documents));
  }

  // One more start, left to finish: the inventory becomes ready on what the kills left.
  FILE* output = nullptr;
  const pid_t last = startHost(documents, scenario, &output);
  ASSERT_GT(last, 0);
  while (waitForStart(output)) {
  }
  std::fclose(output);
  int status = 0;
  waitpid(last, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  const StoreState s = inspect(documents);
  EXPECT_EQ(s.integrity, "ok");
  EXPECT_EQ(s.incomplete, 0);
  EXPECT_EQ(s.waiting, 0);
  const int leftovers = leftoverDownloads(documents);
  // What a killed run left behind is cleared at the next start-up.
  EXPECT_EQ(leftovers, 0);
  std::printf(
      "kills: %d, with a store: %d, most usable rows after a kill: %d, most temporary downloads "
      "after a kill: %d, after the restart: %d\n",
      kills, withStore, maxUsable, maxLeftovers, leftovers);
  fs::remove_all(folder);
}

}  // namespace
