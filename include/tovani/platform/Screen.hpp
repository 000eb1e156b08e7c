#pragma once
#include <optional>
#include <string>

#include "tovani/Export.hpp"
#include "tovani/View.hpp"

namespace tovani {

enum class InterfaceIdiom { Unspecified = -1, Phone = 0, Pad = 1, TV = 2, CarPlay = 3 };

// Values as the device reports them: 0 unknown, 1 portrait, 2 upside down,
// 3 landscape left, 4 landscape right, 5 face up, 6 face down.
enum class DeviceOrientation {
  Unknown = 0,
  Portrait = 1,
  PortraitUpsideDown = 2,
  LandscapeLeft = 3,
  LandscapeRight = 4,
  FaceUp = 5,
  FaceDown = 6
};

class TOVANI_EXPORT Screen {
 public:
  virtual ~Screen() = default;
  virtual Size boundsSize() const = 0;
  virtual std::optional<double> scale() const = 0;  // none when it cannot be reported
  virtual std::optional<InterfaceIdiom> interfaceIdiom() const = 0;
  virtual DeviceOrientation deviceOrientation() const = 0;
  virtual std::string deviceModelName() const = 0;  // "iPhone", "iPad", ...
};

}  // namespace tovani
