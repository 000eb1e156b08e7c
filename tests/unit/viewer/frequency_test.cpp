#include <gtest/gtest.h>

#include <filesystem>

#include "support/ServingFixture.hpp"

namespace tovani::test {
namespace {

// Every expectation about dates is built from the store engine's own clock, so the tests
// hold on any day of the year.
class FrequencyTest : public ::testing::Test {
 protected:
  void SetUp() override { f.addAdvert("42", "v42.mp4"); }

  std::optional<std::string> pass(const Text& rule, const std::string& adid = "42",
                                  const std::string& file = "v42.mp4") {
    return f.viewer->getFreqPassVideoPath(rule, file, adid);
  }
  std::string day(int offsetDays) {
    return f.sqlValue("strftime('%Y%m%d','now','" + std::to_string(offsetDays) + " day')");
  }
  void showings(const std::string& adsNo, int count, const std::string& regDateSql) {
    for (int i = 0; i < count; ++i) f.addShowing(adsNo, regDateSql);
  }

  ServingFixture f;
  const std::string video = f.tp.documentsFile("v42.mp4");
};

TEST_F(FrequencyTest, PeriodCapCountsOnlyThisAdsShowingsInsideThePeriodWhileTodayIsInIt) {
  const std::string rule = "d|" + day(-10) + "|" + day(10) + "|3";
  showings("42", 2, "datetime('now','-1 day')");
  showings("42", 4, "datetime('now','-30 day')");  // before the period
  showings("43", 5, "datetime('now')");            // another ad
  EXPECT_EQ(pass(rule), video);

  f.addShowing("42", "datetime('now')");
  EXPECT_EQ(pass(rule), std::nullopt);
  // A capped ad is refused without touching its cached video.
  EXPECT_EQ(f.useFlag("v42.mp4"), 1);
  EXPECT_TRUE(f.downloads().empty());
}

TEST_F(FrequencyTest, PeriodCapDoesNotApplyWhenTodayIsOutsideThePeriod) {
  showings("42", 5, "datetime('now','-30 day')");
  EXPECT_EQ(pass("d|" + day(-40) + "|" + day(-20) + "|3"), video);
  EXPECT_EQ(pass("d|" + day(5) + "|" + day(20) + "|0"), video);
  // The same showings inside a period that covers today do cap.
  EXPECT_EQ(pass("d|" + day(-40) + "|" + day(1) + "|3"), std::nullopt);
}

TEST_F(FrequencyTest, RollingCapBlocksAtTheMaximumCount) {
  f.addShowing("42", "datetime('now')");
  EXPECT_EQ(pass("p|7|2"), video);
  f.addShowing("42", "datetime('now','-2 day')");
  EXPECT_EQ(pass("p|7|2"), std::nullopt);
  EXPECT_EQ(pass("p|7|3"), video);
}

TEST_F(FrequencyTest, RollingSpanReachesBackToTheFirstOfJanuaryOfTheCutOffYear) {
  // The span compares an eight-digit date with a dashed one as text, so it is decided by
  // the year: every showing from the cut-off day's year onward counts, none before it.
  const std::string cutOffYear = f.sqlValue("strftime('%Y','now','-7 day')");
  const int previousYear = std::stoi(cutOffYear) - 1;
  showings("42", 3, "'" + std::to_string(previousYear) + "-12-31 23:00:00'");
  EXPECT_EQ(pass("p|7|2"), video);

  showings("42", 2, "'" + cutOffYear + "-01-02 10:00:00'");
  EXPECT_EQ(pass("p|7|2"), std::nullopt);
  // One day of look-back changes nothing while the cut-off stays in the same year.
  if (f.sqlValue("strftime('%Y','now','-1 day')") == cutOffYear) {
    EXPECT_EQ(pass("p|1|2"), std::nullopt);
  }
}

TEST_F(FrequencyTest, MaximumOfZeroBlocksOnlyOnceTheAdHasBeenShown) {
  const std::string period = "d|" + day(-3) + "|" + day(3) + "|0";
  EXPECT_EQ(pass("p|7|0"), video);
  EXPECT_EQ(pass(period), video);
  f.addShowing("42", "datetime('now')");
  EXPECT_EQ(pass("p|7|0"), std::nullopt);
  EXPECT_EQ(pass(period), std::nullopt);
}

TEST_F(FrequencyTest, AnIncompletePeriodRuleIsNoCapWhileTheFileIsThere) {
  // Each of these would be capped if its query ran: an empty bound still compares.
  showings("42", 5, "datetime('now')");
  const std::string start = day(-10), end = day(10);
  for (const std::string& rule :
       {"d||" + end + "|3", "d|" + start + "||3", "d|" + start + "|" + end + "|"}) {
    EXPECT_EQ(pass(rule), video) << rule;
  }
  for (const std::string rule : {"p||2", "p|7|"}) EXPECT_EQ(pass(rule), video) << rule;
  EXPECT_TRUE(f.downloads().empty());
}

TEST_F(FrequencyTest, AnIncompletePeriodRuleWithTheFileMissingReportsItTwice) {
  // A second waiting video shows the second report: a refresh while the first download is
  // in flight picks the next waiting record.
  f.addAdvert("77", "decoy.mp4", 0, false);
  std::filesystem::remove(video);

  EXPECT_EQ(pass("d||" + day(10) + "|3"), std::nullopt);
  EXPECT_EQ(f.useFlag("v42.mp4"), 0);
  EXPECT_EQ(f.downloads(), (std::vector<std::string>{ServingFixture::videoUrl("v42.mp4"),
                                                     ServingFixture::videoUrl("decoy.mp4")}));
}

TEST_F(FrequencyTest, AMissingFileIsReportedOnceAndNeverPlayed) {
  f.addAdvert("77", "decoy.mp4", 0, false);
  std::filesystem::remove(video);

  EXPECT_EQ(pass(std::nullopt), std::nullopt);
  EXPECT_EQ(f.useFlag("v42.mp4"), 0);
  EXPECT_EQ(f.downloads(), std::vector<std::string>{ServingFixture::videoUrl("v42.mp4")});
}

TEST_F(FrequencyTest, RulesOfAnyOtherShapeMeanNoCap) {
  showings("42", 5, "datetime('now')");
  const std::string start = day(-10), end = day(10);
  const std::vector<Text> noCap = {
      std::nullopt,
      "",
      "x|1|2",
      "d|1|2",
      "p|7|2|1",
      "D|" + start + "|" + end + "|1",
      "d |" + start + "|" + end + "|1",  // blanks are not trimmed away
      "d | " + start + " | " + end + " | 1",
      "p|7",
      "|||",
  };
  for (const Text& rule : noCap) EXPECT_EQ(pass(rule), video) << rule.value_or("(none)");
}

TEST_F(FrequencyTest, AQuoteInTheAdNumberBreaksTheQueryAndReadsAsNotCapped) {
  execOnStore(f.storeFile(), "insert into tn_ads_freq(ads_no) values('4''2')");
  EXPECT_EQ(pass("p|7|0", "4'2"), video);
  EXPECT_EQ(pass("d|" + day(-1) + "|" + day(1) + "|0", "4'2"), video);
}

TEST_F(FrequencyTest, AFileNameThatLeavesTheDocumentsFolderIsNeverAPath) {
  // A video beside the documents folder, reachable only through "..".
  f.viewer->tnadDocumentsPath = f.tp.documentsFile("docs");
  std::filesystem::create_directory(*f.viewer->tnadDocumentsPath);
  writeFile(f.tp.documentsFile("outside.mp4"), "not ours");
  EXPECT_EQ(pass(std::nullopt, "42", "../outside.mp4"), std::nullopt);
  EXPECT_EQ(pass(std::nullopt, "42", ".."), std::nullopt);
  EXPECT_EQ(pass(std::nullopt, "42", ""), std::nullopt);
  EXPECT_EQ(pass(std::nullopt, "42", "/" + f.tp.documentsFile("outside.mp4")), std::nullopt);
}

}  // namespace
}  // namespace tovani::test
