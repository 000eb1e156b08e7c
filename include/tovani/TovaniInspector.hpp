#pragma once
#include <cstdint>
#include <optional>
#include <string>

#include "tovani/Export.hpp"

namespace tovani {

// What an inspector event is about.
enum class InspectorEventKind {
  ShowCheck,     // one check of tovaniShow; `outcome` "passed" or "ended"
  AdRequest,     // the ad request: "sent" (url), "answered" (status, bytes, latency), "failed"
  ParseFailure,  // the ad server's answer could not be read (error, line, column)
  Candidate,     // one Ad of the answer, in order: adId, videoFile, outcome, reason
  Stage,         // a stage of playback (name, mediaTime; gapSeconds on return to foreground)
  Beacon,        // "sent" (url); later "answered"/"failed" when the adapter reports
  EndCardLoad,   // the end-card page load (url)
  Callback,      // the host's delegate was called (result)
};

TOVANI_EXPORT const char* inspectorEventKindName(InspectorEventKind kind);

// One decision of the SDK, as a plain value. Fields that do not apply stay empty.
struct TOVANI_EXPORT InspectorEvent {
  InspectorEventKind kind = InspectorEventKind::ShowCheck;
  double monotonicSeconds = 0;  // steady clock of the process; only differences mean anything
  uint64_t showing = 0;         // 1 for the first tovaniShow of the process; 0 before it
  std::string name;             // the check, stage or step
  std::string outcome;          // candidates: "not-in-store", "refused-name", "capped",
                                // "file-missing", "chosen"; checks: "passed", "ended"
  std::string reason;           // the outcome in plain words
  std::string adId;
  std::string videoFile;
  std::string url;
  std::string rule;  // the frequency rule as read from the answer
  std::optional<std::string> error;
  std::optional<double> mediaTime;  // player time in seconds
  std::optional<long> status;       // HTTP status
  std::optional<double> latencySeconds;
  std::optional<double> gapSeconds;  // time spent in the background
  std::optional<int64_t> bytes;
  std::optional<int64_t> count;  // showings that reached a cap
  std::optional<int64_t> line;   // parse failure position
  std::optional<int64_t> column;
  std::optional<int32_t> result;  // the value a callback carried; the result a check gives
};

// Receives one event per decision, on the main thread, in order. Optional: without one the
// SDK does no inspection work at all. Whatever an inspector throws is contained and logged
// once; the showing goes on as if no inspector were set.
class TOVANI_EXPORT TovaniInspector {
 public:
  virtual ~TovaniInspector() = default;
  virtual void onEvent(const InspectorEvent& event) = 0;
};

}  // namespace tovani
