#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include "xml/XMLController.hpp"
#include "xml/XmlValue.hpp"

namespace tovani {
namespace {

namespace fs = std::filesystem;

bool treeMentions(const XmlValue& v, const std::string& needle) {
  if (const std::string* s = v.string()) return s->find(needle) != std::string::npos;
  if (const XmlMap* m = v.map()) {
    for (const auto& [key, child] : *m) {
      if (key.find(needle) != std::string::npos || treeMentions(child, needle)) return true;
    }
  }
  if (const XmlList* l = v.list()) {
    for (const XmlValue& child : *l) {
      if (treeMentions(child, needle)) return true;
    }
  }
  return false;
}

TEST(XmlSafety, ExternalEntitiesNeverReadAFile) {
  fs::path dir = fs::temp_directory_path() / ("tovani_xml_" + std::to_string(::getpid()));
  fs::create_directories(dir);
  fs::path secret = dir / "secret.txt";
  std::ofstream(secret) << "TOP-SECRET-CONTENT";
  const std::string uri = "file://" + secret.string();

  const std::string documents[] = {
      "<!DOCTYPE VAST [<!ENTITY x SYSTEM \"" + uri + "\">]><VAST><Ad>&x;</Ad></VAST>",
      "<!DOCTYPE VAST [<!ENTITY % p SYSTEM \"" + uri + "\"> %p;]><VAST><Ad/></VAST>",
      "<!DOCTYPE VAST SYSTEM \"" + uri + "\"><VAST><Ad/></VAST>",
      "<VAST xmlns:xi=\"http://www.w3.org/2001/XInclude\"><xi:include href=\"" + uri +
          "\" parse=\"text\"/></VAST>",
  };
  for (const std::string& doc : documents) {
    XMLController controller;
    controller.parseXML(doc);
    EXPECT_FALSE(treeMentions(controller.dicRoot(), "TOP-SECRET")) << doc;
  }
  // Entity declarations are refused outright rather than left unexpanded.
  XMLController controller;
  EXPECT_FALSE(controller.parseXML(documents[0]));
  EXPECT_TRUE(controller.dicRoot().isNone());
  fs::remove_all(dir);
}

TEST(XmlSafety, EntityExpansionFailsFast) {
  std::string doc = "<?xml version=\"1.0\"?><!DOCTYPE lolz [<!ENTITY lol \"lol\">";
  for (int i = 1; i <= 9; ++i) {
    doc += "<!ENTITY lol" + std::to_string(i) + " \"";
    for (int j = 0; j < 10; ++j) doc += i == 1 ? "&lol;" : "&lol" + std::to_string(i - 1) + ";";
    doc += "\">";
  }
  doc += "]><VAST><Ad>&lol9;</Ad></VAST>";
  // Expanded, this is a gigabyte of text; refused, it is over at once.
  auto start = std::chrono::steady_clock::now();
  XMLController controller;
  EXPECT_FALSE(controller.parseXML(doc));
  EXPECT_TRUE(controller.dicRoot().isNone());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

std::string nested(int depth) {
  std::string doc;
  for (int i = 0; i < depth; ++i) doc += "<e>";
  doc += "deep";
  for (int i = 0; i < depth; ++i) doc += "</e>";
  return doc;
}

TEST(XmlSafety, NestingAndSizeAreBounded) {
  XMLController controller;
  ASSERT_TRUE(controller.parseXML(nested(256)));
  std::string path = "e";
  for (int i = 2; i < 256; ++i) path += ".e";
  EXPECT_EQ(stringForKeyPath(controller.dicRoot(), path + ".text"), "deep");

  EXPECT_FALSE(controller.parseXML(nested(257)));
  EXPECT_TRUE(controller.dicRoot().isNone());
  // Far beyond what a recursive free of the tree could survive.
  EXPECT_FALSE(controller.parseXML(nested(200000)));

  // A document of a few megabytes is accepted; anything past 4 MB is not even parsed.
  const std::string body(4 * 1024 * 1024 - 64, 'x');
  ASSERT_TRUE(controller.parseXML("<VAST><Ad>" + body + "</Ad></VAST>"));
  EXPECT_EQ(controller.stringWithKey("Ad").size(), body.size());
  EXPECT_FALSE(controller.parseXML("<VAST><Ad>" + body + std::string(64, 'x') + "</Ad></VAST>"));
  EXPECT_TRUE(controller.dicRoot().isNone());
}

TEST(XmlSafety, ElementCountIsBounded) {
  // Tiny elements cost far more as a tree than as text: a cap on their number bounds the
  // memory of a document that is small enough to be accepted.
  auto flat = [](int elements, const char* element) {
    std::string doc = "<VAST>";
    for (int i = 0; i < elements; ++i) doc += element;
    return doc + "</VAST>";
  };
  XMLController controller;
  ASSERT_TRUE(controller.parseXML(flat(5000, "<Ad id=\"1\"/>")));
  EXPECT_EQ(controller.arrayWithKey("Ad").size(), 5000U);
  EXPECT_FALSE(controller.parseXML(flat(100001, "<a/>")));
  EXPECT_TRUE(controller.dicRoot().isNone());
  EXPECT_FALSE(controller.parseXML(flat(34000, "<a b='' c=''/>")));
}

}  // namespace
}  // namespace tovani
