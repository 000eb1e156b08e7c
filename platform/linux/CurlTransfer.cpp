#include "CurlTransfer.hpp"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <random>
#include <string_view>
#include <system_error>

namespace tovani::linux::detail {

namespace {

std::string trimmed(std::string_view text) {
  const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
  return std::string(text);
}

std::string formatSeconds(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", seconds);
  return text;
}

size_t onHeader(char* data, size_t size, size_t count, void* user) {
  auto* transfer = static_cast<Transfer*>(user);
  const size_t length = size * count;
  transfer->lastActivity = SteadyClock::now();
  const std::string_view line(data, length);
  if (line.starts_with("HTTP/")) {
    // A new status line: an earlier answer of the chain (a redirect, a 100 Continue) is over.
    transfer->response.headers.clear();
    return length;
  }
  const auto colon = line.find(':');
  if (colon == std::string_view::npos) return length;
  std::string name = trimmed(line.substr(0, colon));
  std::string value = trimmed(line.substr(colon + 1));
  auto [slot, inserted] = transfer->response.headers.try_emplace(std::move(name), value);
  if (!inserted) slot->second += ", " + value;
  return length;
}

bool writeAll(int fd, const char* data, size_t length) {
  while (length > 0) {
    const ssize_t written = ::write(fd, data, length);
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data += written;
    length -= static_cast<size_t>(written);
  }
  return true;
}

size_t onBody(char* data, size_t size, size_t count, void* user) {
  auto* transfer = static_cast<Transfer*>(user);
  const size_t length = size * count;
  transfer->lastActivity = SteadyClock::now();
  // The server need not announce a length, so the cap is enforced on what actually arrives.
  if (transfer->received + length > transfer->maxBytes) {
    transfer->tooLarge = true;
    return 0;
  }
  transfer->received += length;
  switch (transfer->kind) {
    case Transfer::Kind::Download:
      if (!writeAll(transfer->file.fd, data, length)) {
        transfer->writeFailed = true;
        return 0;
      }
      break;
    case Transfer::Kind::Data:
      transfer->body.append(data, length);
      break;
    case Transfer::Kind::Beacon:
      break;
  }
  return length;
}

int onConnected(void* user, char*, char*, int, int) {
  auto* transfer = static_cast<Transfer*>(user);
  // From here on the idle time-out applies; before, the connect time-out does.
  transfer->connected = true;
  transfer->lastActivity = SteadyClock::now();
  return CURL_PREREQFUNC_OK;
}

// Temporary download files are named tovani-<12 of [a-z0-9]>.download.
constexpr const char* kTemporaryPrefix = "tovani-";
constexpr const char* kTemporarySuffix = ".download";
constexpr size_t kRandomSuffixLength = 12;

std::string randomSuffix() {
  static constexpr char kAlphabet[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  unsigned char bytes[kRandomSuffixLength];
  if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) {
    std::random_device device;
    for (auto& b : bytes) b = static_cast<unsigned char>(device());
  }
  std::string suffix;
  for (unsigned char b : bytes) suffix += kAlphabet[b % (sizeof kAlphabet - 1)];
  return suffix;
}

}  // namespace

void ensureCurlInitialised() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

bool isFetchableUrl(const std::string& url) {
  CURLU* parsed = curl_url();
  if (parsed == nullptr) return false;
  bool fetchable = false;
  if (curl_url_set(parsed, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK) {
    char* scheme = nullptr;
    if (curl_url_get(parsed, CURLUPART_SCHEME, &scheme, 0) == CURLUE_OK) {
      const std::string_view s(scheme);
      fetchable = s == "http" || s == "https";
      curl_free(scheme);
    }
  }
  curl_url_cleanup(parsed);
  return fetchable;
}

curl_slist* makeConnectTo(const std::vector<std::string>& mappings) {
  curl_slist* list = nullptr;
  for (const auto& mapping : mappings) {
    curl_slist* grown = curl_slist_append(list, mapping.c_str());
    if (grown != nullptr) list = grown;
  }
  return list;
}

void applyCommonOptions(CURL* easy, const HttpOptions& options, curl_slist* connectTo,
                        bool followRedirects) {
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  // Server input decides where redirects go; nothing but the web may be reached through them.
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, followRedirects ? 1L : 0L);
  curl_easy_setopt(easy, CURLOPT_MAXREDIRS, options.maxRedirects);
  curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
  curl_easy_setopt(easy, CURLOPT_USERAGENT, options.userAgent.c_str());
  if (connectTo != nullptr) curl_easy_setopt(easy, CURLOPT_CONNECT_TO, connectTo);
  if (!options.caFile.empty()) curl_easy_setopt(easy, CURLOPT_CAINFO, options.caFile.c_str());
}

bool isTemporaryFileName(std::string_view name) {
  constexpr std::string_view prefix = kTemporaryPrefix, suffix = kTemporarySuffix;
  if (name.size() != prefix.size() + kRandomSuffixLength + suffix.size()) return false;
  if (!name.starts_with(prefix) || !name.ends_with(suffix)) return false;
  const auto middle = name.substr(prefix.size(), kRandomSuffixLength);
  return std::all_of(middle.begin(), middle.end(),
                     [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); });
}

std::optional<TemporaryFile> createTemporaryFile(const std::string& directory, std::string* error) {
  const std::filesystem::path folder =
      directory.empty() ? std::filesystem::temp_directory_path() : std::filesystem::path(directory);
  for (int attempt = 0; attempt < 16; ++attempt) {
    const std::string path =
        (folder / (kTemporaryPrefix + randomSuffix() + kTemporarySuffix)).string();
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd >= 0) return TemporaryFile{fd, path};
    if (errno != EEXIST) {
      *error = "cannot create a temporary file in " + folder.string() + ": " +
               std::error_code(errno, std::generic_category()).message();
      return std::nullopt;
    }
  }
  *error = "cannot find a free temporary file name in " + folder.string();
  return std::nullopt;
}

Transfer::~Transfer() {
  if (easy != nullptr) curl_easy_cleanup(easy);
  if (file.fd >= 0) ::close(file.fd);
  if (!file.path.empty()) ::unlink(file.path.c_str());
}

bool Transfer::configure(const CurlRequest& request, const HttpOptions& options,
                         curl_slist* connectTo) {
  easy = curl_easy_init();
  if (easy == nullptr) return false;
  applyCommonOptions(easy, options, connectTo, request.followRedirects);
  curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str());
  curl_easy_setopt(easy, CURLOPT_PRIVATE, this);
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, errorBuffer);
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, onHeader);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, onBody);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
  curl_easy_setopt(easy, CURLOPT_PREREQFUNCTION, onConnected);
  curl_easy_setopt(easy, CURLOPT_PREREQDATA, this);

  idleSeconds = request.idleTimeoutSeconds > 0 ? request.idleTimeoutSeconds : 3.0;
  // The worker measures stalls to the millisecond; libcurl's own low-speed check stays on as
  // a backstop. It averages over several seconds, so it only ever fires later than ours.
  curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, std::max(1L, std::lround(std::ceil(idleSeconds))));
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, std::max(1L, std::lround(idleSeconds * 1000)));

  maxBytes = request.maxBytes != 0              ? request.maxBytes
             : kind == Transfer::Kind::Download ? options.maxDownloadBytes
                                                : options.maxBodyBytes;
  curl_easy_setopt(easy, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(maxBytes));

  if (request.method == "POST") {
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE,
                     static_cast<curl_off_t>(request.body.size()));
    curl_easy_setopt(easy, CURLOPT_COPYPOSTFIELDS, request.body.c_str());
  } else if (request.method == "HEAD") {
    curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
  } else if (request.method != "GET" && !request.method.empty()) {
    curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    if (!request.body.empty()) {
      curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE,
                       static_cast<curl_off_t>(request.body.size()));
      curl_easy_setopt(easy, CURLOPT_COPYPOSTFIELDS, request.body.c_str());
    }
  }
  lastActivity = SteadyClock::now();
  return true;
}

std::optional<SteadyClock::time_point> Transfer::idleDeadline() const {
  if (!connected) return std::nullopt;
  return lastActivity + std::chrono::duration_cast<SteadyClock::duration>(
                            std::chrono::duration<double>(idleSeconds));
}

CurlResult Transfer::result(CURLcode code, bool timedOutIdle) {
  CurlResult result;
  result.response = std::move(response);
  long status = 0;
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  result.response.status = status;
  char* text = nullptr;
  if (curl_easy_getinfo(easy, CURLINFO_EFFECTIVE_URL, &text) == CURLE_OK && text != nullptr) {
    result.effectiveUrl = text;
  }
  text = nullptr;
  if (curl_easy_getinfo(easy, CURLINFO_REDIRECT_URL, &text) == CURLE_OK && text != nullptr) {
    result.redirectUrl = text;
  }
  if (timedOutIdle) {
    result.error =
        HttpError{kHttpErrorTimedOut, "no data for " + formatSeconds(idleSeconds) + " s"};
  } else if (tooLarge || code == CURLE_FILESIZE_EXCEEDED) {
    result.error =
        HttpError{kHttpErrorTooLarge, "answer larger than " + std::to_string(maxBytes) + " bytes"};
  } else if (writeFailed) {
    result.error = HttpError{kHttpErrorFile, "cannot write the temporary file"};
  } else if (code != CURLE_OK) {
    result.error = HttpError{static_cast<int>(code),
                             errorBuffer[0] != '\0' ? errorBuffer : curl_easy_strerror(code)};
  }
  result.body = std::move(body);
  return result;
}

}  // namespace tovani::linux::detail
