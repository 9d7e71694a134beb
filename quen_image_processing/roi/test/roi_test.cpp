#include "quen_image_processing/roi/roi.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "common/logging/logging.hpp"
#include "testing/exceptions.hpp"
#include "testing/recording_appender.hpp"
#include "testing/values.hpp"

namespace quen::image_processing {
namespace {

using quen::testing::ExpectThrows;
using quen::testing::kNan;
using quen::testing::LogListener;
using quen::testing::Record;

std::string Bounds(const Roi& roi) {
  return "(" + std::to_string(roi.x_low) + ".." + std::to_string(roi.x_up) + "),(" + std::to_string(roi.y_low) + ".." +
         std::to_string(roi.y_up) + ")";
}

void ExpectConsistent(const Roi& roi) {
  EXPECT_EQ(roi.width, roi.x_up - roi.x_low);
  EXPECT_EQ(roi.height, roi.y_up - roi.y_low);
  EXPECT_EQ(roi.n_pixels, std::uint64_t{roi.width} * roi.height);
}

TEST(Roi, WholeFrameIsValid) {
  const Roi roi(0, 840, 0, 816, 840, 816, 420, 408);
  EXPECT_EQ(Bounds(roi), "(0..840),(0..816)");
  EXPECT_EQ(roi.x_ref, 420);
  EXPECT_EQ(roi.y_ref, 408);
  EXPECT_EQ(roi.width, 840);
  EXPECT_EQ(roi.height, 816);
  EXPECT_EQ(roi.n_pixels, 685440U);
  EXPECT_EQ(roi.x_max, 840);
  EXPECT_EQ(roi.y_max, 816);
}

TEST(Roi, EveryArgumentHasItsField) {
  const Roi roi(1, 12, 3, 24, 50, 60, 7.5, 8.25);
  EXPECT_EQ(Bounds(roi), "(1..12),(3..24)");
  EXPECT_EQ(roi.x_max, 50);
  EXPECT_EQ(roi.y_max, 60);
  EXPECT_EQ(roi.x_ref, 7.5);
  EXPECT_EQ(roi.y_ref, 8.25);
  ExpectConsistent(roi);
}

TEST(Roi, EmptyRectanglesAreValid) {
  EXPECT_EQ(Roi(5, 5, 7, 7, 840, 816, 0, 0).n_pixels, 0U);
  EXPECT_EQ(Roi(5, 5, 7, 9, 840, 816, 0, 0).n_pixels, 0U);
  EXPECT_EQ(Roi(0, 0, 0, 0, 0, 0, 0, 0).n_pixels, 0U);
}

TEST(Roi, LargestRectanglesPixelCountDoesNotOverflow) {
  EXPECT_EQ(Roi(0, 65535, 0, 65535, 65535, 65535, 0, 0).n_pixels, 4294836225U);
}

TEST(Roi, BoundsOutOfOrderOrOutsideTheFrameAreRefused) {
  ExpectThrows<std::invalid_argument>("Roi: invalid coordinates: (0..841),(0..10)",
                                      [] { Roi(0, 841, 0, 10, 840, 816, 0, 0); });
  ExpectThrows<std::invalid_argument>("Roi: invalid coordinates: (0..10),(0..817)",
                                      [] { Roi(0, 10, 0, 817, 840, 816, 0, 0); });
  ExpectThrows<std::invalid_argument>("Roi: invalid coordinates: (10..5),(0..20)",
                                      [] { Roi(10, 5, 0, 20, 840, 816, 0, 0); });
  ExpectThrows<std::invalid_argument>("Roi: invalid coordinates: (0..20),(10..5)",
                                      [] { Roi(0, 20, 10, 5, 840, 816, 0, 0); });
  ExpectThrows<std::invalid_argument>("Roi: invalid coordinates: (65535..0),(65535..0)",
                                      [] { Roi(65535, 0, 65535, 0, 65535, 65535, 0, 0); });
}

TEST(Roi, BoundsMayTouchTheFramesEdge) {
  EXPECT_NO_THROW(Roi(840, 840, 816, 816, 840, 816, 0, 0));
  EXPECT_NO_THROW(Roi(839, 840, 815, 816, 840, 816, 0, 0));
}

TEST(Roi, ReferenceOutsideTheFrameIsRefused) {
  ExpectThrows<std::invalid_argument>("Roi: invalid reference point: (-1.000000,12.500000)",
                                      [] { Roi(0, 1, 0, 1, 840, 816, -1, 12.5); });
  ExpectThrows<std::invalid_argument>("Roi: invalid reference point: (12.500000,-0.250000)",
                                      [] { Roi(0, 1, 0, 1, 840, 816, 12.5, -0.25); });
  ExpectThrows<std::invalid_argument>("Roi: invalid reference point: (840.000001,0.000000)",
                                      [] { Roi(0, 1, 0, 1, 840, 816, 840.000001, 0); });
  ExpectThrows<std::invalid_argument>("Roi: invalid reference point: (0.000000,816.000001)",
                                      [] { Roi(0, 1, 0, 1, 840, 816, 0, 816.000001); });
  ExpectThrows<std::invalid_argument>("Roi: invalid reference point: (inf,0.000000)",
                                      [] { Roi(0, 1, 0, 1, 840, 816, std::numeric_limits<double>::infinity(), 0); });
}

TEST(Roi, ReferenceMayBeOnTheLimitsOrOutsideTheRectangle) {
  EXPECT_NO_THROW(Roi(0, 1, 0, 1, 840, 816, 840.0, 816.0));
  EXPECT_NO_THROW(Roi(0, 1, 0, 1, 840, 816, -0.0, -0.0));
  EXPECT_NO_THROW(Roi(0, 1, 0, 1, 840, 816, 400, 300));
}

TEST(Roi, NanReferenceIsAccepted) {
  EXPECT_TRUE(std::isnan(Roi(0, 1, 0, 1, 840, 816, kNan, 0).x_ref));
  EXPECT_TRUE(std::isnan(Roi(0, 1, 0, 1, 840, 816, 0, kNan).y_ref));
  ExpectThrows<std::invalid_argument>("Roi: invalid reference point: (nan,-1.000000)",
                                      [] { Roi(0, 1, 0, 1, 840, 816, kNan, -1); });
}

TEST(Roi, CoordinatesAreReportedBeforeTheReference) {
  ExpectThrows<std::invalid_argument>("Roi: invalid coordinates: (10..5),(0..20)",
                                      [] { Roi(10, 5, 0, 20, 840, 816, -1, -1); });
}

TEST(RoiEnlarge, ClipsAtTheLowSidesAndRecounts) {
  const Roi roi(1, 10, 0, 4, 840, 816, 5.5, 2.5);
  const Roi grown = roi.Enlarge(3);
  EXPECT_EQ(Bounds(grown), "(0..13),(0..7)");
  ExpectConsistent(grown);
  EXPECT_EQ(grown.x_ref, 5.5);
  EXPECT_EQ(grown.y_ref, 2.5);
  EXPECT_EQ(grown.x_max, 840);
  EXPECT_EQ(grown.y_max, 816);
  EXPECT_EQ(Bounds(roi), "(1..10),(0..4)");
}

TEST(RoiEnlarge, ClipsAtTheUpperSides) {
  const Roi grown = Roi(830, 840, 800, 810, 840, 816, 0, 0).Enlarge(100);
  EXPECT_EQ(Bounds(grown), "(730..840),(700..816)");
  ExpectConsistent(grown);
}

TEST(RoiEnlarge, LargestGrowthGivesTheWholeFrameWithoutWrapping) {
  const Roi grown = Roi(5, 6, 7, 8, 840, 816, 0, 0).Enlarge(65535);
  EXPECT_EQ(Bounds(grown), "(0..840),(0..816)");
  EXPECT_EQ(grown.n_pixels, 685440U);
  EXPECT_EQ(Roi(65534, 65535, 1, 2, 65535, 65535, 0, 0).Enlarge(65535).n_pixels, 4294836225U);
}

TEST(RoiEnlarge, ByNothingIsACopy) {
  const Roi roi(1, 10, 2, 4, 840, 816, 5.5, 2.5);
  const Roi copy = roi.Enlarge(0);
  EXPECT_EQ(Bounds(copy), Bounds(roi));
  ExpectConsistent(copy);
}

TEST(RoiLog, RefusalIsRecordedWithItsSource) {
  const LogListener log(common::GetLogger());
  EXPECT_THROW(Roi(10, 5, 0, 20, 840, 816, 0, 0), std::invalid_argument);
  EXPECT_THROW(Roi(0, 1, 0, 1, 840, 816, -1, 12.5), std::invalid_argument);
  ASSERT_EQ(log.Records().size(), 2U);
  EXPECT_EQ(log.Records()[0].message, "Roi: invalid coordinates: (10..5),(0..20)");
  EXPECT_EQ(log.Records()[1].message, "Roi: invalid reference point: (-1.000000,12.500000)");
  for (const Record& record : log.Records()) {
    EXPECT_EQ(record.level, log4cplus::ERROR_LOG_LEVEL);
    EXPECT_EQ(record.file, "../quen_image_processing/roi/src/roi");
    EXPECT_EQ(record.function,
              "quen::image_processing::Roi::Roi(uint16_t, uint16_t, uint16_t, uint16_t, uint16_t, uint16_t, double, "
              "double)");
    EXPECT_GT(record.line, 0);
  }
  EXPECT_LT(log.Records()[0].line, log.Records()[1].line);
}

TEST(RoiLog, NothingIsRecordedWhenErrorIsDisabledAndTheExceptionStays) {
  LogListener log(common::GetLogger());
  log.SetLevel(log4cplus::FATAL_LOG_LEVEL);
  ExpectThrows<std::invalid_argument>("Roi: invalid coordinates: (10..5),(0..20)",
                                      [] { Roi(10, 5, 0, 20, 840, 816, 0, 0); });
  EXPECT_TRUE(log.Records().empty());
}

TEST(RoiLog, ValidRegionsAreNotRecorded) {
  const LogListener log(common::GetLogger());
  EXPECT_EQ(Roi(0, 1, 0, 1, 840, 816, 0, 0).Enlarge(1).n_pixels, 4U);
  EXPECT_TRUE(log.Records().empty());
}

}  // namespace
}  // namespace quen::image_processing
