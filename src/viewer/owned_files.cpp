#include "viewer/owned_files.hpp"

#include <filesystem>
#include <fstream>

#include "store/Statements.hpp"

namespace tovani {

namespace {

namespace fs = std::filesystem;

constexpr const char* kManifestScratchSuffix = ".new";

}  // namespace

OwnedFiles::OwnedFiles(std::string documents) : documents_(std::move(documents)) {}

std::set<std::string> OwnedFiles::names() const {
  std::set<std::string> out;
  std::ifstream in(fs::path(documents_) / kOwnedFilesManifest, std::ios::binary);
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty()) out.insert(line);
  }
  return out;
}

bool OwnedFiles::add(const std::string& name) {
  auto all = names();
  if (!all.insert(name).second) return true;
  return write(all);
}

bool OwnedFiles::remove(const std::string& name) {
  auto all = names();
  if (all.erase(name) == 0) return true;
  return write(all);
}

bool OwnedFiles::forgetMissing() {
  auto all = names();
  const size_t before = all.size();
  std::erase_if(all, [&](const std::string& name) {
    std::error_code ec;
    return !fs::exists(fs::symlink_status(fs::path(documents_) / name, ec));
  });
  return all.size() == before || write(all);
}

bool OwnedFiles::write(const std::set<std::string>& names) const {
  const fs::path target = fs::path(documents_) / kOwnedFilesManifest;
  const fs::path scratch = target.string() + kManifestScratchSuffix;
  std::error_code ec;
  {
    std::ofstream out(scratch, std::ios::binary | std::ios::trunc);
    for (const auto& name : names) out << name << '\n';
    out.flush();
    // A full disk or a size limit shows here; the old manifest stays as it was.
    if (!out) {
      out.close();
      fs::remove(scratch, ec);
      return false;
    }
  }
  fs::rename(scratch, target, ec);
  if (ec) {
    fs::remove(scratch, ec);
    return false;
  }
  return true;
}

std::set<std::string> ownedVideoNames(const std::string& documents, tovaniSQL* store) {
  auto names = OwnedFiles(documents).names();
  if (store == nullptr) return names;
  for (const auto& row : *store->loadDataFromDB(sql::kSelectCachedVideoNames)) {
    if (!row.empty()) names.insert(row.front());
  }
  return names;
}

}  // namespace tovani
