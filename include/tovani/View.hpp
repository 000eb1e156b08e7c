#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>
#include "tovani/Export.hpp"

namespace tovani {

class MediaPlayer;
class WebView;

struct Size {
  double width = 0;
  double height = 0;
  bool operator==(const Size&) const = default;
};

struct Rect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  bool operator==(const Rect&) const = default;
};

struct Color {
  double r = 0, g = 0, b = 0, a = 0;  // a == 0: clear
  bool operator==(const Color&) const = default;
  static Color clear() { return {}; }
  static Color black() { return {0, 0, 0, 1}; }
  static Color white() { return {1, 1, 1, 1}; }
};

struct Font {
  std::string family;  // "" for the system font
  double size = 0;
  bool bold = false;
  bool operator==(const Font&) const = default;
};

// Encoded image bytes as fetched; made only from data that looks like an image.
struct TOVANI_EXPORT Image {
  std::string bytes;
  std::string sourceUrl;
  // nullptr when the data is empty or not a PNG, JPEG, GIF or WebP image.
  static std::shared_ptr<Image> fromData(std::string data, std::string sourceUrl = {});
};

// A tap recogniser: one action, delivered on the main thread.
struct TapRecognizer {
  std::function<void()> action;
};

enum class TextAlignment { Left, Center, Right };
enum class VideoGravity { Resize, ResizeAspect };

// Platform-neutral view tree. The core builds and changes it on the main thread; a
// platform renders it and reports taps back through View::tap().
class TOVANI_EXPORT View : public std::enable_shared_from_this<View> {
 public:
  enum class Kind { Plain, Label, ImageView, Button, VideoLayer, WebView };

  explicit View(Kind viewKind = Kind::Plain) : kind(viewKind) {}
  virtual ~View() = default;
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  Kind kind;
  Rect frame;
  double zPosition = 0;
  bool hidden = false;
  bool userInteractionEnabled = true;
  Color backgroundColor;
  // Label
  std::string text;
  TextAlignment textAlignment = TextAlignment::Left;
  Color textColor;
  Font font;
  // Image view
  std::shared_ptr<Image> image;
  // Video layer
  std::shared_ptr<MediaPlayer> player;
  // A new video layer shows the video at its own aspect ratio; only layouts that ask for
  // another gravity change it.
  VideoGravity videoGravity = VideoGravity::ResizeAspect;
  // Web view
  std::shared_ptr<WebView> webView;

  Rect bounds() const { return {0, 0, frame.width, frame.height}; }

  void addSubview(const std::shared_ptr<View>& child);  // moves it here from any old parent
  void removeFromSuperview();
  std::shared_ptr<View> superview() const { return superview_.lock(); }
  const std::vector<std::shared_ptr<View>>& subviews() const { return subviews_; }
  bool isDescendantOf(const View& ancestor) const;

  // Attaching a recogniser that is already attached changes nothing.
  void addGestureRecognizer(const std::shared_ptr<TapRecognizer>& recognizer);
  const std::vector<std::shared_ptr<TapRecognizer>>& gestureRecognizers() const {
    return recognizers_;
  }
  // A user's tap: runs every attached recogniser when the view takes touches and is
  // visible on a visible chain. Returns whether any action ran.
  bool tap();

 private:
  std::weak_ptr<View> superview_;
  std::vector<std::shared_ptr<View>> subviews_;
  std::vector<std::shared_ptr<TapRecognizer>> recognizers_;
};

}  // namespace tovani
