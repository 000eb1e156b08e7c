#pragma once
#include <fstream>
#include <memory>
#include <ostream>
#include <string>

#include "tovani/Export.hpp"
#include "tovani/TovaniInspector.hpp"

namespace tovani {

// Writes every event as one JSON object on its own line, flushed at once, so that a
// showing that never ends still leaves its record behind. Empty fields are left out.
class TOVANI_EXPORT JsonLinesInspector : public TovaniInspector {
 public:
  // Appends to the file at `path` (created when missing).
  explicit JsonLinesInspector(const std::string& path);
  // Writes to a stream the caller keeps alive for as long as this inspector.
  explicit JsonLinesInspector(std::ostream& out);

  void onEvent(const InspectorEvent& event) override;
  bool good() const { return out_ != nullptr && out_->good(); }

  // The line written for `event`, without the line end.
  static std::string toJson(const InspectorEvent& event);

 private:
  std::unique_ptr<std::ofstream> file_;
  std::ostream* out_ = nullptr;
};

}  // namespace tovani
