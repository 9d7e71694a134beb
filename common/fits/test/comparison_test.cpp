#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>

#include "common/fits/fits.hpp"
#include "common/fits/test/plain_fits.hpp"
#include "fuzz/damage.hpp"
#include "testing/environment.hpp"
#include "testing/fits_files.hpp"

/// @file
/// The library's FITS layer and the plain one of plain_fits.hpp, side by side: the same operations on the same files,
/// with all that can be seen of them compared: results, exceptions by type and text, what is left on CFITSIO's message
/// stack, and every byte of the files. A difference is a failure, unless CFITSIO left alone crashes, hangs or fills the
/// disk there, which the library fences off; those damages are listed.

/// CFITSIO notes the time of writing in checksum cards. Here it stands still.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): in no reserved words.
extern "C" time_t time(time_t* result) noexcept {
  constexpr time_t kNow = 1'700'000'000;
  if (result != nullptr) *result = kNow;
  return kNow;
}

namespace quen::common::Fits {
namespace {

/// Sets the stack below to zeros. CFITSIO goes by variables that it has not set where a file could not be read, which
/// may be anything: it then complains of an overflow or not, or counts columns or none.
[[gnu::noinline]] void ClearStack() {
  std::array<char, 200'000> room{};
  asm volatile("" : : "r"(room.data()) : "memory");  // the zeros are for others to see
}

template <typename Function>
Function* Cfitsio(Function* /*type*/, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));  // NOLINT: there is no other way.
}

}  // namespace

/// A function of CFITSIO that begins with zeros below, whoever called what before.
// NOLINTBEGIN(cppcoreguidelines-macro-usage, bugprone-macro-parentheses): it has to bear that name.
#define FROM_ZEROS(name, parameters, arguments) \
  int name parameters {                         \
    ClearStack();                               \
    return Cfitsio(&name, #name) arguments;     \
  }
// NOLINTEND(cppcoreguidelines-macro-usage, bugprone-macro-parentheses)

extern "C" {

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
FROM_ZEROS(ffopentest, (int version, fitsfile** file, const char* name, int mode, int* status),
           (version, file, name, mode, status))
FROM_ZEROS(ffclos, (fitsfile * file, int* status), (file, status))
FROM_ZEROS(ffpcks, (fitsfile * file, int* status), (file, status))
FROM_ZEROS(ffflsh, (fitsfile * file, int clear, int* status), (file, clear, status))
FROM_ZEROS(ffmahd, (fitsfile * file, int number, int* type, int* status), (file, number, type, status))
FROM_ZEROS(ffmnhd, (fitsfile * file, int type, char* name, int version, int* status),
           (file, type, name, version, status))
FROM_ZEROS(ffdhdu, (fitsfile * file, int* type, int* status), (file, type, status))
FROM_ZEROS(ffrdef, (fitsfile * file, int* status), (file, status))
FROM_ZEROS(ffrsim, (fitsfile * file, int bitpix, int count, long* axes, int* status),
           (file, bitpix, count, axes, status))
FROM_ZEROS(ffcrtb,
           (fitsfile * file, int type, LONGLONG rows, int count, char** names, char** formats, char** units,
            const char* name, int* status),
           (file, type, rows, count, names, formats, units, name, status))
FROM_ZEROS(ffgcv,
           (fitsfile * file, int type, int column, LONGLONG row, LONGLONG first, LONGLONG count, void* null,
            void* buffer, int* any_null, int* status),
           (file, type, column, row, first, count, null, buffer, any_null, status))
FROM_ZEROS(ffgpv,
           (fitsfile * file, int type, LONGLONG first, LONGLONG count, void* null, void* buffer, int* any_null,
            int* status),
           (file, type, first, count, null, buffer, any_null, status))
FROM_ZEROS(ffgsv,
           (fitsfile * file, int type, long* first, long* last, long* step, void* null, void* buffer, int* any_null,
            int* status),
           (file, type, first, last, step, null, buffer, any_null, status))
FROM_ZEROS(ffppr, (fitsfile * file, int type, LONGLONG first, LONGLONG count, void* values, int* status),
           (file, type, first, count, values, status))
FROM_ZEROS(ffpcl,
           (fitsfile * file, int type, int column, LONGLONG row, LONGLONG first, LONGLONG count, void* values,
            int* status),
           (file, type, column, row, first, count, values, status))
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

}  // extern "C"

namespace {

namespace library = Fits;
using quen::fuzz::Bytes;
using quen::testing::Header;
using quen::testing::Plain;
using quen::testing::Primary;
using quen::testing::TempDir;

// --- The two layers ------------------------------------------------------------------------------------------------

template <typename T>
using ReadAll = std::vector<T> (*)(const Handle&, const std::string&);
using WriteByNumber = std::size_t (*)(const Handle&, const void*, std::size_t, int, int, int);
using WriteByName = std::size_t (*)(const Handle&, const void*, std::size_t, int, const std::string&, int);

struct Layer {
  decltype(&library::FitsFile) open;
  decltype(&library::FitsFileWrite) open_to_write;
  decltype(&library::ReadImgParams) image_params;
  decltype(&library::ReadImgPriv) read_image;
  decltype(&library::ReadImgSlicePriv) read_slice;
  decltype(&library::WriteImgPriv) write_image;
  decltype(&library::ReadImgHeaderPriv) read_key;
  decltype(&library::ReadTableParams) table_params;
  decltype(&library::ReadColumnPriv) read_column;
  ReadAll<std::uint8_t> read_bytes;
  ReadAll<std::uint16_t> read_shorts;
  ReadAll<double> read_doubles;
  decltype(&library::WriteTable) write_table;
  WriteByNumber write_number;
  WriteByName write_name;
};

constexpr Layer kLibrary = {&library::FitsFile,
                            &library::FitsFileWrite,
                            &library::ReadImgParams,
                            &library::ReadImgPriv,
                            &library::ReadImgSlicePriv,
                            &library::WriteImgPriv,
                            &library::ReadImgHeaderPriv,
                            &library::ReadTableParams,
                            &library::ReadColumnPriv,
                            &library::ReadColumnOrThrow<std::uint8_t>,
                            &library::ReadColumnOrThrow<std::uint16_t>,
                            &library::ReadColumnOrThrow<double>,
                            &library::WriteTable,
                            &library::WriteColumnPriv,
                            &library::WriteColumnPriv};
constexpr Layer kPlain = {&Plain::FitsFile,
                          &Plain::FitsFileWrite,
                          &Plain::ReadImgParams,
                          &Plain::ReadImgPriv,
                          &Plain::ReadImgSlicePriv,
                          &Plain::WriteImgPriv,
                          &Plain::ReadImgHeaderPriv,
                          &Plain::ReadTableParams,
                          &Plain::ReadColumnPriv,
                          &Plain::ReadColumnOrThrow<std::uint8_t>,
                          &Plain::ReadColumnOrThrow<std::uint16_t>,
                          &Plain::ReadColumnOrThrow<double>,
                          &Plain::WriteTable,
                          &Plain::WriteColumnPriv,
                          &Plain::WriteColumnPriv};

// --- What can be seen of an operation ------------------------------------------------------------------------------

class Transcript {
 public:
  void Say(const std::string& line) { text_ += line + "\n"; }

  /// Runs one call; notes how it ends.
  void Try(const std::string& call, const std::function<void()>& action) {
    Say(call);
    try {
      action();
    } catch (const std::exception& error) {
      Say(std::string("  ") + typeid(error).name() + " " + error.what());
    }
  }

  [[nodiscard]] const std::string& Text() const { return text_; }

 private:
  std::string text_;
};

std::string Sum(const void* data, std::size_t bytes) {
  return std::to_string(std::hash<std::string_view>()({static_cast<const char*>(data), bytes}));
}

void SayMessages(Transcript& transcript) {
  std::array<char, 256> line{};
  std::string text = "stack: ";
  while (fits_read_errmsg(line.data()) != 0) text += std::string(line.data()) + "|";
  transcript.Say(text);
}

/// Without messages that depend on memory which CFITSIO has not set.
std::string Settled(std::string text) {
  for (const std::string_view unset : {"malloc failed to get memory for FITS table descriptors (ffbinit)",
                                       "Error while updating variable length vector TFORMn values (ffuptf)."}) {
    for (std::size_t at = text.find(unset); at != std::string::npos; at = text.find(unset)) {
      const bool is_listed = text.substr(at + unset.size(), 1) == "|";
      text.erase(at, unset.size() + (is_listed ? 1 : 0));
    }
  }
  return text;
}

void SayFiles(const std::string& folder, Transcript& transcript) {
  std::set<std::string> lines;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    const std::string path = entry.path().string();
    std::string line = path.substr(folder.size());
    if (entry.is_regular_file()) {
      const std::vector<char> bytes = testing::Bytes(path);
      line += " " + std::to_string(bytes.size()) + " " + Sum(bytes.data(), bytes.size());
    }
    lines.insert(line);
  }
  for (const std::string& line : lines) transcript.Say(line);
}

// --- Operations ----------------------------------------------------------------------------------------------------

constexpr std::size_t kElements = 4096;
constexpr unsigned long kManyRows = 100'000;

void SayBuffer(const std::vector<double>& buffer, Transcript& transcript) {
  transcript.Say("  = " + Sum(buffer.data(), buffer.size() * sizeof(double)));
}

void ReadImage(const Layer& layer, const Handle& file, Transcript& transcript) {
  std::vector<double> buffer(kElements);
  library::ImgParams params = {{}, 16};
  transcript.Try("params", [&] {
    params = layer.image_params(file);
    std::string text = "  " + std::to_string(params.second);
    for (const std::size_t length : params.first) text += " " + std::to_string(length);
    transcript.Say(text);
  });
  for (const int as : {TBYTE, TSHORT, TDOUBLE}) {
    transcript.Try("image", [&] {
      layer.read_image(file, buffer.data(), buffer.size(), params.second, as, std::nullopt);
      SayBuffer(buffer, transcript);
    });
    for (const std::size_t slice : {0U, 1U}) {
      buffer.assign(kElements, 0.0);
      transcript.Try("slice", [&] {
        layer.read_slice(file, buffer.data(), buffer.size(), params.second, as, slice);
        SayBuffer(buffer, transcript);
      });
    }
  }
  transcript.Try("dims", [&] { layer.read_image(file, buffer.data(), buffer.size(), -64, TDOUBLE, {{6, 4}}); });
  for (const char* const key : {"NAXIS", "OBJECT", "BSCALE", "nothing"}) {
    std::array<char, FLEN_VALUE> value{};
    transcript.Try(key, [&] {
      layer.read_key(file, value.data(), TSTRING, key);
      transcript.Say(std::string("  = ") + value.data());
    });
    for (const int as : {TINT, TDOUBLE, TINT, TULONG, TULONGLONG}) {
      double number = 0.0;
      transcript.Try(key, [&] {
        layer.read_key(file, &number, as, key);
        transcript.Say("  = " + Sum(&number, sizeof(number)));
      });
    }
  }
}

void ReadTable(const Layer& layer, const Handle& file, Transcript& transcript) {
  library::TableParams params;
  transcript.Try("table", [&] {
    params = layer.table_params(file, std::nullopt);
    transcript.Say("  rows " + std::to_string(params.first.at(1)));
    for (const auto& [name, number, code] : params.second) {
      transcript.Say("  " + name + " " + std::to_string(number) + " " + std::to_string(code));
    }
  });
  std::set<std::string> names = {"y", "Y", "nothing"};
  for (const auto& column : params.second) names.insert(std::get<0>(column));
  std::vector<double> buffer(kElements);
  for (const std::string& name : names) {
    for (const int as : {TBYTE, TSHORT, TDOUBLE}) {
      buffer.assign(kElements, 0.0);
      transcript.Try("column " + name, [&] {
        layer.read_column(file, buffer.data(), buffer.size(), as, name);
        SayBuffer(buffer, transcript);
      });
    }
    if (params.first.size() == 2 && params.first[1] > kManyRows) continue;  // of memory that it takes: see below
    const auto say = [&](const auto& values) {
      transcript.Say("  = " + std::to_string(values.size()) + " " +
                     Sum(values.data(), values.size() * sizeof(values[0])));
    };
    transcript.Try("bytes", [&] { say(layer.read_bytes(file, name)); });
    transcript.Try("shorts", [&] { say(layer.read_shorts(file, name)); });
    transcript.Try("doubles", [&] { say(layer.read_doubles(file, name)); });
  }
}

void WriteIntoTable(const Layer& layer, const Handle& file, Transcript& transcript) {
  const std::vector<double> ramp = testing::Ramp(5);
  for (const int column : {1, 2, 3, 0}) {
    for (const int as : {TDOUBLE, TSHORT, 999}) {
      transcript.Try("write " + std::to_string(column),
                     [&] { layer.write_number(file, ramp.data(), ramp.size(), as, column, 2); });
    }
    transcript.Try("write nothing", [&] { layer.write_number(file, ramp.data(), 0, TDOUBLE, column, 1); });
  }
  for (const char* const name : {"x", "y", "nothing"}) {
    transcript.Try("write", [&] { layer.write_name(file, ramp.data(), ramp.size(), TDOUBLE, name, 1); });
  }
}

void WriteImage(const Layer& layer, const Handle& file, Transcript& transcript) {
  const std::vector<double> ramp = testing::Ramp(24);
  transcript.Try("write image", [&] { layer.write_image(file, ramp.data(), 24, DOUBLE_IMG, TDOUBLE, {6, 4}); });
}

using Operation = std::function<void(const Layer&, const std::string& path, Transcript&)>;

Operation Reading(const std::optional<std::string>& extension) {
  return [=](const Layer& layer, const std::string& path, Transcript& transcript) {
    transcript.Try("read [" + extension.value_or("none") + "]", [&] {
      const Handle file = layer.open(path, extension);
      transcript.Say("  type " + std::to_string(file->hdu_type));
      ReadImage(layer, file, transcript);
      ReadTable(layer, file, transcript);
      transcript.Try("write", [&] { layer.write_table(file, {{"a", "D"}}); });
    });
  };
}

/// Opens and releases: how the release ends.
Operation Opening(const std::optional<std::string>& extension) {
  return [=](const Layer& layer, const std::string& path, Transcript& transcript) {
    transcript.Try("open [" + extension.value_or("none") + "]", [&] { layer.open(path, extension); });
  };
}

using Use = void (*)(const Layer&, const Handle&, Transcript&);

void LeaveAlone(const Layer& /*layer*/, const Handle& /*file*/, Transcript& /*transcript*/) {}

void AppendTable(const Layer& layer, const Handle& file, Transcript& transcript) {
  transcript.Try("table", [&] { layer.write_table(file, {{"x", "D"}, {"y", "U"}, {"z", "B"}}); });
  WriteIntoTable(layer, file, transcript);
}

void AppendEmptyTable(const Layer& layer, const Handle& file, Transcript& transcript) {
  transcript.Try("table", [&] { layer.write_table(file, {{"x", "D"}}); });
}

Operation Writing(bool overwrite, const std::optional<std::string>& extension, Use use) {
  return [=](const Layer& layer, const std::string& path, Transcript& transcript) {
    transcript.Try("write [" + extension.value_or("none") + "]", [&] {
      const Handle file = layer.open_to_write(path, overwrite, extension);
      transcript.Say("  type " + std::to_string(file->hdu_type));
      use(layer, file, transcript);
    });
  };
}

const std::vector<Operation>& Operations() {
  static const std::vector<Operation> operations = {Opening(std::nullopt),
                                                    Opening("rois"),
                                                    Opening("last"),
                                                    Reading(std::nullopt),
                                                    Reading("1"),
                                                    Reading("rois"),
                                                    Reading("last"),
                                                    Reading(""),
                                                    Reading("nothing"),
                                                    Writing(false, std::nullopt, LeaveAlone),
                                                    Writing(false, std::nullopt, WriteImage),
                                                    Writing(false, "rois", LeaveAlone),
                                                    Writing(false, "rois", WriteIntoTable),
                                                    Writing(false, "last", WriteIntoTable),
                                                    Writing(false, "new", AppendTable),
                                                    Writing(false, "new", AppendEmptyTable),
                                                    Writing(true, std::nullopt, WriteImage),
                                                    Writing(true, "new", AppendTable)};
  return operations;
}

// --- Cases ---------------------------------------------------------------------------------------------------------

/// A file, and the name under which it is asked for.
struct Case {
  std::string title;
  Bytes content;
  std::string suffix;       ///< after the file's name
  std::string damage = {};  ///< what was done to it
};

std::string PathOf(const std::string& folder, const Case& each) { return folder + "/a.fits" + each.suffix; }

// --- Running -------------------------------------------------------------------------------------------------------

/// How one operation on one case went: what could be seen, or the signal that ended it.
struct Outcome {
  std::string text;
  int signal = 0;
};

std::string RunOperation(const Layer& layer, const Case& each, const Operation& operation, const std::string& folder) {
  std::filesystem::current_path("/");
  std::filesystem::remove_all(folder);
  std::filesystem::create_directory(folder);
  std::filesystem::current_path(folder);  // where a bare name in brackets is
  std::ofstream(folder + "/a.fits", std::ios::binary) << fuzz::Text(each.content);
  Transcript transcript;
  operation(layer, PathOf(folder, each), transcript);
  SayMessages(transcript);
  SayFiles(folder, transcript);
  return Settled(transcript.Text());
}

/// Ends an operation that hangs, or writes more than it may.
void Limit() {
  constexpr rlim_t kLargestFile = 100'000'000;
  const rlimit size = {kLargestFile, kLargestFile};
  setrlimit(RLIMIT_FSIZE, &size);
  const rlimit no_core = {0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
}

void Restart() {
  constexpr itimerval kLimit = {{0, 0}, {2, 0}};
  setitimer(ITIMER_PROF, &kLimit, nullptr);
}

/// All operations on all cases, from number `first` on, as many as leave the file of outcomes below the limit. Outcomes
/// go into a file, each after its length.
void RunFrom(const Layer& layer, const std::vector<Case>& cases, std::size_t first, const std::string& folder,
             const std::string& outcomes) {
  Limit();
  dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
  std::ofstream out(outcomes, std::ios::binary);
  constexpr std::size_t kMost = 10'000;
  const std::size_t end = std::min(first + kMost, cases.size() * Operations().size());
  for (std::size_t at = first; at < end; ++at) {
    Restart();
    const std::string text =
        RunOperation(layer, cases[at / Operations().size()], Operations()[at % Operations().size()], folder);
    out << text.size() << '\n' << text << std::flush;
  }
}

/// Those in a file, as far as they are whole.
void ReadOutcomes(const std::string& path, std::vector<Outcome>& outcomes) {
  std::ifstream in(path, std::ios::binary);
  for (std::size_t size = 0; in >> size;) {
    in.get();
    std::string text(size, ' ');
    if (in.read(text.data(), static_cast<std::streamsize>(size))) outcomes.push_back({text});
  }
}

std::vector<Outcome> RunAll(const Layer& layer, const std::vector<Case>& cases, const TempDir& room) {
  std::vector<Outcome> outcomes;
  const std::size_t count = cases.size() * Operations().size();
  while (outcomes.size() < count) {
    const std::string path = room / "outcomes";
    const pid_t child = fork();
    if (child == 0) {
      RunFrom(layer, cases, outcomes.size(), room / "work", path);
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ReadOutcomes(path, outcomes);
    if (status != 0) outcomes.push_back({"", WIFSIGNALED(status) ? WTERMSIG(status) : -1});
  }
  return outcomes;
}

/// Both texts in one, from the first line that differs.
std::string Difference(const Outcome& ours, const Outcome& theirs) {
  if (ours.signal != theirs.signal) {
    return "signal " + std::to_string(theirs.signal) + " plainly, " + std::to_string(ours.signal) + " here:\n" +
           ours.text;
  }
  std::istringstream one(ours.text);
  std::istringstream two(theirs.text);
  std::string a;
  std::string b;
  std::string before;
  while (std::getline(one, a) && std::getline(two, b) && a == b) before = a;
  return before + "\n  library: " + a + "\n  plain:   " + b;
}

// --- Files -------------------------------------------------------------------------------------------------------

Bytes AsBytes(const std::string& text) { return {text.begin(), text.end()}; }

std::string Image(const std::vector<std::string>& axes, const std::vector<std::string>& more = {}) {
  std::vector<std::string> cards = {"SIMPLE  =                    T", "BITPIX  =                  -64",
                                    "NAXIS   = " + std::to_string(axes.size())};
  for (std::size_t i = 0; i < axes.size(); ++i) {
    std::string card = "NAXIS" + std::to_string(i + 1);
    card.resize(8, ' ');
    cards.push_back(card + "= " + axes[i]);
  }
  cards.insert(cards.end(), more.begin(), more.end());
  return Header(cards);
}

/// One column of doubles, in the table "rois".
std::string Table(const std::string& rows, const std::vector<std::string>& more = {},
                  const std::string& name = "TTYPE1  = 'x       '") {
  std::vector<std::string> cards = {name, "EXTNAME = 'rois    '"};
  cards.insert(cards.end(), more.begin(), more.end());
  return testing::TableOfDoubles(rows, cards);
}

/// A compressed image of 6 by 4 pixels.
std::string Tiles(const std::vector<std::string>& more) {
  std::vector<std::string> cards = {"XTENSION= 'BINTABLE'", "BITPIX  = 8",      "NAXIS   = 2",
                                    "NAXIS1  = 8",          "NAXIS2  = 4",      "PCOUNT  = 0",
                                    "GCOUNT  = 1",          "TFIELDS = 1",      "TTYPE1  = 'COMPRESSED_DATA'",
                                    "TFORM1  = '1PB(8)'",   "EXTNAME = 'last'", "ZIMAGE  = T",
                                    "ZBITPIX = 16",         "ZNAXIS  = 2",      "ZNAXIS1 = 6",
                                    "ZNAXIS2 = 4"};
  cards.insert(cards.end(), more.begin(), more.end());
  return Header(cards);
}

std::string Block() { return std::string(2880, '\0'); }

void Need(int status) {
  if (status != 0) throw std::runtime_error("a file for the comparison: CFITSIO status " + std::to_string(status));
}

/// What CFITSIO makes of these steps.
Bytes Made(const std::function<void(fitsfile*, int*)>& steps) {
  const TempDir folder;
  const std::string path = folder / "made.fits";
  fitsfile* file = nullptr;
  int status = 0;
  fits_create_file(&file, path.c_str(), &status);
  steps(file, &status);
  fits_close_file(file, &status);
  Need(status);
  const std::vector<char> bytes = testing::Bytes(path);
  return {bytes.begin(), bytes.end()};
}

Bytes MadeImage(int bitpix, std::vector<long> axes) {
  return Made([&](fitsfile* file, int* status) {
    fits_create_img(file, bitpix, static_cast<int>(axes.size()), axes.data(), status);
    std::vector<double> ramp = testing::Ramp(24);
    fits_write_img(file, TDOUBLE, 1, 24, ramp.data(), status);
    fits_write_key_str(file, "OBJECT", "a ramp", "of numbers", status);
    fits_write_chksum(file, status);
  });
}

void AddTable(fitsfile* file, int type, std::vector<std::string> names, std::vector<std::string> formats,
              const char* name, int* status) {
  const auto pointers = [](std::vector<std::string>& texts) {
    std::vector<char*> list(texts.size());
    std::ranges::transform(texts, list.begin(), [](std::string& text) { return text.data(); });
    return list;
  };
  std::vector<char*> name_list = pointers(names);
  std::vector<char*> format_list = pointers(formats);
  fits_create_tbl(file, type, 0, static_cast<int>(names.size()), name_list.data(), format_list.data(), nullptr, name,
                  status);
  std::vector<double> ramp = testing::Ramp(7);
  for (int column = 1; column <= static_cast<int>(names.size()); ++column) {
    fits_write_col(file, TDOUBLE, column, 1, 1, 7, ramp.data(), status);
  }
}

/// Two tables, the first with a column of lists, whose elements lie in a heap.
Bytes MadeTables() {
  return Made([](fitsfile* file, int* status) {
    AddTable(file, BINARY_TBL, {"x", "y", "z"}, {"1D", "1U", "1B"}, "rois", status);
    fits_write_chksum(file, status);
    AddTable(file, BINARY_TBL, {"x", "list"}, {"1D", "1PD(3)"}, "last", status);
    fits_write_key_lng(file, "THEAP", 7L * 16, "where the heap begins", status);
  });
}

struct File {
  std::string name;
  Bytes content;
  std::string damage = {};
};

/// What CFITSIO writes, of each kind.
const std::vector<File>& HealthyFiles() {
  static const std::vector<File> files = {
      {"image", MadeImage(DOUBLE_IMG, {6, 4})},
      {"shorts", MadeImage(SHORT_IMG, {6, 4})},
      {"cube", MadeImage(SHORT_IMG, {4, 3, 2})},
      {"unsigned", MadeImage(USHORT_IMG, {24})},
      {"tables", MadeTables()},
      {"ascii table", Made([](fitsfile* file, int* status) {
         AddTable(file, ASCII_TBL, {"x", "y"}, {"E15.7", "I6"}, "rois", status);
       })},
      {"images", Made([](fitsfile* file, int* status) {
         std::array<long, 2> axes = {6, 4};
         fits_create_img(file, BYTE_IMG, 0, axes.data(), status);
         fits_create_img(file, FLOAT_IMG, 2, axes.data(), status);
         fits_write_key_str(file, "EXTNAME", "last", nullptr, status);
       })},
      {"tiles", Made([](fitsfile* file, int* status) {
         std::array<long, 2> axes = {6, 4};
         std::array<short, 24> ramp = {1, 2, 3, 4, 5, 6, 7, 8};
         fits_set_compression_type(file, RICE_1, status);
         fits_create_img(file, SHORT_IMG, 2, axes.data(), status);
         fits_write_key_str(file, "EXTNAME", "last", nullptr, status);
         fits_write_img(file, TSHORT, 1, 24, ramp.data(), status);
       })},
      {"empty table", AsBytes(Primary() + Table("0"))},
      {"groups", AsBytes(Header({"SIMPLE  = T", "BITPIX  = 16", "NAXIS   = 2", "NAXIS1  = 0", "NAXIS2  = 6",
                                 "GROUPS  = T", "PCOUNT  = 2", "GCOUNT  = 3"}) +
                         Block())},
      {"nothing", {}},
      {"no FITS", AsBytes("text")}};
  return files;
}

// NOLINTBEGIN(performance-inefficient-string-concatenation): files as they are made up read best so.

/// Odd, but taken by CFITSIO, or refused in its own words.
std::vector<File> OddFiles() {
  std::vector<File> files;
  for (const char* const card :
       {"NAXISREF= -3.5", "ZTILEOFF= -1", "ZNAXIS1 = -1", "ZTILE1  = 0", "PCOUNT  = -1", "GCOUNT  = 0", "THEAP   = -1",
        "TTYPES  =====================================================================",
        "TITLES  =====================================================================", "NAXIS1  = -1",
        "TUNIT1  = 7777777777777777777777777777777777777777777777777777777777777777777777"}) {
    files.push_back({std::string("primary, ") + card, AsBytes(Primary({card}))});
    files.push_back({std::string("image, ") + card, AsBytes(Image({"6", "4"}, {card}) + Block())});
    files.push_back(
        {std::string("behind, ") + card, AsBytes(Primary() + Table("1") + Block() + Table("1", {card}) + Block())});
    if (std::string_view(card).starts_with("THEAP")) continue;
    files.push_back({std::string("table, ") + card, AsBytes(Primary() + Table("1", {card}) + Block())});
  }
  for (const char* const value :
       {"00000000000000000000000000000000000000005", "-0000000000000000000000000000000000000005",
        "'00000000000000000000000000000000000000005'", "18446744073709551615", "00000000000000000005",
        "1.00000000000000000000000000000000000005", "'99999999999999999999999999'"}) {
    files.push_back(
        {std::string("value ") + value, AsBytes(Image({"6", "4"}, {std::string("OBJECT  = ") + value}) + Block())});
  }
  for (const std::vector<std::string>& cards : std::vector<std::vector<std::string>>{
           {"ZCMPTYPE= 'RICE_1'", "ZTILE3  = 0"},
           {"ZCMPTYPE= 'RICE_1'", "ZTILE1  = 00000000000000000000000000000000000006"},
           {"ZCMPTYPE= 'RICE_1'", "ZNAME1  = 'BYTEPIX'", "ZVAL1   = 2.00000000000000000000000000000000000000"},
           {"ZCMPTYPE= 'GZIP_1'", "ZNAME1  = 'BLOCKSIZE'", "ZVAL1   = 0"},
           {"ZCMPTYPE= 'GZIP_1'", "ZVAL1   = 77777777777777777777777777777777"},
           {"ZCMPTYPE= 'RICE_1'", "ZVAL1   = 0", "ZVAL2   = 9"},
           {"ZCMPTYPE= 'RICE_1'", "ZVAL1   = 32", "ZVAL9   = 77777777777777777777777777777777"},
           {"ZCMPTYPE= 'RICE_1'", "ZVAL2   = 77777777777777777777777777777777"},
           {"ZCMPTYPE= 'HCOMPRESS_1'", "ZVAL1   = 77777777777777777777777777777777"},
           {"ZCMPTYPE= 'RICE_1'", "ZVAL1   = 32", "ZTILE1  = 2199023255552"},
           {"ZCMPTYPE= 'RICE_1'", "ZVAL1   = 32", "ZTILE1  = 9223372036854775807"},
           {"ZCMPTYPE= 'RICE_1'", "ZVAL1   = 32", "ZTILE1  = 1.5"},
           {"ZCMPTYPE= 'RICE_1'", "ZVAL1   = 32", "ZTILE1  = 'none'"}}) {
    files.push_back({"tiles, " + cards.back(), AsBytes(Primary() + Tiles(cards) + Block())});
  }
  for (const char* const axis : {"-1", "0", "-9223372036854775808", "9223372036854775807", "4611686018427387904", "1E3",
                                 "'6'", "6.0", "18446744073709551616"}) {
    files.push_back({std::string("axis ") + axis, AsBytes(Image({axis, "4"}) + Block())});
    files.push_back({std::string("rows ") + axis, AsBytes(Primary() + Table(axis) + Block())});
  }
  for (const char* const name : {"TTYPE1  = 777777777777777777777777777777777777777777777777777777777777777777777",
                                 "TTYPE2  = 7777777777777777777777777777777777777777777777777777777777777777777777",
                                 "TTYPE1  = (7777777777777777777777777777777777777777777777777777777777777777777)"}) {
    files.push_back({name, AsBytes(Primary() + Table("1", {}, name) + Block())});
  }
  for (const char* const format : {"'0A'", "'0D'", "'-1A'", "'0X'", "'0PD(0)'", "'0A8'", "''"}) {
    files.push_back({std::string("format ") + format,
                     AsBytes(Primary() +
                             Header({"XTENSION= 'BINTABLE'", "BITPIX  = 8", "NAXIS   = 2", "NAXIS1  = 8", "NAXIS2  = 1",
                                     "PCOUNT  = 0", "GCOUNT  = 1", "TFIELDS = 3", std::string("TFORM1  = ") + format,
                                     "TFORM2  = 'D'", "TTYPE1  = 'x'", "TTYPE2  = 'y'",
                                     std::string("TFORM3  = ") + format, "EXTNAME = 'rois'"}) +
                             Block())});
  }
  files.push_back({"lacks 20 MB", AsBytes(Primary() + Table("2500000"))});
  files.push_back({"99 axes", AsBytes(Image(std::vector<std::string>(99, "1")) + Block())});
  return files;
}

/// A healthy file with another card in place of the last of the same keyword.
Bytes With(const std::string& name, std::string card) {
  Bytes file = std::ranges::find(HealthyFiles(), name, &File::name)->content;
  card.resize(80, ' ');
  const std::size_t at = fuzz::Text(file).rfind(card.substr(0, 9));
  std::ranges::copy(card, file.begin() + static_cast<std::ptrdiff_t>(at));
  return file;
}

/// The root of a card's keyword.
std::string Root(const std::string& card) {
  return {card.begin(), std::find_if(card.begin(), card.end(), [](unsigned char c) { return std::isalpha(c) == 0; })};
}

/// Where CFITSIO, left alone, comes to grief; named for the keyword.
std::vector<File> DamagedFiles() {
  std::vector<File> files;
  for (const char* const name : {"TTYPE1  = 7777777777777777777777777777777777777777777777777777777777777777777777",
                                 "TTYPE1  = (77777777777777777777777777777777777777777777777777777777777777777777)"}) {
    files.push_back({"TTYPE", AsBytes(Primary() + Table("1", {}, name) + Block())});
    files.push_back({"TTYPE", AsBytes(Primary() + Table("1") + Block() + Table("1", {}, name) + Block())});
    const std::string value = std::string(name).substr(8);
    files.push_back({"TTYPE", AsBytes(Primary() + Table("1", {"TTYPE9  " + value, name}) + Block())});
    files.push_back({"TTYPE", AsBytes(Primary() + Table("1", {"TTYPE+1 " + value}) + Block())});
  }
  for (const char* const heap : {"-1", "-2880", "-5000", "-9000", "9223372036854775807"}) {
    files.push_back({"THEAP", AsBytes(Primary() + Table("1", {std::string("THEAP   = ") + heap}) + Block())});
  }
  for (const char* const rows : {"5", "7"}) {
    files.push_back({"THEAP", AsBytes(Primary() + Table(rows, {"THEAP   = 33"}) + Block() + Table("1") + Block())});
  }
  files.push_back({"NAXIS", AsBytes(Image(std::vector<std::string>(150, "1")) + Block())});
  files.push_back({"NAXIS", AsBytes(Image({"100000", "100000"}) + Block())});
  files.push_back({"NAXIS", AsBytes(Image({"100000", "1000"}) + Block() + Block())});
  files.push_back({"NAXIS", AsBytes(Primary() + Table("100000000000") + Block())});
  files.push_back({"NAXIS", AsBytes(Primary() +
                                    Header({"XTENSION= 'IMAGE'", "BITPIX  = 8", "NAXIS   = 2", "NAXIS1  = 64",
                                            "NAXIS2  = 288230376151711654", "PCOUNT  = 0", "GCOUNT  = 1"}) +
                                    Block())});
  for (const char* const value : {"77777777777777777777777777777", "18446744073709551616", "99999999999999999999999999",
                                  "(1.00000000000000000000,2.00000000000000000)", "1E999999999999999999999999999",
                                  "'777777777777777777777777777'", "1.00000000000000000000000000x"}) {
    files.push_back({"OBJECT", AsBytes(Image({"6", "4"}, {std::string("OBJECT  = ") + value}) + Block())});
  }
  for (const auto& [file, card] :
       std::vector<std::pair<std::string, std::string>>{{"groups", "PCOUNT  = 2147483647"},
                                                        {"groups", "PCOUNT  = 4611686018427387904"},
                                                        {"groups", "PCOUNT  = -2147483649"},
                                                        {"groups", "GCOUNT  = -2147483649"},
                                                        {"unsigned", "NAXIS1  = 2147483647"},
                                                        {"unsigned", "NAXIS1  = 4611686018427387904"},
                                                        {"tables", "NAXIS2  = 2147483648"},
                                                        {"empty table", "PCOUNT  = 4611686018427387904"},
                                                        {"empty table", "PCOUNT  = 9223372036854775807"},
                                                        {"tiles", "PCOUNT  = 2147483647"},
                                                        {"tiles", "PCOUNT  = 9223372036854775807"},
                                                        {"tiles", "ZNAXIS  = 77777777777777777777777777777777"},
                                                        {"tiles", "ZTILE1  = 4611686018427387904"},
                                                        {"tiles", "ZTILE1  = '0'"},
                                                        {"tiles", "ZVAL1   = 0.5"},
                                                        {"tiles", "ZVAL2   = 77777777777777777777777777777777"}}) {
    files.push_back({Root(card), With(file, card), card + " in " + file});
  }
  return files;
}

// NOLINTEND(performance-inefficient-string-concatenation)

/// CFITSIO's extended syntax behind a file's name.
constexpr std::array kSuffixes = {
    "[0]", "[1]",        "[rois]",      "[last]",         "[ROIS]", "[rois,1]", "[rois,2]",
    "[9]", "[2:4,*]",    "[1][x > 2]",  "[rois][col x]",  "+1",     "+7",       "(b.fits)",
    "[1",  "]",          "[]",          "[rois](b.fits)", "[*,*]",  "[a b]",    "[#1]",
    ".gz", "[compress]", "(b.fits)[1]", "[1][2]",         "[r*]",   " ",        "[rois;x(1)]"};

// --- Defects that are fenced off -------------------------------------------------------------------------------------

/// How CFITSIO ends, left alone, after which damage.
struct Defect {
  const char* card = "";  ///< root of the keyword, or "cut" for a file cut short
  int signal = 0;         ///< as it shows without sanitizers
  const char* what = "";
  const char* refusal = "";  ///< how the library's outcome shows that it is for that reason
};

constexpr std::array kDefects = {
    Defect{"NAXIS", 0, "writes a table over a header that it refuses for something else", "lacks more than 100 MB"},
    Defect{"NAXIS", 0, "goes round a unit whose end wraps around to its header, unless something else stops it",
           "declares data without end"},
    Defect{"NAXIS", SIGPROF, "sums up gigabytes that are not there"},
    Defect{"NAXIS", SIGXFSZ, "fills the file up to the declared size"},
    Defect{"NAXIS", SIGABRT, "puts the fill of a data unit, whose size wraps around, beyond its buffer"},
    Defect{"NAXIS", SIGSEGV, "keeps more axes than it has room for"},
    Defect{"BSCALE", SIGABRT, "overruns its room for a complaint about a long value"},
    Defect{"BITPIX", SIGPROF, "sums up gigabytes that are not there"},
    Defect{"PCOUNT", SIGPROF, "sums up gigabytes that are not there"},
    Defect{"PCOUNT", SIGXFSZ, "fills the file up to the declared size"},
    Defect{"PCOUNT", SIGABRT, "puts the fill of a data unit, whose size wraps around, beyond its buffer"},
    Defect{"PCOUNT", SIGSEGV, "moves a heap that begins before the data"},
    Defect{"GCOUNT", SIGABRT, "puts the fill of a data unit, whose size wraps around, beyond its buffer"},
    Defect{"GCOUNT", SIGPROF, "sums up gigabytes that are not there"},
    Defect{"GCOUNT", SIGXFSZ, "fills the file up to the declared size"},
    Defect{"THEAP", SIGPROF, "sums up gigabytes that are not there"},
    Defect{"THEAP", SIGXFSZ, "fills the file up to the declared size"},
    Defect{"THEAP", SIGABRT, "puts the fill of a data unit, whose size wraps around, beyond its buffer"},
    Defect{"THEAP", SIGSEGV, "moves a heap that begins before the data"},
    Defect{"THEAP", 0, "moves a heap that begins before the data, from memory that is not its own", "heap pointer"},
    Defect{"TTYPE", SIGABRT, "copies a column's name beyond its room"},
    Defect{"ZBITPIX", 0, "makes pixels of a type that there is not from memory that is not its own"},
    Defect{"ZBITPIX", SIGABRT, "overruns its room for a complaint about a long value"},
    Defect{"ZNAXIS", SIGABRT, "overruns its room for a complaint about a long value"},
    Defect{"ZTILE", SIGABRT, "overruns its room for a complaint about a long value"},
    Defect{"ZTILE", 0, "takes no room for a tile of 2^62 pixels, once it reads", "tiles that no memory holds"},
    Defect{"ZTILE", SIGFPE, "divides by the width of a tile"},
    Defect{"ZVAL", SIGABRT, "overruns its room for a complaint about a long value"},
    Defect{"ZVAL", SIGFPE, "divides by the size of a block"},
    Defect{"OBJECT", SIGABRT, "overruns its room for a complaint about a long value"},
    Defect{"cut", 0, "looks at a number of axes that it could not read", "array dimensions too big"},
    Defect{"cut", SIGFPE, "divides by the width of a column that it has no format of"},
    Defect{"cut", SIGSEGV, "follows the null pointer of columns that it counts and does not know"},
};

/// A damaged file as a case, under the root of the keyword that is damaged in it.
Case DamagedCase(const std::string& name, const Bytes& whole, const Bytes& damaged) {
  if (whole.size() != damaged.size()) return {"cut", damaged, "", name};
  const auto [at, other] = std::ranges::mismatch(whole, damaged);
  const auto start = (at - whole.begin()) / 80 * 80;
  const std::string card(whole.begin() + start, whole.begin() + start + 80);
  const std::string now(damaged.begin() + start, damaged.begin() + start + 80);
  return {Root(card), damaged, "", name + ", byte " + std::to_string(start) + ": " + card + "\n" + now};
}

bool IsListed(const std::string& card, int signal, const std::string& outcome) {
  return std::ranges::any_of(kDefects, [&](const Defect& defect) {
    return card == defect.card && signal == defect.signal && outcome.find(defect.refusal) != std::string::npos;
  });
}

// --- The comparison --------------------------------------------------------------------------------------------------

class FitsComparison : public ::testing::Test {
 protected:
  /// Runs both layers on all cases and expects no difference but for what is listed. Cases that are damaged have the
  /// root of the keyword as their title.
  void Compare(const std::vector<Case>& cases, bool are_damaged = false) {
    const std::vector<Outcome> ours = RunAll(kLibrary, cases, room_);
    const std::vector<Outcome> theirs = RunAll(kPlain, cases, room_);
    ASSERT_EQ(ours.size(), theirs.size());
    for (std::size_t i = 0; i < ours.size(); ++i) {
      const Case& each = cases[i / Operations().size()];
      EXPECT_EQ(ours[i].signal, 0) << each.title << each.suffix << ", operation " << i % Operations().size() << ", "
                                   << each.content.size() << " bytes, " << each.damage;
      if (ours[i].text == theirs[i].text) continue;
      if (are_damaged && IsListed(each.title, theirs[i].signal, ours[i].text + theirs[i].text)) continue;
      ADD_FAILURE() << each.title << each.suffix << ", operation " << i % Operations().size() << "\n"
                    << each.damage << "\n"
                    << Difference(ours[i], theirs[i]);
    }
  }

 private:
  TempDir room_{std::filesystem::exists("/dev/shm") ? "/dev/shm" : std::filesystem::temp_directory_path()};
};

TEST_F(FitsComparison, HealthyFiles) {
  std::vector<Case> cases;
  for (const File& file : HealthyFiles()) cases.push_back({file.name, file.content, ""});
  Compare(cases);
}

TEST_F(FitsComparison, FilesCutShortOrWithMoreBehindThem) {
  std::vector<Case> cases;
  for (const File& file : HealthyFiles()) {
    const std::size_t size = file.content.size();
    std::set<std::size_t> sizes = {size + 1, size + 2879, size + 2880, size + 5000};
    for (std::size_t block = 2880; block <= size; block += 2880)
      sizes.insert({block - 2000, block - 1, block, block + 1});
    for (const std::size_t length : sizes) {
      Bytes bytes = file.content;
      bytes.resize(length);
      cases.push_back({"cut", bytes, ""});
    }
  }
  Compare(cases, true);
}

TEST_F(FitsComparison, NamesWithAMeaning) {
  std::vector<Case> cases;
  for (const File& file : HealthyFiles()) {
    for (const char* const suffix : kSuffixes) cases.push_back({file.name, file.content, suffix});
  }
  Compare(cases);
}

TEST_F(FitsComparison, OddFiles) {
  std::vector<Case> cases;
  for (const File& file : OddFiles()) cases.push_back({file.name, file.content, ""});
  Compare(cases);
}

TEST_F(FitsComparison, DamagedFiles) {
  std::vector<Case> cases;
  for (const File& file : DamagedFiles()) cases.push_back({file.name, file.content, "", file.damage});
  Compare(cases, true);
}

/// A few of the damages. All with QUEN_COMPARE_ALL, which takes some minutes: of all files if it is 1, or of the one
/// that it names.
TEST_F(FitsComparison, FilesWithADamagedCard) {
  const char* const all = std::getenv("QUEN_COMPARE_ALL");
  const std::string only = all == nullptr || std::string(all) == "1" ? "" : all;
  const std::size_t step = all == nullptr ? 97 : 1;
  std::vector<Case> cases;
  std::size_t first = 0;
  for (const File& file : HealthyFiles()) {
    const std::size_t start = first++ % step;  // other damages of each file
    if (!only.empty() && file.name != only) continue;
    const std::size_t count = fuzz::CountDamages(file.content);
    for (std::size_t which = start; which < count; which += step) {
      cases.push_back(DamagedCase(file.name, file.content, fuzz::Damaged(file.content, which)));
    }
  }
  Compare(cases, true);
}

}  // namespace
}  // namespace quen::common::Fits
