#include "tovani/adserver/AdServer.hpp"

#include <httplib.h>
#include <stdlib.h>

#include <condition_variable>
#include <fstream>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "Certificates.hpp"
#include "Routes.hpp"

#ifndef TOVANI_ADSERVER_FIXTURES_DIR
#error "TOVANI_ADSERVER_FIXTURES_DIR must name the fixtures folder"
#endif

namespace tovani::adserver {
namespace {

// Enough workers that a few stalled answers and the idle keep-alive connections of a
// busy client never hold up the next request on the same port.
constexpr std::size_t kWorkersPerPort = 24;
constexpr std::size_t kLargestBody = 1 << 20;

std::string hostOf(const std::string& url) {
  auto start = url.find("://");
  start = start == std::string::npos ? 0 : start + 3;
  const auto end = url.find_first_of(":/", start);
  return url.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

std::string readText(const std::filesystem::path& file) {
  std::ifstream in(file);
  if (!in) throw std::runtime_error("cannot read the scenario file " + file.string());
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::filesystem::path makeTemporaryFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "tovani-adserver-XXXXXX");
  if (::mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("cannot make a state folder under " +
                             std::filesystem::temp_directory_path().string());
  }
  return pattern;
}

template <class Server>
void configure(Server& server) {
  server.new_task_queue = [] { return new httplib::ThreadPool(kWorkersPerPort); };
  server.set_payload_max_length(kLargestBody);
  // Small answers on kept-alive connections must not wait for the client's delayed ACK.
  server.set_tcp_nodelay(true);
}

int bindPort(httplib::Server& server, const std::string& address, int port, const char* what) {
  const int bound = port == 0 ? server.bind_to_any_port(address)
                              : (server.bind_to_port(address, port) ? port : -1);
  if (bound <= 0) {
    throw std::runtime_error(std::string("cannot listen for ") + what + " on " + address + ":" +
                             std::to_string(port));
  }
  return bound;
}

}  // namespace

HostNames compiledHostNames() {
  HostNames hosts{TOVANI_ADSERVER_PRODUCTION_HOST, TOVANI_ADSERVER_TEST_HOST,
                  TOVANI_ADSERVER_CDN_URL, ""};
  hosts.cdnHost = hostOf(hosts.cdnUrl);
  return hosts;
}

struct AdServer::Impl {
  Options options;
  std::filesystem::path stateDir;
  bool ownsStateDir = false;
  std::filesystem::path caFile;
  HostNames hosts = compiledHostNames();
  std::unique_ptr<ServerState> state;
  std::optional<TlsMaterial> tls;
  std::unique_ptr<httplib::Server> http;
  std::unique_ptr<httplib::SSLServer> https;
  std::thread httpThread, httpsThread;
  int httpPort = 0, httpsPort = 0;

  std::mutex mutex;
  std::condition_variable wake;
  bool stopping = false;
  bool started = false;

  bool pause(double seconds) {
    std::unique_lock lock(mutex);
    return !wake.wait_for(lock, std::chrono::duration<double>(seconds),
                          [this] { return stopping; });
  }
};

AdServer::AdServer(Options options) : impl_(std::make_unique<Impl>()) {
  impl_->options = std::move(options);
}

AdServer::~AdServer() {
  stop();
  if (impl_->ownsStateDir) {
    std::error_code ignored;
    std::filesystem::remove_all(impl_->stateDir, ignored);
  }
}

void AdServer::start() {
  Impl& m = *impl_;
  if (m.started) throw std::runtime_error("the ad server was started already");
  m.started = true;
  const Options& o = m.options;
  std::string text;
  if (!o.scenarioText.empty()) {
    text = o.scenarioText;
  } else if (!o.scenarioFile.empty()) {
    text = readText(o.scenarioFile);
  } else {
    text = std::string(defaultScenarioText());
  }
  const auto fixtures =
      o.fixturesDir.empty() ? std::filesystem::path(TOVANI_ADSERVER_FIXTURES_DIR) : o.fixturesDir;
  Scenario scenario = loadScenario(text, m.hosts, fixtures);

  if (o.stateDir.empty()) {
    m.stateDir = makeTemporaryFolder();
    m.ownsStateDir = true;
  } else {
    m.stateDir = o.stateDir;
    std::filesystem::create_directories(m.stateDir);
  }
  m.state = std::make_unique<ServerState>(m.hosts, std::move(scenario), fixtures, m.stateDir);
  m.state->faults.apply(m.state->scenario.faults);
  m.state->pause = [&m](double seconds) { return m.pause(seconds); };
  m.state->onRequest = o.onRequest;
  m.state->describeServer = [&m] {
    return nlohmann::json{{"http_port", m.httpPort},      {"https_port", m.httpsPort},
                          {"ca_file", m.caFile.string()}, {"production_host", m.hosts.production},
                          {"test_host", m.hosts.test},    {"cdn_url", m.hosts.cdnUrl}};
  };

  std::set<std::string> names{m.hosts.cdnHost, m.hosts.production, m.hosts.test, "localhost"};
  names.erase("");
  m.tls = TlsMaterial::generate({names.begin(), names.end()});
  m.caFile = m.stateDir / "ca.pem";
  {
    std::ofstream out(m.caFile, std::ios::trunc);
    out << m.tls->caPem();
    if (!out) throw std::runtime_error("cannot write " + m.caFile.string());
  }

  m.http = std::make_unique<httplib::Server>();
  m.https = std::make_unique<httplib::SSLServer>(m.tls->serverCertificate(), m.tls->serverKey());
  if (!m.https->is_valid()) throw std::runtime_error("the HTTPS port could not load its key");
  configure(*m.http);
  configure(*m.https);
  installRoutes(*m.http, "http", *m.state);
  installRoutes(*m.https, "https", *m.state);
  m.httpPort = bindPort(*m.http, o.bindAddress, o.httpPort, "HTTP");
  m.httpsPort = bindPort(*m.https, o.bindAddress, o.httpsPort, "HTTPS");
  m.httpThread = std::thread([&m] { m.http->listen_after_bind(); });
  m.httpsThread = std::thread([&m] { m.https->listen_after_bind(); });
  // A stop() that came before the accept loops run would be lost and leave them running,
  // so start() returns only once both loops are up.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!(m.http->is_running() && m.https->is_running())) {
    if (std::chrono::steady_clock::now() > deadline) {
      throw std::runtime_error("the ad server's ports did not start serving");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  std::ofstream info(m.stateDir / "server.json", std::ios::trunc);
  info << m.state->describeServer().dump(2) << "\n";
}

void AdServer::stop() {
  Impl& m = *impl_;
  {
    std::lock_guard lock(m.mutex);
    m.stopping = true;
  }
  m.wake.notify_all();
  if (m.http) m.http->stop();
  if (m.https) m.https->stop();
  if (m.httpThread.joinable()) m.httpThread.join();
  if (m.httpsThread.joinable()) m.httpsThread.join();
}

int AdServer::httpPort() const {
  return impl_->httpPort;
}
int AdServer::httpsPort() const {
  return impl_->httpsPort;
}
std::filesystem::path AdServer::stateDir() const {
  return impl_->stateDir;
}
std::filesystem::path AdServer::caFile() const {
  return impl_->caFile;
}
const HostNames& AdServer::hosts() const {
  return impl_->hosts;
}

std::string AdServer::scenarioName() const {
  return impl_->state ? impl_->state->scenario.name : std::string();
}

std::string AdServer::scenarioDescription() const {
  return impl_->state ? impl_->state->scenario.description : std::string();
}

std::vector<LoggedRequest> AdServer::requests() const {
  return impl_->state ? impl_->state->log.entries() : std::vector<LoggedRequest>{};
}

std::optional<LoggedRequest> AdServer::waitForRequest(
    const std::function<bool(const LoggedRequest&)>& match, double timeoutSeconds) const {
  if (!impl_->state) return std::nullopt;
  return impl_->state->log.waitFor(match, timeoutSeconds);
}

void AdServer::clearLog() {
  if (impl_->state) impl_->state->log.clear();
}

void AdServer::setFaults(const std::string& json) {
  if (!impl_->state) throw std::invalid_argument("the ad server is not running");
  const auto changes = nlohmann::json::parse(json, nullptr, false);
  if (changes.is_discarded()) throw std::invalid_argument("fault switches are not JSON");
  impl_->state->faults.apply(changes);
}

std::vector<std::string> AdServer::issuedUuids() const {
  return impl_->state ? impl_->state->ids.issued() : std::vector<std::string>{};
}

}  // namespace tovani::adserver
