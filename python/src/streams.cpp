#include "python/src/streams.hpp"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "python/src/guards.hpp"
#include "stream/reader.hpp"
#include "stream/writer.hpp"
#include "workbench/live/pixels.hpp"

namespace quen::python {
namespace {

using std::chrono::steady_clock;

constexpr std::int64_t kNanoseconds = 1'000'000'000;  // of a second

std::int64_t Nanoseconds(const std::timespec& time) { return kNanoseconds * time.tv_sec + time.tv_nsec; }

std::timespec TimeOf(std::int64_t nanoseconds) { return {nanoseconds / kNanoseconds, nanoseconds % kNanoseconds}; }

/// A time from now on; none is never.
class Limit {
 public:
  explicit Limit(std::optional<double> seconds) {
    constexpr double kLongest = 1e9;
    if (!seconds || *seconds > kLongest) return;
    end_ = steady_clock::now() +
           std::chrono::duration_cast<steady_clock::duration>(std::chrono::duration<double>(std::max(*seconds, 0.0)));
  }
  [[nodiscard]] bool IsOver() const { return end_ && steady_clock::now() >= *end_; }
  /// A part of it in which a job can wait before it looks after the interpreter.
  [[nodiscard]] std::chrono::nanoseconds Slice() const {
    constexpr std::chrono::nanoseconds kSlice = std::chrono::milliseconds(20);
    return end_ ? std::min<std::chrono::nanoseconds>(kSlice, *end_ - steady_clock::now()) : kSlice;
  }

 private:
  std::optional<steady_clock::time_point> end_;
};

/// One end of a stream in Python's hands, until it is closed.
template <typename End>
class Held {
 public:
  explicit Held(std::unique_ptr<End> end) : end_(std::move(end)) {}

  /// @throws Python's ValueError  it is closed
  [[nodiscard]] End& Get() const {
    if (!end_) throw py::value_error("Stream: is closed");
    return *end_;
  }
  void Close() {
    const InUse in_use(is_in_use, "Stream");
    end_.reset();
  }

  std::atomic_flag is_in_use = {};

 private:
  std::unique_ptr<End> end_;
};

// --- Reading

struct StreamReader : Held<stream::Reader> {
  explicit StreamReader(const std::string& name) : Held(Attached(name)) {}

  static std::unique_ptr<stream::Reader> Attached(const std::string& name) {
    try {
      return WithFiles([&]() -> std::unique_ptr<stream::Reader> {
        try {
          return std::make_unique<stream::Reader>(name);
        } catch (const stream::NotThere& error) {
          ThrowOsError(error.what(), PyExc_FileNotFoundError);
        }
      });
    } catch (const std::invalid_argument& error) {
      throw py::value_error(error.what());
    }
  }

  stream::FrameInfo info;
};

/// @return  the counter, which is `seen` where the time was over first
std::uint64_t Wait(StreamReader& self, std::uint64_t seen, std::optional<double> seconds) {
  const InUse in_use(self.is_in_use, "Stream");
  stream::Reader& reader = self.Get();
  const Limit limit(seconds);
  JobWatch watch;
  const WithoutLock unlocked;
  std::uint64_t count = reader.Wait(seen, std::chrono::nanoseconds(0));
  while (count == seen && !limit.IsOver()) {
    watch();
    count = reader.Wait(seen, limit.Slice());
  }
  return count;
}

/// @return  whether there was a whole frame before the time was over
bool Read(StreamReader& self, py::array& pixels, std::optional<double> seconds) {
  const InUse in_use(self.is_in_use, "Stream");
  const stream::Reader& reader = self.Get();
  const gsl::span<std::byte> bytes(static_cast<std::byte*>(pixels.mutable_data()),
                                   static_cast<std::size_t>(pixels.nbytes()));
  const Limit limit(seconds);
  JobWatch watch;
  const WithoutLock unlocked;
  while (!reader.Read(bytes, self.info)) {
    if (limit.IsOver()) return false;
    watch();
    std::this_thread::sleep_for(std::chrono::microseconds(50));  // for the writer to finish
  }
  return true;
}

py::tuple Info(const StreamReader& self) {
  return py::make_tuple(self.info.count, Nanoseconds(self.info.acquired), Nanoseconds(self.info.written),
                        self.info.values);
}

py::list Keywords(const StreamReader& self) {
  py::list list;
  for (const stream::Keyword& keyword : self.Get().Keywords()) {
    list.append(py::make_tuple(keyword.name, keyword.value, keyword.comment));
  }
  return list;
}

// --- Writing

/// @throws Python's ValueError  the layout has no such pixels
stream::PixelType TypeOf(const std::string& name) {
  for (auto number = static_cast<std::uint8_t>(stream::PixelType::kUint8);
       number <= static_cast<std::uint8_t>(stream::PixelType::kHalf); ++number) {
    const auto type = static_cast<stream::PixelType>(number);
    if (workbench::NameOf(type) == name) return type;
  }
  throw py::value_error(
      "dtype: expected whole numbers of 8 to 64 bits, floats of 16 to 64 or complex ones of 64 or "
      "128, found " +
      name);
}

using KeywordParts = std::tuple<std::string, stream::KeywordValue, std::string>;

struct StreamWriter : Held<stream::Writer> {
  StreamWriter(const std::string& name, const std::vector<std::uint32_t>& size, const std::string& type,
               const std::vector<KeywordParts>& keywords)
      : Held(Made(name, size, type, keywords)) {}

  static std::unique_ptr<stream::Writer> Made(const std::string& name, const std::vector<std::uint32_t>& size,
                                              const std::string& type, const std::vector<KeywordParts>& keywords) {
    stream::StreamConfig config = {.name = name, .type = TypeOf(type), .size = size};
    for (const auto& [keyword, value, comment] : keywords) config.keywords.push_back({keyword, value, comment});
    return WithFiles([&] { return std::make_unique<stream::Writer>(config); });
  }
};

void Publish(StreamWriter& self, const py::array& pixels, std::optional<std::int64_t> acquired,
             const std::vector<stream::KeywordValue>& values) {
  const InUse in_use(self.is_in_use, "Stream");
  stream::Writer& writer = self.Get();
  const gsl::span<const std::byte> bytes(static_cast<const std::byte*>(pixels.data()),
                                         static_cast<std::size_t>(pixels.nbytes()));
  const WithoutLock unlocked;
  writer.Publish(bytes, acquired ? TimeOf(*acquired) : stream::Now(), values);
}

}  // namespace

void BindStreams(py::module_& module) {
  py::class_<StreamReader> reader(module, "StreamReader");
  reader.def(py::init<const std::string&>())
      .def("close", &StreamReader::Close)
      .def("wait", &Wait)
      .def("read", &Read)
      .def("info", &Info)
      .def("keywords", &Keywords)
      .def("count", [](const StreamReader& self) { return self.Get().Count(); })
      .def("size", [](const StreamReader& self) { return self.Get().Size(); })
      .def("type", [](const StreamReader& self) { return workbench::NameOf(self.Get().Type()); })
      .def("is_replaced", [](const StreamReader& self) { return self.Get().IsReplaced(); });
  RefusePickling(reader);
  py::class_<StreamWriter> writer(module, "StreamWriter");
  writer
      .def(py::init<const std::string&, const std::vector<std::uint32_t>&, const std::string&,
                    const std::vector<KeywordParts>&>())
      .def("close", &StreamWriter::Close)
      .def("publish", &Publish)
      .def("count", [](const StreamWriter& self) { return self.Get().Count(); })
      .def("path", [](const StreamWriter& self) { return self.Get().Path(); });
  RefusePickling(writer);
}

}  // namespace quen::python
