#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "xml/XMLController.hpp"
#include "xml/XmlValue.hpp"

namespace tovani {
namespace {

namespace fs = std::filesystem;

constexpr const char* kMediaPath = "InLine.Creatives.Creative.Linear.MediaFiles.MediaFile.text";
constexpr const char* kTrackingPath = "InLine.Creatives.Creative.Linear.TrackingEvents.Tracking";

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

std::string trimmed(const std::string& s) {
  const char* ws = " \t\r\n";
  std::size_t b = s.find_first_not_of(ws);
  if (b == std::string::npos) return "";
  return s.substr(b, s.find_last_not_of(ws) - b + 1);
}

// Every sample answer parses, and every ad with one MediaFile yields its own video URL
// whatever the URL's wrapping (CDATA, white space), with its quartile URLs beside it.
TEST(VastCorpus, PlayableAdsYieldTheirVideoAndTrackingUrls) {
  int files = 0;
  int playable = 0;
  for (const auto& entry :
       fs::directory_iterator(fs::path(TOVANI_SOURCE_DIR) / "tests/data/vast")) {
    if (entry.path().extension() != ".xml") continue;
    ++files;
    XMLController controller;
    ASSERT_TRUE(controller.parseXML(readFile(entry.path()))) << entry.path();
    for (const XmlValue& ad : controller.arrayWithKey("Ad")) {
      const std::string id = stringForKeyPath(ad, "id").value_or("?");
      XmlValue media = valueForKeyPath(ad, kMediaPath);
      if (!media.isString()) continue;
      ++playable;
      const std::string url = trimmed(*media.string());
      const std::string stem = "https://cdn.tovani.example/video/tv_" + id + "_";
      EXPECT_EQ(url.rfind(stem, 0), 0U) << entry.path() << " " << url;
      EXPECT_TRUE(url.ends_with("s.mp4")) << url;

      XmlValue tracking = valueForKeyPath(ad, kTrackingPath);
      if (!tracking.isList()) continue;
      for (const XmlValue& t : *tracking.list()) {
        const std::string event = stringForKeyPath(t, "event").value_or("?");
        const std::string text = trimmed(stringForKeyPath(t, "text").value_or(""));
        EXPECT_EQ(text.rfind("https://ads.tovani.example/track/" + event + "?ad=" + id, 0), 0U)
            << entry.path() << " " << text;
      }
    }
  }
  EXPECT_EQ(files, 9);
  EXPECT_EQ(playable, 43);
}

}  // namespace
}  // namespace tovani
