#pragma once
#include <filesystem>
#include <string>
#include <string_view>

namespace tovani::adserver {

// Builds a fresh, empty ad store from `schema` in a temporary file inside `workDir` and
// returns the file's bytes; the temporary file is removed again. Every download thus
// gets a store with no rows, as a first install would. Throws std::runtime_error.
std::string buildStoreFile(const std::filesystem::path& workDir, std::string_view schema);

}  // namespace tovani::adserver
