#pragma once
#include <chrono>
#include <memory>
#include <string>

#include "ports/Rigs.hpp"
#include "tovani/Constants.hpp"
#include "tovani/adserver/AdServer.hpp"
#include "tovani/linux/CurlHttp.hpp"
#include "tovani/linux/MainLoop.hpp"

#pragma push_macro("linux")
#undef linux

namespace tovani::ports {

// The development ad server on loopback, reached under the compiled-in ad host name, with a
// GLib main loop on the default context (the one a GTK host runs).
struct AdServerRig : WebViewRig {
  AdServerRig() {
    server_->start();
    linux::HttpOptions options;
    options.connectTo = {server_->hosts().production + ":80:127.0.0.1:" + port()};
    http_ = std::make_shared<linux::CurlHttp>(loop_, options);
  }
  ~AdServerRig() override { server_->stop(); }
  std::string port() const { return std::to_string(server_->httpPort()); }
  MainQueue& queue() override { return *loop_; }
  double now() const override {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
  }
  bool runUntil(const std::function<bool()>& done, double seconds) override {
    return loop_->runUntil(done, seconds);
  }
  std::string cardUrl() const override { return std::string(TOVANI_URL_ENDCARD) + "type1-1.php"; }
  std::string otherPageUrl() const override {
    return std::string(TOVANI_URL_ENDCARD) + "iosTovaniEndCard.php";
  }

  std::unique_ptr<adserver::AdServer> server_ =
      std::make_unique<adserver::AdServer>(adserver::Options{});
  std::shared_ptr<linux::MainLoop> loop_ = std::make_shared<linux::MainLoop>();
  std::shared_ptr<linux::CurlHttp> http_;
};

}  // namespace tovani::ports

#pragma pop_macro("linux")
