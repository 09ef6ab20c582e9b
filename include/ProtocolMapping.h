// BEXO::AppControl::ProtocolMapping: the application-control protocol table.
// Loads "appcMapping.ini" from the product home directory ("BEXO_HOME", else
// "/etc/kvelo"): each section is a category, each "id=name" line in it marks
// a protocol identifier (1 to 3199) as of interest with its display name
// (the value up to a further "="). Categories are numbered in byte order of
// their section names, not in file order.
//
// Thread safety: lookups on a loaded object may run in parallel;
// InitializeMappingTable must not run concurrently with anything else on it.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "bexo_export.h"

namespace BEXO {
namespace AppControl {

// The labels of the application-control actions, in the order of their codes.
constexpr unsigned int kActionLabelCount = 10;
BEXO_EXPORT extern const char* const kActionLabels[kActionLabelCount];

class BEXO_EXPORT ProtocolMapping {
 public:
  static constexpr unsigned int kTableSize = 3200;

  // Loads the file at once; an unreadable file leaves every lookup empty.
  ProtocolMapping();

  // (Re)loads the table; false when the file cannot be read.
  bool InitializeMappingTable();
  static std::string GetHomeDirectory();

  // "" for identifiers not listed (or above 3199).
  std::string GetProtocolName(unsigned int id) const;
  std::string GetCategoryName(unsigned int id) const;
  // Callers pass identifiers below 3200.
  bool IsInterestedProtocol(unsigned int id) const;
  int GetTotalProtocolCount() const { return total_; }

  // Folds the identifiers counted as unclassified into GetUnclassifiedID().
  static unsigned int TransformProtocolID(unsigned int id);
  static unsigned int GetUnclassifiedID() { return 4; }

 private:
  void ClearTables();

  std::vector<uint8_t> interested_;
  std::vector<std::string> names_;
  std::vector<int32_t> categories_;
  std::vector<std::string> category_names_;
  int total_;
};

}  // namespace AppControl
}  // namespace BEXO
