#include "workbench/campaign/campaign_folder.hpp"

#include <fmt/format.h>

#include <filesystem>
#include <stdexcept>
#include <utility>

#include "workbench/campaign/src/document.hpp"
#include "workbench/fits/staged_file.hpp"

namespace quen::workbench {
namespace {

std::string CampaignFileOf(const std::string& folder) {
  return (std::filesystem::path(folder) / "campaign.json").string();
}

ResultFiles ResultsIn(const std::string& folder, const Campaign& campaign, const std::string& identity) {
  return {folder, identity, campaign.Rules().results.size(), campaign.Runs()};
}

/// Where two objects differ first, and how.
std::string Difference(const Document& there, const Document& here, const std::string& where) {
  const auto shown = [](const Document& object, const std::string& key) {
    return object.contains(key) ? object[key].dump() : "none";
  };
  for (const Document* const object : {&there, &here}) {
    for (const auto& [key, value] : object->items()) {
      if (there.contains(key) && here.contains(key) && there[key] == here[key]) continue;
      const bool goes_down =
          there.contains(key) && here.contains(key) && there[key].is_object() && here[key].is_object();
      if (goes_down) return Difference(there[key], here[key], where + key + ".");
      return fmt::format("{}{}: it has {}, this campaign {}", where, key, shown(there, key), shown(here, key));
    }
  }
  return "the order of the axes";
}

struct Stored {
  std::string folder;
  std::string campaign;
  std::string identity;
};

Stored ReadStored(const std::string& path) {
  try {
    const Document document = Document::parse(InputFile(path).Text());
    return {document.at("folder").get<std::string>(), document.at("campaign").dump(), document.at("identity").dump(2)};
  } catch (const Document::exception&) {
    throw std::runtime_error(path + ": expected what 'quen-shs campaign run' has written, found something else");
  }
}

}  // namespace

CampaignFolder PrepareFolder(const std::string& name, const CampaignInputs& inputs) {
  const std::string path = CampaignFileOf(name);
  if (std::filesystem::exists(path)) {
    const std::string there = ReadStored(path).identity;
    if (there != inputs.Identity()) {
      throw std::runtime_error(fmt::format("{}: holds another campaign; {}; give another folder", name,
                                           Difference(Document::parse(there), Document::parse(inputs.Identity()), "")));
    }
  } else {
    const Document document = {{"folder", inputs.Of().folder},
                               {"campaign", Document::parse(Written(inputs.Of()))},
                               {"identity", Document::parse(inputs.Identity())}};
    StagedFiles files({path});
    files.Give(path, document.dump(2, ' ', false, Document::error_handler_t::replace) + "\n");
    files.Commit();
  }
  return {name, inputs.Of(), ResultsIn(name, inputs.Of(), inputs.Identity())};
}

CampaignFolder OpenFolder(const std::string& name) {
  const std::string path = CampaignFileOf(name);
  if (!std::filesystem::exists(path)) {
    throw std::runtime_error(name + ": expected the folder of a campaign, found no campaign.json in it");
  }
  const Stored stored = ReadStored(path);
  Campaign campaign = ParseCampaign(path, stored.campaign, stored.folder);
  ResultFiles results = ResultsIn(name, campaign, stored.identity);
  return {name, std::move(campaign), std::move(results)};
}

}  // namespace quen::workbench
