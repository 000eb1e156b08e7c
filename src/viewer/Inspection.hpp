#pragma once
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "tovani/TovaniInspector.hpp"
#include "tovani/platform/Device.hpp"

namespace tovani {

// The viewer's link to the host's inspector. Every hook goes through emit(), which builds
// the event only when an inspector is attached, so a host without one pays for a pointer
// test per decision and nothing else.
class Inspection {
 public:
  void attach(std::shared_ptr<TovaniInspector> inspector, std::shared_ptr<Log> log);
  bool active() const { return inspector_ != nullptr; }

  template <typename Make>
  void emit(Make&& make) {
    if (inspector_) deliver(make(), showing_);
  }
  // For reports that arrive after their showing (beacon answers): the number they carry.
  void deliver(InspectorEvent event, uint64_t showing);

  uint64_t showing() const { return showing_; }
  void beginShowing() { ++showing_; }

  // What the frequency check found for the candidate under way, read back by the VAST
  // mapping when it reports that candidate. Written only while inspecting.
  struct FrequencyNote {
    std::string kind;  // "period", "rolling", "none", "malformed"
    std::optional<int64_t> capCount;
    bool fileMissing = false;
  };
  FrequencyNote note;

  // The last frequency rule of every ad whose answer was read in this process (for the
  // readiness report, which may be asked without an inspector).
  std::map<std::string, std::string> lastRuleByAd;

 private:
  std::shared_ptr<TovaniInspector> inspector_;
  std::shared_ptr<Log> log_;
  uint64_t showing_ = 0;
  bool reportedThrow_ = false;
};

// Seconds on the process's steady clock.
double monotonicSeconds();

}  // namespace tovani
