#pragma once
// One-line checks of a run of the command-line tool: its exit status and its output.

#include "support/RunCommand.h"

#include <gtest/gtest.h>

#include <string>

namespace vrtest {

/// The run ended with `code` and wrote exactly `output`.
inline ::testing::AssertionResult ran(const CommandResult& result, int code, const std::string& output) {
  if (result.exitCode == code && result.output == output) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "exit " << result.exitCode << " (expected " << code << "), output:\n"
                                       << result.output << "\nexpected:\n"
                                       << output;
}

/// The run ended with `code` and its output holds `part`.
inline ::testing::AssertionResult ranWith(const CommandResult& result, int code, const std::string& part) {
  if (result.exitCode == code && result.output.find(part) != std::string::npos) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "exit " << result.exitCode << " (expected " << code << "), output:\n"
                                       << result.output << "\nexpected to hold:\n"
                                       << part;
}

}  // namespace vrtest
