#include <gtest/gtest.h>

#include "support/AdScreenFixture.hpp"
#include "viewer/ProcessState.hpp"

namespace tovani::test {
namespace {

class Layout : public ::testing::Test {
 protected:
  void SetUp() override {
    f.start();
    v = f.viewer();
    v->tnAdPlayerLayer = std::make_shared<View>(View::Kind::VideoLayer);
    v->button = std::make_shared<View>(View::Kind::Button);
    v->skipevent_imageview = std::make_shared<View>(View::Kind::ImageView);
    v->actionevent_imageview = std::make_shared<View>(View::Kind::ImageView);
  }
  void screen(double w, double h, DeviceOrientation o) {
    f.tp.screen->size = {w, h};
    f.tp.screen->orientation = o;
  }
  AdScreenFixture f;
  std::shared_ptr<tovaniViewer> v;
};

TEST_F(Layout, PhoneFillsTheScreenAndLaysOutAgainOnlyWhenTheSizeChanges) {
  v->viewResize_TNSDK();
  const Rect full{0, 0, 375, 667};
  EXPECT_EQ(full, v->frame);
  EXPECT_EQ(Color::black(), v->backgroundColor);
  EXPECT_EQ(full, v->tnAdPlayerLayer->frame);
  EXPECT_EQ(full, v->tnAdEndCardView->frame);
  EXPECT_EQ(full, v->button->frame);
  EXPECT_EQ(VideoGravity::Resize, v->tnAdPlayerLayer->videoGravity);
  EXPECT_EQ((Rect{330, 0, 35, 35}), v->tnVidoeTimeRemain->frame);
  EXPECT_EQ((Rect{265, 632, 100, 25}), v->skipevent_imageview->frame);
  EXPECT_EQ((Rect{10, 612, 45, 45}), v->actionevent_imageview->frame);
  EXPECT_EQ((Size{375, 667}), currentBoundSize);

  v->skipevent_imageview->frame = {};
  v->viewResize_TNSDK();
  EXPECT_EQ(Rect{}, v->skipevent_imageview->frame);

  screen(667, 375, DeviceOrientation::LandscapeLeft);
  v->viewResize_TNSDK();
  EXPECT_EQ((Rect{0, 0, 667, 375}), v->tnAdPlayerLayer->frame);
  EXPECT_EQ(VideoGravity::ResizeAspect, v->tnAdPlayerLayer->videoGravity);
  EXPECT_EQ((Rect{557, 340, 100, 25}), v->skipevent_imageview->frame);
  EXPECT_EQ((Rect{10, 320, 45, 45}), v->actionevent_imageview->frame);
  EXPECT_EQ((Rect{622, 0, 35, 35}), v->tnVidoeTimeRemain->frame);
}

TEST_F(Layout, TabletVideoKeepsTheProportionsOfTheOrientation) {
  f.tp.screen->modelName = "iPad";
  f.tp.screen->idiom = InterfaceIdiom::Pad;
  screen(1024, 768, DeviceOrientation::Portrait);
  v->viewResize_TNSDK();
  EXPECT_EQ((Rect{0, 0, 1024, 768}), v->frame);
  EXPECT_EQ((Rect{0, 0, 768, 1024}), v->tnAdPlayerLayer->frame);
  EXPECT_EQ((Rect{0, 0, 768, 1024}), v->tnAdEndCardView->frame);
  EXPECT_EQ((Rect{0, 0, 768, 1024}), v->button->frame);
  EXPECT_EQ(VideoGravity::ResizeAspect, v->tnAdPlayerLayer->videoGravity);
  // A 2x tablet (264) gets the small skip image, placed on the viewer's bounds.
  EXPECT_EQ((Rect{914, 733, 100, 25}), v->skipevent_imageview->frame);

  screen(768, 1024, DeviceOrientation::LandscapeRight);
  v->viewResize_TNSDK();
  EXPECT_EQ((Rect{0, 0, 1024, 768}), v->tnAdPlayerLayer->frame);

  // Lying flat counts as portrait, whatever the screen reports.
  screen(1024, 768, DeviceOrientation::FaceUp);
  v->viewResize_TNSDK();
  EXPECT_EQ((Rect{0, 0, 768, 1024}), v->tnAdPlayerLayer->frame);
}

TEST_F(Layout, LargeSkipImageOnlyAboveFourHundredEightyDots) {
  struct Case {
    std::optional<InterfaceIdiom> idiom;
    std::optional<double> scale;
    bool large;
  };
  const Case cases[] = {
      {InterfaceIdiom::Phone, 2.0, false},         {InterfaceIdiom::Phone, 3.0, true},
      {InterfaceIdiom::Pad, 3.0, false},           {InterfaceIdiom::TV, 3.0, false},
      {InterfaceIdiom::CarPlay, 3.01, true},       {std::nullopt, 3.0, true},
      {InterfaceIdiom::Phone, std::nullopt, false}};
  screen(414, 736, DeviceOrientation::Portrait);
  for (const auto& c : cases) {
    f.tp.screen->idiom = c.idiom;
    f.tp.screen->scaleFactor = c.scale;
    v->resizePortrait();
    const Rect expected = c.large ? Rect{249, 684, 150, 37} : Rect{304, 701, 100, 25};
    EXPECT_EQ(expected, v->skipevent_imageview->frame)
        << static_cast<int>(c.idiom.value_or(InterfaceIdiom::Unspecified)) << " x"
        << c.scale.value_or(0);
  }
}

TEST_F(Layout, TurningLaysOutAtOnceAndAgainAfterThreeTenths) {
  v->orientationChanged();
  EXPECT_EQ((Rect{0, 0, 375, 667}), v->frame);
  // The screen reports its new size only a moment after the turn.
  screen(667, 375, DeviceOrientation::LandscapeLeft);
  f.tp.advance(0.29);
  EXPECT_EQ((Rect{0, 0, 375, 667}), v->frame);
  f.tp.advance(0.01);
  EXPECT_EQ((Rect{0, 0, 667, 375}), v->frame);
  EXPECT_EQ((Size{667, 375}), currentBoundSize);
}

}  // namespace
}  // namespace tovani::test
