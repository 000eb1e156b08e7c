#pragma once
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tovani::adserver {

// Device identity on the ad list. The path segment after the media code is the slot code
// with the device id glued to it: nothing on a device's first request, "$" and the id
// after a restart, and the bare id for the rest of the run that first received it.
class DeviceIds {
 public:
  explicit DeviceIds(std::optional<std::string> fixed = std::nullopt) : fixed_(std::move(fixed)) {}

  // The uuid to put in the answer for a request whose slot segment is `slotSegment`: the
  // id the request carries, or a newly issued one when it carries none.
  std::string answerFor(std::string_view slotSegment);
  std::vector<std::string> issued() const;

 private:
  std::string newId();

  mutable std::mutex mutex_;
  std::optional<std::string> fixed_;
  std::vector<std::string> issued_;
};

}  // namespace tovani::adserver
