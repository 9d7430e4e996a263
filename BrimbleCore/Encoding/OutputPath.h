#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

#include "BrimbleCore/Encoding/OutputFormat.h"

namespace brimble {

/// An output file (named on the command line or by an MCP call) that cannot be written, found
/// before any recording or encoding starts, so that a long recording is never lost at the end and
/// nothing that is not a finished output is replaced. `what()` says why.
class OutputPathError : public std::runtime_error {
 public:
  enum class Code {
    unknownFormat,  // the format or extension names nothing brimble writes
    isAFolder,
    notARegularFile,  // a device, a pipe or a socket, which a finished file would replace
    isALink,          // a write would land in whatever file the link names
    notAnOutput,      // an existing file that is no image or video, such as a dotfile
    folderMissing,
    notAFolder,  // a part of the folder path is a file
    notWritable,
  };

  Code code() const noexcept { return code_; }
  /// 2 (a usage error) for an unknown format, else 1.
  int exitCode() const noexcept;

  static OutputPathError unknownFormat(const std::string& description);
  static OutputPathError isAFolder(const std::filesystem::path& output);
  static OutputPathError notARegularFile(const std::filesystem::path& output);
  static OutputPathError isALink(const std::filesystem::path& output);
  static OutputPathError notAnOutput(const std::filesystem::path& output);
  static OutputPathError folderMissing(const std::filesystem::path& output,
                                       const std::filesystem::path& folder);
  static OutputPathError notAFolder(const std::filesystem::path& output,
                                    const std::filesystem::path& file);
  static OutputPathError notWritable(const std::filesystem::path& output,
                                     const std::filesystem::path& folder, int error);

 private:
  OutputPathError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}
  Code code_;
};

/// Throws OutputPathError when `output` cannot be written as a new or replaced file: it is a
/// folder, a symbolic link or not a regular file, or its folder is missing, not a folder or not
/// writable.
void checkWritable(const std::filesystem::path& output);

/// The format an animation or video is written in: `formatOption` ("gif", "webp", "apng" or
/// "mp4") when it is not empty, else the extension of `output` (.gif, .webp, .png, .apng or
/// .mp4, in any case). Throws OutputPathError for an unknown format or extension, and when
/// `output` cannot be written, or when it exists under a name that is no animation or video (a
/// format given by option does not license replacing ~/.bashrc). `formatOptionExists` tells
/// whether the command has --format, so the message can offer it.
OutputFormat checkAnimationOutput(const std::string& formatOption,
                                  const std::filesystem::path& output, bool formatOptionExists);

/// Throws OutputPathError unless `output` is a .png file that can be written.
void checkPNGOutput(const std::filesystem::path& output);

/// Whether an output written as `output` names a folder of PNG frames: it ends in "/".
bool namesFrameFolder(const std::string& output);
/// Whether `file` is named as a frame of a frame folder ("frame-00001.png").
bool isFrameFileName(const std::filesystem::path& file);
/// Throws OutputPathError unless `folder` can take a render's PNG frames: a new folder whose
/// parent exists and is writable, or a writable folder that holds nothing but the frame files of
/// an earlier render (which are replaced). Any other file in it is the user's and is not touched.
void checkFrameFolderOutput(const std::filesystem::path& folder);

}  // namespace brimble
