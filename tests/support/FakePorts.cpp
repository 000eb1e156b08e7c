#include "support/FakePorts.hpp"

#include <chrono>
#include <filesystem>

namespace tovani::test {

void RecordingWebView::loadRequest(const WebRequest& request) {
  loads.push_back(request);
  if (!queue_) return;
  // Like a real view, the load is put to the decider later, on the main queue, and only a load
  // the decider allowed reports its outcome.
  queue_->post([weak = weak_from_this(), request] {
    auto self = weak.lock();
    if (!self) return;
    auto decider = self->decider_;
    if (decider && !decider(request)) return;
    ++self->pagesLoaded;
    if (self->pageOutcome == PageOutcome::Stalled) return;
    auto handler = self->loadResult_;
    if (handler) handler(self->pageOutcome == PageOutcome::Loaded);
  });
}

bool RecordingWebView::ask(const WebRequest& request) {
  auto decider = decider_;
  const bool allowed = decider ? decider(request) : true;
  if (allowed) {
    loadedInPlace.push_back(request.url);
    ++pagesLoaded;
  }
  return allowed;
}

bool RecordingWebView::navigate(const std::string& url) {
  return ask(WebRequest{url, "GET", {}, true});
}

bool RecordingWebView::navigateOnItsOwn(const std::string& url) {
  return ask(WebRequest{url, "GET", {}, false});
}

bool FakeApplication::canOpenURL(const std::string& url) const {
  const auto colon = url.find(':');
  if (colon == std::string::npos) return false;
  return openableSchemes.count(url.substr(0, colon)) > 0;
}

std::optional<double> FakeDevice::fileCreationTime(const std::string& path) const {
  const auto name = std::filesystem::path(path).filename().string();
  if (auto it = creationTimes.find(name); it != creationTimes.end()) return it->second;
  std::error_code ec;
  const auto written = std::filesystem::last_write_time(path, ec);
  if (ec) return std::nullopt;
  const auto system = std::chrono::file_clock::to_sys(written);
  return std::chrono::duration<double>(system.time_since_epoch()).count();
}

}  // namespace tovani::test
