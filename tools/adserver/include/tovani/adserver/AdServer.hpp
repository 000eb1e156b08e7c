#pragma once
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The development ad server: everything the SDK talks to (store file, ad list, VAST,
// videos, CDN images, end-card pages, tracking beacons) on two loopback ports, plus a
// request log and run-time fault switches for tests. It answers whatever Host header
// arrives, so the SDK keeps its compiled-in URLs and the HTTP client only maps the host
// names to the loopback ports.
namespace tovani::adserver {

// The host names compiled into this build (the same cache variables as the SDK's).
struct HostNames {
  std::string production;  // e.g. "ads.tovani.example"
  std::string test;        // e.g. "test-ads.tovani.example"
  std::string cdnUrl;      // e.g. "https://cdn.tovani.example/sdk/", ends in "/"
  std::string cdnHost;     // host part of cdnUrl
};
HostNames compiledHostNames();

// Text made safe inside XML or HTML markup (also inside quoted attributes); used by the
// server's documents and pages and by tools that draw reports of what it served.
std::string escapeXml(std::string_view text);

// One request as the server received it. Control requests (paths under /__) are not kept.
struct LoggedRequest {
  std::uint64_t id = 0;
  std::string scheme;  // "http" or "https"
  std::string method;
  std::string host;   // the Host header as sent
  std::string path;   // as sent, still percent-encoded
  std::string query;  // as sent, without the "?"
  std::string body;
  std::string route;  // store, adlist, vast, video, image, endcard, track or other
  int status = 0;     // 0 while the answer is still pending (a stall, for example)
  double time = 0;    // seconds since the server started
  double epoch = 0;   // seconds since 1970
};

struct Options {
  // Scenario: `scenarioText` (JSON) wins when not empty, then `scenarioFile`; with
  // neither, the built-in default scenario is served.
  std::filesystem::path scenarioFile;
  std::string scenarioText;
  std::string bindAddress = "127.0.0.1";
  int httpPort = 0;  // 0 picks a free port
  int httpsPort = 0;
  // Where the CA file and temporary store files go. Empty: a fresh folder under the
  // system temporary folder, removed again when the server is destroyed.
  std::filesystem::path stateDir;
  // Videos and images. Empty: the fixtures folder of the source tree.
  std::filesystem::path fixturesDir;
  // Called on a serving thread after each answer (control requests excepted); the
  // command-line server prints them. Must be quick and thread-safe.
  std::function<void(const LoggedRequest&)> onRequest;
};

class AdServer {
 public:
  explicit AdServer(Options options);
  ~AdServer();  // stops the server
  AdServer(const AdServer&) = delete;
  AdServer& operator=(const AdServer&) = delete;

  // Loads the scenario, makes the certificates, binds both ports and starts serving on
  // background threads. Throws std::runtime_error with a readable reason on failure.
  void start();
  // Stops both ports; a stalled answer is cut short. Safe to call more than once.
  void stop();

  int httpPort() const;
  int httpsPort() const;
  std::filesystem::path stateDir() const;
  std::filesystem::path caFile() const;  // PEM; trust it to reach the HTTPS port
  const HostNames& hosts() const;
  std::string scenarioName() const;
  std::string scenarioDescription() const;

  std::vector<LoggedRequest> requests() const;
  // The first logged request `match` accepts (answered or still pending), waiting up to
  // `timeoutSeconds` for one to arrive; nothing on time-out.
  std::optional<LoggedRequest> waitForRequest(
      const std::function<bool(const LoggedRequest&)>& match, double timeoutSeconds) const;
  void clearLog();
  // Same JSON object as the body of POST /__faults. Throws std::invalid_argument when the
  // object is not a valid set of fault switches; nothing changes in that case.
  void setFaults(const std::string& json);
  // Device ids handed out by the ad list so far, oldest first.
  std::vector<std::string> issuedUuids() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tovani::adserver
