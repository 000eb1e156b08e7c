#pragma once
// Link discovery for the headless web view. Private to the Linux adapters.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tovani::linux::detail {

// `reference` made absolute against `base`: kept as written when it has a scheme of its own
// (any scheme: the navigation decider sorts them out), none when it cannot be resolved.
std::optional<std::string> resolveUrl(const std::string& base, const std::string& reference);

// The href values of `html` (quoted or not, entities decoded), resolved against `base`.
// When `refresh` is given it receives the target of the page's first meta refresh, which a
// browser follows on its own.
std::vector<std::string> extractLinks(std::string_view html, const std::string& base,
                                      std::optional<std::string>* refresh = nullptr);

}  // namespace tovani::linux::detail
