#pragma once
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "Scenario.hpp"
#include "tovani/adserver/AdServer.hpp"

namespace tovani::adserver {

// The VAST answer: every ad of `ads`, starting at `first` and wrapping around, so that a
// rotating scenario leads with a different ad each time.
std::string renderVast(const std::vector<VastAd>& ads, std::size_t first);

// The ad list: {"uuid": ..., "adverts": [...]}.
std::string renderAdList(const nlohmann::json& adverts, const std::string& uuid);

// A body of the right kind that no parser accepts, made from the real `body`.
std::string malformedJson(std::string_view body);
std::string malformedXml(std::string_view body);

}  // namespace tovani::adserver
