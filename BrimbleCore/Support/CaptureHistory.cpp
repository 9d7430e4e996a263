#include "BrimbleCore/Support/CaptureHistory.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble {

namespace fs = std::filesystem;

fs::path CaptureHistory::defaultPath() {
  if (const char* file = std::getenv("BRIMBLE_HISTORY_FILE"); file != nullptr && *file != '\0') {
    return file;
  }
  if (const char* data = std::getenv("XDG_DATA_HOME"); data != nullptr && *data == '/') {
    return fs::path(data) / "brimble" / "history.json";
  }
  const char* home = std::getenv("HOME");
  return fs::path(home != nullptr ? home : "") / ".local/share/brimble/history.json";
}

std::vector<CaptureHistory::Entry> CaptureHistory::entries() const {
  std::ifstream stream(file_, std::ios::binary);
  if (!stream) {
    return {};
  }
  std::ostringstream text;
  text << stream.rdbuf();
  std::vector<Entry> result;
  try {
    const nlohmann::json document = nlohmann::json::parse(text.str());
    for (const nlohmann::json& item : document.at("entries")) {
      if (!item.is_object() || !item.contains("path") || !item["path"].is_string()) {
        continue;
      }
      Entry entry;
      entry.path = item["path"].get<std::string>();
      entry.filename = item.value("filename", entry.path.filename().string());
      entry.createdAt = item.value("createdAt", std::string());
      entry.fileSize = item.value("fileSize", std::uintmax_t{0});
      result.push_back(std::move(entry));
    }
  } catch (const nlohmann::json::exception& error) {
    logLine(fmt::format("BrimbleCore: ignoring the unreadable library index {} ({})",
                        file_.string(), error.what()));
    return {};
  }
  return result;
}

CaptureHistory::Entry CaptureHistory::add(const fs::path& file) const {
  Entry entry;
  entry.path = fs::absolute(file);
  entry.filename = file.filename().string();
  entry.createdAt =
      fmt::format("{:%Y-%m-%dT%H:%M:%SZ}",
                  std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
  entry.fileSize = fs::file_size(file);
  std::vector<Entry> list = entries();
  std::erase_if(list, [&](const Entry& old) { return old.path == entry.path; });
  list.insert(list.begin(), entry);
  if (list.size() > kMaxEntries) {
    list.resize(kMaxEntries);
  }
  write(list);
  return entry;
}

void CaptureHistory::remove(const fs::path& path) const {
  std::vector<Entry> list = entries();
  if (std::erase_if(list, [&](const Entry& old) { return old.path == path; }) > 0) {
    write(list);
  }
}

void CaptureHistory::write(const std::vector<Entry>& list) const {
  nlohmann::json items = nlohmann::json::array();
  for (const Entry& entry : list) {
    items.push_back({{"path", entry.path.string()},
                     {"filename", entry.filename},
                     {"createdAt", entry.createdAt},
                     {"fileSize", entry.fileSize}});
  }
  const nlohmann::json document = {{"version", kVersion}, {"entries", std::move(items)}};
  fs::create_directories(file_.parent_path());
  writeFileAtomically(file_, document.dump(2) + "\n", 0644);
}

}  // namespace brimble
