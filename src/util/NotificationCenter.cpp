#include "util/NotificationCenter.hpp"

#include <algorithm>

namespace tovani {

NotificationCenter& NotificationCenter::defaultCenter() {
  // Never destroyed: the viewer, which also lives to the end of the process, removes its
  // observers here, and nothing may be torn down under it at exit.
  static auto* center = new NotificationCenter;
  return *center;
}

void NotificationCenter::addObserver(const void* owner, const std::string& name, Handler handler,
                                     const void* object) {
  entries_.push_back(std::make_shared<Entry>(Entry{owner, name, object, std::move(handler)}));
}

void NotificationCenter::removeObserver(const void* owner) {
  std::erase_if(entries_, [&](const std::shared_ptr<Entry>& e) {
    if (e->owner != owner) return false;
    e->removed = true;
    return true;
  });
}

void NotificationCenter::removeObserver(const void* owner, const std::string& name) {
  std::erase_if(entries_, [&](const std::shared_ptr<Entry>& e) {
    if (e->owner != owner || e->name != name) return false;
    e->removed = true;
    return true;
  });
}

void NotificationCenter::post(const std::string& name, const void* object) {
  // A handler may add or remove observers (closing an ad removes them all), so deliver
  // to a snapshot and skip entries removed meanwhile.
  const auto snapshot = entries_;
  const Notification notification{name, object};
  for (const auto& e : snapshot) {
    if (e->removed || e->name != name) continue;
    if (e->object != nullptr && e->object != object) continue;
    e->handler(notification);
  }
}

size_t NotificationCenter::observerCount(const void* owner, const std::string& name) const {
  return static_cast<size_t>(std::count_if(entries_.begin(), entries_.end(), [&](const auto& e) {
    return e->owner == owner && e->name == name;
  }));
}

void NotificationCenter::reset() {
  for (auto& e : entries_) e->removed = true;
  entries_.clear();
}

}  // namespace tovani
