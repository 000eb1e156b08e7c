#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "LoopbackServer.hpp"
#include "tovani/linux/HeadlessWebView.hpp"
#include "tovani/linux/MainLoop.hpp"

namespace tovani::linux {
namespace {

using testing::LoopbackServer;

constexpr const char* kEndCard = R"(<html><body>
<a class="btn" href="/endcard/ios/next?a=1&amp;b=2">again</a>
<A HREF='tovaniksdkcall://close'>close</A>
<area shape=rect href=https://apps.example/app/1>
<!-- <a href="/commented-out"> -->
<script>document.write('<a href="/written-by-script">');</script>
<link rel="stylesheet" href="/style.css">
</body></html>)";

class HeadlessWebViewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto& routes = server_.routes();
    routes.Post("/endcard/ios/page",
                [](const auto&, auto& res) { res.set_content(kEndCard, "text/html"); });
    routes.Get("/endcard/ios/next",
               [](const auto&, auto& res) { res.set_content("<p>next page</p>", "text/html"); });
    routes.Get("/endcard/ios/moved",
               [](const auto&, auto& res) { res.set_redirect("/endcard/ios/next"); });
    server_.start();
    view_ = std::dynamic_pointer_cast<HeadlessWebView>(factory_.createWebView());
    view_->setNavigationDecider([this](const WebRequest& request) {
      asked_.push_back(request);
      return request.url.starts_with("http://127.0.0.1");
    });
  }

  bool runUntilLoaded(int pages) {
    return loop_->runUntil([&] { return view_->pagesLoaded() == pages && !view_->isLoading(); }, 5);
  }

  LoopbackServer server_;
  std::shared_ptr<MainLoop> loop_ = std::make_shared<MainLoop>(MainContextChoice::Private);
  std::shared_ptr<CurlHttp> http_ = std::make_shared<CurlHttp>(loop_);
  HeadlessWebViewFactory factory_{http_, loop_};
  std::shared_ptr<HeadlessWebView> view_;
  std::vector<WebRequest> asked_;
};

TEST_F(HeadlessWebViewTest, APostedPageLoadsAfterTheDeciderAllowsItAndExposesItsLinks) {
  view_->loadRequest({server_.url("/endcard/ios/page"), "POST", "adid=7&type=1"});
  EXPECT_TRUE(asked_.empty()) << "asked inside loadRequest";
  ASSERT_TRUE(runUntilLoaded(1));

  ASSERT_EQ(asked_.size(), 1u);
  EXPECT_EQ(asked_[0].method, "POST");
  EXPECT_EQ(asked_[0].body, "adid=7&type=1");
  const auto posts = server_.hitsOn("/endcard/ios/page");
  ASSERT_EQ(posts.size(), 1u);
  EXPECT_EQ(posts[0].body, "adid=7&type=1");
  EXPECT_EQ(posts[0].contentType, "application/x-www-form-urlencoded");

  ASSERT_TRUE(view_->page());
  EXPECT_EQ(view_->page()->url, server_.url("/endcard/ios/page"));
  EXPECT_EQ(view_->page()->status, 200);
  EXPECT_EQ(view_->page()->body, kEndCard);
  EXPECT_EQ(view_->page()->links,
            (std::vector<std::string>{server_.url("/endcard/ios/next?a=1&b=2"),
                                      "tovaniksdkcall://close", "https://apps.example/app/1"}));
}

TEST_F(HeadlessWebViewTest, LinksAreFollowedInPlaceOnlyWhenTheDeciderAgrees) {
  view_->loadRequest({server_.url("/endcard/ios/page"), "POST", ""});
  ASSERT_TRUE(runUntilLoaded(1));

  EXPECT_FALSE(view_->followLink("tovaniksdkcall://close"));
  EXPECT_FALSE(view_->followLink("https://apps.example/app/1"));
  loop_->runFor(0.2);
  EXPECT_EQ(view_->pagesLoaded(), 1);
  EXPECT_EQ(view_->page()->url, server_.url("/endcard/ios/page"));

  EXPECT_TRUE(view_->followLink("/endcard/ios/next?a=1&b=2"));
  ASSERT_TRUE(runUntilLoaded(2));
  EXPECT_EQ(asked_.back().method, "GET");
  EXPECT_EQ(view_->page()->url, server_.url("/endcard/ios/next?a=1&b=2"));
  EXPECT_EQ(view_->page()->body, "<p>next page</p>");

  // A redirect is a navigation of its own, put to the decider before it is followed.
  const size_t before = asked_.size();
  EXPECT_TRUE(view_->followLink(server_.url("/endcard/ios/moved")));
  ASSERT_TRUE(runUntilLoaded(3));
  ASSERT_EQ(asked_.size(), before + 2);
  EXPECT_EQ(asked_.back().url, server_.url("/endcard/ios/next"));
  EXPECT_EQ(view_->page()->url, server_.url("/endcard/ios/next"));

  // The page, next, moved and next again: nothing refused went out.
  EXPECT_EQ(server_.hits().size(), 4u);
  EXPECT_EQ(server_.hitsOn("/endcard/ios/next").size(), 2u);
}

TEST_F(HeadlessWebViewTest, ARefusedFirstLoadSendsNothingAndTheViewKeepsItsState) {
  view_->setNavigationDecider([this](const WebRequest& request) {
    asked_.push_back(request);
    return false;
  });
  view_->setScrollBounces(false);
  view_->loadRequest({server_.url("/endcard/ios/page"), "POST", "x=1"});
  loop_->runFor(0.3);
  EXPECT_EQ(asked_.size(), 1u);
  EXPECT_TRUE(server_.hits().empty());
  EXPECT_FALSE(view_->page());
  EXPECT_FALSE(view_->isLoading());
  EXPECT_FALSE(view_->scrollBounces());

  auto second = factory_.createWebView();
  EXPECT_EQ(factory_.webViews().size(), 2u);
  second.reset();
  EXPECT_EQ(factory_.webViews(), std::vector<std::shared_ptr<HeadlessWebView>>{view_});
}

}  // namespace
}  // namespace tovani::linux
