#pragma once
#include <string_view>

namespace tovani {

// A cached video lives in the documents folder under the last path component of its URL.
// That component comes from the server and is decoded, so it may read "..", hold a "/" or
// be empty; only a plain name may be joined to the documents folder. Anything else counts
// as a video that is not cached.
inline bool isPlainVideoFileName(std::string_view name) {
  if (name.empty() || name == "." || name == "..") return false;
  return name.find_first_of(std::string_view("/\\\0", 3)) == std::string_view::npos;
}

}  // namespace tovani
