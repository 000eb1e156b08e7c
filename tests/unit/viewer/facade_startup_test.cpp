#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/InventoryFixture.hpp"
#include "tovani/Constants.hpp"
#include "tovani/TovaniSDK.hpp"

namespace tovani::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;
using Category = TovaniSDK::CategoryElement;

std::string cat(std::string_view code) {
  return std::string(code);
}

TEST(FacadeStartup, CategoriesJoinWithBarsSkippingNonStringsButNotEmptyStrings) {
  using List = TovaniSDK::CategoryList;
  struct Case {
    std::optional<List> list;
    std::string joined;
  };
  const Case cases[] = {
      {std::nullopt, ""},
      {List{}, ""},
      {List{cat(TovaniCategory::RPG), cat(TovaniCategory::MUSIC)}, "0101|03"},
      {List{"", "03"}, "03"},  // an empty first element leaves nothing to join to
      {List{"03", ""}, "03|"},
      {List{"", "", "03", ""}, "03|"},
      {List{std::nullopt, "03", std::nullopt, "16"}, "03|16"},
      {List{std::nullopt, std::nullopt}, ""},
      {List{"03", "03"}, "03|03"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(TovaniSDK::convertCategory(c.list), c.joined) << "expected " << c.joined;
  }
}

TEST(FacadeStartup, StartUpSendsAnEmptyCategoryWhateverTheHostPassedAlsoThroughTheCEntry) {
  InventoryWorld w;
  w.createStore();
  w.answerAdList(adListJson({}));
  TovaniSDK::setPlatform(w.tp.platform);
  TovaniSDK::init(kMedia, kSlot,
                  TovaniSDK::CategoryList{cat(TovaniCategory::RPG), cat(TovaniCategory::MUSIC)});
  const char* const entries[] = {nullptr, "0101", nullptr};
  tovani_init_with_categories("M2", "S2", entries, 3);
  tovani_init_with_categories(nullptr, nullptr, nullptr, 5);
  w.tp.runUntilIdle();

  const auto urls = w.adListUrls();
  ASSERT_THAT(urls, SizeIs(3));
  for (const auto& url : urls) EXPECT_THAT(url, HasSubstr("&cat2=&vendor="));
  EXPECT_THAT(urls[0], HasSubstr("/conad_tovani.fcgi/M/S?"));
  EXPECT_THAT(urls[1], HasSubstr("/conad_tovani.fcgi/M2/S2?"));
  EXPECT_THAT(urls[2], HasSubstr("/conad_tovani.fcgi//?"));
}

TEST(FacadeStartup, TheAdHostIsChosenByDevTypeAtStartUpOnly) {
  InventoryWorld w;
  w.createStore();
  w.answerAdList(adListJson({}));
  TovaniSDK::setPlatform(w.tp.platform);
  TovaniSDK::setDevType(true);
  TovaniSDK::init(kMedia, kSlot);
  TovaniSDK::setDevType(false);  // too late for this start-up
  TovaniSDK::tovaniShow(w.hostRoot);
  TovaniSDK::init(kMedia, kSlot);
  w.tp.runUntilIdle();

  const auto lists = w.adListUrls();
  ASSERT_THAT(lists, SizeIs(2));
  EXPECT_THAT(lists[0], StartsWith(std::string("http://") + TOVANI_TEST_AD_HOST + "/"));
  EXPECT_THAT(lists[1], StartsWith(std::string("http://") + TOVANI_PRODUCTION_AD_HOST + "/"));
  ASSERT_THAT(w.adUrls(), SizeIs(1));
  EXPECT_THAT(w.adUrls()[0], StartsWith(std::string("http://") + TOVANI_TEST_AD_HOST + "/"));
}

TEST(FacadeStartup, TheStoredDeviceIdIsSentWithItsMarkAndTheLastRowWins) {
  InventoryWorld w;
  w.createStore();
  execOnStore(w.storePath(), "insert into tn_device(uuid, mcc, mnc) values('A','1','2')");
  execOnStore(w.storePath(), "insert into tn_device(uuid, mcc, mnc) values('B','1','2')");
  w.answerAdList(adListJson({}, "ignored-once-stored"));
  w.start();
  w.tp.runUntilIdle();
  TovaniSDK::tovaniShow(w.hostRoot);

  ASSERT_THAT(w.adListUrls(), SizeIs(1));
  EXPECT_THAT(w.adListUrls()[0], HasSubstr("/M/S$B?xml=json&"));
  ASSERT_THAT(w.adUrls(), SizeIs(1));
  EXPECT_THAT(w.adUrls()[0], HasSubstr("/M/S$B?xml=vast&"));
  EXPECT_THAT(queryStore(w.storePath(), "select uuid from tn_device"), SizeIs(2));
}

TEST(FacadeStartup, TheCarrierNameGivesTheVendorCodeLaterMatchesWinning) {
  struct Case {
    std::optional<Carrier> carrier;
    std::string vendor;
  };
  const Case cases[] = {
      {Carrier{"SK Telecom", "450", "05"}, "1"}, {Carrier{"olleh kt", "450", "08"}, "2"},
      {Carrier{"LG U+", "450", "06"}, "4"},      {Carrier{"SK and LG", "450", "06"}, "4"},
      {Carrier{"SKT KT", "450", "06"}, "2"},     {Carrier{"Verizon", "311", "480"}, ""},
      {Carrier{std::nullopt, "450", "05"}, ""},  {std::nullopt, ""},
  };
  for (const auto& c : cases) {
    InventoryWorld w;
    w.createStore();
    w.answerAdList(adListJson({}));
    w.tp.device->carrierInfo = c.carrier;
    w.start();
    w.tp.runUntilIdle();
    ASSERT_THAT(w.adListUrls(), SizeIs(1));
    EXPECT_THAT(w.adListUrls()[0], HasSubstr("&vendor=" + c.vendor + "&osv="))
        << (c.carrier && c.carrier->carrierName ? *c.carrier->carrierName : "no carrier");
  }
}

TEST(FacadeStartup, AZeroByteStoreIsDownloadedAgainInsteadOfSynced) {
  InventoryWorld w;
  writeFile(w.storePath(), "");
  w.start();
  w.tp.runUntilIdle();

  EXPECT_THAT(w.downloadUrls(), ElementsAre(std::string(TOVANI_BASE_URL) + "data/tnad_005.data"));
  EXPECT_THAT(w.adListUrls(), IsEmpty());
  EXPECT_EQ(w.viewer()->db_Init_flag, 0);
  // The unanswered download is reported as a failure.
  EXPECT_THAT(w.host->results, ElementsAre(2));
}

}  // namespace
}  // namespace tovani::test
