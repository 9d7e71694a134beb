#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "common/fits/fits.hpp"
#include "quen_image_processing/centroiding/centroiding.hpp"
#include "quen_image_processing/roi/roi.hpp"
#include "shssim/shs_simulator.hpp"

// The binary interface, as a host compiled against an earlier version relies on it. A change here needs a new
// SOVERSION.

namespace {

using quen::common::Fits::Handle;
using quen::common::Fits::HandleType;
using quen::image_processing::Centroiding;
using quen::image_processing::Roi;
using Doubles = std::vector<double>;

TEST(BinaryInterface, RoiFieldsInOrder) {
  static_assert(std::is_trivially_copyable_v<Roi> && std::is_standard_layout_v<Roi>);
  static_assert(std::is_same_v<decltype(Roi::x_low), std::uint16_t> && offsetof(Roi, x_low) == 0);
  static_assert(std::is_same_v<decltype(Roi::x_up), std::uint16_t> && offsetof(Roi, x_up) == 2);
  static_assert(std::is_same_v<decltype(Roi::y_low), std::uint16_t> && offsetof(Roi, y_low) == 4);
  static_assert(std::is_same_v<decltype(Roi::y_up), std::uint16_t> && offsetof(Roi, y_up) == 6);
  static_assert(std::is_same_v<decltype(Roi::x_ref), double> && offsetof(Roi, x_ref) == 8);
  static_assert(std::is_same_v<decltype(Roi::y_ref), double> && offsetof(Roi, y_ref) == 16);
  static_assert(std::is_same_v<decltype(Roi::width), std::uint16_t> && offsetof(Roi, width) == 24);
  static_assert(std::is_same_v<decltype(Roi::height), std::uint16_t> && offsetof(Roi, height) == 26);
  static_assert(std::is_same_v<decltype(Roi::n_pixels), std::uint64_t> && offsetof(Roi, n_pixels) == 32);
  static_assert(std::is_same_v<decltype(Roi::x_max), std::uint16_t> && offsetof(Roi, x_max) == 40);
  static_assert(std::is_same_v<decltype(Roi::y_max), std::uint16_t> && offsetof(Roi, y_max) == 42);
  EXPECT_EQ(sizeof(Roi), 48U);
}

TEST(BinaryInterface, HandleTypeFieldsInOrder) {
  static_assert(std::is_same_v<decltype(HandleType::file), fitsfile*>);
  static_assert(std::is_same_v<decltype(HandleType::hdu_type), int>);
  static_assert(std::is_same_v<decltype(HandleType::read_only), bool>);
  static_assert(std::is_same_v<decltype(HandleType::extension), std::string>);
  static_assert(offsetof(HandleType, file) == 0 && offsetof(HandleType, hdu_type) == 8 &&
                offsetof(HandleType, read_only) == 12 && offsetof(HandleType, extension) == 16);
  static_assert(std::is_same_v<Handle, std::unique_ptr<HandleType, void (*)(HandleType*)>>);
  EXPECT_EQ(sizeof(HandleType), 48U);
  EXPECT_EQ(sizeof(Handle), 16U);
}

/// Names the protected members; never constructed.
struct Members : quen::shssim::ShsSimulator {
  template <auto member>
  static std::size_t Offset() {
    std::ptrdiff_t offset = -1;  // a pointer to a data member holds its offset
    const auto pointer = member;
    static_assert(sizeof(pointer) == sizeof(offset));
    std::memcpy(&offset, &pointer, sizeof(offset));
    return static_cast<std::size_t>(offset);
  }
  static std::vector<std::size_t> Offsets() {
    static_assert(std::is_same_v<decltype(m2s), Doubles> && std::is_same_v<decltype(cm), Doubles>);
    static_assert(std::is_same_v<decltype(rois), std::vector<Roi>>);
    static_assert(std::is_same_v<decltype(rois_used), std::vector<std::uint8_t>>);
    static_assert(std::is_same_v<decltype(frame_values), Doubles>);
    static_assert(std::is_same_v<decltype(frame), std::vector<std::uint16_t>>);
    static_assert(std::is_same_v<decltype(flux_used), Doubles> && std::is_same_v<decltype(slopes), Doubles> &&
                  std::is_same_v<decltype(flux), Doubles> && std::is_same_v<decltype(x_slopes), Doubles> &&
                  std::is_same_v<decltype(x_slopes_used), Doubles> && std::is_same_v<decltype(y_slopes), Doubles> &&
                  std::is_same_v<decltype(y_slopes_used), Doubles>);
    return {Offset<&Members::m2s>(),           Offset<&Members::cm>(),
            Offset<&Members::rois>(),          Offset<&Members::rois_used>(),
            Offset<&Members::frame_values>(),  Offset<&Members::frame>(),
            Offset<&Members::flux_used>(),     Offset<&Members::slopes>(),
            Offset<&Members::flux>(),          Offset<&Members::x_slopes>(),
            Offset<&Members::x_slopes_used>(), Offset<&Members::y_slopes>(),
            Offset<&Members::y_slopes_used>()};
  }
};

TEST(BinaryInterface, SimulatorMembersInOrderAndNoOthers) {
  const std::vector<std::size_t> offsets = Members::Offsets();
  constexpr std::size_t kVector = sizeof(Doubles);
  ASSERT_EQ(offsets.size(), 13U);
  for (std::size_t k = 0; k < offsets.size(); ++k) EXPECT_EQ(offsets[k], k * kVector) << k;
  EXPECT_EQ(sizeof(quen::basesim::BaseSimulator), 4 * kVector);
  EXPECT_EQ(sizeof(quen::shssim::ShsSimulator), 13 * kVector);
}

class Engine : public Centroiding<std::uint16_t> {
 public:
  explicit Engine(bool& destroyed) : destroyed_(destroyed) {}
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;
  Engine(Engine&&) = delete;
  Engine& operator=(Engine&&) = delete;
  ~Engine() override { destroyed_ = true; }
  void Compute(gsl::span<const std::uint16_t> frame, const Roi& roi) override {
    x = static_cast<double>(frame.size());
    y = roi.x_ref;
  }

 private:
  bool& destroyed_;
};

// NOLINTBEGIN(cppcoreguidelines-pro-type-reinterpret-cast,cppcoreguidelines-owning-memory): looks at the memory itself.
TEST(BinaryInterface, CentroidingSlotsInOrder) {
  // The virtual table: complete and deleting destructor, then Compute.
  bool destroyed = false;
  auto* const engine = new Engine(destroyed);
  Centroiding<std::uint16_t>* const base = engine;
  void** table = nullptr;
  std::memcpy(&table, static_cast<const void*>(base), sizeof(table));
  using ComputeFunction = void (*)(Centroiding<std::uint16_t>*, gsl::span<const std::uint16_t>, const Roi&);
  using Destructor = void (*)(Centroiding<std::uint16_t>*);
  const std::vector<std::uint16_t> pixels(6);
  reinterpret_cast<ComputeFunction>(table[2])(base, pixels, Roi(0, 1, 0, 1, 2, 3, 0.5, 0));
  EXPECT_EQ(base->x, 6.0);
  EXPECT_EQ(base->y, 0.5);
  reinterpret_cast<Destructor>(table[1])(base);
  EXPECT_TRUE(destroyed);
}

TEST(BinaryInterface, CentroidingResultsInOrder) {
  using Base = Centroiding<std::uint16_t>;
  bool destroyed = false;
  const Engine engine(destroyed);
  const Base& base = engine;
  const auto offset = [&](const double& member) {
    return reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&base);
  };
  EXPECT_EQ(offset(base.flux), 8);
  EXPECT_EQ(offset(base.x), 16);
  EXPECT_EQ(offset(base.y), 24);
  EXPECT_EQ(sizeof(Base), 32U);
}
// NOLINTEND(cppcoreguidelines-pro-type-reinterpret-cast,cppcoreguidelines-owning-memory)

}  // namespace
