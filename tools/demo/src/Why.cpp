#include "Why.hpp"

#include <cstdio>

namespace tovani::demo {

namespace {

std::string seconds(double s) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", s);
  return text;
}

// "p|7|2" → "since 1 January" (the rolling cap counts from the cut-off day's year);
// "d|20260101|20260131|3" → "between 20260101 and 20260131".
std::string countedSince(const std::string& rule) {
  if (rule.rfind("p|", 0) == 0) return "since 1 January";
  if (rule.rfind("d|", 0) == 0) {
    const auto a = rule.find('|', 2);
    const auto b = a == std::string::npos ? a : rule.find('|', a + 1);
    if (b != std::string::npos)
      return "between " + rule.substr(2, a - 2) + " and " + rule.substr(a + 1, b - a - 1);
  }
  return "";
}

std::string candidateSentence(const InspectorEvent& e, bool only) {
  const std::string ad = "ad " + (e.adId.empty() ? std::string("without an id") : e.adId);
  if (e.outcome == "capped") {
    const std::string since = countedSince(e.rule);
    return ad + " was capped by " + e.rule + ": " + std::to_string(e.count.value_or(0)) +
           " showings counted" + (since.empty() ? "" : " " + since);
  }
  if (e.outcome == "file-missing") {
    return std::string(only ? "the only cached ad's file is missing"
                            : ad + "'s cached file is missing") +
           "; it is being downloaded again";
  }
  if (e.outcome == "refused-name") return ad + " was refused: " + e.reason;
  return ad + " is not cached yet; the ad list is being refreshed";
}

}  // namespace

std::string explainNoAd(const std::vector<InspectorEvent>& events, int32_t result) {
  std::vector<const InspectorEvent*> candidates;
  bool played = false;
  for (const auto& e : events) {
    if (e.kind == InspectorEventKind::ShowCheck && e.outcome == "ended") return e.reason + ".";
    if (e.kind == InspectorEventKind::AdRequest && e.name == "failed")
      return "the ad request failed after " + seconds(e.latencySeconds.value_or(0)) + ": " +
             e.error.value_or("unknown error") + ".";
    if (e.kind == InspectorEventKind::ParseFailure)
      return "the ad server's answer could not be read: " + e.error.value_or("") + " at line " +
             std::to_string(e.line.value_or(0)) + ", column " +
             std::to_string(e.column.value_or(0)) + ".";
    if (e.kind == InspectorEventKind::Candidate) candidates.push_back(&e);
    if (e.kind == InspectorEventKind::Stage && e.name == "start") played = true;
  }
  if (played) {
    return result == 2 ? "the ad played but ended before its reward point (or could not go on)."
                       : "the ad played; the result came from what the viewer did.";
  }
  if (candidates.empty()) return "the ad server's answer held no ad.";
  std::string out;
  for (const auto* c : candidates) {
    if (c->outcome == "chosen") continue;
    out += (out.empty() ? "" : "; ") + candidateSentence(*c, candidates.size() == 1);
  }
  return (out.empty() ? "no ad could be played" : out) + ".";
}

}  // namespace tovani::demo
