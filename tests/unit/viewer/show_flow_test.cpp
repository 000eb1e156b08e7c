#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/InventoryFixture.hpp"
#include "tovani/Constants.hpp"
#include "tovani/TovaniSDK.hpp"
#include "viewer/ProcessState.hpp"

namespace tovani::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Kind = ScriptedHttp::Kind;

std::string productionAdUrl(const std::string& pathTail, const std::string& vendor) {
  return std::string("http://") + TOVANI_PRODUCTION_AD_HOST + "/cgi-bin/conad_tovani.fcgi/" +
         pathTail + "?xml=vast&cat2=&vendor=" + vendor +
         "&osv=10.3&device=iPhone9%252C3&vdid=&sdk=1.1.2&ac=10";
}

class ShowFlow : public ::testing::Test {
 protected:
  // A store holding device id X, a carrier that maps to vendor 2 and an empty ad list.
  void startReady() {
    w.createStore();
    execOnStore(w.storePath(), "insert into tn_device(uuid, mcc, mnc) values('X','450','08')");
    w.tp.device->carrierInfo = Carrier{"olleh kt", "450", "08"};
    w.answerAdList(adListJson({}));
    w.start();
    w.tp.runUntilIdle();
  }
  void answerAds(ScriptedHttp::Answer reply) { w.tp.http->on(isAdRequest, std::move(reply)); }
  void show() { TovaniSDK::tovaniShow(w.hostRoot); }
  bool attached() const { return w.viewer()->superview() == w.hostRoot; }

  InventoryWorld w;
};

TEST_F(ShowFlow, AdRequestCarriesEveryDeviceValueWithOsAndModelEncodedTwice) {
  startReady();
  answerAds(answer("<VAST/>"));
  show();

  const auto requests = w.tp.http->requests(Kind::Data);
  ASSERT_THAT(w.adUrls(), SizeIs(1));
  EXPECT_EQ(w.adUrls()[0], productionAdUrl("M/S$X", "2"));
  EXPECT_EQ(requests.back().method, "GET");
  EXPECT_EQ(requests.back().idleTimeoutSeconds, 3.0);
  EXPECT_TRUE(requests.back().allowsCellularAccess);
  EXPECT_TRUE(attached());
}

TEST_F(ShowFlow, AnAdvertisingIdentifierIsSentAsVdid) {
  w.tp.device->idfa = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
  startReady();
  show();
  ASSERT_THAT(w.adUrls(), SizeIs(1));
  EXPECT_THAT(w.adUrls()[0], ::testing::HasSubstr("&vdid=6D92078A-8246-4BA4-AE5B-76104861E7DC&"));
}

TEST_F(ShowFlow, ShowBeforeStartUpReportsTwoAndDetachesEvenWithAUsableStore) {
  w.createStore();
  TovaniSDK::setPlatform(w.tp.platform);
  TovaniSDK::delegate(w.host);
  w.viewer()->db_Init_flag = 1;

  show();
  w.tp.runUntilIdle();

  EXPECT_THAT(w.host->results, ElementsAre(2));
  EXPECT_FALSE(attached());
  EXPECT_THAT(w.tp.http->requests(), IsEmpty());
}

TEST_F(ShowFlow, ShowBeforeAnyFacadeCallDoesNothing) {
  TovaniSDK::setPlatform(w.tp.platform);
  show();
  w.tp.runUntilIdle();
  EXPECT_THAT(w.hostRoot->subviews(), IsEmpty());
  EXPECT_THAT(w.tp.http->requests(), IsEmpty());
}

TEST_F(ShowFlow, ShowsBeforeTheStoreArrivesReportOneAndStartOneStoreDownload) {
  w.tp.http->onPrefix(TOVANI_BASE_URL, answer("", 2.0));
  w.start();
  show();
  EXPECT_FALSE(attached());
  show();
  w.tp.advance(1.0);

  EXPECT_THAT(w.host->results, ElementsAre(1, 1));
  EXPECT_THAT(w.downloadUrls(), SizeIs(1));
  EXPECT_THAT(w.adUrls(), IsEmpty());
  EXPECT_FALSE(attached());
}

TEST_F(ShowFlow, AShowWhileTheRequestIsInFlightIsIgnoredUntilItCompletes) {
  startReady();
  answerAds(answer("<VAST/>", 1.0));

  show();
  show();
  w.tp.advance(0.5);
  EXPECT_THAT(w.adUrls(), SizeIs(1));
  EXPECT_THAT(w.host->results, IsEmpty());
  EXPECT_TRUE(attached());

  w.tp.advance(1.0);
  EXPECT_FALSE(isAdStart);
  show();
  EXPECT_THAT(w.adUrls(), SizeIs(2));
}

TEST_F(ShowFlow, AFailedAdRequestReportsTwoDetachesAndLetsTheNextShowTryAgain) {
  startReady();
  answerAds(failure(0));
  show();
  w.tp.runUntilIdle();
  EXPECT_THAT(w.host->results, ElementsAre(2));
  EXPECT_FALSE(attached());

  // No answer within 3 s is a failure too, reported at the time-out.
  answerAds(answer("<VAST/>", 10.0));
  show();
  w.tp.advance(2.9);
  EXPECT_THAT(w.host->results, ElementsAre(2));
  EXPECT_TRUE(attached());
  w.tp.advance(0.2);
  EXPECT_THAT(w.host->results, ElementsAre(2, 2));
  EXPECT_FALSE(attached());
  EXPECT_THAT(w.adUrls(), SizeIs(2));
}

TEST_F(ShowFlow, PreparationWithoutNetworkReportsTwoAndDoesNotSync) {
  w.createStore();
  w.tp.reachability->flags = 0;
  w.start();
  EXPECT_THAT(w.host->results, ElementsAre(2));  // during init, before any show
  w.tp.runUntilIdle();
  EXPECT_THAT(w.tp.http->requests(), IsEmpty());
  EXPECT_EQ(w.viewer()->db_Init_flag, 1);

  // Unreadable flags count as no network as well.
  w.tp.reachability->flags = std::nullopt;
  w.viewer()->prepareAD_TNSDK();
  EXPECT_THAT(w.host->results, ElementsAre(2, 2));
  EXPECT_THAT(w.tp.http->requests(), IsEmpty());
}

TEST_F(ShowFlow, ADestroyedDelegateReceivesNothingAndTheResultStays) {
  startReady();
  answerAds(failure(0));
  auto other = std::make_shared<RecordingDelegate>();
  TovaniSDK::delegate(other);
  other.reset();

  show();
  w.tp.runUntilIdle();
  EXPECT_THAT(w.host->results, IsEmpty());
  EXPECT_EQ(tovaniResult, 2);
  EXPECT_FALSE(attached());
}

// Sees the status bar as it is when the result arrives.
class StatusBarWitness : public TovaniDelegate {
 public:
  explicit StatusBarWitness(FakeApplication& app) : app_(app) {}
  void tovaniCallBack(int32_t result) override {
    seen.push_back({result, app_.isStatusBarHidden()});
  }
  std::vector<std::pair<int32_t, bool>> seen;

 private:
  FakeApplication& app_;
};

TEST_F(ShowFlow, CloseRestoresTheStartUpStatusBarBeforeReportingTheResult) {
  w.tp.app->statusBarHidden = true;
  startReady();
  auto witness = std::make_shared<StatusBarWitness>(*w.tp.app);
  TovaniSDK::delegate(witness);
  w.tp.app->statusBarHidden = false;  // as a showing leaves it
  tovaniResult = 3;

  w.viewer()->adClose_TNSDK();

  ASSERT_THAT(witness->seen, SizeIs(1));
  EXPECT_EQ(witness->seen[0], std::make_pair(3, true));
  EXPECT_EQ(tovaniResult, 3);  // delivered, not reset
}

}  // namespace
}  // namespace tovani::test
