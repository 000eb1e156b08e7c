// Ports for the show-path benchmark: the Linux adapters as they are, with the moments of one
// showing noted down, and a player that does nothing but note when it is told to play.
#pragma once
#include <chrono>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "tovani/Platform.hpp"

namespace show_path {

using Steady = std::chrono::steady_clock;

struct Stamps {
  Steady::time_point requested;  // the VAST request left the core
  Steady::time_point answered;   // its answer reached the core on the main queue
  Steady::time_point counted;    // the impression is stored (the status bar hides next)
  Steady::time_point played;
  int plays = 0;
};

// A player that only notes when play() is called. GStreamer's decoder start-up is left out
// on purpose: the null pipeline has nothing like it, and the question is what the SDK's own
// path costs. Ticks never fire, so a showing stays at its start until it is closed.
class StampingPlayer final : public tovani::MediaPlayer {
 public:
  explicit StampingPlayer(std::shared_ptr<Stamps> stamps) : stamps_(std::move(stamps)) {}
  void play() override {
    stamps_->played = Steady::now();
    ++stamps_->plays;
  }
  void pause() override {}
  void seek(double) override {}
  double currentTime() const override { return 0; }
  double duration() const override { return std::numeric_limits<double>::quiet_NaN(); }
  bool hasCurrentItem() const override { return true; }
  tovani::TimeObserverToken addPeriodicTimeObserver(double, std::function<void(double)>) override {
    observer_ = ++lastToken_;
    return *observer_;
  }
  bool removeTimeObserver(tovani::TimeObserverToken token) override {
    if (observer_ != token) return false;
    observer_.reset();
    return true;
  }
  void setHoldsLastFrameAtEnd(bool) override {}
  void setItemEndedHandler(std::function<void()>) override {}

 private:
  std::shared_ptr<Stamps> stamps_;
  std::optional<tovani::TimeObserverToken> observer_;
  tovani::TimeObserverToken lastToken_ = 0;
};

class StampingPlayerFactory final : public tovani::MediaPlayerFactory {
 public:
  explicit StampingPlayerFactory(std::shared_ptr<Stamps> stamps) : stamps_(std::move(stamps)) {}
  std::shared_ptr<tovani::MediaPlayer> createPlayer(const std::string&) override {
    return std::make_shared<StampingPlayer>(stamps_);
  }

 private:
  std::shared_ptr<Stamps> stamps_;
};

class StampingHttp final : public tovani::Http {
 public:
  StampingHttp(std::shared_ptr<tovani::Http> inner, std::shared_ptr<Stamps> stamps)
      : inner_(std::move(inner)), stamps_(std::move(stamps)) {}
  void dataRequest(tovani::DataRequest request, tovani::DataCompletion done) override {
    stamps_->requested = Steady::now();
    inner_->dataRequest(std::move(request), [stamps = stamps_, done = std::move(done)](
                                                std::string body, tovani::HttpResponse response,
                                                std::optional<tovani::HttpError> error) {
      stamps->answered = Steady::now();
      done(std::move(body), std::move(response), std::move(error));
    });
  }
  void download(tovani::DownloadRequest request, tovani::DownloadCompletion done) override {
    inner_->download(std::move(request), std::move(done));
  }
  void beacon(const std::string& url) override { inner_->beacon(url); }
  void reportedBeacon(const std::string& url, tovani::BeaconReportHandler report) override {
    inner_->reportedBeacon(url, std::move(report));
  }
  std::optional<std::string> fetchBlocking(const std::string& url) override {
    return inner_->fetchBlocking(url);
  }

 private:
  std::shared_ptr<tovani::Http> inner_;
  std::shared_ptr<Stamps> stamps_;
};

// The viewer hides the status bar right after storing the impression, which splits the
// answer's handling into look-up (parse, playable-advert query, file check, impression)
// and playback set-up.
class StampingApplication final : public tovani::Application {
 public:
  StampingApplication(std::shared_ptr<tovani::Application> inner, std::shared_ptr<Stamps> stamps)
      : inner_(std::move(inner)), stamps_(std::move(stamps)) {}
  bool isStatusBarHidden() const override { return inner_->isStatusBarHidden(); }
  void setStatusBarHidden(bool hidden) override {
    if (hidden) stamps_->counted = Steady::now();
    inner_->setStatusBarHidden(hidden);
  }
  bool canOpenURL(const std::string& url) const override { return inner_->canOpenURL(url); }
  void openURL(const std::string& url) override { inner_->openURL(url); }
  std::optional<std::string> bundleName() const override { return inner_->bundleName(); }
  std::optional<std::string> bundleResourcePath() const override {
    return inner_->bundleResourcePath();
  }
  void setEventHandler(std::function<void(tovani::AppEvent)> handler) override {
    inner_->setEventHandler(std::move(handler));
  }

 private:
  std::shared_ptr<tovani::Application> inner_;
  std::shared_ptr<Stamps> stamps_;
};

}  // namespace show_path
