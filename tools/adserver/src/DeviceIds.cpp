#include "DeviceIds.hpp"

#include <cstdio>
#include <random>

namespace tovani::adserver {

std::string DeviceIds::answerFor(std::string_view slotSegment) {
  std::lock_guard lock(mutex_);
  const auto dollar = slotSegment.find('$');
  if (dollar != std::string_view::npos && dollar + 1 < slotSegment.size()) {
    return std::string(slotSegment.substr(dollar + 1));
  }
  // A bare id can only be told from the slot code by knowing the ids handed out.
  for (const auto& id : issued_) {
    if (slotSegment.size() > id.size() && slotSegment.ends_with(id)) return id;
  }
  std::string id = fixed_ ? *fixed_ : newId();
  issued_.push_back(id);
  return id;
}

std::vector<std::string> DeviceIds::issued() const {
  std::lock_guard lock(mutex_);
  return issued_;
}

// A random (version 4) UUID in upper case, the form device ids usually take. Its
// characters are all safe in a URL path and inside a quoted SQL literal.
std::string DeviceIds::newId() {
  static std::mt19937_64 random{std::random_device{}()};
  const auto high = random();
  const auto low = random();
  char text[40];
  std::snprintf(text, sizeof text, "%08llX-%04llX-4%03llX-%04llX-%012llX",
                static_cast<unsigned long long>(high >> 32),
                static_cast<unsigned long long>((high >> 16) & 0xFFFF),
                static_cast<unsigned long long>(high & 0xFFF),
                static_cast<unsigned long long>(0x8000 | (low >> 50 & 0x3FFF)),
                static_cast<unsigned long long>(low & 0xFFFFFFFFFFFFULL));
  return text;
}

}  // namespace tovani::adserver
