#include <gtest/gtest.h>

#include <filesystem>

#include "support/ServingFixture.hpp"
#include "util/PlatformError.hpp"
#include "viewer/ProcessState.hpp"

namespace tovani::test {
namespace {

// One Ad element: the id attribute as written, the MediaFile content as written, and the
// extensions (frequency1 among them) as XML.
std::string adXml(const std::string& id, const std::string& mediaFile,
                  const std::string& extensions = "") {
  return R"(<Ad id=")" + id + R"("><InLine><AdSystem>tovani</AdSystem>
      <Creatives><Creative><Linear><Duration>00:00:30</Duration>
        <TrackingEvents>
          <Tracking event="start">https://ads.tovani.example/t/start?ad=)" +
         id + R"(</Tracking>
          <Tracking event="complete">https://ads.tovani.example/t/complete?ad=)" +
         id + R"(</Tracking>
        </TrackingEvents>
        <MediaFiles><MediaFile type="video/mp4">)" +
         mediaFile + R"(</MediaFile></MediaFiles>
      </Linear></Creative></Creatives>
      <Extensions><ClickThrough>https://apps.example/)" +
         id + "</ClickThrough>" + extensions + R"(</Extensions>
    </InLine></Ad>)";
}

std::string vast(const std::string& ads) {
  return R"(<?xml version="1.0" encoding="UTF-8"?><VAST version="3.0">)" + ads + "</VAST>";
}

class VastMappingTest : public ::testing::Test {
 protected:
  std::string url(const std::string& file) { return ServingFixture::videoUrl(file); }
  bool attached() const { return f.viewer->superview() == f.hostRoot; }
  std::shared_ptr<ScriptedPlayer> player() const { return f.tp.players->last(); }
  // The host heard "no ad" and the viewer left the screen without playing anything.
  void expectNoAd() {
    EXPECT_EQ(f.host->results, std::vector<int32_t>{1});
    EXPECT_EQ(tovaniResult, 1);
    EXPECT_FALSE(attached());
    EXPECT_TRUE(f.tp.players->created.empty());
  }

  ServingFixture f;
};

TEST_F(VastMappingTest, ACachedAdWithoutRuleStartsPlaybackOfItsLocalFile) {
  f.addAdvert("1001", "tv_1001.mp4");
  f.viewer->parsingXml(vast(adXml("1001", url("tv_1001.mp4"))));

  ASSERT_NE(player(), nullptr);
  EXPECT_EQ(player()->path(), f.tp.documentsFile("tv_1001.mp4"));
  EXPECT_TRUE(player()->isPlaying());
  EXPECT_EQ(f.showings("1001"), 1);
  EXPECT_EQ(tovaniResult, 2);
  EXPECT_TRUE(f.host->results.empty());
  EXPECT_TRUE(attached());
  EXPECT_EQ(f.adListRequests(), 0u);
  EXPECT_EQ(f.viewer->tnAdsExtensionsClickThrough, "https://apps.example/1001");
}

TEST_F(VastMappingTest, TheFirstPlayableAdOfAListIsPlayedAndNoLaterOneIsLookedAt) {
  // 1: not in the store; 2: capped; 3: video missing on disk; 4: playable; 5: also playable.
  f.addAdvert("2", "v2.mp4");
  f.addShowing("2", "datetime('now')");
  f.addAdvert("3", "v3.mp4", 1, false);
  f.addAdvert("4", "v4.mp4");
  f.addAdvert("5", "v5.mp4");
  f.viewer->parsingXml(
      vast(adXml("1", url("v1.mp4")) + adXml("2", url("v2.mp4"), "<frequency1>p|7|1</frequency1>") +
           adXml("3", url("v3.mp4")) + adXml("4", url("v4.mp4")) + adXml("5", url("v5.mp4"))));

  ASSERT_EQ(f.tp.players->created.size(), 1u);
  EXPECT_EQ(player()->path(), f.tp.documentsFile("v4.mp4"));
  EXPECT_EQ(f.adListRequests(), 1u);  // only the ad without a store row refreshes the list
  EXPECT_EQ(f.useFlag("v3.mp4"), 0);  // the missing video is queued again
  EXPECT_EQ(f.showings("4"), 1);
  EXPECT_EQ(f.showings("5"), 0);
  EXPECT_TRUE(f.host->results.empty());
  EXPECT_TRUE(attached());
}

TEST_F(VastMappingTest, AListOfAdsWithoutStoreRowsRefreshesOncePerAdThenReportsNoAd) {
  f.addAdvert("9", "v9.mp4", 0);  // listed but not downloaded yet
  f.viewer->parsingXml(vast(adXml("8", url("v8.mp4")) + adXml("9", url("v9.mp4"))));
  expectNoAd();
  EXPECT_EQ(f.adListRequests(), 2u);
}

TEST_F(VastMappingTest, ASingleAdThatCannotPlayReportsNoAd) {
  f.viewer->parsingXml(vast(adXml("8", url("v8.mp4"))));
  expectNoAd();
  EXPECT_EQ(f.adListRequests(), 1u);
}

TEST_F(VastMappingTest, ASingleCappedAdReportsNoAdWithoutRefreshingTheList) {
  f.addAdvert("7", "v7.mp4");
  f.addShowing("7", "datetime('now')");
  f.viewer->parsingXml(vast(adXml("7", url("v7.mp4"), "<frequency1>p|30|1</frequency1>")));
  expectNoAd();
  EXPECT_EQ(f.adListRequests(), 0u);
  EXPECT_EQ(f.useFlag("v7.mp4"), 1);
}

TEST(VastMappingNoAdTest, AnAnswerWithoutAdsReportsNoAdWithoutRefreshingTheList) {
  for (const Text& answer :
       {Text(vast("<Error>https://ads.tovani.example/err</Error>")), Text("<VAST><Ad id=\"1\">"),
        Text("not xml at all"), Text(""), Text(std::nullopt)}) {
    ServingFixture fresh;
    fresh.addAdvert("1", "v1.mp4");
    fresh.viewer->parsingXml(answer);
    EXPECT_EQ(fresh.host->results, std::vector<int32_t>{1}) << answer.value_or("(none)");
    EXPECT_EQ(fresh.viewer->superview(), nullptr);
    EXPECT_EQ(fresh.adListRequests(), 0u);
    EXPECT_TRUE(fresh.tp.players->created.empty());
  }
}

TEST_F(VastMappingTest, WhiteSpaceAroundTheMediaUrlDoesNotChangeTheFileName) {
  f.addAdvert("11", "v11.mp4");
  f.viewer->parsingXml(vast(adXml("11", "\n      \t " + url("v11.mp4") + "?cb=123  \n    ")));
  ASSERT_NE(player(), nullptr);
  EXPECT_EQ(player()->path(), f.tp.documentsFile("v11.mp4"));
}

TEST_F(VastMappingTest, TheAdNumberIsMatchedAsWrittenAndCountedTrimmed) {
  // The store lookup takes the id untrimmed, the showing is logged trimmed.
  f.addAdvert(" 12 ", "v12.mp4");
  f.viewer->parsingXml(vast(adXml(" 12 ", url("v12.mp4"))));
  ASSERT_NE(player(), nullptr);
  EXPECT_EQ(f.showings("12"), 1);
  EXPECT_EQ(f.showings(" 12 "), 0);
}

TEST_F(VastMappingTest, AQuoteInTheAdNumberOrFileNameMakesTheAdCountAsNotCached) {
  // Both rows exist and both videos are on disk; the unescaped quote breaks the lookup.
  execOnStore(f.storeFile(),
              "insert into tn_adverts(ads_no, video_filename, use_flag) values"
              "('1''3', 'v13.mp4', 1), ('14', 'it''s.mp4', 1)");
  writeFile(f.tp.documentsFile("v13.mp4"), "video");
  writeFile(f.tp.documentsFile("it's.mp4"), "video");
  f.viewer->parsingXml(vast(adXml("1&apos;3", url("v13.mp4")) + adXml("14", url("it's.mp4"))));
  expectNoAd();
  EXPECT_EQ(f.adListRequests(), 2u);
}

TEST_F(VastMappingTest, BlanksInTheFrequencyRuleAreKeptSoThatItIsNoRule) {
  f.addAdvert("15", "v15.mp4");
  f.addShowing("15", "datetime('now')");
  // Tabs and blank runs become single blanks; "p | 30 | 1" is then no valid rule: no cap.
  f.viewer->parsingXml(
      vast(adXml("15", url("v15.mp4"), "<frequency1>p \t|\t\t30 | 1</frequency1>")));
  ASSERT_NE(player(), nullptr);
  EXPECT_EQ(f.showings("15"), 2);
}

TEST_F(VastMappingTest, AMediaUrlNamingAPathOutsideTheDocumentsFolderIsNotCached) {
  // A hostile store row and a file beside the documents folder: nothing may reach it.
  f.viewer->tnadDocumentsPath = f.tp.documentsFile("docs");
  std::filesystem::create_directory(*f.viewer->tnadDocumentsPath);
  writeFile(f.tp.documentsFile("evil.mp4"), "not ours");
  execOnStore(
      f.storeFile(),
      "insert into tn_adverts(ads_no, video_filename, use_flag) values('16', '../evil.mp4', 1)");
  f.viewer->parsingXml(vast(adXml("16", "https://cdn.tovani.example/video/..%2Fevil.mp4")));
  expectNoAd();
  EXPECT_EQ(f.adListRequests(), 1u);
}

TEST_F(VastMappingTest, AnErrorWhileReadingTheTreeReportsNoAdAndTravelsOn) {
  // The first ad has two MediaFile elements: its media URL reads through a list.
  f.addAdvert("17", "v17.mp4");
  const std::string twoMediaFiles =
      adXml("17", url("v17.mp4") + "</MediaFile><MediaFile>" + url("v17b.mp4"));
  EXPECT_THROW(f.viewer->parsingXml(vast(twoMediaFiles + adXml("17", url("v17.mp4")))),
               PlatformError);
  expectNoAd();
}

TEST_F(VastMappingTest, AnAdAttributeOnTheRootIsNeitherAnAdNorAList) {
  EXPECT_THROW(f.viewer->parsingXml(R"(<VAST Ad="1"/>)"), PlatformError);
  expectNoAd();
}

TEST_F(VastMappingTest, ASingleTrackingElementFailsAfterTheShowingWasCounted) {
  f.addAdvert("18", "v18.mp4");
  const std::string answer = R"(<VAST version="2.0"><Ad id="18"><InLine><Creatives><Creative>
      <Linear><TrackingEvents>
        <Tracking event="start">https://ads.tovani.example/t/start?ad=18</Tracking>
      </TrackingEvents>
      <MediaFiles><MediaFile>https://cdn.tovani.example/video/v18.mp4</MediaFile></MediaFiles>
      </Linear></Creative></Creatives></InLine></Ad></VAST>)";
  EXPECT_THROW(f.viewer->parsingXml(answer), PlatformError);
  expectNoAd();
  EXPECT_EQ(f.showings("18"), 1);
}

}  // namespace
}  // namespace tovani::test
