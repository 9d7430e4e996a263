#include "BrimbleCore/Diagnostics/TarArchive.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include <zlib.h>

namespace brimble {

namespace {

constexpr std::size_t kBlock = 512;

// The fields of a ustar header that a reader needs, at their offsets.
constexpr std::size_t kNameField = 0;
constexpr std::size_t kModeField = 100;
constexpr std::size_t kSizeField = 124;
constexpr std::size_t kModifiedField = 136;
constexpr std::size_t kChecksumField = 148;
constexpr std::size_t kTypeField = 156;
constexpr std::size_t kMagicField = 257;

void putOctal(std::array<char, kBlock>& header, std::size_t offset, std::size_t width,
              unsigned long long value) {
  // Zero-padded digits, then a NUL; a value too large for the field keeps its low digits, which
  // cannot happen for the small text files a report holds.
  for (std::size_t i = width - 1; i-- > 0;) {
    header[offset + i] = static_cast<char>('0' + (value & 7));
    value >>= 3;
  }
}

struct DeflateStream {
  z_stream stream{};
  ~DeflateStream() { deflateEnd(&stream); }
};

}  // namespace

void TarArchive::add(std::string_view name, std::string_view contents, std::time_t modified) {
  if (name.empty() || name.size() > 99 || name.front() == '/') {
    throw std::invalid_argument("a file in a tar archive needs a relative name of 1 to 99 bytes");
  }
  std::array<char, kBlock> header{};
  std::copy(name.begin(), name.end(), header.begin() + kNameField);
  putOctal(header, kModeField, 8, 0644);
  putOctal(header, 108, 8, 0);  // owner and group: nobody in particular
  putOctal(header, 116, 8, 0);
  putOctal(header, kSizeField, 12, contents.size());
  putOctal(header, kModifiedField, 12,
           static_cast<unsigned long long>(std::max<std::time_t>(modified, 0)));
  header[kTypeField] = '0';
  std::copy_n("ustar", 6, header.begin() + kMagicField);
  std::copy_n("00", 2, header.begin() + kMagicField + 6);
  // The checksum is summed with its own field read as spaces.
  std::fill_n(header.begin() + kChecksumField, 8, ' ');
  unsigned sum = 0;
  for (const char c : header) {
    sum += static_cast<unsigned char>(c);
  }
  putOctal(header, kChecksumField, 7, sum);
  tar_.append(header.data(), header.size());
  tar_.append(contents);
  tar_.append((kBlock - contents.size() % kBlock) % kBlock, '\0');
}

std::string TarArchive::gzipped() const {
  std::string archive = tar_;
  archive.append(2 * kBlock, '\0');  // the end of the archive: two empty blocks
  DeflateStream deflate;
  // 15 + 16: a gzip wrapper, which `tar -z` and every archive tool read.
  if (deflateInit2(&deflate.stream, Z_BEST_COMPRESSION, Z_DEFLATED, 15 + 16, 8,
                   Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::runtime_error("cannot start compressing the archive");
  }
  std::string out(deflateBound(&deflate.stream, archive.size()), '\0');
  deflate.stream.next_in = reinterpret_cast<Bytef*>(archive.data());
  deflate.stream.avail_in = static_cast<uInt>(archive.size());
  deflate.stream.next_out = reinterpret_cast<Bytef*>(out.data());
  deflate.stream.avail_out = static_cast<uInt>(out.size());
  if (::deflate(&deflate.stream, Z_FINISH) != Z_STREAM_END) {
    throw std::runtime_error("cannot compress the archive");
  }
  out.resize(deflate.stream.total_out);
  return out;
}

}  // namespace brimble
