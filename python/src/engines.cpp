#include "python/src/engines.hpp"

#include <pybind11/stl.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "centroiders/brightest_pixels.hpp"
#include "centroiders/centre_of_gravity.hpp"
#include "centroiders/correlation.hpp"
#include "centroiders/gaussian_fit.hpp"
#include "centroiders/light_engine.hpp"
#include "centroiders/maximum_likelihood_fit.hpp"
#include "centroiders/quad_cell.hpp"
#include "centroiders/weighted_centre_of_gravity.hpp"
#include "centroiders/windowed_centre_of_gravity.hpp"
#include "python/src/arrays.hpp"
#include "python/src/guards.hpp"
#include "workbench/sensor/dimensions.hpp"

namespace quen::python {
namespace {

using namespace quen::centroiders;  // NOLINT(google-build-using-namespace): all engines
using image_processing::Roi;

template <typename Made, typename... Arguments>
std::unique_ptr<ReadyEngine> Ready(Arguments&&... arguments) {
  return std::make_unique<ReadyEngine>(std::make_unique<Made>(std::forward<Arguments>(arguments)...));
}

/// What a word stands for.
/// @throws py::value_error  it is none of these
template <typename Choice>
Choice ByWord(const std::string& name, const std::string& word,
              const std::vector<std::pair<std::string, Choice>>& choices) {
  std::string expected;
  for (const auto& [known, choice] : choices) {
    if (known == word) return choice;
    expected.append(expected.empty() ? "'" : ", '").append(known).append("'");
  }
  throw py::value_error(name + ": expected one of " + expected + ", found '" + word + "'");
}

PixelReading Reading(const std::string& pixels, double pedestal, std::optional<double> ceiling,
                     const py::object& dark_map, const py::object& flat_map, const py::object& bad_pixels) {
  PixelReading reading = {
      .sign = ByWord<PixelSign>("pixels", pixels, {{"signed", PixelSign::kSigned}, {"unsigned", PixelSign::kUnsigned}}),
      .pedestal = pedestal,
      .ceiling = ceiling,
      .dark_map = MapOf(dark_map, "dark_map"),
      .flat_map = MapOf(flat_map, "flat_map")};
  if (!bad_pixels.is_none()) {
    const auto bad = Input<std::uint8_t>(bad_pixels, "bad_pixels", FrameShape());
    reading.bad_pixels.assign(bad.data(), bad.data() + bad.size());
  }
  return reading;
}

/// None where there is no such attribute. What else goes wrong, Ctrl-C in a property's code for instance, comes
/// through.
py::object AttributeOf(const py::object& object, const py::handle& name) {
  if (PyObject* const found = PyObject_GetAttr(object.ptr(), name.ptr()); found != nullptr) {
    return py::reinterpret_steal<py::object>(found);
  }
  if (PyErr_ExceptionMatches(PyExc_AttributeError) == 0) throw py::error_already_set();
  PyErr_Clear();
  return py::none();
}

/// Measures a region of a frame of any size.
py::tuple Compute(ReadyEngine& ready, const py::object& frame, const py::object& region) {
  if (!py::isinstance<Roi>(region)) {
    throw py::type_error("roi: expected a Roi, found " + std::string(py::repr(region)));
  }
  const Roi& roi = region.cast<const Roi&>();
  const Shape shape = {roi.y_max, roi.x_max};
  const auto pixels = Input<std::uint16_t>(frame, "frame", shape);
  if (ready.has_maps && shape != FrameShape()) {
    throw py::value_error("frame: expected one of 816 rows and 840 columns, as the engine's maps have, found another");
  }
  const InUse in_use(ready.is_in_use, "engine");
  ready.engine->Compute(In(pixels), roi);
  return py::make_tuple(ready.engine->flux, ready.engine->x, ready.engine->y);
}

bool HasMaps(const PixelReading& reading) {
  return !reading.dark_map.empty() || !reading.flat_map.empty() || !reading.bad_pixels.empty();
}

/// By the checks of the package's own half.
Roi MadeRoi(const py::object& x_low, const py::object& x_up, const py::object& y_low, const py::object& y_up,
            const py::object& x_max, const py::object& y_max, const py::object& x_ref, const py::object& y_ref) {
  const py::module_ checks = py::module_::import("quen_shs._records");
  const auto pixel = [&](const char* name, const py::object& value) {
    return checks.attr("whole")(name, value, 0, std::numeric_limits<std::uint16_t>::max()).cast<std::uint16_t>();
  };
  const auto place = [&](const char* name, const py::object& value) {
    return checks.attr("number")(name, value).cast<double>();
  };
  return {pixel("x_low", x_low), pixel("x_up", x_up),   pixel("y_low", y_low), pixel("y_up", y_up),
          pixel("x_max", x_max), pixel("y_max", y_max), place("x_ref", x_ref), place("y_ref", y_ref)};
}

std::string Shown(const Roi& roi) {
  const py::str shown("Roi(x_low={}, x_up={}, y_low={}, y_up={}, x_max={}, y_max={}, x_ref={}, y_ref={})");
  return shown.format(roi.x_low, roi.x_up, roi.y_low, roi.y_up, roi.x_max, roi.y_max, roi.x_ref, roi.y_ref);
}

}  // namespace

/// Calls an object's method compute. Takes the interpreter's lock for that.
class EngineInUse::PythonEngine : public Engine {
 public:
  PythonEngine(py::object compute, const py::object& simulator, const std::uint16_t* pixels)
      : compute_(std::move(compute)), pixels_(pixels) {
    if (pixels != nullptr) own_frame_ = View(simulator, pixels, FrameShape());
  }

  void Compute(gsl::span<const std::uint16_t> frame, const Roi& roi) override {
    const py::gil_scoped_acquire lock;
    const py::object result = compute_(FrameOf(frame, roi), roi);
    try {
      std::tie(flux, x, y) = result.cast<std::tuple<double, double, double>>();
    } catch (const py::cast_error&) {
      throw py::type_error("compute: expected (flux, x, y), found " + std::string(py::repr(result)));
    }
  }

 private:
  /// What Python may keep: the simulator's own frame, or a copy of the region of one that goes by.
  py::array FrameOf(gsl::span<const std::uint16_t> frame, const Roi& roi) {
    if (frame.data() == pixels_) return own_frame_;
    if (!copy_) copy_.emplace(Shape{roi.y_max, roi.x_max});
    std::uint16_t* const copied = copy_->pixels.mutable_data();
    for (std::size_t row = roi.y_low; row < roi.y_up; ++row) {
      std::copy_n(frame.data() + row * roi.x_max + roi.x_low, roi.width, copied + row * roi.x_max + roi.x_low);
    }
    return copy_->view;
  }

  struct Copy {
    explicit Copy(const Shape& shape) : pixels(shape), view(View(pixels, pixels.data(), shape)) {}

    py::array_t<std::uint16_t> pixels;
    py::array view;  ///< of these, not writeable
  };

  py::object compute_;
  const std::uint16_t* pixels_;
  py::array own_frame_;
  std::optional<Copy> copy_;
};

EngineInUse::EngineInUse(const py::object& engine, const py::object& simulator, const std::uint16_t* pixels) {
  // Python finds names in what it keeps of a class where they are always the same objects.
  static const py::handle ready_name = PyUnicode_InternFromString("_engine");
  static const py::handle compute_name = PyUnicode_InternFromString("compute");
  // Only a ready-made engine has one by its class: an object that passes every name on to another one has its own
  // compute.
  if (!AttributeOf(py::type::of(engine), ready_name).is_none()) ready_ = AttributeOf(engine, ready_name);
  if (py::isinstance<ReadyEngine>(ready_)) {
    auto& known = ready_.cast<ReadyEngine&>();
    in_use_.emplace(known.is_in_use, "engine");
    engine_ = known.engine.get();
    return;
  }
  const py::object compute = AttributeOf(engine, compute_name);
  if (PyCallable_Check(compute.ptr()) != 0 && py::isinstance<py::type>(engine)) {
    const std::string name = py::str(engine.attr("__name__"));
    throw py::type_error("engine: expected an object with a method compute(frame, roi), found the class " + name +
                         "; write " + name + "()");
  }
  if (PyCallable_Check(compute.ptr()) == 0) {
    throw py::type_error("engine: expected an object with a method compute(frame, roi), found " +
                         std::string(py::repr(engine)));
  }
  own_ = std::make_unique<PythonEngine>(compute, simulator, pixels);
  engine_ = own_.get();
}

EngineInUse::~EngineInUse() = default;

void BindEngines(py::module_& module) {
  py::class_<Roi> region(
      module, "Roi",
      "Region of a sub-aperture: columns x_low to x_up - 1 and rows y_low to y_up - 1 of a frame of x_max columns and "
      "y_max rows, and the reference point (x_ref, y_ref) of its spot, pixels.\n\n"
      "Examples\n--------\n"
      ">>> from quen_shs import CentreOfGravity, Roi\n"
      ">>> roi = Roi(x_low=0, x_up=9, y_low=0, y_up=9, x_max=9, y_max=9, x_ref=4.0, y_ref=4.0)\n"
      ">>> frame = np.zeros((9, 9), np.uint16)\n"
      ">>> frame[5, 4] = 100\n"
      ">>> CentreOfGravity().compute(frame, roi)  # flux, x, y\n"
      "(100.0, 0.0, 1.0)\n");
  DefineReduce(region, [](const Roi& roi) {
    return py::make_tuple(roi.x_low, roi.x_up, roi.y_low, roi.y_up, roi.x_max, roi.y_max, roi.x_ref, roi.y_ref);
  });
  region
      .def(py::init(&MadeRoi), py::arg("x_low"), py::arg("x_up"), py::arg("y_low"), py::arg("y_up"), py::arg("x_max"),
           py::arg("y_max"), py::arg("x_ref"), py::arg("y_ref"))
      .def_readonly("x_low", &Roi::x_low, "First column of the region.")
      .def_readonly("x_up", &Roi::x_up, "Column after its last one.")
      .def_readonly("y_low", &Roi::y_low, "First row of the region.")
      .def_readonly("y_up", &Roi::y_up, "Row after its last one.")
      .def_readonly("x_ref", &Roi::x_ref, "Reference point along the columns, pixels.")
      .def_readonly("y_ref", &Roi::y_ref, "Reference point along the rows, pixels.")
      .def_readonly("x_max", &Roi::x_max, "Columns of the frame.")
      .def_readonly("y_max", &Roi::y_max, "Rows of the frame.")
      .def("__repr__", &Shown);

  py::class_<ReadyEngine> engine(module, "Engine");
  engine.def("compute", &Compute, py::arg("frame"), py::arg("roi"));
  RefusePickling(engine);

  module.attr("spot_fwhm") = kSpotFwhm;
  module.def("centre_of_gravity",
             [](double background, std::optional<double> threshold, const std::string& thresholding) {
               return Ready<CentreOfGravity>(CentreOfGravityConfig{
                   background, threshold,
                   ByWord<Thresholding>("thresholding", thresholding,
                                        {{"subtract", Thresholding::kSubtract}, {"cut", Thresholding::kCut}})});
             });
  module.def("windowed_centre_of_gravity", [](const std::string& around, double half_width) {
    return Ready<WindowedCentreOfGravity>(WindowedCentreOfGravityConfig{
        ByWord<WindowCentre>("around", around,
                             {{"brightest", WindowCentre::kBrightestPixel}, {"reference", WindowCentre::kReference}}),
        half_width});
  });
  module.def("weighted_centre_of_gravity", [](double fwhm, std::optional<double> gain) {
    return Ready<WeightedCentreOfGravity>(WeightedCentreOfGravityConfig{fwhm, gain});
  });
  module.def("brightest_pixels", [](std::optional<std::size_t> number, std::optional<double> fraction) {
    return Ready<BrightestPixels>(BrightestPixelsConfig{number, fraction});
  });
  module.def("quad_cell", [](std::optional<double> gain) { return Ready<QuadCell>(QuadCellConfig{gain}); });
  module.def("correlation", [](std::size_t size, const std::vector<double>& values, const std::string& top) {
    return Ready<Correlation>(
        CorrelationConfig{size, values},
        ByWord<CorrelationTop>("top", top,
                               {{"parabolas", CorrelationTop::kOfParabolas}, {"surface", CorrelationTop::kOfSurface}}));
  });
  module.def("gaussian_fit", [](double fwhm, int steps) { return Ready<GaussianFit>(GaussianFitConfig{fwhm, steps}); });
  module.def("gaussian_template", &GaussianTemplate);

  py::class_<PixelReading> reading(module, "PixelReading");
  reading.def(py::init(&Reading));
  RefusePickling(reading);
  module.def("maximum_likelihood_fit", [](const PixelReading& reading, double gain, double read_noise,
                                          const std::string& shape, double fwhm, const std::string& background_model,
                                          double background, int steps, double tolerance, double significance) {
    return std::make_unique<ReadyEngine>(
        std::make_unique<MaximumLikelihoodFit>(MaximumLikelihoodConfig{
            reading, gain, read_noise,
            ByWord<SpotShape>("shape", shape,
                              {{"given", SpotShape::kGiven}, {"round", SpotShape::kRound}, {"oval", SpotShape::kOval}}),
            fwhm,
            ByWord<SpotBackground>("background_model", background_model,
                                   {{"constant", SpotBackground::kConstant},
                                    {"slope", SpotBackground::kSlope},
                                    {"given", SpotBackground::kGiven}}),
            background, steps, tolerance, significance}),
        HasMaps(reading));
  });
  // Takes the engine out of the object that it is given.
  module.def("light_engine",
             [](const PixelReading& reading, const std::string& background, double quantile, ReadyEngine& inner) {
               if (inner.has_maps) {
                 throw py::value_error(
                     "engine: expected one without maps, for it sees single regions; give the maps to "
                     "the LightEngine");
               }
               return std::make_unique<ReadyEngine>(
                   std::make_unique<LightEngine>(
                       LightConfig{reading,
                                   ByWord<BackgroundEstimate>("background", background,
                                                              {{"none", BackgroundEstimate::kNone},
                                                               {"border-mean", BackgroundEstimate::kBorderMean},
                                                               {"border-median", BackgroundEstimate::kBorderMedian},
                                                               {"quantile", BackgroundEstimate::kQuantile}}),
                                   quantile},
                       std::move(inner.engine)),
                   HasMaps(reading));
             });
}

}  // namespace quen::python
