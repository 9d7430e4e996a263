#include "BrimbleCore/Support/CaptureHistory.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
#include <system_error>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/UserFolders.h"

namespace brimble {

namespace fs = std::filesystem;

fs::path CaptureHistory::defaultPath() {
  if (const char* file = std::getenv("BRIMBLE_HISTORY_FILE"); file != nullptr && *file != '\0') {
    return file;
  }
  return userFolders::data() / "history.json";
}

namespace {

// What one read of the index found. Entries that cannot be read (no path) are kept as they were
// and written back after the readable ones, so saving the index never loses what it held.
struct IndexContents {
  std::vector<CaptureHistory::Entry> entries;
  std::vector<nlohmann::json> unreadable;
  int repaired = 0;
  // The file exists but is not an index at all: it is kept as a backup before being replaced.
  bool damaged = false;
};

std::optional<std::uintmax_t> sizeFromText(const std::string& text) {
  if (text.empty() || text.size() > 19 ||
      !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    return std::nullopt;
  }
  return std::stoull(text);
}

// Reads one item, repairing what can be guessed: a size written as text, or taken from the file
// itself; a missing name from the path. Returns no value for an item without a path.
std::optional<CaptureHistory::Entry> readEntry(const nlohmann::json& item, bool& repaired) {
  if (!item.is_object() || !item.contains("path") || !item["path"].is_string() ||
      item["path"].get<std::string>().empty()) {
    return std::nullopt;
  }
  CaptureHistory::Entry entry;
  entry.path = item["path"].get<std::string>();
  const auto filename = item.find("filename");
  if (filename != item.end() && filename->is_string()) {
    entry.filename = filename->get<std::string>();
  } else {
    entry.filename = entry.path.filename().string();
    repaired = true;
  }
  const auto createdAt = item.find("createdAt");
  if (createdAt != item.end() && createdAt->is_string()) {
    entry.createdAt = createdAt->get<std::string>();
  } else {
    repaired = true;
  }
  const auto fileSize = item.find("fileSize");
  if (fileSize != item.end() && fileSize->is_number_unsigned()) {
    entry.fileSize = fileSize->get<std::uintmax_t>();
    return entry;
  }
  repaired = true;
  const auto fromText = fileSize != item.end() && fileSize->is_string()
                            ? sizeFromText(fileSize->get<std::string>())
                            : std::nullopt;
  if (fromText) {
    entry.fileSize = *fromText;
  } else {
    std::error_code error;
    const auto onDisk = fs::file_size(entry.path, error);
    entry.fileSize = error ? 0 : onDisk;
  }
  return entry;
}

IndexContents readIndex(const fs::path& file) {
  IndexContents contents;
  std::ifstream stream(file, std::ios::binary);
  if (!stream) {
    return contents;
  }
  std::ostringstream text;
  text << stream.rdbuf();
  nlohmann::json document;
  try {
    document = nlohmann::json::parse(text.str());
  } catch (const nlohmann::json::exception& error) {
    logLine(fmt::format("BrimbleCore: ignoring the unreadable library index {} ({})", file.string(),
                        error.what()));
    contents.damaged = true;
    return contents;
  }
  if (!document.is_object() || !document.contains("entries") || !document["entries"].is_array()) {
    logLine(fmt::format("BrimbleCore: ignoring the unreadable library index {} (no entries list)",
                        file.string()));
    contents.damaged = true;
    return contents;
  }
  for (const nlohmann::json& item : document["entries"]) {
    bool repaired = false;
    if (auto entry = readEntry(item, repaired)) {
      contents.entries.push_back(std::move(*entry));
      contents.repaired += repaired ? 1 : 0;
    } else {
      contents.unreadable.push_back(item);
    }
  }
  if (contents.repaired > 0 || !contents.unreadable.empty()) {
    logLine(fmt::format(
        "BrimbleCore: the library index {} has {} entr{} with a bad field (repaired) and {} "
        "without a path (kept, not shown)",
        file.string(), contents.repaired, contents.repaired == 1 ? "y" : "ies",
        contents.unreadable.size()));
  }
  return contents;
}

// A free name beside `file` for a copy of it: "history.json.bak", then "history.json.bak2", ...
std::optional<fs::path> backupPathFor(const fs::path& file) {
  for (int attempt = 1; attempt <= 1000; ++attempt) {
    fs::path candidate = file;
    candidate += attempt == 1 ? ".bak" : ".bak" + std::to_string(attempt);
    std::error_code error;
    if (fs::symlink_status(candidate, error).type() == fs::file_type::not_found) {
      return candidate;
    }
  }
  return std::nullopt;
}

}  // namespace

std::vector<CaptureHistory::Entry> CaptureHistory::entries() const {
  return readIndex(file_).entries;
}

CaptureHistory::Entry CaptureHistory::add(const fs::path& file) const {
  Entry entry;
  entry.path = fs::absolute(file);
  entry.filename = file.filename().string();
  entry.createdAt =
      fmt::format("{:%Y-%m-%dT%H:%M:%SZ}",
                  std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
  entry.fileSize = fs::file_size(file);
  update([&](std::vector<Entry>& list) {
    const std::size_t readCount = list.size();
    std::erase_if(list, [&](const Entry& old) { return old.path == entry.path; });
    list.insert(list.begin(), entry);
    // The oldest entry makes room for the newest, but an index that already holds more (written
    // by hand or by another version) is never cut down by a capture.
    list.resize(std::min(list.size(), std::max(kMaxEntries, readCount)));
  });
  return entry;
}

void CaptureHistory::remove(const fs::path& path) const {
  update([&](std::vector<Entry>& entries) {
    std::erase_if(entries, [&](const Entry& old) { return old.path == path; });
  });
}

void CaptureHistory::update(const std::function<void(std::vector<Entry>&)>& change) const {
  IndexContents contents = readIndex(file_);
  std::vector<Entry> list = contents.entries;
  change(list);
  if (list == contents.entries && contents.repaired == 0) {
    return;
  }
  if (contents.damaged || contents.repaired > 0) {
    // What the index said before a repair is the user's: keep it where they can get it back.
    const auto backup = backupPathFor(file_);
    if (!backup) {
      throw std::system_error(std::make_error_code(std::errc::file_exists),
                              "could not find a free backup name beside " + file_.string());
    }
    fs::copy_file(file_, *backup);
    logLine(fmt::format("BrimbleCore: kept the library index as it was in {}", backup->string()));
  }
  nlohmann::json items = nlohmann::json::array();
  for (const Entry& entry : list) {
    items.push_back({{"path", entry.path.string()},
                     {"filename", entry.filename},
                     {"createdAt", entry.createdAt},
                     {"fileSize", entry.fileSize}});
  }
  for (nlohmann::json& item : contents.unreadable) {
    items.push_back(std::move(item));
  }
  const nlohmann::json document = {{"version", kVersion}, {"entries", std::move(items)}};
  fs::create_directories(file_.parent_path());
  writeFileAtomically(file_, document.dump(2) + "\n", 0644);
}

}  // namespace brimble
