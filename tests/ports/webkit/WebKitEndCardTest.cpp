// The end card in the real engine, against the development ad server on loopback: what the
// server received, what the navigation decider was asked, and what the page shows.
#include <signal.h>

#include "ports/webkit/WebKitDriver.hpp"

namespace tovani::ports {
namespace {

const std::string kCard = std::string(TOVANI_URL_ENDCARD) + "type1-1.php";
// As the SDK formats it: the advertiser's link is not escaped, so its own "&" and "?" split
// into further fields on the wire, and the bundle name carries a blank and a non-ASCII letter.
const std::string kBody =
    "endCardType=type1-1&appID=42&clickTrackUrl=&appLink=http://adv.example/p?q=1&x=%2F^y"
    "&mediaCode=M1&slotCode=S1&cateCode=MUSIC&SDKVer=1.1.2&BName=D\xc3\xa9mo Host";

// Script run from the test counts as a person's doing, and so do timers it sets within a
// second; a longer timer runs as the page's own script would.
std::string later(const std::string& js) {
  return "setTimeout(() => { " + js + "; }, 1100); 1";
}

class WebKitEndCard : public ::testing::Test {
 protected:
  void SetUp() override {
    view = std::dynamic_pointer_cast<gtk::WebKitView>(rig.makeView());
    ASSERT_TRUE(view);
    view->setNavigationDecider([this](const WebRequest& request) {
      asked.push_back(request);
      // The SDK's rule: commands and other hosts are refused, the ad host loads in place.
      return request.url.starts_with(std::string(TOVANI_PRODUCTION_ROOT_URL) + "/");
    });
  }

  bool waitFor(const std::function<bool()>& done) { return rig.runUntil(done, 20); }

  void loadCard() {
    const int before = view->pagesLoaded();
    view->loadRequest(WebRequest{kCard, "POST", kBody});
    ASSERT_TRUE(waitFor([&] { return view->pagesLoaded() > before; })) << "card never loaded";
  }

  std::vector<adserver::LoggedRequest> endCardRequests() const {
    std::vector<adserver::LoggedRequest> out;
    for (auto& r : rig.server_->requests()) {
      if (r.route == "endcard") out.push_back(r);
    }
    return out;
  }

  WebKitRig rig;
  std::shared_ptr<gtk::WebKitView> view;
  std::vector<WebRequest> asked;
};

TEST_F(WebKitEndCard, FirstLoadPostsTheExactBodyAndThePageLivesOnTheAdHost) {
  loadCard();
  ASSERT_EQ(asked.size(), 1u) << "the first load is asked about once";
  const auto posts = endCardRequests();
  ASSERT_EQ(posts.size(), 1u);
  EXPECT_EQ(posts[0].method, "POST");
  EXPECT_EQ(posts[0].host, rig.server_->hosts().production);
  EXPECT_EQ(posts[0].path, "/endcard/ios/type1-1.php");
  EXPECT_EQ(posts[0].body, kBody) << "byte for byte as formatted";

  EXPECT_EQ(view->currentUrl(), kCard);
  EXPECT_EQ(rig.script(*view, "document.baseURI"), kCard);
  EXPECT_EQ(rig.script(*view, "document.getElementById('fields').textContent.includes('42')"),
            "true")
      << "the page is the one the server made from the posted form";

  // A relative address resolves against the ad host, is asked about, and loads in place
  // from the ad server.
  rig.script(*view, later("location.href = 'iosTovaniEndCard.php'"));
  ASSERT_TRUE(waitFor([&] { return view->pagesLoaded() == 2; }));
  const std::string next = std::string(TOVANI_URL_ENDCARD) + "iosTovaniEndCard.php";
  ASSERT_EQ(asked.size(), 2u);
  EXPECT_EQ(asked[1].url, next);
  EXPECT_FALSE(asked[1].userInitiated) << "a script's navigation is not a person's";
  EXPECT_EQ(view->currentUrl(), next);
  const auto all = endCardRequests();
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[1].method, "GET");
  EXPECT_EQ(all[1].path, "/endcard/ios/iosTovaniEndCard.php");
}

TEST_F(WebKitEndCard, BridgeLinksAndOtherHostsAreAskedAboutAndNeverLoaded) {
  loadCard();
  asked.clear();

  // The page's own script follows the bridge link.
  rig.script(*view, later("document.getElementById('close').click()"));
  ASSERT_TRUE(waitFor([&] { return !asked.empty(); }));
  EXPECT_EQ(asked[0].url, "tovaniksdkcall://close");
  EXPECT_FALSE(asked[0].userInitiated);

  // A person clicks the store link: another host, reported as the user's doing, not loaded.
  rig.clickOn(*view, "outbound");
  ASSERT_TRUE(waitFor([&] { return asked.size() >= 2; })) << "the click reached no link";
  EXPECT_EQ(asked[1].url, "https://www.example.com/store/app?id=42");
  EXPECT_TRUE(asked[1].userInitiated);

  // A person clicks a link on the ad host: it loads in place.
  rig.clickOn(*view, "home");
  ASSERT_TRUE(waitFor([&] { return view->pagesLoaded() == 2; }));
  EXPECT_TRUE(asked.back().userInitiated);
  EXPECT_EQ(view->currentUrl(), std::string(TOVANI_PRODUCTION_ROOT_URL) + "/");
  EXPECT_EQ(endCardRequests().back().path, "/");

  // A link that asks for a new window is asked about too, and opens in place.
  rig.script(*view,
             "(() => { const a = document.createElement('a'); a.id = 'popup'; "
             "a.target = '_blank'; a.href = 'endcard/ios/iosTovaniEndCard.php'; "
             "a.textContent = 'popup'; document.body.appendChild(a); return 1; })()");
  const auto before = asked.size();
  rig.clickOn(*view, "popup");
  ASSERT_TRUE(waitFor([&] { return view->pagesLoaded() == 3; }));
  EXPECT_EQ(view->currentUrl(), std::string(TOVANI_URL_ENDCARD) + "iosTovaniEndCard.php");
  ASSERT_GT(asked.size(), before);
  EXPECT_TRUE(asked[before].userInitiated);
}

TEST_F(WebKitEndCard, KilledWebProcessEndsAShownCardAndReloadsAHiddenOne) {
  loadCard();
  asked.clear();
  auto victims = webProcesses();
  ASSERT_FALSE(victims.empty()) << "no web process found among this process's children";
  for (int pid : victims) kill(pid, SIGKILL);
  ASSERT_TRUE(waitFor([&] { return !asked.empty(); }));
  EXPECT_EQ(asked[0].url, "tovaniksdkcall://close") << "a shown card closes as its link would";

  // The host lives on: the next card loads in a fresh process.
  loadCard();

  // A card that is not on screen yet is fetched again instead.
  gtk_widget_hide(view->widget());
  asked.clear();
  const auto posted = endCardRequests().size();
  for (int pid : webProcesses()) kill(pid, SIGKILL);
  ASSERT_TRUE(waitFor([&] { return endCardRequests().size() > posted; }));
  ASSERT_FALSE(asked.empty());
  EXPECT_EQ(asked[0].url, kCard);
  EXPECT_EQ(endCardRequests().back().body, kBody);
  for (const auto& request : asked) EXPECT_NE(request.url, "tovaniksdkcall://close");
}

}  // namespace
}  // namespace tovani::ports
