#include "BrimbleCore/Diagnostics/UsageStatistics.h"

#include <cerrno>
#include <chrono>
#include <fstream>
#include <limits>
#include <sstream>
#include <system_error>
#include <variant>

#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <sys/file.h>

#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/UniqueFd.h"
#include "BrimbleCore/Support/UserFolders.h"

namespace brimble {

namespace fs = std::filesystem;

namespace {

constexpr int kFileVersion = 1;
// Counts take a few hundred bytes; anything far larger was not written by us.
constexpr std::uintmax_t kMaxFileBytes = 1 << 20;

std::string today() {
  return fmt::format("{:%Y-%m-%d}",
                     std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
}

fs::path offSwitch(const fs::path& folder) {
  return folder / "statistics.off";
}

// Why a file could not be read as counts.
struct Unreadable {
  std::string reason;
};

std::uint64_t readCount(const nlohmann::json& document, const char* key) {
  const auto found = document.find(key);
  if (found == document.end()) {
    return 0;
  }
  if (!found->is_number_unsigned()) {
    throw std::runtime_error(fmt::format("\"{}\" is not a count", key));
  }
  return found->get<std::uint64_t>();
}

std::map<std::string, std::uint64_t> readTable(const nlohmann::json& document, const char* key) {
  std::map<std::string, std::uint64_t> table;
  const auto found = document.find(key);
  if (found == document.end()) {
    return table;
  }
  if (!found->is_object() || found->size() > UsageStatistics::kMaxNamedKinds + 1) {
    throw std::runtime_error(fmt::format("\"{}\" is not a table of counts", key));
  }
  for (const auto& [name, count] : found->items()) {
    if (!count.is_number_unsigned()) {
      throw std::runtime_error(fmt::format("\"{}\" in \"{}\" is not a count", name, key));
    }
    table[name] = count.get<std::uint64_t>();
  }
  return table;
}

// The counts in `file`: empty ones when it does not exist.
std::variant<UsageCounts, Unreadable> readCounts(const fs::path& file) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(file, error);
  if (error) {
    if (error == std::errc::no_such_file_or_directory) {
      return UsageCounts{};
    }
    return Unreadable{error.message()};
  }
  if (size > kMaxFileBytes) {
    return Unreadable{fmt::format("{} bytes, far more than counts take", size)};
  }
  std::ifstream stream(file, std::ios::binary);
  if (!stream) {
    return Unreadable{"it cannot be opened"};
  }
  std::ostringstream text;
  text << stream.rdbuf();
  try {
    const nlohmann::json document = nlohmann::json::parse(text.str());
    if (!document.is_object()) {
      return Unreadable{"it is not a JSON object"};
    }
    if (document.value("version", 0) != kFileVersion) {
      return Unreadable{"it is not version 1 of the counts"};
    }
    UsageCounts counts;
    if (!document.contains("since") || !document["since"].is_string()) {
      return Unreadable{"it does not say since when it counts"};
    }
    counts.since = document["since"].get<std::string>();
    counts.runs = readCount(document, "runs");
    counts.recordings = readCount(document, "recordings");
    counts.renders = readCount(document, "renders");
    counts.formats = readTable(document, "formats");
    counts.failures = readTable(document, "failures");
    return counts;
  } catch (const std::exception& problem) {
    return Unreadable{problem.what()};
  }
}

nlohmann::json toJSON(const UsageCounts& counts) {
  return {{"version", kFileVersion},    {"since", counts.since},
          {"runs", counts.runs},        {"recordings", counts.recordings},
          {"renders", counts.renders},  {"formats", counts.formats},
          {"failures", counts.failures}};
}

void addTo(std::uint64_t& count, std::uint64_t amount) {
  count = amount > std::numeric_limits<std::uint64_t>::max() - count
              ? std::numeric_limits<std::uint64_t>::max()
              : count + amount;
}

void addNamed(std::map<std::string, std::uint64_t>& table, const std::string& name) {
  const bool known = table.contains(name);
  addTo(table[known || table.size() < UsageStatistics::kMaxNamedKinds ? name : "other"], 1);
}

// Holds the exclusive lock that makes a read and the rename after it one step for every process
// that counts; the lock goes with the descriptor, also when the process dies.
class CountsLock {
 public:
  explicit CountsLock(const fs::path& folder)
      : fd_(::open((folder / "statistics.json.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    if (!fd_) {
      throw std::system_error(errno, std::generic_category(),
                              "open " + (folder / "statistics.json.lock").string());
    }
    while (::flock(fd_.get(), LOCK_EX) != 0) {
      if (errno != EINTR) {
        throw std::system_error(errno, std::generic_category(), "lock the usage statistics");
      }
    }
  }

 private:
  UniqueFd fd_;
};

// Reads the counts under the lock, setting an unreadable file aside so that counting can go on.
UsageCounts readForChange(const fs::path& file) {
  auto read = readCounts(file);
  if (auto* counts = std::get_if<UsageCounts>(&read)) {
    return *counts;
  }
  fs::path aside = file;
  aside += ".corrupt";
  std::error_code error;
  fs::rename(file, aside, error);
  logLine(
      fmt::format("brimble: the usage statistics in {} could not be read ({}); {}, and counting "
                  "starts again",
                  file.string(), std::get<Unreadable>(read).reason,
                  error ? "they are left as they are" : "set aside as " + aside.string()));
  return UsageCounts{};
}

void write(const fs::path& file, const UsageCounts& counts) {
  writeFileAtomically(file, toJSON(counts).dump(2) + "\n", 0600);
}

}  // namespace

UsageStatistics UsageStatistics::forUser() {
  return UsageStatistics(userFolders::state());
}

bool UsageStatistics::enabled() const {
  std::error_code error;
  return fs::symlink_status(offSwitch(folder_), error).type() == fs::file_type::not_found;
}

void UsageStatistics::setEnabled(bool on) const {
  if (on) {
    std::error_code error;
    fs::remove(offSwitch(folder_), error);
    if (error) {
      throw std::system_error(error, "remove " + offSwitch(folder_).string());
    }
    return;
  }
  userFolders::createPrivate(folder_);
  writeFileAtomically(offSwitch(folder_),
                      "Brimble counts nothing while this file exists (brimble stats --on).\n",
                      0644);
}

UsageCounts UsageStatistics::counts() const {
  auto read = readCounts(file());
  if (auto* counts = std::get_if<UsageCounts>(&read)) {
    return *counts;
  }
  return {};
}

void UsageStatistics::record(const UsageEvent& event) const noexcept {
  if (event.empty()) {
    return;
  }
  try {
    if (!enabled()) {
      return;
    }
    userFolders::createPrivate(folder_);
    const CountsLock lock(folder_);
    // Switched off while this process waited for the lock: the switch wins.
    if (!enabled()) {
      return;
    }
    UsageCounts counts = readForChange(file());
    if (counts.since.empty()) {
      counts.since = today();
    }
    addTo(counts.runs, event.runs);
    addTo(counts.recordings, event.recordings);
    addTo(counts.renders, event.renders.size());
    for (const std::string& format : event.renders) {
      addNamed(counts.formats, format);
    }
    if (event.failure) {
      addNamed(counts.failures, *event.failure);
    }
    write(file(), counts);
  } catch (const std::exception& error) {
    logLine(fmt::format("brimble: could not count this in the usage statistics: {}", error.what()));
  }
}

void UsageStatistics::reset() const {
  std::error_code error;
  if (fs::symlink_status(file(), error).type() == fs::file_type::not_found) {
    return;
  }
  const CountsLock lock(folder_);
  // Removed rather than zeroed, so that a reset while counting is off writes nothing either.
  fs::remove(file(), error);
  if (error) {
    throw std::system_error(error, "remove " + file().string());
  }
}

std::string usageCountsJSON(const UsageCounts& counts) {
  nlohmann::json document = toJSON(counts);
  document.erase("version");
  return document.dump(2);
}

}  // namespace brimble
