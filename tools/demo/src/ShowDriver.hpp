#pragma once
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "DemoClock.hpp"
#include "tovani/demo/Demo.hpp"
#include "tovani/linux/LinuxPlatform.hpp"
#include "viewer/tovaniViewer.hpp"

#pragma push_macro("linux")
#undef linux

namespace tovani::demo {

// Acts as the person in front of the ad during one showing: taps skip or action, leaves
// the app and comes back, follows an end-card link. Watches the viewer's state to write
// the timeline. step() is called on the main thread every few milliseconds.
class ShowDriver {
 public:
  ShowDriver(std::shared_ptr<tovaniViewer> viewer, const linux::LinuxPlatform& platform,
             std::shared_ptr<DemoClock> clock, ViewerActions actions,
             std::function<void(const TimelineEvent&)> emit);

  void step();
  double mediaTime() const;
  // Play time of the whole showing (a replay adds to it) at a wall-clock moment (seconds
  // since 1970), from the samples step() takes; 0 before the video started.
  double showingTimeAt(double epoch) const;
  double showingTime() const { return showingTime_; }
  std::string playedAdId() const { return adId_; }
  bool skippable() const { return skippable_; }
  double duration() const { return duration_; }
  // Set when an action could not be carried out (a link the page lacks, for instance).
  const std::string& problem() const { return problem_; }

 private:
  void watchState();
  void actOnControls(double t);
  void actOnBackground(double t);
  void actOnEndCard();
  void record(const std::string& lane, const std::string& label);

  std::shared_ptr<tovaniViewer> viewer_;
  const linux::LinuxPlatform& platform_;
  std::shared_ptr<DemoClock> clock_;
  ViewerActions actions_;
  std::function<void(const TimelineEvent&)> emit_;

  int lastState_ = -1;
  int32_t lastResult_ = -1;
  std::string lastCountdown_;
  bool skipped_ = false;
  bool actionTapped_ = false;
  enum class Away { NotYet, Away, Back } away_ = Away::NotYet;
  double awaySince_ = 0;
  int endCardVisits_ = 0;
  bool endCardVisible_ = false;
  int linksFollowed_ = 0;
  int pagesAtLastFollow_ = 0;
  std::string adId_;
  bool skippable_ = false;
  double duration_ = 0;
  std::string problem_;
  std::vector<std::pair<double, double>> samples_;  // (epoch, showing time)
  double showingTime_ = 0;
  double lastMediaTime_ = 0;
};

}  // namespace tovani::demo

#pragma pop_macro("linux")
