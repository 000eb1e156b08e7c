#include <gtest/gtest.h>

#include "net/UrlEncoding.hpp"
#include "util/Text.hpp"

namespace tovani {
namespace {

TEST(UrlEncodedString, EscapesEverythingButUnreservedCharacters) {
  EXPECT_EQ(mp_URLEncodedString("a b&c/d"), "a%20b%26c%2Fd");
  EXPECT_EQ(mp_URLEncodedString("iPhone9,3"), "iPhone9%2C3");
  EXPECT_EQ(mp_URLEncodedString("%"), "%25");
  EXPECT_EQ(mp_URLEncodedString("10.3"), "10.3");
  EXPECT_EQ(mp_URLEncodedString("Az09-._~"), "Az09-._~");
  EXPECT_EQ(mp_URLEncodedString("!*'();:@&=+$,/?%#[]<>"),
            "%21%2A%27%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%25%23%5B%5D%3C%3E");
  EXPECT_EQ(mp_URLEncodedString("\"\\^`{|}\x7F\t"), "%22%5C%5E%60%7B%7C%7D%7F%09");
  EXPECT_EQ(mp_URLEncodedString(""), "");
}

TEST(UrlEncodedString, WritesEachUtf8ByteInUpperCaseHex) {
  EXPECT_EQ(mp_URLEncodedString("caf\xC3\xA9"), "caf%C3%A9");
  EXPECT_EQ(mp_URLEncodedString("\xED\x95\x9C"), "%ED%95%9C");
  EXPECT_EQ(percentDecode(mp_URLEncodedString("\xF0\x9F\x98\x80 x/y")), "\xF0\x9F\x98\x80 x/y");
}

TEST(EndCardFormEncode, KeepsAValueWholeAsOneFormField) {
  const std::string etc = "http://cdn.example/bg.png?a=1&b=2^123";
  const std::string encoded = endCardFormEncode(etc);
  EXPECT_EQ(encoded, "http%3A%2F%2Fcdn.example%2Fbg.png%3Fa%3D1%26b%3D2%5E123");
  EXPECT_EQ(encoded.find_first_of("&=?/"), std::string::npos);
  // "<" and ">" are illegal in a URL, so leaving them out of the extra set changes nothing.
  EXPECT_EQ(endCardFormEncode("<b>"), "%3Cb%3E");
}

TEST(LegacyEscapeURL, EncodesAnAdRequestSecondTime) {
  const std::string request = formatAt(
      "http://%@/cgi-bin/conad_tovani.fcgi/%@/%@%@?xml=%@&cat2=%@&vendor=%@&osv=%@&device=%@"
      "&vdid=%@&sdk=%@&ac=10",
      {"ads.tovani.example", "M", "S", "$X", "vast", "", "2", mp_URLEncodedString("10.3"),
       mp_URLEncodedString("iPhone9,3"), "", "1.1.2"});
  EXPECT_EQ(request,
            "http://ads.tovani.example/cgi-bin/conad_tovani.fcgi/M/S$X?xml=vast&cat2=&vendor=2"
            "&osv=10.3&device=iPhone9%2C3&vdid=&sdk=1.1.2&ac=10");
  EXPECT_EQ(legacyEscapeURL(request),
            "http://ads.tovani.example/cgi-bin/conad_tovani.fcgi/M/S$X?xml=vast&cat2=&vendor=2"
            "&osv=10.3&device=iPhone9%252C3&vdid=&sdk=1.1.2&ac=10");
}

TEST(LegacyEscapeURL, LeavesReservedCharactersAndEscapesIllegalOnes) {
  const std::string reserved = ":/?#[]@!$&'()*+,;=-._~";
  EXPECT_EQ(legacyEscapeURL(reserved), reserved);
  EXPECT_EQ(legacyEscapeURL("a b%<>\"{}|\\^`"), "a%20b%25%3C%3E%22%7B%7D%7C%5C%5E%60");
  EXPECT_EQ(legacyEscapeURL("\xEC\x95\x84"), "%EC%95%84");
}

TEST(BeaconQueryEscape, KeepsQuerySyntaxAndExistingEscapes) {
  EXPECT_EQ(beaconQueryEscape("a=1&b=x y&u=http://h/p%20q"), "a=1&b=x%20y&u=http://h/p%20q");
  EXPECT_EQ(beaconQueryEscape("mail=a@b"), "mail=a%40b");
  EXPECT_EQ(beaconQueryEscape("k=\xC3\xA9&t=\"<>\""), "k=%C3%A9&t=%22%3C%3E%22");
  EXPECT_EQ(beaconQueryEscape("x=[1]#f"), "x=[1]#f");
}

TEST(PercentDecode, DecodesWellFormedEscapesOnly) {
  EXPECT_EQ(percentDecode("a%20b%2fc%2F"), "a b/c/");
  EXPECT_EQ(percentDecode("100%"), "100%");
  EXPECT_EQ(percentDecode("%4"), "%4");
  EXPECT_EQ(percentDecode("%zz%%41"), "%zz%A");
  EXPECT_EQ(percentDecode("%00"), std::string(1, '\0'));
}

}  // namespace
}  // namespace tovani
