#include "ProtocolMapping.h"

#include <stdlib.h>

#include "ConfigFile.h"
#include "product_path.h"

namespace BEXO {
namespace AppControl {

const char* const kActionLabels[kActionLabelCount] = {
    "Block Active",        "Block Instant Message", "Block Post Message",    "Block Upload File",
    "Block Download File", "Block Transfer File",   "Block Update Status",   "Block Play Media",
    "Block Video Voice Call", "Block Send Mail",
};

ProtocolMapping::ProtocolMapping() : total_(static_cast<int>(kTableSize)) {
  ClearTables();
  InitializeMappingTable();
}

void ProtocolMapping::ClearTables() {
  interested_.assign(kTableSize, 0);
  names_.assign(kTableSize, std::string());
  // Not listed means no category; identifier 0, which no line can list,
  // starts in category 0 as it always has.
  categories_.assign(kTableSize, -1);
  categories_[0] = 0;
  category_names_.clear();
}

std::string ProtocolMapping::GetHomeDirectory() {
  const char* home = getenv("BEXO_HOME");
  return home != nullptr ? std::string(home) : bexo::ProductPath("/etc/kvelo");
}

bool ProtocolMapping::InitializeMappingTable() {
  ClearTables();
  ConfigFile file;
  file.read_config(GetHomeDirectory() + "/appcMapping.ini");
  if (!file.ok()) return false;
  int32_t section_number = 0;
  for (const auto& section : file.GetRawData()) {
    category_names_.push_back(section.first);
    for (const auto& line : section.second) {
      long id = strtol(line.first.c_str(), nullptr, 10);
      if (id <= 0 || id >= static_cast<long>(kTableSize)) continue;
      interested_[id] = 1;
      names_[id] = line.second.substr(0, line.second.find('='));
      categories_[id] = section_number;
    }
    ++section_number;
  }
  return true;
}

std::string ProtocolMapping::GetProtocolName(unsigned int id) const {
  return id < kTableSize ? names_[id] : std::string();
}

std::string ProtocolMapping::GetCategoryName(unsigned int id) const {
  if (id >= kTableSize) return std::string();
  const int32_t category = categories_[id];
  if (category < 0 || static_cast<size_t>(category) >= category_names_.size()) return std::string();
  return category_names_[category];
}

bool ProtocolMapping::IsInterestedProtocol(unsigned int id) const { return interested_[id] == 1; }

unsigned int ProtocolMapping::TransformProtocolID(unsigned int id) {
  switch (id) {
    case 3:
    case 5:
    case 6:
    case 42:
    case 203:
    case 205:
    case 216:
      return GetUnclassifiedID();
    default:
      return id;
  }
}

}  // namespace AppControl
}  // namespace BEXO
