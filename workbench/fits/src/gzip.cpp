#include "workbench/fits/src/gzip.hpp"

#define ZLIB_CONST
#include <zlib.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>

namespace quen::workbench {
namespace {

constexpr int kGzip = 15 + 16;             // the largest window, and gzip's header in place of zlib's
constexpr std::size_t kPiece = 1U << 18U;  // bytes that are packed or unpacked at a time

const Bytef* BytesOf(std::string_view text) {
  return reinterpret_cast<const Bytef*>(text.data());  // NOLINT(cppcoreguidelines-pro-type-reinterpret-cast): zlib's
}
Bytef* BytesOf(std::string& text) {
  return reinterpret_cast<Bytef*>(text.data());  // NOLINT(cppcoreguidelines-pro-type-reinterpret-cast): zlib's
}

void RequireMemory(int status) {
  if (status == Z_MEM_ERROR) throw std::bad_alloc();
}

/// Members of a gzip file, one behind the other. Zeros behind one are no more than padding, as tapes have it.
class Members {
 public:
  explicit Members(std::string name) : name_(std::move(name)) { RequireMemory(inflateInit2(&stream_, kGzip)); }
  ~Members() { inflateEnd(&stream_); }
  Members(const Members&) = delete;
  Members& operator=(const Members&) = delete;
  Members(Members&&) = delete;
  Members& operator=(Members&&) = delete;

  void Unpack(std::string_view bytes, const std::function<void(std::string_view piece)>& give) {
    while (true) {
      if (!is_inside_) bytes.remove_prefix(std::min(bytes.find_first_not_of('\0'), bytes.size()));
      if (bytes.empty()) return;
      UnpackSome(bytes, give);
    }
  }

  /// Whether the last one is not at its end.
  [[nodiscard]] bool IsInside() const { return is_inside_; }

 private:
  /// Unpacks as much as there is room for, and removes from `bytes` what is done.
  void UnpackSome(std::string_view& bytes, const std::function<void(std::string_view piece)>& give) {
    if (!is_inside_) inflateReset(&stream_);
    is_inside_ = true;
    stream_.next_in = BytesOf(bytes);
    stream_.avail_in = static_cast<uInt>(bytes.size());
    do {
      stream_.next_out = BytesOf(piece_);
      stream_.avail_out = static_cast<uInt>(piece_.size());
      const int status = inflate(&stream_, Z_NO_FLUSH);
      RequireMemory(status);
      if (status != Z_OK && status != Z_BUF_ERROR && status != Z_STREAM_END) {
        throw std::runtime_error(name_ + ": begins as files of gzip do, and is none; it may be damaged");
      }
      give(std::string_view(piece_).substr(0, piece_.size() - stream_.avail_out));
      is_inside_ = status != Z_STREAM_END;
    } while (is_inside_ && stream_.avail_out == 0);
    bytes.remove_prefix(bytes.size() - stream_.avail_in);
  }

  std::string name_;  ///< of the file
  z_stream stream_ = {};
  bool is_inside_ = false;
  std::string piece_ = std::string(kPiece, '\0');
};

/// A gzip file that grows.
class Packing {
 public:
  Packing() {
    constexpr int kMemory = 8;  // zlib's own choice
    RequireMemory(deflateInit2(&stream_, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kGzip, kMemory, Z_DEFAULT_STRATEGY));
  }
  ~Packing() { deflateEnd(&stream_); }
  Packing(const Packing&) = delete;
  Packing& operator=(const Packing&) = delete;
  Packing(Packing&&) = delete;
  Packing& operator=(Packing&&) = delete;

  void Pack(std::string_view bytes, bool is_last, std::string& packed) {
    stream_.next_in = BytesOf(bytes);
    stream_.avail_in = static_cast<uInt>(bytes.size());
    do {
      stream_.next_out = BytesOf(piece_);
      stream_.avail_out = static_cast<uInt>(piece_.size());
      deflate(&stream_, is_last ? Z_FINISH : Z_NO_FLUSH);
      packed.append(piece_, 0, piece_.size() - stream_.avail_out);
    } while (stream_.avail_out == 0);
  }

 private:
  z_stream stream_ = {};
  std::string piece_ = std::string(kPiece, '\0');
};

}  // namespace

bool IsGzip(std::string_view beginning) { return beginning.starts_with("\x1F\x8B"); }

void Gunzip(const std::string& name, const std::function<std::string(std::uint64_t position)>& read,
            const std::function<void(std::string_view piece)>& give) {
  Members members(name);
  std::uint64_t position = 0;
  for (std::string bytes = read(0); !bytes.empty(); bytes = read(position)) {
    members.Unpack(bytes, give);
    position += bytes.size();
  }
  if (members.IsInside()) throw std::runtime_error(name + ": cannot be unpacked to its end; the file may be cut short");
}

std::string Gzipped(std::string_view bytes) {
  Packing packing;
  std::string packed;
  bool is_last = false;
  while (!is_last) {
    const std::string_view piece = bytes.substr(0, kPiece);
    is_last = piece.size() == bytes.size();
    packing.Pack(piece, is_last, packed);
    bytes.remove_prefix(piece.size());
  }
  return packed;
}

}  // namespace quen::workbench
