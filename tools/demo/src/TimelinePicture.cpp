#include "TimelinePicture.hpp"

#include "tovani/adserver/AdServer.hpp"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <sstream>
#include <vector>

namespace tovani::demo {

namespace {

const std::vector<std::pair<std::string, std::string>> kLanes = {
    {"stage", "#4a6fa5"},  {"countdown", "#8e6bb8"}, {"beacon", "#2e8b57"},
    {"action", "#d2691e"}, {"endcard", "#b8860b"},   {"result", "#c0392b"}};

}  // namespace

bool writeTimelinePicture(const ShowingReport& showing, const std::string& title,
                          const std::string& path) {
  // Everything on the picture is what the host saw and what the SDK's inspector reported.
  const std::vector<TimelineEvent>& events = showing.timeline;
  double end = std::max(showing.duration, 1.0);
  for (const auto& e : events) end = std::max(end, e.at);
  end = std::ceil(end / 5) * 5;

  const double left = 110, width = 1100, laneHeight = 70, top = 60;
  const double height = top + laneHeight * static_cast<double>(kLanes.size()) + 60;
  auto x = [&](double t) { return left + t / end * width; };

  std::ostringstream svg;
  svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << left + width + 220
      << "\" height=\"" << height << "\" font-family=\"sans-serif\" font-size=\"11\">\n";
  svg << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
  svg << "<text x=\"10\" y=\"24\" font-size=\"16\" font-weight=\"bold\">"
      << adserver::escapeXml(title) << "</text>\n";
  std::map<std::string, double> laneY;
  for (size_t i = 0; i < kLanes.size(); ++i) {
    const double y = top + laneHeight * static_cast<double>(i) + laneHeight / 2;
    laneY[kLanes[i].first] = y;
    svg << "<text x=\"10\" y=\"" << y + 4 << "\" fill=\"" << kLanes[i].second << "\">"
        << kLanes[i].first << "</text>\n";
    svg << "<line x1=\"" << left << "\" y1=\"" << y << "\" x2=\"" << left + width << "\" y2=\"" << y
        << "\" stroke=\"#ddd\"/>\n";
  }
  const double axisY = top + laneHeight * static_cast<double>(kLanes.size()) + 10;
  svg << "<line x1=\"" << left << "\" y1=\"" << axisY << "\" x2=\"" << left + width << "\" y2=\""
      << axisY << "\" stroke=\"#333\"/>\n";
  for (double t = 0; t <= end + 1e-9; t += 5) {
    svg << "<line x1=\"" << x(t) << "\" y1=\"" << axisY << "\" x2=\"" << x(t) << "\" y2=\""
        << axisY + 5 << "\" stroke=\"#333\"/><text x=\"" << x(t) - 8 << "\" y=\"" << axisY + 18
        << "\">" << t << " s</text>\n";
  }
  if (showing.duration > 0) {
    svg << "<rect x=\"" << x(0) << "\" y=\"" << top - 12 << "\" width=\""
        << x(showing.duration) - x(0) << "\" height=\"6\" fill=\"#cfd8e3\"/><text x=\"" << x(0)
        << "\" y=\"" << top - 16 << "\">video " << showing.duration << " s</text>\n";
  }
  // Labels alternate above and below the lane so neighbours do not overlap.
  std::map<std::string, int> count;
  for (const auto& e : events) {
    auto lane = std::find_if(kLanes.begin(), kLanes.end(),
                             [&](const auto& l) { return l.first == e.lane; });
    if (lane == kLanes.end()) continue;
    const double y = laneY[e.lane];
    const int n = count[e.lane]++;
    static constexpr double kOffsets[] = {-10, 20, -22, 32};
    const double labelY = y + kOffsets[n % 4];
    svg << "<circle cx=\"" << x(e.at) << "\" cy=\"" << y << "\" r=\"4\" fill=\"" << lane->second
        << "\"><title>" << adserver::escapeXml(e.label) << " at " << e.at
        << " s</title></circle>\n";
    svg << "<text x=\"" << x(e.at) + 3 << "\" y=\"" << labelY << "\" fill=\"" << lane->second
        << "\" font-size=\"9\">" << adserver::escapeXml(e.label.substr(0, 40)) << "</text>\n";
  }
  svg << "</svg>\n";

  std::ofstream out(path, std::ios::trunc);
  if (!out) return false;
  if (path.size() > 5 && path.substr(path.size() - 5) == ".html") {
    out << "<!doctype html><html><head><meta charset=\"utf-8\"><title>"
        << adserver::escapeXml(title) << "</title></head><body>\n"
        << svg.str() << "</body></html>\n";
  } else {
    out << svg.str();
  }
  return static_cast<bool>(out);
}

}  // namespace tovani::demo
