#include "python/src/campaign.hpp"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "python/src/guards.hpp"
#include "workbench/campaign/campaign.hpp"
#include "workbench/campaign/campaign_folder.hpp"
#include "workbench/campaign/execution.hpp"
#include "workbench/campaign/result_tables.hpp"
#include "workbench/campaign/runner.hpp"

namespace quen::python {
namespace {

/// What a campaign is made of, wherever it is: a name for messages, JSON, the folder from which it looks for files.
using Plan = std::tuple<std::string, std::string, std::string>;

/// Reads what a campaign's runs read, and returns what `make` makes of it while the calibration is in use.
template <typename Make>
auto WithInputs(const Plan& plan, const Make& make) {
  workbench::Campaign campaign = WithValues([&] { return std::apply(&workbench::ParseCampaign, plan); });
  return WithCalibration(campaign.Located(campaign.calibration), [&] {
    const WithoutLock unlocked;
    const FilesInUse in_use;
    const CalibrationEnds ends;
    return make(std::make_unique<workbench::CampaignInputs>(std::move(campaign)));
  });
}

/// The plan that a file has.
Plan ReadPlan(const std::string& path) {
  const workbench::InputFile file = WithFiles([&] {
    const WithoutLock unlocked;
    return workbench::InputFile(path);
  });
  const workbench::Campaign campaign = WithValues([&] { return workbench::ReadCampaign(file); });
  return {path, Written(campaign), campaign.folder};
}

// --- Runs

/// A run, its numbers, and the sentence of its failure.
using RunOutcome = std::tuple<std::uint64_t, std::vector<double>, std::string>;

/// Makes runs, in whatever process.
class CampaignRunner {
 public:
  explicit CampaignRunner(const Plan& plan)
      : loaded_(WithInputs(plan, [](std::unique_ptr<workbench::CampaignInputs> inputs) {
          return std::make_unique<Loaded>(std::move(inputs));
        })) {}

  [[nodiscard]] const std::string& Identity() const { return loaded_->inputs->Identity(); }

  std::vector<RunOutcome> Run(std::uint64_t first, std::uint64_t count) {
    const std::uint64_t runs = loaded_->inputs->Of().Runs();
    if (first > runs || count > runs - first) throw py::value_error("runs: expected some of the campaign's");
    const InUse in_use(is_in_use_, "CampaignRunner");
    JobWatch watch;
    std::mt19937 generator;  // each run seeds it
    std::vector<RunOutcome> results;
    const WithoutLock unlocked;
    const InPlaceOfTheThreads random(generator);
    for (std::uint64_t run = first; run < first + count; ++run) {
      workbench::RunResult result = loaded_->runner.Run(run, std::ref(watch));
      results.emplace_back(run, std::move(result.values), std::move(result.failure));
    }
    return results;
  }

 private:
  struct Loaded {
    explicit Loaded(std::unique_ptr<workbench::CampaignInputs> of) : inputs(std::move(of)), runner(*inputs) {}

    std::unique_ptr<workbench::CampaignInputs> inputs;
    workbench::Runner runner;
  };

  std::unique_ptr<Loaded> loaded_;
  std::atomic_flag is_in_use_ = {};
};

// --- Results

/// Name, unit, values; of texts also their greatest length.
py::tuple AsTuple(const workbench::TableColumn& column) {
  const auto as_array = [](const auto& values) -> py::object {
    using Values = std::remove_cvref_t<decltype(values)>;
    if constexpr (std::is_same_v<Values, std::vector<std::string>>) {
      return py::cast(values);
    } else {
      return py::array_t<typename Values::value_type>(static_cast<py::ssize_t>(values.size()), values.data());
    }
  };
  return py::make_tuple(column.name, column.unit, std::visit(as_array, column.values), column.width);
}

py::list AsList(const std::vector<workbench::TableColumn>& columns) {
  py::list list;
  for (const workbench::TableColumn& column : columns) list.append(AsTuple(column));
  return list;
}

/// The folder of a campaign, in which results are gathered.
class CampaignResults {
 public:
  CampaignResults(const Plan& plan, const std::string& folder, bool retry_failed)
      : inputs_(WithInputs(plan, [](std::unique_ptr<workbench::CampaignInputs> inputs) { return inputs; })),
        folder_(WithFiles([&] {
          const WithoutLock unlocked;
          return workbench::PrepareFolder(folder, *inputs_);
        })),
        work_(WithFiles([&] {
          const WithoutLock unlocked;
          return workbench::WhatIsToDo(folder_, {}, retry_failed);
        })),
        writer_(WithFiles([&] { return workbench::ResultFiles::Writer(folder_.results, {}); })) {}

  [[nodiscard]] const std::string& Identity() const { return inputs_->Identity(); }

  /// The first run and the number of runs of each range.
  [[nodiscard]] std::vector<std::pair<std::uint64_t, std::uint64_t>> ToDo() const {
    std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges;
    for (const auto& [first, count] : work_.ranges) ranges.emplace_back(first, count);
    return ranges;
  }

  void Take(const std::vector<RunOutcome>& results) {
    for (const auto& [run, values, failure] : results) {
      if (run >= inputs_->Of().Runs() || values.size() != inputs_->Of().Rules().results.size()) {
        throw py::value_error("map: expected results of this campaign, found others");
      }
    }
    WithFiles([&] {
      const WithoutLock unlocked;
      for (const auto& [run, values, failure] : results) {
        const auto state = failure.empty() ? workbench::RunState::kDone : workbench::RunState::kFailed;
        writer_.Write(run, {state, values, failure});
      }
    });
  }

  /// The columns of both tables, that of the runs and that of the points.
  py::tuple Tables() {
    const workbench::MergedColumns columns = WithFiles([&] {
      const WithoutLock unlocked;
      writer_.Settle();
      return workbench::MergeColumns(folder_, false);
    });
    return py::make_tuple(AsList(columns.runs), AsList(columns.points));
  }

 private:
  std::unique_ptr<workbench::CampaignInputs> inputs_;
  workbench::CampaignFolder folder_;
  workbench::WorkList work_;
  workbench::ResultFiles::Writer writer_;
};

}  // namespace

void BindCampaign(py::module_& module) {
  py::class_<CampaignRunner> runner(module, "CampaignRunner");
  runner.def(py::init<const Plan&>());
  runner.def_property_readonly("identity", &CampaignRunner::Identity);
  runner.def("run", &CampaignRunner::Run);
  RefusePickling(runner);
  py::class_<CampaignResults> results(module, "CampaignResults");
  results.def(py::init<const Plan&, const std::string&, bool>());
  results.def_property_readonly("identity", &CampaignResults::Identity);
  results.def("to_do", &CampaignResults::ToDo);
  results.def("take", &CampaignResults::Take);
  results.def("tables", &CampaignResults::Tables);
  RefusePickling(results);
  module.def("read_plan", &ReadPlan);
}

}  // namespace quen::python
