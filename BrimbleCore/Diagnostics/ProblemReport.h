#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace brimble {

/// Where users send a problem report.
inline constexpr const char* kIssueTracker = "https://github.com/brimble/brimble/issues";

/// A report that cannot be saved; `what()` says why in one line.
class ProblemReportError : public std::runtime_error {
 public:
  enum class Code { outputExists, cannotWrite };

  static ProblemReportError outputExists(const std::filesystem::path& output);
  static ProblemReportError cannotWrite(const std::filesystem::path& output,
                                        const std::string& reason);

  Code code() const noexcept { return code_; }

 private:
  ProblemReportError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}
  Code code_;
};

/// Everything a problem report holds, gathered once so the user sees exactly what would be sent
/// before anything is saved: what `brimble doctor` found, a description of the system, the recent
/// logs, the crash reports and the usage counts Brimble keeps. Nothing the user made goes in (no
/// recordings, no scripts), and the user's home folder is written as `~` throughout. A value.
class ProblemReport {
 public:
  struct File {
    /// The name in the archive ("doctor.txt", "logs/brimble.log").
    std::string name;
    std::string contents;
  };

  struct Sources {
    /// The checklist, as `brimble doctor` prints it and as JSON.
    std::string doctorText;
    std::string doctorJSON;
    /// Brimble's state folder: its logs/ and crashes/, and the usage counts.
    std::filesystem::path stateFolder;
    /// Written as `~` wherever it appears.
    std::filesystem::path home;
    std::string version;
  };

  /// Reads what the sources name. Only the newest logs and crash reports go in, a few MB in all,
  /// so a report stays small enough to attach; a file that cannot be read is left out.
  static ProblemReport gather(const Sources& sources);

  const std::vector<File>& files() const noexcept { return files_; }
  std::uintmax_t size() const;

  /// One line per file with its size, for the user to look over before saving.
  std::string summary() const;

  /// Writes the files as one .tar.gz archive to `output`, a new file: an existing file is never
  /// replaced. Throws ProblemReportError.
  void save(const std::filesystem::path& output) const;

 private:
  std::vector<File> files_;
};

/// `text` with every path under `home` written from `~` ("/home/ann/x" becomes "~/x"); a path
/// that merely starts with the same letters ("/home/anna") is left alone.
std::string shortenHome(std::string_view text, const std::filesystem::path& home);

}  // namespace brimble
