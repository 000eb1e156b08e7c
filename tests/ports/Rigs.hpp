#pragma once
// One contract per port, run against the test platform's fakes and the real adapters, so that
// the fakes the core's tests rely on cannot drift from what a real platform does.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tovani/platform/Http.hpp"
#include "tovani/platform/MainQueue.hpp"
#include "tovani/platform/WebView.hpp"

namespace tovani::ports {

// A main queue and the means to let (virtual or real) time pass on it.
struct QueueRig {
  virtual ~QueueRig() = default;
  virtual MainQueue& queue() = 0;
  virtual double now() const = 0;  // seconds, on the queue's own clock
  // Runs the queue until `done` holds or `seconds` have passed; returns `done()`.
  virtual bool runUntil(const std::function<bool()>& done, double seconds) = 0;
};

struct HttpRig : QueueRig {
  virtual Http& http() = 0;
  // Makes `path` answer with `status` and `body`.
  virtual void serve(const std::string& path, long status, const std::string& body) = 0;
  virtual std::string url(const std::string& path) const = 0;
  virtual std::string unreachableUrl() const = 0;
  // "METHOD path body" of every request the other end saw, in arrival order.
  virtual std::vector<std::string> seen() = 0;
  virtual std::string temporaryDirectory() const = 0;
};

struct WebViewRig : QueueRig {
  virtual std::shared_ptr<WebView> makeView() = 0;
  // A page on the ad host that answers a POST, and a page on the ad host to link to.
  virtual std::string cardUrl() const = 0;
  virtual std::string otherPageUrl() const = 0;
  // A person taps a link to `url` on the page shown.
  virtual void tapLink(WebView& view, const std::string& url) = 0;
  virtual int pagesLoaded(WebView& view) = 0;
};

template <typename Rig>
struct RigMaker {
  std::string name;
  std::function<std::unique_ptr<Rig>()> make;
};

// Names the rig in test listings instead of the bytes of the maker.
template <typename Rig>
void PrintTo(const RigMaker<Rig>& maker, std::ostream* out) {
  *out << maker.name;
}

template <typename Rig>
std::string rigName(const ::testing::TestParamInfo<RigMaker<Rig>>& info) {
  return info.param.name;
}

class QueueConformance : public ::testing::TestWithParam<RigMaker<QueueRig>> {
 protected:
  void SetUp() override { rig = GetParam().make(); }
  std::unique_ptr<QueueRig> rig;
};

class HttpConformance : public ::testing::TestWithParam<RigMaker<HttpRig>> {
 protected:
  void SetUp() override { rig = GetParam().make(); }
  std::unique_ptr<HttpRig> rig;
};

class WebViewConformance : public ::testing::TestWithParam<RigMaker<WebViewRig>> {
 protected:
  void SetUp() override { rig = GetParam().make(); }
  void TearDown() override { rig.reset(); }
  std::unique_ptr<WebViewRig> rig;
};

}  // namespace tovani::ports
