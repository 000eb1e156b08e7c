#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "xml/XMLController.hpp"
#include "xml/XmlValue.hpp"

namespace tovani {
namespace {

XmlValue parsed(const std::string& document) {
  XMLController controller;
  EXPECT_TRUE(controller.parseXML(document)) << document;
  return controller.dicRoot();
}

std::string textAt(const XmlValue& v, const std::string& key) {
  XmlValue entry = v[key];
  const std::string* s = entry.string();
  return s != nullptr ? *s : "<not a string>";
}

TEST(XmlTreeShape, OneEmptyAdKeepsOnlyItsAttribute) {
  XmlValue root = parsed(R"(<VAST version="3.0"><Ad id="7"/></VAST>)");
  ASSERT_TRUE(root.isMap());
  EXPECT_EQ(textAt(root, "version"), "3.0");
  XmlValue ad = root["Ad"];
  ASSERT_TRUE(ad.isMap());
  EXPECT_EQ(ad.map()->size(), 1U);
  EXPECT_EQ(textAt(ad, "id"), "7");
}

TEST(XmlTreeShape, RepeatedSiblingsFormOneFlatListInDocumentOrder) {
  XmlValue two = parsed("<VAST><Ad id=\"1\"/><Ad id=\"2\"/></VAST>")["Ad"];
  ASSERT_TRUE(two.isList());
  ASSERT_EQ(two.list()->size(), 2U);
  EXPECT_EQ(textAt((*two.list())[1], "id"), "2");

  // The third sibling is appended to the list, not wrapped with it into a new one.
  XmlValue three = parsed("<VAST><Ad id=\"1\"/><x/><Ad id=\"2\"/><Ad id=\"3\"/></VAST>")["Ad"];
  ASSERT_TRUE(three.isList());
  ASSERT_EQ(three.list()->size(), 3U);
  for (int i = 0; i < 3; ++i) {
    const XmlValue& ad = (*three.list())[static_cast<std::size_t>(i)];
    ASSERT_TRUE(ad.isMap());
    EXPECT_EQ(textAt(ad, "id"), std::to_string(i + 1));
  }
}

TEST(XmlTreeShape, AttributeAndChildOfOneNameShareAList) {
  XmlValue ad = parsed(R"(<VAST><Ad id="9"><id>x</id><id>y</id></Ad></VAST>)")["Ad"];
  XmlValue ids = ad["id"];
  ASSERT_TRUE(ids.isList());
  ASSERT_EQ(ids.list()->size(), 3U);
  ASSERT_TRUE((*ids.list())[0].isString());
  EXPECT_EQ(*(*ids.list())[0].string(), "9");
  EXPECT_EQ(textAt((*ids.list())[1], "text"), "x");
  EXPECT_EQ(textAt((*ids.list())[2], "text"), "y");
}

TEST(XmlTreeShape, OnlyTextAfterTheLastChildIsKeptUntrimmed) {
  XmlValue a = parsed("<r><a>x<b>y</b>z</a></r>")["a"];
  EXPECT_EQ(textAt(a, "text"), "z");
  EXPECT_EQ(textAt(a["b"], "text"), "y");
  EXPECT_EQ(a.map()->size(), 2U);

  // The newline and indentation before a parent's end tag become its text; a leaf keeps
  // its whole content, white space included; an empty element has no text at all.
  XmlValue linear = parsed(
      "<Linear>\n  <MediaFile>\n   http://m.example/v.mp4 \n  </MediaFile>\n  <Empty></Empty>\n"
      "</Linear>");
  EXPECT_EQ(textAt(linear, "text"), "\n");
  EXPECT_EQ(textAt(linear["MediaFile"], "text"), "\n   http://m.example/v.mp4 \n  ");
  ASSERT_TRUE(linear["Empty"].isMap());
  EXPECT_TRUE(linear["Empty"].map()->empty());
}

TEST(XmlTreeShape, CdataAndEntitiesBecomePlainText) {
  XmlValue media = parsed(
      "<MediaFile>\n <![CDATA[ https://m.example/a.mp4?x=1&y=<2> ]]>\n &amp;&#65;</MediaFile>");
  EXPECT_EQ(textAt(media, "text"), "\n  https://m.example/a.mp4?x=1&y=<2> \n &A");
}

TEST(XmlTreeShape, EmptyRootIsTheRootsOwnEmptyMap) {
  XmlValue root = parsed("<?xml version=\"1.0\"?>\n<VAST/>\n");
  ASSERT_TRUE(root.isMap());
  EXPECT_TRUE(root.map()->empty());
}

TEST(XmlTreeShape, FailedOrMissingDocumentLeavesNoTree) {
  XMLController controller;
  ASSERT_TRUE(controller.parseXML("<VAST><Ad id=\"1\"/></VAST>"));
  ASSERT_TRUE(controller.dicRoot().isMap());

  EXPECT_FALSE(controller.parseXML("<VAST><Ad id=\"1\"></VAST>"));
  EXPECT_TRUE(controller.dicRoot().isNone());
  EXPECT_EQ(controller.stringWithKey("Ad"), "");
  EXPECT_TRUE(controller.arrayWithKey("Ad").empty());

  ASSERT_TRUE(controller.parseXML("<VAST/>"));
  EXPECT_FALSE(controller.parseXML(std::nullopt));
  EXPECT_TRUE(controller.dicRoot().isNone());
  for (const char* bad : {"", "not xml", "<a>&undefined;</a>", "<a/><b/>", "<a>\xff</a>"}) {
    EXPECT_FALSE(controller.parseXML(std::string(bad))) << bad;
    EXPECT_TRUE(controller.dicRoot().isNone()) << bad;
  }
}

TEST(XmlTreeShape, PartsOfTheTreeOutliveTheDocumentAndTheParser) {
  XmlValue tracking;
  {
    auto controller = std::make_unique<XMLController>();
    ASSERT_TRUE(
        controller->parseXML("<VAST><Ad><T e=\"start\">http://t.example/a-long-enough-url</T><T "
                             "e=\"end\"/></Ad></VAST>"));
    tracking = controller->dicRoot()["Ad"]["T"];
    ASSERT_TRUE(controller->parseXML("<other/>"));
  }
  ASSERT_TRUE(tracking.isList());
  EXPECT_EQ(stringForKeyPath((*tracking.list())[0], "text"), "http://t.example/a-long-enough-url");
  EXPECT_EQ(stringForKeyPath((*tracking.list())[1], "e"), "end");
}

TEST(XmlTreeShape, ElementNamesKeepTheirPrefixes) {
  XmlValue root = parsed(R"(<VAST xmlns:x="urn:x"><x:Ext x:kind="k">v</x:Ext></VAST>)");
  EXPECT_EQ(textAt(root, "xmlns:x"), "urn:x");
  EXPECT_EQ(textAt(root["x:Ext"], "x:kind"), "k");
  EXPECT_EQ(textAt(root["x:Ext"], "text"), "v");
}

}  // namespace
}  // namespace tovani
