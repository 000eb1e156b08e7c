#pragma once
// A real HTTP server on 127.0.0.1 (random port) for the adapter tests: handlers register
// their routes, then start(); every request is recorded. Slow handlers wait with sleepFor,
// which the destructor cuts short so no test waits for a stalled handler to finish.
#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tovani::testing {

struct Hit {
  std::string method;
  std::string path;
  std::string body;
  std::string contentType;
  std::string host;
  int remotePort = 0;
};

class LoopbackServer {
 public:
  LoopbackServer() {
    server_.set_keep_alive_max_count(1000);
    server_.set_pre_routing_handler([this](const httplib::Request& req, httplib::Response&) {
      std::lock_guard lock(mutex_);
      hits_.push_back({req.method, req.path, req.body, req.get_header_value("Content-Type"),
                       req.get_header_value("Host"), req.remote_port});
      return httplib::Server::HandlerResponse::Unhandled;
    });
    // The body is read between the two handlers; a request is listed on arrival, so that a
    // test can see a slow one while it is still being answered.
    server_.set_post_routing_handler([this](const httplib::Request& req, httplib::Response&) {
      std::lock_guard lock(mutex_);
      for (auto hit = hits_.rbegin(); hit != hits_.rend(); ++hit) {
        if (hit->path == req.path && hit->remotePort == req.remote_port) {
          hit->body = req.body;
          break;
        }
      }
    });
  }
  ~LoopbackServer() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    wake_.notify_all();
    server_.stop();
    if (thread_.joinable()) thread_.join();
  }

  httplib::Server& routes() { return server_; }

  void start() {
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    // stop() only reaches a server that is already running.
    while (!server_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  int port() const { return port_; }
  std::string url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
  }

  std::vector<Hit> hits() const {
    std::lock_guard lock(mutex_);
    return hits_;
  }
  std::vector<Hit> hitsOn(const std::string& path) const {
    std::vector<Hit> matching;
    for (auto& hit : hits()) {
      if (hit.path == path) matching.push_back(hit);
    }
    return matching;
  }

  // Waits in a handler; false when the server is shutting down.
  bool sleepFor(double seconds) {
    std::unique_lock lock(mutex_);
    return !wake_.wait_for(lock, std::chrono::duration<double>(seconds),
                           [this] { return stopping_; });
  }

 private:
  httplib::Server server_;
  std::thread thread_;
  int port_ = 0;
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  bool stopping_ = false;
  std::vector<Hit> hits_;
};

}  // namespace tovani::testing
