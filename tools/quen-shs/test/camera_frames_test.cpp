#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "testing/process.hpp"
#include "testing/python.hpp"
#include "testing/second_reader.hpp"
#include "tools/quen-shs/test/quen_shs.hpp"

// Frames as the software of cameras writes them: of other types, in extensions, compressed, in cubes, on a pedestal.

namespace {

using quen::testing::ColumnsReadByAstropy;
using quen::testing::Outcome;

class CameraFrames : public quen::testing::SensorToolTest {
 protected:
  CameraFrames() {
    Do("frame", "--shape tip:1 --noise 0");
    Measured(File("frame.fits") + " --output " + File("a.fits"));
  }

  /// Makes camera.fits of `d`, the pixels of frame.fits.
  void MakeCamera(const std::string& python) {
    const Outcome made = quen::testing::RunPython("from astropy.io import fits; import numpy; d = fits.getdata(\"" +
                                                  File("frame.fits") + "\").astype(numpy.int32); " + python +
                                                  ".writeto(\"" + File("camera.fits") + "\", overwrite=True)");
    ASSERT_EQ(made.exit_code, 0) << made.err;
  }

  /// What "quen-shs measure DIR ARGUMENTS" prints.
  std::string Measured(const std::string& arguments) { return Do("measure", arguments); }

  void ExpectRefusal(const std::string& arguments, int exit_code, const std::string& sentence) {
    ExpectFailure("measure " + folder_.Path() + " " + arguments, exit_code, sentence);
  }

  /// Largest difference of the displacements in a.fits and b.fits.
  [[nodiscard]] double LargestDifference() const {
    const auto a = ColumnsReadByAstropy(File("a.fits"), "slopes", {"x", "y"});
    const auto b = ColumnsReadByAstropy(File("b.fits"), "slopes", {"x", "y"});
    double largest = 0.0;
    for (std::size_t axis = 0; axis < 2; ++axis) {
      for (std::size_t i = 0; i < 1089; ++i) largest = std::max(largest, std::abs(a[axis].at(i) - b[axis].at(i)));
    }
    return largest;
  }
};

TEST_F(CameraFrames, OfAllUnsigned16Bits) {
  MakeCamera("fits.PrimaryHDU((d + 60000).astype(numpy.uint16))");
  const std::string report =
      Measured(File("camera.fits") + " --engine centre-of-gravity:pedestal=60000 --output " + File("b.fits"));
  EXPECT_NE(report.find("pixels                  60000 to 63847, read as unsigned numbers\n"), std::string::npos)
      << report;
  EXPECT_LT(LargestDifference(), 1e-9);
}

TEST_F(CameraFrames, OfAnyTypeInAnyExtension) {
  const std::vector<std::pair<std::string, std::string>> kinds = {
      {"fits.PrimaryHDU(d)", ""},
      {"fits.PrimaryHDU(d.astype(numpy.float32))", ""},
      {"fits.HDUList([fits.PrimaryHDU(), fits.ImageHDU(d.astype(numpy.int16))])", ""},
      {"fits.HDUList([fits.PrimaryHDU(), fits.CompImageHDU(d.astype(numpy.int16))])", ""},
      {"fits.HDUList([fits.PrimaryHDU(d * 0), fits.ImageHDU(d * 0), fits.ImageHDU(d, name=\"SCIENCE\")])",
       " --extension science"},
      {"fits.HDUList([fits.PrimaryHDU(d * 0), fits.ImageHDU(d * 0), fits.ImageHDU(d)])", " --extension 2"}};
  for (const auto& [python, option] : kinds) {
    MakeCamera(python);
    const std::string report = Measured(File("camera.fits") + option + " --output " + File("b.fits"));
    EXPECT_NE(report.find("pixels                  0 to 3847, read as signed numbers\n"), std::string::npos) << report;
    EXPECT_EQ(LargestDifference(), 0.0) << python;
  }
}

TEST_F(CameraFrames, OfACubeHaveATableEach) {
  MakeCamera("fits.PrimaryHDU(numpy.stack([d * 0, d, d[:, ::-1]]).astype(numpy.int16))");
  const std::string report = Measured(File("camera.fits") + " --output " + File("b.fits"));
  EXPECT_NE(report.find("\nframes                  3\n"), std::string::npos) << report;
  EXPECT_NE(report.find(" of 1821 spots"), std::string::npos) << report;
  EXPECT_EQ(quen::testing::ComplaintsOfFitsverify(File("b.fits")), "");
  const Outcome same = quen::testing::RunPython(
      "from astropy.io import fits; a = fits.open(\"" + File("a.fits") + "\"); b = fits.open(\"" + File("b.fits") +
      "\"); print([(h.name, h.ver) for h in b[1:]], (a[\"slopes\"].data == b[\"slopes\", 2].data).all(), "
      "abs(b[\"slopes\", 3].data[\"x\"] - b[\"slopes\", 2].data[\"x\"]).max() > 1)");
  EXPECT_EQ(same.out, "[('rois', 1), ('rois_use', 1), ('slopes', 1), ('slopes', 2), ('slopes', 3)] True True\n")
      << same.err;
}

TEST_F(CameraFrames, OnAPedestalThatAnEngineTakesForLightAreWarnedOf) {
  MakeCamera("fits.PrimaryHDU((d + 200).astype(numpy.uint16))");
  const std::string camera = File("camera.fits");
  EXPECT_NE(Measured(camera).find("\nwarning: pixels between the spots have 200 counts, together 1.1 times the light "
                                  "of the spots, which centre-of-gravity takes for light: give it the option "
                                  "pedestal=200 or subtract=border\n"),
            std::string::npos);
  for (const std::string engine :
       {"centre-of-gravity:pedestal=200", "centre-of-gravity:subtract=border", "centre-of-gravity:background=200",
        "centre-of-gravity:threshold=300", "maximum-likelihood", "brightest", "brightest:fraction=0.1"}) {
    std::string arguments = camera;
    arguments.append(" --engine ").append(engine);
    EXPECT_EQ(Measured(arguments).find("warning"), std::string::npos) << engine;
  }
  EXPECT_EQ(Measured(File("frame.fits")).find("warning"), std::string::npos);
}

TEST_F(CameraFrames, OnAPedestalAreTheSameToTheBrightestPixels) {
  MakeCamera("fits.PrimaryHDU((d + 200).astype(numpy.uint16))");
  Measured(File("frame.fits") + " --engine brightest --output " + File("a.fits"));
  Measured(File("camera.fits") + " --engine brightest --output " + File("b.fits"));
  EXPECT_EQ(LargestDifference(), 0.0);
}

TEST_F(CameraFrames, AreCorrectedForTheMapsOfTheCamera) {
  const auto map = [&](const std::string& name) { return "fits.writeto(\"" + File(name) + "\", "; };
  MakeCamera("y, x = numpy.indices(d.shape); dark = (7 * x + 3 * y) % 50; flat = 1.0 + (x // 4 + y // 6) % 2; " +
             map("dark.fits") + "dark); " + map("flat.fits") +
             "flat); fits.PrimaryHDU((d * flat + dark).astype(numpy.int16))");
  const std::string maps = " --dark-map " + File("dark.fits") + " --flat-map " + File("flat.fits");
  const std::string to_b = " --output " + File("b.fits");
  Measured(File("camera.fits") + maps + to_b);
  EXPECT_EQ(LargestDifference(), 0.0);
  Measured(File("camera.fits") + " --dark-map " + File("dark.fits") + to_b);
  EXPECT_GT(LargestDifference(), 1e-3);

  constexpr double kDarkNeighbours = 0.01;  // pixels, by those that are not quite dark
  MakeCamera("y, x = numpy.indices(d.shape); hot = (d == 0) & ((31 * x + 17 * y) % 97 == 0); " + map("bad.fits") +
             "hot.astype(numpy.uint8)); fits.PrimaryHDU((d + 9000 * hot).astype(numpy.int16))");
  Measured(File("camera.fits") + " --bad-pixels " + File("bad.fits") + to_b);
  EXPECT_LT(LargestDifference(), kDarkNeighbours);
  Measured(File("camera.fits") + to_b);
  EXPECT_GT(LargestDifference(), 1.0);
}

TEST_F(CameraFrames, MapsAndTemplatesMayBeInExtensionsAndCompressed) {
  const std::string frame = File("frame.fits");
  const std::string camera = File("camera.fits");
  const std::string to_b = " --output " + File("b.fits");
  const std::string dark = "y, x = numpy.indices(d.shape); dark = (7 * x + 3 * y) % 50; ";
  MakeCamera(dark + "fits.PrimaryHDU(dark)");
  Measured(frame + " --dark-map " + camera + " --output " + File("a.fits"));
  const std::string with_dark_map = frame + " --dark-map " + camera + to_b;
  const std::string table = "fits.BinTableHDU.from_columns([fits.Column(\"a\", \"I\", array=[1])])";
  for (const std::string& hdus :
       {std::string("fits.ImageHDU(dark)"), std::string("fits.CompImageHDU(dark.astype(numpy.int16))"),
        "fits.ImageHDU(d[1:]), " + table + ", fits.ImageHDU(dark)"}) {
    MakeCamera(fmt::format("{}fits.HDUList([fits.PrimaryHDU(), {}])", dark, hdus));
    Measured(with_dark_map);
    EXPECT_EQ(LargestDifference(), 0.0) << hdus;
  }
  const std::string of_sensor = "quen-shs: " + camera + ": expected a map of 840 x 816 pixels (columns x rows), found ";
  MakeCamera("fits.HDUList([fits.PrimaryHDU(), fits.ImageHDU(d[1:]), " + table + ", fits.ImageHDU(d[0])])");
  ExpectRefusal(frame + " --bad-pixels " + camera, 1,
                of_sensor + "840 x 815 in extension 1, a table in extension 2, an image of 1 axes in extension 3");
  MakeCamera("fits.HDUList([fits.PrimaryHDU(), fits.ImageHDU(d), fits.ImageHDU(d)])");
  ExpectRefusal(frame + " --flat-map " + camera, 1,
                "quen-shs: " + camera +
                    ": expected only one image that is a map of 840 x 816 pixels (columns x rows), found 840 x 816 in "
                    "extension 1, "
                    "840 x 816 in extension 2");
  MakeCamera("fits.PrimaryHDU()");
  ExpectRefusal(frame + " --flat-map " + camera, 1, of_sensor + "an image of 0 axes");

  const std::string correlation = frame + " --engine correlation --template " + camera;
  MakeCamera("fits.PrimaryHDU(numpy.eye(5)[:, ::-1])");
  Measured(correlation + " --output " + File("a.fits"));
  MakeCamera("fits.HDUList([fits.PrimaryHDU(), fits.ImageHDU(d), fits.ImageHDU(numpy.eye(5)[:, ::-1])])");
  Measured(correlation + to_b);
  EXPECT_EQ(LargestDifference(), 0.0);
  MakeCamera("fits.HDUList([fits.PrimaryHDU(), fits.ImageHDU(d)])");
  ExpectRefusal(correlation, 1,
                "quen-shs: " + camera +
                    ": expected a template of equal, odd sides from 3 to 63 pixels, found 840 x 816 in extension 1");
}

TEST_F(CameraFrames, PixelsWithoutAValueAreBadOnes) {
  const std::string hot = "y, x = numpy.indices(d.shape); hot = (31 * x + 17 * y) % 97 == 0; ";
  MakeCamera(hot + "fits.writeto(\"" + File("bad.fits") + "\", hot.astype(numpy.uint8)); fits.PrimaryHDU(d)");
  const std::string correlation = " --engine correlation --template-from " + File("camera.fits");
  const std::string bad =
      Measured(File("camera.fits") + " --bad-pixels " + File("bad.fits") + correlation + " --output " + File("a.fits"));
  EXPECT_EQ(bad.find("value"), std::string::npos) << bad;
  const std::string of_blanks = hot + "h = {}; h.header[\"BLANK\"] = -9; h";
  for (const std::string hdu :
       {"fits.PrimaryHDU(numpy.where(hot, -9, d).astype(numpy.int16))", "fits.PrimaryHDU(numpy.where(hot, -9, d))",
        "fits.CompImageHDU(numpy.where(hot, -9, d).astype(numpy.int16))"}) {
    MakeCamera(fmt::format(fmt::runtime(of_blanks), hdu));
    const std::string told = Measured(File("camera.fits") + correlation + " --output " + File("b.fits"));
    EXPECT_NE(told.find("\nwarning: 7066 pixels have no value, and are taken for bad ones\n"), std::string::npos)
        << told;
    EXPECT_NE(told.find("\npixels                  0 to 3847, read as signed numbers\n"), std::string::npos) << told;
    EXPECT_EQ(LargestDifference(), 0.0) << hdu;
  }
  MakeCamera(hot + "fits.PrimaryHDU(numpy.where(hot, numpy.nan, d))");
  const std::string json = Measured(File("camera.fits") + correlation + " --json --output " + File("b.fits"));
  EXPECT_NE(json.find("\"blank_pixels\": 7066,"), std::string::npos) << json;
  EXPECT_EQ(LargestDifference(), 0.0);
  MakeCamera(hot + "fits.PrimaryHDU(numpy.stack([d, numpy.where(hot, numpy.nan, d), d]))");
  Measured(File("camera.fits") + " --output " + File("b.fits"));
  const Outcome of_cube = quen::testing::RunPython(
      "from astropy.io import fits; b = fits.open(\"" + File("b.fits") +
      "\"); x = [b[\"slopes\", k].data[\"x\"] for k in (1, 2, 3)]; print((x[0] == x[2]).all(), (x[0] == x[1]).all())");
  EXPECT_EQ(of_cube.out, "True False\n") << of_cube.err;
  MakeCamera("fits.PrimaryHDU(d * numpy.nan)");
  ExpectRefusal(File("camera.fits"), 1,
                "quen-shs: " + File("camera.fits") + ": expected pixels with values, found none");
}

TEST_F(CameraFrames, OnAPedestalThatTheDarkMapTakesAwayAreNotWarnedOf) {
  MakeCamera("fits.writeto(\"" + File("dark.fits") +
             "\", d * 0 + 200); fits.PrimaryHDU((d + 200).astype(numpy.int16))");
  EXPECT_EQ(Measured(File("camera.fits") + " --dark-map " + File("dark.fits")).find("warning"), std::string::npos);
}

TEST_F(CameraFrames, GiveASpotOfTheirOwnWithoutTheirBadPixels) {
  constexpr double kAsGood = 0.02;  // pixels, almost as a template without hot pixels
  Measured(File("frame.fits") + " --engine correlation --output " + File("a.fits"));
  MakeCamera("y, x = numpy.indices(d.shape); hot = (31 * x + 17 * y) % 197 == 0; fits.writeto(\"" + File("bad.fits") +
             "\", hot.astype(numpy.uint8)); fits.PrimaryHDU(numpy.where(hot, 9000, d).astype(numpy.int16))");
  const std::string with_template = File("frame.fits") + " --engine correlation --template-from " +
                                    File("camera.fits") + " --output " + File("b.fits");
  Measured(with_template + " --bad-pixels " + File("bad.fits"));
  EXPECT_LT(LargestDifference(), kAsGood);
  Measured(with_template);
  EXPECT_GT(LargestDifference(), 5.0 * kAsGood);
}

TEST_F(CameraFrames, PackedByGzipAreReadWhateverTheirNames) {
  const auto pack = [&](const std::string& name) {
    ASSERT_EQ(quen::testing::Run("gzip -nc " + File("camera.fits") + " > " + File(name)).exit_code, 0);
  };
  const std::string frame = File("frame.fits");
  const std::string gz = File("x.fits.gz");
  const std::string to_b = " --output " + File("b.fits");
  MakeCamera("fits.PrimaryHDU(d.astype(numpy.int16))");
  pack("x.fits.gz");
  pack("x");
  for (const std::string& name : {gz, File("x")}) {
    Measured(name + to_b);
    EXPECT_EQ(LargestDifference(), 0.0) << name;
  }
  // Two members, one behind the other, and padding, as tapes have it.
  ASSERT_EQ(quen::testing::Run("(head -c 9999 " + File("camera.fits") + " | gzip; tail -c +10000 " +
                               File("camera.fits") + " | gzip; head -c 512 /dev/zero) > " + gz)
                .exit_code,
            0);
  Measured(gz + to_b);
  EXPECT_EQ(LargestDifference(), 0.0);
  ASSERT_EQ(quen::testing::Run("cat " + gz + " | " QUEN_SHS " measure " + folder_.Path() + " /dev/stdin " + to_b).err,
            "");
  EXPECT_EQ(LargestDifference(), 0.0);
  MakeCamera("fits.HDUList([fits.PrimaryHDU(), fits.CompImageHDU(d.astype(numpy.int16))])");
  pack("x.fits.gz");
  Measured(gz + to_b);
  EXPECT_EQ(LargestDifference(), 0.0);

  MakeCamera("y, x = numpy.indices(d.shape); fits.PrimaryHDU((7 * x + 3 * y) % 50)");
  pack("map.fits.gz");
  Measured(frame + " --dark-map " + File("camera.fits") + " --output " + File("a.fits"));
  Measured(frame + " --dark-map " + File("map.fits.gz") + to_b);
  EXPECT_EQ(LargestDifference(), 0.0);
  MakeCamera("fits.PrimaryHDU(numpy.eye(5)[:, ::-1])");
  pack("spot.fits.gz");
  Measured(frame + " --engine correlation --template " + File("camera.fits") + " --output " + File("a.fits"));
  Measured(frame + " --engine correlation --template " + File("spot.fits.gz") + to_b);
  EXPECT_EQ(LargestDifference(), 0.0);
  ASSERT_EQ(quen::testing::Run("gzip -k " + File("a.fits")).exit_code, 0);
  const std::string errors = Measured(frame + " --engine correlation --template " + File("spot.fits.gz") + " --truth " +
                                      File("a.fits.gz") + to_b);
  EXPECT_NE(errors.find("0.00e+00 RMS, 0.00e+00 worst"), std::string::npos) << errors;
}

TEST_F(CameraFrames, PackedByGzipAndDamagedAreRefused) {
  const std::string gz = File("x.fits.gz");
  const auto make = [&](const std::string& command) {
    ASSERT_EQ(quen::testing::Run("(" + command + ") > " + gz).exit_code, 0);
  };
  make("gzip -c " + File("frame.fits") + " | head -c 9999");
  ExpectRefusal(gz, 1, "quen-shs: " + gz + ": cannot be unpacked to its end; the file may be cut short");
  ExpectFailure("view " + gz, 1, "quen-shs: " + gz + ": cannot be unpacked to its end; the file may be cut short");
  make("printf '\\037\\213'; head -c 9999 " + File("frame.fits"));
  ExpectRefusal(gz, 1, "quen-shs: " + gz + ": begins as files of gzip do, and is none; it may be damaged");
  make("gzip -c " + File("frame.fits") + " | head -c -8; printf abcdefgh");  // another sum and length
  ExpectRefusal(gz, 1, "quen-shs: " + gz + ": begins as files of gzip do, and is none; it may be damaged");
  make("echo no image | gzip");
  ExpectRefusal(gz, 1, "quen-shs: " + gz + ": expected a FITS file, found something else");
  make("gzip < /dev/null");
  ExpectRefusal(gz, 1, "quen-shs: " + gz + ": expected a FITS file, found something else");
  make("head -c 1100000000 /dev/zero | gzip -1");
  ExpectRefusal(gz, 1,
                "quen-shs: " + gz + ": expected 1 GiB at most to be unpacked, found more; unpack it with gunzip");
}

TEST_F(CameraFrames, AreWrittenByGzipWhereTheirNamesSaySo) {
  const std::string gz = File("made.fits.gz");
  Do("frame", "--shape tip:1 --noise 0 --output " + gz + " --png " + File("made.png"));
  const Outcome same = quen::testing::Run("gzip -t " + gz + " && gunzip -c " + gz +
                                          " | " QUEN_PYTHON
                                          " -c 'from astropy.io import fits; import sys, io; d = "
                                          "fits.getdata(io.BytesIO(sys.stdin.buffer.read())); print((d == "
                                          "fits.getdata(\"" +
                                          File("frame.fits") + "\")).all())'");
  EXPECT_EQ(same.out, "True\n") << same.err;
  Measured(gz + " --output " + File("b.fits"));
  EXPECT_EQ(LargestDifference(), 0.0);
  ExpectRefusal(gz + " --output " + gz, 1,
                "quen-shs: cannot write " + gz + ": it is the same file as " + gz +
                    ", which is read; give the output another name");
}

TEST_F(CameraFrames, OfACubeAreDrawnOneByOne) {
  MakeCamera("fits.PrimaryHDU(numpy.stack([d, d * 0, d[:, ::-1]]).astype(numpy.int16))");
  const std::string cube = File("camera.fits");
  const std::string to_png = " --png " + File("p.png");
  EXPECT_NE(Done("view " + cube + to_png).find("plane                   1 of 3\n"), std::string::npos);
  const std::string json = Done("view " + cube + " --json --plane 3" + to_png);
  EXPECT_NE(json.find("\"kind\": \"frame\",\n  \"plane\": 3,\n  \"planes\": 3,"), std::string::npos) << json;
  ExpectFailure("view " + cube + " --plane 4" + to_png, 1,
                "quen-shs: " + cube + ": expected a plane 4 of the cube, found 3 of them");
  ExpectFailure("view " + File("frame.fits") + " --plane 2" + to_png, 1,
                "quen-shs: --plane: expected a cube of frames, found frame in " + File("frame.fits"));

  const auto picture = [&](const std::string& python, const std::string& options) {
    MakeCamera(python);
    Done("view " + cube + options + to_png);
    return quen::testing::Run("cksum < " + File("p.png")).out;
  };
  const std::string one = picture("fits.PrimaryHDU(d[:, ::-1].astype(numpy.int16))", "");
  EXPECT_NE(picture("fits.PrimaryHDU(d.astype(numpy.int16))", ""), one);
  for (const std::string hdus : {"fits.ImageHDU(d[:, ::-1].astype(numpy.int16), name=\"SCI\")",
                                 "fits.CompImageHDU(d[:, ::-1].astype(numpy.int16), name=\"SCI\")"}) {
    const std::string python = fmt::format("fits.HDUList([fits.PrimaryHDU(), {}])", hdus);
    EXPECT_EQ(picture(python, ""), one) << hdus;
    EXPECT_EQ(picture(python, " --extension sci"), one) << hdus;
  }
}

TEST_F(CameraFrames, AtTheCeilingOfTheCameraAreToldOf) {
  MakeCamera("fits.PrimaryHDU(numpy.minimum(d + 100, 3000).astype(numpy.uint16))");
  const std::string camera = File("camera.fits");
  const auto warning = [](const std::string& counts) {
    return "warning: 607 spots have pixels of " + counts +
           " counts, which must be the camera's ceiling, and what is above it is lost: only maximum-likelihood can do "
           "without them, with the option ceiling=" +
           counts + "\n";
  };
  const std::string engine = " --engine maximum-likelihood:pedestal=100";
  EXPECT_NE(Measured(camera + engine).find(warning("3000")), std::string::npos);
  EXPECT_NE(Measured(camera + " --engine brightest").find(warning("3000")), std::string::npos);
  EXPECT_EQ(Measured(camera + engine + ",ceiling=3000").find("warning"), std::string::npos);
  EXPECT_NE(Measured(camera + engine + " --json").find("\"saturated\": {\n    \"spots\": 607,"), std::string::npos);
  // A single pixel of each spot: the most of a converter, or nothing special.
  MakeCamera("fits.PrimaryHDU(numpy.minimum(d + 500, 4095).astype(numpy.uint16))");
  EXPECT_NE(Measured(camera + " --engine brightest").find(warning("4095")), std::string::npos);
  MakeCamera("fits.PrimaryHDU(numpy.minimum(d + 500, 4096).astype(numpy.uint16))");
  EXPECT_EQ(Measured(camera + " --engine brightest").find("ceiling"), std::string::npos);
  // Bad pixels are no spot's, and dim frames have many pixels that are alike.
  MakeCamera("bad = d * 0; bad[300:500:7, 300:500:7] = 1; fits.writeto(\"" + File("bad.fits") +
             "\", bad); fits.PrimaryHDU(numpy.where(bad == 1, 65535, d).astype(numpy.uint16))");
  EXPECT_EQ(Measured(camera + " --engine brightest --bad-pixels " + File("bad.fits")).find("ceiling"),
            std::string::npos);
  EXPECT_NE(Measured(camera + " --engine brightest").find(" counts, which must be the camera's ceiling"),
            std::string::npos);
  MakeCamera("fits.PrimaryHDU((d // 600).astype(numpy.uint16))");
  EXPECT_EQ(Measured(camera + " --engine brightest").find("ceiling"), std::string::npos);
}

TEST_F(CameraFrames, WithHotPixelsThatAreInNoMapAreWarnedOf) {
  // A pixel nine columns from a spot.
  const std::string camera = File("camera.fits");
  const std::string spot =
      "y, x = numpy.unravel_index(numpy.argmax(d[400:424, 210:234]), (24, 24)); y += 400; "
      "x += 210; ";
  MakeCamera(spot +
             "d[y, x - 9 if x > 221 else x + 9] += 2000; bad = d * 0; bad[y, x - 9 if x > 221 else x + 9] = 1; "
             "fits.writeto(\"" +
             File("bad.fits") + "\", bad); fits.PrimaryHDU(d.astype(numpy.int16))");
  const std::string report = Measured(camera);
  EXPECT_NE(report.find("\nwarning: a pixel at column "), std::string::npos) << report;
  EXPECT_NE(report.find(" (from 0) is far from the spot and much brighter than those around it, as hot ones are: name "
                        "it by --bad-pixels\n"),
            std::string::npos)
      << report;
  EXPECT_NE(Measured(camera + " --json").find("\"hot_pixels\": {\n    \"pixels\": 1,\n    \"spots\": 1\n"),
            std::string::npos);
  EXPECT_EQ(Measured(camera + " --bad-pixels " + File("bad.fits")).find("warning"), std::string::npos);
  // What moves from frame to frame is no hot pixel; what stays in most of them is.
  const auto cube = [&](const std::string& pixels) {
    MakeCamera("c = numpy.stack([d, d, d, d]).astype(numpy.int16); " + pixels + "fits.PrimaryHDU(c)");
    return Measured(camera);
  };
  EXPECT_EQ(cube("c[0, 300, 300] += 2000; c[1, 340, 310] += 2000; ").find("warning"), std::string::npos);
  EXPECT_NE(cube("c[:3, 200:600:97, 200:600:97] += 2000; ")
                .find("warning: 22 pixels, the brightest at column 200 and row 200"),
            std::string::npos);
}

TEST_F(CameraFrames, OfNoiseAloneMakeNoTemplate) {
  const std::string camera = File("camera.fits");
  const std::string with_template = File("frame.fits") + " --engine correlation --template-from " + camera;
  const std::string random = "r = numpy.random.default_rng(5); ";
  for (const std::string noise : {"r.normal(200, 5, d.shape)", "r.poisson(3, d.shape)", "r.uniform(-10, 10, d.shape)",
                                  "numpy.stack([r.normal(100, 20, d.shape) for k in range(4)])",
                                  "r.poisson(0.01, d.shape)", "r.poisson(0.0005, d.shape)"}) {
    MakeCamera(fmt::format("{}fits.PrimaryHDU(numpy.rint({}).astype(numpy.int16))", random, noise));
    const Outcome outcome = quen::testing::QuenShs("measure " + folder_.Path() + " " + with_template);
    EXPECT_EQ(outcome.exit_code, 1) << noise << outcome.out;
    EXPECT_EQ(outcome.err.find("quen-shs: " + camera +
                               ": expected spots that stand out of the noise, to make a template of, at least 2 times "
                               "as bright as the same pixels at random, found "),
              0U)
        << noise << outcome.err;
  }
  // Of dim spots, 500 electrons each, there is one.
  MakeCamera(random +
             "fits.PrimaryHDU(numpy.rint(r.poisson(d * 500 / 102944) + r.normal(100, 3, d.shape)).astype(int))");
  Measured(with_template);
  // And of photons alone, 10 a spot.
  MakeCamera(random + "fits.PrimaryHDU(r.poisson(d * 10 / 102944).astype(int))");
  Measured(with_template);
}

TEST_F(CameraFrames, WithoutLightAreTold) {
  MakeCamera("fits.PrimaryHDU((d * 0).astype(numpy.int16))");
  const std::string dark = File("camera.fits");
  EXPECT_NE(Measured(dark).find("\nwarning: 607 of 607 spots are without light\n"), std::string::npos);
  EXPECT_EQ(Measured(File("frame.fits")).find("without light"), std::string::npos);
  const std::string truth = " --truth " + File("a.fits");
  const std::string lost = Measured(dark + " --json --engine maximum-likelihood" + truth);
  EXPECT_NE(lost.find("\"error_x\": {\n    \"bias\": null,\n    \"rms\": null,\n    \"worst\": null\n  }"),
            std::string::npos)
      << lost;
  EXPECT_NE(Measured(dark + " --engine maximum-likelihood" + truth).find("\nerror x                 none\n"),
            std::string::npos);
}

TEST_F(CameraFrames, MapsThatAreNoneAreRefused) {
  MakeCamera("d = d * 1.0; d[3, 2] = -1; fits.PrimaryHDU(d)");
  const std::string frame = File("frame.fits");
  const std::string camera = File("camera.fits");
  ExpectRefusal(frame + " --flat-map " + camera, 1,
                "quen-shs: " + camera + ": expected a map of numbers from 0 to 1000, found -1 at column 2, row 3");
  MakeCamera("d = d * 1.0; d[3, 2] = numpy.nan; fits.PrimaryHDU(d)");
  ExpectRefusal(
      frame + " --dark-map " + camera, 1,
      "quen-shs: " + camera + ": expected a map of numbers from -65535 to 65535, found nan at column 2, row 3");
  MakeCamera("fits.PrimaryHDU(d[1:])");
  ExpectRefusal(frame + " --bad-pixels " + camera, 1,
                "quen-shs: " + camera + ": expected a map of 840 x 816 pixels (columns x rows), found 840 x 815");
  ExpectRefusal(frame + " --bad-pixels " + File("none.fits"), 1,
                "quen-shs: " + File("none.fits") + ": cannot be read: No such file or directory");
  MakeCamera("fits.PrimaryHDU(d * 0 + 1)");
  ExpectRefusal(frame + " --bad-pixels " + camera, 1,
                "quen-shs: " + camera + ": expected 0 for good pixels and other numbers for bad ones, found no 0");
  MakeCamera("fits.PrimaryHDU(d * 0)");
  ExpectRefusal(frame + " --bad-pixels " + camera + " --output " + camera, 1,
                "quen-shs: cannot write " + camera + ": it is the same file as " + camera +
                    ", which is read; give the output another name");
}

TEST_F(CameraFrames, AreMeasuredWithASpotOfTheirOwn) {
  constexpr double kMean = 2e-3;  // pixels, of a template that is the mean of the frame's own spots
  const std::string frame = File("frame.fits");
  Measured(frame + " --engine correlation --output " + File("a.fits"));
  MakeCamera(
      "x, y = numpy.meshgrid(numpy.arange(21) - 10, numpy.arange(21) - 10); "
      "fits.PrimaryHDU(numpy.exp(-(x * x + y * y) / 8))");
  Measured(frame + " --engine correlation --template " + File("camera.fits") + " --output " + File("b.fits"));
  EXPECT_LT(LargestDifference(), 1e-12);
  Measured(frame + " --engine correlation --template-from " + frame + " --output " + File("b.fits"));
  EXPECT_LT(LargestDifference(), kMean);
  MakeCamera("fits.PrimaryHDU(numpy.eye(3)[:, ::-1])");
  Measured(frame + " --engine correlation --template " + File("camera.fits") + " --output " + File("b.fits"));
  EXPECT_GT(LargestDifference(), kMean);
}

TEST_F(CameraFrames, TemplatesThatAreNoneAreRefused) {
  const std::string camera = File("camera.fits");
  const std::string with = File("frame.fits") + " --engine correlation --template " + camera;
  const std::string expected =
      "quen-shs: " + camera + ": expected a template of equal, odd sides from 3 to 63 pixels, found ";
  MakeCamera("fits.PrimaryHDU(numpy.ones((4, 4)))");
  ExpectRefusal(with, 1, expected + "4 x 4");
  MakeCamera("fits.PrimaryHDU(numpy.ones((3, 5)))");
  ExpectRefusal(with, 1, expected + "5 x 3");
  MakeCamera("fits.PrimaryHDU(numpy.ones((65, 65)))");
  ExpectRefusal(with, 1, expected + "65 x 65");
  MakeCamera("fits.PrimaryHDU(numpy.ones((2, 3, 3)))");
  ExpectRefusal(with, 1, expected + "an image of 3 axes");
  MakeCamera("fits.PrimaryHDU(numpy.zeros((3, 3)))");
  ExpectRefusal(with, 1, "quen-shs: " + camera + ": expected the picture of a spot as a template, found zeros only");
  MakeCamera("fits.PrimaryHDU(numpy.diag([1, numpy.nan, 1]))");
  ExpectRefusal(with, 1,
                "quen-shs: " + camera + ": expected finite numbers in a template, found nan at column 1, row 1");
  MakeCamera("fits.PrimaryHDU(numpy.ones((3, 3)))");
  ExpectRefusal(File("frame.fits") + " --engine correlation:size=5 --template " + camera, 1,
                "quen-shs: correlation: size: expected none beside a template, found 5");
  ExpectRefusal(File("frame.fits") + " --template-from " + File("frame.fits"), 1,
                "quen-shs: --template-from: expected --engine correlation, which looks for a template, found "
                "centre-of-gravity");
  ExpectRefusal(with + " --output " + camera, 1,
                "quen-shs: cannot write " + camera + ": it is the same file as " + camera +
                    ", which is read; give the output another name");
}

TEST_F(CameraFrames, ExtensionsAreNamedByNothingButTheirNames) {
  MakeCamera(
      "fits.HDUList([fits.PrimaryHDU(), fits.ImageHDU(d.astype(numpy.int16), name=\"A\"), "
      "fits.ImageHDU(d.astype(numpy.int16), name=\"B][pix X*0\"), fits.ImageHDU(d.astype(numpy.int16))])");
  const std::string camera = File("camera.fits");
  for (const std::string literal : {"a", "B][pix X*0", "3", "01"}) {
    Measured(fmt::format("{} --output {} --extension '{}'", camera, File("b.fits"), literal));
    EXPECT_EQ(LargestDifference(), 0.0) << literal;
  }
  for (const std::string wrong : {"-*,*", "A][*,-*", "1][pix X+500", "*", "A,2,I", "-1", "+1", "1.5", "SCI"}) {
    ExpectRefusal(fmt::format("{} --extension='{}'", camera, wrong), 1,
                  fmt::format("quen-shs: {}: expected an extension named {}, found A, B][PIX X*0, 3 without a name",
                              camera, wrong));
  }
  for (const std::string wrong : {"4", "99999999999999999999"}) {
    ExpectRefusal(fmt::format("{} --extension {}", camera, wrong), 1,
                  fmt::format("quen-shs: {}: expected an extension of the number {}, found 3 of them", camera, wrong));
  }
}

TEST_F(CameraFrames, OfADamagedHeaderAreRefusedInOurWords) {
  const auto damage = [&](const std::string& file, const std::string& from, const std::string& to) {
    std::string command = "LC_ALL=C sed 's/" + from;
    command.append("/").append(to).append("/' ").append(File(file)).append(" > ").append(File("camera.fits"));
    ASSERT_EQ(quen::testing::Run(command).exit_code, 0);
  };
  const std::string camera = File("camera.fits");
  const std::string sentence = "quen-shs: " + camera + ": a header in it cannot be understood; the file may be damaged";
  damage("frame.fits", "^SIMPLE  =                    T", "SIMPLE  =                    7");
  ExpectRefusal(camera, 1, sentence);
  damage("frame.fits", "NAXIS1  =                  840", "NAXIS1  =                  8x0");
  ExpectRefusal(camera, 1, sentence);
  damage("a.fits", "TFIELDS =                    3", "TFIELDS =                   -3");
  ExpectFailure("view " + camera, 1, sentence);
  ExpectRefusal(File("frame.fits") + " --truth " + camera, 1, sentence);
}

TEST_F(CameraFrames, ThatAreNoneAreRefused) {
  const std::string camera = File("camera.fits");
  MakeCamera(
      "fits.HDUList([fits.PrimaryHDU(), fits.BinTableHDU.from_columns([fits.Column(\"a\", \"I\", array=[1])])])");
  ExpectRefusal(camera, 1,
                "quen-shs: " + camera + ": expected an image, found a table; name the extension of the image");
  ExpectRefusal(camera + " --extension ''", 2,
                "--extension: expected a name or a number, found none\nRun with --help for more information.");
  MakeCamera("fits.PrimaryHDU(numpy.zeros((1, 3, 3)))");
  ExpectRefusal(camera, 1,
                "quen-shs: " + camera + ": expected a frame of 840 x 816 pixels (columns x rows), found 3 x 3");
  MakeCamera("fits.PrimaryHDU(numpy.zeros((0, 816, 840)))");
  ExpectRefusal(camera, 1, "quen-shs: " + camera + ": expected frames, found a cube of none");
  MakeCamera("fits.PrimaryHDU(d + 0.5)");
  ExpectRefusal(camera, 1,
                "quen-shs: " + camera +
                    ": expected pixels that are whole numbers from -32768 to 32767, found 0.5 at column 0, row 0");
}

}  // namespace
