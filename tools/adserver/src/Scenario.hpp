#pragma once
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "tovani/adserver/AdServer.hpp"

namespace tovani::adserver {

// One <Ad> of the VAST answer, every value already final.
struct VastAd {
  std::string id;
  std::string mediaUrl;
  std::string mimetype;
  int width = 0;
  int height = 0;
  double duration = 0;
  // Element name → text, in document order; an element set to null in the scenario is
  // left out of the document altogether.
  std::vector<std::pair<std::string, std::string>> extensions;
  std::vector<std::pair<std::string, std::string>> tracking;  // event → URL
};

// The inventory the server answers with, resolved from a scenario file: defaults filled
// in, "{base}", "{host}", "{test_host}" and "{cdn}" replaced, fixtures checked.
struct Scenario {
  std::string name;
  std::string description;
  std::optional<std::string> uuid;                   // fixed device id to issue; random when absent
  bool rotate = false;                               // each VAST answer starts one ad further on
  nlohmann::json adverts = nlohmann::json::array();  // exactly as the ad list sends them
  std::vector<VastAd> vast;
  std::optional<std::string> vastDocument;           // served verbatim instead of `vast`
  std::optional<std::string> adlistDocument;         // served verbatim instead of the list
  std::optional<std::string> endcardDocument;        // served verbatim for every end-card page
  nlohmann::json faults = nlohmann::json::object();  // initial fault switches
};

// Throws std::runtime_error naming the problem (bad JSON, unknown key, missing fixture).
Scenario loadScenario(const std::string& text, const HostNames& hosts,
                      const std::filesystem::path& fixturesDir);

// What GET /__scenario shows: the resolved scenario.
nlohmann::json scenarioToJson(const Scenario& scenario);

// Texts built into the program from the source tree at build time.
std::string_view defaultScenarioText();
std::string_view storeSchemaText();

}  // namespace tovani::adserver
