#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "tools/quen-shs/cli/report.hpp"
#include "tools/quen-shs/verbs/src/campaign.hpp"
#include "tools/quen-shs/verbs/src/common_arguments.hpp"
#include "workbench/campaign/campaign_folder.hpp"
#include "workbench/campaign/result_tables.hpp"
#include "workbench/fits/staged_file.hpp"
#include "workbench/pictures/points_picture.hpp"

namespace quen::tool {
namespace {

struct PlotArguments {
  std::string folder;
  std::string x;
  std::string y;
  std::string curve;  ///< axis; all but those of x and panels if empty
  std::string panel;  ///< axis; one panel if empty
  std::string png;    ///< DIR/plot.png if empty
  bool json = false;
};

/// @return  its place among the axes
/// @throws std::runtime_error  there is no such axis
std::size_t AxisNamed(const workbench::Campaign& campaign, const std::string& argument, const std::string& name) {
  const auto axis = std::ranges::find(campaign.axes, name, &workbench::Axis::Name);
  if (axis != campaign.axes.end()) return static_cast<std::size_t>(axis - campaign.axes.begin());
  std::vector<std::string> names;
  for (const workbench::Axis& known : campaign.axes) names.push_back(known.Name());
  throw std::runtime_error(fmt::format("{}: expected one of the axes {}, found {}", argument, fmt::join(names, ", "),
                                       name.empty() ? "none" : name));
}

std::size_t ResultNamed(const workbench::Campaign& campaign, const std::string& name) {
  const std::vector<workbench::ResultColumn>& results = campaign.Rules().results;
  std::vector<std::string> names;
  std::ranges::transform(results, std::back_inserter(names), &workbench::ResultColumn::name);
  const auto result = std::ranges::find(names, name);
  if (result != names.end()) return static_cast<std::size_t>(result - names.begin());
  throw std::runtime_error(fmt::format("--y: expected one of the results {}, found {}", fmt::join(names, ", "),
                                       name.empty() ? "none" : name));
}

/// Sorts the means of points into panels and curves, in the order in which they come.
class Curves {
 public:
  Curves(const workbench::Campaign& campaign, const PlotArguments& command)
      : campaign_(campaign), x_(AxisNamed(campaign, "--x", command.x)), y_(ResultNamed(campaign, command.y)) {
    if (!std::holds_alternative<double>(campaign.axes[x_].At(0))) {
      throw std::runtime_error(fmt::format("--x: expected an axis of numbers, found {}", command.x));
    }
    if (!command.panel.empty()) panel_ = AxisNamed(campaign, "--panel", command.panel);
    if (!command.curve.empty()) order_.push_back(AxisNamed(campaign, "--curve", command.curve));
    for (std::size_t k = 0; k < campaign.axes.size(); ++k) {
      if (k != x_ && panel_ != k && std::ranges::find(order_, k) == order_.end()) order_.push_back(k);
    }
    const std::string unit = campaign.Rules().results[y_].unit;
    title_ = fmt::format("{}{}, mean and its standard error, against {}", command.y, unit.empty() ? "" : " in " + unit,
                         command.x);
  }

  void Add(const workbench::PointSummary& summary) {
    const std::vector<workbench::OptionValue> values = campaign_.ValuesAt(summary.point);
    std::string name;
    for (const std::size_t axis : order_) {
      const bool is_text = std::holds_alternative<std::string>(values[axis]);
      name += (name.empty() ? "" : ", ") + (is_text ? "" : campaign_.axes[axis].Name() + " ") +
              workbench::InWords(values[axis]);
    }
    const std::string title =
        panel_ ? fmt::format("{}; {} {}", title_, campaign_.axes[*panel_].Name(), workbench::InWords(values[*panel_]))
               : title_;
    const auto& [mean, scatter, standard_error] = summary.results[y_];
    CurveOf(title, name).points.push_back({std::get<double>(values[x_]), mean, standard_error});
  }

  [[nodiscard]] const std::vector<workbench::PanelOfCurves>& Panels() const { return panels_; }

 private:
  workbench::CurveOfPoints& CurveOf(const std::string& title, const std::string& name) {
    constexpr std::size_t kMost = 20;
    const auto found = std::ranges::find(panels_, title, &workbench::PanelOfCurves::title);
    auto& curves = (found != panels_.end() ? *found : panels_.emplace_back(workbench::PanelOfCurves{title, {}})).curves;
    const auto curve = std::ranges::find(curves, name, &workbench::CurveOfPoints::name);
    if (curve != curves.end()) return *curve;
    if (panels_.size() > kMost || curves.size() >= kMost) {
      throw std::runtime_error(
          fmt::format("expected {} panels, and {} curves in each, at most; found more", kMost, kMost));
    }
    curves.push_back({name, {}});
    return curves.back();
  }

  const workbench::Campaign& campaign_;
  std::size_t x_;
  std::size_t y_;
  std::optional<std::size_t> panel_;
  std::vector<std::size_t> order_;  ///< axes that name a curve
  std::string title_;
  std::vector<workbench::PanelOfCurves> panels_;
};

void DrawPlot(const PlotArguments& command) {
  const std::string png =
      command.png.empty() ? (std::filesystem::path(command.folder) / "plot.png").string() : command.png;
  workbench::StagedFiles files({png});
  const workbench::CampaignFolder folder = workbench::OpenFolder(command.folder);
  Curves curves(folder.campaign, command);
  workbench::ForEachPoint(folder, [&](const workbench::PointSummary& summary) { curves.Add(summary); });
  files.Give(png, workbench::DrawPoints(curves.Panels()));
  files.Commit();
  Report report;
  report.AddFiles(files);
  report.Print(command.json);
}

}  // namespace

Verb CampaignPlotVerb() {
  const auto command = std::make_shared<PlotArguments>();
  const auto axis = [](const std::string& name, const std::string& what, const std::string& otherwise,
                       std::string& variable) {
    Argument argument = Checked(
        name, what, "AXIS", [](const std::string&) {}, variable);
    argument.otherwise = otherwise;
    return argument;
  };
  Argument result = Checked(
      "--y", "Result whose means are drawn", "RESULT", [](const std::string&) {}, command->y);
  result.otherwise = "must be given";
  return {.name = "plot",
          .summary = "Draw means of a result against an axis",
          .details = R"(
Draws the mean of a result over the repeats of each point, with its standard error, against an axis of numbers. Runs
that have failed, or are missing, do not count. There is a curve for each combination of the axes that are neither along
the picture nor make panels of it.)",
          .examples = {"quen-shs campaign plot gains --x gain --y residual --curve engine --panel delay"},
          .arguments = {CampaignFolder(command->folder),
                        axis("--x", "Axis along the picture", "must be given", command->x), result,
                        axis("--curve", "Axis whose values name the curves first", "the first left", command->curve),
                        axis("--panel", "Axis with a panel for each value", "one panel", command->panel),
                        File("--png", "PNG file", "DIR/plot.png", command->png), JsonFlag(command->json)},
          .action = [command] { DrawPlot(*command); }};
}

}  // namespace quen::tool
