#include "python_runner.h"

#include "temp_root.h"

namespace bexo_test {

int RunPython(const std::string& work_dir, const std::string& script, const std::string& input,
              std::string* output) {
  std::string script_path = work_dir + "/check.py";
  std::string input_path = work_dir + "/check.in";
  WriteFile(script_path, script);
  WriteFile(input_path, input);
  return RunCommand("python3 " + script_path + " < " + input_path, output);
}

}  // namespace bexo_test
