#include "viewer/Inspection.hpp"

#include <chrono>
#include <exception>
#include <utility>

namespace tovani {

double monotonicSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void Inspection::attach(std::shared_ptr<TovaniInspector> inspector, std::shared_ptr<Log> log) {
  inspector_ = std::move(inspector);
  log_ = std::move(log);
  reportedThrow_ = false;
}

void Inspection::deliver(InspectorEvent event, uint64_t showing) {
  // Copied first: the inspector may replace itself from inside its own call.
  const auto inspector = inspector_;
  if (!inspector) return;
  event.monotonicSeconds = monotonicSeconds();
  event.showing = showing;
  // The inspector is the host's code; whatever it does must not change the showing.
  try {
    inspector->onEvent(event);
  } catch (...) {
    if (reportedThrow_) return;
    reportedThrow_ = true;
    std::string what = "an exception that is not a std::exception";
    try {
      throw;
    } catch (const std::exception& e) {
      what = e.what();
    } catch (...) {
    }
    if (log_) log_->write("tovani: the inspector threw and is ignored for this event: " + what);
  }
}

const char* inspectorEventKindName(InspectorEventKind kind) {
  switch (kind) {
    case InspectorEventKind::ShowCheck:
      return "check";
    case InspectorEventKind::AdRequest:
      return "request";
    case InspectorEventKind::ParseFailure:
      return "parse-failure";
    case InspectorEventKind::Candidate:
      return "candidate";
    case InspectorEventKind::Stage:
      return "stage";
    case InspectorEventKind::Beacon:
      return "beacon";
    case InspectorEventKind::EndCardLoad:
      return "endcard-load";
    case InspectorEventKind::Callback:
      return "callback";
  }
  return "unknown";
}

}  // namespace tovani
