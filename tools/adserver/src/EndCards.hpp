#pragma once
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "tovani/adserver/AdServer.hpp"

namespace tovani::adserver {

// The end-card pages the production host serves under /endcard/ios/, one per card type.
// Each page shows the form fields it was posted and carries every kind of link the SDK's
// page bridge tells apart: its own "tovaniksdkcall" commands, tel: and geo: links, an
// outbound https link and a link back to the production host's root.
std::optional<std::string> renderEndCardPage(std::string_view page, std::string_view formBody,
                                             const HostNames& hosts);

// The production host's root page, reached from the end card's in-host link.
std::string renderHomePage(const HostNames& hosts);

// application/x-www-form-urlencoded fields; a repeated name keeps its first value.
std::map<std::string, std::string> parseForm(std::string_view body);

}  // namespace tovani::adserver
