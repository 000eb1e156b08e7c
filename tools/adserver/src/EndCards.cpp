#include "EndCards.hpp"

#include <array>

#include "Documents.hpp"

namespace tovani::adserver {
namespace {

struct Page {
  std::string_view file;
  std::string_view title;
};

constexpr std::array<Page, 4> kPages{{
    {"iosTovaniEndCard.php", "Thanks for watching"},
    {"type1-1.php", "Get the app"},
    {"type2.php", "Featured app"},
    {"type3.php", "Learn more"},
}};

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string decode(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '+') {
      out += ' ';
    } else if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 &&
               hexValue(text[i + 2]) >= 0) {
      out += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

std::string link(std::string_view id, std::string_view href, std::string_view label) {
  return "<li><a id=\"" + std::string(id) + "\" href=\"" + escapeXml(href) + "\">" +
         escapeXml(label) + "</a></li>\n";
}

std::string shell(std::string_view title, const std::string& content) {
  return "<!DOCTYPE html>\n<html>\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>" +
         escapeXml(title) + "</title>\n</head>\n<body>\n" + content + "</body>\n</html>\n";
}

}  // namespace

std::map<std::string, std::string> parseForm(std::string_view body) {
  std::map<std::string, std::string> fields;
  while (!body.empty()) {
    const auto amp = body.find('&');
    const auto pair = body.substr(0, amp);
    body = amp == std::string_view::npos ? std::string_view() : body.substr(amp + 1);
    if (pair.empty()) continue;
    const auto eq = pair.find('=');
    fields.emplace(decode(pair.substr(0, eq)),
                   eq == std::string_view::npos ? std::string() : decode(pair.substr(eq + 1)));
  }
  return fields;
}

std::optional<std::string> renderEndCardPage(std::string_view page, std::string_view formBody,
                                             const HostNames& hosts) {
  const Page* found = nullptr;
  for (const auto& p : kPages) {
    if (p.file == page) found = &p;
  }
  if (found == nullptr) return std::nullopt;
  const auto fields = parseForm(formBody);
  std::string content = "<h1>" + escapeXml(found->title) + "</h1>\n";
  // type2 and type3 cards carry their picture in the first "^" field of bgImgUrl.
  if (const auto bg = fields.find("bgImgUrl"); bg != fields.end()) {
    const auto picture = bg->second.substr(0, bg->second.find('^'));
    if (picture.starts_with("http"))
      content += "<img id=\"background\" src=\"" + escapeXml(picture) + "\" alt=\"\">\n";
  }
  content += "<dl id=\"fields\">\n";
  for (const auto& [name, value] : fields) {
    content += "<dt>" + escapeXml(name) + "</dt><dd>" + escapeXml(value) + "</dd>\n";
  }
  content += "</dl>\n<ul>\n";
  content += link("reload", "tovaniksdkcall://reload", "Watch again");
  content += link("install", "tovaniksdkcall://install", "Install");
  content += link("close", "tovaniksdkcall://close", "Close");
  content += link("call", "tel:+82212345678", "Call us");
  content += link("map", "geo://37.5665,126.9780", "Find us");
  content += link("outbound",
                  "https://www.example.com/store/app?id=" +
                      (fields.count("appID") ? fields.at("appID") : std::string()),
                  "Open the store");
  if (const auto app = fields.find("appLink"); app != fields.end() && !app->second.empty()) {
    content += link("applink", app->second, "Open the advertiser's page");
  }
  content += link("home", "http://" + hosts.production + "/", "More from tovani");
  content += "</ul>\n";
  return shell(found->title, content);
}

std::string renderHomePage(const HostNames& hosts) {
  std::string content = "<h1>tovani</h1>\n<ul>\n";
  content += link("endcard", "http://" + hosts.production + "/endcard/ios/iosTovaniEndCard.php",
                  "Back to the card");
  content += link("close", "tovaniksdkcall://close", "Close");
  content += "</ul>\n";
  return shell("tovani", content);
}

}  // namespace tovani::adserver
