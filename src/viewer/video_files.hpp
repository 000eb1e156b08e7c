#pragma once
#include <optional>
#include <string>
#include <string_view>

// Cached videos are named by the server (the last path component of a source URL) and live
// in the app's documents folder. Every place that turns such a name into a path goes
// through here, so that a name can only ever address a plain file of its own in that
// folder, never the store, a temporary download or anything outside.
namespace tovani {

// The SQLite side files that may sit beside the store file.
inline constexpr std::string_view kStoreSideFileSuffixes[] = {"-journal", "-wal", "-shm"};

// Why a name is refused, or none when it may be used. `storeFileName` is the store's
// file name, which a video must never take (nor one of its side files).
std::optional<std::string> videoFileNameProblem(std::string_view name,
                                                std::string_view storeFileName);

// documents/name when the name may be used, none otherwise.
std::optional<std::string> videoFilePath(const std::string& documents, std::string_view name,
                                         std::string_view storeFileName);

// True for an absolute http or https URL with a host: the only addresses fetched as videos.
bool isDownloadableUrl(std::string_view text);

}  // namespace tovani
