// Whole showings on the GTK platform in a real window (Xvfb in CI) against the development ad
// server on loopback: what a person sees, and what a real pointer click does.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "DesktopFixture.hpp"

namespace tovani::test {
namespace {

// The default scenario with the first ad's end card off, so a skip or an action tap ends the
// showing at once (the end card has tests of its own).
adserver::Options withoutEndCard() {
  std::ifstream in(std::string(TOVANI_SOURCE_DIR) + "/tools/adserver/scenarios/default.json");
  std::stringstream text;
  text << in.rdbuf();
  auto scenario = nlohmann::json::parse(text.str());
  scenario["vast"][0]["extensions"]["EndcardUse"] = "false";
  adserver::Options options;
  options.scenarioText = scenario.dump();
  return options;
}

bool tracked(const std::vector<adserver::LoggedRequest>& requests, const std::string& event) {
  return std::any_of(requests.begin(), requests.end(), [&](const adserver::LoggedRequest& r) {
    return r.route == "track" && r.path.size() >= event.size() &&
           r.path.compare(r.path.size() - event.size(), event.size(), event) == 0;
  });
}

// Mean absolute difference per channel between the window's pixels in `area` and `image`
// scaled to it.
double differenceFrom(GdkPixbuf* shot, const GdkRectangle& area, GdkPixbuf* image) {
  GdkPixbuf* region = gdk_pixbuf_new_subpixbuf(shot, area.x, area.y, area.width, area.height);
  GdkPixbuf* scaled = gdk_pixbuf_scale_simple(image, area.width, area.height, GDK_INTERP_BILINEAR);
  double sum = 0;
  int count = 0;
  const int rs = gdk_pixbuf_get_rowstride(region), ss = gdk_pixbuf_get_rowstride(scaled);
  const int rn = gdk_pixbuf_get_n_channels(region), sn = gdk_pixbuf_get_n_channels(scaled);
  const guchar* rp = gdk_pixbuf_read_pixels(region);
  const guchar* sp = gdk_pixbuf_read_pixels(scaled);
  const bool alpha = gdk_pixbuf_get_has_alpha(scaled);
  for (int y = 0; y < area.height; ++y) {
    for (int x = 0; x < area.width; ++x) {
      const guchar* s = sp + y * ss + x * sn;
      if (alpha && s[3] < 250) continue;  // see-through pixels show what is below
      for (int c = 0; c < 3; ++c) sum += std::abs(rp[y * rs + x * rn + c] - s[c]);
      count += 3;
    }
  }
  g_object_unref(region);
  g_object_unref(scaled);
  return count == 0 ? 255 : sum / count;
}

// Standard deviation of the grey level in `area`: near 0 for a blank (unpainted) video.
double spread(GdkPixbuf* shot, const GdkRectangle& area) {
  const int rs = gdk_pixbuf_get_rowstride(shot), n = gdk_pixbuf_get_n_channels(shot);
  const guchar* p = gdk_pixbuf_read_pixels(shot);
  double sum = 0, squares = 0;
  int count = 0;
  for (int y = area.y; y < area.y + area.height; y += 2) {
    for (int x = area.x; x < area.x + area.width; x += 2) {
      const guchar* px = p + y * rs + x * n;
      const double grey = (px[0] + px[1] + px[2]) / 3.0;
      sum += grey;
      squares += grey * grey;
      ++count;
    }
  }
  const double mean = sum / count;
  return std::sqrt(std::max(0.0, squares / count - mean * mean));
}

GdkPixbuf* decode(const std::string& bytes) {
  GdkPixbufLoader* loader = gdk_pixbuf_loader_new_with_type("png", nullptr);
  gdk_pixbuf_loader_write(loader, reinterpret_cast<const guchar*>(bytes.data()), bytes.size(),
                          nullptr);
  gdk_pixbuf_loader_close(loader, nullptr);
  GdkPixbuf* image = gdk_pixbuf_loader_get_pixbuf(loader);
  if (image != nullptr) g_object_ref(image);
  g_object_unref(loader);
  return image;
}

TEST_F(DesktopTest, CountdownThenARealClickOnTheSkipImageEndsWithThreeBeforeTheRewardPoint) {
  open(375, 667, "iPhone", InterfaceIdiom::Phone, withoutEndCard());
  waitForInventory();
  show();
  auto& hostView = *session->desktop.hostView;
  std::vector<std::string> countdown;
  std::set<const Image*> digits;
  std::shared_ptr<View> skip;
  ASSERT_TRUE(runUntil(
      [&] {
        if (auto label = node(View::Kind::Label)) {
          auto text = hostView.drawnText(*label);
          if (text && !text->empty() && (countdown.empty() || countdown.back() != *text)) {
            countdown.push_back(*text);
          }
        }
        skip = node(View::Kind::ImageView, 101);
        if (skip && skip->image && hostView.widgetFor(*skip)) digits.insert(skip->image.get());
        return skip && skip->userInteractionEnabled;
      },
      20));
  // The label drew a falling count of seconds left.
  ASSERT_GE(countdown.size(), 3u);
  for (size_t i = 1; i < countdown.size(); ++i) {
    EXPECT_LT(std::stoi(countdown[i]), std::stoi(countdown[i - 1])) << countdown[i];
  }
  // Digits 5..1, then the active button.
  EXPECT_GE(digits.size(), 5u);
  runUntil([] { return false; }, 0.3);  // a frame or two for the last change
  EXPECT_EQ(misplacedNodes(), std::vector<std::string>{});

  GdkPixbuf* shot = screenshot("skip-active");
  GdkPixbuf* served = decode(skip->image->bytes);
  ASSERT_NE(served, nullptr);
  EXPECT_LT(differenceFrom(shot, placeOf(hostView.widgetFor(*skip)), served), 16.0)
      << "the skip image on screen is the served PNG";
  auto video = node(View::Kind::VideoLayer);
  ASSERT_TRUE(video);
  GdkRectangle picture = placeOf(hostView.widgetFor(*video));
  picture.y += 50;
  picture.height -= 120;  // clear of the label and the buttons
  EXPECT_GT(spread(shot, picture), 8.0) << "a frame of the video is on screen";
  g_object_unref(served);
  g_object_unref(shot);

  clickOn(*skip);
  ASSERT_TRUE(runUntil([&] { return !host->results.empty(); }, 5));
  EXPECT_EQ(host->results, std::vector<int32_t>{3});
  EXPECT_FALSE(tracked(requests(), "complete")) << "skipped before the reward point";
  runUntil([] { return false; }, 0.2);
  EXPECT_EQ(hostView.widgetFor(*video), nullptr) << "the ad left the screen";
}

TEST_F(DesktopTest, ARealClickOnTheActionImageSendsTheClickAndOpensTheLandingPageThroughGio) {
  open(375, 667, "iPhone", InterfaceIdiom::Phone, withoutEndCard());
  waitForInventory();
  show();
  std::shared_ptr<View> action;
  ASSERT_TRUE(runUntil(
      [&] {
        action = node(View::Kind::ImageView, 100);
        return action && action->userInteractionEnabled &&
               session->desktop.hostView->widgetFor(*action) != nullptr;
      },
      20));
  runUntil([] { return false; }, 0.2);
  // A click on the label, which takes no touches, lets the click through to what is below.
  clickOn(*action);
  ASSERT_TRUE(runUntil([&] { return !host->results.empty(); }, 5));
  EXPECT_EQ(host->results, std::vector<int32_t>{3});
  EXPECT_TRUE(tracked(requests(), "clickprogress"));
  ASSERT_TRUE(runUntil([&] { return !launchedUrls().empty(); }, 5));
  EXPECT_EQ(launchedUrls().front().rfind("http", 0), 0u) << launchedUrls().front();
}

// Xvfb has no window manager, so nothing can minimise the window there; hiding it unmaps it
// as minimising does, and the adapter treats both alike.
TEST_F(DesktopTest, AWindowAwayForTenSecondsResumesAndForElevenEndsWithThree) {
  open(375, 667, "iPhone", InterfaceIdiom::Phone, withoutEndCard());
  waitForInventory();
  show();
  std::shared_ptr<View> video;
  ASSERT_TRUE(runUntil(
      [&] {
        video = node(View::Kind::VideoLayer);
        return video && video->player && video->player->currentTime() > 1.0;
      },
      20));
  auto& application = *session->desktop.application;
  EXPECT_TRUE(application.isStatusBarHidden()) << "the ad asked for the whole screen";
  auto awayFor = [&](double seconds) {
    const double leftAt = std::floor(clock->now()) + 0.5;
    clock->pinned = leftAt;
    gtk_widget_hide(window);
    runUntil([] { return false; }, 0.3);
    clock->pinned = leftAt + seconds;
    gtk_widget_show(window);
    runUntil([] { return false; }, 0.5);
    clock->pinned.reset();
  };
  awayFor(10);
  EXPECT_TRUE(host->results.empty());
  const double before = video->player->currentTime();
  runUntil([] { return false; }, 0.5);
  EXPECT_GT(video->player->currentTime(), before) << "still playing after ten seconds away";

  awayFor(11);
  ASSERT_TRUE(runUntil([&] { return !host->results.empty(); }, 3));
  EXPECT_EQ(host->results, std::vector<int32_t>{3});
  EXPECT_FALSE(application.isStatusBarHidden()) << "the window's state is given back";
}

struct WindowShape {
  int width, height;
  const char* model;
  InterfaceIdiom idiom;
};

class DesktopLayoutTest : public DesktopTest, public ::testing::WithParamInterface<WindowShape> {};

TEST_P(DesktopLayoutTest, WidgetsSitAtTheirNodesFramesBeforeAndAfterTheWindowTurns) {
  const WindowShape shape = GetParam();
  open(shape.width, shape.height, shape.model, shape.idiom, withoutEndCard());
  waitForInventory();
  show();
  std::shared_ptr<View> action;
  ASSERT_TRUE(runUntil(
      [&] {
        action = node(View::Kind::ImageView, 100);
        return action && session->desktop.hostView->widgetFor(*action) != nullptr;
      },
      20));
  runUntil([] { return false; }, 0.2);
  EXPECT_EQ(misplacedNodes(), std::vector<std::string>{});
  // Turning the window lays the ad out again, as turning a device does.
  gtk_window_resize(GTK_WINDOW(window), shape.height, shape.width);
  ASSERT_TRUE(runUntil([&] { return session->desktop.hostView->size().width == shape.height; }, 5));
  ASSERT_TRUE(runUntil(
      [&] {
        auto viewer = session->desktop.hostView->rootView()->subviews();
        return !viewer.empty() && viewer[0]->frame.width == shape.height;
      },
      5));
  runUntil([] { return false; }, 0.5);
  EXPECT_EQ(misplacedNodes(), std::vector<std::string>{});
  clickOn(*action);
  ASSERT_TRUE(runUntil([&] { return !host->results.empty(); }, 5));
}

INSTANTIATE_TEST_SUITE_P(Windows, DesktopLayoutTest,
                         ::testing::Values(WindowShape{375, 667, "iPhone", InterfaceIdiom::Phone},
                                           WindowShape{667, 375, "iPhone", InterfaceIdiom::Phone},
                                           WindowShape{768, 1024, "iPad", InterfaceIdiom::Pad}),
                         [](const auto& shape) {
                           return std::to_string(shape.param.width) + "x" +
                                  std::to_string(shape.param.height);
                         });

}  // namespace
}  // namespace tovani::test
