#include "support/FakePorts.hpp"

#include <chrono>
#include <filesystem>

namespace tovani::test {

void RecordingWebView::loadRequest(const WebRequest& request) {
  loads.push_back(request);
  if (!queue_ || pageOutcome == PageOutcome::Stalled) return;
  queue_->post([this, loaded = pageOutcome == PageOutcome::Loaded] {
    if (loadResult_) loadResult_(loaded);
  });
}

bool RecordingWebView::ask(const WebRequest& request) {
  const bool allowed = decider_ ? decider_(request) : true;
  if (allowed) loadedInPlace.push_back(request.url);
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
