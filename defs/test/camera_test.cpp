#include "defs/camera.hpp"

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>
#include <vector>

namespace quen::defs {
namespace {

static_assert(std::is_same_v<std::underlying_type_t<Camera>, std::int32_t>);

TEST(Camera, TableHoldsTheEightNamesInOrder) {
  const std::vector<std::pair<std::string, std::int32_t>> expected = {{"IMG_GP1", 0}, {"IMG_GP2", 1}, {"IMG_GP3", 2},
                                                                      {"IMG_PDS", 3}, {"WFS_GP1", 4}, {"WFS_GP2", 5},
                                                                      {"WFS_GP3", 6}, {"WFS_PDS", 7}};
  std::vector<std::pair<std::string, std::int32_t>> actual;
  actual.reserve(kCameraByName.size());
  for (const auto& [name, camera] : kCameraByName) actual.emplace_back(name, static_cast<std::int32_t>(camera));
  EXPECT_EQ(actual, expected);
}

TEST(Camera, EnumeratorsBearTheirNames) {
  EXPECT_EQ(kCameraByName.at("IMG_PDS"), Camera::IMG_PDS);
  EXPECT_EQ(kCameraByName.at("WFS_GP1"), Camera::WFS_GP1);
}

TEST(Camera, LookUpsAreExact) {
  for (const char* const name : {"img_gp1", "IMG_GP1 ", " IMG_GP1", "IMG_GP4", ""}) {
    EXPECT_EQ(kCameraByName.find(name), kCameraByName.end()) << name;
  }
}

TEST(ModuleNames, AreTheProductsOwn) {
  EXPECT_EQ(kModuleApp, "app");
  EXPECT_EQ(kModulePimSm, "pim.sm");
  EXPECT_EQ(kModulePim, "pim");
}

}  // namespace
}  // namespace quen::defs
