#include "tovani/JsonLinesInspector.hpp"

#include <nlohmann/json.hpp>

namespace tovani {

JsonLinesInspector::JsonLinesInspector(const std::string& path)
    : file_(std::make_unique<std::ofstream>(path, std::ios::app)), out_(file_.get()) {}

JsonLinesInspector::JsonLinesInspector(std::ostream& out) : out_(&out) {}

std::string JsonLinesInspector::toJson(const InspectorEvent& e) {
  nlohmann::ordered_json j;
  j["t"] = e.monotonicSeconds;
  j["showing"] = e.showing;
  j["kind"] = inspectorEventKindName(e.kind);
  const auto text = [&](const char* key, const std::string& value) {
    if (!value.empty()) j[key] = value;
  };
  const auto optional = [&](const char* key, const auto& value) {
    if (value) j[key] = *value;
  };
  text("name", e.name);
  text("outcome", e.outcome);
  text("reason", e.reason);
  text("adId", e.adId);
  text("videoFile", e.videoFile);
  text("url", e.url);
  text("rule", e.rule);
  optional("error", e.error);
  optional("mediaTime", e.mediaTime);
  optional("status", e.status);
  optional("latency", e.latencySeconds);
  optional("gap", e.gapSeconds);
  optional("bytes", e.bytes);
  optional("count", e.count);
  optional("line", e.line);
  optional("column", e.column);
  optional("result", e.result);
  // Keys in a fixed order, so that lines read alike. Server text may hold bytes that are not UTF-8;
  // they are replaced rather than throwing.
  return j.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void JsonLinesInspector::onEvent(const InspectorEvent& event) {
  if (out_ == nullptr) return;
  *out_ << toJson(event) << '\n' << std::flush;
}

}  // namespace tovani
