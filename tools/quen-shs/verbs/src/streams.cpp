#include "tools/quen-shs/verbs/src/streams.hpp"

#include <fmt/format.h>

#include <stdexcept>

#include "workbench/fits/interruption.hpp"

namespace quen::tool {

Argument StreamName(const std::string& name, const std::string& what, std::string& variable) {
  const auto require_name = [](const std::string& text) {
    if (text.empty()) throw std::invalid_argument("expected a name, found an empty one");
  };
  return Checked(name, what, "NAME", require_name, variable);
}

void AddTimes(Report& report, const std::string& key, const workbench::Durations& durations, const std::string& what) {
  if (durations.Count() == 0) return report.Add(key + "_ms", nullptr);
  constexpr double kMilliseconds = 1e3;
  constexpr double kNearlyAll = 0.99;
  const double median = kMilliseconds * durations.Quantile(0.5);
  const double nearly_all = kMilliseconds * durations.Quantile(kNearlyAll);
  const double worst = kMilliseconds * durations.Worst();
  report.Add(key + "_ms", {{"median", median}, {"p99", nearly_all}, {"worst", worst}}, key,
             fmt::format("{:.3f} ms median, {:.3f} 99 %, {:.3f} worst ({})", median, nearly_all, worst, what));
}

std::string EventInWords(workbench::StreamEvent event, const std::string& stream) {
  if (event == workbench::StreamEvent::kMadeAnew) return fmt::format("stream {} was made anew; it is followed", stream);
  return fmt::format("stream {} is gone: its writer has ended, or its file was removed; waiting for another", stream);
}

void PrintEvenIfItFails(const std::function<void()>& job, const std::function<void()>& print) {
  try {
    job();
  } catch (const workbench::Interrupted&) {
    {
      const workbench::Reprieve reprieve;
      print();
    }
    throw workbench::Interrupted("interrupted");
  } catch (const std::runtime_error&) {
    print();
    throw;
  }
  print();
}

}  // namespace quen::tool
