#pragma once
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace tovani::adserver {

// True for a plain file name (letters, digits, ".", "_", "-"; no path, not hidden), the
// only kind of name a request may use to pick a fixture.
bool isPlainFileName(std::string_view name);

// The bytes of `dir`/`name`, or nothing when the name is not plain or the file is missing.
std::optional<std::string> readFixture(const std::filesystem::path& dir, std::string_view name);

// Play length of an MP4 file from its movie header, or nothing when it has none.
std::optional<double> mp4DurationSeconds(std::string_view bytes);

}  // namespace tovani::adserver
