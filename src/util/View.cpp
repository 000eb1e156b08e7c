#include "tovani/View.hpp"

#include <algorithm>

namespace tovani {

namespace {

bool looksLikeImage(const std::string& d) {
  auto starts = [&](std::string_view magic) {
    return d.size() >= magic.size() && d.compare(0, magic.size(), magic) == 0;
  };
  return starts("\x89PNG\r\n\x1a\n") || starts("\xff\xd8\xff") || starts("GIF87a") ||
         starts("GIF89a") || (starts("RIFF") && d.size() >= 12 && d.compare(8, 4, "WEBP") == 0);
}

}  // namespace

std::shared_ptr<Image> Image::fromData(std::string data, std::string sourceUrl) {
  if (!looksLikeImage(data)) return nullptr;
  auto image = std::make_shared<Image>();
  image->bytes = std::move(data);
  image->sourceUrl = std::move(sourceUrl);
  return image;
}

void View::addSubview(const std::shared_ptr<View>& child) {
  // A view cannot hold itself or one of its own ancestors.
  if (!child || child.get() == this || isDescendantOf(*child)) return;
  if (child->superview().get() == this) {
    // Adding an existing subview brings it to the front, as view systems do.
    std::erase(subviews_, child);
    subviews_.push_back(child);
    return;
  }
  child->removeFromSuperview();
  child->superview_ = weak_from_this();
  subviews_.push_back(child);
}

void View::removeFromSuperview() {
  auto parent = superview_.lock();
  superview_.reset();
  if (!parent) return;
  auto keepAlive = shared_from_this();
  std::erase_if(parent->subviews_,
                [this](const std::shared_ptr<View>& v) { return v.get() == this; });
}

bool View::isDescendantOf(const View& ancestor) const {
  for (auto p = superview(); p; p = p->superview()) {
    if (p.get() == &ancestor) return true;
  }
  return false;
}

void View::addGestureRecognizer(const std::shared_ptr<TapRecognizer>& recognizer) {
  if (!recognizer) return;
  if (std::find(recognizers_.begin(), recognizers_.end(), recognizer) != recognizers_.end()) return;
  recognizers_.push_back(recognizer);
}

bool View::tap() {
  if (!userInteractionEnabled || hidden) return false;
  for (auto p = superview(); p; p = p->superview()) {
    if (p->hidden) return false;
  }
  // Copy first: an action may close the ad and take this view down.
  const auto recognizers = recognizers_;
  bool ran = false;
  for (const auto& r : recognizers) {
    if (r && r->action) {
      auto action = r->action;
      action();
      ran = true;
    }
  }
  return ran;
}

}  // namespace tovani
