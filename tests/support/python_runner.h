// Test support: runs a Python 3 script, the independent implementation that
// several tests check the library against (base64, quopri, email).
#pragma once

#include <string>

namespace bexo_test {

// Runs `script` with `input` on its stdin; returns the exit status and leaves
// its stdout in `output`. `work_dir` holds the script and input files.
int RunPython(const std::string& work_dir, const std::string& script, const std::string& input,
              std::string* output);

}  // namespace bexo_test
