#include "BrimbleCore/Diagnostics/ProblemReport.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <system_error>

#include <fcntl.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "BrimbleCore/Diagnostics/TarArchive.h"
#include "BrimbleCore/Support/FileIO.h"
#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble {

namespace fs = std::filesystem;

namespace {

// Enough of the logs to see what led up to a problem, and of crash reports to see whether one
// repeats, while the archive stays small enough for an issue tracker's attachment limit.
constexpr std::uintmax_t kLogBudget = 2'000'000;
constexpr std::size_t kMostCrashReports = 10;
constexpr std::uintmax_t kLargestStateFile = 256'000;

/// The last `limit` bytes of `file`, from the start of a line; empty when it cannot be read.
std::string readTail(const fs::path& file, std::uintmax_t limit) {
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    return {};
  }
  in.seekg(0, std::ios::end);
  const auto size = static_cast<std::uintmax_t>(std::max<std::streamoff>(in.tellg(), 0));
  const std::uintmax_t start = size > limit ? size - limit : 0;
  in.seekg(static_cast<std::streamoff>(start));
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (start > 0) {
    const auto newline = text.find('\n');
    text.erase(0, newline == std::string::npos ? text.size() : newline + 1);
  }
  return text;
}

/// The regular, not hidden files of `folder`, newest first.
std::vector<fs::path> newestFiles(const fs::path& folder) {
  std::vector<std::pair<fs::file_time_type, fs::path>> found;
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    std::error_code fileError;
    if (!it->is_regular_file(fileError) || it->path().filename().string().starts_with('.')) {
      continue;
    }
    found.emplace_back(it->last_write_time(fileError), it->path());
  }
  std::sort(found.begin(), found.end(),
            [](const auto& a, const auto& b) { return a.first > b.first; });
  std::vector<fs::path> files;
  for (auto& [time, path] : found) {
    files.push_back(std::move(path));
  }
  return files;
}

std::string systemDescription(const std::string& version) {
  std::ostringstream text;
  text << "brimble " << version << "\n";
  utsname names{};
  if (::uname(&names) == 0) {
    text << "kernel: " << names.sysname << " " << names.release << " " << names.machine << "\n";
  }
  std::ifstream release("/etc/os-release");
  for (std::string line; std::getline(release, line);) {
    if (line.starts_with("PRETTY_NAME=")) {
      text << "system: " << line.substr(12) << "\n";
    }
  }
  // Which desktop, not who: the session's kind and the names of its pieces.
  for (const char* variable :
       {"XDG_SESSION_TYPE", "XDG_CURRENT_DESKTOP", "WAYLAND_DISPLAY", "DISPLAY", "LANG"}) {
    const char* value = std::getenv(variable);
    text << variable << "=" << (value != nullptr ? value : "(not set)") << "\n";
  }
  return text.str();
}

}  // namespace

ProblemReportError ProblemReportError::outputExists(const fs::path& output) {
  return {Code::outputExists, output.string() +
                                  " already exists; a report never replaces a file: choose another "
                                  "name with -o"};
}

ProblemReportError ProblemReportError::cannotWrite(const fs::path& output,
                                                   const std::string& reason) {
  return {Code::cannotWrite, "cannot write " + output.string() + ": " + reason};
}

std::string shortenHome(std::string_view text, const fs::path& home) {
  std::string prefix = home.lexically_normal().string();
  while (prefix.size() > 1 && prefix.back() == '/') {
    prefix.pop_back();
  }
  if (prefix.size() <= 1) {
    return std::string(text);
  }
  std::string shortened;
  std::size_t from = 0;
  for (std::size_t at = text.find(prefix); at != std::string_view::npos;
       at = text.find(prefix, at + 1)) {
    const std::size_t end = at + prefix.size();
    // Only the folder itself or a path inside it: "/home/anna" is not under "/home/ann".
    const bool wholeFolder =
        end == text.size() || text[end] == '/' ||
        std::string_view(" \t\n\"',:;)]}").find(text[end]) != std::string_view::npos;
    // And only a path that starts there: "/srv/home/ann" is not in the home folder.
    const bool startsPath =
        at == 0 || (std::isalnum(static_cast<unsigned char>(text[at - 1])) == 0 &&
                    std::string_view("/._-~").find(text[at - 1]) == std::string_view::npos);
    if (wholeFolder && startsPath && at >= from) {
      shortened.append(text.substr(from, at - from));
      shortened += '~';
      from = end;
    }
  }
  shortened.append(text.substr(from));
  return shortened;
}

ProblemReport ProblemReport::gather(const Sources& sources) {
  ProblemReport report;
  const auto add = [&](std::string name, std::string_view contents) {
    report.files_.push_back({std::move(name), shortenHome(contents, sources.home)});
  };
  add("doctor.txt", sources.doctorText);
  add("doctor.json", sources.doctorJSON);
  add("system.txt", systemDescription(sources.version));

  std::uintmax_t logBytes = 0;
  for (const fs::path& log : newestFiles(sources.stateFolder / "logs")) {
    if (logBytes >= kLogBudget) {
      break;
    }
    const std::string text = readTail(log, kLogBudget - logBytes);
    logBytes += text.size();
    if (!text.empty()) {
      add("logs/" + log.filename().string(), text);
    }
  }
  const std::vector<fs::path> crashes = newestFiles(sources.stateFolder / "crashes");
  for (std::size_t i = 0; i < std::min(crashes.size(), kMostCrashReports); ++i) {
    const std::string text = readTail(crashes[i], kLargestStateFile);
    if (!text.empty()) {
      add("crashes/" + crashes[i].filename().string(), text);
    }
  }
  for (const fs::path& state : newestFiles(sources.stateFolder)) {
    if (state.extension() == ".json") {
      if (const std::string text = readTail(state, kLargestStateFile); !text.empty()) {
        add(state.filename().string(), text);
      }
    }
  }
  return report;
}

std::uintmax_t ProblemReport::size() const {
  std::uintmax_t total = 0;
  for (const File& file : files_) {
    total += file.contents.size();
  }
  return total;
}

std::string ProblemReport::summary() const {
  std::string text;
  for (const File& file : files_) {
    const std::uintmax_t bytes = file.contents.size();
    const std::string size = bytes < 10'000 ? std::to_string(bytes) + " bytes"
                                            : std::to_string((bytes + 500) / 1000) + " KB";
    text += "  " + file.name + std::string(std::max<std::size_t>(2, 28 - file.name.size()), ' ') +
            size + "\n";
  }
  return text;
}

void ProblemReport::save(const fs::path& output) const {
  TarArchive archive;
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  for (const File& file : files_) {
    archive.add(file.name, file.contents, now);
  }
  const std::string bytes = archive.gzipped();
  // O_EXCL: a file that appeared under the name, or a link placed there, is never written
  // through.
  UniqueFd fd(::open(output.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (!fd) {
    if (errno == EEXIST) {
      throw ProblemReportError::outputExists(output);
    }
    throw ProblemReportError::cannotWrite(output, std::generic_category().message(errno));
  }
  try {
    writeAllAt(fd.get(), {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}, 0,
               output);
  } catch (const std::system_error& error) {
    // The file is the one just created, so nothing of the user's goes with it.
    ::unlink(output.c_str());
    throw ProblemReportError::cannotWrite(output, error.code().message());
  }
}

}  // namespace brimble
