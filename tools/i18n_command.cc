// bexo i18n: read localized texts from the compiled resource bundles and try
// placeholder filling.
#include <stdio.h>
#include <string.h>
#include <unicode/uloc.h>

#include <map>
#include <string>
#include <vector>

#include "BEXOLocalizedStaticStrings.h"
#include "UxResBundle.h"
#include "command.h"
#include "product_path.h"

namespace {

constexpr char kUsage[] =
    "usage: bexo i18n get [--locale L] BUNDLE TABLE KEY [ARG...]\n"
    "           print a text read through UxResBundle; with ARGs, format it as an ICU message\n"
    "       bexo i18n list [--locale L] BUNDLE...\n"
    "           print every bundle/table/key of the static-string map, a tab and its text\n"
    "       bexo i18n format PATTERN [ARG...]\n"
    "           fill the placeholders {0}, {1}, ... of PATTERN with the ARGs\n"
    "BUNDLE is a name under $BEXO_ROOT/etc/kvelo/resource or a path; L defaults to ICU's\n"
    "default locale (from LANG).";

constexpr unsigned int kFormatOutputSize = 64 * 1024;

int Usage() { return CommandError(kExitUsage, kUsage); }

// The bundle's path: as given when it contains "/", else under the product's bundle directory.
std::string BundlePath(const std::string& bundle) {
  if (bundle.find('/') != std::string::npos) return bundle;
  return bexo::ProductPath(bexo::kResourceBundleDirectory) + "/" + bundle;
}

// Takes "--locale L" out of the arguments after the verb.
bool ParseArguments(int argc, char** argv, const char** locale, std::vector<const char*>* operands) {
  for (int i = 2; i < argc; ++i) {
    if (strcmp(argv[i], "--locale") == 0 && i + 1 < argc) {
      *locale = argv[++i];
    } else if (strncmp(argv[i], "--", 2) == 0) {
      return false;
    } else {
      operands->push_back(argv[i]);
    }
  }
  return true;
}

int Get(const char* locale, const std::vector<const char*>& operands) {
  const std::string path = BundlePath(operands[0]);
  UxResBundle bundle(path.c_str(), locale);
  if (!bundle.opened()) return CommandError(kExitFailure, "cannot open resource bundle " + path);
  const char* table = operands[1];
  const char* key = operands[2];
  std::vector<char> output(kFormatOutputSize);
  bool found;
  if (operands.size() == 3) {
    found = bundle.getUTF8String(table, key, output.data());
  } else {
    std::vector<icu::Formattable> arguments(operands.size() - 3);
    for (size_t i = 0; i < arguments.size(); ++i) {
      if (UxResBundle::getFormattable(operands[i + 3], &arguments[i]) != 0) {
        return CommandError(kExitUsage, std::string("argument too long: ") + operands[i + 3]);
      }
    }
    found = bundle.getFormattedUTF8String(table, key, arguments.data(),
                                          static_cast<unsigned int>(arguments.size()), output.data(),
                                          kFormatOutputSize);
  }
  if (!found) {
    return CommandError(kExitFailure, std::string("no text ") + table + "/" + key + " in " + path);
  }
  printf("%s\n", output.data());
  return kExitOk;
}

// One line per entry: a line feed in a text is shown as "\n".
int List(const char* locale, const std::vector<const char*>& operands) {
  std::string directory;
  std::vector<std::string> names;
  for (const char* operand : operands) {
    const std::string path = BundlePath(operand);
    const size_t slash = path.rfind('/');
    if (!directory.empty() && path.compare(0, slash, directory) != 0) {
      return CommandError(kExitUsage, "all bundles must be in one directory");
    }
    directory = path.substr(0, slash);
    names.push_back(path.substr(slash + 1));
  }
  std::vector<const char*> name_pointers;
  for (const auto& name : names) name_pointers.push_back(name.c_str());
  BEXOLocalizedStaticStrings strings(locale != nullptr ? locale : uloc_getDefault(), directory.c_str(),
                                     name_pointers.data(), static_cast<unsigned int>(names.size()));
  std::map<std::string, std::string> sorted;
  strings.ForEachString([&](const char* key, const char* text) { sorted[key] = text; });
  if (sorted.empty()) return CommandError(kExitFailure, "no strings loaded from " + directory);
  for (const auto& entry : sorted) {
    std::string text;
    for (char c : entry.second) text += c == '\n' ? std::string("\\n") : std::string(1, c);
    printf("%s\t%s\n", entry.first.c_str(), text.c_str());
  }
  return kExitOk;
}

int Format(const std::vector<const char*>& operands) {
  std::vector<char> output(kFormatOutputSize);
  std::vector<const char*> arguments(operands.begin() + 1, operands.end());
  BEXOLocalizedStaticStrings::FormatLocalizedString(operands[0], output.data(), kFormatOutputSize,
                                                    static_cast<unsigned int>(arguments.size()),
                                                    arguments.data());
  printf("%s\n", output.data());
  return kExitOk;
}

int RunI18n(int argc, char** argv) {
  if (argc < 2) return Usage();
  const std::string verb = argv[1];
  if (verb == "format") {
    if (argc < 3) return Usage();
    return Format(std::vector<const char*>(argv + 2, argv + argc));
  }
  const char* locale = nullptr;
  std::vector<const char*> operands;
  if (!ParseArguments(argc, argv, &locale, &operands)) return Usage();
  if (verb == "get" && operands.size() >= 3) return Get(locale, operands);
  if (verb == "list" && !operands.empty()) return List(locale, operands);
  return Usage();
}

}  // namespace

BEXO_COMMAND("i18n", "localized texts of the resource bundles (get, list, format)", RunI18n);
