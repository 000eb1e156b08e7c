#include <gtest/gtest.h>

#include <string>

#include "util/PlatformError.hpp"
#include "xml/XMLController.hpp"
#include "xml/XmlValue.hpp"

namespace tovani {
namespace {

constexpr const char* kTwoAds = R"(<VAST version="2.0">
  <Ad id="11">
    <InLine>
      <Creatives><Creative><Linear>
        <TrackingEvents>
          <Tracking event="start">http://t.example/s1</Tracking>
          <Tracking event="complete">http://t.example/c1</Tracking>
        </TrackingEvents>
        <MediaFiles><MediaFile> http://m.example/one.mp4 </MediaFile></MediaFiles>
      </Linear></Creative></Creatives>
      <Extensions><frequency1>p|3|2</frequency1></Extensions>
    </InLine>
  </Ad>
  <Ad id="12">
    <InLine>
      <Creatives><Creative><Linear>
        <TrackingEvents><Tracking event="start">http://t.example/s2</Tracking></TrackingEvents>
        <MediaFiles><MediaFile>http://m.example/two.mp4</MediaFile></MediaFiles>
      </Linear></Creative></Creatives>
    </InLine>
  </Ad>
</VAST>)";

XmlValue tree(const std::string& document) {
  XMLController controller;
  EXPECT_TRUE(controller.parseXML(document));
  return controller.dicRoot();
}

TEST(XmlKeyPath, MapSegmentsReadOneAd) {
  XmlValue ads = tree(kTwoAds)["Ad"];
  ASSERT_TRUE(ads.isList());
  const XmlValue& first = (*ads.list())[0];
  EXPECT_EQ(stringForKeyPath(first, "id"), "11");
  EXPECT_EQ(stringForKeyPath(first, "InLine.Creatives.Creative.Linear.MediaFiles.MediaFile.text"),
            " http://m.example/one.mp4 ");
  EXPECT_EQ(stringForKeyPath(first, "InLine.Extensions.frequency1.text"), "p|3|2");
  // Absent at any depth, or a string met before the path ends, is none rather than "".
  EXPECT_EQ(stringForKeyPath((*ads.list())[1], "InLine.Extensions.frequency1.text"), std::nullopt);
  EXPECT_EQ(stringForKeyPath(first, "Nothing"), std::nullopt);
  EXPECT_EQ(stringForKeyPath(first, "id.text"), std::nullopt);
  EXPECT_TRUE(valueForKeyPath(first, "InLine.Extensions").isMap());
}

TEST(XmlKeyPath, ListSegmentsMapTheRestOfThePathOverTheElements) {
  XmlValue root = tree(kTwoAds);
  XmlValue ids = valueForKeyPath(root, "Ad.id");
  ASSERT_TRUE(ids.isList());
  ASSERT_EQ(ids.list()->size(), 2U);
  EXPECT_EQ(*(*ids.list())[0].string(), "11");
  EXPECT_EQ(*(*ids.list())[1].string(), "12");

  // An element without the key keeps its place as none.
  XmlValue freq = valueForKeyPath(root, "Ad.InLine.Extensions.frequency1.text");
  ASSERT_TRUE(freq.isList());
  ASSERT_EQ(freq.list()->size(), 2U);
  EXPECT_EQ(*(*freq.list())[0].string(), "p|3|2");
  EXPECT_TRUE((*freq.list())[1].isNone());

  // A list met below another list nests: one list of tracking texts per ad.
  XmlValue tracking = valueForKeyPath(root,
                                      "Ad.InLine.Creatives.Creative.Linear.TrackingEvents."
                                      "Tracking.text");
  ASSERT_TRUE(tracking.isList());
  const XmlValue& firstAds = (*tracking.list())[0];
  ASSERT_TRUE(firstAds.isList());
  EXPECT_EQ(*(*firstAds.list())[1].string(), "http://t.example/c1");
  EXPECT_EQ(*(*tracking.list())[1].string(), "http://t.example/s2");
}

TEST(XmlKeyPath, ReadingAStringThroughAListFails) {
  XmlValue root = tree(kTwoAds);
  EXPECT_THROW(stringForKeyPath(root, "Ad.id"), PlatformError);
  const XmlValue& first = (*root["Ad"].list())[0];
  EXPECT_THROW(
      stringForKeyPath(first, "InLine.Creatives.Creative.Linear.TrackingEvents.Tracking.text"),
      PlatformError);
  // An element is not text either.
  EXPECT_THROW(stringForKeyPath(first, "InLine.Extensions.frequency1"), PlatformError);
}

TEST(XmlLookUp, StringWithKeyReadsAChildsText) {
  XmlValue ext = tree(
      "<Extensions><ClickThrough> http://c.example </ClickThrough><SkipUse/>"
      "<Etc a=\"1\"/></Extensions>");
  EXPECT_EQ(XMLController::stringWithKey("ClickThrough", ext), " http://c.example ");
  EXPECT_EQ(XMLController::stringWithKey("SkipUse", ext), "");
  EXPECT_EQ(XMLController::stringWithKey("Etc", ext), "");
  EXPECT_EQ(XMLController::stringWithKey("Missing", ext), "");

  // A map holding nothing but text answers with it whatever the key.
  XmlValue leaf = tree("<Click>http://k.example</Click>");
  EXPECT_EQ(XMLController::stringWithKey("anything", leaf), "http://k.example");

  XMLController controller;
  ASSERT_TRUE(controller.parseXML("<VAST><Error>  e  </Error><x/></VAST>"));
  EXPECT_EQ(controller.stringWithKey("Error"), "  e  ");
  EXPECT_EQ(controller.stringWithKey("x"), "");
}

TEST(XmlLookUp, StringWithKeyFailsOnAListOrAnAttribute) {
  XmlValue root = tree(kTwoAds);
  EXPECT_THROW(XMLController::stringWithKey("Ad", root), PlatformError);
  EXPECT_THROW(XMLController::stringWithKey("version", root), PlatformError);
}

TEST(XmlLookUp, ArrayWithKeyReadsOneOrManyAsAList) {
  XMLController one;
  ASSERT_TRUE(one.parseXML(R"(<VAST version="4.1"><Ad id="5"/></VAST>)"));
  XmlList single = one.arrayWithKey("Ad");
  ASSERT_EQ(single.size(), 1U);
  EXPECT_EQ(stringForKeyPath(single[0], "id"), "5");
  EXPECT_TRUE(one.arrayWithKey("Missing").empty());
  // An attribute is wrapped like any other single value.
  XmlList version = one.arrayWithKey("version");
  ASSERT_EQ(version.size(), 1U);
  EXPECT_EQ(*version[0].string(), "4.1");

  XmlValue root = tree(kTwoAds);
  XmlList many = XMLController::arrayWithKey("Ad", root);
  ASSERT_EQ(many.size(), 2U);
  EXPECT_EQ(stringForKeyPath(many[1], "id"), "12");
}

}  // namespace
}  // namespace tovani
