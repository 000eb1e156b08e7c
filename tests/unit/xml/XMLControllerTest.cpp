#include "xml/XMLController.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "util/PlatformError.hpp"
#include "util/Text.hpp"

namespace tovani {
namespace {

namespace fs = std::filesystem;

// A tree in one line: {key:value ...} for an element's map, [...] for a list, 'text' for a
// string and "none" for nothing. Keys are sorted here, as their order carries no meaning.
std::string dump(const XmlValue& v) {
  if (const std::string* s = v.string()) return "'" + *s + "'";
  std::string out;
  if (const XmlMap* m = v.map()) {
    std::map<std::string, std::string> sorted;
    for (const auto& [key, child] : *m) sorted[key] = dump(child);
    for (const auto& [key, text] : sorted) out += (out.empty() ? "" : " ") + key + ":" + text;
    return "{" + out + "}";
  }
  if (const XmlList* l = v.list()) {
    for (const XmlValue& child : *l) out += (out.empty() ? "" : " ") + dump(child);
    return "[" + out + "]";
  }
  return "none";
}

// A repeated sibling is appended to the list the second one made, not wrapped into a new one;
// an attribute and a child of one name share a list. Only the text after an element's last
// child is kept, untrimmed, so a parent's text is the white space before its end tag; an
// empty element has none. CDATA and entities become plain text. Names keep their prefixes.
// One parser reads every document in turn: a failed parse leaves no tree, never the last one.
TEST(XmlTreeShape, ElementsBecomeMapsRepeatsListsAndTextItsTail) {
  const std::pair<std::optional<std::string>, const char*> cases[] = {
      {R"(<VAST version="3.0"><Ad id="7"/></VAST>)", "{Ad:{id:'7'} version:'3.0'}"},
      {"<VAST><B/><B id='2'/><x/><Ad id='1'/><Ad/><Ad/></VAST>",
       "{Ad:[{id:'1'} {} {}] B:[{} {id:'2'}] x:{}}"},
      {"<VAST><Ad id='9'><id>x</id><id>y</id></Ad></VAST>",
       "{Ad:{id:['9' {text:'x'} {text:'y'}]}}"},
      {"<VAST><Ad id='1'></VAST>", "none"},
      {"<r><a>x<b>y</b>z</a></r>", "{a:{b:{text:'y'} text:'z'}}"},
      {"<L>\n <M>\n  http://m/v.mp4 \n </M>\n <E></E>\n</L>",
       "{E:{} M:{text:'\n  http://m/v.mp4 \n '} text:'\n'}"},
      {"<M>\n <![CDATA[ https://m/a.mp4?x=1&y=<2> ]]>\n &amp;&#65;</M>",
       "{text:'\n  https://m/a.mp4?x=1&y=<2> \n &A'}"},
      {"<?xml version=\"1.0\"?>\n<VAST/>\n", "{}"},
      {R"(<VAST xmlns:x="urn:x"><x:Ext x:kind="k">v</x:Ext></VAST>)",
       "{x:Ext:{text:'v' x:kind:'k'} xmlns:x:'urn:x'}"},
      {"<a>&undefined;</a>", "none"},
      {"<VAST/>", "{}"},
      {std::nullopt, "none"},
      {"<a>\xff</a>", "none"}};
  XMLController controller;
  for (const auto& [document, shape] : cases) {
    EXPECT_EQ(controller.parseXML(document), std::string(shape) != "none") << shape;
    EXPECT_EQ(dump(controller.dicRoot()), shape);
  }
  EXPECT_EQ(controller.stringWithKey("Ad"), "");
  EXPECT_TRUE(controller.arrayWithKey("Ad").empty());
}

constexpr const char* kTwoAds =
    "<VAST version='2'><Ad id='11'><L><T e='start'>s1</T><T e='end'>e1</T><M> m1 </M></L>"
    "<X><f>p|3|2</f></X></Ad><Ad id='12'><L><T e='start'>s2</T></L></Ad></VAST>";

XmlValue tree(const char* document) {
  XMLController controller;
  EXPECT_TRUE(controller.parseXML(std::string(document))) << document;
  return controller.dicRoot();
}

// Each segment is a map look-up. A segment that meets a list maps the rest of the path over
// its elements, keeping an element that lacks it as none, and nests when it meets another.
// Absent, or a string met before the path ends, reads none; a list or an element read as a
// string is a platform error.
TEST(XmlKeyPath, MapsThroughListsAndReadsStringsOnly) {
  const XmlValue root = tree(kTwoAds);
  // Taken from a tree whose parser and root are both gone.
  const XmlValue first = (*tree(kTwoAds)["Ad"].list())[0];
  const std::tuple<XmlValue, const char*, const char*> paths[] = {
      {root, "Ad.id", "['11' '12']"},
      {root, "Ad.X.f.text", "['p|3|2' none]"},
      {root, "Ad.L.T.text", "[['s1' 'e1'] 's2']"},
      {first, "L.M.text", "' m1 '"},
      {first, "X", "{f:{text:'p|3|2'}}"},
      {first, "Nothing.text", "none"}};
  for (const auto& [from, path, value] : paths) EXPECT_EQ(dump(valueForKeyPath(from, path)), value);
  EXPECT_EQ(stringForKeyPath(first, "Nothing"), std::nullopt);
  EXPECT_EQ(stringForKeyPath(first, "id.text"), std::nullopt);
  EXPECT_THROW(stringForKeyPath(root, "Ad.id"), PlatformError);
  EXPECT_THROW(stringForKeyPath(first, "L.T.text"), PlatformError);
  EXPECT_THROW(stringForKeyPath(first, "X.f"), PlatformError);
}

// stringWithKey reads the text of the child under the key ("" when it has none or is
// missing), except that a map holding only a text answers with it whatever the key; a list
// or an attribute under the key is a fault. arrayWithKey makes a list of one or many.
TEST(XmlLookUp, StringWithKeyAndArrayWithKeyRules) {
  const XmlValue ext = tree("<X><C> http://c </C><S/><E a='1'/></X>");
  for (const auto& [key, text] : {std::pair("C", " http://c "), {"S", ""}, {"E", ""}, {"No", ""}})
    EXPECT_EQ(XMLController::stringWithKey(key, ext), text) << key;
  EXPECT_EQ(XMLController::stringWithKey("anything", tree("<C>http://k</C>")), "http://k");
  const XmlValue root = tree(kTwoAds);
  EXPECT_THROW(XMLController::stringWithKey("Ad", root), PlatformError);
  EXPECT_THROW(XMLController::stringWithKey("version", root), PlatformError);

  EXPECT_EQ(XMLController::arrayWithKey("Ad", root).size(), 2u);
  XMLController one;
  ASSERT_TRUE(one.parseXML("<VAST version='4.1'><Ad id='5'/><Error> e </Error></VAST>"));
  EXPECT_EQ(one.stringWithKey("Error"), " e ");
  EXPECT_EQ(dump(one.arrayWithKey("Ad").at(0)), "{id:'5'}");
  EXPECT_EQ(dump(one.arrayWithKey("version").at(0)), "'4.1'");
  EXPECT_TRUE(one.arrayWithKey("Missing").empty());
}

std::string repeat(int n, const std::string& part) {
  std::string text;
  for (int i = 0; i < n; ++i) text += part;
  return text;
}

// An answer must not pull a file of the host into the tree, whatever way it names it.
// Entity declarations are refused outright rather than left unexpanded.
TEST(XmlSafety, ExternalEntitiesNeverReadAFile) {
  const fs::path secret = fs::temp_directory_path() / ("tovani-xml-" + std::to_string(getpid()));
  std::ofstream(secret) << "TOP-SECRET";
  const std::string uri = "file://" + secret.string();
  const std::string documents[] = {
      "<!DOCTYPE VAST [<!ENTITY x SYSTEM '" + uri + "'>]><VAST><Ad>&x;</Ad></VAST>",
      "<!DOCTYPE VAST [<!ENTITY % p SYSTEM '" + uri + "'> %p;]><VAST><Ad/></VAST>",
      "<!DOCTYPE VAST SYSTEM '" + uri + "'><VAST><Ad/></VAST>",
      "<VAST xmlns:xi='http://www.w3.org/2001/XInclude'><xi:include href='" + uri +
          "' parse='text'/></VAST>"};
  for (const std::string& document : documents) {
    XMLController controller;
    EXPECT_EQ(controller.parseXML(document), document.find("ENTITY") == std::string::npos);
    EXPECT_EQ(dump(controller.dicRoot()).find("TOP-SECRET"), std::string::npos) << document;
  }
  fs::remove(secret);
}

// Nine levels of ten entities each would expand to a gigabyte of text; refused, the parse is
// over at once.
TEST(XmlSafety, EntityExpansionFailsFast) {
  std::string document = "<!DOCTYPE VAST [<!ENTITY e0 'lol'>";
  for (int i = 1; i <= 9; ++i) {
    document += "<!ENTITY e" + std::to_string(i) + " '" +
                repeat(10, "&e" + std::to_string(i - 1) + ";") + "'>";
  }
  const auto start = std::chrono::steady_clock::now();
  XMLController controller;
  EXPECT_FALSE(controller.parseXML(document + "]><VAST><Ad>&e9;</Ad></VAST>"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

// Depth, size and element count bound the time and memory a document can cost: 256 levels
// are read and 257 are not, far deeper nesting is refused without exhausting the stack, a
// document past 4 MB is not parsed, and a flood of tiny elements (which cost far more as a
// tree than as text) stops at the element limit.
TEST(XmlSafety, NestingSizeAndElementCountAreBounded) {
  XMLController controller;
  ASSERT_TRUE(controller.parseXML(repeat(256, "<e>") + "deep" + repeat(256, "</e>")));
  EXPECT_EQ(stringForKeyPath(controller.dicRoot(), repeat(255, "e.") + "text"), "deep");
  EXPECT_FALSE(controller.parseXML(repeat(257, "<e>") + "deep" + repeat(257, "</e>")));
  EXPECT_FALSE(controller.parseXML(repeat(200000, "<e>") + repeat(200000, "</e>")));
  const std::string body(4 * 1024 * 1024 - 64, 'x');
  ASSERT_TRUE(controller.parseXML("<VAST><Ad>" + body + "</Ad></VAST>"));
  EXPECT_EQ(controller.stringWithKey("Ad").size(), body.size());
  EXPECT_FALSE(controller.parseXML("<VAST><Ad>" + body + repeat(64, "x") + "</Ad></VAST>"));
  ASSERT_TRUE(controller.parseXML("<VAST>" + repeat(5000, "<Ad id='1'/>") + "</VAST>"));
  EXPECT_EQ(controller.arrayWithKey("Ad").size(), 5000U);
  EXPECT_FALSE(controller.parseXML("<VAST>" + repeat(100001, "<a/>") + "</VAST>"));
  EXPECT_FALSE(controller.parseXML("<VAST>" + repeat(34000, "<a b='' c=''/>") + "</VAST>"));
  EXPECT_TRUE(controller.dicRoot().isNone());
}

// Every sample answer parses, and every ad with one MediaFile yields its own video URL
// whatever its wrapping (CDATA, white space), with the tracking URLs of its events beside it.
TEST(VastCorpus, PlayableAdsYieldTheirVideoAndTrackingUrls) {
  int files = 0, playable = 0;
  for (const auto& entry :
       fs::directory_iterator(fs::path(TOVANI_SOURCE_DIR) / "tests/data/vast")) {
    if (entry.path().extension() != ".xml") continue;
    ++files;
    std::ostringstream text;
    text << std::ifstream(entry.path()).rdbuf();
    XMLController controller;
    ASSERT_TRUE(controller.parseXML(text.str())) << entry.path();
    for (const XmlValue& ad : controller.arrayWithKey("Ad")) {
      const std::string id = stringForKeyPath(ad, "id").value_or("?");
      const XmlValue linear = valueForKeyPath(ad, "InLine.Creatives.Creative.Linear");
      const XmlValue media = valueForKeyPath(linear, "MediaFiles.MediaFile.text");
      if (!media.isString()) continue;
      ++playable;
      const std::string url = trimWhitespaceAndNewlines(*media.string());
      EXPECT_TRUE(url.starts_with("https://cdn.tovani.example/video/tv_" + id + "_") &&
                  url.ends_with("s.mp4"))
          << url;
      for (const XmlValue& t : XMLController::arrayWithKey("Tracking", linear["TrackingEvents"])) {
        const std::string event = stringForKeyPath(t, "event").value_or("?");
        EXPECT_TRUE(trimWhitespaceAndNewlines(stringForKeyPath(t, "text").value_or(""))
                        .starts_with("https://ads.tovani.example/track/" + event + "?ad=" + id))
            << entry.path();
      }
    }
  }
  EXPECT_EQ(files, 9);
  EXPECT_EQ(playable, 43);
}

}  // namespace
}  // namespace tovani
