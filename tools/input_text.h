// Reading a command's input text: a file, or stdin for "-".
#pragma once

#include <string>

// The whole content of `path` ("-": stdin) into `out`; false when unreadable.
bool ReadInputText(const char* path, std::string* out);
