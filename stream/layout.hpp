#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>

/// @file
/// The file of a shared-memory image stream, layout "2.00", as the field's programs map it. Little-endian, natural
/// alignment. The parts of the file follow each other in this order, each rounded up to a multiple of 8 bytes:
///
///     metadata         384
///     pixels           image_bytes
///     keywords         128 · keywords
///     semaphores       32 · semaphores, then one of 32 more, the log's
///     for each of the semaphores an i32: pid of its reader, pid of its writer, control, status: four parts
///     traces           64 · traces
///     of a ring in time, where (image_type & 0xF000F) is 0x20001, with n = size[2]:
///                      times acquired 16 · n, times written 16 · n, counters 8 · n
///     of past frames, where past_frames is not 0:
///                      48 · past_frames, image_bytes · past_frames
///
/// The file has exactly this size. What is written while others read is written through std::atomic_ref.

namespace quen::stream {

static_assert(sizeof(std::timespec) == 16);

inline constexpr std::array<char, 5> kVersion = {"2.00"};       ///< of the layout
inline constexpr std::size_t kLongestName = 79;                 ///< bytes
inline constexpr std::size_t kLongestPath = 199;                ///< bytes, of the stream's file
inline constexpr std::uint64_t kMostElements = 10'000'000'000;  ///< of all axes
inline constexpr int kMostPosts = 10;                           ///< a semaphore that holds as many is not posted again

/// What a pixel is; its number in the file.
enum class PixelType : std::uint8_t {
  kUint8 = 1,
  kInt8 = 2,
  kUint16 = 3,
  kInt16 = 4,
  kUint32 = 5,
  kInt32 = 6,
  kUint64 = 7,
  kInt64 = 8,
  kFloat = 9,
  kDouble = 10,
  kComplexFloat = 11,
  kComplexDouble = 12,
  kHalf = 13,
};

/// Bytes of one pixel.
constexpr std::size_t SizeOf(PixelType type) {
  constexpr std::array<std::size_t, 14> kSizes = {0, 1, 1, 2, 2, 4, 4, 8, 8, 4, 8, 8, 16, 2};
  return kSizes.at(static_cast<std::size_t>(type));
}

/// The beginning of the file.
struct Metadata {
  std::array<char, 32> version;               ///< kVersion; written last, so that nobody uses a half-made stream
  std::array<char, 80> name;                  ///< of the stream
  std::uint8_t axes;                          ///< 1 to 3
  std::array<std::uint32_t, 3> size;          ///< pixels along each axis, the fastest first; 0 along unused ones
  std::uint64_t elements;                     ///< product of the axes in use
  std::uint8_t type;                          ///< PixelType
  std::uint64_t image_type;                   ///< 0 or 2: a plain image
  std::timespec created;                      ///< this and all other times: TAI
  std::timespec last_access;                  ///< others' to set; here when it was made
  std::timespec acquired;                     ///< when the pixels that are there now were measured
  std::timespec written;                      ///< when they were put there
  std::int32_t creator_pid;                   ///< the process that made the file
  std::int32_t owner_pid;                     ///< 0: not set
  std::uint8_t shared;                        ///< 1
  std::uint64_t inode;                        ///< of this file
  std::int8_t location;                       ///< -1: memory of the processor
  std::uint8_t status;                        ///< other programs' own; 0 in what is made here
  std::uint64_t flag;                         ///< the same
  std::uint8_t log_flag;                      ///< the same
  std::uint16_t semaphores;                   ///< how many there are, without the log's
  std::uint16_t traces;                       ///< how many there are
  std::uint64_t cnt0;                         ///< frames written so far
  std::uint64_t cnt1;                         ///< last slice of a cube
  std::uint64_t cnt2;                         ///< events
  std::uint8_t write;                         ///< 1 while a frame is being written
  std::uint16_t keywords;                     ///< how many there are, unused ones included
  std::uint32_t past_frames;                  ///< length of the ring of past frames
  std::uint32_t past_frame_index;             ///< place in it
  std::uint64_t past_frame_cycle;             ///< how often it went round
  std::uint64_t image_bytes;                  ///< of the pixels
  std::array<std::byte, 64> graphics_memory;  ///< a handle, where the pixels are not in the processor's memory
};
static_assert(offsetof(Metadata, version) == 0);
static_assert(offsetof(Metadata, name) == 32);
static_assert(offsetof(Metadata, axes) == 112);
static_assert(offsetof(Metadata, size) == 116);
static_assert(offsetof(Metadata, elements) == 128);
static_assert(offsetof(Metadata, type) == 136);
static_assert(offsetof(Metadata, image_type) == 144);
static_assert(offsetof(Metadata, created) == 152);
static_assert(offsetof(Metadata, last_access) == 168);
static_assert(offsetof(Metadata, acquired) == 184);
static_assert(offsetof(Metadata, written) == 200);
static_assert(offsetof(Metadata, creator_pid) == 216);
static_assert(offsetof(Metadata, owner_pid) == 220);
static_assert(offsetof(Metadata, shared) == 224);
static_assert(offsetof(Metadata, inode) == 232);
static_assert(offsetof(Metadata, location) == 240);
static_assert(offsetof(Metadata, status) == 241);
static_assert(offsetof(Metadata, flag) == 248);
static_assert(offsetof(Metadata, log_flag) == 256);
static_assert(offsetof(Metadata, semaphores) == 258);
static_assert(offsetof(Metadata, traces) == 260);
static_assert(offsetof(Metadata, cnt0) == 264);
static_assert(offsetof(Metadata, cnt1) == 272);
static_assert(offsetof(Metadata, cnt2) == 280);
static_assert(offsetof(Metadata, write) == 288);
static_assert(offsetof(Metadata, keywords) == 290);
static_assert(offsetof(Metadata, past_frames) == 292);
static_assert(offsetof(Metadata, past_frame_index) == 296);
static_assert(offsetof(Metadata, past_frame_cycle) == 304);
static_assert(offsetof(Metadata, image_bytes) == 312);
static_assert(offsetof(Metadata, graphics_memory) == 320);
static_assert(sizeof(Metadata) == 384);

/// A keyword as it stands in the file.
struct KeywordEntry {
  std::array<char, 16> name;                   ///< ends with a zero byte
  char type;                                   ///< 'N' unused, 'L' integer, 'D' double, 'S' text
  alignas(8) std::array<std::byte, 16> value;  ///< the number in the first eight bytes, or the text
  std::uint64_t writes;                        ///< how often the value was written
  std::array<char, 80> comment;                ///< ends with a zero byte
};
static_assert(offsetof(KeywordEntry, name) == 0);
static_assert(offsetof(KeywordEntry, type) == 16);
static_assert(offsetof(KeywordEntry, value) == 24);
static_assert(offsetof(KeywordEntry, writes) == 40);
static_assert(offsetof(KeywordEntry, comment) == 48);
static_assert(sizeof(KeywordEntry) == 128);

/// What made a program write a frame; ours leave no traces.
struct Trace {
  std::int32_t trigger_mode;    ///< how it was woken
  std::int32_t writer_pid;      ///< the program
  std::uint64_t trigger_inode;  ///< file of the stream that woke it
  std::timespec start;          ///< when it was woken
  std::timespec update;         ///< when it wrote
  std::int32_t semaphore;       ///< its index; -1: none
  std::int32_t status;          ///< other programs' own
  std::uint64_t trigger_cnt0;   ///< cnt0 of the stream that woke it
};
static_assert(offsetof(Trace, trigger_mode) == 0);
static_assert(offsetof(Trace, writer_pid) == 4);
static_assert(offsetof(Trace, trigger_inode) == 8);
static_assert(offsetof(Trace, start) == 16);
static_assert(offsetof(Trace, update) == 32);
static_assert(offsetof(Trace, semaphore) == 48);
static_assert(offsetof(Trace, status) == 52);
static_assert(offsetof(Trace, trigger_cnt0) == 56);
static_assert(sizeof(Trace) == 64);

}  // namespace quen::stream
