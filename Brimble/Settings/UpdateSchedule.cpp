#include "Brimble/Settings/UpdateSchedule.h"

#include <fstream>
#include <sstream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/UserFolders.h"

namespace brimble {

namespace fs = std::filesystem;

namespace {

// The file's contents; an empty object when it is missing or unreadable.
nlohmann::json readRecord(const fs::path& file) {
  std::error_code error;
  if (fs::file_size(file, error) > 64 * 1024 || error) {
    return nlohmann::json::object();
  }
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  try {
    nlohmann::json record = nlohmann::json::parse(text.str());
    if (record.is_object()) {
      return record;
    }
  } catch (const nlohmann::json::exception&) {
  }
  logLine(fmt::format("Brimble: ignoring the unreadable {}; the next start checks for updates",
                      file.string()));
  return nlohmann::json::object();
}

void writeRecord(const fs::path& file, const nlohmann::json& record) noexcept {
  try {
    userFolders::createPrivate(file.parent_path());
    writeFileAtomically(file, record.dump() + "\n", 0600);
  } catch (const std::exception& error) {
    logLine(fmt::format("Brimble: cannot remember the update check: {}", error.what()));
  }
}

}  // namespace

fs::path UpdateSchedule::defaultPath() {
  return userFolders::state() / "update-check.json";
}

bool UpdateSchedule::due(std::chrono::system_clock::time_point now) const {
  const nlohmann::json record = readRecord(file_);
  const auto last = record.find("lastCheck");
  if (last == record.end() || !last->is_number_integer()) {
    return true;
  }
  const auto since =
      now - std::chrono::system_clock::time_point(std::chrono::seconds(last->get<std::int64_t>()));
  return since >= kInterval || since <= -kInterval;
}

void UpdateSchedule::checked(std::chrono::system_clock::time_point now) const noexcept {
  nlohmann::json record = readRecord(file_);
  record["lastCheck"] =
      std::chrono::duration_cast<std::chrono::seconds>(now.time_since_epoch()).count();
  writeRecord(file_, record);
}

bool UpdateSchedule::firstNoticeOf(const std::string& version) const noexcept {
  nlohmann::json record = readRecord(file_);
  const auto announced = record.find("announced");
  if (announced != record.end() && announced->is_string() && *announced == version) {
    return false;
  }
  record["announced"] = version;
  writeRecord(file_, record);
  return true;
}

}  // namespace brimble
