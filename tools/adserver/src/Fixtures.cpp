#include "Fixtures.hpp"

#include <cstdint>
#include <fstream>
#include <iterator>

namespace tovani::adserver {
namespace {

std::uint64_t bigEndian(std::string_view bytes, std::size_t at, std::size_t width) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < width; ++i) {
    value = (value << 8) | static_cast<unsigned char>(bytes[at + i]);
  }
  return value;
}

// The payload of the first box of `type` directly inside `bytes`.
std::optional<std::string_view> findBox(std::string_view bytes, std::string_view type) {
  std::size_t at = 0;
  while (at + 8 <= bytes.size()) {
    std::uint64_t size = bigEndian(bytes, at, 4);
    std::size_t header = 8;
    if (size == 1) {
      if (at + 16 > bytes.size()) return std::nullopt;
      size = bigEndian(bytes, at + 8, 8);
      header = 16;
    } else if (size == 0) {
      size = bytes.size() - at;  // the box runs to the end of the file
    }
    if (size < header || size > bytes.size() - at) return std::nullopt;
    if (bytes.substr(at + 4, 4) == type) return bytes.substr(at + header, size - header);
    at += size;
  }
  return std::nullopt;
}

}  // namespace

bool isPlainFileName(std::string_view name) {
  if (name.empty() || name.size() > 128 || name.front() == '.') return false;
  for (const char c : name) {
    const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '.' || c == '_' || c == '-';
    if (!ok) return false;
  }
  return true;
}

std::optional<std::string> readFixture(const std::filesystem::path& dir, std::string_view name) {
  if (!isPlainFileName(name)) return std::nullopt;
  std::ifstream in(dir / name, std::ios::binary);
  if (!in) return std::nullopt;
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

std::optional<double> mp4DurationSeconds(std::string_view bytes) {
  const auto moov = findBox(bytes, "moov");
  if (!moov) return std::nullopt;
  const auto mvhd = findBox(*moov, "mvhd");
  if (!mvhd || mvhd->empty()) return std::nullopt;
  const bool wide = (*mvhd)[0] == 1;  // version 1 uses 64-bit times
  const std::size_t timescaleAt = wide ? 20 : 12;
  const std::size_t durationWidth = wide ? 8 : 4;
  if (mvhd->size() < timescaleAt + 4 + durationWidth) return std::nullopt;
  const auto timescale = bigEndian(*mvhd, timescaleAt, 4);
  const auto duration = bigEndian(*mvhd, timescaleAt + 4, durationWidth);
  if (timescale == 0) return std::nullopt;
  return static_cast<double>(duration) / static_cast<double>(timescale);
}

}  // namespace tovani::adserver
