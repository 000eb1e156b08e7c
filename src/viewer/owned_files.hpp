#pragma once
#include <set>
#include <string>

#include "store/tovaniSQL.hpp"

// The documents folder belongs to the host; the SDK shares it. Every video the SDK moved
// into place is named in a manifest of its own there, and the SDK replaces or removes only
// files named in it. A plain file, rewritten whole and renamed into place, works on every
// file system and survives backups and copies, which extended attributes do not.
namespace tovani {

// Hidden, so that no video name (which never starts with ".") can take it.
inline constexpr const char* kOwnedFilesManifest = ".tovani-owned-files";

class OwnedFiles {
 public:
  explicit OwnedFiles(std::string documents);

  // The names the manifest holds; an absent or unreadable manifest holds none.
  std::set<std::string> names() const;
  bool contains(const std::string& name) const { return names().count(name) > 0; }
  // Rewrites the manifest (a new file renamed over the old one). False when it could not be
  // written; the manifest is then unchanged.
  bool add(const std::string& name);
  bool remove(const std::string& name);
  // Drops the names whose file is gone (removed by someone else), so that a file the host
  // later creates under such a name is never taken for the SDK's.
  bool forgetMissing();

 private:
  bool write(const std::set<std::string>& names) const;
  std::string documents_;
};

// The files the SDK may replace or remove: those the manifest names and (for installs from
// before the manifest) the videos a store record marks as cached. `store` may be null.
std::set<std::string> ownedVideoNames(const std::string& documents, tovaniSQL* store);

}  // namespace tovani
