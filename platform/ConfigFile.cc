#include "ConfigFile.h"

#include <strings.h>

#include <fstream>

namespace {

std::string Trim(const std::string& text) {
  const char* space = " \t\r\n\f\v";
  size_t first = text.find_first_not_of(space);
  if (first == std::string::npos) return std::string();
  return text.substr(first, text.find_last_not_of(space) - first + 1);
}

template <typename Map>
auto FindIgnoringCase(const Map& map, const std::string& name) -> decltype(map.end()) {
  auto exact = map.find(name);
  if (exact != map.end()) return exact;
  for (auto it = map.begin(); it != map.end(); ++it) {
    if (strcasecmp(it->first.c_str(), name.c_str()) == 0) return it;
  }
  return map.end();
}

}  // namespace

ConfigFile::~ConfigFile() = default;

bool ConfigFile::read_config(const std::string& path) {
  data_.clear();
  std::ifstream in(path);
  ok_ = static_cast<bool>(in);
  if (!ok_) return false;
  std::string line;
  Section* section = nullptr;
  bool first_line = true;
  while (std::getline(in, line)) {
    if (first_line && line.compare(0, 3, "\xEF\xBB\xBF") == 0) line.erase(0, 3);
    first_line = false;
    std::string text = Trim(line);
    if (text.empty() || text[0] == ';') continue;
    if (text[0] == '[') {
      size_t close = text.find(']');
      std::string name = Trim(text.substr(1, close == std::string::npos ? close : close - 1));
      auto found = FindIgnoringCase(data_, name);
      section = found != data_.end() ? &data_[found->first] : &data_[name];
      continue;
    }
    if (section == nullptr) continue;
    size_t eq = text.find('=');
    std::string key = Trim(text.substr(0, eq));
    std::string value = eq == std::string::npos ? std::string() : Trim(text.substr(eq + 1));
    if (FindIgnoringCase(*section, key) == section->end()) section->emplace(key, value);
  }
  return true;
}

const ConfigFile::Section* ConfigFile::FindSection(const std::string& section) const {
  auto it = FindIgnoringCase(data_, section);
  return it == data_.end() ? nullptr : &it->second;
}

std::optional<std::string> ConfigFile::get_value(const std::string& section,
                                                 const std::string& key) const {
  const Section* found = FindSection(section);
  if (found == nullptr) return std::nullopt;
  auto it = FindIgnoringCase(*found, key);
  if (it == found->end()) return std::nullopt;
  return it->second;
}
