// The C interface as a C host or a foreign-function binding uses it: bad arguments give one
// log line each and the behaviour the facade defines, never a crash.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/ViewerFixture.hpp"
#include "tovani/tovani.h"

namespace tovani::test {
namespace {

struct Received {
  std::vector<int> results;
};

void record(int result, void* userData) {
  static_cast<Received*>(userData)->results.push_back(result);
}

bool logged(const ViewerFixture& f, const std::string& part) {
  const auto& lines = f.tp.log->lines;
  return std::any_of(lines.begin(), lines.end(),
                     [&](const std::string& l) { return l.find(part) != std::string::npos; });
}

TEST(CApi, ShowBeforeStartIsLoggedAndSendsNothingThenTheCallbackGetsItsUserData) {
  ViewerFixture f;
  TovaniSDK::setPlatform(f.tp.platform);
  Received received;
  tovani_view* root = tovani_view_create(375, 667);
  tovani_show(root);
  tovani_show(nullptr);
  EXPECT_EQ(0, tovani_started());
  EXPECT_TRUE(logged(f, "tovani_show before the SDK started"));

  tovani_set_callback(record, &received);
  EXPECT_EQ(1, tovani_started());
  tovani_init("M", "S");
  f.tp.runUntilIdle();
  received.results.clear();
  tovani_show(root);  // nothing answers the ad request: one failure code
  f.tp.runUntilIdle();
  ASSERT_EQ(1u, received.results.size());
  EXPECT_NE(0, received.results[0]);
  const auto before = received.results;

  // NULL callback: logged, and the next result is dropped.
  tovani_set_callback(nullptr, &received);
  EXPECT_TRUE(logged(f, "tovani_set_callback: NULL callback"));
  tovani_show(root);
  f.tp.runUntilIdle();
  EXPECT_EQ(before, received.results);
  tovani_view_release(root);
  tovani_view_release(nullptr);
}

TEST(CApi, NullAndNonUtf8TextIsTakenAsEmptyOrSkippedWithALogLine) {
  struct Case {
    const char* media;
    const char* slot;
    const char* logLine;
    std::string mediaSeen;
  };
  const Case cases[] = {
      {nullptr, "S", "media code is NULL", ""},
      {"M", nullptr, "slot code is NULL", "M"},
      {"M\xff", "S", "media code is not UTF-8", ""},
      {"\xc3\x28", "S", "media code is not UTF-8", ""},
      {"M\xc3\xa9", "S", "", "M\xc3\xa9"},
  };
  for (const auto& c : cases) {
    ViewerFixture f;
    TovaniSDK::setPlatform(f.tp.platform);
    const char* const categories[] = {"03", nullptr, "\xed\xa0\x80", "0101"};
    tovani_init_with_categories(c.media, c.slot, categories, 4);
    f.tp.runUntilIdle();
    EXPECT_EQ(c.mediaSeen, f.viewer()->mediaCode.value_or("?")) << c.logLine;
    if (*c.logLine) {
      EXPECT_TRUE(logged(f, c.logLine)) << c.logLine;
    }
    EXPECT_TRUE(logged(f, "category 2 is not UTF-8; skipped"));
    EXPECT_FALSE(logged(f, "category 1"));  // NULL is a binding's non-string: no trace

    tovani_init_with_categories("M", "S", nullptr, 3);
    EXPECT_TRUE(logged(f, "categories is NULL with count 3"));
    tovani_init(nullptr, "\xfe");
    EXPECT_TRUE(logged(f, "tovani_init: slot code is not UTF-8"));
    f.tp.runUntilIdle();
    EXPECT_EQ("", f.viewer()->slotCode.value_or("?"));
    const auto urls = f.adListUrls();
    ASSERT_FALSE(urls.empty());
    EXPECT_NE(std::string::npos, urls.back().find("/cgi-bin/conad_tovani.fcgi//?")) << urls.back();
  }
}

}  // namespace
}  // namespace tovani::test
