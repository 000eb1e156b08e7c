#pragma once
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "DemoClock.hpp"
#include "tovani/TovaniInspector.hpp"
#include "tovani/View.hpp"
#include "tovani/demo/Demo.hpp"
#include "tovani/linux/LinuxPlatform.hpp"

#pragma push_macro("linux")
#undef linux

namespace tovani::demo {

// Acts as the person in front of the ad during one showing: taps skip or action, leaves
// the app and comes back, follows an end-card link. Like any host it sees only what is on
// its screen (the view tree under its root view) and what the SDK's inspector reports.
// step() is called on the main thread every few milliseconds; onEvent() for every event.
class ShowDriver {
 public:
  ShowDriver(std::shared_ptr<View> hostRoot, const linux::LinuxPlatform& platform,
             std::shared_ptr<DemoClock> clock, ViewerActions actions,
             std::function<void(const TimelineEvent&)> emit);

  void step();
  void onEvent(const InspectorEvent& event);
  double mediaTime() const;
  double showingTime() const { return showingTime_; }
  // Play time of the whole showing (a replay adds to it) at a wall-clock moment (seconds
  // since 1970), from the samples step() takes; 0 before the video started.
  double showingTimeAt(double epoch) const;
  std::string playedAdId() const { return adId_; }
  bool skippable() const { return skippable_; }
  double duration() const { return duration_; }
  // Set when an action could not be carried out (a link the page lacks, for instance).
  const std::string& problem() const { return problem_; }

 private:
  struct Screen {
    std::shared_ptr<View> video, skip, action, endCard;
  };
  Screen look() const;
  void sample(const Screen& screen);
  void watchCountdown(const Screen& screen);
  void actOnControls(const Screen& screen, double t);
  void actOnBackground(double t);
  void actOnEndCard(const Screen& screen);
  void record(const std::string& lane, const std::string& label);

  std::shared_ptr<View> root_;
  const linux::LinuxPlatform& platform_;
  std::shared_ptr<DemoClock> clock_;
  ViewerActions actions_;
  std::function<void(const TimelineEvent&)> emit_;

  std::shared_ptr<MediaPlayer> player_;  // the one the video layer showed last
  bool playing_ = false;                 // between the start stage and the video's end
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
