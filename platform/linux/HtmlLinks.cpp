#include "HtmlLinks.hpp"

#include <curl/curl.h>

#include <cctype>
#include <cstdint>

namespace tovani::linux::detail {

namespace {

char lower(char c) {
  return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

bool startsWithNoCase(std::string_view text, size_t at, std::string_view prefix) {
  if (text.size() - at < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    if (lower(text[at + i]) != prefix[i]) return false;
  }
  return true;
}

bool hasScheme(const std::string& url) {
  if (url.empty() || !std::isalpha(static_cast<unsigned char>(url[0]))) return false;
  for (char c : url) {
    if (c == ':') return true;
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '-' && c != '.') {
      return false;
    }
  }
  return false;
}

void appendUtf8(std::string& out, uint32_t code) {
  if (code == 0 || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) code = 0xFFFD;
  if (code < 0x80) {
    out += static_cast<char>(code);
  } else if (code < 0x800) {
    out += static_cast<char>(0xC0 | (code >> 6));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    out += static_cast<char>(0xE0 | (code >> 12));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (code >> 18));
    out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  }
}

// Attribute values carry character references ("&amp;" between query parameters above all).
std::string decodeEntities(std::string_view value) {
  static constexpr std::pair<std::string_view, char> kNamed[] = {
      {"amp;", '&'}, {"lt;", '<'}, {"gt;", '>'}, {"quot;", '"'}, {"apos;", '\''}};
  std::string out;
  for (size_t i = 0; i < value.size(); ++i) {
    if (value[i] != '&') {
      out += value[i];
      continue;
    }
    bool decoded = false;
    for (const auto& [name, c] : kNamed) {
      if (value.substr(i + 1, name.size()) == name) {
        out += c;
        i += name.size();
        decoded = true;
        break;
      }
    }
    if (!decoded && i + 2 < value.size() && value[i + 1] == '#') {
      const bool hex = value[i + 2] == 'x' || value[i + 2] == 'X';
      size_t j = i + (hex ? 3 : 2);
      uint32_t code = 0;
      const size_t digitsFrom = j;
      while (j < value.size() && j - digitsFrom < 8 &&
             (hex ? std::isxdigit(static_cast<unsigned char>(value[j]))
                  : std::isdigit(static_cast<unsigned char>(value[j])))) {
        code = code * (hex ? 16 : 10) +
               static_cast<uint32_t>(std::isdigit(static_cast<unsigned char>(value[j]))
                                         ? value[j] - '0'
                                         : lower(value[j]) - 'a' + 10);
        ++j;
      }
      if (j > digitsFrom) {
        appendUtf8(out, code);
        i = (j < value.size() && value[j] == ';') ? j : j - 1;
        decoded = true;
      }
    }
    if (!decoded) out += '&';
  }
  return out;
}

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

}  // namespace

std::optional<std::string> resolveUrl(const std::string& base, const std::string& reference) {
  if (hasScheme(reference)) return reference;
  CURLU* url = curl_url();
  if (url == nullptr) return std::nullopt;
  std::optional<std::string> resolved;
  if (curl_url_set(url, CURLUPART_URL, base.c_str(), 0) == CURLUE_OK &&
      curl_url_set(url, CURLUPART_URL, reference.c_str(), 0) == CURLUE_OK) {
    char* text = nullptr;
    if (curl_url_get(url, CURLUPART_URL, &text, 0) == CURLUE_OK) {
      resolved = text;
      curl_free(text);
    }
  }
  curl_url_cleanup(url);
  return resolved;
}

// The URL of a refresh's content ("5; url=next.html"), none when it names none.
static std::optional<std::string> refreshUrl(const std::string& content) {
  const size_t semicolon = content.find_first_of(";,");
  if (semicolon == std::string::npos) return std::nullopt;
  size_t i = semicolon + 1;
  while (i < content.size() && isSpace(content[i])) ++i;
  if (startsWithNoCase(content, i, "url")) {
    size_t j = i + 3;
    while (j < content.size() && isSpace(content[j])) ++j;
    if (j < content.size() && content[j] == '=') i = j + 1;
  }
  while (i < content.size() && isSpace(content[i])) ++i;
  std::string target = content.substr(i);
  if (!target.empty() && (target.front() == '"' || target.front() == '\'')) {
    const char quote = target.front();
    target =
        target.substr(1, target.find(quote, 1) == std::string::npos ? std::string::npos
                                                                    : target.find(quote, 1) - 1);
  }
  if (target.empty()) return std::nullopt;
  return target;
}

std::vector<std::string> extractLinks(std::string_view html, const std::string& base,
                                      std::optional<std::string>* refresh) {
  std::vector<std::string> links;
  size_t i = 0;
  while ((i = html.find('<', i)) != std::string_view::npos) {
    if (html.substr(i, 4) == "<!--") {
      const size_t end = html.find("-->", i + 4);
      if (end == std::string_view::npos) break;
      i = end + 3;
      continue;
    }
    ++i;
    const size_t nameStart = i;
    while (i < html.size() && std::isalnum(static_cast<unsigned char>(html[i]))) ++i;
    std::string tag;
    for (size_t k = nameStart; k < i; ++k) tag += lower(html[k]);
    const bool isLink = tag == "a" || tag == "area";
    std::string httpEquiv, content;
    // Attributes up to the end of the tag.
    while (i < html.size() && html[i] != '>') {
      while (i < html.size() && (isSpace(html[i]) || html[i] == '/')) ++i;
      const size_t attrStart = i;
      while (i < html.size() && !isSpace(html[i]) && html[i] != '=' && html[i] != '>' &&
             html[i] != '/') {
        ++i;
      }
      std::string name;
      for (size_t k = attrStart; k < i; ++k) name += lower(html[k]);
      while (i < html.size() && isSpace(html[i])) ++i;
      std::string_view value;
      if (i < html.size() && html[i] == '=') {
        ++i;
        while (i < html.size() && isSpace(html[i])) ++i;
        if (i < html.size() && (html[i] == '"' || html[i] == '\'')) {
          const char quote = html[i++];
          const size_t end = html.find(quote, i);
          const size_t stop = end == std::string_view::npos ? html.size() : end;
          value = html.substr(i, stop - i);
          i = end == std::string_view::npos ? html.size() : end + 1;
        } else {
          const size_t from = i;
          while (i < html.size() && !isSpace(html[i]) && html[i] != '>') ++i;
          value = html.substr(from, i - from);
        }
      } else if (i == attrStart && i < html.size() && html[i] != '>') {
        ++i;  // a stray character; step over it
      }
      if (isLink && name == "href") {
        std::string href = decodeEntities(value);
        while (!href.empty() && isSpace(href.front())) href.erase(href.begin());
        while (!href.empty() && isSpace(href.back())) href.pop_back();
        if (auto absolute = resolveUrl(base, href)) links.push_back(std::move(*absolute));
      }
      if (tag == "meta" && name == "http-equiv") {
        for (const char c : value) httpEquiv += lower(c);
      }
      if (tag == "meta" && name == "content") content = decodeEntities(value);
    }
    if (refresh != nullptr && !*refresh && httpEquiv == "refresh") {
      if (auto target = refreshUrl(content)) *refresh = resolveUrl(base, *target);
    }
    // Script and style text is not markup: an "<a href" inside it is no link.
    if (tag == "script" || tag == "style") {
      size_t close = i;
      while ((close = html.find("</", close)) != std::string_view::npos &&
             !startsWithNoCase(html, close + 2, tag)) {
        close += 2;
      }
      i = close == std::string_view::npos ? html.size() : close;
    }
  }
  return links;
}

}  // namespace tovani::linux::detail
