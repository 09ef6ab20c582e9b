// UxDbAgent: gives access to an open UxDbConnect, connected on first use with
// the settings of one section of "/etc/kvelo/morvane.ini" (see db_settings.h).
//
// Thread safety: one thread at a time per agent.
#pragma once

#include <memory>

#include "UxDbConnect.h"
#include "bexo_export.h"
#include "db_settings.h"

class BEXO_EXPORT UxDbAgent {
 public:
  // Reads the settings of `section` now; connects on the first getConnection.
  explicit UxDbAgent(const char* section = "Database");
  explicit UxDbAgent(const DbSettings& settings);
  ~UxDbAgent();
  UxDbAgent(const UxDbAgent&) = delete;
  UxDbAgent& operator=(const UxDbAgent&) = delete;

  // The open connection; throws UxDbException when the settings could not be
  // read or the server does not answer.
  UxDbConnect& getConnection();

 private:
  DbSettings settings_;
  std::unique_ptr<UxDbConnect> connect_;
};
