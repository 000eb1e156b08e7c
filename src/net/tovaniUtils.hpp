#pragma once
#include <optional>
#include <string>

#include "tovani/Platform.hpp"

namespace tovani {

// Every network access of the SDK goes through these: a data request and a file download,
// both with a 3-second idle time-out, both completing later on the main queue (guarded).
class tovaniUtils {
 public:
  static void requestNetwork(const Platform& platform, const std::string& url,
                             DataCompletion completion);
  static void requestDownload(const Platform& platform, const std::string& url,
                              DownloadCompletion completion);
  // "&device=%@" with the URL-encoded hardware model, or "" without one.
  static std::string queryParameterForDeviceName(const Device& device);
  // "&osv=%@" with the URL-encoded OS version, or "" without one.
  static std::string queryParameterForDeviceVersion(const Device& device);
  // The device's documents folder with a leading "~" expanded; none unless absolute.
  static std::optional<std::string> documentsFolder(const Device& device);
};

}  // namespace tovani
