#include <array>
#include <cmath>
#include <string_view>
#include <utility>

#include "viewer/tovaniViewer.hpp"

namespace tovani {

namespace {

// Which of the showing's beacons a URL is, by the property that held it.
std::string beaconName(const tovaniViewer& v, const Text& url) {
  const std::array<std::pair<std::string_view, const Text*>, 12> named = {{
      {"start", &v.tnAdsStartTracking},
      {"firstQuartile", &v.tnAdsFirstQuartileTracking},
      {"midpoint", &v.tnAdsMidpointTracking},
      {"thirdQuartile", &v.tnAdsThirdQuartileTracking},
      {"complete", &v.tnAdsCompleteTracking},
      {"impression", &v.tnAdsExtensionsImpression},
      {"click", &v.tnAdsExtensionsClickTracking},
      {"videoClick", &v.tnAdsExtensionsVideoClick},
      {"clickProgress", &v.tnAdsExtensionsClickProgress},
      {"extensionComplete", &v.tnAdsExtensionsComplete},
      {"endcardProgress", &v.tnAdsExtensionsEndcardProgress},
      {"clickThrough", &v.tnAdsExtensionsClickThrough},
  }};
  for (const auto& [name, property] : named) {
    if (*property == url) return std::string(name);
  }
  return "beacon";
}

}  // namespace

std::optional<double> tovaniViewer::mediaTimeForInspection() const {
  if (!tnAdPlayer) return std::nullopt;
  const double t = tnAdPlayer->currentTime();
  if (std::isnan(t)) return std::nullopt;
  return t;
}

void tovaniViewer::inspectStage(const char* name, std::string_view reason) {
  inspection.emit([&] {
    InspectorEvent e;
    e.kind = InspectorEventKind::Stage;
    e.name = name;
    e.reason = std::string(reason);
    e.mediaTime = mediaTimeForInspection();
    return e;
  });
}

void tovaniViewer::inspectBeacon(const Text& rawUrl, const std::string& finalUrl) {
  InspectorEvent sent;
  sent.kind = InspectorEventKind::Beacon;
  sent.name = beaconName(*this, rawUrl);
  sent.outcome = "sent";
  sent.url = finalUrl;
  sent.mediaTime = mediaTimeForInspection();
  inspection.emit([&] { return sent; });
  // The answer may come after the viewer is gone, or in a later showing: it is told with
  // the showing the beacon belonged to, and only while the viewer lives.
  std::weak_ptr<tovaniViewer> weak = self();
  platform()->http->reportedBeacon(
      finalUrl, [weak, sent, showing = inspection.showing()](BeaconReport report) {
        auto viewer = weak.lock();
        if (!viewer) return;
        InspectorEvent e = sent;
        e.mediaTime.reset();
        e.outcome = report.error ? "failed" : "answered";
        e.latencySeconds = report.latencySeconds;
        if (report.error) {
          e.error = report.error->message;
        } else {
          e.status = report.status;
        }
        viewer->inspection.deliver(std::move(e), showing);
      });
}

}  // namespace tovani
