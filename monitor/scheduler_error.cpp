// SPDX-License-Identifier: Apache-2.0
#include "monitor/scheduler_error.h"

std::string explanation(const SchedulerError& error, std::optional<bool> shared) {
  const auto with_words = [&](std::string text) {
    return error.text.empty() ? text : std::move(text) + ": " + error.text;
  };
  switch (error.kind) {
    case SchedulerError::Kind::Unreachable:
      return with_words("it cannot be reached");
    case SchedulerError::Kind::NoAnswer:
    case SchedulerError::Kind::InvalidAnswer:
      return error.text;
    case SchedulerError::Kind::Forbidden:
      return with_words(shared == false ? "the queue is not shared with this computer"
                                        : "the print server does not allow it");
    case SchedulerError::Kind::Unauthorized:
      return with_words("the print server requires a password");
    case SchedulerError::Kind::NeedsEncryption:
      return with_words("no encrypted connection");
    case SchedulerError::Kind::NotFound:
      return with_words("not found");
    case SchedulerError::Kind::Busy:
      return with_words("the print server is busy");
    case SchedulerError::Kind::Refused:
      return with_words("the print server refused");
  }
  return error.text;
}
