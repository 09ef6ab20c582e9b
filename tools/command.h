// Subcommands of the bexo tool. Each subsystem's file registers its command at
// start-up with BEXO_COMMAND, so adding one needs no edit elsewhere.
#pragma once

#include <string>

struct BexoCommand {
  const char* name;     // first word after "bexo", or two words ("db testdb")
  const char* summary;  // one line for "bexo help"
  int (*run)(int argc, char** argv);  // argv[0] is the command's last word
};

bool RegisterBexoCommand(const BexoCommand& command);

// Exit codes shared by every subcommand.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;  // the operation ran and failed (or found nothing)
constexpr int kExitUsage = 2;    // the command line was wrong

// Prints "bexo: " and the message to stderr; returns `code` for chaining.
int CommandError(int code, const std::string& message);

// kExitOk when `path` can be read as a file; otherwise prints
// "cannot read PATH: REASON" (a directory included) and returns kExitFailure.
int RequireReadableFile(const char* path);

// Parses all of `text` as a decimal integer from `min` to `max`.
bool ParseWholeNumber(const char* text, long long min, long long max, long long* value);

#define BEXO_COMMAND(name, summary, function) \
  static const bool kRegistered_##function = RegisterBexoCommand({name, summary, function})
