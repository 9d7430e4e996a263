#include "BrimbleCore/Encoding/OutputPath.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <system_error>

#include <unistd.h>

#include "BrimbleCore/Support/Text.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;

std::string cannotWriteOutput(const fs::path& output) {
  return "cannot write " + output.string() + ": ";
}

bool isOutputLink(const fs::path& output) {
  std::error_code error;
  return fs::is_symlink(fs::symlink_status(output, error));
}

}  // namespace

int OutputPathError::exitCode() const noexcept {
  return code_ == Code::unknownFormat ? 2 : 1;
}

OutputPathError OutputPathError::unknownFormat(const std::string& description) {
  return {Code::unknownFormat, description};
}

OutputPathError OutputPathError::isAFolder(const fs::path& output) {
  return {Code::isAFolder, cannotWriteOutput(output) + "it is a folder"};
}

OutputPathError OutputPathError::notARegularFile(const fs::path& output) {
  return {Code::notARegularFile, cannotWriteOutput(output) + "it is not a regular file"};
}

OutputPathError OutputPathError::isALink(const fs::path& output) {
  return {Code::isALink,
          cannotWriteOutput(output) + "it is a symbolic link (name the file itself to replace it)"};
}

OutputPathError OutputPathError::notAnOutput(const fs::path& output) {
  return {Code::notAnOutput, cannotWriteOutput(output) +
                                 "it exists and is not an image or video, so it is not replaced"};
}

OutputPathError OutputPathError::folderMissing(const fs::path& output, const fs::path& folder) {
  return {Code::folderMissing,
          cannotWriteOutput(output) + "the folder " + folder.string() + " does not exist"};
}

OutputPathError OutputPathError::notAFolder(const fs::path& output, const fs::path& file) {
  return {Code::notAFolder, cannotWriteOutput(output) + file.string() + " is not a folder"};
}

OutputPathError OutputPathError::notWritable(const fs::path& output, const fs::path& folder,
                                             int error) {
  return {Code::notWritable, cannotWriteOutput(output) + "the folder " + folder.string() +
                                 " is not writable (" + std::strerror(error) + ")"};
}

void checkWritable(const fs::path& output) {
  std::error_code error;
  const fs::file_status status = fs::symlink_status(output, error);
  // A finished file is renamed over the link's target, which may be any file at all.
  if (fs::is_symlink(status)) {
    throw OutputPathError::isALink(output);
  }
  if (fs::is_directory(status)) {
    throw OutputPathError::isAFolder(output);
  }
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    throw OutputPathError::notARegularFile(output);
  }
  const fs::path folder = output.has_parent_path() ? output.parent_path() : fs::path(".");
  if (!fs::exists(fs::status(folder, error))) {
    // The nearest folder that exists tells a missing folder from a file in the way.
    fs::path existing = folder;
    while (existing.has_parent_path() && existing != existing.parent_path() &&
           !fs::exists(fs::status(existing, error))) {
      existing = existing.parent_path();
    }
    if (fs::exists(fs::status(existing, error)) && !fs::is_directory(existing, error)) {
      throw OutputPathError::notAFolder(output, existing);
    }
    throw OutputPathError::folderMissing(output, folder);
  }
  if (!fs::is_directory(folder, error)) {
    throw OutputPathError::notAFolder(output, folder);
  }
  // The file is written beside its destination and renamed over it, so the folder is what must
  // be writable (and searchable).
  if (::access(folder.c_str(), W_OK | X_OK) != 0) {
    throw OutputPathError::notWritable(output, folder, errno);
  }
}

OutputFormat checkAnimationOutput(const std::string& formatOption, const fs::path& output,
                                  bool formatOptionExists) {
  std::error_code error;
  // A folder given as the output is the mistake to name, not its missing extension.
  if (!isOutputLink(output) && fs::is_directory(output, error)) {
    throw OutputPathError::isAFolder(output);
  }
  std::optional<OutputFormat> format;
  if (!formatOption.empty()) {
    format = outputFormatFromRawValue(formatOption);
    if (!format) {
      throw OutputPathError::unknownFormat("unknown format \"" + formatOption +
                                           "\" (use gif, webp, apng or mp4)");
    }
  } else {
    format = outputFormatFromExtension(output.extension().string());
    if (!format) {
      const std::string extension = output.extension().string();
      throw OutputPathError::unknownFormat(
          (extension.empty() ? output.string() + " has no extension"
                             : "unknown extension \"" + extension + "\" in " + output.string()) +
          " (use .gif, .webp, .png or .mp4" + (formatOptionExists ? ", or --format" : "") + ")");
    }
  }
  checkWritable(output);
  if (fs::is_regular_file(fs::symlink_status(output, error)) &&
      !outputFormatFromExtension(output.extension().string())) {
    throw OutputPathError::notAnOutput(output);
  }
  return *format;
}

void checkPNGOutput(const fs::path& output) {
  if (lowercased(output.extension().string()) != ".png") {
    throw OutputPathError::unknownFormat("the output must be a .png file (got \"" +
                                         output.string() + "\")");
  }
  checkWritable(output);
}

bool namesFrameFolder(const std::string& output) {
  return output.ends_with('/');
}

bool isFrameFileName(const fs::path& file) {
  static constexpr std::string_view kPrefix = "frame-";
  const std::string name = file.filename().string();
  if (!name.starts_with(kPrefix) || !name.ends_with(".png") || name.size() <= kPrefix.size() + 4) {
    return false;
  }
  return std::all_of(name.begin() + static_cast<std::ptrdiff_t>(kPrefix.size()), name.end() - 4,
                     [](char c) { return c >= '0' && c <= '9'; });
}

void checkFrameFolderOutput(const fs::path& folder) {
  const fs::path named = folder.has_filename() ? folder : folder.parent_path();
  std::error_code error;
  const fs::file_status status = fs::symlink_status(named, error);
  if (fs::is_symlink(status)) {
    throw OutputPathError::isALink(folder);
  }
  if (!fs::exists(status)) {
    // A new folder: what a new file there would need.
    checkWritable(named);
    return;
  }
  if (!fs::is_directory(status)) {
    throw OutputPathError::notAFolder(folder, named);
  }
  for (const auto& entry : fs::directory_iterator(named, error)) {
    if (!isFrameFileName(entry.path()) || !entry.is_regular_file(error)) {
      throw OutputPathError::notAnOutput(entry.path());
    }
  }
  if (error) {
    throw std::system_error(error, "cannot read the folder " + named.string());
  }
  if (::access(named.c_str(), W_OK | X_OK) != 0) {
    throw OutputPathError::notWritable(folder, named, errno);
  }
}

}  // namespace brimble
