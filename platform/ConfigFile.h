// ConfigFile: reads an INI-style configuration file into memory: "[section]"
// headers, "key = value" lines (text before the first "=", trimmed; a line
// without "=" is a key with an empty value), ";" comment lines, a UTF-8 byte
// order mark ignored. Look-ups ignore the case of section and key names; the
// first of duplicate keys wins. GetRawData keeps the names as written,
// ordered byte-wise.
//
// LockingConfigFile adds an in-process mutex for callers that share one
// object between threads.
//
// Thread safety: reading a loaded object from several threads is safe;
// read_config must not run concurrently with anything else on the object.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "BEXOMutex.h"
#include "bexo_export.h"

class BEXO_EXPORT ConfigFile {
 public:
  using Section = std::map<std::string, std::string>;
  using RawData = std::map<std::string, Section>;

  ConfigFile() = default;
  explicit ConfigFile(const std::string& path) { read_config(path); }
  virtual ~ConfigFile();

  // Loads `path` (used as given); false, and ok() false, when it cannot be read.
  bool read_config(const std::string& path);
  bool ok() const { return ok_; }

  std::optional<std::string> get_value(const std::string& section, const std::string& key) const;
  const RawData& GetRawData() const { return data_; }

 private:
  const Section* FindSection(const std::string& section) const;

  RawData data_;
  bool ok_ = false;
};

class BEXO_EXPORT LockingConfigFile : public ConfigFile {
 public:
  using ConfigFile::ConfigFile;
  BEXOMutex& mutex() { return mutex_; }

 private:
  BEXOMutex mutex_;
};
