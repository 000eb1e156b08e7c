#pragma once
#include <cstdint>
#include "tovani/Export.hpp"

namespace tovani {

// Implemented by the host. The SDK holds it weakly: a destroyed delegate receives nothing.
class TOVANI_EXPORT TovaniDelegate {
 public:
  virtual ~TovaniDelegate() = default;
  // Called on the main thread whenever an attempt ends or fails; see ResultCode.hpp.
  virtual void tovaniCallBack(int32_t result) = 0;
};

}  // namespace tovani
