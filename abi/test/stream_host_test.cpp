#include <gtest/gtest.h>

#include <vector>

#include "abi/test/loaded.hpp"
#include "abi/test/offset.hpp"
#include "stream/reader.hpp"
#include "stream/writer.hpp"
#include "testing/environment.hpp"
#include "testing/exceptions.hpp"

// Streams as a host sees them that has frames of its own, and no simulator; and their binary interface: hosts fill in
// the configuration and make room for the two ends. A change there needs a new SOVERSION.

namespace {

using quen::stream::FrameInfo;
using quen::stream::Keyword;
using quen::stream::Reader;
using quen::stream::StreamConfig;
using quen::stream::Writer;
using quen::testing::IsLoaded;
using quen::testing::Offset;

TEST(HostOfStreams, PublishesAndReads) {
  const quen::testing::TempDir folder;
  const quen::testing::ScopedVariable variable("MILK_SHM_DIR", folder.Path());
  Writer writer({.name = "own", .type = quen::stream::PixelType::kDouble, .size = {2}});
  Reader reader("own");
  const std::vector<double> pixels = {1.5, -2.5};
  writer.Publish(gsl::as_bytes(gsl::span(pixels)), quen::stream::Now());
  std::vector<double> read(2);
  FrameInfo info;
  EXPECT_EQ(reader.Wait(0, std::chrono::seconds(10)), 1);
  EXPECT_TRUE(reader.Read(gsl::as_writable_bytes(gsl::span(read)), info));
  EXPECT_EQ(read, pixels);
}

TEST(HostOfStreams, TellsOneThatIsNotThereFromOthers) {
  const quen::testing::TempDir folder;
  const quen::testing::ScopedVariable variable("MILK_SHM_DIR", folder.Path());
  quen::testing::ExpectThrows<quen::stream::NotThere>("there is no stream " + folder / "none.im.shm",
                                                      [] { const Reader reader("none"); });
}

TEST(HostOfStreams, HasNoSimulatorInItsProcess) {
  EXPECT_TRUE(IsLoaded("libquen_stream"));
  EXPECT_FALSE(IsLoaded("libquen_shssim_lib"));
  EXPECT_FALSE(IsLoaded("libcfitsio"));
}

TEST(StreamBinaryInterface, ConfigInOrder) {
  EXPECT_EQ(sizeof(StreamConfig), 88);
  EXPECT_EQ(Offset(&StreamConfig::name), 0);
  EXPECT_EQ(Offset(&StreamConfig::type), 32);
  EXPECT_EQ(Offset(&StreamConfig::size), 40);
  EXPECT_EQ(Offset(&StreamConfig::keywords), 64);
}

TEST(StreamBinaryInterface, KeywordInOrder) {
  EXPECT_EQ(sizeof(Keyword), 104);
  EXPECT_EQ(Offset(&Keyword::name), 0);
  EXPECT_EQ(Offset(&Keyword::value), 32);
  EXPECT_EQ(Offset(&Keyword::comment), 72);
}

TEST(StreamBinaryInterface, FrameInfoInOrder) {
  EXPECT_EQ(sizeof(FrameInfo), 64);
  EXPECT_EQ(Offset(&FrameInfo::count), 0);
  EXPECT_EQ(Offset(&FrameInfo::acquired), 8);
  EXPECT_EQ(Offset(&FrameInfo::written), 24);
  EXPECT_EQ(Offset(&FrameInfo::values), 40);
}

TEST(StreamBinaryInterface, EndsAreOnePointer) {
  EXPECT_EQ(sizeof(Writer), sizeof(void*));
  EXPECT_EQ(sizeof(Reader), sizeof(void*));
}

}  // namespace
