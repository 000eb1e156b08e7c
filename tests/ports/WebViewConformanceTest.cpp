#include "ports/WebViewRigs.hpp"

#include "support/FakePorts.hpp"
#include "support/VirtualMainQueue.hpp"
#include "tovani/Constants.hpp"
#include "tovani/linux/HeadlessWebView.hpp"

#pragma push_macro("linux")
#undef linux

namespace tovani::ports {

namespace {

const std::string kBody = "endCardType=type1-1&appID=7&appLink=http://adv.example/?a=1&b=%2F^c";

struct Asked {
  std::vector<WebRequest> requests;
  std::function<bool(const WebRequest&)> decider(bool allowAdHost = true) {
    return [this, allowAdHost](const WebRequest& request) {
      requests.push_back(request);
      return allowAdHost && request.url.starts_with(std::string(TOVANI_PRODUCTION_ROOT_URL) + "/");
    };
  }
};

}  // namespace

TEST_P(WebViewConformance, TheFirstLoadIsAskedAboutLaterExactlyAsRequested) {
  auto view = rig->makeView();
  Asked asked;
  view->setNavigationDecider(asked.decider());
  view->loadRequest(WebRequest{rig->cardUrl(), "POST", kBody});
  EXPECT_TRUE(asked.requests.empty()) << "never inside loadRequest";
  ASSERT_TRUE(rig->runUntil([&] { return rig->pagesLoaded(*view) == 1; }, 20));
  ASSERT_EQ(asked.requests.size(), 1u);
  EXPECT_EQ(asked.requests[0].url, rig->cardUrl());
  EXPECT_EQ(asked.requests[0].method, "POST");
  EXPECT_EQ(asked.requests[0].body, kBody);
  EXPECT_FALSE(asked.requests[0].userInitiated);
  view->setScrollBounces(false);  // accepted on every platform, with or without an effect
}

TEST_P(WebViewConformance, ARefusedFirstLoadLoadsNothing) {
  auto view = rig->makeView();
  Asked asked;
  view->setNavigationDecider(asked.decider(false));
  view->loadRequest(WebRequest{rig->cardUrl(), "POST", kBody});
  ASSERT_TRUE(rig->runUntil([&] { return !asked.requests.empty(); }, 20));
  rig->runUntil([] { return false; }, 0.5);
  EXPECT_EQ(rig->pagesLoaded(*view), 0);
  EXPECT_EQ(asked.requests.size(), 1u);
}

TEST_P(WebViewConformance, TappedLinksAreAPersonsAndOnlyAllowedOnesLoad) {
  auto view = rig->makeView();
  Asked asked;
  view->setNavigationDecider(asked.decider());
  view->loadRequest(WebRequest{rig->cardUrl(), "POST", kBody});
  ASSERT_TRUE(rig->runUntil([&] { return rig->pagesLoaded(*view) == 1; }, 20));

  rig->tapLink(*view, rig->otherPageUrl());
  ASSERT_TRUE(rig->runUntil([&] { return rig->pagesLoaded(*view) == 2; }, 20));
  ASSERT_EQ(asked.requests.size(), 2u);
  EXPECT_EQ(asked.requests[1].url, rig->otherPageUrl());
  EXPECT_EQ(asked.requests[1].method, "GET");
  EXPECT_TRUE(asked.requests[1].userInitiated);

  const std::string away = "https://elsewhere.example/landing?x=1";
  rig->tapLink(*view, away);
  ASSERT_TRUE(rig->runUntil([&] { return asked.requests.size() == 3; }, 20));
  EXPECT_EQ(asked.requests[2].url, away);
  EXPECT_TRUE(asked.requests[2].userInitiated);
  rig->runUntil([] { return false; }, 0.3);
  EXPECT_EQ(rig->pagesLoaded(*view), 2) << "a refused link does not load";
}

namespace {

struct RecordingRig : WebViewRig {
  MainQueue& queue() override { return *queue_; }
  double now() const override { return queue_->now(); }
  bool runUntil(const std::function<bool()>& done, double seconds) override {
    for (double t = 0; t < seconds && !done(); t += 0.01) queue_->advance(0.01);
    return done();
  }
  std::shared_ptr<WebView> makeView() override { return factory_.createWebView(); }
  std::string cardUrl() const override { return std::string(TOVANI_URL_ENDCARD) + "type1-1.php"; }
  std::string otherPageUrl() const override {
    return std::string(TOVANI_URL_ENDCARD) + "iosTovaniEndCard.php";
  }
  void tapLink(WebView& view, const std::string& url) override {
    static_cast<test::RecordingWebView&>(view).navigate(url);
  }
  int pagesLoaded(WebView& view) override {
    return static_cast<test::RecordingWebView&>(view).pagesLoaded;
  }
  std::shared_ptr<test::VirtualMainQueue> queue_ = std::make_shared<test::VirtualMainQueue>();
  test::RecordingWebViewFactory factory_{queue_};
};

struct HeadlessRig : AdServerRig {
  HeadlessRig() : factory_(http_, loop_) {}
  std::shared_ptr<WebView> makeView() override { return factory_.createWebView(); }
  void tapLink(WebView& view, const std::string& url) override {
    static_cast<linux::HeadlessWebView&>(view).followLink(url);
  }
  int pagesLoaded(WebView& view) override {
    return static_cast<linux::HeadlessWebView&>(view).pagesLoaded();
  }
  linux::HeadlessWebViewFactory factory_;
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(
    Ports, WebViewConformance,
    ::testing::Values(
        RigMaker<WebViewRig>{"RecordingWebView", [] { return std::make_unique<RecordingRig>(); }},
        RigMaker<WebViewRig>{"HeadlessWebView", [] { return std::make_unique<HeadlessRig>(); }}),
    rigName<WebViewRig>);

}  // namespace tovani::ports

#pragma pop_macro("linux")
