#include "BrimbleCore/Diagnostics/CrashReports.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <utility>

#include <fmt/format.h>

#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/UserFolders.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kFirstLine = "Brimble crash report";
constexpr std::string_view kSeenMarker = ".seen";
constexpr std::size_t kSignatureFrames = 3;
// A report is a few tens of kilobytes; anything far larger is not one of ours.
constexpr std::uintmax_t kMaxReportBytes = 1024 * 1024;

std::optional<std::chrono::system_clock::time_point> parseTime(std::string_view text) {
  int year = 0;
  unsigned month = 0;
  unsigned day = 0;
  unsigned hour = 0;
  unsigned minute = 0;
  unsigned second = 0;
  const std::string copy(text);
  if (std::sscanf(copy.c_str(), "%4d-%2u-%2uT%2u:%2u:%2uZ", &year, &month, &day, &hour, &minute,
                  &second) != 6) {
    return std::nullopt;
  }
  const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(month),
                                         std::chrono::day(day)};
  if (!date.ok() || hour > 23 || minute > 59 || second > 60) {
    return std::nullopt;
  }
  return std::chrono::sys_days(date) + std::chrono::hours(hour) + std::chrono::minutes(minute) +
         std::chrono::seconds(second);
}

// "brimble::MCPTransport::readLine(bool&) at /src/MCPTransport.cpp:69", possibly after
// "(inlined by) ": the function's name.
std::string functionOf(std::string_view symbolLine) {
  constexpr std::string_view kInlined = "(inlined by) ";
  if (symbolLine.starts_with(kInlined)) {
    symbolLine.remove_prefix(kInlined.size());
  }
  if (const std::size_t at = symbolLine.rfind(" at "); at != std::string_view::npos) {
    symbolLine = symbolLine.substr(0, at);
  }
  return std::string(symbolLine);
}

// Our own code is what lives in namespace brimble, less the handler that wrote the report;
// names, unlike addresses, stay the same from one run (and one build) to the next.
bool isOurs(std::string_view function) {
  return function.starts_with("brimble::") && !function.starts_with("brimble::crashHandler::");
}

std::string fnv1a(std::string_view text) {
  std::uint64_t hash = 14695981039346656037ull;
  for (const char c : text) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 1099511628211ull;
  }
  return fmt::format("{:016x}", hash);
}

}  // namespace

CrashReports::CrashReports(fs::path folder) : folder_(std::move(folder)) {}

fs::path CrashReports::defaultFolder() {
  return userFolders::state() / "crashes";
}

std::optional<CrashReport> CrashReports::read(const fs::path& path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  std::ifstream file(path);
  std::string line;
  if (error || size > kMaxReportBytes || !file || !std::getline(file, line) || line != kFirstLine) {
    logLine(fmt::format("Brimble: {} is not a readable crash report; left out", path.string()));
    return std::nullopt;
  }
  CrashReport report;
  report.path = path;
  bool haveTime = false;
  bool inBacktrace = false;
  std::vector<std::string> fallbackFrames;
  while (std::getline(file, line)) {
    const std::string_view text = line;
    if (text == "Backtrace:") {
      inBacktrace = true;
      continue;
    }
    if (text.starts_with("Recent log lines:")) {
      break;
    }
    if (inBacktrace) {
      if (text.starts_with("#")) {
        if (const std::size_t space = text.find(' '); space != std::string_view::npos) {
          std::string frame(text.substr(space + 1));
          if (const std::size_t slash = frame.rfind('/'); slash != std::string::npos) {
            frame.erase(0, slash + 1);
          }
          fallbackFrames.push_back(std::move(frame));
        }
      } else if (text.starts_with("    ") && report.topFrames.size() < kSignatureFrames) {
        std::string function = functionOf(text.substr(4));
        // A function and the inlined code it was in can come out under one name.
        if (isOurs(function) && (report.topFrames.empty() || report.topFrames.back() != function)) {
          report.topFrames.push_back(std::move(function));
        }
      }
      continue;
    }
    const std::size_t colon = text.find(": ");
    if (colon == std::string_view::npos) {
      continue;
    }
    const std::string_view key = text.substr(0, colon);
    const std::string_view value = text.substr(colon + 2);
    if (key == "Program") {
      report.program = value;
    } else if (key == "Version") {
      report.version = value;
    } else if (key == "Command") {
      report.command = value;
    } else if (key == "Signal") {
      report.signal = value.substr(0, value.find(' '));
    } else if (key == "Time") {
      if (const auto time = parseTime(value)) {
        report.time = *time;
        haveTime = true;
      }
    }
  }
  if (report.program.empty() || report.signal.empty() || !haveTime) {
    logLine(fmt::format("Brimble: {} is not a readable crash report; left out", path.string()));
    return std::nullopt;
  }
  if (report.topFrames.empty()) {
    fallbackFrames.resize(std::min(fallbackFrames.size(), kSignatureFrames));
    report.topFrames = std::move(fallbackFrames);
  }
  std::string key = report.program + '\n' + report.signal;
  for (const std::string& frame : report.topFrames) {
    key += '\n' + frame;
  }
  report.signature = fnv1a(key);
  return report;
}

std::vector<fs::path> CrashReports::reportFiles() const {
  std::vector<std::pair<fs::file_time_type, fs::path>> found;
  std::error_code error;
  for (fs::directory_iterator entry(folder_, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code fileError;
    if (entry->path().extension() == ".crash" && entry->is_regular_file(fileError)) {
      found.emplace_back(entry->last_write_time(fileError), entry->path());
    }
  }
  std::sort(found.begin(), found.end());
  std::vector<fs::path> paths;
  for (auto& [time, path] : found) {
    paths.push_back(std::move(path));
  }
  return paths;
}

std::vector<CrashReport> CrashReports::list() const {
  std::vector<CrashReport> reports;
  for (const fs::path& path : reportFiles()) {
    if (auto report = read(path)) {
      reports.push_back(std::move(*report));
    }
  }
  std::stable_sort(reports.begin(), reports.end(),
                   [](const CrashReport& a, const CrashReport& b) { return a.time < b.time; });
  return reports;
}

std::vector<CrashBucket> CrashReports::buckets() const {
  std::map<std::string, CrashBucket> bySignature;
  for (const CrashReport& report : list()) {
    CrashBucket& bucket = bySignature[report.signature];
    if (bucket.count == 0) {
      bucket.signature = report.signature;
      bucket.program = report.program;
      bucket.signal = report.signal;
      bucket.firstTime = report.time;
    }
    // list() is oldest first, so the last report seen is the newest.
    bucket.topFrames = report.topFrames;
    bucket.lastTime = report.time;
    bucket.newestReport = report.path;
    ++bucket.count;
  }
  std::vector<CrashBucket> buckets;
  for (auto& [signature, bucket] : bySignature) {
    buckets.push_back(std::move(bucket));
  }
  std::stable_sort(buckets.begin(), buckets.end(), [](const CrashBucket& a, const CrashBucket& b) {
    return a.lastTime > b.lastTime;
  });
  return buckets;
}

std::vector<CrashReport> CrashReports::unseen() const {
  std::set<std::string> seen;
  std::ifstream marker(folder_ / kSeenMarker);
  for (std::string name; std::getline(marker, name);) {
    seen.insert(name);
  }
  std::vector<CrashReport> reports = list();
  std::erase_if(reports, [&seen](const CrashReport& report) {
    return seen.contains(report.path.filename().string());
  });
  return reports;
}

void CrashReports::markSeen() const {
  std::string names;
  for (const fs::path& path : reportFiles()) {
    names += path.filename().string() + '\n';
  }
  userFolders::createPrivate(folder_);
  writeFileAtomically(folder_ / kSeenMarker, names, 0600);
}

void CrashReports::prune() const noexcept {
  try {
    const std::vector<fs::path> files = reportFiles();
    for (std::size_t i = 0; i + kKeptReports < files.size(); ++i) {
      std::error_code error;
      fs::remove(files[i], error);
    }
  } catch (const std::exception&) {
    // A report that could not be deleted now is deleted next time.
  }
}

}  // namespace brimble
